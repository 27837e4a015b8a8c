#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/recorded_program.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/program.hpp>
#include <velacamplix/version.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

using namespace support;
using reference::Qubits;

PRECISION_SUITE(fusion);

namespace {

template <class T>
using program = pbamplix::cpu::program<T>;
template <class T>
using Matrix = std::vector<thrust::complex<T>>;

// Relative, of a state's length.
template <class T>
constexpr double most_error = sizeof(T) == 8 ? 1e-13 : 1e-5;

// Where numbers are so small that they have lost digits, every gate may be wrong by some units of the smallest.
template <class T>
constexpr double small_change = 1000 * static_cast<double>(std::numeric_limits<T>::denorm_min());

// Agreement up to rounding; where the exact run has an infinity or a NaN, of all bits.
template <class T>
testing::AssertionResult agree(const StateVector<T>& expected, const StateVector<T>& got) {
    // In units of the largest number, so that squares neither vanish nor overflow.
    double largest = 0, difference = 0, length = 0;
    for (unsigned long i = 0; i < expected.size; ++i) {
        const auto& e = expected.amplitudes[i];
        if (!std::isfinite(e.real()) || !std::isfinite(e.imag())) return equal_states(expected, got);
        largest = std::max({largest, std::abs(static_cast<double>(e.real())), std::abs(static_cast<double>(e.imag()))});
    }
    const double unit = std::max(largest, small_change<T>);
    const auto part = [&](T x) { return static_cast<double>(x) / unit; };
    for (unsigned long i = 0; i < expected.size; ++i) {
        const auto& e = expected.amplitudes[i];
        const auto& g = got.amplitudes[i];
        difference += std::pow(part(g.real()) - part(e.real()), 2) + std::pow(part(g.imag()) - part(e.imag()), 2);
        length += std::pow(part(e.real()), 2) + std::pow(part(e.imag()), 2);
    }
    const double error = std::sqrt(difference) - most_error<T> * std::sqrt(length) - small_change<T> / unit;
    if (error <= 0) return testing::AssertionSuccess();  // not so for a NaN
    return testing::AssertionFailure() << "off by " << std::sqrt(difference) << " of a length of " << std::sqrt(length)
                                       << ", in units of " << unit;
}

template <class T>
testing::AssertionResult runs_alike(program<T>& list, const reference::State<T>& start) {
    LoadedVector<T> expected(start), got(start, 2);
    list.set_fusion(false);
    list.run(expected);
    list.set_fusion(true);
    list.run(got);
    return agree(expected, got);
}

template <class T>
const std::vector<thrust::complex<T>> telling_entries = {
    {0, 0},
    {T(-0.0), T(-0.0)},
    {std::numeric_limits<T>::denorm_min(), 0},
    {0, 1000 * std::numeric_limits<T>::denorm_min()},
    {std::numeric_limits<T>::min(), std::numeric_limits<T>::min()},
    {sizeof(T) == 8 ? T(1e-160) : T(1e-20), 0},
    {0, T(1e-17)},
    {T(3), T(-4)},
    {sizeof(T) == 8 ? T(1e160) : T(1e20), 0},
    {0, std::numeric_limits<T>::max()},
    {-std::numeric_limits<T>::max(), std::numeric_limits<T>::max()},
};

// The matrix's product with one group, sums in the order that the loops for blocks keep to: columns upward, or with
// `flip` the diagonal first. `at` are the places of the group's amplitudes, by a local index of sorted qubits.
template <class T>
void multiply_group(const Matrix<T>& matrix, const std::vector<unsigned long>& at, unsigned int flip,
                    reference::State<T>& state) {
    static const bool rounds_once = std::string(pbamplix::instruction_set()) != "x86-64";
    const auto add = [](T a, T b, T sum) { return rounds_once ? std::fma(a, b, sum) : a * b + sum; };
    const unsigned long dim = at.size();
    reference::State<T> old;
    for (const unsigned long i : at) old.push_back(state[i]);
    for (unsigned long row = 0; row < dim; ++row) {
        T re = 0, im = 0;
        for (unsigned long term = 0; term < (flip != 0 ? 2 : dim); ++term) {
            const unsigned long column = flip == 0 ? term : term == 0 ? row : row ^ flip;
            const auto m = matrix[row * dim + column];
            const auto x = old[column];
            re = term == 0 ? m.real() * x.re : add(m.real(), x.re, re);
            im = term == 0 ? m.real() * x.im : add(m.real(), x.im, im);
            re = add(m.imag(), -x.im, re);
            im = add(m.imag(), x.re, im);
        }
        state[at[row]] = {re, im};
    }
}

// Nothing; one; a projector; unitary.
template <class T>
std::vector<Matrix<T>> grounds(unsigned int k) {
    const unsigned long dim = 1ul << k;
    std::vector<Matrix<T>> result(3, Matrix<T>(dim * dim));
    for (unsigned long i = 0; i < dim; ++i) result[1][i * (dim + 1)] = T(1);
    result[2].back() = T(1);
    auto& fourier = result.emplace_back(dim * dim);
    for (unsigned long i = 0; i < dim * dim; ++i) {
        const double a = 0.3 + 6.283185307179586 * static_cast<double>(i / dim * (i % dim)) / static_cast<double>(dim);
        const double size = 1 / std::sqrt(static_cast<double>(dim));
        fourier[i] = thrust::complex<T>(static_cast<T>(size * std::cos(a)), static_cast<T>(size * std::sin(a)));
    }
    return result;
}

// Gates before, between and behind two of the same kind, so that there is something to multiply them with, on their
// qubits and on others; in the end one outcome is taken, so that what is small is all there is.
template <class T, class Add>
program<T> surrounded(unsigned int n, Add add, bool projected) {
    program<T> list(n);
    const auto turn_all = [&](T angle) {
        for (unsigned int q = 0; q < n; ++q) {
            list.add_gate("H", {}, {q});
            list.add_gate("RZ", {angle + T(q)}, {q});
            list.add_gate("RX", {angle}, {q});
        }
    };
    if (!projected) turn_all(T(0.7));
    add(list);
    list.add_gate("CNOT", {}, {n - 1, 0});
    list.add_gate("PH", {T(0.4)}, {0});
    list.add_gate("CNOT", {}, {n - 1, 0});
    add(list);
    if (projected) {
        list.add_diagonal({T(0), T(1)}, {0});
    } else {
        turn_all(T(-0.3));
    }
    return list;
}

// `add(list, matrix)` for every matrix with every telling entry at every place.
template <class T, class Add>
void expect_agreement(unsigned int n, const std::vector<Matrix<T>>& of, const std::vector<unsigned long>& places,
                      const std::string& what, Add add) {
    const auto random = random_state<T>(n, Values::ordinary, n);
    for (std::size_t ground = 0; ground < of.size(); ++ground) {
        for (const unsigned long place : places) {
            for (const auto& entry : telling_entries<T>) {
                Matrix<T> matrix = of[ground];
                matrix[place] = entry;
                for (const bool projected : {false, true}) {
                    auto list = surrounded<T>(
                        n, [&](program<T>& to) { add(to, matrix); }, projected);
                    auto start = random;
                    if (projected) {
                        start.assign(start.size(), {});
                        start[0] = {T(1), 0};
                    }
                    ASSERT_TRUE(runs_alike(list, start))
                        << what << ", ground " << ground << ", entry " << place << " = (" << entry.real() << ", "
                        << entry.imag() << "), " << n << " qubits" << (projected ? ", projected" : "");
                }
            }
        }
    }
}

std::vector<unsigned long> all_places(unsigned long count) {
    std::vector<unsigned long> places;
    for (unsigned long i = 0; i < count; ++i) places.push_back(i);
    return places;
}

}  // namespace

