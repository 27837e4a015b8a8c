#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/recorded_program.hpp"

#include <unistd.h>
#include <csignal>
#include <functional>
#include <map>
#include <memory>

// Some members take OpenMP's unnamed critical section, which a process has once: measurement.hpp tells hosts which. A
// host that holds it himself waits for ever in these, and in no others.

using namespace support;

PRECISION_SUITE(process_wide_lock);

namespace {

template <class T>
using Act = std::function<void(StateVector<T>&)>;

template <class T>
struct Member {
    const char* name;
    Act<T> act;
};

template <class T>
std::vector<Member<T>> members_that_take_it() {
    static unsigned long shots[100];
    return {
        {"sample", [](auto& v) { v.sample(shots, 100); }},
        {"sample_subset", [](auto& v) { v.sample_subset(shots, {1}, 100); }},
        {"measure", [](auto& v) { v.measure({0}); }},
        {"get_mapped_statevector", [](auto& v) { delete v.get_mapped_statevector(T(1.2)); }},
        {"get_mapped_density_diag",
         [](auto& v) {
             v.is_density_matrix = true;
             delete v.get_mapped_density_diag(T(0.5));
         }},
        {"get_mapped_distribution",
         [](auto& v) {
             delete v.get_mapped_distribution(0, {0, 3});
         }},
    };
}

// Ends the process, if it is not over in time.
void within_seconds(unsigned int seconds, const std::function<void()>& work) {
    alarm(seconds);
    work();
    alarm(0);
}

}  // namespace

TYPED_TEST(process_wide_lock, is_not_taken_by_other_members) {
    using T = TypeParam;
    LoadedVector<T> v(random_state<T>(16, Values::ordinary), 3);
    Recorder<T> recorder(16, 1, Recorder<T>::unitary);
    for (int gate = 0; gate < 20; ++gate) recorder.random_gate();
    pbamplix::PybindAmplixWCircuit<T> record(16);
    record.add_gate("H", {}, {0});
    const auto sum = compiled(random_sum<T>(8, 5, 2, 1));
    std::vector<thrust::complex<double>> data(8, 0.5);
    std::vector<thrust::complex<T>> copy(v.size);
    std::vector<T> out(4), diagonal(1ul << 8);
    const unsigned long values[] = {1, 2};
    within_seconds(120, [&] {
#pragma omp critical
        {
            v.apply_RX(3, T(0.2), {{1, 2}});
            v.apply_nqbit_gate({0, 1, 2}, std::vector<thrust::complex<T>>(64, T(0.125)));
            recorder.list.run(v);
            v.simulate_circuit(record);
            v.probability(1);
            v.get_distribution(out.data(), 0, {3, 9});
            v.get_permuted_statevector(copy.data(), 0);
            v.get_permuted_density_diag(diagonal.data(), 0);
            v.expectation_value(sum);
            v.terms_expectations_values(sum);
            v.evaluate_terms({{{3, 1}, "XY", {1, 0}}}, 20);
            v.apply_state_preparation(data.data(), {3, 0, 5});
            v.apply_qram(data.data(), {3, 0, 5}, 1);
            v.apply_binary_qram(values, {3, 0, 5}, 1);
            v.apply_phase_oracle({1}, {0, 4});
            v.project_then_reset({3}, 0);
            v.str();
            v.reset_to_str("01");
            v.reset();
            v.resize(17);
            v.release_memory();
        }
    });
}

TYPED_TEST(process_wide_lock, is_another_than_a_named_critical_section) {
    LoadedVector<TypeParam> v(random_state<TypeParam>(16, Values::ordinary), 3);
    within_seconds(120, [&] {
        for (const auto& member : members_that_take_it<TypeParam>()) {
#pragma omp critical(a_host_of_its_own)
            member.act(v);
        }
    });
}

// The warning is about something: these wait.
TEST(process_wide_lock_death, is_taken_by_the_members_that_are_named) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const auto& member : members_that_take_it<double>()) {
        const auto wait = [&] {
            LoadedVector<double> v(random_state<double>(16, Values::ordinary), 3);
            ualarm(300000, 0);
#pragma omp critical
            member.act(v);
        };
        EXPECT_EXIT(wait(), testing::KilledBySignal(SIGALRM), "") << member.name;
    }
}
