#include "bindings.hpp"
#include "held_state.hpp"

#include <velacamplix/program.hpp>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Controls = std::optional<Qubits>;

// The arguments of a gate. What was checked is not looked at again but for what memory it touches.
struct Given {
    std::string_view name;
    std::array<unsigned int, 3> qubits{};
    double angle = 0;
    Controls controls{};
};

template <class T>
using Act = void (*)(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const Given& given);

template <class T>
struct Gate {
    std::string_view name;
    std::size_t qubits;
    bool has_angle, takes_controls;
    Act<T> act;
};

template <class T, auto member>
void on_one_qubit(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const Given& given) {
    (state.*member)(given.qubits[0], given.controls);
}

// The members take an angle of the state's precision. Of any other a program of one gate knows what to make.
template <class T, auto member>
void turn(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const Given& given) {
    const T own = static_cast<T>(given.angle);
    if (static_cast<double>(own) == given.angle) {
        (state.*member)(given.qubits[0], own, given.controls);
    } else {
        pbamplix::cpu::program<T> alone(state.nqubits);
        alone.add_gate(std::string(given.name), {given.angle}, {given.qubits[0]}, given.controls.value_or(Qubits{}));
        alone.run(state);
    }
}

template <class T, auto member>
void on_two_qubits(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const Given& given) {
    (state.*member)(given.qubits[0], given.qubits[1]);
}

template <class T, auto member>
void on_three_qubits(pbamplix::cpu::PybindAmplixStateVectorCPU<T>& state, const Given& given) {
    (state.*member)(given.qubits[0], given.qubits[1], given.qubits[2]);
}

// The gates that the state vector has members for, and how they are called.
template <class T, class State = pbamplix::cpu::PybindAmplixStateVectorCPU<T>>
constexpr std::array<Gate<T>, 18> gates{{
    {"X", 1, false, true, on_one_qubit<T, &State::apply_X>},
    {"Y", 1, false, true, on_one_qubit<T, &State::apply_Y>},
    {"Z", 1, false, true, on_one_qubit<T, &State::apply_Z>},
    {"H", 1, false, true, on_one_qubit<T, &State::apply_H>},
    {"S", 1, false, true, on_one_qubit<T, &State::apply_S>},
    {"T", 1, false, true, on_one_qubit<T, &State::apply_T>},
    {"RX", 1, true, true, turn<T, &State::apply_RX>},
    {"RY", 1, true, true, turn<T, &State::apply_RY>},
    {"RZ", 1, true, true, turn<T, &State::apply_RZ>},
    {"PH", 1, true, true, turn<T, &State::apply_PH>},
    {"CNOT", 2, false, false, on_two_qubits<T, &State::apply_CNOT>},
    {"CSIGN", 2, false, false, on_two_qubits<T, &State::apply_CSIGN>},
    {"SWAP", 2, false, false, on_two_qubits<T, &State::apply_SWAP>},
    {"ISWAP", 2, false, false, on_two_qubits<T, &State::apply_ISWAP>},
    {"SQRTSWAP", 2, false, false, on_two_qubits<T, &State::apply_SQRTSWAP>},
    {"CCNOT", 3, false, false, on_three_qubits<T, &State::apply_CCNOT>},
    {"ZtoY", 1, false, true, on_one_qubit<T, &State::apply_ZtoY>},
    {"YtoZ", 1, false, true, on_one_qubit<T, &State::apply_YtoZ>},
}};

unsigned int qubit_in(py::handle number) {
    const unsigned long qubit = PyLong_AsUnsignedLong(number.ptr());
    if (qubit == -1ul && PyErr_Occurred() != nullptr) throw py::error_already_set();
    return static_cast<unsigned int>(std::min(qubit, 64ul));  // which no state has
}

