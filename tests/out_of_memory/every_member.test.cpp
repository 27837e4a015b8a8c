#include "support/captured_output.hpp"
#include "support/compare.hpp"
#include "support/failing_allocations.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/recorded_program.hpp"
#include "support/state_vector.hpp"

#include <velacamplix/velacamplix.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

// Every allocation that a member makes fails once, alone and with all that follow it, on one thread and on several. The
// member throws std::bad_alloc, what it works on is as before, and it gives the usual result when there is memory
// again.

using namespace support;

PRECISION_SUITE(out_of_memory);

namespace {

using Failing = FailingAllocations;

// Large enough that loops are shared by threads and sums cut into blocks.
constexpr unsigned int n = 17;

template <class T>
using Act = std::function<void(StateVector<T>&)>;

template <class T>
class Loaded : public LoadedVector<T> {
public:
    Loaded(const reference::State<T>& start, int threads, bool density_matrix) : LoadedVector<T>(start, threads) {
        this->rng.seed(17);
        this->is_density_matrix = density_matrix;
    }
};

template <class T>
testing::AssertionResult same_objects(const StateVector<T>& expected, const StateVector<T>& got) {
    if (expected.nqubits != got.nqubits || expected.size != got.size || got.amplitudes == nullptr) {
        return testing::AssertionFailure() << "another size";
    }
    if (expected.rng != got.rng) return testing::AssertionFailure() << "the engine stands elsewhere";
    return equal_states(expected, got);
}

// Tries with every allocation failing in turn until there is none of that number. try_it(failing) says whether it ended
// by std::bad_alloc. Returns how many there were.
template <class Try>
long for_every_allocation(Try try_it) {
    long failures = 0;
    for (const Failing::Extent extent : {Failing::once, Failing::from_then_on}) {
        for (long which = 0;; ++which) {
            if (!try_it(which, extent)) break;
            ++failures;
        }
    }
    return failures;
}

// Runs `act` with one allocation failing. Whether it threw std::bad_alloc, and whether it came to that allocation.
struct Outcome {
    bool threw, reached;
};
Outcome with_failure(long which, Failing::Extent extent, const std::function<void()>& act) {
    const Failing failing(which, extent);
    try {
        act();
    } catch (const std::bad_alloc&) {
        return {true, failing.have_failed()};
    }
    return {false, failing.have_failed()};
}

template <class T>
reference::State<T> start_of(bool density_matrix) {
    return random_state<T>(density_matrix ? n + 1 : n, Values::ordinary, 5);
}

// `act` leaves the object as it is when it fails.
template <class T>
void fails_cleanly(const std::string& what, const Act<T>& act, bool density_matrix = false) {
    const auto start = start_of<T>(density_matrix);
    for (const int threads : {1, 3}) {
        const Loaded<T> untouched(start, threads, density_matrix);
        Loaded<T> complete(start, threads, density_matrix);
        act(complete);
        for_every_allocation([&](long which, Failing::Extent extent) {
            Loaded<T> state(start, threads, density_matrix);
            const auto [threw, reached] = with_failure(which, extent, [&] { act(state); });
            const std::string where = what + ", " + std::to_string(threads) + " thread(s), allocation " +
                                      std::to_string(which) + (extent == Failing::once ? "" : " and all that follow");
            if (threw) {
                EXPECT_TRUE(same_objects(untouched, state)) << where;
                act(state);
            }
            EXPECT_TRUE(same_objects(complete, state)) << where;
            return reached;
        });
    }
}

template <class T>
std::vector<thrust::complex<T>> random_matrix(unsigned int k, unsigned int seed = 1) {
    return as_thrust(random_coefficients<T>(1ul << 2 * k, seed));
}

template <class T>
std::vector<thrust::complex<T>> diagonal_matrix(unsigned int k) {
    std::vector<thrust::complex<T>> matrix(1ul << 2 * k);
    const auto entries = as_thrust(random_coefficients<T>(1ul << k, 2));
    for (unsigned long i = 0; i < entries.size(); ++i) matrix[i * (entries.size() + 1)] = entries[i];
    return matrix;
}

reference::Qubits first_qubits(unsigned int count) {
    reference::Qubits qubits;
    for (unsigned int q = 0; q < count; ++q) qubits.push_back(q);
    return qubits;
}

}  // namespace

