#include <velacamplix/velacamplix.hpp>

#include <cstdio>
#include <random>
#include <type_traits>
#include <utility>
#include <vector>

// Needs every function of the public headers from the library, in both precisions. It proves something by being
// linked: a function that is declared but not exported makes that fail.

namespace {

unsigned needed = 0;

// Only the address is taken; the volatile copy keeps the compiler from leaving it out.
template <class Function>
void need(Function function) {
    volatile Function kept = function;
    (void)kept;
    ++needed;
}

using pbamplix::SimpleTerm;
using qubits = std::vector<unsigned int>;
using engine = std::mt19937_64;
using namespace pbamplix::cpu;

template <class T>
using C = thrust::complex<T>;

template <class T, class G>
void need_one_qubit_gate() {
    need(static_cast<void (*)(C<T>*, unsigned, unsigned long, int, qubits)>(
        &Template1QBGate<G>::template apply_controlled<T>));
}

template <class T, class G>
void need_two_qubit_gate() {
    need(static_cast<void (*)(C<T>*, unsigned, unsigned, unsigned long, int, qubits)>(
        &Template2QBGate<G>::template apply_controlled<T>));
}

template <class T, class G>
void need_fixed_phase_gate() {
    need(&_TemplatePartialDiagGate<G, true>::template apply<T>);
    need(&_TemplatePartialDiagGate<G, true>::template apply_controlled<T>);
}

template <class T>
void need_kernels() {
    need_one_qubit_gate<T, GateX>();
    need_one_qubit_gate<T, GateY>();
    need_one_qubit_gate<T, GateH>();
    need_one_qubit_gate<T, GateZtoY>();
    need_one_qubit_gate<T, GateYtoZ>();
    need(&Template1QBGate<GateRX>::template apply_controlled<T, C<T>, C<T>>);
    need(&Template1QBGate<GateRY>::template apply_controlled<T, C<T>, C<T>>);
    need(&Template1QBGate<_Gate1QB<true>>::template apply_controlled<T, C<T>, C<T>, C<T>, C<T>>);

    need_two_qubit_gate<T, GateSWAP>();
    need_two_qubit_gate<T, GateISWAP>();
    need_two_qubit_gate<T, GateSQRTSWAP>();
    need_two_qubit_gate<T, GateHH>();
    need_two_qubit_gate<T, GateZtoYZtoYConj>();
    need_two_qubit_gate<T, GateYtoZYtoZConj>();
    need(&Template2QBGate<_Gate2QB<true>>::template apply_controlled<T, std::vector<C<T>>>);

    need_fixed_phase_gate<T, GateZ>();
    need_fixed_phase_gate<T, GateS>();
    need_fixed_phase_gate<T, GateT>();
    need(&_TemplatePartialDiagGate<GatePH<T>, false>::template apply<T>);
    need(&_TemplatePartialDiagGate<GatePH<T>, false>::template apply_controlled<T>);

    need(&_DiagGate<true>::apply<T>);
    need(&_DiagGate<true>::apply_controlled<T>);
    need(&fill_sorted_diag<C<T>>);
    need(static_cast<void (*)(C<T>*, qubits, qubits, std::vector<C<T>>, unsigned long, int)>(
        &apply_nbqbit_gate<C<T>, false, true>));
    need(static_cast<void (*)(C<T>*, qubits, std::vector<C<T>>, unsigned long, int)>(
        &apply_nbqbit_gate<C<T>, false, true>));
    need(&_apply_nqbit_gate<C<T>, true, true, false>);
    need(&pbamplix::get_diag_if_diag<C<T>>);
}

template <class T, class Seq>
void need_readout_of() {
    using value = typename Seq::value_type;
    need(&cumulative_probability<Seq>);
    need(&_permute_and_copy_vector_fast<true, value, Seq>);
    need(&_permute_and_copy_vector_fast<false, value, Seq>);
    need(&_permute_and_copy_vector_no_simd<T, value, Seq>);
    need(&pick_shots_state<engine, Seq>);
    need(&permute_and_map_vector<T, value, Seq>);
    need(&map_marginal_distribution<T, Seq>);
    using precise = pbamplix::precise_view<Seq>;
    need(&cumulative_probability<precise>);
    need(&pick_shots_state<engine, precise>);
    need(&map_marginal_distribution<double, precise>);
    need(&write_distribution<Seq>);
    need(&write_distribution<precise>);
    need(&pick_shots_of_any_norm<engine, std::conditional_t<std::is_same_v<T, double>, Seq, precise>>);
}

template <class T>
void need_observables_and_loading() {
    need(&pbamplix::prune_I_ops<SimpleTerm<T>>);
    need(&_term_value<T>);
    need(&_term_value_density_matrix<T>);
    need(&_expectation_value<T>);
    need(&_expectation_value_density_matrix<T>);
    need(&basis_change<T>);
    need(&basis_change_deterministic<T>);
    need(&evaluate_term<T, engine>);
    need(&_evaluate_terms<T, engine>);
    need(&_state_preparation<T>);
    need(&state_preparation<double, T>);
    need(&_qram<T>);
    need(&_binary_qram<T>);
    need(&_phase_oracle<T>);
    need(&_project<T>);
    need(&term_values<T, T>);
    need(&term_values<T, double>);
    need(&term_values_density_matrix<T, T>);
    need(&term_values_density_matrix<T, double>);
    need(&evaluate_terms_of_any_norm<T, engine>);
    need(&overlap<T, float>);
    need(&overlap<T, double>);
    need(&reduced_density_matrix<T>);
    need(&apply_observable<T>);
    need(&project<double, T>);
    need(&project_then_reset<double, T>);
}

template <class T>
void need_class() {
    using state = PybindAmplixStateVectorCPU<T>;
    need(&state::reset_to_str);
    need(&state::set_num_threads);
    need(&state::set_is_density_matrix);
    need(&state::print);
    need(&state::str);
    for (auto named : {&state::apply_X, &state::apply_Y, &state::apply_Z, &state::apply_H, &state::apply_S,
                       &state::apply_T, &state::apply_ZtoY, &state::apply_YtoZ}) {
        need(named);
    }
    for (auto turned : {&state::apply_RX, &state::apply_RY, &state::apply_RZ, &state::apply_PH}) need(turned);
    for (auto pair :
         {&state::apply_CNOT, &state::apply_CSIGN, &state::apply_SWAP, &state::apply_ISWAP, &state::apply_SQRTSWAP}) {
        need(pair);
    }
    need(&state::apply_CCNOT);
    need(&state::apply_1qbit_gate);
    need(&state::apply_2qbit_gate);
    need(&state::apply_nqbit_gate);
    need(&state::apply_1qbit_ctrl_gate);
    need(&state::apply_2qbit_ctrl_gate);
    need(&state::apply_nqbit_ctrl_gate);
    need(&state::simulate_circuit);
    need(&state::probability);
    need(&state::get_distribution);
    need(&state::sample);
    need(&state::sample_subset);
    need(&state::measure);
    need(&state::project);
    need(&state::project_then_reset);
    need(&state::get_permuted_statevector);
    need(&state::get_permuted_density_diag);
    need(&state::get_permuted_density_matrix);
    need(&state::get_mapped_statevector);
    need(&state::get_mapped_density_diag);
    need(&state::get_mapped_distribution);
    need(&state::expectation_value);
    need(&state::terms_expectations_values);
    need(&state::evaluate_terms);
    need(&state::apply_state_preparation);
    need(&state::apply_qram);
    need(&state::apply_binary_qram);
    need(&state::apply_phase_oracle);

    // Construction, the virtual members and the base, through an object.
    state object(1);
    pbamplix::PybindAmplixStateVector& base = object;
    base.resize(2);
    base.reset();
    needed += base.get_named_ctrl_gates().size() == 10;
    base.release_memory();
    needed += dynamic_cast<state*>(&base) != nullptr;

    program<T> gates(2);
    gates.add_gate("RX", {1}, {0});
    gates.set_params(0, {2});
    gates.add_matrix({1, 2, 3, 4}, {1});
    gates.add_diagonal({1, 2}, {1}, {0});
    needed += gates.size() == 3 && gates.nqubits() == 2 && !gates.plan(2, 1).passes.empty();
    base.resize(2);
    base.reset();
    gates.set_fusion(true);
    needed += gates.run(object, 1, 2) == 1 && gates.angle_count(0) == 1;
    needed += gates.fusion();
    gates.set_fusion(false);
    program<T> turned(1);
    turned.add_gate("RX", {1}, {0});
    needed += turned.gradient({WObservable<double>{}}, {0}).derivatives.size() == 1;
    program<T> moved = std::move(gates);
    program<T> moved_again(1);
    moved_again = std::move(moved);
    needed += moved_again.run(object) == 3;
    std::vector<program<T>> programs;
    programs.push_back(moved_again.copy());
    const batch_result<T> taken = [](unsigned long, state&) {};
    needed += run_batch(programs, taken) == 1 && run_batch(programs[0], {0}, {{1.0}, {2.0}}, taken) == 2;
    moved_again.clear();

    pbamplix::PybindAmplixWCircuit<T> circuit(1);
    circuit.add_gate("H", {}, {0});
    circuit.reset(2);
    needed += circuit.nqubits == 2;
}

template <class T>
void need_precision() {
    need(&pbamplix::aligned_array_delete<C<T>>);
    need(&contains_no_first_qubits<T>);
    need_kernels<T>();
    need_readout_of<T, pbamplix::SVSequence<C<T>>>();
    need_readout_of<T, pbamplix::DMDiagSequence<T>>();
    need_observables_and_loading<T>();
    need_class<T>();
}

}  // namespace

int main() {
    need(&pbamplix::version);
    need(&pbamplix::instruction_set);
    need(&pbamplix::get_num_threads);
    need(&swap_lsb_msb);
    need(&get_sorted_indices);
    needed += vela::core::iterator::StateIterator({0}, {1}, 3).count == 2;
    need_precision<float>();
    need_precision<double>();
    std::printf("%u functions and checks\n", needed);
    return 0;
}
