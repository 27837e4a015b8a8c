#include "bindings.hpp"
#include "held_state.hpp"

#include <sstream>
#include <string>
#include <vector>

namespace velacamplix::python {

namespace {

using Qubits = std::vector<unsigned int>;

// Fills `shots`. An empty list of qubits means all. ValueError for a state without a total; the engine then stands
// still.
template <class T>
void sample(HeldState<T>& held, py::array_t<unsigned long, py::array::c_style> shots, const Qubits& qubits) {
    const PinnedToFill pinned(shots);
    held.with_state([&](auto& state) {
        bits_within(state, qubits);
        pbamplix::cpu::pick_shots_of_any_norm(drawn_from(state), pinned.target(), state.rng, pinned.size(),
                                              state.num_threads, qubits);
    });
}

// What the qubits read at the last index that is not impossible.
template <class State>
unsigned long last_possible(const State& state, const Qubits& qubits) {
    for (unsigned long index = state.size; index-- != 0;) {
        if (thrust::norm(state.amplitudes.get()[index]) == 0) continue;
        unsigned long outcome = 0;
        for (const unsigned int qubit : qubits) outcome = outcome << 1 | (index >> qubit & 1);
        return outcome;
    }
    throw std::domain_error("the state has norm zero: it has no outcome to collapse to");
}

template <class T>
unsigned long measure(HeldState<T>& held, const Qubits& qubits, bool collapse) {
    const auto work = [&](auto& state) {
        bits_within(state, qubits);
        const auto project_onto = [&](unsigned long outcome) {
            pbamplix::cpu::project<double>(state.amplitudes.get(), state.size, qubits, outcome, state.num_threads);
            return outcome;
        };
        unsigned long drawn;
        const auto before = state.rng;
        pbamplix::cpu::pick_shots_of_any_norm(drawn_from(state), &drawn, state.rng, 1ul, state.num_threads, qubits);
        if (!collapse) return drawn;
        try {
            try {
                return project_onto(drawn);
            } catch (const std::domain_error&) {
                // A number above the rounded total of all probabilities draws the last index, possible or not.
                return project_onto(last_possible(state, qubits));
            }
        } catch (const std::domain_error&) {
            state.rng = before;
            throw;
        }
    };
    return collapse ? held.to_change(work) : held.with_state(work);
}

// A refused projection leaves the state as it was.
template <class T>
void project(HeldState<T>& held, const Qubits& qubits, unsigned long value, bool reset) {
    held.to_change([&](auto& state) {
        bits_within(state, qubits);
        const auto act = reset ? &pbamplix::cpu::project_then_reset<double, T> : &pbamplix::cpu::project<double, T>;
        act(state.amplitudes.get(), state.size, qubits, value, state.num_threads);
    });
}

template <class T>
unsigned int seed(HeldState<T>& held) {
    return held.with_state([](auto& state) { return state.seed; });
}

template <class T>
void set_seed(HeldState<T>& held, unsigned int seed) {
    held.with_state([&](auto& state) {
        state.seed = seed;
        state.rng.seed(seed);
    });
}

// The seed and the engine's words and position, as numbers in a text.
template <class T>
std::string engine(HeldState<T>& held) {
    return held.with_state([](auto& state) {
        std::ostringstream text;
        text << state.seed << ' ' << state.rng;
        return text.str();
    });
}

template <class T>
void set_engine(HeldState<T>& held, const std::string& numbers) {
    held.with_state([&](auto& state) {
        std::istringstream text(numbers);
        unsigned int seed = 0;
        std::mt19937_64 rng;
        if (!(text >> seed >> rng)) throw std::invalid_argument("this is not the state of a random engine");
        state.seed = seed;
        state.rng = rng;
    });
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("sample", &sample<T>, py::arg("state"), py::arg("shots").noconvert(), py::arg("qubits"));
    module.def("measure", &measure<T>, py::arg("state"), py::arg("qubits"), py::arg("collapse"));
    module.def("project", &project<T>, py::arg("state"), py::arg("qubits"), py::arg("value"), py::arg("reset"));
    module.def("seed", &seed<T>, py::arg("state"));
    module.def("set_seed", &set_seed<T>, py::arg("state"), py::arg("seed"));
    module.def("engine", &engine<T>, py::arg("state"));
    module.def("set_engine", &set_engine<T>, py::arg("state"), py::arg("numbers"));
}

}  // namespace

void bind_sampling(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
