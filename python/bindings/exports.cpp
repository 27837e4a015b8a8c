#include "bindings.hpp"
#include "held_state.hpp"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

template <class T>
using Amplitudes = py::array_t<std::complex<T>, py::array::c_style>;

// Copies the amplitudes to `out`, whose index has qubit q as bit q or, permuted, qubit 0 as most significant bit.
template <class T>
void copy_amplitudes(HeldState<T>& held, Amplitudes<T> out, bool permuted) {
    auto* target = reinterpret_cast<thrust::complex<T>*>(out.mutable_data());
    const auto length = static_cast<unsigned long>(out.size());
    held.with_state([&](auto& state) {
        if (length != state.size) throw std::invalid_argument("the array does not have one entry per basis state");
        const thrust::complex<T>* source = state.amplitudes.get();
        if (!permuted) {
            std::copy(source, source + length, target);
        } else if (state.nqubits < 8) {
            // On so few qubits the library's export clears what is so small that its square is zero.
            for (unsigned long i = 0; i < length; ++i) {
                target[state.nqubits == 0 ? 0 : pbamplix::cpu::swap_lsb_msb(i, state.nqubits)] = source[i];
            }
        } else {
            state.get_permuted_statevector(target, T(0));
        }
    });
}

// The entries of a map as two arrays, keys increasing.
template <class T, class Value>
std::pair<py::array_t<unsigned long>, py::array_t<T>> to_arrays(const std::map<unsigned long, Value>& map) {
    const auto count = static_cast<py::ssize_t>(map.size());
    py::array_t<unsigned long> keys(count);
    py::array_t<T> values(count);
    unsigned long* key = keys.mutable_data();
    T* value = values.mutable_data();
    for (const auto& [k, v] : map) {
        *key++ = k;
        *value++ = v;
    }
    return {std::move(keys), std::move(values)};
}

// Keys have qubit 0 as most significant bit.
template <class T>
std::pair<py::array_t<unsigned long>, py::array_t<std::complex<T>>> mapped_amplitudes(HeldState<T>& held, T threshold) {
    const std::unique_ptr<std::map<unsigned long, thrust::complex<T>>> map(
        held.with_state([&](auto& state) { return state.get_mapped_statevector(threshold); }));
    return to_arrays<std::complex<T>>(*map);
}

// Keys have the first listed qubit as most significant bit. Probabilities above the threshold are listed.
template <class T>
std::pair<py::array_t<unsigned long>, py::array_t<double>> mapped_distribution(
    HeldState<T>& held, double threshold, const std::vector<unsigned int>& qubits) {
    const std::unique_ptr<std::map<unsigned long, double>> map(held.with_state([&](auto& state) {
        return pbamplix::cpu::map_marginal_distribution(precise(state), threshold, qubits, state.num_threads);
    }));
    return to_arrays<double>(*map);
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("copy_amplitudes", &copy_amplitudes<T>, py::arg("state"), py::arg("out").noconvert(),
               py::arg("permuted"));
    module.def("mapped_amplitudes", &mapped_amplitudes<T>, py::arg("state"), py::arg("threshold"));
    module.def("mapped_distribution", &mapped_distribution<T>, py::arg("state"), py::arg("threshold"),
               py::arg("qubits"));
}

}  // namespace

void bind_exports(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
