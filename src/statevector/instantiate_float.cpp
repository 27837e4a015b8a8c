#include "statevector/gates/matrix_gate_members.inl"
#include "statevector/gates/named_gate_members.inl"
#include "statevector/loading/loading_members.inl"
#include "statevector/measurement/measurement_members.inl"
#include "statevector/object/lifecycle_members.inl"
#include "statevector/object/reset_members.inl"
#include "statevector/object/text_members.inl"
#include "statevector/observables/observable_members.inl"
#include "statevector/replay/replay_members.inl"

template class pbamplix::cpu::PybindAmplixStateVectorCPU<float>;
