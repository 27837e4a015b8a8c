#include "support/named_gates.hpp"
#include "support/pauli_sums.hpp"
#include "support/precision.hpp"
#include "support/random_circuit.hpp"
#include "support/recorded_program.hpp"

#include <omp.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

// A host that computes on threads of its own, each with objects of its own: the library gives each of them what it
// gives a single thread, bit for bit, whatever team the host is in and whatever number of threads it asks for.

using namespace support;

PRECISION_SUITE(hosts_with_threads);

namespace {

// What every kind of member gives, by its name.
using Results = std::map<std::string, std::string>;

template <class Number>
std::string bytes_of(const Number* numbers, std::size_t count) {
    return {reinterpret_cast<const char*>(numbers), count * sizeof(Number)};
}
template <class Number>
std::string bytes_of(const std::vector<Number>& numbers) {
    return bytes_of(numbers.data(), numbers.size());
}
template <class T>
std::string bytes_of(const StateVector<T>& state) {
    return bytes_of(state.amplitudes.get(), state.size);
}
template <class Number>
std::string bytes_of(const std::map<unsigned long, Number>& entries) {
    std::string bytes;
    for (const auto& [key, value] : entries) bytes += bytes_of(&key, 1) + bytes_of(&value, 1);
    return bytes;
}

// Takes one member after another through a state of n qubits.
template <class T>
class Work {
public:
    Work(unsigned int n, int threads, unsigned int seed)
        : n_(n), threads_(threads), seed_(seed), start_(random_state<T>(n, Values::ordinary, seed)) {}

    Results everything() {
        gates();
        lists_of_gates();
        readout();
        exports();
        density_matrix();
        observables();
        projection();
        loading();
        lifecycle();
        return std::move(results_);
    }

private:
    using Amplitude = thrust::complex<T>;

    struct Fresh : LoadedVector<T> {
        explicit Fresh(const Work& work) : LoadedVector<T>(work.start_, work.threads_) { this->rng.seed(work.seed_); }
    };

    void keep(const std::string& name, std::string bytes) { results_[name] = std::move(bytes); }

    void on_fresh(const std::string& name, const std::function<void(StateVector<T>&)>& change) {
        Fresh state(*this);
        change(state);
        keep(name, bytes_of(state));
    }

    void gates() {
        const Recorder<T> recorder = recorded(Recorder<T>::any);
        on_fresh("gates one by one", [&](auto& state) { recorder.apply(state, gate_count); });
        on_fresh("dense matrices", [&](auto& state) {
            for (const unsigned int k : {1u, 2u, 3u, 4u, 7u}) {
                const auto matrix = as_thrust(random_coefficients<T>(1ul << 2 * k, seed_));
                reference::Qubits qubits;
                for (unsigned int i = 0; i < k; ++i) qubits.push_back((3 * i + 1) % n_);
                if (k == 1) state.apply_1qbit_gate(qubits[0], matrix);
                if (k == 2) state.apply_2qbit_gate(qubits[0], qubits[1], matrix);
                if (k > 2) state.apply_nqbit_gate(qubits, matrix);
                // Random matrices are far from unitary: kept within the range of single precision.
                state.project({}, 0);
            }
        });
    }

    Recorder<T> recorded(typename Recorder<T>::Matrices matrices) const {
        Recorder<T> recorder(n_, seed_, matrices);
        for (unsigned int gate = 0; gate < gate_count; ++gate) recorder.random_gate();
        return recorder;
    }

    void lists_of_gates() {
        Recorder<T> recorder = recorded(Recorder<T>::unitary);
        on_fresh("program", [&](auto& state) { recorder.list.run(state); });
        on_fresh("program again", [&](auto& state) { recorder.list.run(state); });
        on_fresh("program with a hook",
                 [&](auto& state) { recorder.list.run(state, [](unsigned long, unsigned long) { return true; }); });
        recorder.list.set_fusion(true);
        on_fresh("fused program", [&](auto& state) { recorder.list.run(state); });
        pbamplix::PybindAmplixWCircuit<T> record(n_);
        for (const auto& gate : random_circuit<T>(n_, gate_count, seed_)) {
            const bool turns = gate.name[0] == 'R' || gate.name == "PH";
            record.add_gate(gate.name, turns ? std::vector<T>{gate.angle} : std::vector<T>{}, gate.qubits);
        }
        on_fresh("record", [&](auto& state) { state.simulate_circuit(record); });
    }

