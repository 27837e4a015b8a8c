// Prints one line for each of many computations: its group, name, number of threads, and a hash of the bits it gave,
// with tabs between them. state_hashes.py compares them between the builds of the library that a loader may pick,
// between numbers of threads, and with what is stored.
//
// The groups: `exact` uses no sine or cosine and must give the same bits everywhere; `sines` takes them from the C
// library; `fused` rounds as the plan of a fused program has it, and as the processor does in a block of gates. What
// each of the last two takes from the C library and the processor is told by a line of its own, `key`.

#include <velacamplix/velacamplix.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace pbamplix::cpu;

unsigned long hash_of(const void* data, std::size_t bytes, unsigned long hash = 0xcbf29ce484222325ul) {
    constexpr unsigned long prime = 0x100000001b3ul;
    const auto* at = static_cast<const unsigned char*>(data);
    for (; bytes >= sizeof(unsigned long); bytes -= sizeof(unsigned long), at += sizeof(unsigned long)) {
        unsigned long word;
        std::memcpy(&word, at, sizeof(word));
        hash = (hash ^ word) * prime;
        hash ^= hash >> 29;  // a product alone never brings high bits down
    }
    for (; bytes > 0; --bytes, ++at) hash = (hash ^ *at) * prime;
    return hash;
}

constexpr double angles[] = {0.3, 0.7, 1.1, 1.9, 2.3, -0.5, -1.3, -2.9};

// Blocks of fused gates round a product and a sum together where the processor can.
unsigned long hash_of_rounding(unsigned long hash) {
    const char* const set = pbamplix::instruction_set();
    return std::strcmp(set, "x86-64") == 0 ? hash : hash_of("fused", 5, hash);
}

// What the C library says of every angle that is used below, whole for PH and halved for the rotations.
template <class T>
unsigned long hash_of_sines(unsigned long hash) {
    for (const double angle : angles) {
        for (const T a : {T(angle), T(angle) * T(0.5)}) {
            const T both[] = {std::sin(a), std::cos(a)};
            hash = hash_of(both, sizeof(both), hash);
        }
    }
    return hash;
}

// Fusion also takes lengths of complex numbers.
unsigned long hash_of_lengths(unsigned long hash) {
    std::mt19937_64 engine(1);
    for (int i = 0; i < 1000; ++i) {
        const auto part = [&] { return static_cast<double>(engine() % 2001) / 1000 - 1; };
        const double re = part();
        const double length = std::abs(std::complex<double>(re, part()));
        hash = hash_of(&length, sizeof(length), hash);
    }
    return hash;
}

template <class T>
class computations {
public:
    explicit computations(unsigned int n) : n_(n), state_(n) {
        const T scale = std::sqrt(T(1.5) / static_cast<T>(state_.size));
        for (unsigned long i = 0; i < state_.size; ++i) random_.push_back(random_complex<T>() * scale);
    }

    void print_all(int threads) {
        threads_ = threads;
        print_gates();
        print_readout();
        print_shots();
        print_observables();
        print_inner_products();
        print_projections();
        print_loading();
        print_exports();
        if (n_ % 2 == 0) print_density_matrix();
        print_rotations();
    }

private:
    using State = PybindAmplixStateVectorCPU<T>;
    using C = thrust::complex<T>;
    using Qubits = std::vector<unsigned int>;

    T number() { return T(engine_() % 2001) / 1000 - 1; }
    // Not `{number(), number()}` as arguments: their order would be the compiler's.
    template <class Number>
    thrust::complex<Number> random_complex() {
        const auto re = static_cast<Number>(number());
        return {re, static_cast<Number>(number())};
    }
    T angle() { return T(angles[engine_() % std::size(angles)]); }

    Qubits different_qubits(unsigned int count, unsigned int below) {
        Qubits qubits;
        while (qubits.size() < std::min(count, below)) {
            const auto q = static_cast<unsigned int>(engine_() % below);
            if (std::find(qubits.begin(), qubits.end(), q) == qubits.end()) qubits.push_back(q);
        }
        return qubits;
    }
    Qubits different_qubits(unsigned int count) { return different_qubits(count, n_); }

    // Every computation has random numbers of its own, so that a new one does not change those behind it.
    void begin(const std::string& name) {
        name_ = name;
        engine_.seed(hash_of(name.data(), name.size()));
        state_.is_density_matrix = false;
        state_.set_num_threads(threads_);
        state_.rng.seed(engine_());
    }

