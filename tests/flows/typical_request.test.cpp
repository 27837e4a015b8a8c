#include "support/precision.hpp"

#include <velacamplix/velacamplix.hpp>

#include <cmath>

// One request from construction to readout, as a host makes it, through the umbrella header.

PRECISION_SUITE(typical_request);

namespace {

using Qubits = std::vector<unsigned int>;

template <class T>
constexpr T tolerance = std::is_same_v<T, double> ? T(1e-12) : T(1e-5);

}  // namespace

TYPED_TEST(typical_request, bell_pair_reads_00_and_11_with_equal_probability) {
    pbamplix::cpu::PybindAmplixStateVectorCPU<TypeParam> state(2);
    state.reset();
    pbamplix::PybindAmplixWCircuit<TypeParam> circuit(2);
    circuit.add_gate("H", {}, {0});
    circuit.add_gate("CNOT", {}, {0, 1});
    state.simulate_circuit(circuit);

    TypeParam out[4];
    state.get_distribution(out, 0, {0, 1});
    EXPECT_NEAR(out[0], TypeParam(0.5), tolerance<TypeParam>);
    EXPECT_EQ(out[1], TypeParam(0));
    EXPECT_EQ(out[2], TypeParam(0));
    EXPECT_NEAR(out[3], TypeParam(0.5), tolerance<TypeParam>);
    EXPECT_NEAR(state.probability(3), TypeParam(0.5), tolerance<TypeParam>);
}

TYPED_TEST(typical_request, ghz_state_of_18_qubits_is_the_same_for_every_thread_count) {
    const unsigned int n = 18;
    pbamplix::PybindAmplixWCircuit<TypeParam> circuit(n);
    circuit.add_gate("H", {}, {0});
    for (unsigned int q = 0; q + 1 < n; ++q) circuit.add_gate("CNOT", {}, {q, q + 1});
    pbamplix::cpu::PybindAmplixStateVectorCPU<TypeParam> state(n);
    const TypeParam c = std::is_same_v<TypeParam, double> ? TypeParam(0.7071067811865475) : TypeParam(0.70710677f);
    for (int threads : support::thread_counts) {
        state.set_num_threads(threads);
        state.reset();
        state.simulate_circuit(circuit);
        EXPECT_EQ(state.amplitudes[0].real(), c);
        EXPECT_EQ(state.amplitudes[state.size - 1].real(), c);
        EXPECT_EQ(state.probability(0, Qubits{}), c * c + c * c) << threads << " thread(s)";
    }
}

TYPED_TEST(typical_request, one_object_serves_states_of_different_sizes) {
    pbamplix::cpu::PybindAmplixStateVectorCPU<TypeParam> state(3);
    for (unsigned int n : {3u, 5u, 2u, 4u}) {
        state.resize(n);
        state.reset_to_str(std::string(n, '+'));
        for (unsigned int q = 0; q < n; ++q) state.apply_H(q);
        EXPECT_NEAR(state.probability(0), TypeParam(1), tolerance<TypeParam>) << n << " qubits";
    }
    state.release_memory();
    EXPECT_EQ(state.str(), "");
}

TYPED_TEST(typical_request, norm_stays_and_inverses_cancel) {
    const unsigned int n = 6;
    pbamplix::cpu::PybindAmplixStateVectorCPU<TypeParam> state(n);
    state.reset_to_str("01+-+1");
    std::vector<thrust::complex<TypeParam>> start(state.amplitudes.get(), state.amplitudes.get() + state.size);
    const TypeParam angle = TypeParam(0.9);
    for (unsigned int q = 0; q < n; ++q) {
        const Qubits control = {(q + 2) % n};
        state.apply_RX(q, angle, control);
        state.apply_RY(q, angle);
        state.apply_RZ(q, angle, control);
        state.apply_PH(q, angle);
        state.apply_ZtoY(q);
        state.apply_ISWAP(q, (q + 1) % n);
        EXPECT_NEAR(state.probability(0, Qubits{}), TypeParam(1), tolerance<TypeParam>) << "after qubit " << q;
        for (int i = 0; i < 3; ++i) state.apply_ISWAP(q, (q + 1) % n);
        state.apply_YtoZ(q);
        state.apply_PH(q, -angle);
        state.apply_RZ(q, -angle, control);
        state.apply_RY(q, -angle);
        state.apply_RX(q, -angle, control);
    }
    for (unsigned long i = 0; i < state.size; ++i) {
        EXPECT_LE(thrust::abs(state.amplitudes[i] - start[i]), tolerance<TypeParam>) << "index " << i;
    }
}