TYPED_TEST(out_of_memory, in_construction_leaves_no_object) {
    const long failures = for_every_allocation([](long which, Failing::Extent extent) {
        const auto [threw, reached] = with_failure(which, extent, [] { StateVector<TypeParam> state(n); });
        EXPECT_EQ(threw, reached);
        return reached;
    });
    EXPECT_EQ(failures, 2 * 2) << "the list of names and the array, each alone and with what follows";
}

TYPED_TEST(out_of_memory, in_a_growing_resize_leaves_an_object_that_can_be_resized_again) {
    for_every_allocation([](long which, Failing::Extent extent) {
        StateVector<TypeParam> state(3);
        state.reset();
        const auto [threw, reached] = with_failure(which, extent, [&] { state.resize(n); });
        EXPECT_EQ(threw, reached);
        if (threw) {
            EXPECT_EQ(state.amplitudes, nullptr);
            EXPECT_EQ(state.nqubits, n);
            EXPECT_EQ(state.size, 1ul << n);
            state.release_memory();
            state.resize(n);
        }
        state.reset();
        EXPECT_EQ(state.amplitudes[0], thrust::complex<TypeParam>(1));
        return reached;
    });
}

TYPED_TEST(out_of_memory, in_gates_leaves_the_state) {
    using T = TypeParam;
    for (const unsigned int k : {1u, 2u, 3u, 7u}) {
        const auto dense = random_matrix<T>(k), diagonal = diagonal_matrix<T>(k);
        auto qubits = first_qubits(k + 1);
        std::swap(qubits.front(), qubits.back());
        const reference::Qubits control = {qubits.back(), 9};
        qubits.pop_back();
        for (const auto* matrix : {&dense, &diagonal}) {
            const std::string what = (matrix == &dense ? "dense, " : "diagonal, ") + std::to_string(k) + " qubits";
            fails_cleanly<T>(what, [&](auto& state) {
                if (k == 1) state.apply_1qbit_gate(qubits[0], *matrix);
                if (k == 2) state.apply_2qbit_gate(qubits[0], qubits[1], *matrix);
                if (k > 2) state.apply_nqbit_gate(qubits, *matrix);
            });
            fails_cleanly<T>(what + ", controlled", [&](auto& state) {
                if (k == 1) state.apply_1qbit_ctrl_gate(control, qubits[0], *matrix);
                if (k == 2) state.apply_2qbit_ctrl_gate(control, qubits[0], qubits[1], *matrix);
                if (k > 2) state.apply_nqbit_ctrl_gate(control, qubits, *matrix);
            });
        }
    }
    const auto large = diagonal_matrix<T>(10);
    const auto ten = first_qubits(10);
    fails_cleanly<T>("large diagonal", [&](auto& state) { state.apply_nqbit_ctrl_gate({12}, ten, large); });
    const auto controls = first_qubits(4);
    fails_cleanly<T>("named gates", [&](auto& state) { state.apply_X(14, controls); });
    fails_cleanly<T>("named gates", [&](auto& state) { state.apply_RZ(14, T(0.3), controls); });
}

TYPED_TEST(out_of_memory, in_readout_leaves_the_state_and_the_engine) {
    using T = TypeParam;
    std::vector<T> out(1ul << n);
    std::vector<unsigned long> shots(3000);
    const reference::Qubits qubits = {3, 0, 8};
    for (const bool density_matrix : {false, true}) {
        const auto fails = [=](const std::string& what, const Act<T>& act) {
            fails_cleanly<T>(what + (density_matrix ? " of a density matrix" : ""), act, density_matrix);
        };
        fails("total", [&](auto& state) { state.probability(0, reference::Qubits{}); });
        fails("probability", [&](auto& state) { state.probability(5, qubits); });
        fails("distribution", [&](auto& state) { state.get_distribution(out.data(), 0, {3, 0, 7}); });
        fails("shots", [&](auto& state) { state.sample(shots.data(), shots.size()); });
        fails("shots of some", [&](auto& state) { state.sample_subset(shots.data(), {3, 0}, shots.size()); });
        fails("outcome", [&](auto& state) { state.measure({3, 0}); });
        fails("projection", [&](auto& state) { state.project({3, 0}, 1); });
        fails("projection with reset", [&](auto& state) { state.project_then_reset({3, 0}, 1); });
    }
}

