#include "statevector/kernels/matrix_shape.hpp"

#include "statevector/packs/precision.hpp"

namespace velacamplix::kernels {

template <class C>
bool take_diagonal(const std::vector<C>& matrix, std::vector<C>& diag, unsigned int dim) {
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

#define VELACAMPLIX_INSTANTIATE(T) \
    template bool take_diagonal(const std::vector<thrust::complex<T>>&, std::vector<thrust::complex<T>>&, unsigned int);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::kernels
