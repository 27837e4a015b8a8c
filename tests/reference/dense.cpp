#include "dense.hpp"

#include "indices.hpp"

namespace reference {

template <class T>
void apply_dense(State<T>& state, const Qubits& targets, const Qubits& controls,
                 const std::vector<Complex<T>>& matrix) {
    const Groups groups = groups_of(targets, controls, qubit_count(state.size()));
    const unsigned long dim = groups.local_size;
    for (unsigned long g = 0; g < groups.count; ++g) {
        const unsigned long base = groups.base(g);
        std::vector<Complex<T>> old(dim);
        for (unsigned long j = 0; j < dim; ++j) old[j] = state[base | groups.offsets[j]];
        for (unsigned long row = 0; row < dim; ++row) {
            Complex<T> sum = {0, 0};
            for (unsigned long column = 0; column < dim; ++column) {
                const Complex<T> m = matrix[row * dim + column];
                const Complex<T> x = old[column];
                const T re = m.re * x.re - m.im * x.im;
                const T im = m.re * x.im + m.im * x.re;
                sum.re = sum.re + re;
                sum.im = sum.im + im;
            }
            state[base | groups.offsets[row]] = sum;
        }
    }
}

template void apply_dense(State<float>&, const Qubits&, const Qubits&, const std::vector<Complex<float>>&);
template void apply_dense(State<double>&, const Qubits&, const Qubits&, const std::vector<Complex<double>>&);

}  // namespace reference
