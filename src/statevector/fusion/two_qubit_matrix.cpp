#include "statevector/fusion/two_qubit_matrix.hpp"

#include "statevector/fusion/one_qubit_unitary.hpp"
#include "statevector/index/bits.hpp"

#include <algorithm>
#include <cmath>

namespace velacamplix::fusion {

two_qubit_matrix two_qubit_matrix::identity() {
    two_qubit_matrix m;
    for (std::size_t i = 0; i < 16; i += 5) m.entries[i] = m.from[i] = 1;
    return m;
}

bool two_qubit_matrix::is_finite() const {
    return std::all_of(entries.begin(), entries.end(),
                       [](complex e) { return std::isfinite(e.real()) && std::isfinite(e.imag()); });
}

two_qubit_matrix two_qubit_matrix::after(const two_qubit_matrix& earlier) const {
    two_qubit_matrix product;
    for (std::size_t row = 0; row < 16; row += 4) {
        for (std::size_t column = 0; column < 4; ++column) {
            // By parts: the library's product of complex numbers looks for NaNs.
            double re = 0, im = 0, made_from = 0;
            for (std::size_t k = 0; k < 4; ++k) {
                const complex a = entries[row + k], b = earlier.entries[4 * k + column];
                re += a.real() * b.real() - a.imag() * b.imag();
                im += a.real() * b.imag() + a.imag() * b.real();
                made_from += from[row + k] * earlier.from[4 * k + column];
            }
            product.entries[row + column] = {re, im};
            product.from[row + column] = std::min(made_from, 1.0);
        }
    }
    return product;
}

void two_qubit_matrix::settle_zeros() {
    for (std::size_t i = 0; i < 16; ++i) {
        if (counts_as_zero(entries[i], from[i])) entries[i] = from[i] = 0;
    }
}

bool two_qubit_matrix::mixes_only(unsigned flipped) const {
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned column = 0; column < 4; ++column) {
            if ((row ^ column) != 0 && (row ^ column) != flipped && entries[4 * row + column] != complex(0))
                return false;
        }
    }
    return true;
}

template <class T>
two_qubit_matrix matrix_of(const gates::operation<T>& op, unsigned first, unsigned second) {
    gates::operation<T> alone = op;
    std::vector<unsigned int> targets;
    for (const unsigned int q : op.targets.listed()) targets.push_back(q == first ? 1 : 0);
    alone.targets = gates::target_list(targets);
    alone.controls =
        ((op.controls & index::bit(first)) != 0 ? 2u : 0u) | ((op.controls & index::bit(second)) != 0 ? 1u : 0u);
    const auto call = gates::prepare(alone, 2);
    two_qubit_matrix matrix;
    for (std::size_t column = 0; column < 4; ++column) {
        thrust::complex<T> amplitudes[4] = {};
        amplitudes[column] = T(1);
        kernels::run_serial(call, amplitudes);
        for (std::size_t row = 0; row < 4; ++row) {
            const thrust::complex<T> m = amplitudes[row];
            const two_qubit_matrix::complex entry(static_cast<double>(m.real()), static_cast<double>(m.imag()));
            matrix.entries[4 * row + column] = entry;
            matrix.from[4 * row + column] = size_made_from<T>(entry);
        }
    }
    return matrix;
}

template two_qubit_matrix matrix_of(const gates::operation<float>&, unsigned, unsigned);
template two_qubit_matrix matrix_of(const gates::operation<double>&, unsigned, unsigned);

}  // namespace velacamplix::fusion
