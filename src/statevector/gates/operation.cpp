#include "statevector/gates/operation.hpp"

#include "statevector/gates/coefficients.hpp"
#include "statevector/gates/matrix_limits.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/kernels/dense.hpp"
#include "statevector/kernels/diagonal.hpp"
#include "statevector/kernels/one_qubit.hpp"
#include "statevector/kernels/phase.hpp"
#include "statevector/kernels/two_qubit.hpp"

#include <velacamplix/kernels.hpp>

#include <algorithm>
#include <unordered_map>

namespace velacamplix::gates {
namespace {

using namespace pbamplix::cpu;

// How a name is read: the kind, and how many of its qubits, first listed, are controls.
struct named {
    gate_kind kind;
    unsigned controls;
    unsigned targets;
};

const std::unordered_map<std::string, named>& vocabulary() {
    static const std::unordered_map<std::string, named> names = {
        {"X", {gate_kind::x, 0, 1}},         {"Y", {gate_kind::y, 0, 1}},
        {"Z", {gate_kind::z, 0, 1}},         {"H", {gate_kind::h, 0, 1}},
        {"S", {gate_kind::s, 0, 1}},         {"T", {gate_kind::t, 0, 1}},
        {"ZtoY", {gate_kind::z_to_y, 0, 1}}, {"YtoZ", {gate_kind::y_to_z, 0, 1}},
        {"RX", {gate_kind::rx, 0, 1}},       {"RY", {gate_kind::ry, 0, 1}},
        {"RZ", {gate_kind::rz, 0, 1}},       {"PH", {gate_kind::ph, 0, 1}},
        {"CNOT", {gate_kind::x, 1, 1}},      {"CCNOT", {gate_kind::x, 2, 1}},
        {"CSIGN", {gate_kind::z, 1, 1}},     {"SWAP", {gate_kind::swap, 0, 2}},
        {"ISWAP", {gate_kind::iswap, 0, 2}}, {"SQRTSWAP", {gate_kind::sqrt_swap, 0, 2}},
    };
    return names;
}

template <class T>
void set_coefficients(operation<T>& op, double angle) {
    const auto formula = [kind = op.kind]<class U>(U own) -> coefficient_pair<U> {
        if (kind == gate_kind::rx) return rx_coefficients(own);
        if (kind == gate_kind::ry) return ry_coefficients(own);
        if (kind == gate_kind::rz) return rz_coefficients(own);
        return {phase_of(own), {}};
    };
    const auto pair = coefficients_of<T>(angle, formula);
    op.coefficients[0] = pair.first;
    op.coefficients[1] = pair.second;
}

}  // namespace

bool takes_angle(gate_kind kind) {
    return kind == gate_kind::rx || kind == gate_kind::ry || kind == gate_kind::rz || kind == gate_kind::ph;
}

std::optional<gate_arguments> arguments_of(const std::string& name) {
    const auto found = vocabulary().find(name);
    if (found == vocabulary().end()) return std::nullopt;
    const auto [kind, controls, targets] = found->second;
    return gate_arguments{takes_angle(kind) ? 1u : 0u, controls + targets};
}

std::string name_of(gate_kind kind) {
    for (const auto& [name, entry] : vocabulary()) {
        if (entry.kind == kind && entry.controls == 0) return name;
    }
    return kind == gate_kind::diagonal ? "diagonal" : "matrix";
}

template <class T>
unsigned long operation<T>::target_mask() const {
    return index::mask_of(targets);
}

template <class T>
bool operation<T>::is_diagonal() const {
    switch (kind) {
        case gate_kind::z:
        case gate_kind::s:
        case gate_kind::t:
        case gate_kind::ph:
        case gate_kind::rz:
        case gate_kind::diagonal:
        case gate_kind::product:
            return true;
        default:
            return false;
    }
}

template <class T>
bool operation<T>::is_move() const {
    return kind == gate_kind::x || kind == gate_kind::swap;
}

template <class T, class Angle>
bool named_operation(operation<T>& op, const std::string& name, const std::vector<Angle>& params,
                     const std::vector<unsigned int>& qubits) {
    const auto found = vocabulary().find(name);
    if (found == vocabulary().end()) return false;
    const auto [kind, controls, targets] = found->second;
    op.kind = kind;
    op.controls = 0;
    for (unsigned i = 0; i < controls; ++i) op.controls |= index::bit(qubits[i]);
    op.targets.assign(qubits.begin() + controls, qubits.begin() + controls + targets);
    if (takes_angle(kind)) set_coefficients(op, static_cast<double>(params[0]));
    return true;
}

template <class T>
void set_angle(operation<T>& op, double angle) {
    set_coefficients(op, angle);
}

template <class T>
operation<T> diagonal_operation(const std::vector<thrust::complex<T>>& diagonal,
                                const std::vector<unsigned int>& qubits) {
    operation<T> op;
    op.kind = gate_kind::diagonal;
    op.targets = qubits;
    op.diagonal = kernels::sort_diagonal(qubits, diagonal);
    return op;
}

template <class T>
operation<T> matrix_operation(const std::vector<thrust::complex<T>>& matrix, const std::vector<unsigned int>& qubits,
                              bool controlled) {
    std::vector<thrust::complex<T>> diag;
    if (pbamplix::get_diag_if_diag(matrix, diag, 1u << qubits.size())) {
        if (!controlled) refuse_large_diagonal(diag.size());
        return diagonal_operation(diag, qubits);
    }
    operation<T> op;
    op.kind = qubits.size() == 1 ? gate_kind::matrix1 : qubits.size() == 2 ? gate_kind::matrix2 : gate_kind::matrix;
    op.targets = qubits;
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
    const auto pair = [&]<class G>(G) {
        return kernels::one_qubit_call<G, T>(nbqbits, index::bit(op.targets[0]), op.controls, op.coefficients);
    };
    const auto phase = [&]<class G>(G) {
        const auto where = kernels::all_ones(index::bit(op.targets[0]) | op.controls);
        return kernels::phase_call<G, T>(nbqbits, where, op.coefficients[0]);
    };
    const auto quad = [&]<class G>(G) {
        return kernels::two_qubit_call<G, T>(nbqbits, index::bit(op.targets[0]), index::bit(op.targets[1]),
                                             op.controls);
    };
    switch (op.kind) {
        case gate_kind::x:
            return pair(GateX{});
        case gate_kind::y:
            return pair(GateY{});
        case gate_kind::h:
            return pair(GateH{});
        case gate_kind::z_to_y:
            return pair(GateZtoY{});
        case gate_kind::y_to_z:
            return pair(GateYtoZ{});
        case gate_kind::rx:
            return pair(GateRX{});
        case gate_kind::ry:
            return pair(GateRY{});
        case gate_kind::matrix1:
            return pair(_Gate1QB<true>{});
        case gate_kind::z:
            return phase(GateZ{});
        case gate_kind::s:
            return phase(GateS{});
        case gate_kind::t:
            return phase(GateT{});
        case gate_kind::ph:
            return phase(GatePH<T>{});
        case gate_kind::rz:
            return kernels::one_qubit_diagonal_call<T>(nbqbits, index::bit(op.targets[0]), op.controls,
                                                       op.coefficients[0], op.coefficients[1]);
        case gate_kind::swap:
            return quad(GateSWAP{});
        case gate_kind::iswap:
            return quad(GateISWAP{});
        case gate_kind::sqrt_swap:
            return quad(GateSQRTSWAP{});
        case gate_kind::matrix2:
            return kernels::two_qubit_matrix_call<T>(nbqbits, index::bit(op.targets[0]), index::bit(op.targets[1]),
                                                     op.controls, op.entries);
        case gate_kind::matrix:
            return kernels::dense_call<T>(nbqbits, index::bits_of_qubits(op.targets), op.controls, op.entries);
        case gate_kind::diagonal:
            return kernels::diagonal_call<T>(nbqbits, index::xor_mask_of(op.targets), op.controls, op.diagonal);
        case gate_kind::product:
            return kernels::diagonal_call<T>(nbqbits, op.targets, op.controls, product_entries(op.entries), false);
    }
    return {};
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                   \
    template struct operation<T>;                                                                                    \
    template bool named_operation(operation<T>&, const std::string&, const std::vector<double>&,                     \
                                  const std::vector<unsigned int>&);                                                 \
    template void set_angle<T>(operation<T>&, double);                                                               \
    template operation<T> matrix_operation(const std::vector<thrust::complex<T>>&, const std::vector<unsigned int>&, \
                                           bool);                                                                    \
    template operation<T> diagonal_operation(const std::vector<thrust::complex<T>>&,                                 \
                                             const std::vector<unsigned int>&);                                      \
    template std::vector<thrust::complex<T>> product_entries(const std::vector<thrust::complex<T>>&);                \
    template kernels::kernel_call<T> prepare<T>(const operation<T>&, unsigned long);
VELACAMPLIX_INSTANTIATE(float)
VELACAMPLIX_INSTANTIATE(double)
template bool named_operation(operation<float>&, const std::string&, const std::vector<float>&,
                              const std::vector<unsigned int>&);

}  // namespace velacamplix::gates
