#include "bindings.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;

template <class Bra, class Ket>
std::complex<double> overlap(HeldState<Bra>& bra, HeldState<Ket>& ket, py::object function, double interval,
                             bool signals) {
    Watch watch(std::move(function), interval, signals);
    return watch.over([&](const auto& hook) {
        return bra.with_both(ket, [&](auto& left, auto& right) {
            if (left.size != right.size) refuse_changed(left, "a state of " + std::to_string(right.nqubits));
            return pbamplix::cpu::overlap(left.amplitudes.get(), right.amplitudes.get(), left.size, left.num_threads,
                                          hook);
        });
    });
}

// Row by row, the first listed qubit as most significant bit of a row and of a column.
template <class T>
py::array_t<std::complex<double>> reduced(HeldState<T>& held, const Qubits& qubits, py::object function,
                                          double interval, bool signals) {
    held.with_state([&](auto& state) { bits_within(state, qubits); });
    const auto size = py::ssize_t{1} << qubits.size();
    py::array_t<std::complex<double>> out({size, size});
    auto* const entries = reinterpret_cast<thrust::complex<double>*>(out.mutable_data());
    Watch watch(std::move(function), interval, signals);
    watch.over([&](const auto& hook) {
        held.with_state([&](auto& state) {
            bits_within(state, qubits);
            pbamplix::cpu::reduced_density_matrix(state.amplitudes.get(), state.nqubits, qubits, entries,
                                                  state.num_threads, hook);
        });
    });
    return out;
}

template <class T>
void bind_one_precision(py::module_& module) {
    const auto function = py::arg("function") = py::none();
    const auto interval = py::arg("interval") = 0.05;
    const auto signals = py::arg("signals") = false;
    module.def("overlap", &overlap<T, float>, py::arg("bra"), py::arg("ket"), function, interval, signals);
    module.def("overlap", &overlap<T, double>, py::arg("bra"), py::arg("ket"), function, interval, signals);
    module.def("reduced", &reduced<T>, py::arg("state"), py::arg("qubits"), function, interval, signals);
}

}  // namespace

void bind_inner_products(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
