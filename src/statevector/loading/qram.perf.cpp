// Both kinds of QRAM at 24 qubits in double precision, in sweeps over the state timed beside them.
// Names read case/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <numeric>
#include <random>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

template <class Load>
void time_load(benchmark::State& bench, Load load) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { load(state); });
}

void load_blocks(benchmark::State& bench, const std::vector<unsigned int>& registers, unsigned int naddress) {
    // Equal parts: each load takes a root of the block length from the amplitudes, far from denormal after a few.
    const std::vector<thrust::complex<double>> data(1ul << registers.size(), {1.0, 0.0});
    time_load(bench, [&](auto& state) { state.apply_qram(data.data(), registers, naddress); });
}

void load_values(benchmark::State& bench, const std::vector<unsigned int>& registers, unsigned int naddress) {
    std::mt19937_64 random(1);
    std::vector<unsigned long> data(1ul << naddress);
    for (auto& value : data) value = random();
    time_load(bench, [&](auto& state) { state.apply_binary_qram(data.data(), registers, naddress); });
}

std::vector<unsigned int> all_qubits() {
    std::vector<unsigned int> list(qubits);
    std::iota(list.begin(), list.end(), 0u);
    return list;
}

void qram_spread(benchmark::State& bench) { load_blocks(bench, {3, 7, 12, 18, 23, 9}, 3); }
void qram_low(benchmark::State& bench) { load_blocks(bench, {0, 1, 2, 3, 4, 5}, 3); }
void qram_high(benchmark::State& bench) { load_blocks(bench, {18, 19, 20, 21, 22, 23}, 3); }
void qram_all(benchmark::State& bench) { load_blocks(bench, all_qubits(), 12); }
void binary_qram_spread(benchmark::State& bench) { load_values(bench, {3, 7, 12, 18, 23, 9}, 3); }
void binary_qram_low(benchmark::State& bench) { load_values(bench, {0, 1, 2, 3, 4, 5}, 3); }
void binary_qram_all(benchmark::State& bench) { load_values(bench, all_qubits(), 12); }

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(qram_spread)->Apply(threads);
BENCHMARK(qram_low)->Apply(threads);
BENCHMARK(qram_high)->Apply(threads);
BENCHMARK(qram_all)->Apply(threads);
BENCHMARK(binary_qram_spread)->Apply(threads);
BENCHMARK(binary_qram_low)->Apply(threads);
BENCHMARK(binary_qram_all)->Apply(threads);

}  // namespace