    void readout() {
        Fresh state(*this);
        std::vector<T> values = {state.probability(1), state.probability(2, reference::Qubits{0, n_ - 1}),
                                 state.probability(0, reference::Qubits{})};
        keep("probability", bytes_of(values));
        for (const unsigned int k : {0u, 2u, 5u, n_}) {
            reference::Qubits qubits;
            for (unsigned int i = 0; i < k; ++i) qubits.push_back(n_ - 1 - i);
            values.assign(1ul << k, T(0));
            state.get_distribution(values.data(), T(0), qubits);
            keep("distribution of " + std::to_string(k), bytes_of(values));
        }
        std::vector<unsigned long> shots(3000);
        state.sample(shots.data(), shots.size());
        keep("sample", bytes_of(shots));
        state.sample_subset(shots.data(), {3, 0, n_ - 1}, shots.size());
        keep("sample of some qubits", bytes_of(shots));
        shots = {state.measure({}), state.measure({n_ - 1, 0}), state.rng()};
        keep("measure", bytes_of(shots));
    }

    void exports() {
        Fresh state(*this);
        std::vector<Amplitude> copy(state.size);
        state.get_permuted_statevector(copy.data(), T(0));
        keep("dense export", bytes_of(copy));
        state.get_permuted_statevector(copy.data(), T(0.25));
        keep("dense export above a threshold", bytes_of(copy));
        const std::unique_ptr<std::map<unsigned long, Amplitude>> entries(state.get_mapped_statevector(T(1.2)));
        keep("sparse export", bytes_of(*entries));
        const std::unique_ptr<std::map<unsigned long, T>> outcomes(state.get_mapped_distribution(T(0.5), {3, 0, 5}));
        keep("sparse marginal", bytes_of(*outcomes));
    }

    void density_matrix() {
        const unsigned int half = n_ / 2;
        LoadedVector<T> state(random_state<T>(2 * half, Values::ordinary, seed_), threads_);
        state.set_is_density_matrix(true);
        std::vector<T> diagonal(1ul << half);
        state.get_permuted_density_diag(diagonal.data(), T(0));
        keep("diagonal of a density matrix", bytes_of(diagonal));
        std::vector<Amplitude> copy(1ul << 2 * half);
        state.get_permuted_density_matrix(copy.data(), T(0));
        keep("density matrix", bytes_of(copy));
        const std::unique_ptr<std::map<unsigned long, T>> entries(state.get_mapped_density_diag(T(0.1)));
        keep("sparse diagonal", bytes_of(*entries));
        keep("observable of a density matrix", bytes_of(state.terms_expectations_values(sum(half))));
    }

    WObservable<T> sum(unsigned int qubits) const { return compiled(random_sum<T>(qubits, 6, 3, seed_)); }

    void observables() {
        Fresh state(*this);
        const Amplitude value = state.expectation_value(sum(n_));
        keep("expectation value", bytes_of(&value, 1));
        keep("values of terms", bytes_of(state.terms_expectations_values(sum(n_))));
        keep("sampled terms", bytes_of(state.evaluate_terms({{{n_ - 1, 0}, "XY", {1, 0}}, {{2}, "Z", {1, 0}}}, 500)));
        keep("state after sampled terms", bytes_of(state));
    }

    void projection() {
        on_fresh("projection", [&](auto& state) { state.project({n_ - 1, 2}, 1); });
        on_fresh("projection with reset", [](auto& state) { state.project_then_reset({5, 0}, 3); });
    }

    void loading() {
        std::vector<thrust::complex<double>> data;
        for (const auto& value : as_thrust(random_coefficients<double>(16, seed_))) data.push_back(value);
        const reference::Qubits qubits = {1, 4, n_ - 1, 6};
        on_fresh("preparation", [&](auto& state) { state.apply_state_preparation(data.data(), qubits); });
        on_fresh("amplitudes by address", [&](auto& state) { state.apply_qram(data.data(), qubits, 2); });
        const unsigned long values[] = {1, 3, 0, 2};
        on_fresh("integers by address", [&](auto& state) { state.apply_binary_qram(values, qubits, 2); });
        on_fresh("phase oracle", [](auto& state) { state.apply_phase_oracle({1, 2}, {0, 4}); });
    }

    void lifecycle() {
        StateVector<T> state(2);
        state.set_num_threads(threads_);
        state.resize(n_);
        state.reset();
        keep("reset", bytes_of(state));
        state.reset_to_str(std::string(n_ - 4, '+') + "01-0");
        keep("reset to a product", bytes_of(state));
        state.resize(4);
        const std::string text = state.str();
        keep("text", text);
        state.release_memory();
    }

    static constexpr unsigned int gate_count = 40;