    // A state of random numbers with a length near 1.
    State& random_state(const std::string& name) {
        begin(name);
        std::copy(random_.begin(), random_.end(), state_.amplitudes.get());
        return state_;
    }

    // Random entries, with probabilities on the diagonal.
    State& random_density_matrix(const std::string& name) {
        random_state(name).is_density_matrix = true;
        const unsigned long dim = 1ul << n_ / 2;
        for (unsigned long k = 0; k < dim; ++k) {
            C& entry = state_.amplitudes[k * (dim + 1)];
            entry = C((number() + 1) / static_cast<T>(dim), entry.imag());
        }
        return state_;
    }

    void print(const char* group, const void* data, std::size_t bytes, const char* what = "") const {
        std::printf("%s\t%s, %u qubits, %s%s\t%d\t%016lx\n", group, sizeof(T) == 4 ? "single" : "double", n_,
                    name_.c_str(), what, threads_, hash_of(data, bytes));
    }
    template <class Number>
    void print(const std::vector<Number>& numbers, const char* what = "") const {
        print("exact", numbers.data(), numbers.size() * sizeof(Number), what);
    }
    void print_state(const char* group = "exact", const char* what = ", state") const {
        print(group, state_.amplitudes.get(), state_.size * sizeof(C), what);
    }
    // Maps belong to the caller.
    template <class V>
    void print_map(std::map<unsigned long, V>* given, const char* what) const {
        const std::unique_ptr<std::map<unsigned long, V>> map(given);
        std::vector<unsigned long> keys;
        std::vector<V> values;
        for (const auto& [key, value] : *map) {
            keys.push_back(key);
            values.push_back(value);
        }
        print(keys, (std::string(what) + ", keys").c_str());
        print(values, (std::string(what) + ", values").c_str());
    }

    // --- gates -------------------------------------------------------------------------------------------------------

    template <class Number>
    std::vector<thrust::complex<Number>> random_entries(unsigned long count) {
        std::vector<thrust::complex<Number>> entries;
        for (unsigned long i = 0; i < count; ++i) entries.push_back(random_complex<Number>());
        return entries;
    }

    program<T> random_program(unsigned int gates, bool rotations) {
        const char* const plain[] = {"X", "Y", "Z", "H", "S", "T", "ZtoY", "YtoZ"};
        const char* const turned[] = {"RX", "RY", "RZ", "PH"};
        const char* const two[] = {"CNOT", "CSIGN", "SWAP", "ISWAP", "SQRTSWAP"};
        program<T> list(n_);
        for (unsigned int gate = 0; gate < gates; ++gate) {
            const unsigned long kind = engine_() % 3;
            const bool controlled = engine_() % 4 == 0;
            auto qubits = different_qubits(kind == 2 || controlled ? 2 : 1);
            Qubits controls;
            if (kind != 2 && controlled) {
                controls.push_back(qubits.back());
                qubits.pop_back();
            }
            if (kind == 0) list.add_gate(plain[engine_() % std::size(plain)], {}, qubits, controls);
            if (kind == 1 && rotations) {
                list.add_gate(turned[engine_() % std::size(turned)], {angle()}, qubits, controls);
            }
            if (kind == 1 && !rotations) {
                const bool diagonal = engine_() % 2 == 0;
                const auto entries = unitary_entries(diagonal);
                diagonal ? list.add_diagonal(entries, qubits, controls) : list.add_matrix(entries, qubits, controls);
            }
            if (kind == 2) list.add_gate(two[engine_() % std::size(two)], {}, qubits);
        }
        return list;
    }

    // From the Pythagorean triples 3, 4, 5 and 5, 12, 13: lengths of 1 without a root.
    std::vector<C> unitary_entries(bool diagonal) {
        const C a = engine_() % 2 == 0 ? C(T(0.6), T(0.8)) : C(T(5) / 13, T(-12) / 13);
        if (diagonal) return {a, C(-a.imag(), a.real())};
        return {C(a.real(), 0), C(0, a.imag()), C(0, a.imag()), C(a.real(), 0)};
    }

    // On the largest states little is done, of each kind: there it shows whether blocks, sections and threads are kept.
    bool is_large() const { return n_ > 16; }
    unsigned int gates_of_a_program() const { return is_large() ? 40 : 400; }