TYPED_TEST(fusion, of_matrices_with_zeros_and_tiny_and_huge_entries_agrees_up_to_rounding) {
    for (const unsigned int n : {3u, 13u}) {
        for (const Qubits& controls : {Qubits{}, Qubits{1}}) {
            expect_agreement<TypeParam>(n, grounds<TypeParam>(1), all_places(4), "2x2",
                                        [&](auto& list, const auto& m) { list.add_matrix(m, {0}, controls); });
        }
    }
    for (const Qubits& controls : {Qubits{}, Qubits{1}}) {
        expect_agreement<TypeParam>(3, grounds<TypeParam>(2), all_places(16), "4x4", [&](auto& list, const auto& m) {
            list.add_matrix(m, {0, 2}, controls);
        });
    }
}

TYPED_TEST(fusion, of_diagonals_with_zeros_and_tiny_and_huge_entries_agrees_up_to_rounding) {
    for (const unsigned int n : {4u, 13u}) {
        for (unsigned int k = 1; k <= 3; ++k) {
            const unsigned long dim = 1ul << k;
            std::vector<Matrix<TypeParam>> diagonals(3, Matrix<TypeParam>(dim));
            diagonals[1].assign(dim, TypeParam(1));
            for (auto& d : diagonals[2]) d = thrust::complex<TypeParam>(TypeParam(0.6), TypeParam(0.8));
            for (const Qubits& controls : {Qubits{}, Qubits{3}}) {
                expect_agreement<TypeParam>(n, diagonals, all_places(dim), "diagonal on " + std::to_string(k),
                                            [&](auto& list, const auto& d) {
                                                Qubits qubits = {0, 1, 2};
                                                qubits.resize(k);
                                                list.add_diagonal(d, qubits, controls);
                                            });
            }
        }
    }
}

