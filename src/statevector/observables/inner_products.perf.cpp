// Overlaps and reduced density matrices at 24 qubits in double precision, in reading passes over the state timed beside
// them. Names read case/qubits/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <velacamplix/inner_products.hpp>

#include <algorithm>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int n = 24;

template <class Work>
void time_beside_reads(benchmark::State& bench, Work work) {
    const int threads = static_cast<int>(bench.range(1));
    auto& state = spread_state<double>(n, threads);
    time_beside_limit(
        bench, [&] { return read_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { work(state, threads); });
}

// Of a state with itself: one array comes from memory.
void overlap_with_itself(benchmark::State& bench) {
    time_beside_reads(bench, [](auto& state, int threads) {
        const auto* amplitudes = state.amplitudes.get();
        benchmark::DoNotOptimize(pbamplix::cpu::overlap(amplitudes, amplitudes, state.size, threads));
    });
}

void time_reduction(benchmark::State& bench, unsigned int first, unsigned int distance) {
    const auto k = static_cast<unsigned int>(bench.range(0));
    std::vector<unsigned int> qubits;
    for (unsigned int j = 0; j < k; ++j) qubits.push_back(first + j * distance);
    std::vector<thrust::complex<double>> matrix(1ul << 2 * k);
    time_beside_reads(bench, [&](auto& state, int threads) {
        pbamplix::cpu::reduced_density_matrix(state.amplitudes.get(), n, qubits, matrix.data(), threads);
        benchmark::DoNotOptimize(matrix.data());
    });
}

void lowest_qubits(benchmark::State& bench) { time_reduction(bench, 0, 1); }
void highest_qubits(benchmark::State& bench) {
    time_reduction(bench, n - static_cast<unsigned int>(bench.range(0)), 1);
}
void spread_qubits(benchmark::State& bench) { time_reduction(bench, 1, 3); }

void sizes(benchmark::internal::Benchmark* benchmark, std::initializer_list<long> qubits) {
    for (const long k : qubits) {
        for (const long threads : {2, 1}) benchmark->Args({k, threads});
    }
    benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(overlap_with_itself)->Apply([](auto* b) { sizes(b, {0}); });
BENCHMARK(lowest_qubits)->Apply([](auto* b) { sizes(b, {1, 2, 3, 4, 5, 6, 8}); });
BENCHMARK(highest_qubits)->Apply([](auto* b) { sizes(b, {1, 2, 3, 4, 5, 6, 8}); });
BENCHMARK(spread_qubits)->Apply([](auto* b) { sizes(b, {1, 2, 3, 4, 5, 6}); });

}  // namespace
