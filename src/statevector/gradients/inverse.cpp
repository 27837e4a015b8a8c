#include "statevector/gradients/inverse.hpp"

#include "statevector/packs/precision.hpp"
#include "statevector/packs/widened.hpp"
#include "statevector/storage/aligned_array.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>
#include <vector>

namespace velacamplix::gradients {

using gates::gate_kind;
using gates::operation;

namespace {

template <class T>
thrust::complex<T> conjugate(thrust::complex<T> c) {
    return {c.real(), -c.imag()};
}

template <class T>
std::vector<thrust::complex<T>> conjugate_transpose(const std::vector<thrust::complex<T>>& matrix) {
    const unsigned long dim = 1ul << (std::countr_zero(matrix.size()) / 2);
    std::vector<thrust::complex<T>> result(matrix.size());
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long column = 0; column < dim; ++column) {
            result[column * dim + row] = conjugate(matrix[row * dim + column]);
        }
    }
    return result;
}

template <class T>
kernels::shared_diagonal<T> conjugate_of(const kernels::sorted_diagonal<T>& diagonal) {
    const unsigned long size = 1ul << diagonal.bits;
    const auto result = std::make_shared<kernels::sorted_diagonal<T>>(
        kernels::sorted_diagonal<T>{diagonal.bits, storage::make_amplitudes<T>(size)});
    for (unsigned long i = 0; i < size; ++i) result->entries[i] = conjugate(diagonal.entries[i]);
    return result;
}

// 4x4 matrices that leave 00 and 11 alone.
template <class T>
std::vector<thrust::complex<T>> middle_matrix(thrust::complex<T> same, thrust::complex<T> other) {
    return {1, 0, 0, 0, 0, same, other, 0, 0, other, same, 0, 0, 0, 0, 1};
}

using complex = thrust::complex<double>;

complex product(complex a, complex b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

// Up to here a matrix is multiplied by its own conjugate transpose.
constexpr unsigned long most_multiplied = 64;

// (M M^dagger - 1) x, where x has signs that look random: what is wrong with any entry shows.
std::vector<complex> deviations_on_signs(const std::vector<complex>& m, unsigned long dim) {
    std::mt19937 engine(1);
    std::vector<double> signs(dim);
    for (double& sign : signs) sign = (engine() & 1) != 0 ? 1 : -1;
    std::vector<complex> turned(dim), result(dim);
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long k = 0; k < dim; ++k)
            turned[k] = turned[k] + product(conjugate(m[row * dim + k]), signs[row]);
    }
    for (unsigned long row = 0; row < dim; ++row) {
        result[row] = complex(-signs[row], 0);
        for (unsigned long k = 0; k < dim; ++k) result[row] = result[row] + product(m[row * dim + k], turned[k]);
    }
    return result;
}

}  // namespace

template <class T>
operation<T> inverse_of(const operation<T>& op) {
    operation<T> undo = op;
    undo.angles = {};
    auto& c = undo.coefficients;
    const T root = packs::precision<T>::inverse_sqrt2, half = T(0.5);
    switch (op.kind) {
        case gate_kind::x:
        case gate_kind::y:
        case gate_kind::z:
        case gate_kind::h:
        case gate_kind::swap:
            break;
        case gate_kind::s:
            undo.kind = gate_kind::ph;
            c[0] = thrust::complex<T>(0, -1);
            break;
        case gate_kind::t:
            undo.kind = gate_kind::ph;
            c[0] = thrust::complex<T>(root, -root);
            break;
        case gate_kind::z_to_y:
            undo.kind = gate_kind::y_to_z;
            break;
        case gate_kind::y_to_z:
            undo.kind = gate_kind::z_to_y;
            break;
        case gate_kind::ry:  // real: its transpose
            c[1] = -c[1];
            break;
        case gate_kind::rx:
        case gate_kind::rz:
        case gate_kind::ph:
        case gate_kind::rxx:
        case gate_kind::ryy:
        case gate_kind::rzz:  // symmetric
            for (auto& number : c) number = conjugate(number);
            break;
        case gate_kind::iswap:
            undo.kind = gate_kind::matrix2;
            undo.entries = middle_matrix<T>(0, {0, -1});
            break;
        case gate_kind::sqrt_swap:
            undo.kind = gate_kind::matrix2;
            undo.entries = middle_matrix<T>({half, -half}, {half, half});
            break;
        case gate_kind::sx:
            undo.kind = gate_kind::matrix1;
            c = {{{half, -half}, {half, half}, {half, half}, {half, -half}}};
            break;
        case gate_kind::u:
        case gate_kind::matrix1:
            c = {conjugate(c[0]), conjugate(c[2]), conjugate(c[1]), conjugate(c[3])};
            break;
        case gate_kind::matrix2:
        case gate_kind::matrix:
        case gate_kind::block:
            undo.entries = conjugate_transpose(op.entries);
            break;
        case gate_kind::diagonal:
            undo.diagonal = conjugate_of(*op.diagonal);
            break;
        case gate_kind::product:
            for (auto& number : undo.entries) number = conjugate(number);
            break;
    }
    return undo;
}

template <class T>
double deviation_from_unitary(const operation<T>& op) {
    double largest = 0;
    // Not std::max: a NaN counts.
    const auto note = [&largest](double deviation) {
        if (!(deviation <= largest)) largest = deviation;
    };
    if (op.kind == gate_kind::diagonal) {
        for (unsigned long i = 0; i < (1ul << op.diagonal->bits); ++i) {
            const auto d = packs::widened<double>(op.diagonal->entries[i]);
            note(std::abs(d.real() * d.real() + d.imag() * d.imag() - 1));
        }
    }
    std::vector<complex> m;
    if (op.kind == gate_kind::matrix1) {
        for (const auto& entry : op.coefficients) m.push_back(packs::widened<double>(entry));
    } else if (op.kind == gate_kind::matrix2 || op.kind == gate_kind::matrix) {
        for (const auto& entry : op.entries) m.push_back(packs::widened<double>(entry));
    }
    if (m.empty()) return largest;
    const unsigned long dim = 1ul << (std::countr_zero(m.size()) / 2);
    if (dim > most_multiplied) {
        for (const complex& entry : deviations_on_signs(m, dim)) note(std::hypot(entry.real(), entry.imag()));
        return largest;
    }
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long other = 0; other <= row; ++other) {
            complex sum(row == other ? -1 : 0, 0);
            for (unsigned long k = 0; k < dim; ++k)
                sum = sum + product(m[row * dim + k], conjugate(m[other * dim + k]));
            note(std::hypot(sum.real(), sum.imag()));
        }
    }
    return largest;
}

#define VELACAMPLIX_INSTANTIATE(T)                         \
    template operation<T> inverse_of(const operation<T>&); \
    template double deviation_from_unitary(const operation<T>&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
