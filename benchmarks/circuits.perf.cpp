// Whole circuits in passes, in passes with fusion, and gate by gate. Told in seconds, in passes, and in units: the time
// per gate and amplitude over the time per 16 bytes of an in-place sweep over 256 KiB per thread, which stays in the
// second-level cache. That sweep is timed before and after each repetition. Single precision is told in the same unit.
//
// Names read circuit/way/qubits/precision/threads, so --benchmark_filter=passes/24/double/2 is one table.
//   VELACAMPLIX_BENCH_QUBITS=20,24   sizes, in this order; what memory does not allow is skipped and says so
//   VELACAMPLIX_BENCH_CHECK=1        compares states with gate-by-gate application, untimed; 0 leaves that out
// The program fails when a state differs.

#include "circuits.hpp"
#include "machine_limits.hpp"

#include <velacamplix/velacamplix.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace velacamplix::bench;
template <class T>
using state_vector = pbamplix::cpu::PybindAmplixStateVectorCPU<T>;

bool all_agreed = true;

std::string setting(const char* name, const char* otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : text;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// The two states of a measurement: what the timed way gives, and what gate-by-gate application gives. They are kept
// from one benchmark to the next as long as size and circuit stay, and one precision frees the other's.
template <class T>
struct held_states {
    std::unique_ptr<state_vector<T>> timed, expected;
    std::string expected_circuit;
    unsigned int qubits = 0;

    void hold(unsigned int n) {
        if (qubits == n) return;
        *this = {};
        timed = std::make_unique<state_vector<T>>(n);
        qubits = n;
    }
    // Throws std::bad_alloc when there is no room for a second state.
    void compute_expected(const listed_circuit& circuit) {
        if (expected_circuit == circuit.name) return;
        if (expected == nullptr) expected = std::make_unique<state_vector<T>>(qubits);
        expected->reset();
        apply_gate_by_gate(*expected, circuit);
        expected_circuit = circuit.name;
    }
};
template <class T>
held_states<T> held;

template <class T>
struct prepared {
    std::function<void(state_vector<T>&)> run;
    double passes;  // 0: not in passes
};

// How a circuit can be run. Planning is outside the timed part, as for a program that runs many times.
template <class T>
struct way {
    std::string name;
    std::function<prepared<T>(const listed_circuit&, unsigned int n, int threads)> prepare;
    bool exact;  // the same bits as gate by gate
};

template <class T>
std::vector<way<T>> ways() {
    const auto planned = [](const listed_circuit& circuit, unsigned int n, int threads, bool fused) {
        const auto program = std::make_shared<pbamplix::cpu::program<T>>(as_program<T>(circuit, n));
        program->set_fusion(fused);
        const auto passes = static_cast<double>(program->plan(n, threads).passes.size());
        return prepared<T>{[program](state_vector<T>& state) { program->run(state); }, passes};
    };
    const auto in_passes = [planned](const listed_circuit& circuit, unsigned int n, int threads) {
        return planned(circuit, n, threads, false);
    };
    const auto fused = [planned](const listed_circuit& circuit, unsigned int n, int threads) {
        return planned(circuit, n, threads, true);
    };
    const auto gate_by_gate = [](const listed_circuit& circuit, unsigned int, int) {
        return prepared<T>{[&circuit](state_vector<T>& state) { apply_gate_by_gate(state, circuit); }, 0};
    };
    return {{"passes", in_passes, true}, {"fused", fused, false}, {"gate_by_gate", gate_by_gate, true}};
}

// Largest difference of an amplitude's parts; NaN counts as infinitely far.
template <class T>
double distance(const state_vector<T>& a, const state_vector<T>& b) {
    const auto* p = reinterpret_cast<const T*>(a.amplitudes.get());
    const auto* q = reinterpret_cast<const T*>(b.amplitudes.get());
    double worst = 0;
    for (unsigned long i = 0; i < 2 * a.size; ++i) {
        const double d = std::abs(static_cast<double>(p[i]) - static_cast<double>(q[i]));
        worst = d <= worst ? worst : (d > worst ? d : HUGE_VAL);
    }
    return worst;
}

// Says why the states may not differ as they do; empty when all is well.
template <class T>
std::string disagreement(const state_vector<T>& state, const state_vector<T>& expected, bool exact) {
    if (exact) {
        const bool equal = std::memcmp(state.amplitudes.get(), expected.amplitudes.get(),
                                       state.size * sizeof(thrust::complex<T>)) == 0;
        return equal ? "" : "the bits differ from gate-by-gate application";
    }
    const double allowed = sizeof(T) == 8 ? 1e-12 : 1e-5;
    const double found = distance(state, expected);
    return found <= allowed ? "" : "an amplitude is off by " + std::to_string(found);
}

template <class T>
void measure(benchmark::State& bench, const listed_circuit& circuit, const way<T>& how, unsigned int n, int threads) {
    held<std::conditional_t<sizeof(T) == 8, float, double>> = {};
    try {
        held<T>.hold(n);
    } catch (const std::bad_alloc&) {
        bench.SkipWithError("not measured: free memory does not hold the state");
        return;
    }
    state_vector<T>& state = *held<T>.timed;
    state.set_num_threads(threads);
    const prepared<T> ready = how.prepare(circuit, n, threads);
    const double gates_times_amplitudes = static_cast<double>(circuit.gates.size()) * static_cast<double>(state.size);

    std::vector<double> seconds, units;
    for (auto _ : bench) {
        state.reset();
        const double before = cache_sweep_seconds_per_amplitude(threads);
        const auto start = std::chrono::steady_clock::now();
        ready.run(state);
        const double taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double after = cache_sweep_seconds_per_amplitude(threads);
        bench.SetIterationTime(taken);
        seconds.push_back(taken);
        units.push_back(taken / gates_times_amplitudes / ((before + after) / 2));
    }
    bench.counters["gates"] = static_cast<double>(circuit.gates.size());
    if (ready.passes > 0) bench.counters["passes"] = ready.passes;
    bench.counters["seconds"] = median(seconds);
    bench.counters["units"] = median(units);

    if (how.name == "gate_by_gate" || setting("VELACAMPLIX_BENCH_CHECK", "1") == "0") return;
    try {
        held<T>.compute_expected(circuit);
    } catch (const std::bad_alloc&) {
        bench.SetLabel("not compared: free memory does not hold a second state");
        return;
    }
    const std::string problem = disagreement(state, *held<T>.expected, how.exact);
    bench.SetLabel(how.exact ? "same bits as gate by gate" : "agrees with gate by gate");
    if (problem.empty()) return;
    all_agreed = false;
    bench.SkipWithError(problem.c_str());
}

template <class T>
void add_all(const listed_circuit& circuit, unsigned int n) {
    const std::string precision = sizeof(T) == 8 ? "double" : "float";
    for (const auto& how : ways<T>()) {
        for (const int threads : {2, 1}) {
            const std::string name = circuit.name + "/" + how.name + "/" + std::to_string(n) + "/" + precision + "/" +
                                     std::to_string(threads);
            benchmark::RegisterBenchmark(
                name.c_str(), [=, &circuit](benchmark::State& bench) { measure<T>(bench, circuit, how, n, threads); })
                ->UseManualTime()
                ->Iterations(n < 22   ? 9
                             : n < 26 ? 3
                                      : 1)
                ->Unit(benchmark::kMillisecond);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<unsigned int> sizes;
    std::istringstream listed(setting("VELACAMPLIX_BENCH_QUBITS", "20,24"));
    for (std::string size; std::getline(listed, size, ',');)
        sizes.push_back(static_cast<unsigned int>(std::stoul(size)));

    std::vector<std::vector<listed_circuit>> circuits;
    for (const unsigned int n : sizes) circuits.push_back(measured_circuits(n));
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        for (const auto& circuit : circuits[i]) add_all<double>(circuit, sizes[i]);
        for (const auto& circuit : circuits[i]) add_all<float>(circuit, sizes[i]);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("instruction_set", pbamplix::instruction_set());
    for (const int threads : {2, 1}) {
        benchmark::AddCustomContext("cache_sweep_ns_per_amplitude/" + std::to_string(threads),
                                    std::to_string(cache_sweep_seconds_per_amplitude(threads) * 1e9));
    }
    benchmark::RunSpecifiedBenchmarks();
    return all_agreed ? 0 : 1;
}
