#include <velacamplix/program.hpp>

#include "statevector/gates/operation.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/replay/replay.hpp"

#include <velacamplix/kernels.hpp>

#include <optional>
#include <stdexcept>

namespace pbamplix::cpu {

using namespace velacamplix;

// Hidden: its members have no place among the shared library's symbols.
template <class T>
struct [[gnu::visibility("hidden")]] program<T>::implementation {
    unsigned int nqubits;
    std::vector<gates::operation<T>> operations;
    bool fusion = false;
    std::optional<replay::schedule<T>> schedule;
    program_plan plan;

    // With a hook the schedule may remain incomplete; it must then be dropped.
    replay::schedule<T>& schedule_for(unsigned int state_qubits, int nthreads, const progress_hook& hook = {}) {
        if (!schedule || !schedule->fits(state_qubits, nthreads)) {
            schedule.reset();  // also if the hook or the planning throws
            schedule.emplace(operations, state_qubits, nthreads, fusion, replay::first_level_cache_bytes(), hook);
        }
        return *schedule;
    }

    void append(gates::operation<T> op, const std::vector<unsigned int>& controls) {
        op.controls |= index::mask_of(controls);
        operations.push_back(std::move(op));
        schedule.reset();
    }
};

template <class T>
program<T>::program(unsigned int nqubits) : self(std::make_unique<implementation>()) {
    self->nqubits = nqubits;
}
template <class T>
program<T>::~program() = default;
template <class T>
program<T>::program(program&&) noexcept = default;
template <class T>
program<T>& program<T>::operator=(program&&) noexcept = default;

template <class T>
void program<T>::add_gate(const std::string& name, const std::vector<T>& params,
                          const std::vector<unsigned int>& qubits, const std::vector<unsigned int>& controls) {
    gates::operation<T> op;
    if (!gates::named_operation(op, name, params, qubits)) {
        throw std::invalid_argument("Gate " + name + " is not known to a program");
    }
    self->append(std::move(op), controls);
}

template <class T>
void program<T>::add_matrix(const std::vector<thrust::complex<T>>& matrix, const std::vector<unsigned int>& qubits,
                            const std::vector<unsigned int>& controls) {
    self->append(gates::matrix_operation(matrix, qubits, !controls.empty()), controls);
}

template <class T>
void program<T>::add_diagonal(const std::vector<thrust::complex<T>>& diagonal, const std::vector<unsigned int>& qubits,
                              const std::vector<unsigned int>& controls) {
    self->append(gates::diagonal_operation(diagonal, qubits), controls);
}

template <class T>
void program<T>::set_params(unsigned long gate, const std::vector<T>& params) {
    gates::operation<T>& op = self->operations.at(gate);
    if (!gates::set_angle(op, params)) throw std::invalid_argument("Gate " + std::to_string(gate) + " takes no angle");
    if (!self->schedule) return;
    if (self->fusion) {
        self->schedule.reset();
    } else {
        self->schedule->outdate(gate);
    }
}

template <class T>
void program<T>::set_fusion(bool fusion) {
    if (fusion != self->fusion) self->schedule.reset();
    self->fusion = fusion;
}

template <class T>
bool program<T>::fusion() const {
    return self->fusion;
}

template <class T>
unsigned long program<T>::size() const {
    return self->operations.size();
}

template <class T>
unsigned int program<T>::nqubits() const {
    return self->nqubits;
}

template <class T>
void program<T>::clear() {
    self->operations.clear();
    self->schedule.reset();
}

template <class T>
const program_plan& program<T>::plan(unsigned int state_qubits, int nthreads) {
    program_plan& plan = self->plan;
    plan = {};
    for (const auto& pass : self->schedule_for(state_qubits, nthreads).passes()) {
        program_pass told{pass.first, pass.last, {}, 1ul << state_qubits};
        double sweeps = 1;
        if (pass.local == 0) {
            sweeps = static_cast<double>(pass.whole_array.bytes) /
                     static_cast<double>(sizeof(thrust::complex<T>) << state_qubits);
        } else if (!pass.in_place) {
            told.local_qubits = replay::locality(pass.local).bits;
            told.chunk_amplitudes = 1ul << told.local_qubits.size();
        }
        plan.predicted_sweeps += sweeps;
        plan.passes.push_back(std::move(told));
    }
    return plan;
}

template <class T>
unsigned long program<T>::run(PybindAmplixStateVectorCPU<T>& state, const progress_hook& hook) {
    auto& schedule = self->schedule_for(state.nqubits, state.num_threads, hook);
    if (!schedule.is_complete()) {
        self->schedule.reset();
        return 0;
    }
    return schedule.run(self->operations, state.amplitudes.get(), hook);
}

template class program<float>;
template class program<double>;

}  // namespace pbamplix::cpu
