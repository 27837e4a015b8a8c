#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/observable.hpp>
#include <velacamplix/part_values.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>

using namespace support;
using pbamplix::cpu::add_part_values;
using pbamplix::cpu::part_sections;
using pbamplix::cpu::part_term_values;

PRECISION_SUITE(part_values_of);

namespace {

using Terms = WObservable<double>;
using Sums = std::vector<thrust::complex<double>>;

void add_term(Terms& terms, unsigned long flip, unsigned long phase) {
    terms.coefficients.emplace_back(0.5 + 0.25 * double(terms.flip_masks.size() % 7), 0.0);
    terms.flip_masks.push_back(flip);
    terms.phase_masks.push_back(phase);
    terms.y_counts.push_back(static_cast<unsigned int>(std::popcount(flip & phase)));
}

// All sorts of strings on n qubits; of those on the highest more than chance would give.
Terms random_terms(unsigned int n, unsigned int count) {
    std::mt19937 engine(n);
    Terms terms;
    add_term(terms, 0, 1);
    for (unsigned int q = 0; q < n; ++q) add_term(terms, 1ul << q, (engine() & 1ul) << q);
    while (terms.flip_masks.size() < count) {
        const unsigned long few = engine() & engine() & engine();
        add_term(terms, few & ((1ul << n) - 1), engine() & ((1ul << n) - 1));
    }
    return terms;
}

// A piece's terms, and where they stand among all.
struct alike {
    Terms terms;
    std::vector<std::size_t> places;
};

std::map<unsigned long, alike> by_flip_beyond(const Terms& all, unsigned int piece_qubits) {
    std::map<unsigned long, alike> found;
    for (std::size_t t = 0; t < all.flip_masks.size(); ++t) {
        alike& some = found[all.flip_masks[t] >> piece_qubits];
        some.terms.coefficients.push_back(all.coefficients[t]);
        some.terms.flip_masks.push_back(all.flip_masks[t]);
        some.terms.phase_masks.push_back(all.phase_masks[t]);
        some.terms.y_counts.push_back(all.y_counts[t]);
        some.places.push_back(t);
    }
    return found;
}

// The values from pieces, each of them in memory of its own.
template <class T>
Sums from_pieces(const StateVector<T>& state, const Terms& all, unsigned int piece_qubits, int threads) {
    const unsigned int n = state.nqubits;
    const unsigned long sections = part_sections(n), length = 1ul << piece_qubits;
    std::vector<std::vector<thrust::complex<T>>> pieces;
    for (unsigned long first = 0; first < state.size; first += length) {
        pieces.emplace_back(state.amplitudes.get() + first, state.amplitudes.get() + first + length);
    }
    Sums values(all.flip_masks.size());
    for (const auto& [beyond, some] : by_flip_beyond(all, piece_qubits)) {
        std::vector<double> sums[2];
        for (const bool other : {false, true}) {
            sums[other].resize(sections * some.places.size());
            for (unsigned long number = 0; number < pieces.size(); ++number) {
                if ((number & std::bit_floor(beyond)) != 0) continue;
                add_part_values(pieces[number].data(), pieces[number ^ beyond].data(), piece_qubits, n, number,
                                some.terms, threads, other, sums[other].data());
            }
        }
        const Sums found = part_term_values(some.terms, n, sums[0].data(), sums[1].data());
        for (std::size_t k = 0; k < found.size(); ++k) values[some.places[k]] = found[k];
    }
    return values;
}

testing::AssertionResult same(const Sums& expected, const Sums& found) {
    for (std::size_t t = 0; t < expected.size(); ++t) {
        const bool both_nan = std::isnan(expected[t].real()) && std::isnan(found[t].real());
        if (!both_nan && std::memcmp(&expected[t], &found[t], sizeof(found[t])) != 0) {
            return testing::AssertionFailure()
                   << "term " << t << ": " << found[t].real() << " in place of " << expected[t].real();
        }
    }
    return testing::AssertionSuccess();
}

}  // namespace

TYPED_TEST(part_values_of, pieces_of_every_size_are_those_of_the_whole_state) {
    using T = TypeParam;
    for (const unsigned int n : {3u, 13u, 14u, emulated ? 15u : 17u}) {
        const Terms terms = random_terms(n, 60);
        const LoadedVector<T> state(random_state<T>(n, support::Values::ordinary));
        const Sums expected = pbamplix::cpu::term_values(state.amplitudes.get(), terms, state.size, 1);
        for (unsigned int piece = std::min(n, 13u); piece <= n; ++piece) {
            EXPECT_TRUE(same(expected, from_pieces<T>(state, terms, piece, 1 + static_cast<int>(piece % 3))))
                << n << " qubits in pieces of " << piece;
        }
    }
}

TYPED_TEST(part_values_of, infinite_amplitudes_show_as_they_do_in_the_whole_state) {
    using T = TypeParam;
    const unsigned int n = 15;
    auto amplitudes = random_state<T>(n, support::Values::ordinary);
    amplitudes[20000].re = std::numeric_limits<T>::infinity();
    const LoadedVector<T> state(amplitudes);
    const Terms terms = random_terms(n, 40);
    const Sums expected = pbamplix::cpu::term_values(state.amplitudes.get(), terms, state.size, 1);
    EXPECT_TRUE(std::any_of(expected.begin(), expected.end(), [](const auto& v) { return !std::isfinite(v.real()); }));
    EXPECT_TRUE(same(expected, from_pieces<T>(state, terms, 13, 2)));
}

TYPED_TEST(part_values_of, what_is_no_piece_is_refused) {
    using T = TypeParam;
    const std::vector<thrust::complex<T>> piece(1ul << 13);
    std::vector<double> sums(8 * part_sections(15));
    const auto add = [&](unsigned int piece_qubits, unsigned int n, unsigned long number, const Terms& terms) {
        add_part_values(piece.data(), piece.data(), piece_qubits, n, number, terms, 1, false, sums.data());
    };
    Terms z, x, both;
    add_term(z, 0, 1);
    add_term(x, 1ul << 14, 0);
    add_term(both, 0, 1);
    add_term(both, 1ul << 14, 0);
    EXPECT_NO_THROW(add(13, 15, 3, z));
    EXPECT_NO_THROW(add(13, 15, 1, x));
    EXPECT_NO_THROW(add(13, 15, 1, Terms{}));
    EXPECT_THROW(add(12, 15, 0, z), std::invalid_argument);
    EXPECT_THROW(add(13, 64, 0, z), std::invalid_argument);
    EXPECT_THROW(add(16, 15, 0, z), std::invalid_argument);
    EXPECT_THROW(add(13, 15, 4, z), std::invalid_argument);
    EXPECT_THROW(add(13, 15, 2, x), std::invalid_argument);
    EXPECT_THROW(add(13, 15, 0, both), std::invalid_argument);
    EXPECT_THROW(part_sections(64), std::invalid_argument);
    EXPECT_EQ(part_sections(15), 4ul);
    EXPECT_EQ(part_sections(40), 4096ul);
}