// One gate. A loop of gates in Python is made of these calls, so they convert nothing but what there is.
template <class T>
void apply(HeldState<T>& held, const py::str& name, const py::tuple& qubits, const py::tuple& params,
           const py::tuple& controls) {
    Py_ssize_t length = 0;
    const char* const letters = PyUnicode_AsUTF8AndSize(name.ptr(), &length);
    if (letters == nullptr) throw py::error_already_set();
    const std::string_view word(letters, static_cast<std::size_t>(length));
    const auto gate = std::find_if(gates<T>.begin(), gates<T>.end(), [=](const auto& row) { return row.name == word; });
    if (gate == gates<T>.end()) throw std::invalid_argument("a state vector has no gate " + std::string(word));
    if (qubits.size() != gate->qubits || params.size() != std::size_t{gate->has_angle} ||
        (controls.size() != 0 && !gate->takes_controls)) {
        throw std::invalid_argument("these are not the arguments of gate " + std::string(word));
    }

    Given given{gate->name};
    for (std::size_t i = 0; i < gate->qubits; ++i) given.qubits[i] = qubit_in(qubits[i]);
    if (gate->has_angle) {
        given.angle = PyFloat_AsDouble(py::object(params[0]).ptr());
        if (given.angle == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    }
    if (controls.size() != 0) {
        Qubits& listed = given.controls.emplace();
        for (const py::handle control : controls) listed.push_back(qubit_in(control));
    }
    held.to_change_at_once([&](auto& state) {
        unsigned long bits = 0;
        for (std::size_t i = 0; i < gate->qubits; ++i) bits = bits_within(state, {given.qubits[i]}, bits);
        if (given.controls) bits_within(state, *given.controls, bits);
        gate->act(state, given);
    });
}

// The source index has qubit q as bit q or, permuted, qubit 0 as its most significant bit. The source is not the state.
template <class T>
void reset_from(HeldState<T>& held, const py::array_t<std::complex<T>, py::array::c_style>& amplitudes, bool permuted) {
    const Pinned source(amplitudes);
    held.to_change([&](auto& state) {
        if (source.size() != state.size) {
            throw std::invalid_argument("the array does not have one entry per basis state");
        }
        if (permuted) {
            state.reset(reinterpret_cast<unsigned long>(source.data()));
        } else {
            std::copy_n(source.data(), state.size, reinterpret_cast<std::complex<T>*>(state.amplitudes.get()));
        }
    });
}

// The first listed qubit is the outcome's most significant bit. No qubits: the total of all probabilities.
template <class T>
double probability(HeldState<T>& held, unsigned long outcome, const Qubits& qubits) {
    return held.with_state([&](auto& state) {
        bits_within(state, qubits);
        unsigned long fixed = 0;
        for (auto qubit = qubits.rbegin(); qubit != qubits.rend(); ++qubit, outcome >>= 1) {
            fixed |= (outcome & 1) << *qubit;
        }
        return pbamplix::cpu::cumulative_probability(precise(state), fixed, qubits, state.num_threads);
    });
}

// 2^k probabilities, the first listed qubit as most significant bit of the position.
template <class T>
py::array_t<double> distribution(HeldState<T>& held, const Qubits& qubits) {
    held.with_state([&](auto& state) { bits_within(state, qubits); });
    py::array_t<double> out(py::ssize_t{1} << qubits.size());
    double* values = out.mutable_data();
    held.with_state([&](auto& state) {
        pbamplix::cpu::write_distribution(precise(state), values, 0.0, qubits, state.num_threads);
    });
    return out;
}

template <class T>
void bind_one_statevector(py::module_& module, const char* name) {
    py::class_<HeldState<T>, std::shared_ptr<HeldState<T>>>(module, name)
        .def(py::init([](unsigned int nqubits) {
                 const Unlocked unlocked;
                 return std::make_shared<HeldState<T>>(nqubits);
             }),
             py::arg("n"))
        .def("release", &HeldState<T>::release)
        .def("view", &HeldState<T>::view)
        .def("require_whole", &HeldState<T>::require_whole)
        .def(
            "set_num_threads",
            [](HeldState<T>& held, int threads) {
                held.with_state([&](auto& state) { state.set_num_threads(threads); });
            },
            py::arg("threads"))
        .def("begin", &HeldState<T>::begin, py::arg("basis_state"))
        .def("reset", [](HeldState<T>& held) { held.to_change([](auto& state) { state.reset(); }); })
        .def(
            "reset_to_str",
            [](HeldState<T>& held, const std::string& product) {
                held.to_change([&](auto& state) {
                    if (product.size() != state.nqubits) {
                        throw std::invalid_argument("the text does not have one character per qubit");
                    }
                    state.reset_to_str(product);
                });
            },
            py::arg("product"))
        .def("apply", &apply<T>, py::arg("name"), py::arg("qubits"), py::arg("params"), py::arg("controls"))
        .def("reset_from", &reset_from<T>, py::arg("amplitudes").noconvert(), py::arg("permuted") = true)
        .def("probability", &probability<T>, py::arg("outcome"), py::arg("qubits"))
        .def("distribution", &distribution<T>, py::arg("qubits"));
}

}  // namespace

void bind_statevector(py::module_& module) {
    bind_one_statevector<float>(module, "StateVectorSingle");
    bind_one_statevector<double>(module, "StateVectorDouble");
}

}  // namespace velacamplix::python