    void print_gates() {
        State& state = random_state("gates");
        program<T> list = random_program(gates_of_a_program(), false);
        list.run(state);
        print_state();

        random_state("record");
        const char* const names[] = {"H", "X", "Y", "Z", "T", "CNOT", "SWAP"};
        pbamplix::PybindAmplixWCircuit<T> record(n_);
        for (unsigned int gate = 0; gate < gates_of_a_program(); ++gate) {
            const std::string name = names[engine_() % std::size(names)];
            record.add_gate(name, {}, different_qubits(name == "CNOT" || name == "SWAP" ? 2 : 1));
        }
        state.simulate_circuit(record);
        print_state();

        for (unsigned int k = 1; k <= std::min(n_, is_large() ? 3u : 7u); ++k) {
            random_state("matrix on " + std::to_string(k));
            const auto m = random_entries<T>(1ul << 2 * k);
            const auto qubits = different_qubits(k);
            if (k == 1) state.apply_1qbit_gate(qubits[0], m);
            if (k == 2) state.apply_2qbit_gate(qubits[0], qubits[1], m);
            if (k > 2) state.apply_nqbit_gate(qubits, m);
            print_state();
        }
        for (unsigned int k = 1; k <= std::min(n_ - 1, 10u); k += is_large() ? 9 : 3) {
            random_state("controlled diagonal on " + std::to_string(k));
            const auto entries = random_entries<T>(1ul << k);
            std::vector<C> matrix(1ul << 2 * k);
            for (unsigned long i = 0; i < entries.size(); ++i) matrix[i * (entries.size() + 1)] = entries[i];
            auto qubits = different_qubits(k + 1);
            const Qubits control = {qubits.back()};
            qubits.pop_back();
            state.apply_nqbit_ctrl_gate(control, qubits, matrix);
            print_state();
        }
    }

    // --- readout -----------------------------------------------------------------------------------------------------

    pbamplix::SVSequence<C> view() const { return {state_.amplitudes.get(), n_, state_.size}; }

    void print_readout() {
        State& state = random_state("readout");
        for (const unsigned int k : {0u, 2u, 10u}) {
            const auto qubits = different_qubits(k);
            std::vector<T> distribution(1ul << qubits.size());
            state.get_distribution(distribution.data(), T(0.01), qubits);
            print(distribution, (", distribution over " + std::to_string(k)).c_str());
            std::vector<double> precise(distribution.size());
            write_distribution(pbamplix::precise_view<pbamplix::SVSequence<C>>{view()}, precise.data(), 0, qubits,
                               threads_);
            print(precise, (", precise distribution over " + std::to_string(k)).c_str());
        }
        std::vector<T> probabilities = {state.probability(0, Qubits{}), state.probability(1)};
        for (unsigned int q = 0; q < n_; ++q) probabilities.push_back(state.probability(1, Qubits{q}));
        print(probabilities, ", probabilities");
    }

    void print_shots() {
        State& state = random_state("shots");
        std::vector<unsigned long> shots(5000);
        state.sample(shots.data(), shots.size());
        print(shots, " of all");
        state.sample_subset(shots.data(), different_qubits(3), shots.size());
        print(shots, " of three");
        const std::vector<unsigned int> none;
        pick_shots_state(pbamplix::precise_view<pbamplix::SVSequence<C>>{view()}, shots.data(), state.rng, 5000ul,
                         threads_, none);
        print(shots, ", precise");
        std::vector<unsigned long> outcomes;
        for (int i = 0; i < 5; ++i) outcomes.push_back(state.measure(different_qubits(2)));
        print(outcomes, ", outcomes");
    }

    // --- observables -------------------------------------------------------------------------------------------------

    // Terms that flip nothing, that flip the same qubits, and others.
    template <class Number>
    WObservable<Number> random_observable(unsigned int qubits, unsigned int terms) {
        WObservable<Number> sum;
        const unsigned long all = (1ul << qubits) - 1;
        const unsigned long shared = engine_() & all;
        for (unsigned int t = 0; t < terms; ++t) {
            const unsigned long flip = t % 3 == 0 ? 0 : t % 3 == 1 ? shared : engine_() & all;
            const unsigned long phase = engine_() & all;
            sum.coefficients.push_back(random_complex<Number>());
            sum.flip_masks.push_back(flip);
            sum.phase_masks.push_back(phase);
            sum.y_counts.push_back(static_cast<unsigned int>(__builtin_popcountl(flip & phase)));
        }
        sum.constant = Number(0.5);
        sum.nqubits = qubits;
        return sum;
    }

