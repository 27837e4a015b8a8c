#include "statevector/replay/step.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/kernels/formulas.hpp"
#include "statevector/kernels/phase.hpp"

#include <algorithm>

namespace velacamplix::replay {

using gates::gate_kind;
using gates::operation;

locality::locality(unsigned long mask) : held(mask) {
    for (; mask != 0; mask &= mask - 1) bits.push_back(static_cast<unsigned>(std::countr_zero(mask)));
}

unsigned long locality::inside(unsigned long global) const {
    return is_lowest() ? global & held : index::extract(global, held);
}

unsigned locality::position_of(unsigned bit) const {
    return static_cast<unsigned>(std::lower_bound(bits.begin(), bits.end(), bit) - bits.begin());
}

namespace {

template <class T>
void run_work(const kernels::kernel_call<T>& call, thrust::complex<T>* buffer, unsigned long) {
    kernels::run_serial(call, buffer);
}

template <class T>
void run_work(const call_by_parity<T>& choice, thrust::complex<T>* buffer, unsigned long base) {
    kernels::run_serial(choice.calls[index::count_bits(base & choice.bits) % 2], buffer);
}

template <class T>
void run_work(const outside_factors<T>& factors, thrust::complex<T>* buffer, unsigned long base) {
    kernels::kernel_call<T> scale = factors.scaling;
    for (const auto& f : factors.pairs) scale.coefficients[0] *= (base & f.bit) != 0 ? f.one : f.zero;
    kernels::run_serial(scale, buffer);
}

template <class T>
void run_work(const kernels::diagonal_run<T>& run, thrust::complex<T>* buffer, unsigned long base) {
    run.run(buffer, base);
}

template <class T>
void run_work(const kernels::diagonal_window<T>& window, thrust::complex<T>* buffer, unsigned long base) {
    window.run(buffer, base);
}

template <class T>
unsigned long bits_outside(const kernels::kernel_call<T>&) {
    return 0;
}

template <class T>
unsigned long bits_outside(const call_by_parity<T>& choice) {
    return choice.bits;
}

template <class T>
unsigned long bits_outside(const outside_factors<T>& factors) {
    unsigned long bits = 0;
    for (const auto& f : factors.pairs) bits |= f.bit;
    return bits;
}

template <class T>
unsigned long bits_outside(const kernels::diagonal_run<T>& run) {
    return run.outside();
}

template <class T>
unsigned long bits_outside(const kernels::diagonal_window<T>& window) {
    return window.outside();
}

template <class T>
kernels::kernel_call<T> scaling_call(unsigned long nbqbits, kernels::condition where, thrust::complex<T> factor) {
    return kernels::phase_call<kernels::GatePhase, T>(nbqbits, where, factor);
}

// A gate that multiplies where its target and controls read 1 treats the target as a control, and may have it outside.
template <class T>
step<T> phase_step(const operation<T>& op, const locality& where) {
    const unsigned long all = op.target_mask() | op.controls;
    const auto condition = kernels::all_ones(where.inside(all));
    return {all & ~where.mask(), gates::phase_call(op, where.bits.size(), condition)};
}

// Targets outside the buffer choose the one factor of all its amplitudes, or which factor belongs to which half of them
// by the target that is left inside.
template <class T>
step<T> outside_parity_step(const operation<T>& op, const locality& where) {
    const unsigned long inside = where.inside(op.target_mask()), controls = where.inside(op.controls);
    const unsigned long nbqbits = where.bits.size();
    const auto call = [=](thrust::complex<T> even, thrust::complex<T> odd) {
        if (inside == 0) return scaling_call(nbqbits, kernels::all_ones(controls), even);
        return kernels::one_qubit_diagonal_call<T>(nbqbits, inside, controls, even, odd);
    };
    const auto even = op.coefficients[0], odd = op.coefficients[1];
    return {op.controls & ~where.mask(),
            call_by_parity<T>{op.target_mask() & ~where.mask(), {call(even, odd), call(odd, even)}}};
}

template <class T>
step<T> window_step(const operation<T>& op, const locality& where) {
    return {op.controls & ~where.mask(),
            kernels::diagonal_window<T>(op.diagonal, op.target_mask(), where.mask(), where.inside(op.controls))};
}

// All targets are in the buffer.
template <class T>
step<T> inside_step(const operation<T>& op, const locality& where) {
    if (where.is_lowest() && (op.controls & ~where.mask()) == 0) return {0, gates::prepare(op, where.bits.size())};
    operation<T> inner = op;
    inner.targets.clear();
    for (const unsigned int q : op.targets) inner.targets.push_back(where.position_of(q));
    inner.controls = where.inside(op.controls);
    return {op.controls & ~where.mask(), gates::prepare(inner, where.bits.size())};
}

// Factors outside and factors inside are a step each.
template <class T>
void add_product(std::vector<step<T>>& to, const operation<T>& op, const locality& where) {
    operation<T> inside = op;
    inside.targets.clear();
    inside.entries.clear();
    outside_factors<T> outside;
    for (std::size_t i = 0; i < op.targets.size(); ++i) {
        const unsigned long bit = index::bit(op.targets[i]);
        const auto zero = op.entries[2 * i], one = op.entries[2 * i + 1];
        if ((where.mask() & bit) == 0) {
            outside.pairs.push_back({bit, zero, one});
            continue;
        }
        inside.targets.push_back(op.targets[i]);
        inside.entries.insert(inside.entries.end(), {zero, one});
    }
    if (!outside.pairs.empty()) {
        outside.scaling = scaling_call(where.bits.size(), {}, thrust::complex<T>(1, 0));
        to.push_back({0, std::move(outside)});
    }
    if (!inside.targets.empty()) to.push_back(inside_step(inside, where));
}

template <class T>
void add_step(std::vector<step<T>>& to, const operation<T>& op, const locality& where) {
    if (op.kind == gate_kind::product) return add_product(to, op, where);
    const bool outside = op.is_diagonal() && (op.target_mask() & ~where.mask()) != 0;
    to.push_back(gates::is_phase(op.kind)               ? phase_step(op, where)
                 : outside && gates::is_parity(op.kind) ? outside_parity_step(op, where)
                 : outside                              ? window_step(op, where)
                                                        : inside_step(op, where));
}

// Whether an operation may join its neighbours in a diagonal_run.
template <class T>
bool joins_runs(const operation<T>& op) {
    return op.kind == gate_kind::rz && op.controls == 0;
}

// `count` such operations from `from` on.
template <class T>
step<T> run_step(const operation<T>* const* from, unsigned long count, const locality& where) {
    kernels::diagonal_run<T> run(where.bits.size());
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned target = from[i]->targets[0];
        const auto d0 = from[i]->coefficients[0];
        const auto d1 = from[i]->coefficients[1];
        if ((where.mask() & index::bit(target)) != 0) {
            run.add_inside(where.position_of(target), d0, d1);
        } else {
            run.add_outside(index::bit(target), d0, d1);
        }
    }
    return {0, std::move(run)};
}

}  // namespace

template <class T>
void step<T>::run(thrust::complex<T>* buffer, unsigned long base) const {
    std::visit([=](const auto& of_this_kind) { run_work(of_this_kind, buffer, base); }, work);
}

template <class T>
unsigned long step<T>::choosing_bits() const {
    return required | std::visit([](const auto& of_this_kind) { return bits_outside(of_this_kind); }, work);
}

template <class T>
std::vector<step<T>> steps_of(const std::vector<const operation<T>*>& operations, const locality& where) {
    const unsigned long count = operations.size();
    std::vector<step<T>> steps;
    steps.reserve(count);
    for (unsigned long gate = 0; gate < count;) {
        unsigned long last = gate;
        if (where.bits.size() >= kernels::diagonal_run<T>::fewest_qubits) {
            while (last < count && joins_runs(*operations[last])) ++last;
        }
        if (last - gate >= 2) {
            steps.push_back(run_step(operations.data() + gate, last - gate, where));
            gate = last;
        } else {
            add_step(steps, *operations[gate++], where);
        }
    }
    return steps;
}

#define VELACAMPLIX_INSTANTIATE(T) \
    template struct step<T>;       \
    template std::vector<step<T>> steps_of(const std::vector<const operation<T>*>&, const locality&);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::replay
