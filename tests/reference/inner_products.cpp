#include "inner_products.hpp"

#include "indices.hpp"

#include <algorithm>

namespace reference {
namespace {

// x * conj(y)
Complex<double> product(Complex<double> x, Complex<double> y) {
    return {x.re * y.re + x.im * y.im, x.im * y.re - x.re * y.im};
}

template <class Product>
Complex<double> sum_in_blocks(unsigned long count, unsigned long block, Product product_at) {
    Complex<double> total = {0, 0};
    for (unsigned long first = 0; first < count; first += block) {
        Complex<double> sum = {0, 0};
        for (unsigned long j = first; j < first + block && j < count; ++j) {
            const Complex<double> p = product_at(j);
            sum = {sum.re + p.re, sum.im + p.im};
        }
        total = {total.re + sum.re, total.im + sum.im};
    }
    return total;
}

}  // namespace

Complex<double> overlap(const State<double>& bra, const State<double>& ket) {
    return sum_in_blocks(ket.size(), 1ul << 16, [&](unsigned long i) { return product(ket[i], bra[i]); });
}

std::vector<Complex<double>> reduced_density_matrix(const State<double>& state, const Qubits& qubits) {
    const unsigned long k = qubits.size(), dim = 1ul << k;
    unsigned long others = state.size() - 1;
    for (const unsigned int q : qubits) others &= ~(1ul << q);
    const auto row_bits = [&](unsigned long row) {
        unsigned long bits = 0;
        for (unsigned long j = 0; j < k; ++j) bits |= ((row >> (k - 1 - j)) & 1) << qubits[j];
        return bits;
    };
    std::vector<Complex<double>> matrix;
    for (unsigned long r = 0; r < dim; ++r) {
        for (unsigned long c = 0; c < dim; ++c) {
            const unsigned long row = row_bits(r), column = row_bits(c);
            matrix.push_back(sum_in_blocks(state.size() / dim, (1ul << 16) >> std::min(k, 6ul), [&](unsigned long e) {
                const unsigned long rest = deposit(e, others);
                return product(state[row | rest], state[column | rest]);
            }));
        }
    }
    return matrix;
}

}  // namespace reference
