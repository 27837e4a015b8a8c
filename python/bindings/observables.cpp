#include "bindings.hpp"
#include "held_state.hpp"

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

template <class T>
using Complexes = py::array_t<std::complex<T>, py::array::c_style>;

template <class T>
Complexes<T> to_array(const std::vector<thrust::complex<T>>& values) {
    const auto* first = reinterpret_cast<const std::complex<T>*>(values.data());
    return Complexes<T>(static_cast<py::ssize_t>(values.size()), first);
}

// The masks of all terms, in the terms' order.
template <class T>
WObservable<T> compile(const std::vector<std::complex<T>>& coefficients, std::vector<unsigned long> flip_masks,
                       std::vector<unsigned long> phase_masks, std::vector<unsigned int> y_counts,
                       std::complex<T> constant, unsigned int nqubits) {
    const std::size_t count = coefficients.size();
    if (flip_masks.size() != count || phase_masks.size() != count || y_counts.size() != count) {
        throw std::invalid_argument("the lists of an observable differ in length");
    }
    WObservable<T> observable;
    observable.coefficients.assign(coefficients.begin(), coefficients.end());
    observable.flip_masks = std::move(flip_masks);
    observable.phase_masks = std::move(phase_masks);
    observable.y_counts = std::move(y_counts);
    observable.constant = constant;
    observable.nqubits = nqubits;
    return observable;
}

template <class T>
std::complex<T> expectation(HeldState<T>& held, const WObservable<T>& observable) {
    return held.with_state([&](auto& state) { return state.expectation_value(observable); });
}

template <class T>
Complexes<T> term_values(HeldState<T>& held, const WObservable<T>& observable) {
    return to_array(held.with_state([&](auto& state) { return state.terms_expectations_values(observable); }));
}

// One triple (coefficient, letters, qubits) per term. Letters are X, Y and Z only: the library's pruning of an "I"
// drops every letter behind it as well.
template <class T>
std::pair<Complexes<T>, Complexes<T>> estimate(
    HeldState<T>& held, const std::vector<std::tuple<std::complex<T>, std::string, std::vector<unsigned int>>>& terms,
    unsigned long shots) {
    std::vector<pbamplix::SimpleTerm<T>> listed;
    listed.reserve(terms.size());
    for (const auto& [coefficient, letters, qubits] : terms) {
        if (letters.size() != qubits.size() || letters.find_first_not_of("XYZ") != std::string::npos) {
            throw std::invalid_argument("a term needs one of X, Y and Z for each of its qubits");
        }
        listed.push_back({qubits, letters, coefficient});
    }
    const auto pairs = held.with_state([&](auto& state) { return state.evaluate_terms(std::move(listed), shots); });

    std::vector<thrust::complex<T>> means, errors;
    for (const auto& [mean, error] : pairs) {
        means.push_back(mean);
        errors.push_back(error);
    }
    return {to_array(means), to_array(errors)};
}

template <class T>
void bind_one_precision(py::module_& module, const char* name) {
    py::class_<WObservable<T>>(module, name)
        .def(py::init(&compile<T>), py::arg("coefficients"), py::arg("flip_masks"), py::arg("phase_masks"),
             py::arg("y_counts"), py::arg("constant"), py::arg("nqubits"))
        .def("__len__", [](const WObservable<T>& observable) { return observable.flip_masks.size(); });
    module.def("expectation", &expectation<T>, py::arg("state"), py::arg("observable"));
    module.def("term_values", &term_values<T>, py::arg("state"), py::arg("observable"));
    module.def("estimate", &estimate<T>, py::arg("state"), py::arg("terms"), py::arg("shots"));
}

}  // namespace

void bind_observables(py::module_& module) {
    bind_one_precision<float>(module, "ObservableSingle");
    bind_one_precision<double>(module, "ObservableDouble");
}

}  // namespace velacamplix::python
