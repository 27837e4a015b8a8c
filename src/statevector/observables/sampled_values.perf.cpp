// Sampled Pauli terms at 24 qubits in double precision, in sweeps over the state timed beside them.
// Names read case/shots/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

void term_on_three_qubits(benchmark::State& bench) {
    const auto shots = static_cast<unsigned long>(bench.range(0));
    const int threads = static_cast<int>(bench.range(1));
    auto& state = spread_state<double>(qubits, threads);
    const std::vector<pbamplix::SimpleTerm<double>> terms = {{{1, 12, 23}, "XYX", {1.0, 0.0}}};
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { benchmark::DoNotOptimize(state.evaluate_terms(terms, shots)); });
}

BENCHMARK(term_on_three_qubits)
    ->ArgsProduct({{10000, 1000000}, {2, 1}})
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace
