#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/measurement.hpp>
#include <velacamplix/part_shots.hpp>

#include <cmath>
#include <limits>
#include <type_traits>

using namespace support;
using pbamplix::cpu::part_shots;
using reference::Qubits;

PRECISION_SUITE(part_shots_of);

namespace {

enum class Foreseen { not_at_all, rightly, wrongly };

constexpr unsigned long count = 1000;

template <class T>
std::vector<unsigned long> shots_of_whole(const StateVector<T>& state, const Qubits& qubits) {
    using View = pbamplix::SVSequence<thrust::complex<T>>;
    const View view{state.amplitudes.get(), state.nqubits, state.size};
    std::vector<unsigned long> shots(count);
    std::mt19937_64 engine(11);
    if constexpr (std::is_same_v<T, double>) {
        pbamplix::cpu::pick_shots_of_any_norm(view, shots.data(), engine, count, 1, qubits);
    } else {
        const pbamplix::precise_view<View> precise{view};
        pbamplix::cpu::pick_shots_of_any_norm(precise, shots.data(), engine, count, 1, qubits);
    }
    return shots;
}

template <class T>
std::vector<unsigned long> shots_of_parts(const StateVector<T>& state, unsigned int rank_bits, const Qubits& qubits,
                                          Foreseen foreseen, int threads) {
    const unsigned int part_qubits = state.nqubits - rank_bits;
    std::vector<part_shots<T>> parts;
    for (unsigned long number = 0; number >> rank_bits == 0; ++number) {
        const auto* part = state.amplitudes.get() + (number << part_qubits);
        parts.emplace_back(part, part_qubits, state.nqubits, number, threads);
    }
    double before = foreseen == Foreseen::wrongly ? 0.3 : 0;
    for (auto& part : parts) {
        if (foreseen != Foreseen::not_at_all) part.foresee(before);
        before += part.estimate();
    }
    double sum = 0;
    for (auto& part : parts) sum = part.run(sum);
    std::vector<unsigned long> shots(count), some(count);
    for (auto& part : parts) {
        std::mt19937_64 engine(11);
        part.write(sum, engine, some.data(), count, qubits);
        for (unsigned long s = 0; s < count; ++s) shots[s] |= some[s];
    }
    return shots;
}

template <class T>
void expect_same_shots(const reference::State<T>& amplitudes, const std::string& name) {
    const LoadedVector<T> state(amplitudes);
    const unsigned int n = state.nqubits;
    const auto expect = [&](unsigned int rank_bits, Foreseen foreseen, const Qubits& qubits) {
        EXPECT_EQ(shots_of_parts(state, rank_bits, qubits, foreseen, 1 + static_cast<int>(rank_bits % 2)),
                  shots_of_whole(state, qubits))
            << name << ", " << n << " qubits, 2^" << rank_bits << " parts";
    };
    for (unsigned int rank_bits = 0; rank_bits <= std::min(n, 3u); ++rank_bits) {
        expect(rank_bits, Foreseen::rightly, {});
    }
    expect(1, Foreseen::not_at_all, {n - 1, 0});
    expect(2, Foreseen::wrongly, {n - 1, 0});
}

}  // namespace

TYPED_TEST(part_shots_of, a_state_are_those_of_one_process) {
    using T = TypeParam;
    for (const unsigned int n : {2u, 5u, 11u, emulated ? 12u : 17u}) {
        auto state = random_state<T>(n, Values::ordinary, n);
        expect_same_shots(state, "of any norm");
        double norm = 0;
        for (const auto& a : state) norm += double(a.re) * double(a.re) + double(a.im) * double(a.im);
        for (auto& a : state) a = {T(double(a.re) / std::sqrt(norm)), T(double(a.im) / std::sqrt(norm))};
        expect_same_shots(state, "normalised");
        for (auto& a : state) a = {0, 0};
        state[state.size() / 2 + 1] = {0, 1};
        expect_same_shots(state, "one index");
    }
}

TYPED_TEST(part_shots_of, what_has_no_shots_is_refused) {
    using T = TypeParam;
    const std::vector<thrust::complex<T>> part(4);
    EXPECT_THROW(part_shots<T>(part.data(), 2, 1, 0, 1), std::invalid_argument);
    EXPECT_THROW(part_shots<T>(part.data(), 2, 4, 4, 1), std::invalid_argument);
    EXPECT_THROW(part_shots<T>(part.data(), 2, 64, 0, 1), std::invalid_argument);
    part_shots<T> zeros(part.data(), 2, 4, 3, 1);
    std::mt19937_64 engine(1);
    unsigned long shot = 0;
    for (const double total : {zeros.run(0), std::numeric_limits<double>::infinity(), std::nan("")}) {
        EXPECT_THROW(zeros.write(total, engine, &shot, 1, {}), std::domain_error);
    }
    EXPECT_EQ(engine, std::mt19937_64(1));
}
