// Prints one line for each of many computations: its name and a hash of the bits it gave. The lines must be the same
// for every build of the library that a loader may pick; state_hashes.py compares them.

#include <velacamplix/velacamplix.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace pbamplix::cpu;

unsigned long hash_of(const void* data, std::size_t bytes) {
    unsigned long hash = 0xcbf29ce484222325ul;
    const auto* at = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < bytes; ++i) hash = (hash ^ at[i]) * 0x100000001b3ul;
    return hash;
}

// The C library computes sine and cosine in different ways on processors with and without fused instructions, and
// some of its last bits differ. These angles are not among them, as the first line of the output shows.
constexpr double angles[] = {0.3, 0.7, 1.1, 1.9, 2.3, -0.5, -1.3, -2.9};

template <class T>
class computations {
public:
    computations(unsigned int n, int threads) : n_(n), threads_(threads) {}

    void print_all() {
        program<T> list = random_program(400);
        print_state("program", [&](auto& state) { list.run(state); });
        list.set_fusion(true);
        print_state("fused program", [&](auto& state) { list.run(state); });
        print_state("record", [&](auto& state) {
            auto record = random_record(300);
            state.simulate_circuit(record);
        });
        for (unsigned int k = 1; k <= std::min(n_, 5u); ++k) {
            print_state("matrix on " + std::to_string(k), [&](auto& state) {
                std::vector<thrust::complex<T>> m;
                for (unsigned long i = 0; i < (1ul << 2 * k); ++i) m.emplace_back(number(), number());
                const auto qubits = different_qubits(k);
                if (k == 1) state.apply_1qbit_gate(qubits[0], m);
                if (k == 2) state.apply_2qbit_gate(qubits[0], qubits[1], m);
                if (k > 2) state.apply_nqbit_gate(qubits, m);
            });
        }
    }

private:
    using State = PybindAmplixStateVectorCPU<T>;

    T number() { return T(engine_() % 2001) / 1000 - 1; }
    T angle() { return T(angles[engine_() % std::size(angles)]); }

    std::vector<unsigned int> different_qubits(unsigned int count) {
        std::vector<unsigned int> qubits;
        while (qubits.size() < count) {
            const auto q = static_cast<unsigned int>(engine_() % n_);
            if (std::find(qubits.begin(), qubits.end(), q) == qubits.end()) qubits.push_back(q);
        }
        return qubits;
    }

    program<T> random_program(unsigned int gates) {
        const char* const plain[] = {"X", "Y", "Z", "H", "S", "T", "ZtoY", "YtoZ"};
        const char* const turned[] = {"RX", "RY", "RZ", "PH"};
        const char* const two[] = {"CNOT", "CSIGN", "SWAP", "ISWAP", "SQRTSWAP"};
        program<T> list(n_);
        for (unsigned int gate = 0; gate < gates; ++gate) {
            const unsigned long kind = engine_() % 3;
            const bool controlled = engine_() % 4 == 0;
            auto qubits = different_qubits(kind == 2 ? 2 : controlled ? 2 : 1);
            std::vector<unsigned int> controls;
            if (kind != 2 && controlled) {
                controls.push_back(qubits.back());
                qubits.pop_back();
            }
            if (kind == 0) list.add_gate(plain[engine_() % std::size(plain)], {}, qubits, controls);
            if (kind == 1) list.add_gate(turned[engine_() % std::size(turned)], {angle()}, qubits, controls);
            if (kind == 2) list.add_gate(two[engine_() % std::size(two)], {}, qubits);
        }
        return list;
    }

    pbamplix::PybindAmplixWCircuit<T> random_record(unsigned int gates) {
        const char* const names[] = {"H", "X", "Y", "Z", "RX", "RY", "RZ", "PH", "T", "CNOT", "SWAP"};
        pbamplix::PybindAmplixWCircuit<T> record(n_);
        for (unsigned int gate = 0; gate < gates; ++gate) {
            const std::string name = names[engine_() % std::size(names)];
            const bool turned = name == "RX" || name == "RY" || name == "RZ" || name == "PH";
            const bool on_two = name == "CNOT" || name == "SWAP";
            record.add_gate(name, turned ? std::vector<T>{angle()} : std::vector<T>{},
                            different_qubits(on_two ? 2 : 1));
        }
        return record;
    }

    template <class Work>
    void print_state(const std::string& name, Work work) {
        State state(n_);
        state.set_num_threads(threads_);
        state.reset();
        for (unsigned int q = 0; q < n_; ++q) {
            state.apply_RX(q, angle());
            state.apply_RZ(q, angle());
        }
        work(state);
        print(name, state.amplitudes.get(), state.size * sizeof(thrust::complex<T>));
        std::array<T, 4> distribution{};
        state.get_distribution(distribution.data(), T(0), different_qubits(2));
        print(name + ", distribution", distribution.data(), sizeof(distribution));
    }

    void print(const std::string& name, const void* data, std::size_t bytes) const {
        std::printf("%s, %u qubits, %d threads, %s: %016lx\n", sizeof(T) == 4 ? "single" : "double", n_, threads_,
                    name.c_str(), hash_of(data, bytes));
    }

    unsigned int n_;
    int threads_;
    std::mt19937_64 engine_{20};
};

}  // namespace

int main() {
    std::printf("instruction set %s\n", pbamplix::instruction_set());
    std::vector<double> sines;
    for (const double angle : angles) {
        for (const double a : {angle, angle * 0.5}) sines.insert(sines.end(), {std::sin(a), std::cos(a)});
    }
    std::printf("sines and cosines: %016lx\n", hash_of(sines.data(), sines.size() * sizeof(double)));
    for (const unsigned int n : {2u, 5u, 9u, 13u, 17u, 19u}) {
        for (const int threads : {1, 2}) {
            computations<float>(n, threads).print_all();
            computations<double>(n, threads).print_all();
        }
    }
}
