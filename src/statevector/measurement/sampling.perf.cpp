// Shots and single measurements at 24 qubits, in reading passes over the state timed beside them. Names read
// case<precision>/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

template <class T, class Work>
void time_reading(benchmark::State& bench, Work work) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<T>(qubits, threads);
    state.rng.seed(1);
    time_beside_limit(
        bench, [&] { return read_seconds(state.amplitudes.get(), state.size * sizeof(T) * 2, threads); },
        [&] { work(state); });
}

template <class T>
void a_million_shots(benchmark::State& bench) {
    std::vector<unsigned long> shots(1000000);
    time_reading<T>(bench, [&](auto& state) { state.sample(shots.data(), shots.size()); });
}

template <class T>
void a_million_shots_over_10_qubits(benchmark::State& bench) {
    std::vector<unsigned long> shots(1000000);
    const std::vector<unsigned int> listed = {3, 17, 0, 9, 22, 14, 6, 11, 1, 20};
    time_reading<T>(bench, [&](auto& state) { state.sample_subset(shots.data(), listed, shots.size()); });
}

template <class T>
void a_thousand_shots(benchmark::State& bench) {
    std::vector<unsigned long> shots(1000);
    time_reading<T>(bench, [&](auto& state) { state.sample(shots.data(), shots.size()); });
}

// The farthest a measurement can go: the state with all its weight on the last index.
template <class T>
void measure_the_last_index(benchmark::State& bench) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<T>(qubits, threads);
    std::fill_n(state.amplitudes.get(), state.size, thrust::complex<T>());
    state.amplitudes[state.size - 1] = T(1);
    unsigned long sum = 0;
    time_beside_limit(
        bench, [&] { return read_seconds(state.amplitudes.get(), state.size * sizeof(T) * 2, threads); },
        [&] { sum += state.measure({}); });
    benchmark::DoNotOptimize(sum);
}

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(a_million_shots<double>)->Apply(threads);
BENCHMARK(a_million_shots_over_10_qubits<double>)->Apply(threads);
BENCHMARK(a_thousand_shots<double>)->Apply(threads);
BENCHMARK(measure_the_last_index<double>)->Apply(threads);
BENCHMARK(a_million_shots<float>)->Apply(threads);
BENCHMARK(measure_the_last_index<float>)->Apply(threads);

}  // namespace
