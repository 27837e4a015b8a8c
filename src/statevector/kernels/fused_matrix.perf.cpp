// The loops for fused blocks, on a state of 16 KiB in the first-level cache, one thread: cycles per 64 bytes of the
// state, beside what arithmetic alone takes. A matrix on k qubits has 2^(k+1) multiply-adds of 512 bits for these 64
// bytes, half as many where each row mixes only two amplitudes. `multiply_adds_per_cycle` is to be compared with what
// the processor can: 2 with two units of 512 bits, 1 with two of 256. Cycles are counted in a chain of dependent
// additions, timed before and after each repetition; told is the least time over the least length of a cycle.
//
// Names read targets/where/precision.

#include <velacamplix/velacamplix.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

namespace {

using qubits = std::vector<unsigned int>;

constexpr unsigned long state_bytes = 16ul << 10;

// Matrices in a row, each of which shares a qubit with the next, so that fusion cannot make one of them.
constexpr unsigned int matrices = 60;

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double seconds_per_cycle() {
    constexpr unsigned int additions = 100000;
    unsigned long sum = 0;
    const auto start = std::chrono::steady_clock::now();
    for (unsigned int i = 0; i < additions; i += 4) {
        for (unsigned int k = 0; k < 4; ++k) {
            sum += k + 1;
            asm volatile("" : "+r"(sum));  // one after another, none of them merged
        }
    }
    return seconds_since(start) / additions;
}

// The Fourier matrix, no entry of which is zero, or one whose rows mix a pair of amplitudes. A thousandth below
// unitary: others on one qubit would be multiplied together.
template <class T>
std::vector<thrust::complex<T>> matrix_on(unsigned int targets, bool pairs) {
    const unsigned long dim = 1ul << targets;
    const double scale = 0.999 / std::sqrt(pairs ? 2.0 : static_cast<double>(dim));
    std::vector<thrust::complex<T>> matrix(dim * dim);
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long column = 0; column < dim; ++column) {
            const unsigned long distance = row ^ column;
            if (pairs && distance != 0 && distance != dim - 1) continue;
            const unsigned long product = pairs ? (row != column ? dim / 4 : 0) : row * column;
            const double angle = 2 * std::numbers::pi * static_cast<double>(product % dim) / static_cast<double>(dim);
            matrix[row * dim + column] =
                thrust::complex<T>(static_cast<T>(scale * std::cos(angle)), static_cast<T>(scale * std::sin(angle)));
        }
    }
    return matrix;
}

template <class T>
void measure(benchmark::State& bench, const std::vector<qubits>& places, bool pairs) {
    constexpr auto n = static_cast<unsigned int>(std::countr_zero(state_bytes / sizeof(thrust::complex<T>)));
    const auto targets = static_cast<unsigned int>(places[0].size());
    pbamplix::cpu::PybindAmplixStateVectorCPU<T> state(n);
    state.set_num_threads(1);
    pbamplix::cpu::program<T> program(n);
    for (unsigned int i = 0; i < matrices; ++i) {
        program.add_matrix(matrix_on<T>(targets, pairs), places[i % places.size()]);
    }
    program.set_fusion(true);
    double least = HUGE_VAL, cycle = HUGE_VAL;
    for (auto _ : bench) {
        state.reset();
        for (unsigned int q = 0; q < n; ++q) state.apply_RX(q, T(0.3) + T(q) / 10);
        cycle = std::min(cycle, seconds_per_cycle());
        const auto start = std::chrono::steady_clock::now();
        program.run(state);
        const double taken = seconds_since(start);
        cycle = std::min(cycle, seconds_per_cycle());
        bench.SetIterationTime(taken);
        least = std::min(least, taken);
    }
    const double cycles = least / cycle / matrices / (state_bytes / 64);
    bench.counters["cycles_per_pack"] = cycles;
    bench.counters["multiply_adds_per_cycle"] = (pairs ? 4 : static_cast<double>(2ul << targets)) / cycles;
}

template <class T>
void add_all() {
    const auto add = [](const std::string& name, const std::vector<qubits>& places, bool pairs) {
        const std::string precision = sizeof(T) == 8 ? "double" : "float";
        benchmark::RegisterBenchmark((name + "/" + precision).c_str(),
                                     [=](benchmark::State& bench) { measure<T>(bench, places, pairs); })
            ->UseManualTime()
            ->Iterations(200)
            ->Unit(benchmark::kMicrosecond);
    };
    // Places inside a vector, beside it, and in one of each.
    add("1/high", {{6}, {8}, {9}}, false);
    add("1/low", {{0}, {1}}, false);
    add("2/high", {{6, 8}, {8, 9}, {9, 6}}, false);
    add("2/low_and_high", {{0, 8}, {8, 1}, {1, 9}, {9, 0}}, false);
    add("2/low", {{0, 1}, {1, 5}, {5, 0}}, false);
    add("2_in_pairs/high", {{6, 8}, {8, 9}, {9, 6}}, true);
    add("2_in_pairs/low_and_high", {{0, 8}, {8, 1}, {1, 9}, {9, 0}}, true);
    add("3/high", {{6, 7, 8}, {7, 8, 9}}, false);
    add("3/low_and_high", {{0, 6, 8}, {1, 8, 9}}, false);
    add("4/high", {{5, 6, 7, 8}, {6, 7, 8, 9}}, false);
    add("4/low_and_high", {{0, 1, 6, 8}, {1, 0, 8, 9}}, false);
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
