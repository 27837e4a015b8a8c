#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/gradients/blocks.hpp"
#include "statevector/gradients/derivative_sums.hpp"
#include "statevector/plan/layers.hpp"

#include <velacamplix/work_hook.hpp>

#include <functional>
#include <span>
#include <vector>

namespace velacamplix::gradients {

// How a list of gates goes back: block i of the layers is the i-th from the end.
template <class T>
struct plan_back {
    unsigned int state_qubits = 0;
    bool fusion = false;
    block_list<T> blocks;
    std::vector<plan::layer> layers;
};

// Blocks are made with `fusion` alone, and follow from the angles then. Commuting blocks may change places, and buffers
// have one size on all machines, so the plan, and with it the order of all sums, follows from the gates and the number
// of qubits alone. go_on hears every few thousand gates and may throw.
template <class T>
plan_back<T> make_plan_back(std::span<const gates::operation<T>> operations, unsigned nbqbits, bool fusion,
                            const std::function<void()>& go_on = {});

// Sums that are to be formed behind a block.
struct sums_behind {
    unsigned long block;
    std::vector<pauli_sum> sums;  // masks over qubits
};

// Takes the state psi that the gates have made, and each lambda, back to before the first gate; totals[k] has for
// lambdas[k] the sums of all `wanted`, one after another, which are in the order of their blocks. Sums over chunks are
// added in fixed sections and these in order. The hook hears, between passes, how many gates have been undone, and may
// throw: the states are lost then, as when memory runs out.
template <class T>
std::vector<std::vector<double>> run_back(std::span<const gates::operation<T>> operations, const plan_back<T>& plan,
                                          const std::vector<sums_behind>& wanted, int nthreads, thrust::complex<T>* psi,
                                          const std::vector<thrust::complex<T>*>& lambdas,
                                          const pbamplix::work_hook& hook = {});

}  // namespace velacamplix::gradients
