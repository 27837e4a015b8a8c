#include "bindings.hpp"
#include "held_state.hpp"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Controls = std::optional<Qubits>;

// Adapters from a member of the library's class to a function of the held state.
template <class T>
auto on_one_qubit(void (HeldState<T>::State::*gate)(unsigned int, Controls)) {
    return [gate](HeldState<T>& held, unsigned int qubit, const Controls& controls) {
        held.with_state([&](auto& state) { (state.*gate)(qubit, controls); });
    };
}

template <class T>
auto on_one_qubit_with_angle(void (HeldState<T>::State::*gate)(unsigned int, T, Controls)) {
    return [gate](HeldState<T>& held, unsigned int qubit, T angle, const Controls& controls) {
        held.with_state([&](auto& state) { (state.*gate)(qubit, angle, controls); });
    };
}

template <class T>
auto on_two_qubits(void (HeldState<T>::State::*gate)(unsigned int, unsigned int)) {
    return [gate](HeldState<T>& held, unsigned int first, unsigned int second) {
        held.with_state([&](auto& state) { (state.*gate)(first, second); });
    };
}

// The source index has qubit q as bit q or, permuted, qubit 0 as its most significant bit. The source is not the state.
template <class T>
void reset_from(HeldState<T>& held, const py::array_t<std::complex<T>, py::array::c_style>& amplitudes, bool permuted) {
    const std::complex<T>* source = amplitudes.data();
    const auto length = static_cast<unsigned long>(amplitudes.size());
    held.with_state([&](auto& state) {
        if (length != state.size) throw std::invalid_argument("the array does not have one entry per basis state");
        if (permuted) {
            state.reset(reinterpret_cast<unsigned long>(source));
        } else {
            std::copy_n(source, length, reinterpret_cast<std::complex<T>*>(state.amplitudes.get()));
        }
    });
}

// The first listed qubit is the outcome's most significant bit. No qubits: the total of all probabilities.
template <class T>
double probability(HeldState<T>& held, unsigned long outcome, const Qubits& qubits) {
    unsigned long fixed = 0;
    for (auto qubit = qubits.rbegin(); qubit != qubits.rend(); ++qubit, outcome >>= 1) fixed |= (outcome & 1) << *qubit;
    return held.with_state([&](auto& state) {
        return pbamplix::cpu::cumulative_probability(precise(state), fixed, qubits, state.num_threads);
    });
}

// 2^k probabilities, the first listed qubit as most significant bit of the position.
template <class T>
py::array_t<double> distribution(HeldState<T>& held, const Qubits& qubits) {
    py::array_t<double> out(py::ssize_t{1} << qubits.size());
    double* values = out.mutable_data();
    held.with_state([&](auto& state) {
        pbamplix::cpu::precise_distribution(precise(state), values, 0.0, qubits, state.num_threads);
    });
    return out;
}

template <class T>
void bind_gates(py::class_<HeldState<T>, std::shared_ptr<HeldState<T>>>& type) {
    using State = typename HeldState<T>::State;

    const auto one = [&](const char* name, auto gate) {
        type.def(name, on_one_qubit<T>(gate), py::arg("qubit"), py::arg("controls") = py::none());
    };
    one("x", &State::apply_X);
    one("y", &State::apply_Y);
    one("z", &State::apply_Z);
    one("h", &State::apply_H);
    one("s", &State::apply_S);
    one("t", &State::apply_T);
    one("ztoy", &State::apply_ZtoY);
    one("ytoz", &State::apply_YtoZ);

    const auto rotation = [&](const char* name, auto gate) {
        type.def(name, on_one_qubit_with_angle<T>(gate), py::arg("qubit"), py::arg("angle"),
                 py::arg("controls") = py::none());
    };
    rotation("rx", &State::apply_RX);
    rotation("ry", &State::apply_RY);
    rotation("rz", &State::apply_RZ);
    rotation("ph", &State::apply_PH);

    const auto two = [&](const char* name, auto gate) {
        type.def(name, on_two_qubits<T>(gate), py::arg("first"), py::arg("second"));
    };
    two("cnot", &State::apply_CNOT);  // control, target
    two("csign", &State::apply_CSIGN);
    two("swap", &State::apply_SWAP);
    two("iswap", &State::apply_ISWAP);
    two("sqrtswap", &State::apply_SQRTSWAP);

    type.def(
        "ccnot",
        [](HeldState<T>& held, unsigned int control1, unsigned int control2, unsigned int target) {
            held.with_state([&](auto& state) { state.apply_CCNOT(control1, control2, target); });
        },
        py::arg("control1"), py::arg("control2"), py::arg("target"));
}

template <class T>
void bind_one_statevector(py::module_& module, const char* name) {
    py::class_<HeldState<T>, std::shared_ptr<HeldState<T>>> type(module, name);

    type.def(py::init([](unsigned int nqubits) {
                 const Unlocked unlocked;
                 return std::make_shared<HeldState<T>>(nqubits);
             }),
             py::arg("n"))
        .def("release", &HeldState<T>::release)
        .def("view", &HeldState<T>::view)
        .def(
            "set_num_threads",
            [](HeldState<T>& held, int threads) {
                held.with_state([&](auto& state) { state.set_num_threads(threads); });
            },
            py::arg("threads"))
        .def("reset", [](HeldState<T>& held) { held.with_state([](auto& state) { state.reset(); }); })
        .def(
            "reset_to_str",
            [](HeldState<T>& held, const std::string& product) {
                held.with_state([&](auto& state) { state.reset_to_str(product); });
            },
            py::arg("product"))
        .def("reset_from", &reset_from<T>, py::arg("amplitudes").noconvert(), py::arg("permuted") = true)
        .def("probability", &probability<T>, py::arg("outcome"), py::arg("qubits"))
        .def("distribution", &distribution<T>, py::arg("qubits"));

    bind_gates<T>(type);
}

}  // namespace

void bind_statevector(py::module_& module) {
    bind_one_statevector<float>(module, "StateVectorSingle");
    bind_one_statevector<double>(module, "StateVectorDouble");
}

}  // namespace velacamplix::python
