// The phase oracle with 1000 marked values at 24 qubits in double precision, in sweeps over the state timed beside
// it. Names read case/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <numeric>
#include <random>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

// `count` qubits from `first` on, counted from the outside.
void mark(benchmark::State& bench, unsigned int first, unsigned int count, unsigned long marks) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    std::vector<unsigned int> listed(count);
    std::iota(listed.begin(), listed.end(), first);
    std::mt19937_64 random(1);
    std::vector<unsigned long> marked(marks);
    for (auto& value : marked) value = random() & ((1ul << count) - 1);
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { state.apply_phase_oracle(marked, listed); });
}

void one_mark_on_one_qubit(benchmark::State& bench) { mark(bench, 0, 1, 1); }
void on_all_qubits(benchmark::State& bench) { mark(bench, 0, qubits, 1000); }
void on_ten_high_index_bits(benchmark::State& bench) { mark(bench, 0, 10, 1000); }
void on_ten_middle_index_bits(benchmark::State& bench) { mark(bench, 7, 10, 1000); }
void on_ten_low_index_bits(benchmark::State& bench) { mark(bench, 14, 10, 1000); }

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(one_mark_on_one_qubit)->Apply(threads);
BENCHMARK(on_all_qubits)->Apply(threads);
BENCHMARK(on_ten_high_index_bits)->Apply(threads);
BENCHMARK(on_ten_middle_index_bits)->Apply(threads);
BENCHMARK(on_ten_low_index_bits)->Apply(threads);

}  // namespace
