#include "support/gate_lists.hpp"
#include "support/named_gates.hpp"
#include "support/precision.hpp"
#include "support/watched_regions.hpp"

#include <omp.h>

#include <map>
#include <memory>
#include <string>

using namespace support;
using reference::NamedGate;
using Counts = std::vector<unsigned int>;

PRECISION_SUITE(parallel_regions);

namespace {

template <class T>
std::vector<NamedGate<T>> every_named_gate() {
    std::vector<NamedGate<T>> gates;
    for (const unsigned int qubits : {1u, 2u, 3u}) {
        const std::vector<unsigned int> listed = {3, 0, 1};
        for (const std::string& name : gates_on(qubits))
            gates.push_back({name, {listed.data(), listed.data() + qubits}, 1});
    }
    return gates;
}

template <class Act>
Counts regions_of(Act act) {
    WatchedRegions regions;
    act();
    return regions.thread_counts();
}

}  // namespace

TYPED_TEST(parallel_regions, of_a_gate_on_a_large_state_is_one_with_the_objects_threads) {
    StateVector<TypeParam> v(18);
    v.reset();
    for (const auto& gate : every_named_gate<TypeParam>()) {
        for (int threads : {2, 3, 7}) {
            v.set_num_threads(threads);
            EXPECT_EQ(regions_of([&] { call(v, gate); }), Counts{static_cast<unsigned int>(threads)}) << gate.name;
        }
    }
}

TYPED_TEST(parallel_regions, of_a_gate_with_negative_threads_run_on_one) {
    StateVector<TypeParam> v(18);
    v.reset();
    v.set_num_threads(-3);
    for (const auto& gate : every_named_gate<TypeParam>()) {
        for (unsigned int threads : regions_of([&] { call(v, gate); })) EXPECT_EQ(threads, 1u) << gate.name;
    }
}

TYPED_TEST(parallel_regions, of_a_gate_with_0_threads_take_openmps_default_team) {
    StateVector<TypeParam> v(18);
    v.reset();
    v.set_num_threads(0);
    omp_set_num_threads(5);
    for (const auto& gate : every_named_gate<TypeParam>()) {
        const Counts counts = regions_of([&] { call(v, gate); });
        ASSERT_EQ(counts.size(), 1ul) << gate.name;
        // Left to the runtime, or asked of it beforehand.
        EXPECT_TRUE(counts[0] == 0 || counts[0] == 5) << gate.name << ": " << counts[0];
    }
    omp_set_num_threads(omp_get_num_procs());
}

TYPED_TEST(parallel_regions, of_a_gate_on_a_small_state_are_none) {
    StateVector<TypeParam> v(8);
    v.reset();
    v.set_num_threads(7);
    for (const auto& gate : every_named_gate<TypeParam>()) {
        EXPECT_TRUE(regions_of([&] { call(v, gate); }).empty()) << gate.name;
    }
}

namespace {

void expect_regions_of_3(const char* what, const Counts& counts) {
    EXPECT_FALSE(counts.empty()) << what;
    for (unsigned int threads : counts) EXPECT_EQ(threads, 3u) << what;
}

// A state of 18 qubits with weight everywhere, for 3 threads.
template <class T>
struct LargeState : StateVector<T> {
    LargeState() : StateVector<T>(18) {
        this->reset_to_str(std::string(18, '+'));
        this->set_num_threads(3);
    }
};

}  // namespace

TYPED_TEST(parallel_regions, of_a_matrix_on_a_large_state_have_the_objects_threads) {
    using C = thrust::complex<TypeParam>;
    LargeState<TypeParam> v;
    for (const bool diagonal : {false, true}) {
        const auto matrix = [diagonal](unsigned long dim) {
            std::vector<C> entries(dim * dim);
            for (unsigned long i = 0; i < dim; ++i) entries[i * dim + (diagonal ? i : dim - 1 - i)] = C(1);
            return entries;
        };
        expect_regions_of_3("1 qubit", regions_of([&] { v.apply_1qbit_gate(3, matrix(2)); }));
        expect_regions_of_3("2 qubits", regions_of([&] { v.apply_2qbit_gate(3, 0, matrix(4)); }));
        expect_regions_of_3("3 qubits", regions_of([&] { v.apply_nqbit_gate({3, 0, 17}, matrix(8)); }));
        expect_regions_of_3("1, controlled", regions_of([&] { v.apply_1qbit_ctrl_gate({5}, 3, matrix(2)); }));
        expect_regions_of_3("2, controlled", regions_of([&] { v.apply_2qbit_ctrl_gate({5}, 3, 0, matrix(4)); }));
        expect_regions_of_3("3, controlled", regions_of([&] { v.apply_nqbit_ctrl_gate({5}, {3, 0, 17}, matrix(8)); }));
    }
}

TYPED_TEST(parallel_regions, of_readout_of_a_large_state_have_the_objects_threads) {
    LargeState<TypeParam> v;
    TypeParam out[4];
    expect_regions_of_3("total", regions_of([&] { v.probability(0, std::vector<unsigned int>{}); }));
    expect_regions_of_3("marginal", regions_of([&] { v.get_distribution(out, 0, {17, 0}); }));

    std::vector<thrust::complex<TypeParam>> copy(v.size);
    expect_regions_of_3("dense export", regions_of([&] { v.get_permuted_statevector(copy.data(), 0); }));
    std::vector<unsigned long> shots(100000);
    expect_regions_of_3("shots", regions_of([&] { v.sample(shots.data(), shots.size()); }));
    std::unique_ptr<std::map<unsigned long, thrust::complex<TypeParam>>> map;
    // Above the largest magnitude, so that the map stays empty.
    expect_regions_of_3("sparse export", regions_of([&] { map.reset(v.get_mapped_statevector(1)); }));
    std::unique_ptr<std::map<unsigned long, TypeParam>> marginal;
    expect_regions_of_3("sparse marginal", regions_of([&] { marginal.reset(v.get_mapped_distribution(0, {17, 0})); }));
}

TYPED_TEST(parallel_regions, of_observables_on_a_large_state_have_the_objects_threads) {
    LargeState<TypeParam> v;
    const WObservable<TypeParam> sum = {{{1, 0}, {1, 0}}, {0, 0x20001}, {0x3, 0x4}, {0, 0}, {}, 18};
    expect_regions_of_3("sum", regions_of([&] { v.expectation_value(sum); }));
    expect_regions_of_3("terms", regions_of([&] { v.terms_expectations_values(sum); }));
    expect_regions_of_3("estimates", regions_of([&] { v.evaluate_terms({{{17, 0}, "XY", {1, 0}}}, 10); }));
}

TYPED_TEST(parallel_regions, of_projection_and_loading_on_a_large_state_have_the_objects_threads) {
    LargeState<TypeParam> v;
    expect_regions_of_3("projection", regions_of([&] { v.project({17, 0}, 1); }));
    expect_regions_of_3("projection with reset", regions_of([&] { v.project_then_reset({5}, 1); }));
    std::vector<thrust::complex<double>> data(8, 0.5);
    expect_regions_of_3("preparation", regions_of([&] { v.apply_state_preparation(data.data(), {3, 0, 17}); }));
    expect_regions_of_3("amplitudes by address", regions_of([&] { v.apply_qram(data.data(), {3, 0, 17}, 1); }));
    const unsigned long values[] = {1, 2};
    expect_regions_of_3("integers by address", regions_of([&] { v.apply_binary_qram(values, {3, 0, 17}, 1); }));
    expect_regions_of_3("phase oracle", regions_of([&] { v.apply_phase_oracle({1, 2}, {0, 4}); }));
}
