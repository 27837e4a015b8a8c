#include "bindings.hpp"
#include "held_state.hpp"

#include <cstring>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;

// The matrix is square, row-major, with the first listed qubit as high bit of the row and column number.
template <class T>
void apply_matrix(HeldState<T>& held, const py::array_t<std::complex<T>, py::array::c_style>& matrix,
                  const Qubits& qubits, const Qubits& controls) {
    // At most 30 qubits, so that the number of entries fits.
    if (qubits.empty() || qubits.size() > 30 || static_cast<unsigned long>(matrix.size()) != 1ul << 2 * qubits.size()) {
        throw std::invalid_argument("the matrix does not fit the number of qubits");
    }
    std::vector<thrust::complex<T>> copy(static_cast<std::size_t>(matrix.size()));
    std::memcpy(static_cast<void*>(copy.data()), matrix.data(), static_cast<std::size_t>(matrix.nbytes()));

    held.to_change([&](auto& state) {
        bits_within(state, controls, bits_within(state, qubits));
        if (qubits.size() == 1 && controls.empty()) {
            state.apply_1qbit_gate(qubits[0], copy);
        } else if (qubits.size() == 1) {
            state.apply_1qbit_ctrl_gate(controls, qubits[0], copy);
        } else if (qubits.size() == 2 && controls.empty()) {
            state.apply_2qbit_gate(qubits[0], qubits[1], copy);
        } else if (qubits.size() == 2) {
            state.apply_2qbit_ctrl_gate(controls, qubits[0], qubits[1], copy);
        } else if (qubits.size() <= 8 && controls.empty()) {
            state.apply_nqbit_gate(qubits, copy);
        } else {
            // Without controls the library refuses a diagonal on more than 8 qubits; this form takes any number.
            state.apply_nqbit_ctrl_gate(controls, qubits, copy);
        }
    });
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("apply_matrix", &apply_matrix<T>, py::arg("state"), py::arg("matrix").noconvert(), py::arg("qubits"),
               py::arg("controls"));
}

}  // namespace

void bind_matrix_gates(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
