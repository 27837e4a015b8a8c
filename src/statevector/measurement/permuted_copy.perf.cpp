// Dense exports at 24 qubits, in copies of the same array by memcpy, its halves on as many threads, timed beside them.
// Names read case<precision>/threads.

#include "statevector/storage/parallel.hpp"

#include "beside_limit.hpp"

#include <cstring>

namespace {

using namespace velacamplix;
using namespace velacamplix::bench;

constexpr unsigned int qubits = 24;

double copy_seconds(void* to, const void* from, std::size_t bytes, int threads) {
    const auto start = std::chrono::steady_clock::now();
    storage::parallel_shares(bytes, bytes, threads, [=](unsigned long begin, unsigned long end) {
        std::memcpy(static_cast<char*>(to) + begin, static_cast<const char*>(from) + begin, end - begin);
    });
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class T>
void export_state(benchmark::State& bench, T threshold) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<T>(qubits, threads);
    std::vector<thrust::complex<T>> out(state.size);
    const std::size_t bytes = state.size * sizeof(out[0]);
    time_beside_limit(
        bench, [&] { return copy_seconds(out.data(), state.amplitudes.get(), bytes, threads); },
        [&] { state.get_permuted_statevector(out.data(), threshold); });
}

template <class T>
void everything(benchmark::State& bench) {
    export_state<T>(bench, T(0));
}
template <class T>
void above_a_threshold(benchmark::State& bench) {
    export_state<T>(bench, T(1e-6));
}

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(everything<double>)->Apply(threads);
BENCHMARK(above_a_threshold<double>)->Apply(threads);
BENCHMARK(everything<float>)->Apply(threads);
BENCHMARK(above_a_threshold<float>)->Apply(threads);

}  // namespace
