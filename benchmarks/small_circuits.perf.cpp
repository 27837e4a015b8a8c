// Circuits of few qubits, where the cost of driving a gate decides: nanoseconds per gate.
//   program   planned once, replayed; what is timed is run()
//   record    simulate_circuit of a record that has not been seen before
//   batch     run_batch of one program, states and plans included; threads have states of their own
// With 2 threads, `of_1_thread` is the median of the time over that with 1 thread, both timed in turns: what a host
// pays who leaves two threads set. Names read circuit/way/qubits/precision/threads.

#include "circuits.hpp"

#include <velacamplix/velacamplix.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace velacamplix::bench;
template <class T>
using state_vector = pbamplix::cpu::PybindAmplixStateVectorCPU<T>;

constexpr int turns = 31;
constexpr double seconds_per_turn = 1e-3;  // long beside the clock's step, short beside a change of the machine's mood

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// Seconds for a number of runs of the circuit one after another.
using timed_runs = std::function<double(long runs)>;

template <class Work>
double seconds_for(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class T>
std::shared_ptr<state_vector<T>> state_for(unsigned int n, int threads) {
    auto state = std::make_shared<state_vector<T>>(n);
    state->set_num_threads(threads);
    state->reset();
    return state;
}

template <class T>
timed_runs replay_program(const listed_circuit& circuit, unsigned int n, int threads) {
    const auto state = state_for<T>(n, threads);
    const auto program = std::make_shared<pbamplix::cpu::program<T>>(as_program<T>(circuit, n));
    program->plan(n, threads);
    return [=](long runs) {
        return seconds_for([&] {
            for (long i = 0; i < runs; ++i) program->run(*state);
        });
    };
}

template <class T>
timed_runs run_in_batches(const listed_circuit& circuit, unsigned int n, int threads) {
    const auto program = std::make_shared<pbamplix::cpu::program<T>>(as_program<T>(circuit, n));
    return [=](long runs) {
        const std::vector<std::vector<double>> no_angles(static_cast<std::size_t>(runs));
        return seconds_for([&] {
            pbamplix::cpu::run_batch<T>(*program, {}, no_angles, [](unsigned long, state_vector<T>&) {}, {threads});
        });
    };
}

template <class T>
timed_runs replay_fresh_records(const listed_circuit& circuit, unsigned int n, int threads) {
    const auto state = state_for<T>(n, threads);
    return [=, record = as_record<T>(circuit, n)](long runs) {
        std::vector<pbamplix::PybindAmplixWCircuit<T>> fresh(static_cast<std::size_t>(runs), record);
        return seconds_for([&] {
            for (auto& one : fresh) state->simulate_circuit(one);
        });
    };
}

long runs_per_turn(const timed_runs& run) {
    long runs = 1;
    run(runs);
    while (runs < 4096 && run(runs) < seconds_per_turn / 2) runs *= 2;
    return runs;
}

using prepare = timed_runs (*)(const listed_circuit&, unsigned int n, int threads);

void measure(benchmark::State& bench, const listed_circuit& circuit, prepare way, unsigned int n, int threads) {
    const timed_runs run = way(circuit, n, threads), alone = way(circuit, n, 1);
    const long runs = runs_per_turn(run);
    std::vector<double> seconds, ratios;
    for (auto _ : bench) {
        const double one_thread = threads == 1 ? 0 : alone(runs);
        const double taken = run(runs);
        bench.SetIterationTime(taken / static_cast<double>(runs));
        seconds.push_back(taken);
        ratios.push_back(taken / one_thread);
    }
    const double gates = static_cast<double>(circuit.gates.size());
    bench.counters["gates"] = gates;
    bench.counters["ns_per_gate"] = median(seconds) / static_cast<double>(runs) / gates * 1e9;
    if (threads != 1) bench.counters["of_1_thread"] = median(ratios);
}

template <class T>
void add_all(unsigned int n) {
    const std::string precision = sizeof(T) == 8 ? "double" : "float";
    struct named {
        const char* name;
        prepare way;
    };
    for (const auto& circuit : measured_circuits(n)) {
        if (!fits_a_record(circuit)) continue;
        for (const auto& [name, way] : {named{"program", replay_program<T>}, named{"record", replay_fresh_records<T>},
                                        named{"batch", run_in_batches<T>}}) {
            for (const int threads : {1, 2}) {
                const std::string full = circuit.name + "/" + name + "/" + std::to_string(n) + "/" + precision + "/" +
                                         std::to_string(threads);
                benchmark::RegisterBenchmark(full.c_str(),
                                             [circuit, way = way, n, threads](benchmark::State& bench) {
                                                 measure(bench, circuit, way, n, threads);
                                             })
                    ->UseManualTime()
                    ->Iterations(turns)
                    ->Unit(benchmark::kMicrosecond);
            }
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (const unsigned int n : {4u, 8u, 12u}) {
        add_all<double>(n);
        add_all<float>(n);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("instruction_set", pbamplix::instruction_set());
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
