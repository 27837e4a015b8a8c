// Pauli sums at 22 qubits in double precision, in reading passes over the state timed beside them.
// Names read case/terms/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <bit>
#include <random>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 22;

// `terms` strings with random signs on the given flips in turn.
WObservable<double> observable_on(const std::vector<unsigned long>& flips, long terms) {
    std::mt19937_64 random(1);
    WObservable<double> observable;
    for (long t = 0; t < terms; ++t) {
        const unsigned long flip = flips[static_cast<std::size_t>(t) % flips.size()];
        const unsigned long phase = random() & ((1ul << qubits) - 1);
        observable.flip_masks.push_back(flip);
        observable.phase_masks.push_back(phase);
        observable.y_counts.push_back(static_cast<unsigned int>(std::popcount(flip & phase)));
        observable.coefficients.push_back({1.0, 0.0});
    }
    return observable;
}

std::vector<unsigned long> random_flips(unsigned int count) {
    std::mt19937_64 random(2);
    std::vector<unsigned long> flips(count);
    for (auto& flip : flips) flip = random() & ((1ul << qubits) - 1);
    return flips;
}

// X or Y on neighbours: what spin chains and their like flip.
std::vector<unsigned long> neighbour_flips() {
    std::vector<unsigned long> flips;
    for (unsigned int q = 0; q + 1 < qubits; ++q) flips.push_back(3ul << q);
    return flips;
}

void time_sum(benchmark::State& bench, const std::vector<unsigned long>& flips) {
    const long terms = bench.range(0);
    const int threads = static_cast<int>(bench.range(1));
    auto& state = spread_state<double>(qubits, threads);
    const WObservable<double> observable = observable_on(flips, terms);
    time_beside_limit(
        bench, [&] { return read_seconds(state.amplitudes.get(), state.size * sizeof(double) * 2, threads); },
        [&] { benchmark::DoNotOptimize(state.expectation_value(observable)); }, static_cast<double>(terms));
}

void diagonal_terms(benchmark::State& bench) { time_sum(bench, {0}); }
void terms_on_100_flips(benchmark::State& bench) { time_sum(bench, random_flips(100)); }
void terms_on_neighbours(benchmark::State& bench) { time_sum(bench, neighbour_flips()); }

void sizes(benchmark::internal::Benchmark* benchmark, std::initializer_list<long> terms) {
    for (const long t : terms) {
        for (const long threads : {2, 1}) benchmark->Args({t, threads});
    }
    benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(diagonal_terms)->Apply([](auto* b) { sizes(b, {1, 10, 100, 1000}); });
BENCHMARK(terms_on_100_flips)->Apply([](auto* b) { sizes(b, {100, 1000}); });
BENCHMARK(terms_on_neighbours)->Apply([](auto* b) { sizes(b, {21, 210}); });

}  // namespace
