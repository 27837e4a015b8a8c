#include "bindings.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

// Weights and values are double whatever the precision of the state.
using Complexes = py::array_t<std::complex<double>, py::array::c_style>;
using Observable = WObservable<double>;

Complexes to_array(const std::vector<thrust::complex<double>>& values) {
    const auto* first = reinterpret_cast<const std::complex<double>*>(values.data());
    return Complexes(static_cast<py::ssize_t>(values.size()), first);
}

// The masks of all terms, in the terms' order.
Observable compile(const std::vector<std::complex<double>>& coefficients, std::vector<unsigned long> flip_masks,
                   std::vector<unsigned long> phase_masks, std::vector<unsigned int> y_counts,
                   std::complex<double> constant, unsigned int nqubits) {
    const std::size_t count = coefficients.size();
    if (flip_masks.size() != count || phase_masks.size() != count || y_counts.size() != count) {
        throw std::invalid_argument("the lists of an observable differ in length");
    }
    Observable observable;
    observable.coefficients.assign(coefficients.begin(), coefficients.end());
    observable.flip_masks = std::move(flip_masks);
    observable.phase_masks = std::move(phase_masks);
    observable.y_counts = std::move(y_counts);
    observable.constant = constant;
    observable.nqubits = nqubits;
    return observable;
}

template <class T>
std::vector<thrust::complex<double>> values_of(HeldState<T>& held, const Observable& observable, py::object function,
                                               double interval, bool signals) {
    Watch watch(std::move(function), interval, signals);
    return watch.over([&](const auto& hook) {
        return held.with_state([&](auto& state) {
            for (std::size_t term = 0; term < observable.flip_masks.size(); ++term) {
                if ((observable.flip_masks[term] | observable.phase_masks[term]) >= state.size) {
                    refuse_changed(state, "an observable on others");
                }
            }
            return pbamplix::cpu::term_values(state.amplitudes.get(), observable, state.size, state.num_threads, hook);
        });
    });
}

template <class T>
std::complex<double> expectation(HeldState<T>& held, const Observable& observable, py::object function, double interval,
                                 bool signals) {
    thrust::complex<double> sum(0, 0);
    for (const auto& value : values_of(held, observable, std::move(function), interval, signals)) sum += value;
    return sum + observable.constant;
}

template <class T>
Complexes term_values(HeldState<T>& held, const Observable& observable, py::object function, double interval,
                      bool signals) {
    return to_array(values_of(held, observable, std::move(function), interval, signals));
}

// One triple (coefficient, letters, qubits) per term.
template <class T>
std::pair<Complexes, Complexes> estimate(
    HeldState<T>& held,
    const std::vector<std::tuple<std::complex<double>, std::string, std::vector<unsigned int>>>& terms,
    unsigned long shots, py::object function, double interval, bool signals) {
    std::vector<pbamplix::SimpleTerm<double>> listed;
    listed.reserve(terms.size());
    for (const auto& [coefficient, letters, qubits] : terms) {
        if (letters.size() != qubits.size() || letters.find_first_not_of("XYZ") != std::string::npos) {
            throw std::invalid_argument("a term needs one of X, Y and Z for each of its qubits");
        }
        listed.push_back({qubits, letters, coefficient});
    }
    Watch watch(std::move(function), interval, signals);
    const auto pairs = watch.over([&](const auto& hook) {
        // Qubits are turned, and turned back.
        return held.to_change([&](auto& state) {
            for (const auto& term : listed) bits_within(state, term.qubits);
            return pbamplix::cpu::evaluate_terms_of_any_norm(state.amplitudes.get(), listed, shots, state.rng,
                                                             state.nqubits, state.num_threads, hook);
        });
    });

    std::vector<thrust::complex<double>> means, errors;
    for (const auto& [mean, error] : pairs) {
        means.push_back(mean);
        errors.push_back(error);
    }
    return {to_array(means), to_array(errors)};
}

template <class T>
void bind_one_precision(py::module_& module) {
    const auto function = py::arg("function") = py::none();
    const auto interval = py::arg("interval") = 0.05;
    const auto signals = py::arg("signals") = false;
    module.def("expectation", &expectation<T>, py::arg("state"), py::arg("observable"), function, interval, signals);
    module.def("term_values", &term_values<T>, py::arg("state"), py::arg("observable"), function, interval, signals);
    module.def("estimate", &estimate<T>, py::arg("state"), py::arg("terms"), py::arg("shots"), function, interval,
               signals);
}

}  // namespace

void bind_observables(py::module_& module) {
    py::class_<Observable>(module, "Observable")
        .def(py::init(&compile), py::arg("coefficients"), py::arg("flip_masks"), py::arg("phase_masks"),
             py::arg("y_counts"), py::arg("constant"), py::arg("nqubits"))
        .def("__len__", [](const Observable& observable) { return observable.flip_masks.size(); });
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
}

}  // namespace velacamplix::python
