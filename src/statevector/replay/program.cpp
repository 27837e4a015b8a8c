#include "statevector/replay/program_content.hpp"

#include <velacamplix/kernels.hpp>

#include <algorithm>

namespace pbamplix::cpu {

using replay::content_of;
using replay::counted;
using replay::most_qubits;
using replay::refuse;

namespace {

void check_qubits(const std::string& gate, const std::vector<unsigned int>& qubits,
                  const std::vector<unsigned int>& controls, unsigned int nqubits) {
    unsigned long named = 0;
    for (const auto* list : {&qubits, &controls}) {
        for (const unsigned int q : *list) {
            if (q >= nqubits) {
                refuse("Gate " + gate + " names qubit " + std::to_string(q) + ", but the program has " +
                       counted(nqubits, "qubit") + ", counted from 0");
            }
            if ((named & index::bit(q)) != 0) {
                refuse("Gate " + gate + " names qubit " + std::to_string(q) + " twice");
            }
            named |= index::bit(q);
        }
    }
}

// `bits`: of the number of entries, as far as a vector can be that long.
void check_entries(const std::string& gate, std::size_t entries, std::size_t qubits, std::size_t bits) {
    if (bits < 64 && entries == 1ul << bits) return;
    const std::string wanted = bits < 64 ? counted(1ul << bits, "entry") : "2^" + std::to_string(bits) + " entries";
    refuse("Gate " + gate + " on " + counted(qubits, "qubit") + " takes " + wanted + ", not " +
           std::to_string(entries));
}

}  // namespace

template <class T>
program<T>::program(unsigned int nqubits) : self(std::make_unique<implementation>()) {
    if (nqubits > most_qubits) {
        refuse("A program has at most " + counted(most_qubits, "qubit") + ", not " + std::to_string(nqubits));
    }
    self->nqubits = nqubits;
}
template <class T>
program<T>::~program() = default;
template <class T>
program<T>::program(program&&) noexcept = default;
template <class T>
program<T>& program<T>::operator=(program&&) noexcept = default;

template <class T>
program<T> program<T>::copy() const {
    const implementation& content = content_of(self);
    program<T> other(content.nqubits);
    other.self->operations = content.operations;
    other.self->fusion = content.fusion;
    return other;
}

template <class T>
void program<T>::add_gate(const std::string& name, const std::vector<double>& params,
                          const std::vector<unsigned int>& qubits, const std::vector<unsigned int>& controls) {
    implementation& content = content_of(self);
    const gates::gate_row* const row = gates::find_gate(name);
    if (row == nullptr) refuse("Gate " + name + " is not known to a program");
    if (params.size() != row->angles) {
        refuse("Gate " + name + " takes " + counted(row->angles, "angle") + ", not " + std::to_string(params.size()));
    }
    const unsigned wanted = row->controls + row->targets;
    if (qubits.size() != wanted) {
        refuse("Gate " + name + " takes " + counted(wanted, "qubit") + ", not " + std::to_string(qubits.size()));
    }
    check_qubits(name, qubits, controls, content.nqubits);
    content.append(gates::named_operation<T>(*row, params, qubits), controls);
}

template <class T>
void program<T>::add_matrix(const std::vector<thrust::complex<T>>& matrix, const std::vector<unsigned int>& qubits,
                            const std::vector<unsigned int>& controls) {
    implementation& content = content_of(self);
    check_qubits("matrix", qubits, controls, content.nqubits);
    check_entries("matrix", matrix.size(), qubits.size(), 2 * qubits.size());
    content.append(gates::matrix_operation(matrix, qubits, !controls.empty()), controls);
}

template <class T>
void program<T>::add_diagonal(const std::vector<thrust::complex<T>>& diagonal, const std::vector<unsigned int>& qubits,
                              const std::vector<unsigned int>& controls) {
    implementation& content = content_of(self);
    check_qubits("diagonal", qubits, controls, content.nqubits);
    check_entries("diagonal", diagonal.size(), qubits.size(), qubits.size());
    content.append(gates::diagonal_operation(diagonal, qubits), controls);
}

template <class T>
void program<T>::set_params(unsigned long gate, const std::vector<double>& params) {
    implementation& content = content_of(self);
    gates::operation<T>& op = content.operations.at(gate);
    const auto refuse_this = [&](const std::string& why) {
        refuse("Gate " + std::to_string(gate) + ", " + gates::name_of(op.kind) + ", takes " + why);
    };
    const unsigned angles = gates::angles_of(op.kind);
    if (angles == 0) refuse_this("no angle");
    if (params.size() != angles) refuse_this(counted(angles, "angle") + ", not " + std::to_string(params.size()));
    if (content.fusion) {
        content.ranges.remove_if([=](const auto& range) { return range.contains(gate); });
        content.way_back.reset();
    }
    for (auto& range : content.ranges) {  // first: they may lack memory
        if (range.contains(gate)) range.schedule.outdate(gate - range.first);
    }
    gates::set_angles(op, params);
}

template <class T>
unsigned int program<T>::angle_count(unsigned long gate) const {
    return gates::angles_of(content_of(self).operations.at(gate).kind);
}

template <class T>
void program<T>::set_fusion(bool fusion) {
    implementation& content = content_of(self);
    if (fusion != content.fusion) content.forget_plans();
    content.fusion = fusion;
}

template <class T>
bool program<T>::fusion() const {
    return content_of(self).fusion;
}

template <class T>
unsigned long program<T>::size() const {
    return content_of(self).operations.size();
}

template <class T>
unsigned int program<T>::nqubits() const {
    return content_of(self).nqubits;
}

template <class T>
void program<T>::clear() {
    implementation& content = content_of(self);
    content.operations.clear();
    content.forget_plans();
}

template <class T>
const program_plan& program<T>::plan(unsigned int state_qubits, int nthreads) {
    implementation& content = content_of(self);
    program_plan& plan = content.plan;
    plan = {};
    const auto* const whole_list = content.schedule_for(0, content.operations.size(), state_qubits, nthreads);
    for (const auto& pass : whole_list->passes()) {
        program_pass told{pass.first, pass.last, {}, 1ul << state_qubits};
        double sweeps = 1;
        if (const auto* const whole = std::get_if<replay::whole_array<T>>(&pass.work)) {
            sweeps = static_cast<double>(whole->call.bytes) /
                     static_cast<double>(sizeof(thrust::complex<T>) << state_qubits);
        } else if (const auto* const work = std::get_if<replay::chunked<T>>(&pass.work)) {
            told.local_qubits = replay::locality(work->local).bits;
            told.chunk_amplitudes = work->chunk_size();
        }
        plan.predicted_sweeps += sweeps;
        plan.passes.push_back(std::move(told));
    }
    return plan;
}

template <class T>
unsigned long program<T>::run(PybindAmplixStateVectorCPU<T>& state, const progress_hook& hook) {
    return run(state, 0, size(), hook);
}

template <class T>
unsigned long program<T>::run(PybindAmplixStateVectorCPU<T>& state, unsigned long first_gate, unsigned long last_gate,
                              const progress_hook& hook) {
    implementation& content = content_of(self);
    if (first_gate > last_gate || last_gate > content.operations.size()) {
        refuse("The program has " + counted(content.operations.size(), "gate") + ", not those from " +
               std::to_string(first_gate) + " up to " + std::to_string(last_gate));
    }
    if (state.amplitudes == nullptr) refuse("The state has no amplitudes: it was released, or a resize was refused");
    auto* const schedule = content.schedule_for(first_gate, last_gate, state.nqubits, state.num_threads, hook);
    if (schedule == nullptr) return 0;
    return schedule->run(content.gates_of(first_gate, last_gate), state.amplitudes.get(), hook);
}

template <class T>
bool program<T>::run_to_end(PybindAmplixStateVectorCPU<T>& state, const progress_hook& hook) {
    implementation& content = content_of(self);
    if (state.amplitudes == nullptr) refuse("The state has no amplitudes: it was released, or a resize was refused");
    auto* const schedule = content.schedule_for(0, size(), state.nqubits, state.num_threads, hook);
    if (schedule == nullptr) return false;
    return schedule->run_to_end(content.gates_of(0, size()), state.amplitudes.get(), hook);
}

template <class T>
bool program<T>::run_from_basis_state(PybindAmplixStateVectorCPU<T>& state, unsigned long basis_state,
                                      const progress_hook& hook) {
    implementation& content = content_of(self);
    if (state.amplitudes == nullptr) refuse("The state has no amplitudes: it was released, or a resize was refused");
    if (basis_state >= state.size) {
        refuse("The state has " + counted(state.nqubits, "qubit") + ", and no basis state " +
               std::to_string(basis_state));
    }
    auto* const schedule = content.schedule_for(0, size(), state.nqubits, state.num_threads, hook);
    if (schedule == nullptr) return false;
    return schedule->run_to_end(content.gates_of(0, size()), state.amplitudes.get(), hook, basis_state);
}

template class program<float>;
template class program<double>;

}  // namespace pbamplix::cpu
