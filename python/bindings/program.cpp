#include "bindings.hpp"
#include "held_program.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <velacamplix/gradient.hpp>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;

// The attributes of an instruction. The words are made once per call: a circuit may have a million gates.
struct Words {
    py::object name = interned("name"), qubits = interned("qubits"), controls = interned("controls"),
               params = interned("params");

    static py::object interned(const char* word) {
        return py::reinterpret_steal<py::object>(PyUnicode_InternFromString(word));
    }
};

py::object attribute(py::handle object, const py::object& word) { return py::getattr(object, word); }

void read_angles(const py::object& from, std::vector<double>& to) {
    to.clear();
    for (const py::handle number : py::tuple(from)) {
        to.push_back(PyFloat_AsDouble(number.ptr()));
        if (to.back() == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    }
}

// False if a number is too large for T; what is infinite in double was refused long before.
template <class T>
bool read_entries(const py::object& from, std::vector<thrust::complex<T>>& to) {
    const py::tuple numbers(from);
    to.clear();
    to.reserve(numbers.size());
    for (const py::handle number : numbers) {
        // A large diagonal takes seconds to read, with the interpreter lock held.
        if (to.size() % 4096 == 0 && PyErr_CheckSignals() != 0) throw py::error_already_set();
        const Py_complex wide = PyComplex_AsCComplex(number.ptr());
        if (wide.real == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
        to.emplace_back(static_cast<T>(wide.real), static_cast<T>(wide.imag));
        if (!std::isfinite(to.back().real()) || !std::isfinite(to.back().imag())) return false;
    }
    return true;
}

void read_qubits(const py::object& from, const Qubits& places, Qubits& to) {
    to.clear();
    for (const py::handle qubit : py::tuple(from)) {
        const std::size_t number = PyLong_AsSize_t(qubit.ptr());
        if (PyErr_Occurred() != nullptr) throw py::error_already_set();
        if (number >= places.size()) {
            throw py::index_error("a circuit of " + std::to_string(places.size()) + " qubits names qubit " +
                                  std::to_string(number));
        }
        to.push_back(places[number]);
    }
}

template <class T>
bool is_diagonal(const std::vector<thrust::complex<T>>& matrix, std::size_t dim) {
    for (std::size_t i = 0; i < matrix.size(); ++i) {
        if (i % (dim + 1) != 0 && matrix[i] != T(0)) return false;
    }
    return true;
}

// Without controls the library's matrices refuse a diagonal of more than 256 entries; its diagonals take any size.
template <class T>
void add_matrix(pbamplix::cpu::program<T>& list, const std::vector<thrust::complex<T>>& matrix, const Qubits& qubits,
                const Qubits& controls) {
    const std::size_t dim = std::size_t{1} << qubits.size();
    if (matrix.size() != dim * dim) throw std::invalid_argument("the matrix does not fit the number of qubits");
    if (qubits.size() <= 8 || !controls.empty() || !is_diagonal(matrix, dim)) {
        list.add_matrix(matrix, qubits, controls);
        return;
    }
    std::vector<thrust::complex<T>> diagonal(dim);
    for (std::size_t i = 0; i < dim; ++i) diagonal[i] = matrix[i * (dim + 1)];
    list.add_diagonal(diagonal, qubits, controls);
}

// Appends gates: objects with the attributes name, qubits, params and controls. Qubit q of theirs is places[q] of the
// state. Returns how many it took, which is all of them unless an entry of a matrix does not fit the precision.
template <class T>
std::size_t add(HeldProgram<T>& program, const py::sequence& instructions, const Qubits& places) {
    const auto turn = program.taken();
    const Words words;
    std::vector<double> params;
    std::vector<thrust::complex<T>> entries;
    Qubits qubits, controls;
    std::size_t count = 0;
    for (const py::handle instruction : instructions) {
        const auto name = py::cast<std::string>(attribute(instruction, words.name));
        read_qubits(attribute(instruction, words.qubits), places, qubits);
        read_qubits(attribute(instruction, words.controls), places, controls);
        const py::object numbers = attribute(instruction, words.params);
        const bool is_matrix = name == "matrix";
        if (is_matrix || name == "diagonal") {
            if (!read_entries(numbers, entries)) return count;
            is_matrix ? add_matrix(program.list, entries, qubits, controls)
                      : program.list.add_diagonal(entries, qubits, controls);
        } else {
            read_angles(numbers, params);
            program.list.add_gate(name, params, qubits, controls);
        }
        ++count;
    }
    return count;
}

// Gives gates new angles: those of the first of them, then those of the second, as many as each takes.
template <class T>
void set_angles(HeldProgram<T>& program, const std::vector<unsigned long>& gates, const std::vector<double>& angles) {
    const auto turn = program.taken();
    std::size_t wanted = 0;
    for (const unsigned long gate : gates) wanted += program.list.angle_count(gate);
    if (wanted != angles.size()) {
        throw std::invalid_argument("the gates take " + std::to_string(wanted) + " angles, not " +
                                    std::to_string(angles.size()));
    }
    auto next = angles.begin();
    std::vector<double> params;  // one for all gates: their memory would cost more than their angles
    for (const unsigned long gate : gates) {
        const auto end = next + program.list.angle_count(gate);
        params.assign(next, end);
        program.list.set_params(gate, params);
        next = end;
    }
}

// The same gates in the order that serves parts of state_qubits - rank_bits qubits.
template <class T>
std::unique_ptr<HeldProgram<T>> reordered(HeldProgram<T>& program, unsigned int state_qubits, unsigned int rank_bits) {
    const auto turn = program.taken();
    const Unlocked unlocked;
    return std::make_unique<HeldProgram<T>>(program.list.reordered(state_qubits, rank_bits));
}

// Sweeps over the state, and of every pass: its first gate, the gate behind its last, its local qubits, and the
// amplitudes of a buffer.
template <class T>
py::tuple plan(HeldProgram<T>& program, unsigned int state_qubits, int threads) {
    const auto turn = program.taken();
    const auto& told = [&]() -> const pbamplix::cpu::program_plan& {
        const Unlocked unlocked;
        return program.list.plan(state_qubits, threads);
    }();
    py::list passes;
    for (const auto& pass : told.passes) {
        passes.append(py::make_tuple(pass.first_gate, pass.last_gate, py::tuple(py::cast(pass.local_qubits)),
                                     pass.chunk_amplitudes));
    }
    return py::make_tuple(told.predicted_sweeps, passes);
}

// Returns how many gates acted, and the exception that stopped the run between two passes, or None. The caller raises
// it: so he can tell first how far the state has come. `signals` is for Python's main thread. With `to_end` a run that
// is stopped ends at once; the state is then of no worth, and the number is that of the gates before the present pass.
template <class T>
py::tuple run(HeldProgram<T>& program, HeldState<T>& held, py::object function, double interval, bool signals,
              bool to_end) {
    const auto turn = program.taken();
    Watch watch(std::move(function), interval, signals);
    unsigned long told = 0;
    typename pbamplix::cpu::program<T>::progress_hook hook;
    if (watch.is_needed()) {
        hook = [&](unsigned long done, unsigned long total) {
            told = done;
            return watch.goes_on(done, total);
        };
    }
    if (!to_end) {
        const unsigned long applied = held.to_change([&](auto& state) { return program.list.run(state, hook); });
        return py::make_tuple(applied, watch.error());
    }
    const bool is_done = held.with_start([&](auto& state, const auto& start) {
        return start ? program.list.run_from_basis_state(state, *start, hook) : program.list.run_to_end(state, hook);
    });
    return py::make_tuple(is_done ? program.list.size() : told, watch.error());
}

// Values of the observables in the state that the program makes of `initial` (None: |0...0>), their derivatives by the
// angles of `gates`, a row for each observable, and how far the way back ends from the start.
template <class T>
py::tuple gradient(HeldProgram<T>& program, const std::vector<WObservable<double>>& observables,
                   const std::vector<unsigned long>& gates, int threads, unsigned long most_states,
                   const std::shared_ptr<HeldState<T>>& initial, py::object function, double interval, bool signals) {
    const auto turn = program.taken();
    Watch watch(std::move(function), interval, signals);
    const auto result = watch.over([&](const auto& hook) {
        pbamplix::cpu::gradient_settings<T> settings{threads, nullptr, most_states, hook};
        if (initial == nullptr) {
            const Unlocked unlocked;
            return program.list.gradient(observables, gates, settings);
        }
        return initial->with_state([&](auto& state) {
            settings.initial = &state;
            return program.list.gradient(observables, gates, settings);
        });
    });
    const std::size_t rows = observables.size();
    const std::size_t angles = rows == 0 ? 0 : result.derivatives.size() / rows;
    py::array_t<double> derivatives({rows, angles});
    std::copy(result.derivatives.begin(), result.derivatives.end(), derivatives.mutable_data());
    return py::make_tuple(py::array_t<double>(static_cast<py::ssize_t>(rows), result.values.data()), derivatives,
                          result.return_error);
}

template <class T>
void bind_one_program(py::module_& module, const char* name) {
    py::class_<HeldProgram<T>>(module, name)
        .def(py::init<unsigned int>(), py::arg("n"))
        .def("add", &add<T>, py::arg("instructions"), py::arg("places"))
        .def("set_angles", &set_angles<T>, py::arg("gates"), py::arg("angles"))
        .def(
            "set_fusion",
            [](HeldProgram<T>& program, bool fusion) {
                const auto turn = program.taken();
                program.list.set_fusion(fusion);
            },
            py::arg("fusion"))
        .def("reordered", &reordered<T>, py::arg("state_qubits"), py::arg("rank_bits"))
        .def("__len__", [](const HeldProgram<T>& program) { return program.list.size(); })
        .def("plan", &plan<T>, py::arg("state_qubits"), py::arg("threads"))
        .def("run", &run<T>, py::arg("state"), py::arg("function") = py::none(), py::arg("interval") = 0.05,
             py::arg("signals") = false, py::arg("to_end") = false)
        .def("gradient", &gradient<T>, py::arg("observables"), py::arg("gates"), py::arg("threads"),
             py::arg("most_states"), py::arg("initial").none(true), py::arg("function") = py::none(),
             py::arg("interval") = 0.05, py::arg("signals") = false);
}

}  // namespace

void bind_program(py::module_& module) {
    bind_one_program<float>(module, "ProgramSingle");
    bind_one_program<double>(module, "ProgramDouble");
}

}  // namespace velacamplix::python
