// Looks for programs whose passes do not give the bits of gate-by-gate application, or whose fused run strays from
// them: random gates, controls, sizes, thread counts and stops.
//
// usage: fuzz_programs COUNT [SEED]             that many programs, always the same ones; from seed 1 on
//        fuzz_programs --seconds S [SEED]       as many as there is time for; from a random seed on
//
// A program that fails ends the run with status 1 and the call that repeats it.

#include "support/recorded_program.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

using namespace support;

template <class T>
double relative_error(const StateVector<T>& expected, const StateVector<T>& got) {
    double difference = 0, length = 0;
    for (unsigned long i = 0; i < expected.size; ++i) {
        const auto& e = expected.amplitudes[i];
        const auto& g = got.amplitudes[i];
        difference += std::pow(static_cast<double>(g.real()) - static_cast<double>(e.real()), 2) +
                      std::pow(static_cast<double>(g.imag()) - static_cast<double>(e.imag()), 2);
        length += static_cast<double>(e.real()) * static_cast<double>(e.real()) +
                  static_cast<double>(e.imag()) * static_cast<double>(e.imag());
    }
    return std::sqrt(difference / length);
}

// One program; empty when all is well, else what is wrong.
template <class T>
std::string try_one(unsigned int seed) {
    std::mt19937 engine(seed);
    const auto below = [&](unsigned int limit) { return static_cast<unsigned int>(engine() % limit); };
    const unsigned int n = 1 + below(17);
    const unsigned int gates = 1 + below(150);
    const bool unitary = below(2) == 0;
    Recorder<T> recorder(n, seed, unitary ? Recorder<T>::unitary : Recorder<T>::any);
    for (unsigned int gate = 0; gate < gates; ++gate) recorder.random_gate();
    const auto start = random_state<T>(n, Values::ordinary, seed);
    const auto threads = static_cast<int>(1 + below(4));

    LoadedVector<T> got(start, threads);
    unsigned long left = below(4) == 0 ? below(6) : gates;  // passes until the run is told to stop
    const unsigned long applied = recorder.list.run(got, [&](unsigned long, unsigned long) { return left-- > 0; });
    LoadedVector<T> expected(start);
    recorder.apply(expected, applied);
    if (const auto same = equal_states(expected, got); !same) return same.message();

    if (!unitary) return {};
    LoadedVector<T> exact(start), fused(start, threads);
    recorder.apply(exact, gates);
    recorder.list.set_fusion(true);
    recorder.list.run(fused);
    const double error = relative_error(exact, fused);
    if (error <= (sizeof(T) == 4 ? 1e-5 : 1e-12)) return {};
    return "the fused state is off by " + std::to_string(error);
}

}  // namespace

int main(int argc, char** argv) {
    const bool by_time = argc > 2 && std::string(argv[1]) == "--seconds";
    const int count_at = by_time ? 2 : 1;
    if (argc <= count_at || argc > count_at + 2) {
        std::fprintf(stderr, "usage: fuzz_programs COUNT [SEED] | fuzz_programs --seconds S [SEED]\n");
        return 2;
    }
    const double most = std::atof(argv[count_at]);
    unsigned int seed = by_time ? std::random_device()() : 1;
    if (argc > count_at + 1) seed = static_cast<unsigned int>(std::strtoul(argv[count_at + 1], nullptr, 10));
    std::fprintf(stderr, "from seed %u on\n", seed);
    const auto start = std::chrono::steady_clock::now();
    const auto seconds = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    unsigned long tried = 0;
    while (by_time ? seconds() < most : static_cast<double>(tried) < most) {
        for (const bool single : {false, true}) {
            const std::string wrong = single ? try_one<float>(seed) : try_one<double>(seed);
            if (wrong.empty()) continue;
            std::fprintf(stderr, "%s precision: %s\nagain: %s 1 %u\n", single ? "single" : "double", wrong.c_str(),
                         argv[0], seed);
            return 1;
        }
        ++seed;
        ++tried;
    }
    std::printf("%lu programs in both precisions agree\n", tried);
}
