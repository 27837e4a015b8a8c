#pragma once

#include "complex.hpp"

#include <map>
#include <optional>
#include <random>

namespace reference {

// The number in [0, 1) that one output of the engine stands for.
template <class T>
T drawn_number(unsigned long output);

// Scan of the running sum from index 0: the first index whose sum r is not above, else the last. All ones when r is
// not above 0. `view` holds the probabilities.
template <class T>
unsigned long chosen_index(const std::vector<T>& view, T r);

// Reads the listed qubits of an index, the first as most significant bit; without a list all n, qubit 0 first.
unsigned long outcome(unsigned long index, unsigned int n, const Qubits& qubits);

// One scan per shot, each with the engine's next output.
template <class T>
std::vector<unsigned long> sampled(const std::vector<T>& view, std::mt19937_64& engine, unsigned long shots,
                                   const Qubits& qubits);

// The state after its listed qubits were found to read `value` (first listed = most significant bit); nothing when
// that has probability 0. The norm is a marginal_sum.
template <class T>
std::optional<State<T>> projected(const State<T>& state, const Qubits& qubits, unsigned long value);

// Each amplitude whose listed qubits read `value` is moved to where they read 0.
template <class T>
State<T> moved_to_zero(const State<T>& state, const Qubits& qubits, unsigned long value);

// Values other than zero whose probability is above threshold_sq, by reversed index.
template <class T, class Element>
std::map<unsigned long, Element> mapped(const std::vector<T>& view, const std::vector<Element>& elements,
                                        T threshold_sq);

// Outcome over the listed qubits -> its probability, where that is above threshold_sq and not 0.
template <class T>
std::map<unsigned long, T> mapped_distribution(const std::vector<T>& view, T threshold_sq, const Qubits& qubits);

}  // namespace reference