    template <class Number>
    std::vector<pbamplix::SimpleTerm<Number>> random_terms(unsigned int qubits) {
        std::vector<pbamplix::SimpleTerm<Number>> terms;
        for (unsigned int t = 0; t < 4; ++t) {
            pbamplix::SimpleTerm<Number> term;
            term.qubits = different_qubits(1 + t, qubits);
            for (std::size_t i = 0; i < term.qubits.size(); ++i) term.op += "XYZ"[engine_() % 3];
            term.coefficient = random_complex<Number>();
            terms.push_back(term);
        }
        return terms;
    }

    void print_inner_products() {
        State& state = random_state("inner products");
        std::vector<thrust::complex<double>> other;
        for (unsigned long i = 0; i < state.size; ++i) other.push_back(random_complex<double>());
        print(std::vector{overlap(state.amplitudes.get(), other.data(), state.size, threads_)}, ", overlap");
        for (const unsigned int k : {0u, 1u, 2u, 3u, 5u, 6u, 7u}) {
            const auto qubits = different_qubits(k);
            std::vector<thrust::complex<double>> matrix(1ul << 2 * qubits.size());
            reduced_density_matrix(state.amplitudes.get(), n_, qubits, matrix.data(), threads_);
            print(matrix, (", density matrix of " + std::to_string(k)).c_str());
        }
    }

    void print_observables() {
        State& state = random_state("exact terms");
        const auto sum = random_observable<T>(n_, 30);
        print(state.terms_expectations_values(sum));
        print(std::vector<C>{state.expectation_value(sum)}, ", sum");
        print(term_values(state.amplitudes.get(), random_observable<double>(n_, 30), state.size, threads_),
              ", precise");

        random_state("sampled terms");
        print(state.evaluate_terms(random_terms<T>(n_), 300));
        print(
            evaluate_terms_of_any_norm(state.amplitudes.get(), random_terms<double>(n_), 300, state.rng, n_, threads_),
            ", precise");
        print_state();
    }

    // --- projection and loading --------------------------------------------------------------------------------------

    void print_projections() {
        const auto project = [&](const char* name, auto act) {
            random_state(name);
            const auto qubits = different_qubits(n_ < 5 ? 1 : 3);
            act(qubits, engine_() % (1ul << qubits.size()));
            print_state();
        };
        State& state = state_;
        project("projection", [&](const Qubits& qubits, unsigned long value) { state.project(qubits, value); });
        project("projection with reset",
                [&](const Qubits& qubits, unsigned long value) { state.project_then_reset(qubits, value); });
        project("precise projection with reset", [&](const Qubits& qubits, unsigned long value) {
            pbamplix::cpu::project_then_reset<double>(state.amplitudes.get(), state.size, qubits, value, threads_);
        });
    }

    void print_loading() {
        State& state = state_;
        for (const unsigned int k : {1u, 4u, n_}) {
            if (k > n_) continue;
            random_state("preparation of " + std::to_string(k));
            auto data = random_entries<double>(1ul << k);
            const auto qubits = different_qubits(k);
            state.apply_state_preparation(data.data(), qubits);
            print_state();
            state_preparation<double>(state.amplitudes.get(), data.data(), n_, qubits, threads_);
            print_state("exact", ", precise");
        }
        random_state("amplitudes by address");
        const auto registers = different_qubits(std::min(n_, 7u));
        const auto naddress = static_cast<unsigned int>(registers.size() / 2);
        const auto data = random_entries<double>(1ul << registers.size());
        state.apply_qram(data.data(), registers, naddress);
        print_state();

        random_state("integers by address");
        std::vector<unsigned long> values;
        for (unsigned long a = 0; a < 1ul << naddress; ++a) values.push_back(engine_());
        state.apply_binary_qram(values.data(), registers, naddress);
        print_state();

        random_state("phase oracle");
        const auto qubits = different_qubits(std::min(n_, 4u));
        state.apply_phase_oracle({0, 1, engine_() % (1ul << qubits.size())}, qubits);
        print_state();

        begin("product state");
        std::string text;
        for (unsigned int q = 0; q < n_; ++q) text += "01+-+-"[engine_() % 6];
        state.reset_to_str(text);
        print_state();
    }

    // --- exports -----------------------------------------------------------------------------------------------------

    // A magnitude that a random part of some hundred entries lies above.
    T high_threshold(T scale) const { return scale * (n_ < 10 ? T(0.5) : T(1.4)); }