TYPED_TEST(out_of_memory, in_a_text_is_no_shorter_text) {
    StateVector<TypeParam> state(6);
    state.reset();
    const std::string complete = state.str();
    for_every_allocation([&](long which, Failing::Extent extent) {
        std::string text;
        const auto [threw, reached] = with_failure(which, extent, [&] { text = state.str(); });
        EXPECT_TRUE(threw || text == complete) << text;
        return reached;
    });
}

// The error about the outcome leaves all else zero; what it says needs memory.
TYPED_TEST(out_of_memory, in_an_impossible_projection_leaves_the_state_or_the_state_of_its_error) {
    for_every_allocation([](long which, Failing::Extent extent) {
        StateVector<TypeParam> state(n);
        state.reset();
        bool impossible = false;
        const auto [threw, reached] = with_failure(which, extent, [&] {
            try {
                state.project({3}, 1);
            } catch (const std::domain_error&) {
                impossible = true;
            }
        });
        EXPECT_NE(threw, impossible);
        EXPECT_EQ(state.amplitudes[0], thrust::complex<TypeParam>(threw ? 1 : 0)) << which;
        return reached;
    });
}

TYPED_TEST(out_of_memory, in_exports_leaves_the_state) {
    using T = TypeParam;
    using Amplitude = thrust::complex<T>;
    // Thresholds that few entries are above: each is an allocation.
    constexpr std::size_t few = 30;
    const auto root_of_the_few_largest = [](std::vector<T> probabilities) {
        std::nth_element(probabilities.begin(), probabilities.begin() + few, probabilities.end(), std::greater<>());
        return std::sqrt(probabilities[few]);
    };
    for (const bool density_matrix : {false, true}) {
        const Loaded<T> state(start_of<T>(density_matrix), 1, density_matrix);
        std::vector<T> probabilities;
        for (unsigned long i = 0; i < state.size; ++i) probabilities.push_back(thrust::norm(state.amplitudes[i]));
        const T threshold = root_of_the_few_largest(probabilities);
        fails_cleanly<T>(
            "map of the state",
            [=](auto& v) {
                const std::unique_ptr<std::map<unsigned long, Amplitude>> map(v.get_mapped_statevector(threshold));
                EXPECT_NEAR(static_cast<double>(map->size()), few, 5);
            },
            density_matrix);
        fails_cleanly<T>(
            "marginal map",
            [](auto& v) {
                const std::unique_ptr<std::map<unsigned long, T>> map(v.get_mapped_distribution(0, {3, 0, 5, 7}));
                EXPECT_GT(map->size(), 3u);
            },
            density_matrix);
        if (!density_matrix) continue;
        std::vector<T> diagonal(1ul << (state.nqubits / 2));
        for (unsigned long k = 0; k < diagonal.size(); ++k) {
            diagonal[k] = std::max(state.amplitudes[k * (diagonal.size() + 1)].real(), T(0));
        }
        const T diagonal_threshold = root_of_the_few_largest(diagonal);
        fails_cleanly<T>(
            "map of the diagonal",
            [=](auto& v) {
                const std::unique_ptr<std::map<unsigned long, T>> map(v.get_mapped_density_diag(diagonal_threshold));
                EXPECT_NEAR(static_cast<double>(map->size()), few, 5);
            },
            true);
    }
}

TYPED_TEST(out_of_memory, in_observables_leaves_the_state) {
    using T = TypeParam;
    const auto sum = compiled(random_sum<T>(8, 20, 3, 4));
    for (const bool density_matrix : {false, true}) {
        fails_cleanly<T>(
            "sum", [&](auto& state) { state.expectation_value(sum); }, density_matrix);
        fails_cleanly<T>(
            "terms", [&](auto& state) { state.terms_expectations_values(sum); }, density_matrix);
    }
}

