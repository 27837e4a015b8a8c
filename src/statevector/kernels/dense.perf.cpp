// Dense matrices on two to five targets at 24 qubits in double precision, in sweeps over the state timed beside them.
// Names read case/threads.

#include "beside_limit.hpp"
#include "machine_limits.hpp"

#include <cmath>
#include <numbers>

namespace {

using namespace velacamplix::bench;
using amplitude = thrust::complex<double>;

constexpr unsigned int qubits = 24;

// The Fourier matrix: unitary, and none of its entries is zero.
std::vector<amplitude> fourier(unsigned int targets) {
    const unsigned long dim = 1ul << targets;
    std::vector<amplitude> matrix(dim * dim);
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long column = 0; column < dim; ++column) {
            const double turns = static_cast<double>(row * column % dim) / static_cast<double>(dim);
            const double angle = 2 * std::numbers::pi * turns;
            const double scale = 1 / std::sqrt(static_cast<double>(dim));
            matrix[row * dim + column] = amplitude(scale * std::cos(angle), scale * std::sin(angle));
        }
    }
    return matrix;
}

void apply(benchmark::State& bench, const std::vector<unsigned int>& targets) {
    const int threads = static_cast<int>(bench.range(0));
    auto& state = spread_state<double>(qubits, threads);
    const auto matrix = fourier(static_cast<unsigned int>(targets.size()));
    time_beside_limit(
        bench, [&] { return sweep_seconds(state.amplitudes.get(), state.size * sizeof(amplitude), threads); },
        [&] {
            if (targets.size() == 2) {
                state.apply_2qbit_gate(targets[0], targets[1], matrix);
            } else {
                state.apply_nqbit_gate(targets, matrix);
            }
        });
}

void two_lowest(benchmark::State& bench) { apply(bench, {0, 1}); }
void two_low_and_middle(benchmark::State& bench) { apply(bench, {1, 12}); }
void two_middle(benchmark::State& bench) { apply(bench, {7, 12}); }
void two_highest(benchmark::State& bench) { apply(bench, {22, 23}); }
void three_lowest(benchmark::State& bench) { apply(bench, {0, 1, 2}); }
void three_middle(benchmark::State& bench) { apply(bench, {7, 12, 15}); }
void three_highest(benchmark::State& bench) { apply(bench, {21, 22, 23}); }
void four_lowest(benchmark::State& bench) { apply(bench, {0, 1, 2, 3}); }
void four_middle(benchmark::State& bench) { apply(bench, {5, 9, 12, 15}); }
void four_highest(benchmark::State& bench) { apply(bench, {20, 21, 22, 23}); }
void five_lowest(benchmark::State& bench) { apply(bench, {0, 1, 2, 3, 4}); }
void five_spread(benchmark::State& bench) { apply(bench, {0, 5, 9, 15, 23}); }
void five_highest(benchmark::State& bench) { apply(bench, {19, 20, 21, 22, 23}); }

void threads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(2)->Arg(1)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);
}

BENCHMARK(two_lowest)->Apply(threads);
BENCHMARK(two_low_and_middle)->Apply(threads);
BENCHMARK(two_middle)->Apply(threads);
BENCHMARK(two_highest)->Apply(threads);
BENCHMARK(three_lowest)->Apply(threads);
BENCHMARK(three_middle)->Apply(threads);
BENCHMARK(three_highest)->Apply(threads);
BENCHMARK(four_lowest)->Apply(threads);
BENCHMARK(four_middle)->Apply(threads);
BENCHMARK(four_highest)->Apply(threads);
BENCHMARK(five_lowest)->Apply(threads);
BENCHMARK(five_spread)->Apply(threads);
BENCHMARK(five_highest)->Apply(threads);

}  // namespace
