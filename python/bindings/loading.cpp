#include "bindings.hpp"
#include "held_state.hpp"

#include <type_traits>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Data = py::array_t<std::complex<double>, py::array::c_style>;
using Table = py::array_t<unsigned long, py::array::c_style>;

void require_length(py::ssize_t length, std::size_t qubits) {
    if (length != py::ssize_t{1} << qubits) throw std::invalid_argument("the data does not fit the number of qubits");
}

// Bit order of the data: the lowest-numbered qubit is the least significant bit, whatever the list's order.
template <class T>
void prepare(HeldState<T>& held, Data data, const Qubits& qubits) {
    require_length(data.size(), qubits.size());
    auto* values = reinterpret_cast<thrust::complex<double>*>(data.mutable_data());
    held.with_state([&](auto& state) {
        if constexpr (std::is_same_v<T, double>) {
            state.apply_state_preparation(values, qubits);
        } else {
            pbamplix::cpu::precise_state_preparation(state.amplitudes.get(), values, state.nqubits, qubits,
                                                     state.num_threads);
        }
    });
}

// Of both registers the first qubit is the least significant bit; the address register comes first.
template <class T>
void qram(HeldState<T>& held, const Data& data, const Qubits& qubits, unsigned int naddress) {
    require_length(data.size(), qubits.size());
    const auto* values = reinterpret_cast<const thrust::complex<double>*>(data.data());
    held.with_state([&](auto& state) { state.apply_qram(values, qubits, naddress); });
}

template <class T>
void binary_qram(HeldState<T>& held, const Table& data, const Qubits& qubits, unsigned int naddress) {
    require_length(data.size(), naddress);
    const unsigned long* values = data.data();
    held.with_state([&](auto& state) { state.apply_binary_qram(values, qubits, naddress); });
}

// The first listed qubit is the most significant bit of a marked value; a qubit counts as bit n - 1 - q of the index.
template <class T>
void phase_oracle(HeldState<T>& held, const std::vector<unsigned long>& marked, const Qubits& qubits) {
    held.with_state([&](auto& state) { state.apply_phase_oracle(marked, qubits); });
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("prepare", &prepare<T>, py::arg("state"), py::arg("data").noconvert(), py::arg("qubits"));
    module.def("qram", &qram<T>, py::arg("state"), py::arg("data").noconvert(), py::arg("qubits"), py::arg("naddress"));
    module.def("binary_qram", &binary_qram<T>, py::arg("state"), py::arg("data").noconvert(), py::arg("qubits"),
               py::arg("naddress"));
    module.def("phase_oracle", &phase_oracle<T>, py::arg("state"), py::arg("marked"), py::arg("qubits"));
}

}  // namespace

void bind_loading(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