TYPED_TEST(out_of_memory, in_sampled_terms_leaves_the_state_up_to_rounding_and_the_engine_as_it_was) {
    using T = TypeParam;
    const std::vector<pbamplix::SimpleTerm<T>> terms = {
        {{3, 0}, "XY", {1, 0}}, {{2}, "Z", {1, 0}}, {{7, 1, 2}, "YXX", {1, 0}}};
    std::vector<pbamplix::SimpleTerm<double>> precise_terms;
    for (const auto& term : terms) precise_terms.push_back({term.qubits, term.op, {1, 0}});
    const auto start = random_state<T>(16, Values::ordinary, 6);
    double length = 0;
    for (const auto& a : start) length += std::pow(double(a.re), 2) + std::pow(double(a.im), 2);
    for (const int kind : {0, 1, 2}) {  // of a state, of a density matrix, of any norm
        for (const int threads : {1, 3}) {
            const long failures = for_every_allocation([&](long which, Failing::Extent extent) {
                Loaded<T> state(start, threads, kind == 1);
                const Loaded<T> untouched(start, threads, kind == 1);
                const auto [threw, reached] = with_failure(which, extent, [&] {
                    if (kind < 2) state.evaluate_terms(terms, 100);
                    if (kind == 2) {
                        pbamplix::cpu::evaluate_terms_of_any_norm(state.amplitudes.get(), precise_terms, 100, state.rng,
                                                                  16, threads);
                    }
                });
                double difference = 0;
                for (unsigned long i = 0; i < state.size; ++i) {
                    const auto a = state.amplitudes[i], b = untouched.amplitudes[i];
                    difference += std::pow(double(a.real() - b.real()), 2) + std::pow(double(a.imag() - b.imag()), 2);
                }
                EXPECT_LT(std::sqrt(difference / length), sizeof(T) == 4 ? 1e-5 : 1e-13)
                    << "kind " << kind << ", " << threads << " thread(s), allocation " << which;
                if (threw) {
                    EXPECT_EQ(state.rng, untouched.rng) << "kind " << kind << ", allocation " << which;
                }
                return reached;
            });
            EXPECT_GT(failures, 0);
        }
    }
}

TYPED_TEST(out_of_memory, in_loading_leaves_the_state) {
    using T = TypeParam;
    std::vector<thrust::complex<double>> data;
    for (const auto& value : as_thrust(random_coefficients<double>(1ul << n, 1))) data.push_back(value);
    for (const unsigned int k : {0u, 1u, 4u, 10u, n}) {
        auto qubits = first_qubits(k);
        fails_cleanly<T>("preparation of " + std::to_string(k),
                         [&](auto& state) { state.apply_state_preparation(data.data(), qubits); });
        for (unsigned int& q : qubits) q = n - 1 - q;
        fails_cleanly<T>("preparation of the highest " + std::to_string(k),
                         [&](auto& state) { state.apply_state_preparation(data.data(), qubits); });
    }
    const unsigned long values[] = {1, 3, 0, 2};
    const reference::Qubits qubits = {1, 4, 14, 6};
    fails_cleanly<T>("amplitudes by address", [&](auto& state) { state.apply_qram(data.data(), qubits, 2); });
    fails_cleanly<T>("integers by address", [&](auto& state) { state.apply_binary_qram(values, qubits, 2); });
    fails_cleanly<T>("phase oracle", [](auto& state) { state.apply_phase_oracle({1, 2}, {0, 4}); });
}

