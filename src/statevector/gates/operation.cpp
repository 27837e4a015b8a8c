#include "statevector/gates/operation.hpp"

#include "statevector/gates/coefficients.hpp"
#include "statevector/gates/matrix_limits.hpp"
#include "statevector/kernels/dense.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/matrix_shape.hpp"
#include "statevector/kernels/one_qubit.hpp"
#include "statevector/kernels/phase.hpp"
#include "statevector/kernels/two_qubit.hpp"

#include <velacamplix/kernels.hpp>

#include <algorithm>
#include <type_traits>

namespace velacamplix::gates {
namespace {

// RZ has loops of its own, and no formula.
template <class G>
constexpr bool is_phase_tag = kernels::group_size<G> == 1;
template <>
constexpr bool is_phase_tag<kernels::GateRZ> = false;

template <class G, class T>
kernels::kernel_call<T> call_of(unsigned long nbqbits, const target_list& targets, unsigned long controls,
                                const coefficients<T>& numbers) {
    const unsigned long first = index::bit(targets[0]);
    if constexpr (std::is_same_v<G, kernels::GateRZ>) {
        return kernels::one_qubit_diagonal_call<T>(nbqbits, first, controls, numbers[0], numbers[1]);
    } else if constexpr (is_phase_tag<G>) {
        return kernels::phase_call<G, T>(nbqbits, kernels::all_ones(first | controls), numbers[0]);
    } else if constexpr (kernels::group_size<G> == 2) {
        return kernels::one_qubit_call<G, T>(nbqbits, first, controls, numbers);
    } else {
        return kernels::two_qubit_call<G, T>(nbqbits, first, index::bit(targets[1]), controls, numbers);
    }
}

// What a kind of the table is worked out by; null where there is no such thing, and for all that are given by numbers.
template <class T>
struct functions {
    kernels::kernel_call<T> (*call)(unsigned long, const target_list&, unsigned long, const coefficients<T>&);
    kernels::kernel_call<T> (*phase)(unsigned long, kernels::condition, thrust::complex<T>);
    coefficients<T> (*numbers)(const double* angles);
};

template <class T, class G>
constexpr functions<T> functions_for() {
    functions<T> result{call_of<G, T>, nullptr, nullptr};
    if constexpr (is_phase_tag<G>) result.phase = kernels::phase_call<G, T>;
    if constexpr (count_angles<G>() != 0) result.numbers = coefficients_at<G, T>;
    return result;
}

template <class T>
constexpr auto functions_by_kind = std::apply(
    []<class... Tags>(const tagged<Tags>&... entries) {
        std::array<functions<T>, gate_kinds> by_kind{};
        const auto enter = [&by_kind](const gate_row& row, unsigned angles, const functions<T>& of_tag) {
            if (row.angles != angles) throw "a gate takes the angles that its tag has coefficients_of";
            by_kind[static_cast<std::size_t>(row.kind)] = of_tag;
        };
        (enter(entries.row, count_angles<Tags>(), functions_for<T, Tags>()), ...);
        return by_kind;
    },
    gate_table);

template <class T>
const functions<T>& functions_of(gate_kind kind) {
    return functions_by_kind<T>[static_cast<std::size_t>(kind)];
}

using angle_list = std::array<double, most_angles>;

template <class Angle>
angle_list angles_in(const gate_row& row, const std::vector<Angle>& params) {
    angle_list angles{};
    for (unsigned i = 0; i < row.angles; ++i) angles[i] = static_cast<double>(params[i]);
    return angles;
}

template <class T>
coefficients<T> numbers_of(const gate_row& row, const angle_list& angles) {
    if (row.angles == 0) return {};
    return functions_of<T>(row.kind).numbers(angles.data());
}

unsigned long controls_of(const gate_row& row, const std::vector<unsigned int>& qubits) {
    unsigned long controls = 0;
    for (unsigned i = 0; i < row.controls; ++i) controls |= index::bit(qubits[i]);
    return controls;
}

target_list targets_of(const gate_row& row, const std::vector<unsigned int>& qubits) {
    const auto first = qubits.begin() + row.controls;
    return {first, first + row.targets};
}

}  // namespace

std::string name_of(gate_kind kind) {
    if (const gate_row* const row = row_of(kind)) return std::string(row->name);
    return kind == gate_kind::diagonal ? "diagonal" : "matrix";
}

template <class T, class Angle>
operation<T> named_operation(const gate_row& row, const std::vector<Angle>& params,
                             const std::vector<unsigned int>& qubits) {
    operation<T> op;
    op.kind = row.kind;
    op.controls = controls_of(row, qubits);
    op.targets = targets_of(row, qubits);
    op.angles = angles_in(row, params);
    op.coefficients = numbers_of<T>(row, op.angles);
    return op;
}

template <class T, class Angle>
kernels::kernel_call<T> named_call(const gate_row& row, const std::vector<Angle>& params,
                                   const std::vector<unsigned int>& qubits, unsigned long nbqbits) {
    return functions_of<T>(row.kind).call(nbqbits, targets_of(row, qubits), controls_of(row, qubits),
                                          numbers_of<T>(row, angles_in(row, params)));
}

template <class T>
void set_angles(operation<T>& op, const std::vector<double>& angles) {
    const gate_row& row = *row_of(op.kind);
    op.angles = angles_in(row, angles);
    op.coefficients = numbers_of<T>(row, op.angles);
}

bool is_phase(gate_kind kind) { return functions_of<double>(kind).phase != nullptr; }

template <class T>
kernels::kernel_call<T> phase_call(const operation<T>& op, unsigned long nbqbits, kernels::condition where) {
    return functions_of<T>(op.kind).phase(nbqbits, where, op.coefficients[0]);
}

template <class T>
operation<T> diagonal_operation(const std::vector<thrust::complex<T>>& diagonal,
                                const std::vector<unsigned int>& qubits) {
    operation<T> op;
    op.kind = gate_kind::diagonal;
    op.targets = target_list(qubits);
    op.diagonal = kernels::sort_diagonal(qubits, diagonal);
    return op;
}

template <class T>
operation<T> matrix_operation(const std::vector<thrust::complex<T>>& matrix, const std::vector<unsigned int>& qubits,
                              bool controlled) {
    std::vector<thrust::complex<T>> diag;
    if (kernels::take_diagonal(matrix, diag, 1u << qubits.size())) {
        if (!controlled) refuse_large_diagonal(diag.size());
        return diagonal_operation(diag, qubits);
    }
    operation<T> op;
    op.kind = qubits.size() == 1 ? gate_kind::matrix1 : qubits.size() == 2 ? gate_kind::matrix2 : gate_kind::matrix;
    op.targets = target_list(qubits);
    if (op.kind == gate_kind::matrix1) {
        std::copy_n(matrix.begin(), 4, op.coefficients.begin());
    } else {
        op.entries = matrix;
    }
    return op;
}

template <class T>
std::vector<thrust::complex<T>> product_entries(const std::vector<thrust::complex<T>>& factors) {
    std::vector<thrust::complex<double>> entries = {{1, 0}};
    for (std::size_t target = 0; 2 * target < factors.size(); ++target) {
        std::vector<thrust::complex<double>> longer;
        for (const auto& entry : entries) {
            for (const auto& f : {factors[2 * target], factors[2 * target + 1]}) {
                longer.push_back(entry *
                                 thrust::complex<double>(static_cast<double>(f.real()), static_cast<double>(f.imag())));
            }
        }
        entries = std::move(longer);
    }
    std::vector<thrust::complex<T>> rounded;
    rounded.reserve(entries.size());
    for (const auto& entry : entries) {
        rounded.emplace_back(static_cast<T>(entry.real()), static_cast<T>(entry.imag()));
    }
    return rounded;
}

template <class T>
kernels::kernel_call<T> prepare(const operation<T>& op, unsigned long nbqbits) {
    switch (op.kind) {
        case gate_kind::matrix1:
            return kernels::one_qubit_call<pbamplix::cpu::_Gate1QB<true>, T>(nbqbits, index::bit(op.targets[0]),
                                                                             op.controls, op.coefficients);
        case gate_kind::matrix2:
            return kernels::two_qubit_matrix_call<T>(nbqbits, index::bit(op.targets[0]), index::bit(op.targets[1]),
                                                     op.controls, op.entries);
        case gate_kind::matrix:
            return kernels::dense_call<T>(nbqbits, index::bits_of_qubits(op.targets.listed()), op.controls, op.entries);
        case gate_kind::block:
            return op.block_call(nbqbits, index::bits_of_qubits(op.targets.listed()), op.entries);
        case gate_kind::diagonal:
            return kernels::diagonal_call<T>(nbqbits, op.target_mask(), op.controls, op.diagonal);
        case gate_kind::product:
            return kernels::diagonal_call<T>(nbqbits, op.targets.listed(), op.controls, product_entries(op.entries),
                                             false);
        default:
            return functions_of<T>(op.kind).call(nbqbits, op.targets, op.controls, op.coefficients);
    }
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                   \
    template operation<T> named_operation(const gate_row&, const std::vector<double>&,                               \
                                          const std::vector<unsigned int>&);                                         \
    template kernels::kernel_call<T> named_call(const gate_row&, const std::vector<T>&,                              \
                                                const std::vector<unsigned int>&, unsigned long);                    \
    template void set_angles<T>(operation<T>&, const std::vector<double>&);                                          \
    template kernels::kernel_call<T> phase_call<T>(const operation<T>&, unsigned long, kernels::condition);          \
    template operation<T> matrix_operation(const std::vector<thrust::complex<T>>&, const std::vector<unsigned int>&, \
                                           bool);                                                                    \
    template operation<T> diagonal_operation(const std::vector<thrust::complex<T>>&,                                 \
                                             const std::vector<unsigned int>&);                                      \
    template std::vector<thrust::complex<T>> product_entries(const std::vector<thrust::complex<T>>&);                \
    template kernels::kernel_call<T> prepare<T>(const operation<T>&, unsigned long);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)
template operation<float> named_operation(const gate_row&, const std::vector<float>&, const std::vector<unsigned int>&);

}  // namespace velacamplix::gates
