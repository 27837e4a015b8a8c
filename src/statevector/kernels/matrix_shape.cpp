#include <velacamplix/kernels.hpp>

namespace pbamplix {

template <class C>
bool get_diag_if_diag(const std::vector<C>& matrix, std::vector<C>& diag, const unsigned int& dim) {
    diag.resize(dim);
    for (unsigned long row = 0; row < dim; ++row) {
        for (unsigned long col = 0; col < dim; ++col) {
            const C entry = matrix[row * dim + col];
            if (row == col) {
                diag[row] = entry;
            } else if (!(entry.real() == 0 && entry.imag() == 0)) {
                return false;
            }
        }
    }
    return true;
}

template bool get_diag_if_diag(const std::vector<thrust::complex<float>>&, std::vector<thrust::complex<float>>&,
                               const unsigned int&);
template bool get_diag_if_diag(const std::vector<thrust::complex<double>>&, std::vector<thrust::complex<double>>&,
                               const unsigned int&);

}  // namespace pbamplix
