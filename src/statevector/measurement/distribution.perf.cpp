// Marginal distributions at 24 qubits in double precision, in reading passes over the state timed beside them. Names
// read case/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <map>
#include <numeric>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

std::vector<unsigned int> listed(unsigned int count, unsigned int first) {
    std::vector<unsigned int> list(count);
    std::iota(list.begin(), list.end(), first);
    return list;
}

template <class Work>
void time_reading(benchmark::State& bench, Work work) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    time_beside_limit(
        bench, [&] { return read_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { work(state); });
}

void distribute(benchmark::State& bench, const std::vector<unsigned int>& over) {
    std::vector<double> out(1ul << over.size());
    time_reading(bench, [&](auto& state) { state.get_distribution(out.data(), 0.0, over); });
}

void over_the_lowest_qubit(benchmark::State& bench) { distribute(bench, {0}); }
void over_a_middle_qubit(benchmark::State& bench) { distribute(bench, {12}); }
void over_the_highest_qubit(benchmark::State& bench) { distribute(bench, {qubits - 1}); }
void over_10_low_qubits(benchmark::State& bench) { distribute(bench, listed(10, 0)); }
void over_10_middle_qubits(benchmark::State& bench) { distribute(bench, listed(10, 7)); }
void over_10_high_qubits(benchmark::State& bench) { distribute(bench, listed(10, qubits - 10)); }
void over_all_qubits(benchmark::State& bench) { distribute(bench, listed(qubits, 0)); }

void as_a_map_over_10_qubits(benchmark::State& bench) {
    time_reading(bench, [](auto& state) { delete state.get_mapped_distribution(0.0, listed(10, 4)); });
}

void probability_of_one_qubit(benchmark::State& bench) {
    double sum = 0;
    time_reading(bench, [&](auto& state) { sum += state.probability(1, listed(1, 12)); });
    benchmark::DoNotOptimize(sum);
}

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(over_the_lowest_qubit)->Apply(threads);
BENCHMARK(over_a_middle_qubit)->Apply(threads);
BENCHMARK(over_the_highest_qubit)->Apply(threads);
BENCHMARK(over_10_low_qubits)->Apply(threads);
BENCHMARK(over_10_middle_qubits)->Apply(threads);
BENCHMARK(over_10_high_qubits)->Apply(threads);
BENCHMARK(over_all_qubits)->Apply(threads);
BENCHMARK(as_a_map_over_10_qubits)->Apply(threads);
BENCHMARK(probability_of_one_qubit)->Apply(threads);

}  // namespace
