#pragma once

#include <velacamplix/statevector.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

namespace velacamplix::bench {

// Times `work` once per iteration and `limit()`, in seconds, right before and after it, since the memory of a shared
// machine swings from minute to minute. The counter `limits` is the median of work over limit; with `pieces` the
// counter `limits_per_piece` says the same for one of them (one Pauli term, say).
template <class Limit, class Work>
void time_beside_limit(benchmark::State& bench, Limit limit, Work work, double pieces = 0) {
    std::vector<double> ratios;
    work();
    for (auto _ : bench) {
        const double before = limit();
        const auto start = std::chrono::steady_clock::now();
        work();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double after = limit();
        bench.SetIterationTime(seconds);
        ratios.push_back(2 * seconds / (before + after));
    }
    const auto middle = ratios.begin() + static_cast<long>(ratios.size() / 2);
    std::nth_element(ratios.begin(), middle, ratios.end());
    bench.counters["limits"] = *middle;
    if (pieces > 0) bench.counters["limits_per_piece"] = *middle / pieces;
}

// A state of n qubits with every amplitude different from zero; kept until another size is asked for.
template <class T>
pbamplix::cpu::PybindAmplixStateVectorCPU<T>& spread_state(unsigned int n, int threads) {
    static std::unique_ptr<pbamplix::cpu::PybindAmplixStateVectorCPU<T>> state;
    if (state == nullptr || state->nqubits != n) {
        state.reset();
        state = std::make_unique<pbamplix::cpu::PybindAmplixStateVectorCPU<T>>(n);
    }
    state->set_num_threads(threads);
    state->reset();
    for (unsigned int q = 0; q < n; ++q) state->apply_RX(q, T(0.3) + T(q) / 10);
    return *state;
}

}  // namespace velacamplix::bench
