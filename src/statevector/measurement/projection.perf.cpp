// Projection at 24 qubits in double precision, in sweeps over the state timed beside it. Names read case/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

template <class Work>
void time_sweeping(benchmark::State& bench, Work work) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    // The limit multiplies the state by 1; a projection onto what is left does the full work again.
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { work(state); });
}

void project(benchmark::State& bench, const std::vector<unsigned int>& listed) {
    time_sweeping(bench, [&](auto& state) { state.project(listed, 0); });
}

void the_lowest_qubit(benchmark::State& bench) { project(bench, {0}); }
void qubit_1(benchmark::State& bench) { project(bench, {1}); }
void qubit_3(benchmark::State& bench) { project(bench, {3}); }
void a_middle_qubit(benchmark::State& bench) { project(bench, {12}); }
void the_highest_qubit(benchmark::State& bench) { project(bench, {qubits - 1}); }
void three_low_qubits(benchmark::State& bench) { project(bench, {0, 1, 2}); }
void no_qubit(benchmark::State& bench) { project(bench, {}); }

void then_reset_of_a_middle_qubit(benchmark::State& bench) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] {
            state.project_then_reset({12}, 1);
            state.apply_X(12);
        });
}

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(the_lowest_qubit)->Apply(threads);
BENCHMARK(qubit_1)->Apply(threads);
BENCHMARK(qubit_3)->Apply(threads);
BENCHMARK(a_middle_qubit)->Apply(threads);
BENCHMARK(the_highest_qubit)->Apply(threads);
BENCHMARK(three_low_qubits)->Apply(threads);
BENCHMARK(no_qubit)->Apply(threads);
BENCHMARK(then_reset_of_a_middle_qubit)->Apply(threads);

}  // namespace