TYPED_TEST(out_of_memory, in_precise_functions_leaves_the_state) {
    using T = TypeParam;
    using namespace pbamplix::cpu;
    using View = pbamplix::SVSequence<thrust::complex<T>>;
    const auto precise = [](auto& state) {
        return pbamplix::precise_view<View>{View{state.amplitudes.get(), state.nqubits, state.size}};
    };
    std::vector<double> out(8);
    std::vector<unsigned long> shots(3000);
    const reference::Qubits qubits = {3, 0, 14};
    const auto sum = compiled(random_sum<double>(n, 20, 3, 4));
    std::vector<thrust::complex<double>> data(8, 0.5);
    fails_cleanly<T>("distribution", [&](auto& state) {
        write_distribution(precise(state), out.data(), 0, qubits, state.num_threads);
    });
    fails_cleanly<T>("shots", [&](auto& state) {
        pick_shots_state(precise(state), shots.data(), state.rng, shots.size(), state.num_threads, qubits);
    });
    fails_cleanly<T>("shots of any norm", [&](auto& state) {
        const auto pick = [&](auto view) {
            pick_shots_of_any_norm(view, shots.data(), state.rng, shots.size(), state.num_threads, qubits);
        };
        if constexpr (std::is_same_v<T, double>) {
            pick(View(precise(state)));
        } else {
            pick(precise(state));
        }
    });
    fails_cleanly<T>("terms",
                     [&](auto& state) { term_values(state.amplitudes.get(), sum, state.size, state.num_threads); });
    fails_cleanly<T>("overlap", [](auto& state) {
        const auto* amplitudes = state.amplitudes.get();
        EXPECT_GT(overlap(amplitudes, amplitudes, state.size, state.num_threads).real(), 0);
    });
    std::vector<thrust::complex<double>> matrix(1ul << 14);
    for (const unsigned int k : {1u, 6u, 7u}) {
        fails_cleanly<T>("density matrix of " + std::to_string(k), [&](auto& state) {
            reduced_density_matrix(state.amplitudes.get(), n, first_qubits(k), matrix.data(), state.num_threads);
        });
    }
    fails_cleanly<T>("projection", [&](auto& state) {
        pbamplix::cpu::project_then_reset<double>(state.amplitudes.get(), state.size, qubits, 5, state.num_threads);
    });
    fails_cleanly<T>("preparation", [&](auto& state) {
        state_preparation<double>(state.amplitudes.get(), data.data(), n, qubits, state.num_threads);
    });
    fails_cleanly<T>("marginal map", [&](auto& state) {
        const std::unique_ptr<std::map<unsigned long, double>> map(
            map_marginal_distribution<double>(precise(state), 0.0, qubits, state.num_threads));
        EXPECT_EQ(map->size(), 8u);
    });
}

// --- lists of gates -------------------------------------------------------------------------------------------------

namespace {

// Two passes or three.
constexpr unsigned int few_qubits = 14;

template <class T>
pbamplix::PybindAmplixWCircuit<T> some_record() {
    pbamplix::PybindAmplixWCircuit<T> record(few_qubits);
    for (unsigned int q = 0; q < few_qubits; q += 2) {
        record.add_gate("H", {}, {q});
        record.add_gate("RX", {T(0.2)}, {q});
        record.add_gate("CNOT", {}, {q, q + 1});
    }
    return record;
}

}  // namespace

TYPED_TEST(out_of_memory, in_a_record_that_is_filled_leaves_it_whole) {
    for_every_allocation([](long which, Failing::Extent extent) {
        pbamplix::PybindAmplixWCircuit<TypeParam> record(3);
        std::size_t added = 0;
        const std::string long_name(100, 'H');
        const std::vector<TypeParam> params = {1, 2};
        const std::vector<unsigned int> qubits = {0, 1};
        const auto [threw, reached] = with_failure(which, extent, [&] {
            for (; added < 5; ++added) record.add_gate(long_name, params, qubits);
        });
        EXPECT_EQ(threw, reached);
        EXPECT_EQ(record.gates.size(), added);
        EXPECT_EQ(record.qubits.size(), added);
        EXPECT_EQ(record.params.size(), added);
        return reached;
    });
}

TYPED_TEST(out_of_memory, in_a_replay_leaves_the_state) {
    auto record = some_record<TypeParam>();
    fails_cleanly<TypeParam>("record", [&](auto& state) { state.simulate_circuit(record); });
}

TYPED_TEST(out_of_memory, in_a_replay_that_ends_in_a_refusal_leaves_the_state_or_that_of_the_refusal) {
    auto record = some_record<TypeParam>();
    const auto start = random_state<TypeParam>(few_qubits, Values::ordinary, 5);
    const Loaded<TypeParam> untouched(start, 3, false);
    Loaded<TypeParam> complete(start, 3, false);
    complete.simulate_circuit(record);
    record.add_gate("a name that does not fit into a string without an allocation", {}, {});
    for_every_allocation([&](long which, Failing::Extent extent) {
        Loaded<TypeParam> state(start, 3, false);
        const auto [threw, reached] = with_failure(which, extent, [&] {
            try {
                state.simulate_circuit(record);
            } catch (const std::invalid_argument&) {
            }
        });
        EXPECT_TRUE(same_objects(complete, state) || (threw && same_objects(untouched, state))) << which;
        return reached;
    });
}