    unsigned int n_;
    int threads_;
    unsigned int seed_;
    reference::State<T> start_;
    Results results_;
};

// Sizes at which a list of gates is cut into passes, below and above that at which a gate's work is shared out.
constexpr unsigned int small = 13, large = 15;

// What one thread gets, worked out once.
template <class T>
const Results& expected_results(unsigned int n, unsigned int seed) {
    static std::map<std::pair<unsigned int, unsigned int>, Results> known;
    Results& results = known[{n, seed}];
    if (results.empty()) results = Work<T>(n, 1, seed).everything();
    return results;
}

// The names of results that are not as they should be.
std::string different(const Results& expected, const Results& got) {
    std::string names;
    for (const auto& [name, bytes] : expected) {
        const auto found = got.find(name);
        if (found == got.end() || found->second != bytes) names += names.empty() ? name : ", " + name;
    }
    return expected.size() == got.size() ? names : names + " (and another number of results)";
}

// `run_all(count, part)` calls part(0) ... part(count - 1), each on a thread of its own as the host has them.
template <class T, class RunAll>
void expect_the_results_of_one_thread(const std::string& host, int hosts, unsigned int n, int threads, RunAll run_all) {
    std::vector<Results> got(static_cast<std::size_t>(hosts));
    for (unsigned int i = 0; i < got.size(); ++i) expected_results<T>(n, i);  // by the first thread, before all others
    run_all(hosts, [&](unsigned int i) { got[i] = Work<T>(n, threads, i).everything(); });
    for (unsigned int i = 0; i < got.size(); ++i) {
        EXPECT_EQ(different(expected_results<T>(n, i), got[i]), "")
            << hosts << ' ' << host << ", each asking for " << threads << ", " << n << " qubits, thread " << i;
    }
}

// The host's own parallel region. The library is called on every thread of its team.
const auto run_in_a_region = [](int count, const auto& part) {
#pragma omp parallel num_threads(count)
    {
        // The runtime may give fewer threads than it is asked for.
        const int team = omp_get_num_threads();
        for (int i = omp_get_thread_num(); i < count; i += team) part(static_cast<unsigned int>(i));
    }
};

const auto run_on_threads = [](int count, const auto& part) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) threads.emplace_back([&part, i] { part(static_cast<unsigned int>(i)); });
    for (std::thread& thread : threads) thread.join();
};

// OpenMP's settings are put back, whatever happens.
struct KeptSettings {
    int threads = omp_get_max_threads();
    int levels = omp_get_max_active_levels();
    ~KeptSettings() {
        omp_set_num_threads(threads);
        omp_set_max_active_levels(levels);
    }
};

}  // namespace

TYPED_TEST(hosts_with_threads, in_a_region_of_their_own_get_the_results_of_one_thread) {
    for (const int team : {2, 4, 8}) {
        expect_the_results_of_one_thread<TypeParam>("threads of a region", team, small, 1, run_in_a_region);
    }
    for (const int threads : {0, 3}) {
        expect_the_results_of_one_thread<TypeParam>("threads of a region", 2, large, threads, run_in_a_region);
    }
}

TYPED_TEST(hosts_with_threads, in_a_region_whose_inner_regions_have_teams_get_the_results_of_one_thread) {
    const KeptSettings settings;
    omp_set_max_active_levels(2);
    expect_the_results_of_one_thread<TypeParam>("threads of a region", 2, large, 3, run_in_a_region);
}

TYPED_TEST(hosts_with_threads, made_by_the_standard_library_get_the_results_of_one_thread) {
    for (const int count : {2, 4, 8}) {
        expect_the_results_of_one_thread<TypeParam>("standard threads", count, small, 1, run_on_threads);
    }
    for (const int threads : {0, 3}) {
        expect_the_results_of_one_thread<TypeParam>("standard threads", 2, large, threads, run_on_threads);
    }
}

// A program that was planned for one default team runs on another: in turns, on other host threads with other
// defaults, and from a hook that changes the default between two passes.
TYPED_TEST(hosts_with_threads, that_change_the_default_team_between_runs_get_the_results_of_one_thread) {
    const KeptSettings settings;
    const auto& expected = expected_results<TypeParam>(large, 5);
    for (const int team : {1, 8, 2, 64}) {
        omp_set_num_threads(team);
        EXPECT_EQ(different(expected, Work<TypeParam>(large, 0, 5).everything()), "") << "team of " << team;
    }
    for (const bool fused : {false, true}) {
        Recorder<TypeParam> recorder(large, 6, Recorder<TypeParam>::unitary);
        for (int gate = 0; gate < 40; ++gate) recorder.random_gate();
        recorder.list.set_fusion(fused);
        const auto start = random_state<TypeParam>(large, Values::ordinary, 6);
        LoadedVector<TypeParam> one(start, 1);
        recorder.list.run(one);
        const auto run = [&](const std::string& what, const std::function<bool(unsigned long, unsigned long)>& hook) {
            LoadedVector<TypeParam> got(start, 0);
            recorder.list.run(got, hook);
            EXPECT_TRUE(equal_states(one, got)) << what << (fused ? ", fused" : "");
        };
        for (const int team : {1, 64, 2, 7}) {
            omp_set_num_threads(team);
            run("team of " + std::to_string(team), {});
            std::thread([&] {
                omp_set_num_threads(team + 30);
                run("on another thread, team of " + std::to_string(team + 30), {});
            }).join();
        }
        omp_set_num_threads(1);
        int next = 2;
        run("growing while it runs", [&](unsigned long, unsigned long) {
            omp_set_num_threads(next *= 2);
            return true;
        });
    }
}
