#include "statevector/fusion/simplify.hpp"

#include "statevector/fusion/one_qubit_unitary.hpp"
#include "statevector/index/bits.hpp"

namespace velacamplix::fusion {
namespace {

using gates::gate_kind;
using gates::operation;

template <class T>
thrust::complex<T> rounded(std::complex<double> c) {
    return {static_cast<T>(c.real()), static_cast<T>(c.imag())};
}

template <class T>
class simplifier {
public:
    std::vector<operation<T>> result;

    void add(const operation<T>& op) {
        if (op.targets.size() == 1 && op.controls == 0) {
            const one_qubit_unitary u = matrix_of(op);
            if (u.is_unitary(packs::precision<T>::unitary_tolerance)) {
                one_qubit_unitary& waiting = at(op.targets[0]).waiting;
                waiting = u.after(waiting);
                return;
            }
        }
        if (op.kind == gate_kind::swap && op.controls == 0) {
            // What waits goes along.
            std::swap(at(op.targets[0]).waiting, at(op.targets[1]).waiting);
            emit(op);
            return;
        }
        if (forms_controlled_phase(op)) return;
        const unsigned long mixed = op.is_diagonal() ? 0 : op.target_mask();
        const unsigned long touched = op.target_mask() | op.controls;
        for (unsigned q = 0; (touched >> q) != 0; ++q) {
            if ((touched >> q) & 1) release(q, (mixed >> q) & 1);
        }
        emit(op);
    }

    void finish() {
        for (unsigned q = 0; q < qubits_.size(); ++q) release(q, true);
        std::erase_if(result, is_erased);
    }

private:
    static constexpr double tolerance = packs::precision<T>::equal_coefficients;
    static constexpr long none = -1;

    struct qubit {
        one_qubit_unitary waiting;  // gates not yet emitted
        long last = none;           // last emitted gate that touches the qubit
        long last_mixing = none;    // and that mixes its values
    };

    qubit& at(unsigned q) { return qubits_[q]; }

    // A diagonal may be on no qubit, a phase of the whole state; a gate with a name is not, but for what was taken
    // away.
    static bool is_erased(const operation<T>& op) { return op.kind == gate_kind::ph && op.targets.empty(); }

    void emit(operation<T> op) {
        const auto position = static_cast<long>(result.size());
        const unsigned long mixed = op.is_diagonal() ? 0 : op.target_mask();
        const unsigned long touched = op.target_mask() | op.controls;
        for (unsigned q = 0; (touched >> q) != 0; ++q) {
            if (((touched >> q) & 1) == 0) continue;
            at(q).last = position;
            if ((mixed >> q) & 1) at(q).last_mixing = position;
        }
        result.push_back(std::move(op));
    }

    void emit_diagonal(unsigned q, factor_pair f) {
        if (f.is_identity()) return;
        operation<T> op{};
        op.kind = gate_kind::rz;
        op.targets = {q};
        op.coefficients[0] = rounded<T>(f.zero);
        op.coefficients[1] = rounded<T>(f.one);
        emit(std::move(op));
    }

    void emit_rotation(unsigned q, const decomposition& d) {
        operation<T> op{};
        op.targets = {q};
        op.coefficients[0] = rounded<T>(d.cosine);
        switch (d.middle) {
            case rotation::none:
                return;
            case rotation::x:
                op.kind = gate_kind::x;
                break;
            case rotation::h:
                op.kind = gate_kind::h;
                break;
            case rotation::rx:
                op.kind = gate_kind::rx;
                op.coefficients[1] = rounded<T>({0, -d.sine});
                break;
            case rotation::ry:
                op.kind = gate_kind::ry;
                op.coefficients[1] = rounded<T>(d.sine);
                break;
        }
        emit(std::move(op));
    }

    // Emits what waits on a qubit before a gate that mixes it, or at least all but the last diagonal, which may wait
    // on before one that does not.
    void release(unsigned q, bool all) {
        one_qubit_unitary& waiting = at(q).waiting;
        if (!waiting.is_diagonal()) {
            const decomposition d = decompose(waiting, tolerance);
            emit_diagonal(q, {1, d.first});
            emit_rotation(q, d);
            at(q).waiting = {d.last.zero, 0, 0, d.last.one};
        }
        one_qubit_unitary& rest = at(q).waiting;
        if (all) {
            emit_diagonal(q, {rest.m00, rest.m11});
            rest = {};
        }
    }

    // CNOT, diag(f0, f1) on its target, the same CNOT: f0 where both qubits agree, else f1. With r = f1 / f0 that is
    // diag(f0, f1) on the target, diag(1, r) on the control, and r^-2 where both are 1.
    bool forms_controlled_phase(const operation<T>& op) {
        if (op.kind != gate_kind::x || std::popcount(op.controls) != 1) return false;
        const unsigned t = op.targets[0];
        const auto c = static_cast<unsigned>(std::countr_zero(op.controls));
        const long earlier = at(t).last;
        if (at(c).last_mixing >= earlier || earlier == none) return false;
        operation<T>& before = result[static_cast<std::size_t>(earlier)];
        const one_qubit_unitary& f = at(t).waiting;
        if (before.kind != gate_kind::x || before.targets != op.targets || before.controls != op.controls) return false;
        if (!f.is_diagonal() || !at(c).waiting.is_diagonal()) return false;
        before.targets.clear();
        before.controls = 0;
        before.kind = gate_kind::ph;               // on no qubit: erased in the end
        at(t).last = at(t).last_mixing = earlier;  // a gate on no qubit: it stops later pairs from reaching back
        const std::complex<double> ratio = f.m11 / f.m00;
        at(c).waiting.m11 *= ratio;
        if (!factor_pair{1, ratio}.is_identity()) {
            operation<T> phase;
            phase.kind = gate_kind::ph;
            phase.targets = {t};
            phase.controls = op.controls;
            phase.coefficients[0] = rounded<T>(1.0 / (ratio * ratio));
            emit(std::move(phase));
        }
        return true;
    }

    std::array<qubit, 64> qubits_;  // as many as an index has bits
};

}  // namespace

template <class T>
std::vector<operation<T>> simplify(std::span<const operation<T>> operations) {
    simplifier<T> worker;
    for (const operation<T>& op : operations) worker.add(op);
    worker.finish();
    return std::move(worker.result);
}

template std::vector<operation<float>> simplify(std::span<const operation<float>>);
template std::vector<operation<double>> simplify(std::span<const operation<double>>);

}  // namespace velacamplix::fusion
