#include "bindings.hpp"
#include "held_state.hpp"

#include <type_traits>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Data = py::array_t<std::complex<double>, py::array::c_style>;
using Table = py::array_t<unsigned long, py::array::c_style>;

// `qubits` of them are known to be distinct qubits of a state, fewer than 64.
void require_length(unsigned long length, std::size_t qubits) {
    if (length != 1ul << qubits) throw std::invalid_argument("the data does not fit the number of qubits");
}

void require_registers(const Qubits& qubits, unsigned int naddress) {
    if (naddress > qubits.size()) throw std::invalid_argument("the address register does not fit the number of qubits");
}

// Bit order of the data: the lowest-numbered qubit is the least significant bit, whatever the list's order.
template <class T>
void prepare(HeldState<T>& held, Data data, const Qubits& qubits) {
    const PinnedToFill pinned(data);
    auto* values = reinterpret_cast<thrust::complex<double>*>(pinned.target());
    held.to_change([&](auto& state) {
        bits_within(state, qubits);
        require_length(pinned.size(), qubits.size());
        if constexpr (std::is_same_v<T, double>) {
            state.apply_state_preparation(values, qubits);
        } else {
            pbamplix::cpu::state_preparation<double>(state.amplitudes.get(), values, state.nqubits, qubits,
                                                     state.num_threads);
        }
    });
}

// Of both registers the first qubit is the least significant bit; the address register comes first.
template <class T>
void qram(HeldState<T>& held, const Data& data, const Qubits& qubits, unsigned int naddress) {
    const Pinned pinned(data);
    const auto* values = reinterpret_cast<const thrust::complex<double>*>(pinned.data());
    held.to_change([&](auto& state) {
        bits_within(state, qubits);
        require_registers(qubits, naddress);
        require_length(pinned.size(), qubits.size());
        state.apply_qram(values, qubits, naddress);
    });
}

template <class T>
void binary_qram(HeldState<T>& held, const Table& data, const Qubits& qubits, unsigned int naddress) {
    const Pinned pinned(data);
    held.to_change([&](auto& state) {
        bits_within(state, qubits);
        require_registers(qubits, naddress);
        require_length(pinned.size(), naddress);
        state.apply_binary_qram(pinned.data(), qubits, naddress);
    });
}

// The first listed qubit is the most significant bit of a marked value; a qubit counts as bit n - 1 - q of the index.
template <class T>
void phase_oracle(HeldState<T>& held, const std::vector<unsigned long>& marked, const Qubits& qubits) {
    held.to_change([&](auto& state) {
        bits_within(state, qubits);
        state.apply_phase_oracle(marked, qubits);
    });
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