    void print_exports() {
        State& state = random_state("exports");
        const T threshold = high_threshold(std::sqrt(T(1.5) / static_cast<T>(state.size)));
        std::vector<C> copy(state.size);
        for (const T t : {T(0), threshold}) {
            state.get_permuted_statevector(copy.data(), t);
            print(copy, t == T(0) ? ", copy" : ", copy above a threshold");
        }
        if (n_ <= 13) print_map(state.get_mapped_statevector(0), ", map");
        if (n_ <= 19) print_map(state.get_mapped_statevector(threshold), ", map above a threshold");
        print_map(state.get_mapped_distribution(T(0.01), different_qubits(std::min(n_, 8u))), ", marginal map");
        state.reset(reinterpret_cast<unsigned long>(copy.data()));
        print_state("exact", ", state from a copy");
    }

    void print_density_matrix() {
        const unsigned int m = n_ / 2;
        State& rho = random_density_matrix("density matrix");
        std::vector<T> diagonal(1ul << m), distribution(1ul << std::min(m, 3u));
        rho.get_permuted_density_diag(diagonal.data(), T(0.01));
        print(diagonal, ", diagonal");
        rho.get_distribution(distribution.data(), 0, different_qubits(std::min(m, 3u), m));
        print(distribution, ", distribution");
        print_map(rho.get_mapped_density_diag(T(0.02)), ", map");
        std::vector<unsigned long> shots(1000);
        rho.sample(shots.data(), shots.size());
        print(shots, ", shots");
        print(rho.terms_expectations_values(random_observable<T>(m, 20)), ", exact terms");
        print(term_values_density_matrix(rho.amplitudes.get(), random_observable<double>(m, 20), threads_, m),
              ", precise terms");
        print(rho.evaluate_terms(random_terms<T>(m), 300), ", sampled terms");
        print_state();
    }

    // --- what needs sines and cosines --------------------------------------------------------------------------------

    void print_gradient() {
        begin("gradient");
        const char* const names[] = {"RX", "RY", "RZ", "PH"};
        program<T> list(n_);
        std::vector<unsigned long> turned;
        for (unsigned int gate = 0; gate < gates_of_a_program() / 4; ++gate) {
            Qubits qubits = different_qubits(2), control;
            if (engine_() % 3 == 0) control.push_back(qubits[1]);
            turned.push_back(list.size());
            list.add_gate(names[engine_() % std::size(names)], {angle()}, {qubits[0]}, control);
            list.add_gate(engine_() % 2 == 0 ? "CNOT" : "ISWAP", {}, qubits);
        }
        std::vector<WObservable<double>> observables;
        for (int k = 0; k < 2; ++k) {
            observables.push_back(random_observable<double>(n_, 5));
            for (auto& c : observables.back().coefficients) c = c.real();
        }
        const auto result = list.gradient(observables, turned, {.nthreads = threads_});
        const auto print_numbers = [&](const std::vector<double>& numbers, const char* what) {
            print("sines", numbers.data(), numbers.size() * sizeof(double), what);
        };
        print_numbers(result.values, ", values");
        print_numbers(result.derivatives, ", derivatives");
        print_numbers({result.return_error}, ", way back");
    }

    // Not of the group `exact`: when events happen follows from logarithms, which differ where sines do.
    void print_trajectories() {
        begin("trajectories");
        const double gamma = 0.1;
        const T kept = static_cast<T>(std::sqrt(1 - gamma));
        const std::vector<noise_channel> channels = {
            {{{"I", {}}, {"X", {}}, {"Y", {}}}, {0.9, 0.06, 0.04}, 0, true},
            {{{"", {1, 0, 0, std::sqrt(1 - gamma)}}, {"", {0, std::sqrt(gamma), 0, 0}}}, {1 - gamma, 0}, 0, false},
        };
        program<T> list(n_);
        std::vector<noise_site> sites;
        for (unsigned int gate = 0; gate < gates_of_a_program() / 8; ++gate) {
            const Qubits qubits = different_qubits(2);
            list.add_gate(engine_() % 2 == 0 ? "H" : "YtoZ", {}, {qubits[0]});
            sites.push_back({list.size(), false, 0, {qubits[0]}});
            list.add_gate("CNOT", {}, qubits);
            sites.push_back({list.size(), true, 1, {qubits[1]}});
            list.add_matrix({T(1), T(0), T(0), kept}, {qubits[1]});
        }
        std::vector<unsigned long> outcomes(is_large() ? 4 : 100);
        trajectory_settings settings{.seed = 11, .shots = outcomes.size(), .nthreads = threads_};
        settings.outcomes = outcomes.data();
        settings.measured = different_qubits(2);
        settings.observables = {random_observable<double>(n_, 5)};
        const auto result = trajectories<T>(list, channels, sites).run(settings);
        print("sines", outcomes.data(), outcomes.size() * sizeof(outcomes[0]), ", outcomes");
        print("sines", result.means.data(), sizeof(result.means[0]), ", means");
        print("sines", result.standard_errors.data(), sizeof(double), ", errors");
    }

