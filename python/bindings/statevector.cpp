#include "bindings.hpp"
#include "held_state.hpp"

#include <velacamplix/program.hpp>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;
using Controls = std::optional<Qubits>;

template <class State>
void require_gate(const State& state, unsigned int qubit, const Controls& controls) {
    const unsigned long target = bits_within(state, {qubit});
    if (controls) bits_within(state, *controls, target);
}

// Adapters from a member of the library's class to a function of the held state.
template <class T>
auto on_one_qubit(void (HeldState<T>::State::*gate)(unsigned int, Controls)) {
    return [gate](HeldState<T>& held, unsigned int qubit, const Controls& controls) {
        held.with_state([&](auto& state) {
            require_gate(state, qubit, controls);
            (state.*gate)(qubit, controls);
        });
    };
}

// The members take an angle of the state's precision. Of any other a program of one gate knows what to make.
template <class T>
auto on_one_qubit_with_angle(const char* name, void (HeldState<T>::State::*gate)(unsigned int, T, Controls)) {
    return [name, gate](HeldState<T>& held, unsigned int qubit, double angle, const Controls& controls) {
        held.with_state([&](auto& state) {
            require_gate(state, qubit, controls);
            const T own = static_cast<T>(angle);
            if (static_cast<double>(own) == angle) {
                (state.*gate)(qubit, own, controls);
            } else {
                pbamplix::cpu::program<T> alone(state.nqubits);
                alone.add_gate(name, {angle}, {qubit}, controls.value_or(Qubits{}));
                alone.run(state);
            }
        });
    };
}

template <class T>
auto on_two_qubits(void (HeldState<T>::State::*gate)(unsigned int, unsigned int)) {
    return [gate](HeldState<T>& held, unsigned int first, unsigned int second) {
        held.with_state([&](auto& state) {
            bits_within(state, {first, second});
            (state.*gate)(first, second);
        });
    };
}

// The source index has qubit q as bit q or, permuted, qubit 0 as its most significant bit. The source is not the state.
template <class T>
void reset_from(HeldState<T>& held, const py::array_t<std::complex<T>, py::array::c_style>& amplitudes, bool permuted) {
    const Pinned source(amplitudes);
    held.with_state([&](auto& state) {
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

    const auto rotation = [&](const char* name, const char* name_in_program, auto gate) {
        type.def(name, on_one_qubit_with_angle<T>(name_in_program, gate), py::arg("qubit"), py::arg("angle"),
                 py::arg("controls") = py::none());
    };
    rotation("rx", "RX", &State::apply_RX);
    rotation("ry", "RY", &State::apply_RY);
    rotation("rz", "RZ", &State::apply_RZ);
    rotation("ph", "PH", &State::apply_PH);

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
            held.with_state([&](auto& state) {
                bits_within(state, {control1, control2, target});
                state.apply_CCNOT(control1, control2, target);
            });
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
        .def("begin", &HeldState<T>::begin, py::arg("basis_state"))
        .def("reset", [](HeldState<T>& held) { held.with_state([](auto& state) { state.reset(); }); })
        .def(
            "reset_to_str",
            [](HeldState<T>& held, const std::string& product) {
                held.with_state([&](auto& state) {
                    if (product.size() != state.nqubits) {
                        throw std::invalid_argument("the text does not have one character per qubit");
                    }
                    state.reset_to_str(product);
                });
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
