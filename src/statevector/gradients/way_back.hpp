#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/gradients/derivative_sums.hpp"
#include "statevector/plan/layers.hpp"

#include <velacamplix/work_hook.hpp>

#include <functional>
#include <span>
#include <vector>

namespace velacamplix::gradients {

// The layers of a list of gates in reverse order: gate i of theirs is the i-th from the end. Commuting gates may change
// places, and buffers have one size on all machines, so the layers, and with them the order of all sums, follow from
// the gates and the number of qubits alone. go_on hears every few thousand gates and may throw.
template <class T>
std::vector<plan::layer> layers_back(std::span<const gates::operation<T>> operations, unsigned nbqbits,
                                     const std::function<void()>& go_on = {});

// Sums that are to be formed behind a gate.
struct sums_at_gate {
    unsigned long gate;
    std::vector<pauli_sum> sums;  // masks over qubits
};

// Takes the state psi that the gates have made, and each lambda, back to before the first gate; totals[k] has for
// lambdas[k] the sums of all `wanted`, one after another, which are in the order of their gates. Sums over chunks are
// added in fixed sections and these in order. The hook hears, between passes, how many gates have been undone, and may
// throw: the states are lost then, as when memory runs out.
template <class T>
std::vector<std::vector<double>> run_back(std::span<const gates::operation<T>> operations,
                                          const std::vector<plan::layer>& layers,
                                          const std::vector<sums_at_gate>& wanted, unsigned nbqbits, int nthreads,
                                          thrust::complex<T>* psi, const std::vector<thrust::complex<T>*>& lambdas,
                                          const pbamplix::work_hook& hook = {});

}  // namespace velacamplix::gradients