    void print_rotations() {
        State& state = random_state("rotations");
        program<T> list = random_program(gates_of_a_program(), true);
        list.run(state);
        print_state("sines");

        random_state("rotations one by one");
        for (unsigned int q = 0; q < n_; q += is_large() ? 6 : 1) {
            const Qubits control = {(q + 1) % n_};
            state.apply_RX(q, angle());
            state.apply_RY(q, angle(), control);
            state.apply_RZ(q, angle());
            state.apply_RZ(q, angle(), control);
            state.apply_PH(q, angle());
        }
        print_state("sines");

        random_state("rotations in a record");
        const char* const names[] = {"RX", "RY", "RZ", "PH"};
        pbamplix::PybindAmplixWCircuit<T> record(n_);
        for (unsigned int gate = 0; gate < gates_of_a_program(); ++gate) {
            record.add_gate(names[engine_() % std::size(names)], {angle()}, different_qubits(1));
            record.add_gate("CNOT", {}, different_qubits(2));
        }
        state.simulate_circuit(record);
        print_state("sines");

        print_gradient();
        print_trajectories();

        random_state("fusion");
        program<T> fused = random_program(gates_of_a_program(), true);
        fused.set_fusion(true);
        fused.run(state);
        print_state("fused");
        random_state("fusion of an ansatz");
        program<T> ansatz(n_);
        for (int layer = 0; layer < (is_large() ? 1 : 4); ++layer) {
            for (unsigned int q = 0; q < n_; ++q) ansatz.add_gate("RY", {angle()}, {q});
            for (unsigned int q = 0; q < n_; ++q) ansatz.add_gate("RZ", {angle()}, {q});
            for (unsigned int q = 0; q + 1 < n_; ++q) ansatz.add_gate("CNOT", {}, {q, q + 1});
        }
        ansatz.set_fusion(true);
        ansatz.run(state);
        print_state("fused");

        random_state("fusion on pairs");
        program<T> pairs(n_);
        for (unsigned int block = 0; block < (is_large() ? 20u : 100u); ++block) {
            const Qubits qubits = different_qubits(2);
            for (const char* const turn : {"H", "SX"}) {
                for (const unsigned int q : qubits) pairs.add_gate(turn, {}, {q});
                pairs.add_gate("RZZ", {angle()}, qubits);
            }
            // Every other block mixes 01 and 10 alone, or every third and fourth amplitude.
            if (block % 2 == 0) pairs.add_gate("CNOT", {}, different_qubits(2));
            pairs.add_gate(block % 4 == 1 ? "ISWAP" : "CNOT", {}, qubits);
            pairs.add_gate("RZZ", {angle()}, qubits);
            if (block % 4 == 1) pairs.add_gate("SQRTSWAP", {}, qubits);
        }
        for (unsigned int targets = 1; targets <= std::min(n_, 4u); ++targets) {
            std::vector<C> matrix = random_entries<T>(1ul << 2 * targets);
            for (C& entry : matrix) entry /= T(2ul << targets);  // it may not lengthen a state
            pairs.add_matrix(matrix, different_qubits(targets));
        }
        pairs.set_fusion(true);
        pairs.run(state);
        print_state("fused");
    }

    unsigned int n_;
    int threads_ = 1;
    State state_;
    std::vector<C> random_;  // numbers for a state of a length near 1
    std::string name_;
    std::mt19937_64 engine_;
};

}  // namespace

int main() {
    const unsigned long sines = hash_of_sines<float>(hash_of_sines<double>(0));
    std::printf("instruction set\t%s\n", pbamplix::instruction_set());
    std::printf("key\texact\t%s\n", "none");
    std::printf("key\tsines\t%016lx\n", sines);
    std::printf("key\tfused\t%016lx\n", hash_of_rounding(hash_of_lengths(sines)));
    for (const unsigned int n : {2u, 5u, 9u, 13u, 16u, 18u, 22u}) {
        computations<float> of_float(n);
        computations<double> of_double(n);
        for (const int threads : {1, 3}) {
            of_float.print_all(threads);
            of_double.print_all(threads);
        }
    }
}
