// Every named gate at low, middle and high qubits, those of programs alone included, as a fraction of the machine's own
// limit: the time of an in-place sweep over just the cache lines the gate must touch, divided by the gate's time. The
// limit is timed next to each repetition, since the memory of a shared machine swings by a factor of two from minute to
// minute.
//
// Names read gate/target/precision/threads. VELACAMPLIX_BENCH_QUBITS sets the size (24).

#include "machine_limits.hpp"

#include <velacamplix/velacamplix.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using velacamplix::bench::sweep_seconds;
template <class T>
using state_vector = pbamplix::cpu::PybindAmplixStateVectorCPU<T>;

unsigned bench_qubits() {
    const char* text = std::getenv("VELACAMPLIX_BENCH_QUBITS");
    return text == nullptr ? 24u : static_cast<unsigned>(std::atoi(text));
}

// One state at a time: benchmarks run in the order of registration, precision by precision.
template <class T>
state_vector<T>& shared_state(int threads) {
    static std::unique_ptr<state_vector<T>> state;
    if (state == nullptr) {
        state = std::make_unique<state_vector<T>>(bench_qubits());
        state->set_num_threads(threads);
        state->reset();
        for (unsigned q = 0; q < state->nqubits; ++q) state->apply_RY(q, T(0.3) + T(q) / 10);
    }
    state->set_num_threads(threads);
    return *state;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

template <class T>
using gate = std::function<void(state_vector<T>&)>;

// `lines`: the fraction of the state's cache lines that the gate must touch.
template <class T>
void measure(benchmark::State& bench, int threads, double lines, const gate<T>& apply) {
    state_vector<T>& state = shared_state<T>(threads);
    const auto bytes = static_cast<std::size_t>(static_cast<double>(state.size * sizeof(thrust::complex<T>)) * lines);
    std::vector<double> fractions;
    apply(state);
    for (auto _ : bench) {
        const double before = sweep_seconds(state.amplitudes.get(), bytes, threads);
        const auto start = std::chrono::steady_clock::now();
        apply(state);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double after = sweep_seconds(state.amplitudes.get(), bytes, threads);
        bench.SetIterationTime(seconds);
        fractions.push_back((before + after) / 2 / seconds);
    }
    bench.counters["of_limit"] = median(fractions);
    bench.counters["lines"] = lines;
}

template <class T>
void add(const std::string& name, int threads, double lines, gate<T> apply) {
    const std::string precision = sizeof(T) == 8 ? "double" : "float";
    benchmark::RegisterBenchmark((name + "/" + precision + "/" + std::to_string(threads)).c_str(),
                                 [=](benchmark::State& bench) { measure<T>(bench, threads, lines, apply); })
        ->UseManualTime()
        ->Iterations(9)
        ->Unit(benchmark::kMillisecond);
}

// A gate that only programs have.
template <class T>
gate<T> in_program(const char* name, const std::vector<double>& params, const std::vector<unsigned>& qubits) {
    const auto list = std::make_shared<pbamplix::cpu::program<T>>(bench_qubits());
    list->add_gate(name, params, qubits);
    return [list](auto& state) { list->run(state); };
}

template <class T>
void add_all(int threads) {
    const unsigned n = bench_qubits();
    // Qubits below this one select an amplitude inside a cache line.
    const unsigned line_bits = sizeof(T) == 8 ? 2 : 3;
    const auto selects = [=](unsigned q) { return q >= line_bits ? 0.5 : 1.0; };
    for (const unsigned q : {0u, 1u, 2u, 3u, 5u, n / 2, n - 2, n - 1}) {
        const std::string at = "/" + std::to_string(q);
        add<T>("X" + at, threads, 1, [=](auto& s) { s.apply_X(q); });
        add<T>("Y" + at, threads, 1, [=](auto& s) { s.apply_Y(q); });
        add<T>("H" + at, threads, 1, [=](auto& s) { s.apply_H(q); });
        add<T>("ZtoY" + at, threads, 1, [=](auto& s) { s.apply_ZtoY(q); });
        add<T>("YtoZ" + at, threads, 1, [=](auto& s) { s.apply_YtoZ(q); });
        add<T>("RX" + at, threads, 1, [=](auto& s) { s.apply_RX(q, T(0.3)); });
        add<T>("RY" + at, threads, 1, [=](auto& s) { s.apply_RY(q, T(0.3)); });
        add<T>("RZ" + at, threads, 1, [=](auto& s) { s.apply_RZ(q, T(0.3)); });
        add<T>("Z" + at, threads, selects(q), [=](auto& s) { s.apply_Z(q); });
        add<T>("S" + at, threads, selects(q), [=](auto& s) { s.apply_S(q); });
        add<T>("T" + at, threads, selects(q), [=](auto& s) { s.apply_T(q); });
        add<T>("PH" + at, threads, selects(q), [=](auto& s) { s.apply_PH(q, T(0.3)); });
        add<T>("SX" + at, threads, 1, in_program<T>("SX", {}, {q}));
        add<T>("U" + at, threads, 1, in_program<T>("U", {0.3, 0.5, 0.7}, {q}));
    }
    struct pair {
        const char* name;
        unsigned first, second;
    };
    for (const auto& [name, a, b] : {pair{"low,low", 0, 1}, pair{"low,high", 1, n - 1}, pair{"high,low", n - 1, 1},
                                     pair{"mid,mid", n / 2, n / 2 + 1}}) {
        const unsigned p = a, q = b;
        const std::string at = std::string("/") + name;
        const double swapped = p >= line_bits && q >= line_bits ? 0.5 : 1.0;
        add<T>("CNOT" + at, threads, selects(p), [=](auto& s) { s.apply_CNOT(p, q); });
        add<T>("CSIGN" + at, threads, selects(p) * selects(q), [=](auto& s) { s.apply_CSIGN(p, q); });
        add<T>("SWAP" + at, threads, swapped, [=](auto& s) { s.apply_SWAP(p, q); });
        add<T>("ISWAP" + at, threads, swapped, [=](auto& s) { s.apply_ISWAP(p, q); });
        add<T>("SQRTSWAP" + at, threads, swapped, [=](auto& s) { s.apply_SQRTSWAP(p, q); });
        for (const char* const name : {"RXX", "RYY", "RZZ"}) {
            add<T>(name + at, threads, 1, in_program<T>(name, {0.3}, {p, q}));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const int threads : {2, 1}) {
        add_all<double>(threads);
        add_all<float>(threads);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("instruction_set", pbamplix::instruction_set());
    benchmark::AddCustomContext("qubits", std::to_string(bench_qubits()));
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
