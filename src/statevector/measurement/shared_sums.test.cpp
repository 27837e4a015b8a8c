#include "statevector/measurement/shared_sums.hpp"

#include "reference/probabilities.hpp"
#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"

#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>

using namespace velacamplix;
using measurement::growth_of_block;
using measurement::sum_block;
using measurement::sums_of_blocks;

PRECISION_SUITE(shared_sums);

namespace {

template <class T>
using Amplitudes = std::vector<thrust::complex<T>>;

constexpr unsigned int qubits = 18;
constexpr unsigned long size = 1ul << qubits;

// Amplitude i of a state, for each of the ways in which sums may grow.
template <class T>
struct Shape {
    std::string name;
    std::function<thrust::complex<T>(unsigned long i, std::mt19937_64& engine)> amplitude;
};

template <class T>
std::vector<Shape<T>> shapes() {
    using C = thrust::complex<T>;
    using limits = std::numeric_limits<T>;
    constexpr int least_exponent = limits::min_exponent - limits::digits;  // of the least subnormal number
    const auto any = [](std::mt19937_64& engine) { return std::normal_distribution<T>()(engine); };
    const auto below = [](std::mt19937_64& engine, unsigned long n) { return static_cast<int>(engine() % n); };
    const T inf = limits::infinity(), nan = limits::quiet_NaN();
    return {
        {"random", [=](unsigned long, auto& e) { return C(any(e), any(e)) / T(512); }},
        {"uniform", [=](unsigned long, auto&) { return C(T(0.001953124), 0); }},
        {"powers of two", [=](unsigned long, auto&) { return C(T(0x1p-9), 0); }},
        // Half a unit of the sum's last place, and odd multiples of it: nearly every addition is a tie.
        {"ties",
         [=](unsigned long i, auto& e) {
             if (i == 0) return C(T(0.5), 0);
             const T half = std::ldexp(T(1), -(limits::digits + 2) / 2);  // its square, or two of them
             const T other = limits::digits % 2 == 0 ? T(0) : half;
             return below(e, 3) == 0 ? C(2 * half, other == 0 ? half : 0) : C(half, other);
         }},
        {"ties now and then",
         [=](unsigned long i, auto& e) {
             if (i == 0) return C(T(0.5), 0);
             const T half = std::ldexp(T(1), -(limits::digits + 2) / 2);
             return below(e, 3000) == 0 ? C(half, limits::digits % 2 == 0 ? T(0) : half) : C(half * any(e), 0);
         }},
        {"zeros", [=](unsigned long, auto&) { return C(0, 0); }},
        {"the last alone", [=](unsigned long i, auto&) { return C(i + 1 == size ? T(1) : T(0), 0); }},
        {"few", [=](unsigned long, auto& e) { return below(e, 20000) == 0 ? C(any(e), any(e)) : C(0, 0); }},
        {"squares below the normal range",
         [=](unsigned long, auto& e) { return C(any(e), any(e)) * std::ldexp(T(1), (least_exponent + 2) / 2); }},
        {"out of the subnormal range",
         [=](unsigned long i, auto& e) {
             return C(any(e), any(e)) * std::ldexp(T(1), (least_exponent + static_cast<int>(i >> 14)) / 2);
         }},
        {"through all exponents",
         [=](unsigned long i, auto& e) {
             const int exponent = static_cast<int>(i * static_cast<unsigned long>(-least_exponent) / size);
             return C(any(e), 0) * std::ldexp(T(1), (least_exponent + exponent) / 2);
         }},
        {"a jump in every block",
         [=](unsigned long i, auto& e) {
             if (i % sum_block == 77) return C(std::ldexp(T(1), static_cast<int>(i / sum_block) - 10), 0);
             return C(any(e), 0) / T(1 << 14);
         }},
        {"far apart", [=](unsigned long, auto& e) { return C(any(e), 0) * std::ldexp(T(1), -below(e, 60)); }},
        {"overflow", [=](unsigned long, auto& e) { return C(any(e), 0) * std::sqrt(limits::max() / T(size / 2)); }},
        {"infinity", [=](unsigned long i, auto& e) { return C(i == 100000 ? inf : any(e), 0); }},
        {"NaN", [=](unsigned long i, auto& e) { return C(any(e), i == 100001 ? nan : T(0)); }},
        {"NaN behind infinity",
         [=](unsigned long i, auto&) {
             return C(i == 40000 ? inf : i == 150000 ? nan : T(1), 0);
         }},
    };
}

template <class T>
Amplitudes<T> state_of(const Shape<T>& shape) {
    std::mt19937_64 engine(7);
    Amplitudes<T> state(size);
    for (unsigned long i = 0; i < size; ++i) state[i] = shape.amplitude(i, engine);
    return state;
}

// One addition after another.
template <class View>
auto literal_sums(const View& view) {
    using T = typename View::proba_type;
    std::vector<T> sums;
    T sum = 0;
    for (unsigned long i = 0; i < view.dim; ++i) {
        sum = sum + measurement::probability_at(view, i);
        if ((i + 1) % sum_block == 0) sums.push_back(sum);
    }
    return sums;
}

template <class T>
bool same_numbers(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

template <class View>
void expect_literal_sums(const View& view, const std::string& name) {
    using T = typename View::proba_type;
    const std::vector<T> expected = literal_sums(view);
    for (const int threads : support::thread_counts) {
        const auto got = sums_of_blocks(view, threads, std::numeric_limits<T>::quiet_NaN());
        EXPECT_TRUE(same_numbers(got, expected)) << name << ", " << threads << " thread(s)";
    }
    // Up to a sum that is reached in the middle, exactly and not.
    for (const T enough : {expected[9], expected[9] * T(0.75), T(0)}) {
        unsigned long wanted = 0;
        while (wanted < expected.size() && !(enough <= (wanted == 0 ? T(0) : expected[wanted - 1]))) ++wanted;
        const auto got = sums_of_blocks(view, 2, enough);
        ASSERT_GE(got.size(), wanted) << name;
        EXPECT_TRUE(same_numbers(got, std::vector<T>(expected.begin(), expected.begin() + got.size()))) << name;
    }
}

}  // namespace

TYPED_TEST(shared_sums, have_the_bits_of_one_addition_after_another) {
    for (const auto& shape : shapes<TypeParam>()) {
        const auto state = state_of(shape);
        const auto view = measurement::state_view(state.data(), qubits);
        expect_literal_sums(view, shape.name);
        using precise = pbamplix::precise_view<pbamplix::SVSequence<thrust::complex<TypeParam>>>;
        expect_literal_sums(precise{view}, shape.name + ", summed in double");
    }
}

// A block's growth holds for every sum with its exponent, whether the last bit is 0 or 1.
TYPED_TEST(shared_sums, grow_by_what_a_block_says) {
    using T = TypeParam;
    using bits = measurement::sum_bits<T>;
    std::mt19937_64 engine(3);
    unsigned long stayed = 0;
    for (const auto& shape : shapes<T>()) {
        const auto state = state_of(shape);
        const auto view = measurement::state_view(state.data(), qubits);
        for (const T around : {T(0), std::numeric_limits<T>::min(), T(0.25), T(0.3), T(1), T(1000)}) {
            const bits bottom = measurement::bottom_of<T>(std::bit_cast<bits>(around));
            const unsigned long first = engine() % (size / sum_block) * sum_block;
            const auto growth = growth_of_block(view, first, bottom);
            if (growth.may_leave()) continue;
            for (unsigned int trial = 0; trial < 4; ++trial) {
                const bits start = bottom + (engine() % (measurement::one_exponent<T> / 2) & ~bits{1}) + trial % 2;
                T sum = std::bit_cast<T>(start);
                for (unsigned long i = 0; i < sum_block; ++i) sum += measurement::probability_at(view, first + i);
                const bits after = start + growth.of(start);
                if (measurement::bottom_of<T>(after) != bottom) continue;
                EXPECT_EQ(std::bit_cast<bits>(sum), after) << shape.name << " around " << around;
                ++stayed;
            }
        }
    }
    EXPECT_GT(stayed, 100ul);
}

// A view in parts, each with the sum of those before, which was foreseen from about what they add.
TYPED_TEST(shared_sums, go_through_parts_as_through_the_whole) {
    using T = TypeParam;
    constexpr unsigned int part_bits = 16;
    for (const auto& shape : shapes<T>()) {
        const auto state = state_of(shape);
        const auto expected = literal_sums(measurement::state_view(state.data(), qubits));
        std::vector<T> got;
        T sum = 0;
        double about = 0;
        for (unsigned long first = 0; first < size; first += 1ul << part_bits) {
            measurement::foreseen_sums part(measurement::state_view(state.data() + first, part_bits), 2);
            part.foresee(about);
            about += part.estimate();
            sum = part.run(sum);
            got.insert(got.end(), part.at_blocks().begin(), part.at_blocks().end());
        }
        EXPECT_TRUE(same_numbers(got, expected)) << shape.name;
    }
}
