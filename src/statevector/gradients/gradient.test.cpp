#include <velacamplix/program.hpp>

#include "support/captured_output.hpp"
#include "support/compare.hpp"
#include "support/failing_allocations.hpp"
#include "support/gate_lists.hpp"
#include "support/named_gates.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>

using namespace support;
using pbamplix::cpu::gradient_result;

PRECISION_SUITE(gradient);

namespace {

// How far the derivatives may be from those by shifted angles, which are formed in double.
template <class T>
constexpr double tolerance = sizeof(T) == 4 ? 1e-4 : 1e-11;

template <class T>
using program = pbamplix::cpu::program<T>;
using Sum = reference::PauliSum<double>;

struct Gate {
    std::string name;
    std::vector<double> angles;
    reference::Qubits qubits, controls = {};
};

template <class T>
program<T> program_of(const std::vector<Gate>& gates, unsigned int n, bool fusion = false) {
    program<T> list(n);
    list.set_fusion(fusion);
    for (const Gate& gate : gates) list.add_gate(gate.name, gate.angles, gate.qubits, gate.controls);
    return list;
}

std::vector<unsigned long> turned(const std::vector<Gate>& gates) {
    std::vector<unsigned long> found;
    for (unsigned long i = 0; i < gates.size(); ++i) {
        if (!gates[i].angles.empty()) found.push_back(i);
    }
    return found;
}

// The values after the gates have acted on |0...0>, one call each.
std::vector<double> values_after(const std::vector<Gate>& gates, unsigned int n, const std::vector<Sum>& sums) {
    StateVector<double> state(n);
    state.reset();
    for (const Gate& gate : gates) {
        std::vector<double> angles = gate.angles;
        angles.resize(3);
        call_member(state, {gate.name, gate.qubits, angles[0], gate.controls, angles[1], angles[2]});
    }
    std::vector<reference::Complex<double>> amplitudes;
    for (unsigned long i = 0; i < state.size; ++i) {
        amplitudes.push_back({state.amplitudes[i].real(), state.amplitudes[i].imag()});
    }
    std::vector<double> values;
    for (const Sum& sum : sums) values.push_back(reference::expectation_value(amplitudes, sum).re);
    return values;
}

// By shifted angles. A gate whose generator has the eigenvalues 0, 1/2 and -1/2, as rotations under controls do, takes
// four shifts, which give the derivative for all others too (arXiv:2104.05695).
std::vector<double> by_shifts(std::vector<Gate> gates, unsigned int n, const std::vector<Sum>& sums) {
    const double root = std::sqrt(2.0), near = (root + 1) / (4 * root), far = (root - 1) / (4 * root);
    const double half = std::numbers::pi / 2;
    std::vector<std::vector<double>> rows(sums.size());
    for (Gate& gate : gates) {
        for (double& angle : gate.angles) {
            const auto difference = [&](double shift) {
                const double kept = angle;
                angle = kept + shift;
                std::vector<double> up = values_after(gates, n, sums);
                angle = kept - shift;
                const std::vector<double> down = values_after(gates, n, sums);
                angle = kept;
                for (std::size_t k = 0; k < up.size(); ++k) up[k] -= down[k];
                return up;
            };
            const auto small = difference(half), large = difference(3 * half);
            for (std::size_t k = 0; k < sums.size(); ++k) rows[k].push_back(near * small[k] - far * large[k]);
        }
    }
    std::vector<double> all;
    for (const auto& row : rows) all.insert(all.end(), row.begin(), row.end());
    return all;
}

Sum random_hermitian(unsigned int n, unsigned int terms, unsigned int seed) {
    Sum sum = random_sum<double>(n, terms, 4, seed);
    for (auto& c : sum.coefficients) c.im = 0;
    sum.constant.im = 0;
    return sum;
}

std::vector<WObservable<double>> all_compiled(const std::vector<Sum>& sums) {
    std::vector<WObservable<double>> compiled_sums;
    for (const Sum& sum : sums) compiled_sums.push_back(compiled(sum));
    return compiled_sums;
}

Sum one_string(unsigned long flip, unsigned long phase) { return {{{1, 0}}, {pauli(flip, phase)}, {0, 0}}; }

// Of every kind of gate, on random qubits with up to two controls. Those with angles come twice as often.
std::vector<Gate> random_gates(unsigned int n, unsigned int count, unsigned int seed) {
    std::mt19937 engine(seed);
    const auto named = names_of_gates([](const gate_row&) { return true; });
    const auto angled = gates_with_angles();
    std::vector<Gate> gates;
    while (gates.size() < count) {
        const auto& names = engine() % 3 == 0 ? named : angled;
        const std::string& name = names[engine() % names.size()];
        reference::Qubits qubits = random_qubits(n, n, engine);
        const unsigned int wanted = qubits_of(name);
        if (wanted > n) continue;
        reference::Qubits controls(qubits.begin() + wanted, qubits.end());
        controls.resize(std::min<std::size_t>(controls.size(), has_member(name) && wanted > 1 ? 0 : engine() % 3));
        qubits.resize(wanted);
        Gate gate{name, {}, qubits, controls};
        for (unsigned int a = 0; a < angles_of(name); ++a) {
            // Angles that single precision holds: both precisions turn by the same.
            gate.angles.push_back(static_cast<double>(static_cast<int>(engine() % 1024) - 512) / 128);
        }
        gates.push_back(gate);
    }
    return gates;
}

// Without those on more than two qubits: most have neighbours on the same pair.
std::vector<Gate> small_gates(unsigned int n, unsigned int count, unsigned int seed) {
    std::vector<Gate> gates = random_gates(n, 4 * count, seed);
    std::erase_if(gates, [](const Gate& gate) { return gate.qubits.size() + gate.controls.size() > 2; });
    if (gates.size() > count) gates.resize(count);
    return gates;
}

// Layers of RY and RZ on all qubits and a chain of CNOT.
std::vector<Gate> layers_on(unsigned int n, unsigned int layers) {
    std::vector<Gate> gates;
    for (unsigned int layer = 0; layer < layers; ++layer) {
        for (const char* name : {"RY", "RZ"}) {
            for (unsigned int q = 0; q < n; ++q) gates.push_back({name, {0.125 * (1 + (gates.size() * 7) % 31)}, {q}});
        }
        for (unsigned int q = 0; q + 1 < n; ++q) gates.push_back({"CNOT", {}, {q, q + 1}});
    }
    return gates;
}

void expect_near(const std::vector<double>& expected, const std::vector<double>& got, double tolerated,
                 const std::string& where) {
    ASSERT_EQ(expected.size(), got.size()) << where;
    for (std::size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(expected[i], got[i], tolerated) << where << ", " << i;
}

std::string told(bool fusion) { return fusion ? ", fused" : ""; }

testing::AssertionResult same_results(const gradient_result& expected, const gradient_result& got) {
    const auto values = same_bits(expected.values, got.values);
    return values ? same_bits(expected.derivatives, got.derivatives) : values;
}

}  // namespace

TYPED_TEST(gradient, of_every_gate_with_angles_and_up_to_two_controls_is_that_of_shifted_angles) {
    using T = TypeParam;
    const unsigned int n = 5;
    const std::vector<Sum> sums = {random_hermitian(n, 20, 1), one_string(0, 3), one_string(16, 16)};
    std::mt19937 engine(1);
    for (const std::string& name : gates_with_angles()) {
        for (const unsigned int count : {0u, 1u, 2u}) {
            for (unsigned int attempt = 0; attempt < 4; ++attempt) {
                std::vector<Gate> gates = random_gates(n, 8, 10 * attempt + count);
                reference::Qubits qubits = random_qubits(qubits_of(name) + count, n, engine);
                const reference::Qubits controls(qubits.begin() + qubits_of(name), qubits.end());
                qubits.resize(qubits_of(name));
                Gate tried{name, {}, qubits, controls};
                for (unsigned int a = 0; a < angles_of(name); ++a) {
                    tried.angles.push_back(attempt == 0 ? 0 : 0.75 - 0.5 * attempt + a);
                }
                gates.insert(gates.begin() + 4, tried);
                const auto derivatives = by_shifts(gates, n, sums), values = values_after(gates, n, sums);
                for (const bool fusion : {false, true}) {
                    const auto got = program_of<T>(gates, n, fusion).gradient(all_compiled(sums), turned(gates));
                    const std::string where = name + ", " + std::to_string(count) + " controls" + told(fusion);
                    expect_near(derivatives, got.derivatives, tolerance<T>, where);
                    expect_near(values, got.values, tolerance<T>, where);
                    EXPECT_LT(got.return_error, sizeof(T) == 4 ? 1e-5 : 1e-14) << where;
                }
            }
        }
    }
}

TYPED_TEST(gradient, of_random_circuits_inside_one_buffer_and_over_many_is_that_of_shifted_angles) {
    using T = TypeParam;
    for (const unsigned int n : {1u, 2u, 3u, 4u, 8u, 13u}) {
        const std::vector<Sum> sums = {random_hermitian(n, 10, n), random_hermitian(n, 3, n + 1)};
        const auto gates = random_gates(n, n > 8 ? 24 : 40, n);
        const auto expected = by_shifts(gates, n, sums);
        for (const bool fusion : {false, true}) {
            const auto got = program_of<T>(gates, n, fusion).gradient(all_compiled(sums), turned(gates));
            expect_near(expected, got.derivatives, tolerance<T>, std::to_string(n) + " qubits" + told(fusion));
        }
    }
}

TYPED_TEST(gradient, of_gates_that_fusion_multiplies_is_that_of_shifted_angles) {
    using T = TypeParam;
    for (unsigned int seed = 0; seed < 12; ++seed) {
        const unsigned int n = 1 + seed % 4;
        const std::vector<Sum> sums = {random_hermitian(n, 10, seed), random_hermitian(n, 2, seed + 1)};
        const auto gates = small_gates(n, 40, seed);
        const auto got = program_of<T>(gates, n, true).gradient(all_compiled(sums), turned(gates));
        const std::string where = std::to_string(n) + " qubits, " + std::to_string(seed);
        expect_near(by_shifts(gates, n, sums), got.derivatives, tolerance<T>, where);
        expect_near(values_after(gates, n, sums), got.values, tolerance<T>, where);
        EXPECT_LT(got.return_error, sizeof(T) == 4 ? 1e-5 : 1e-13) << where;
    }
}

TYPED_TEST(gradient, of_layers_over_many_buffers_is_that_of_shifted_angles) {
    using T = TypeParam;
    const unsigned int n = 13;
    const auto gates = layers_on(n, 1);
    const std::vector<Sum> sums = {one_string(0, 3), one_string(1ul << (n - 1), 0), random_hermitian(n, 5, 1)};
    const auto expected = by_shifts(gates, n, sums);
    for (const bool fusion : {false, true}) {
        const auto got = program_of<T>(gates, n, fusion).gradient(all_compiled(sums), turned(gates));
        expect_near(expected, got.derivatives, tolerance<T>, "layers" + told(fusion));
    }
}

TYPED_TEST(gradient, has_the_same_bits_for_every_number_of_threads) {
    using T = TypeParam;
    for (const unsigned int n : {9u, 15u, 17u}) {
        auto gates = random_gates(n, 40, n);
        const auto layers = layers_on(n, 2);
        gates.insert(gates.end(), layers.begin(), layers.end());
        const auto sums = all_compiled({random_hermitian(n, 12, n), one_string(3, 1), one_string(0, 5)});
        const auto pairs = small_gates(n, 80, n);
        gates.insert(gates.end(), pairs.begin(), pairs.end());
        for (const bool fusion : {false, true}) {
            auto list = program_of<T>(gates, n, fusion);
            const auto expected = list.gradient(sums, turned(gates), {.nthreads = 1});
            for (const int threads : {2, 3, 8}) {
                const auto got = list.gradient(sums, turned(gates), {.nthreads = threads});
                EXPECT_TRUE(same_results(expected, got)) << n << " qubits, " << threads << " threads" << told(fusion);
                EXPECT_TRUE(same_bits(expected.return_error, got.return_error));
            }
        }
    }
}

TYPED_TEST(gradient, of_one_observable_or_gate_does_not_depend_on_the_others) {
    using T = TypeParam;
    const unsigned int n = 13;
    for (const bool fusion : {false, true}) {
        const auto gates = fusion ? small_gates(n, 60, 5) : random_gates(n, 60, 5);
        std::vector<WObservable<double>> sums;
        for (unsigned int k = 0; k < 35; ++k) sums.push_back(compiled(random_hermitian(n, 2, k)));  // two batches
        auto list = program_of<T>(gates, n, fusion);
        const auto all = list.gradient(sums, turned(gates));
        const std::size_t angles = all.derivatives.size() / sums.size();
        for (const std::size_t k : {0ul, 17ul, 34ul}) {
            const auto alone = list.gradient({sums[k]}, turned(gates));
            const std::vector<double> row(all.derivatives.begin() + static_cast<long>(k * angles),
                                          all.derivatives.begin() + static_cast<long>((k + 1) * angles));
            EXPECT_TRUE(same_bits(row, alone.derivatives)) << k << told(fusion);
            EXPECT_TRUE(same_bits(all.values[k], alone.values[0])) << k << told(fusion);
        }
        std::size_t at = 0;
        for (const unsigned long gate : turned(gates)) {
            const auto alone = list.gradient({sums[0]}, {gate});
            for (std::size_t a = 0; a < alone.derivatives.size(); ++a, ++at) {
                EXPECT_TRUE(same_bits(all.derivatives[at], alone.derivatives[a])) << gates[gate].name << told(fusion);
            }
        }
    }
}

TYPED_TEST(gradient, gives_the_values_of_the_run_bit_for_bit) {
    using T = TypeParam;
    for (const unsigned int n : {3u, 12u, 15u}) {
        const auto gates = random_gates(n, 50, 3);
        const auto sum = compiled(random_hermitian(n, 20, 3));
        auto list = program_of<T>(gates, n);
        for (const bool fused : {false, true}) {
            list.set_fusion(fused);
            StateVector<T> state(n);
            state.reset();
            list.run(state);
            double expected = 0;
            for (const auto& term : pbamplix::cpu::term_values(state.amplitudes.get(), sum, state.size, 1)) {
                expected += term.real();
            }
            EXPECT_TRUE(same_bits(expected + sum.constant.real(), list.gradient({sum}, {}).values[0]))
                << n << " qubits, fusion " << fused;
        }
    }
}

TYPED_TEST(gradient, is_zero_exactly_outside_of_the_light_cone) {
    using T = TypeParam;
    const unsigned int n = 14;
    std::vector<Gate> gates;
    for (unsigned int q = 0; q < n; ++q) gates.push_back({"RY", {0.25 + q}, {q}});
    for (unsigned int q = 0; q < n; q += 2) gates.push_back({"CNOT", {}, {q, q + 1}});
    for (unsigned int q = 0; q < n; ++q) gates.push_back({"RX", {0.5 + q}, {q}});
    const auto got = program_of<T>(gates, n).gradient(all_compiled({one_string(1, 1), one_string(0, 1ul << (n - 1))}),
                                                      turned(gates));
    const double zero = 0;
    for (unsigned int q = 0; q < n; ++q) {
        for (const unsigned int row : {0u, 1u}) {
            const bool first = q / 2 == (row == 0 ? 0 : n / 2 - 1), last = q == (row == 0 ? 0 : n - 1);
            const double early = got.derivatives[row * 2 * n + q], late = got.derivatives[row * 2 * n + n + q];
            EXPECT_EQ(!first, std::memcmp(&early, &zero, sizeof(zero)) == 0) << row << ", RY on " << q;
            EXPECT_EQ(!last, std::memcmp(&late, &zero, sizeof(zero)) == 0) << row << ", RX on " << q;
        }
    }
    const auto constant = program_of<T>(gates, n).gradient({WObservable<double>{}}, turned(gates));
    EXPECT_TRUE(same_bits(std::vector<double>(2 * n), constant.derivatives));
}

TYPED_TEST(gradient, comes_back_to_the_start_after_ten_thousand_gates) {
    const unsigned int n = 6;
    const auto gates = random_gates(n, 10000, 1);
    for (const bool fusion : {false, true}) {
        auto list = program_of<TypeParam>(gates, n, fusion);
        const auto got = list.gradient({compiled(one_string(1, 0))}, {});
        EXPECT_LE(got.return_error, sizeof(TypeParam) == 4 ? 1e-4 : 1e-13) << told(fusion);
        EXPECT_GT(got.return_error, 0) << told(fusion);
    }
}

namespace {

// The Fourier matrix on few qubits; on many the mirror 1 - 2 v v^T, v with equal entries, which is formed faster.
template <class T>
std::vector<thrust::complex<T>> some_unitary(unsigned int k) {
    const unsigned long dim = 1ul << k;
    std::vector<thrust::complex<T>> matrix(dim * dim, thrust::complex<T>(T(-2) / static_cast<T>(dim)));
    for (unsigned long row = 0; row < dim; ++row) {
        matrix[row * (dim + 1)] += T(1);
        for (unsigned long column = 0; column < dim && k < 8; ++column) {
            const double angle = 2 * std::numbers::pi * static_cast<double>(row * column) / static_cast<double>(dim);
            const double size = 1 / std::sqrt(static_cast<double>(dim));
            matrix[row * dim + column] =
                thrust::complex<T>(static_cast<T>(size * std::cos(angle)), static_cast<T>(size * std::sin(angle)));
        }
    }
    return matrix;
}

}  // namespace

// On 11 or 12 qubits the matrix mixes more than a buffer holds.
TYPED_TEST(gradient, takes_matrices_and_diagonals_for_constants) {
    using T = TypeParam;
    const unsigned int n = 13, large = sizeof(T) == 4 ? 12 : 11;
    for (const unsigned int k : {1u, 2u, 3u, 7u, large}) {
        reference::Qubits qubits;
        for (unsigned int q = 0; q < k; ++q) qubits.push_back((5 * q + 2) % n);
        const reference::Qubits controls = k < 4 ? reference::Qubits{0} : reference::Qubits{};
        std::vector<thrust::complex<T>> diagonal;
        for (unsigned long i = 0; i < 1ul << k; ++i) {
            const double angle = static_cast<double>(i);
            diagonal.emplace_back(static_cast<T>(std::cos(angle)), static_cast<T>(std::sin(angle)));
        }
        program<T> list(n);
        for (unsigned int q = 0; q < n; ++q) list.add_gate("RY", {0.3 + q}, {q});
        list.add_gate("RX", {0.75}, {2});
        list.add_matrix(some_unitary<T>(k), qubits, controls);
        list.add_diagonal(diagonal, qubits, controls);
        const auto sum = compiled(random_hermitian(n, 4, k));
        const auto got = list.gradient({sum}, {n});
        EXPECT_LT(got.return_error, sizeof(T) == 4 ? 1e-4 : 1e-13) << k;
        double difference = 0;
        for (const int sign : {1, -1}) {
            list.set_params(n, {0.75 + sign * std::numbers::pi / 2});
            StateVector<T> state(n);
            state.reset();
            list.run(state);
            for (const auto& term : pbamplix::cpu::term_values(state.amplitudes.get(), sum, state.size, 1)) {
                difference += sign * term.real();
            }
        }
        EXPECT_NEAR(difference / 2, got.derivatives[0], tolerance<T>) << k;
    }
}

TYPED_TEST(gradient, begins_with_the_initial_state_and_leaves_it) {
    using T = TypeParam;
    const unsigned int n = 5;
    const auto gates = random_gates(4, 20, 2);
    auto list = program_of<T>(gates, 4);
    const Sum sum = random_hermitian(n, 9, 2);
    // The start as gates, on one qubit more than the program has.
    std::vector<Gate> all = {{"H", {}, {4}}, {"H", {}, {0}}, {"CNOT", {}, {4, 1}}};
    LoadedVector<T> initial(reference::State<T>(1ul << n));
    initial.reset();
    for (const Gate& gate : all) call_member(initial, {gate.name, gate.qubits, 0, gate.controls, 0, 0});
    const reference::State<T> kept(
        reinterpret_cast<const reference::Complex<T>*>(initial.amplitudes.get()),
        reinterpret_cast<const reference::Complex<T>*>(initial.amplitudes.get()) + (1ul << n));
    all.insert(all.end(), gates.begin(), gates.end());
    const auto got = list.gradient({compiled(sum)}, turned(gates), {.initial = &initial});
    expect_near(by_shifts(all, n, {sum}), got.derivatives, tolerance<T>, "initial state");
    EXPECT_LT(got.return_error, sizeof(T) == 4 ? 1e-5 : 1e-14);
    EXPECT_TRUE(same_bits(kept, initial.amplitudes.get()));

    initial.amplitudes[3] = thrust::complex<T>(std::numeric_limits<T>::quiet_NaN(), 0);
    EXPECT_TRUE(std::isnan(list.gradient({compiled(sum)}, turned(gates), {.initial = &initial}).return_error));
}

TYPED_TEST(gradient, follows_new_angles_and_new_gates) {
    using T = TypeParam;
    const unsigned int n = 12;
    for (const bool fusion : {false, true}) {
        auto gates = layers_on(n, 1);
        auto list = program_of<T>(gates, n, fusion);
        const auto sum = compiled(random_hermitian(n, 4, 1));
        list.gradient({sum}, turned(gates));
        gates[3].angles = {0.875};
        list.set_params(3, {0.875});
        EXPECT_TRUE(same_results(program_of<T>(gates, n, fusion).gradient({sum}, turned(gates)),
                                 list.gradient({sum}, turned(gates))));
        gates.push_back({"RX", {0.5}, {2}});
        list.add_gate("RX", {0.5}, {2});
        EXPECT_TRUE(same_results(program_of<T>(gates, n, fusion).gradient({sum}, turned(gates)),
                                 list.gradient({sum}, turned(gates))));
        // And fusion itself.
        list.set_fusion(!fusion);
        EXPECT_TRUE(same_results(program_of<T>(gates, n, !fusion).gradient({sum}, turned(gates)),
                                 list.gradient({sum}, turned(gates))));
    }
}

TYPED_TEST(gradient, tells_how_far_it_is_and_ends_when_it_is_told) {
    using T = TypeParam;
    const unsigned int n = 12;
    const auto gates = layers_on(n, 2);
    const auto sums = all_compiled({random_hermitian(n, 4, 1), one_string(1, 0)});
    auto list = program_of<T>(gates, n);
    const auto expected = list.gradient(sums, turned(gates));
    unsigned long last = 0, all = 0, calls = 0;
    const auto note = [&](unsigned long done, unsigned long total) {
        EXPECT_GE(done, last);
        last = done;
        all = total;
        ++calls;
    };
    EXPECT_TRUE(same_results(expected, list.gradient(sums, turned(gates), {.hook = note})));
    EXPECT_EQ(last, all);
    EXPECT_EQ(all, 4 * gates.size());
    struct Ended {};
    const unsigned long most = calls;
    for (unsigned long stop = 1; stop < most; stop += 5) {
        unsigned long heard = 0;
        const auto end = [&](unsigned long, unsigned long) {
            if (++heard == stop) throw Ended();
        };
        EXPECT_THROW(list.gradient(sums, turned(gates), {.hook = end}), Ended);
    }
    EXPECT_TRUE(same_results(expected, list.gradient(sums, turned(gates))));
}

TYPED_TEST(gradient, takes_two_states_for_one_observable_and_fewer_at_a_time_where_memory_is_short) {
    using T = TypeParam;
    const unsigned int n = 15;
    const unsigned long state = sizeof(thrust::complex<T>) << n;
    const auto gates = layers_on(n, 1);
    const auto sums = all_compiled({one_string(1, 0), one_string(0, 6), one_string(2, 2)});
    auto list = program_of<T>(gates, n);
    const auto expected = list.gradient(sums, turned(gates));
    const auto states_taken = [&](const std::vector<WObservable<double>>& observables, unsigned long most_states = 31) {
        const WatchedArrays arrays;
        const auto got = list.gradient(observables, turned(gates), {.most_states = most_states});
        if (observables.size() == sums.size()) {
            EXPECT_TRUE(same_results(expected, got));
        }
        unsigned long largest = 0, now = 0;
        std::map<const void*, unsigned long> sizes;
        for (const auto& event : arrays.events()) {
            if (event.kind == WatchedArrays::Event::allocated) now += sizes[event.array] = event.bytes;
            if (event.kind == WatchedArrays::Event::released) now -= sizes[event.array];
            largest = std::max(largest, now);
        }
        return largest;
    };
    EXPECT_LE(states_taken({sums[0]}), 2 * state + (64ul << 10));
    EXPECT_GT(states_taken(sums), 4 * state);
    for (const unsigned long most : {0, 1, 2, 3}) {
        EXPECT_LE(states_taken(sums, most), std::max(most, 2ul) * state + (96ul << 10)) << most;
    }
    {
        const ScriptedMemory memory(3 * state);
        EXPECT_LE(states_taken(sums), 3 * state + (96ul << 10));
    }
    const ScriptedMemory memory(2 * state - 1);
    const CapturedOutput output;
    EXPECT_THROW(list.gradient(sums, turned(gates)), std::bad_alloc);
    EXPECT_NE(output.out().find("Not enough memory"), std::string::npos);
}

TYPED_TEST(gradient, leaves_the_program_as_it_was_where_memory_runs_out) {
    using T = TypeParam;
    const unsigned int n = 11;
    const auto gates = layers_on(n, 1);
    const auto sums = all_compiled({random_hermitian(n, 4, 1)});
    const auto expected = program_of<T>(gates, n).gradient(sums, turned(gates));
    for (const FailingAllocations::Extent extent : {FailingAllocations::once, FailingAllocations::from_then_on}) {
        bool reached = true;
        for (long which = 0; reached; which += 7) {
            auto list = program_of<T>(gates, n);
            bool threw = false;
            {
                const FailingAllocations failing(which, extent);
                try {
                    list.gradient(sums, turned(gates));
                } catch (const std::bad_alloc&) {
                    threw = true;
                }
                reached = failing.have_failed();
            }
            EXPECT_EQ(threw, reached) << which;
            EXPECT_TRUE(same_results(expected, list.gradient(sums, turned(gates)))) << which;
        }
    }
}

TYPED_TEST(gradient, refuses_what_it_cannot_do) {
    using T = TypeParam;
    program<T> list(2);
    list.add_gate("RX", {0.5}, {0});
    list.add_gate("H", {}, {1});
    const WObservable<double> z = compiled(one_string(0, 1));
    EXPECT_NO_THROW(list.gradient({z}, {0}));
    EXPECT_TRUE(list.gradient({}, {0}).derivatives.empty());
    EXPECT_THROW(list.gradient({z}, {1}), std::invalid_argument);
    EXPECT_THROW(list.gradient({z}, {2}), std::out_of_range);
    EXPECT_THROW(list.gradient({compiled(one_string(4, 0))}, {0}), std::invalid_argument);
    EXPECT_THROW(list.gradient({compiled(one_string(0, 4))}, {0}), std::invalid_argument);
    WObservable<double> wrong = z;
    wrong.coefficients[0] = thrust::complex<double>(0, 1);
    EXPECT_THROW(list.gradient({wrong}, {0}), std::invalid_argument);
    wrong = z;
    wrong.constant = thrust::complex<double>(0, 1);
    EXPECT_THROW(list.gradient({wrong}, {0}), std::invalid_argument);
    wrong = z;
    wrong.y_counts[0] = 1;
    EXPECT_THROW(list.gradient({wrong}, {0}), std::invalid_argument);
    wrong = z;
    wrong.coefficients.clear();
    EXPECT_THROW(list.gradient({wrong}, {0}), std::invalid_argument);

    StateVector<T> state(1);
    state.reset();
    EXPECT_THROW(list.gradient({z}, {0}, {.initial = &state}), std::invalid_argument);
    StateVector<T> released(2);
    released.release_memory();
    EXPECT_THROW(list.gradient({z}, {0}, {.initial = &released}), std::invalid_argument);

    for (const unsigned int k : {1u, 2u, 3u, 7u}) {
        program<T> projecting(7);
        std::vector<thrust::complex<T>> matrix(1ul << 2 * k);
        for (unsigned long i = 0; i < 1ul << k; ++i) matrix[i << k | (i ^ 1)] = 1;
        matrix[1] = T(0.5);
        reference::Qubits qubits;
        for (unsigned int q = 0; q < k; ++q) qubits.push_back(q);
        projecting.add_matrix(matrix, qubits);
        EXPECT_THROW(projecting.gradient({z}, {}), std::invalid_argument) << k;
    }
    program<T> shortening(1);
    shortening.add_diagonal({1, T(0.5)}, {0});
    EXPECT_THROW(shortening.gradient({z}, {}), std::invalid_argument);

    auto moved = std::move(list);
    EXPECT_THROW(list.gradient({z}, {0}), std::invalid_argument);
    EXPECT_NO_THROW(moved.gradient({z}, {0}));
}
