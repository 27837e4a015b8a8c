#include "statevector/replay/step.hpp"

#include "statevector/index/bits.hpp"
#include "statevector/kernels/phase.hpp"

#include <algorithm>

namespace velacamplix::replay {

using gates::gate_kind;
using gates::operation;

locality::locality(unsigned long mask) {
    for (; mask != 0; mask &= mask - 1) bits.push_back(static_cast<unsigned>(std::countr_zero(mask)));
}

unsigned long locality::mask() const { return index::mask_of(bits); }

unsigned long locality::inside(unsigned long global) const { return index::extract(global, mask()); }

unsigned locality::position_of(unsigned bit) const {
    return static_cast<unsigned>(std::lower_bound(bits.begin(), bits.end(), bit) - bits.begin());
}

template <class T>
void step<T>::run(thrust::complex<T>* buffer, unsigned long base) const {
    if (!outside.empty()) {
        kernels::kernel_call<T> scale = scaling;
        for (const auto& factors : outside) {
            scale.coefficients[0] *= (base & factors.bit) != 0 ? factors.one : factors.zero;
        }
        kernels::run_serial(scale, buffer);
    }
    if (run_of_diagonals != nullptr) run_of_diagonals->run(buffer, base);
    if (window != nullptr) window->run(buffer, base);
    if (calls.empty()) return;
    const auto& call = calls[variant_mask == 0 ? 0 : index::extract(base, variant_mask)];
    kernels::run_serial(call, buffer);
}

namespace {

template <class T>
void resolve_phase(step<T>& result, const operation<T>& op, const locality& where) {
    const unsigned long all = op.target_mask() | op.controls;
    const auto condition = kernels::all_ones(where.inside(all));
    result.required = all & ~where.mask();
    result.calls.push_back(gates::phase_call(op, where.bits.size(), condition));
}

template <class T>
void resolve_diagonal(step<T>& result, const operation<T>& op, const locality& where) {
    const unsigned long controls = where.inside(op.controls);
    const unsigned long nbqbits = where.bits.size();
    result.required = op.controls & ~where.mask();
    if (op.kind == gate_kind::rz) {
        result.variant_mask = op.target_mask();
        // Outside the buffer the target chooses the one factor of all its amplitudes.
        for (const thrust::complex<T>& d : {op.coefficients[0], op.coefficients[1]}) {
            result.calls.push_back(kernels::phase_call<kernels::GatePhase, T>(nbqbits, kernels::all_ones(controls), d));
        }
        return;
    }
    result.window =
        std::make_shared<kernels::diagonal_window<T>>(op.diagonal, op.target_mask(), where.mask(), controls);
}

template <class T>
void resolve_product(step<T>& result, const operation<T>& op, const locality& where) {
    operation<T> inner = op;
    inner.targets.clear();
    inner.entries.clear();
    for (std::size_t i = 0; i < op.targets.size(); ++i) {
        const unsigned long bit = index::bit(op.targets[i]);
        if ((where.mask() & bit) == 0) {
            result.outside.push_back({bit, op.entries[2 * i], op.entries[2 * i + 1]});
            continue;
        }
        inner.targets.push_back(where.position_of(op.targets[i]));
        inner.entries.insert(inner.entries.end(), {op.entries[2 * i], op.entries[2 * i + 1]});
    }
    const unsigned long nbqbits = where.bits.size();
    if (!result.outside.empty()) {
        result.scaling = kernels::phase_call<kernels::GatePhase, T>(nbqbits, {}, thrust::complex<T>(1, 0));
    }
    if (!inner.targets.empty()) result.calls.push_back(gates::prepare(inner, nbqbits));
}

}  // namespace

template <class T>
footprint footprint_of(const operation<T>& op) {
    const unsigned long mixed = op.is_diagonal() ? 0 : op.target_mask();
    return {mixed, (op.target_mask() | op.controls) & ~mixed, op.is_move()};
}

template <class T>
step<T> resolve(const operation<T>& op, const locality& where) {
    step<T> result;
    if (gates::is_phase(op.kind)) {
        resolve_phase(result, op, where);
        return result;
    }
    if (op.kind == gate_kind::product) {
        resolve_product(result, op, where);
        return result;
    }
    if (op.is_diagonal() && (op.target_mask() & ~where.mask()) != 0) {
        resolve_diagonal(result, op, where);
        return result;
    }
    operation<T> inner = op;
    for (unsigned int& q : inner.targets) q = where.position_of(q);
    inner.controls = where.inside(op.controls);
    result.required = op.controls & ~where.mask();
    result.calls.push_back(gates::prepare(inner, where.bits.size()));
    return result;
}

template <class T>
bool joins_runs(const operation<T>& op) {
    return op.kind == gate_kind::rz && op.controls == 0;
}

template <class T>
step<T> resolve_run(const operation<T>* const* from, unsigned long count, const locality& where) {
    auto run = std::make_shared<kernels::diagonal_run<T>>(where.bits.size());
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned target = from[i]->targets[0];
        const auto d0 = from[i]->coefficients[0];
        const auto d1 = from[i]->coefficients[1];
        if ((where.mask() & index::bit(target)) != 0) {
            run->add_inside(where.position_of(target), d0, d1);
        } else {
            run->add_outside(index::bit(target), d0, d1);
        }
    }
    step<T> result;
    result.run_of_diagonals = std::move(run);
    return result;
}

template bool joins_runs(const operation<float>&);
template bool joins_runs(const operation<double>&);
template step<float> resolve_run(const operation<float>* const*, unsigned long, const locality&);
template step<double> resolve_run(const operation<double>* const*, unsigned long, const locality&);
template footprint footprint_of(const operation<float>&);
template footprint footprint_of(const operation<double>&);
template struct step<float>;
template struct step<double>;
template step<float> resolve(const operation<float>&, const locality&);
template step<double> resolve(const operation<double>&, const locality&);

}  // namespace velacamplix::replay