TYPED_TEST(out_of_memory, in_a_program_that_is_filled_leaves_its_gates) {
    using T = TypeParam;
    const auto matrix = random_matrix<T>(2), diagonal = diagonal_matrix<T>(2);
    const std::vector<thrust::complex<T>> entries = {1, 2, 3, 4};
    const std::function<void(pbamplix::cpu::program<T>&)> additions[] = {
        [](auto& list) {
            list.add_gate("CCNOT", {}, {0, 1, 2}, {3, 4});
        },
        [](auto& list) { list.add_gate("RX", {1}, {0}); },
        [&](auto& list) {
            list.add_matrix(matrix, {0, 1});
        },
        [&](auto& list) {
            list.add_matrix(diagonal, {0, 1}, {3});
        },
        [&](auto& list) {
            list.add_diagonal(entries, {2, 1});
        },
    };
    const auto start = random_state<T>(few_qubits, Values::ordinary, 5);
    for (const auto& add : additions) {
        const long failures = for_every_allocation([&](long which, Failing::Extent extent) {
            pbamplix::cpu::program<T> list(few_qubits);
            list.add_gate("H", {}, {0});
            const auto [threw, reached] = with_failure(which, extent, [&] { add(list); });
            EXPECT_EQ(threw, reached);
            EXPECT_EQ(list.size(), threw ? 1u : 2u);
            Loaded<T> expected(start, 1, false), got(start, 1, false);
            expected.apply_H(0);
            if (!threw) return reached;
            list.run(got);
            EXPECT_TRUE(equal_states(expected, got)) << which;
            return reached;
        });
        EXPECT_GT(failures, 0);
    }
}

TYPED_TEST(out_of_memory, in_the_run_of_a_program_leaves_the_state) {
    using T = TypeParam;
    for (const bool fused : {false, true}) {
        for (const bool planned : {false, true}) {
            const auto start = random_state<T>(few_qubits, Values::ordinary, 5);
            const Loaded<T> untouched(start, 3, false);
            const auto made = [&] {
                Recorder<T> recorder(few_qubits, 4, Recorder<T>::unitary);
                for (int gate = 0; gate < 12; ++gate) recorder.random_gate();
                for (unsigned int q = 0; q < few_qubits; q += 3) recorder.list.add_gate("RY", {T(0.1)}, {q});
                recorder.list.set_fusion(fused);
                if (planned) recorder.list.plan(few_qubits, 3);
                return recorder;
            };
            Loaded<T> complete(start, 3, false);
            made().list.run(complete);
            const long failures = for_every_allocation([&](long which, Failing::Extent extent) {
                Recorder<T> recorder = made();
                Loaded<T> state(start, 3, false);
                const auto [threw, reached] = with_failure(which, extent, [&] { recorder.list.run(state); });
                if (threw) {
                    EXPECT_TRUE(same_objects(untouched, state)) << which;
                    recorder.list.run(state);
                }
                EXPECT_TRUE(same_objects(complete, state)) << which;
                return reached;
            });
            EXPECT_GT(failures, 0);
        }
    }
}

TYPED_TEST(out_of_memory, in_a_run_from_a_basis_state_leaves_the_state) {
    using T = TypeParam;
    const auto before = random_state<T>(few_qubits, Values::ordinary, 5);
    const Loaded<T> untouched(before, 3, false);
    const auto made = [] {
        Recorder<T> recorder(few_qubits, 6, Recorder<T>::unitary);
        for (int gate = 0; gate < 12; ++gate) recorder.random_gate();
        return recorder;
    };
    Loaded<T> complete(before, 3, false);
    made().list.run_from_basis_state(complete, 3);
    const long failures = for_every_allocation([&](long which, Failing::Extent extent) {
        Recorder<T> recorder = made();
        Loaded<T> state(before, 3, false);
        const auto [threw, reached] =
            with_failure(which, extent, [&] { recorder.list.run_from_basis_state(state, 3); });
        if (threw) {
            EXPECT_TRUE(same_objects(untouched, state)) << which;
            recorder.list.run_from_basis_state(state, 3);
        }
        EXPECT_TRUE(same_objects(complete, state)) << which;
        return reached;
    });
    EXPECT_GT(failures, 0);
}

