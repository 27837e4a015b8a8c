// The running sum of 2^24 probabilities: one addition after another, and shared by threads with the same bits. Names
// read case<precision>/threads.

#include "statevector/measurement/running_sum.hpp"
#include "statevector/measurement/views.hpp"

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <velacamplix/measurement.hpp>

namespace {

using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

template <class T, class Work>
void time_reading(benchmark::State& bench, Work work) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<T>(qubits, threads);
    const auto view = velacamplix::measurement::state_view(state.amplitudes.get(), qubits);
    time_beside_limit(
        bench, [&] { return read_seconds(state.amplitudes.get(), state.size * sizeof(T) * 2, threads); },
        [&] { work(view, threads); });
}

template <class T>
void one_addition_after_another(benchmark::State& bench) {
    time_reading<T>(bench, [](const auto& view, int) {
        T last = 0;
        velacamplix::measurement::walk_running_sum(view, [&](unsigned long, const T* sums, unsigned long count) {
            last = sums[count - 1];
            return true;
        });
        benchmark::DoNotOptimize(last);
    });
}

// A single shot that reaches the end: the sums, and one block walked.
template <class T>
void shared_by_threads(benchmark::State& bench) {
    time_reading<T>(bench, [](const auto& view, int threads) {
        std::mt19937_64 engine(1);
        unsigned long shots[4];
        pbamplix::cpu::pick_shots_state(view, shots, engine, 4, threads, std::vector<unsigned int>{});
        benchmark::DoNotOptimize(shots);
    });
}

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(one_addition_after_another<double>)->Apply(threads);
BENCHMARK(one_addition_after_another<float>)->Apply(threads);
BENCHMARK(shared_by_threads<double>)->Apply(threads);
BENCHMARK(shared_by_threads<float>)->Apply(threads);

}  // namespace