// What a host builds trajectories of.
TYPED_TEST(fusion, of_projectors_and_kraus_operators_agrees_up_to_rounding) {
    using Entries = Matrix<TypeParam>;
    const TypeParam g = TypeParam(0.3), kept = std::sqrt(1 - g), lost = std::sqrt(g), p = std::sqrt(TypeParam(0.1));
    const std::vector<Entries> operators = {
        {1, 0, 0, 0},
        {0, 0, 0, 1},
        {TypeParam(0.5), TypeParam(0.5), TypeParam(0.5), TypeParam(0.5)},
        {1, 0, 0, kept},  // amplitude damping
        {0, lost, 0, 0},
        {0, p, p, 0},
        {p, 0, 0, -p},  // and depolarisation
        {0, 1, 0, 0},   // lowering
        {1, TypeParam(1e-18), 0, 1},
        {1, TypeParam(1e-18), TypeParam(-1e-18), 1}  // nearly nothing
    };
    for (const unsigned int n : {2u, 5u, 13u, 15u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        for (unsigned int seed = 0; seed < 4; ++seed) {
            std::mt19937 engine(17 * n + seed);
            program<TypeParam> list(n);
            for (int gate = 0; gate < 120; ++gate) {
                const auto q = static_cast<unsigned int>(engine() % n);
                const unsigned int other = (q + 1) % n;
                switch (engine() % 5) {
                    case 0:
                        // Seldom enough for the state to last.
                        if (gate % 3 == 0) list.add_matrix(operators[engine() % operators.size()], {q});
                        break;
                    case 1:
                        list.add_gate("CNOT", {}, {q, other});
                        break;
                    case 2:
                        list.add_gate("RZ", {TypeParam(engine() % 100) / 10}, {q});
                        break;
                    default:
                        list.add_gate("RY", {TypeParam(engine() % 100) / 10}, {q});
                        break;
                }
            }
            ASSERT_TRUE(runs_alike(list, start)) << n << " qubits, seed " << seed;
        }
    }
}

// A gate that lengthens states may not be overtaken: the other order could leave the range of numbers.
TYPED_TEST(fusion, leaves_gates_that_lengthen_states_where_they_are) {
    const unsigned int n = 16;
    const TypeParam large = std::numeric_limits<TypeParam>::max() / 64, small = 1 / large;
    const auto start = random_state<TypeParam>(n, Values::ordinary, 3);
    for (const bool shrinking_first : {true, false}) {
        program<TypeParam> list(n);
        // The high qubits find no place in the first buffer; what follows on low ones overtakes them.
        for (unsigned int q = 0; q < n; ++q) list.add_gate("H", {}, {q});
        const TypeParam first = shrinking_first ? small : large, second = shrinking_first ? large : small;
        for (int i = 0; i < 3; ++i) {
            list.add_diagonal({first, first, first, first}, {n - 1, 0});
            list.add_diagonal({second, second}, {0});
            list.add_matrix({0, second, second, 0}, {1});
            list.add_matrix({0, first, first, 0}, {n - 2});
        }
        for (unsigned int q = 0; q < n; ++q) list.add_gate("RX", {TypeParam(0.3)}, {q});
        LoadedVector<TypeParam> exact(start);
        list.run(exact);
        ASSERT_TRUE(runs_alike(list, start)) << (shrinking_first ? "shrinking" : "lengthening") << " first";
        ASSERT_TRUE(!shrinking_first || std::isfinite(exact.amplitudes[5].real()));
    }
}

// In double precision a matrix that is off by what a float's rounding would be is no unitary one.
TYPED_TEST(fusion, of_a_matrix_that_is_nearly_unitary_agrees_up_to_rounding) {
    const auto start = random_state<TypeParam>(4, Values::ordinary, 4);
    for (const TypeParam shear :
         {TypeParam(1e-5), TypeParam(1e-6), TypeParam(1e-7), TypeParam(1e-9), TypeParam(1e-12)}) {
        program<TypeParam> list(4);
        for (int i = 0; i < 20; ++i) {
            for (unsigned int q = 0; q < 4; ++q) {
                list.add_gate("RX", {TypeParam(0.3) + TypeParam(i)}, {q});
                list.add_matrix({1, shear, 0, 1}, {q});
                list.add_matrix({1 + shear, 0, 0, 1}, {q});
            }
        }
        ASSERT_TRUE(runs_alike(list, start)) << shear;
    }
}

// Rotations so small that they seem to do nothing do all there is when the rest is projected away.
TYPED_TEST(fusion, keeps_what_a_tiny_rotation_does) {
    for (const TypeParam angle : {TypeParam(1e-10), TypeParam(1e-16), TypeParam(1e-20), TypeParam(1e-30)}) {
        program<TypeParam> list(2);
        list.add_gate("RZ", {TypeParam(0.3)}, {0});
        list.add_gate("RX", {angle}, {0});
        list.add_gate("T", {}, {0});
        list.add_gate("RY", {angle}, {0});
        list.add_diagonal({0, 1}, {0});
        reference::State<TypeParam> start(4);
        start[0] = {TypeParam(1), 0};
        ASSERT_TRUE(runs_alike(list, start)) << angle;
    }
}

// A diagonal of one entry multiplies the whole state, or the part where its controls are 1.
TYPED_TEST(fusion, keeps_a_phase_on_no_qubit) {
    const thrust::complex<TypeParam> phase(TypeParam(0.6), TypeParam(0.8));
    for (const unsigned int n : {1u, 3u, 13u}) {
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        for (const Qubits& controls : {Qubits{}, Qubits{0}, Qubits{n - 1}}) {
            auto list = n == 1 ? program<TypeParam>(1)
                               : surrounded<TypeParam>(
                                     n, [&](program<TypeParam>& to) { to.add_diagonal({phase}, {}, controls); }, false);
            list.add_diagonal({phase}, {}, controls);
            ASSERT_TRUE(runs_alike(list, start)) << n << " qubits, " << controls.size() << " controls";
        }
        program<TypeParam> on_none(n), on_one(n);
        on_none.add_diagonal({phase}, {});
        on_one.add_diagonal({phase, phase}, {0});
        LoadedVector<TypeParam> got(start), expected(start);
        on_none.run(got);
        on_one.run(expected);
        ASSERT_TRUE(equal_states(expected, got)) << n << " qubits";
    }
    LoadedVector<TypeParam> alone(reference::State<TypeParam>(1, {TypeParam(1), 0}));
    program<TypeParam> list(0);
    list.add_diagonal({phase}, {});
    for (const bool fused : {false, true}) {
        list.set_fusion(fused);
        list.run(alone);
    }
    ASSERT_EQ(alone.amplitudes[0].real(), TypeParam(0.6) * TypeParam(0.6) - TypeParam(0.8) * TypeParam(0.8));
}

// A matrix that stands alone is a block with its own entries, wherever its targets are.
TYPED_TEST(fusion, gives_the_bits_of_the_sums_of_a_block) {
    std::mt19937 engine(5);
    const auto number = [&] { return static_cast<TypeParam>(engine() % 2001) / 1000 - 1; };
    for (unsigned int trial = 0; trial < 1500; ++trial) {
        const unsigned int n = 1 + static_cast<unsigned int>(engine() % 8);
        const unsigned int k = 1 + static_cast<unsigned int>(engine() % std::min(n, 4u));
        const unsigned int flip = k == 2 ? static_cast<unsigned int>(engine() % 4) : 0;
        Qubits qubits(n);
        std::iota(qubits.begin(), qubits.end(), 0u);
        std::shuffle(qubits.begin(), qubits.end(), engine);
        qubits.resize(k);
        Qubits sorted = qubits;
        std::sort(sorted.begin(), sorted.end());
        // By local indices of sorted qubits, lowest first, and by those of the listed ones, highest first.
        const unsigned long dim = 1ul << k;
        Matrix<TypeParam> matrix(dim * dim), listed(dim * dim);
        std::vector<unsigned long> place(dim), bits(dim);
        for (unsigned long local = 0; local < dim; ++local) {
            for (unsigned int i = 0; i < k; ++i) {
                if (((local >> i) & 1) == 0) continue;
                bits[local] |= 1ul << sorted[i];
                const auto at = std::find(qubits.begin(), qubits.end(), sorted[i]) - qubits.begin();
                place[local] |= 1ul << (k - 1 - static_cast<unsigned int>(at));
            }
        }
        for (unsigned long row = 0; row < dim; ++row) {
            for (unsigned long column = 0; column < dim; ++column) {
                if (flip != 0 && row != column && (row ^ column) != flip) continue;
                const TypeParam re = number() / TypeParam(2 * dim);
                matrix[row * dim + column] = thrust::complex<TypeParam>(re, number() / TypeParam(2 * dim));
                listed[place[row] * dim + place[column]] = matrix[row * dim + column];
            }
        }
        const auto start = random_state<TypeParam>(n, Values::ordinary, trial);
        reference::State<TypeParam> expected = start;
        for (unsigned long base = 0; base < start.size(); ++base) {
            if ((base & bits.back()) != 0) continue;
            std::vector<unsigned long> at;
            for (const unsigned long b : bits) at.push_back(base | b);
            multiply_group<TypeParam>(matrix, at, flip, expected);
        }
        program<TypeParam> list(n);
        list.add_matrix(listed, qubits);
        list.set_fusion(true);
        LoadedVector<TypeParam> got(start, 3);
        list.run(got);
        ASSERT_TRUE(equal_states(LoadedVector<TypeParam>(expected), got))
            << n << " qubits, targets " << testing::PrintToString(qubits) << ", flip " << flip;
    }
}

// Blocks on qubits inside a vector, beside it and far from it, in chunks and in one piece, on any number of threads.
TYPED_TEST(fusion, of_pairs_agrees_up_to_rounding_and_between_threads) {
    for (const unsigned int n : {2u, 4u, 9u, 13u, 17u}) {
        std::mt19937 engine(n);
        program<TypeParam> list(n);
        for (int block = 0; block < 60; ++block) {
            const auto p = static_cast<unsigned int>(engine() % n);
            const auto q = static_cast<unsigned int>((p + 1 + engine() % (n - 1)) % n);
            const TypeParam angle = static_cast<TypeParam>(engine() % 60) / 10;
            if (block % 3 == 0) list.add_gate("RY", {angle}, {p});
            list.add_gate("RXX", {angle}, {p, q});
            list.add_gate("RYY", {-angle}, {q, p});
            if (block % 4 == 0) list.add_gate("U", {angle, 1, 2}, {q});
            list.add_gate("RZZ", {angle}, {p, q});
            if (block % 5 == 0) list.add_gate("SX", {}, {p}, {q});
        }
        const auto start = random_state<TypeParam>(n, Values::ordinary, n);
        ASSERT_TRUE(runs_alike(list, start)) << n << " qubits";
        LoadedVector<TypeParam> one(start, 1);
        list.run(one);
        for (const int threads : {2, 3, 8}) {
            LoadedVector<TypeParam> several(start, threads);
            list.run(several);
            ASSERT_TRUE(equal_states(one, several)) << n << " qubits, " << threads << " threads";
        }
    }
}

// More phases wait than a table of factors may hold: some act now and some later, and the last ones in several tables.
TYPED_TEST(fusion, of_phases_on_all_qubits_of_a_large_buffer_agrees_up_to_rounding) {
    const unsigned int n = 20;
    program<TypeParam> list(n);
    const auto on_all = [&](const char* name, TypeParam angle) {
        for (unsigned int q = 0; q < n; ++q) list.add_gate(name, {angle + TypeParam(q) / 7}, {q});
    };
    on_all("RX", 1);
    on_all("RZ", 2);
    for (unsigned int q = 0; q + 1 < n; q += 2) list.add_gate("SWAP", {}, {q, q + 1}, {(q + 5) % n});
    on_all("PH", 3);
    const auto start = random_state<TypeParam>(n, Values::ordinary, n);
    ASSERT_TRUE(runs_alike(list, start));
}