TYPED_TEST(out_of_memory, in_new_angles_or_their_run_leaves_the_old_or_gives_the_new) {
    using T = TypeParam;
    const auto made = [](T angle) {
        pbamplix::cpu::program<T> list(few_qubits);
        for (const unsigned int q : {0u, 4u, 13u}) list.add_gate("RY", {angle}, {q});
        for (unsigned int q = 0; q + 1 < few_qubits; ++q) list.add_gate("CNOT", {}, {q, q + 1});
        for (const unsigned int q : {2u, 12u, 13u}) list.add_gate("RX", {angle}, {q});
        return list;
    };
    const auto start = random_state<T>(few_qubits, Values::ordinary, 5);
    const Loaded<T> untouched(start, 3, false);
    for (const bool fused : {false, true}) {
        Loaded<T> complete(start, 3, false), before(start, 3, false);
        auto new_list = made(T(0.2)), old_list = made(T(0.1));
        new_list.set_fusion(fused);
        old_list.set_fusion(fused);
        new_list.run(complete);
        old_list.run(before);
        for_every_allocation([&](long which, Failing::Extent extent) {
            auto list = made(T(0.1));
            list.set_fusion(fused);
            Loaded<T> state(start, 3, false);
            list.run(state);
            state.load(start);
            const std::vector<double> angle = {T(0.2)};
            unsigned long changed = 0;
            const auto change = [&] {
                for (; changed < list.size(); ++changed) {
                    if (changed < 3 || changed + 3 >= list.size()) list.set_params(changed, angle);
                }
            };
            const auto [threw, reached] = with_failure(which, extent, [&] {
                change();
                list.run(state);
            });
            if (threw && changed == 0) {
                EXPECT_TRUE(same_objects(untouched, state));
                list.run(state);
                EXPECT_TRUE(same_objects(before, state)) << which << ": the old angle still holds";
                state.load(start);
            }
            if (threw) {
                EXPECT_TRUE(same_objects(untouched, state)) << which;
                change();
                list.run(state);
            }
            EXPECT_TRUE(same_objects(complete, state)) << which;
            return reached;
        });
    }
}

// Gates that wait for a later pass are applied when a run is stopped. Without the memory to prepare them it goes on.
TYPED_TEST(out_of_memory, in_a_run_that_is_stopped_leaves_the_state_of_a_prefix) {
    using T = TypeParam;
    using Gate = std::function<void(pbamplix::cpu::program<T>&)>;
    const auto matrix = random_matrix<T>(2);
    std::vector<Gate> gates;
    for (unsigned int q = 0; q < 12; ++q) gates.push_back([=](auto& list) { list.add_gate("H", {}, {q}); });
    gates.push_back([&](auto& list) { list.add_matrix(matrix, {12, 13}); });
    for (unsigned int q = 0; q < 6; ++q) gates.push_back([=](auto& list) { list.add_gate("X", {}, {q}); });
    gates.push_back([](auto& list) { list.add_gate("H", {}, {13}); });
    gates.push_back([](auto& list) { list.add_gate("H", {}, {0}); });
    const auto start = random_state<T>(few_qubits, Values::ordinary, 5);
    bool went_on = false, stopped = false;
    for_every_allocation([&](long which, Failing::Extent extent) {
        pbamplix::cpu::program<T> list(few_qubits);
        for (const Gate& add : gates) add(list);
        Loaded<T> state(start, 1, false);
        const typename pbamplix::cpu::program<T>::progress_hook stop = [](unsigned long, unsigned long) {
            return false;
        };
        list.plan(few_qubits, 1);
        unsigned long applied = 0;
        const auto [threw, reached] = with_failure(which, extent, [&] { applied = list.run(state, stop); });
        went_on = went_on || (reached && applied == gates.size());
        stopped = stopped || (!reached && applied < gates.size());
        Loaded<T> expected(start, 1, false);
        pbamplix::cpu::program<T> prefix(few_qubits);
        for (unsigned long gate = 0; gate < applied; ++gate) gates[gate](prefix);
        prefix.run(expected);
        EXPECT_TRUE(equal_states(expected, state)) << which << ", " << applied << " gates";
        return reached;
    });
    EXPECT_TRUE(stopped);
    EXPECT_TRUE(went_on);
}
