// State preparation at 24 qubits in double precision, in sweeps over the state timed beside it.
// Names read case/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <cmath>
#include <numeric>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

void prepare(benchmark::State& bench, const std::vector<unsigned int>& targets) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    const unsigned long entries = 1ul << targets.size();
    std::vector<thrust::complex<double>> data(entries, {1 / std::sqrt(static_cast<double>(entries)), 0.0});
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { state.apply_state_preparation(data.data(), targets); });
}

std::vector<unsigned int> first_qubits(unsigned int count) {
    std::vector<unsigned int> list(count);
    std::iota(list.begin(), list.end(), 0u);
    return list;
}

void one_low_qubit(benchmark::State& bench) { prepare(bench, {0}); }
void five_low_qubits(benchmark::State& bench) { prepare(bench, first_qubits(5)); }
void five_spread_qubits(benchmark::State& bench) { prepare(bench, {3, 7, 12, 18, 23}); }
void five_high_qubits(benchmark::State& bench) { prepare(bench, {23, 22, 21, 20, 19}); }
void sixteen_qubits(benchmark::State& bench) { prepare(bench, first_qubits(16)); }
void all_qubits(benchmark::State& bench) { prepare(bench, first_qubits(qubits)); }

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(one_low_qubit)->Apply(threads);
BENCHMARK(five_low_qubits)->Apply(threads);
BENCHMARK(five_spread_qubits)->Apply(threads);
BENCHMARK(five_high_qubits)->Apply(threads);
BENCHMARK(sixteen_qubits)->Apply(threads);
BENCHMARK(all_qubits)->Apply(threads);

}  // namespace
