// Derivatives by the angles of layers of RY on all qubits, RZ on all, a chain of CNOT; observables are Z on neighbours
// and X on single qubits. Times are of one thread.
//   of_a_run       the median of the time over that of one run of the program, both timed in turns
//   ns_per_amplitude_and_angle   what the whole gradient takes
// Names read qubits/angles/observables/precision.

#include "circuits.hpp"

#include <velacamplix/velacamplix.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <string>
#include <vector>

namespace {

using namespace velacamplix::bench;

constexpr int turns = 9;

template <class Work>
double seconds_for(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

template <class T>
pbamplix::cpu::program<T> layers(unsigned int n, unsigned int angles, std::vector<unsigned long>& turned) {
    pbamplix::cpu::program<T> list(n);
    for (unsigned int count = 0; count < angles; count += 2 * n) {
        for (const char* name : {"RY", "RZ"}) {
            for (unsigned int q = 0; q < n; ++q) {
                turned.push_back(list.size());
                list.add_gate(name, {0.1 + 0.05 * static_cast<double>((list.size() * 7) % 31)}, {q});
            }
        }
        for (unsigned int q = 0; q + 1 < n; ++q) list.add_gate("CNOT", {}, {q, q + 1});
    }
    return list;
}

// Z Z on neighbours first, then X on single qubits. From the last on, which all gates act on by way of the chain.
std::vector<WObservable<double>> observables(unsigned int n, unsigned int count) {
    std::vector<WObservable<double>> all;
    for (unsigned int k = 0; k < count; ++k) {
        WObservable<double>& one = all.emplace_back();
        one.coefficients = {1.0};
        const unsigned int q = n - 1 - k % n;
        one.flip_masks = {k < n ? 0 : 1ul << q};
        one.phase_masks = {k < n ? 1ul << q | 1ul << (q + n - 1) % n : 0};
        one.y_counts = {0};
    }
    return all;
}

template <class T>
void measure(benchmark::State& bench, unsigned int n, unsigned int angles, unsigned int count) {
    std::vector<unsigned long> turned;
    auto list = layers<T>(n, angles, turned);
    const auto sums = observables(n, count);
    pbamplix::cpu::PybindAmplixStateVectorCPU<T> state(n);
    state.set_num_threads(1);
    const auto run = [&] {
        state.reset();
        list.run(state);
    };
    run();
    list.gradient(sums, turned);
    std::vector<double> ratios, seconds;
    for (auto _ : bench) {
        const double once = seconds_for(run);
        seconds.push_back(seconds_for([&] { benchmark::DoNotOptimize(list.gradient(sums, turned)); }));
        bench.SetIterationTime(seconds.back());
        ratios.push_back(seconds.back() / std::min(once, seconds_for(run)));
    }
    bench.counters["of_a_run"] = median(ratios);
    bench.counters["ns_per_amplitude_and_angle"] =
        median(seconds) * 1e9 / static_cast<double>(turned.size() << n) / count;
}

template <class T>
void add_all() {
    for (const unsigned int n : {16u, 20u}) {
        for (const unsigned int angles : {100u, 300u, 700u}) {
            for (const unsigned int count : {1u, 30u}) {
                if (count > 1 && angles > 100) continue;
                const std::string name = std::to_string(n) + "/" + std::to_string(angles) + "/" +
                                         std::to_string(count) + "/" + (sizeof(T) == 8 ? "double" : "float");
                benchmark::RegisterBenchmark(name.c_str(),
                                             [=](benchmark::State& bench) { measure<T>(bench, n, angles, count); })
                    ->UseManualTime()
                    ->Iterations(count > 1 ? 3 : turns)
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    add_all<double>();
    add_all<float>();
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("instruction_set", pbamplix::instruction_set());
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
