#include "bindings.hpp"
#include "held_state.hpp"
#include "watch.hpp"

#include <velacamplix/part_values.hpp>

#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velacamplix::python {

namespace {

using Observable = WObservable<double>;
template <class T>
using Amplitudes = py::array_t<std::complex<T>, py::array::c_style>;
using Sums = py::array_t<double, py::array::c_style>;

void require_sums(const Observable& observable, unsigned int n, unsigned long numbers) {
    const unsigned long needed = pbamplix::cpu::part_sections(n) * observable.flip_masks.size();
    if (numbers != needed) {
        throw std::invalid_argument("the sums take " + std::to_string(needed) + " numbers, got " +
                                    std::to_string(numbers));
    }
}

// Adds what a piece of the state gives to the sums.
template <class T>
void add_part_values(const Amplitudes<T>& ket, const Amplitudes<T>& bra, unsigned int n, unsigned long number,
                     const Observable& observable, int threads, bool other_part, Sums sums, py::object function,
                     double interval, bool signals) {
    const Pinned<std::complex<T>> of_ket(ket), of_bra(bra);
    const PinnedToFill<double> to_sums(sums);
    if (!std::has_single_bit(of_ket.size()) || of_ket.size() != of_bra.size()) {
        throw std::invalid_argument("two pieces have 2^k amplitudes each");
    }
    require_sums(observable, n, to_sums.size());
    const auto amplitudes = [](const Pinned<std::complex<T>>& piece) {
        if (reinterpret_cast<std::uintptr_t>(piece.data()) % alignof(thrust::complex<T>) != 0) {
            throw std::invalid_argument("a piece must begin at a multiple of " +
                                        std::to_string(alignof(thrust::complex<T>)) + " bytes");
        }
        return reinterpret_cast<const thrust::complex<T>*>(piece.data());
    };
    const auto* const kets = amplitudes(of_ket);
    const auto* const bras = amplitudes(of_bra);
    const auto piece_qubits = static_cast<unsigned int>(std::countr_zero(of_ket.size()));
    Watch watch(std::move(function), interval, signals);
    watch.over([&](const auto& hook) {
        const Unlocked unlocked;
        pbamplix::cpu::add_part_values(kets, bras, piece_qubits, n, number, observable, threads, other_part,
                                       to_sums.target(), hook);
    });
}

// Coefficient times value of every term.
py::array_t<std::complex<double>> part_term_values(const Observable& observable, unsigned int n, const Sums& sums,
                                                   const std::optional<Sums>& others) {
    const Pinned<double> of_sums(sums);
    require_sums(observable, n, of_sums.size());
    std::optional<Pinned<double>> of_others;
    if (others.has_value()) require_sums(observable, n, of_others.emplace(*others).size());
    const auto values = pbamplix::cpu::part_term_values(observable, n, of_sums.data(),
                                                        of_others.has_value() ? of_others->data() : nullptr);
    const auto* first = reinterpret_cast<const std::complex<double>*>(values.data());
    return py::array_t<std::complex<double>>(static_cast<py::ssize_t>(values.size()), first);
}

template <class T>
void bind_one_precision(py::module_& module) {
    module.def("add_part_values", &add_part_values<T>, py::arg("ket").noconvert(), py::arg("bra").noconvert(),
               py::arg("n"), py::arg("number"), py::arg("observable"), py::arg("threads"), py::arg("other_part"),
               py::arg("sums").noconvert(), py::arg("function") = py::none(), py::arg("interval") = 0.05,
               py::arg("signals") = false);
}

}  // namespace

void bind_part_values(py::module_& module) {
    bind_one_precision<float>(module);
    bind_one_precision<double>(module);
    module.def("part_sections", &pbamplix::cpu::part_sections, py::arg("n"));
    module.def("part_term_values", &part_term_values, py::arg("observable"), py::arg("n"), py::arg("sums").noconvert(),
               py::arg("others").noconvert().none(true));
}

}  // namespace velacamplix::python
