#include "support/precision.hpp"
#include "support/recorded_program.hpp"

#include <velacamplix/stages.hpp>

#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <thread>

using namespace support;
using pbamplix::cpu::part_transfer;
using pbamplix::cpu::program;
using pbamplix::cpu::stage_plan;
using pbamplix::cpu::stage_settings;

PRECISION_SUITE(stage_plan_of);

namespace {

// Circuits as users write them, on n qubits.
template <class T>
struct Written {
    explicit Written(unsigned int n) : list(n), qubits(n) {}

    void rotate(const char* name, unsigned int q) { list.add_gate(name, {double(engine() % 1000) / 160}, {q}); }
    void cnot(unsigned int c, unsigned int t) { list.add_gate("CNOT", {}, {c, t}); }
    void h_everywhere() {
        for (unsigned int q = 0; q < qubits; ++q) list.add_gate("H", {}, {q});
    }
    // Rings of a distance of one and of half of the qubits.
    template <class Edge>
    void along_edges(Edge edge) {
        for (unsigned int q = 0; q < qubits; ++q) edge(q, (q + 1) % qubits);
        for (unsigned int q = 0; q < qubits / 2; ++q) edge(q, (q + qubits / 2) % qubits);
    }

    program<T> list;
    unsigned int qubits;
    std::mt19937 engine{5};
};

template <class T>
program<T> ansatz(unsigned int n, unsigned int layers) {
    Written<T> w(n);
    for (unsigned int layer = 0; layer < layers; ++layer) {
        for (unsigned int q = 0; q < n; ++q) w.rotate("RY", q);
        for (unsigned int q = 0; q < n; ++q) w.rotate("RZ", q);
        for (unsigned int q = 0; q + 1 < n; ++q) w.cnot(q, q + 1);
    }
    return std::move(w.list);
}

template <class T>
program<T> neighbours(unsigned int n, unsigned int layers) {
    Written<T> w(n);
    for (unsigned int layer = 0; layer < layers; ++layer) {
        for (unsigned int q = 0; q < n; ++q) {
            const unsigned int which = w.engine() % 3;
            if (which == 2) {
                w.rotate("RX", q);
            } else {
                w.list.add_gate(which == 0 ? "H" : "T", {}, {q});
            }
        }
        for (unsigned int q = layer % 2; q + 1 < n; q += 2) w.cnot(q, q + 1);
    }
    return std::move(w.list);
}

template <class T>
program<T> fourier(unsigned int n) {
    Written<T> w(n);
    for (unsigned int q = 0; q < n; q += 3) w.rotate("RY", q);  // not all zeros
    for (unsigned int q = n; q-- > 0;) {
        w.list.add_gate("H", {}, {q});
        for (unsigned int k = 0; k < q; ++k)
            w.list.add_gate("PH", {std::ldexp(3.141592653589793, -int(q - k))}, {k}, {q});
    }
    for (unsigned int q = 0; q < n / 2; ++q) w.list.add_gate("SWAP", {}, {q, n - 1 - q});
    return std::move(w.list);
}

template <class T>
program<T> qaoa(unsigned int n, unsigned int layers) {
    Written<T> w(n);
    w.h_everywhere();
    for (unsigned int layer = 0; layer < layers; ++layer) {
        w.along_edges([&](unsigned int a, unsigned int b) {
            w.cnot(a, b);
            w.list.add_gate("RZ", {0.3}, {b});
            w.cnot(a, b);
        });
        for (unsigned int q = 0; q < n; ++q) w.list.add_gate("RX", {0.7}, {q});
    }
    return std::move(w.list);
}

template <class T>
program<T> qaoa_by_phases(unsigned int n, unsigned int layers) {
    Written<T> w(n);
    w.h_everywhere();
    for (unsigned int layer = 0; layer < layers; ++layer) {
        w.along_edges([&](unsigned int a, unsigned int b) {
            w.list.add_gate("RZ", {0.3}, {a});
            w.list.add_gate("RZ", {0.3}, {b});
            w.list.add_gate("PH", {0.3}, {b}, {a});
        });
        for (unsigned int q = 0; q < n; ++q) w.list.add_gate("RX", {0.7}, {q});
    }
    return std::move(w.list);
}

// Random rotations and CZ between neighbours on a square, the four directions in turn.
template <class T>
program<T> grid(unsigned int n, unsigned int depth) {
    Written<T> w(n);
    const auto width = static_cast<unsigned int>(std::sqrt(double(n)));
    w.h_everywhere();
    for (unsigned int d = 0; d < depth; ++d) {
        for (unsigned int q = 0; q < n; ++q) {
            const unsigned int which = w.engine() % 3;
            if (which == 0) {
                w.list.add_gate("H", {}, {q});
            } else {
                w.rotate(which == 1 ? "RX" : "RY", q);
            }
        }
        const unsigned int parity = d % 4 / 2;
        for (unsigned int q = 0; q < n; ++q) {
            const bool across = d % 2 == 0;
            if (across && q % width != width - 1 && q % width % 2 == parity && q + 1 < n) {
                w.list.add_gate("CSIGN", {}, {q, q + 1});
            }
            if (!across && q + width < n && q / width % 2 == parity) w.list.add_gate("CSIGN", {}, {q, q + width});
        }
    }
    return std::move(w.list);
}

template <class T>
std::map<std::string, program<T>> six_circuits(unsigned int n, unsigned int layers) {
    std::map<std::string, program<T>> circuits;
    circuits.emplace("ansatz", ansatz<T>(n, layers));
    circuits.emplace("neighbours", neighbours<T>(n, 2 * layers));
    circuits.emplace("Fourier transform", fourier<T>(n));
    circuits.emplace("QAOA", qaoa<T>(n, layers / 2));
    circuits.emplace("QAOA by phases", qaoa_by_phases<T>(n, layers / 2));
    circuits.emplace("grid", grid<T>(n, 2 * layers));
    return circuits;
}

// The parts of a state, all in this process.
template <class T>
class Parts {
public:
    // As a plan wants them to begin.
    Parts(const StateVector<T>& whole, unsigned int rank_bits)
        : size_(whole.size >> rank_bits), amplitudes_(whole.size) {
        std::memcpy(static_cast<void*>(amplitudes_.data()), whole.amplitudes.get(),
                    whole.size * sizeof(amplitudes_[0]));
    }

    thrust::complex<T>* part(unsigned long rank) { return amplitudes_.data() + rank * size_; }
    unsigned long ranks() const { return amplitudes_.size() / size_; }
    unsigned long size() const { return size_; }

    // One stage after another on all ranks. Returns the amplitudes that each rank sent.
    unsigned long run(stage_plan<T>& plan, int threads) {
        unsigned long sent = 0;
        for (unsigned long stage = 0; stage < plan.size(); ++stage) {
            const auto of_first = plan.transfers(stage, 0);
            for (std::size_t round = 0; round < of_first.size(); ++round) {
                sent += of_first[round].count;
                for (unsigned long rank = 0; rank < ranks(); ++rank) exchange(plan, stage, round, rank);
            }
            for (unsigned long rank = 0; rank < ranks(); ++rank) plan.run_stage(stage, rank, part(rank), threads);
        }
        return sent;
    }

    // All parts, in order, against a state.
    testing::AssertionResult are(const StateVector<T>& expected, const stage_plan<T>& plan) {
        for (unsigned long rank = 0; rank < ranks(); ++rank) {
            const thrust::complex<T>* slice = expected.amplitudes.get() + plan.part_of(rank) * size_;
            if (std::memcmp(part(rank), slice, size_ * sizeof(*slice)) != 0) {
                return testing::AssertionFailure() << "rank " << rank << " of " << ranks() << " differs";
            }
        }
        return testing::AssertionSuccess();
    }

private:
    // Rank and partner, once for both.
    void exchange(const stage_plan<T>& plan, unsigned long stage, std::size_t round, unsigned long rank) {
        const part_transfer mine = plan.transfers(stage, rank)[round];
        const part_transfer theirs = plan.transfers(stage, mine.partner)[round];
        ASSERT_EQ(theirs.partner, rank);
        ASSERT_EQ(theirs.count, mine.count);
        ASSERT_LE(mine.first + mine.count, size_);
        if (mine.partner < rank) return;
        thrust::complex<T>* const here = part(rank) + mine.first;
        std::swap_ranges(here, here + mine.count, part(mine.partner) + theirs.first);
    }

    unsigned long size_;
    std::vector<thrust::complex<T>> amplitudes_;
};

// |0...0>
template <class T>
struct Zeros : StateVector<T> {
    explicit Zeros(unsigned int n) : StateVector<T>(n) { this->reset(); }
};

}  // namespace

TYPED_TEST(stage_plan_of, six_circuits_gives_every_part_the_bits_of_one_process) {
    using T = TypeParam;
    for (const unsigned int n : emulated ? std::vector<unsigned int>{9} : std::vector<unsigned int>{5, 9, 16}) {
        for (const auto& [name, written] : six_circuits<T>(n, 4)) {
            const auto canonical = written.reordered(n, 10);
            for (const auto* list : {&written, &canonical}) {
                Zeros<T> expected(n);
                program<T>(list->copy()).run(expected);
                for (const unsigned int rank_bits : {0u, 1u, 2u, 3u}) {
                    stage_plan<T> plan(*list, n, rank_bits);
                    Parts<T> parts(Zeros<T>(n), rank_bits);
                    const unsigned long sent = parts.run(plan, 1 + static_cast<int>(rank_bits % 2));
                    const auto which = name + (list == &written ? "" : ", reordered") + ", " + std::to_string(n) +
                                       " qubits, 2^" + std::to_string(rank_bits) + " ranks";
                    EXPECT_TRUE(parts.are(expected, plan)) << which;
                    EXPECT_EQ(static_cast<double>(sent), plan.parts_sent() * static_cast<double>(parts.size()))
                        << which;
                }
            }
        }
    }
}

// All gates, matrices and diagonals on any qubits, from any state in its order.
TYPED_TEST(stage_plan_of, random_programs_gives_every_part_the_bits_of_one_process) {
    using T = TypeParam;
    for (unsigned int seed = 1; seed <= (emulated ? 4 : 30); ++seed) {
        std::mt19937 engine(seed);
        const unsigned int n = 4 + engine() % 12;
        Recorder<T> recorder(n, seed);
        const unsigned int gates = 20 + engine() % 150;
        for (unsigned int gate = 0; gate < gates; ++gate) {
            if (engine() % 4 == 0) {
                recorder.moving_gate();
            } else {
                recorder.random_gate();
            }
        }
        const auto start = random_state<T>(n, Values::ordinary, seed);
        LoadedVector<T> expected(start);
        recorder.apply(expected, gates);
        for (unsigned int rank_bits = 0; rank_bits + 4 <= n && rank_bits < 5; ++rank_bits) {
            stage_plan<T> plan(recorder.list, n, rank_bits, {.from_zeros = false});
            Parts<T> parts(LoadedVector<T>(start), rank_bits);
            parts.run(plan, 2);
            EXPECT_TRUE(parts.are(expected, plan)) << "seed " << seed << ", 2^" << rank_bits << " ranks";
        }
    }
}

// Qubits that stay where they are in the end: every amplitude is found by its places.
TYPED_TEST(stage_plan_of, a_state_that_is_not_brought_back_tells_where_its_qubits_are) {
    using T = TypeParam;
    const unsigned int n = 10, rank_bits = 3;
    for (unsigned int seed = 1; seed <= 5; ++seed) {
        Recorder<T> recorder(n, seed);
        for (unsigned int gate = 0; gate < 60; ++gate) gate % 3 == 0 ? recorder.moving_gate() : recorder.random_gate();
        const auto start = random_state<T>(n, Values::ordinary, seed);
        LoadedVector<T> expected(start);
        recorder.apply(expected, 60);
        stage_plan<T> plan(recorder.list, n, rank_bits, {.from_zeros = false, .back_in_order = false});
        Parts<T> parts(LoadedVector<T>(start), rank_bits);
        parts.run(plan, 1);
        const auto& [places, flipped] = plan.places();
        unsigned long different = 0;
        for (unsigned long rank = 0; rank < parts.ranks(); ++rank) {
            for (unsigned long position = 0; position < parts.size(); ++position) {
                const unsigned long placed = position | (rank ^ flipped) << plan.part_qubits();
                unsigned long index = 0;
                for (unsigned int q = 0; q < n; ++q) index |= (placed >> places[q] & 1) << q;
                different += std::memcmp(parts.part(rank) + position, expected.amplitudes.get() + index,
                                         sizeof(thrust::complex<T>)) != 0;
            }
        }
        EXPECT_EQ(different, 0ul) << "seed " << seed;
        EXPECT_THROW(plan.part_of(0), std::logic_error);
    }
}

namespace {

// What ranks with threads of their own exchange by.
class Mailbox {
public:
    static void exchange(Mailbox& mine, Mailbox& theirs, void* data, std::size_t bytes) {
        mine.put(data, bytes);
        theirs.take(data, bytes);
    }

private:
    void put(const void* data, std::size_t bytes) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return content_.empty(); });
        content_.assign(static_cast<const char*>(data), static_cast<const char*>(data) + bytes);
        changed_.notify_all();
    }
    void take(void* data, std::size_t bytes) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [&] { return content_.size() == bytes; });
        std::memcpy(data, content_.data(), bytes);
        content_.clear();
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<char> content_;
};

}  // namespace

TYPED_TEST(stage_plan_of, a_circuit_runs_on_ranks_with_threads_of_their_own) {
    using T = TypeParam;
    const unsigned int n = 12, rank_bits = 2;
    const program<T> list = neighbours<T>(n, 8);
    Zeros<T> expected(n);
    program<T>(list.copy()).run(expected);
    Parts<T> parts(Zeros<T>(n), rank_bits);
    std::map<std::pair<unsigned long, unsigned long>, Mailbox> boxes;
    for (unsigned long from = 0; from < 4; ++from) {
        for (unsigned long to = 0; to < 4; ++to) boxes[{from, to}];
    }
    std::vector<std::thread> ranks;
    std::vector<unsigned long> heard(4);
    for (unsigned long rank = 0; rank < 4; ++rank) {
        ranks.emplace_back([&, rank] {
            stage_plan<T> plan(list, n, rank_bits);
            plan.run(
                rank, parts.part(rank), 1,
                [&](unsigned long partner, void* data, std::size_t bytes) {
                    Mailbox::exchange(boxes.at({rank, partner}), boxes.at({partner, rank}), data, bytes);
                },
                [&](unsigned long done, unsigned long all) { heard[rank] += done <= all; });
        });
    }
    for (auto& rank : ranks) rank.join();
    stage_plan<T> plan(list, n, rank_bits);
    EXPECT_GT(plan.size(), 2ul);
    EXPECT_EQ(heard, std::vector<unsigned long>(4, plan.size()));
    EXPECT_TRUE(parts.are(expected, plan));
}

// 40 qubits on 1024 ranks, in the order for 10 bits of a rank.
TEST(stage_plan_for_1024_ranks, sends_few_parts) {
    const unsigned int n = 40, rank_bits = 10;
    const std::map<std::string, double> most = {{"ansatz", 1}, {"neighbours", 2},     {"Fourier transform", 1},
                                                {"QAOA", 6},   {"QAOA by phases", 2}, {"grid", 2}};
    std::map<std::string, program<double>> circuits;
    circuits.emplace("ansatz", ansatz<double>(n, 10));
    circuits.emplace("neighbours", neighbours<double>(n, 20));
    circuits.emplace("Fourier transform", fourier<double>(n));
    circuits.emplace("QAOA", qaoa<double>(n, 4));
    circuits.emplace("QAOA by phases", qaoa_by_phases<double>(n, 4));
    circuits.emplace("grid", grid<double>(n, 16));
    for (const auto& [name, list] : circuits) {
        const stage_plan<double> plan(list.reordered(n, rank_bits), n, rank_bits, {.back_in_order = false});
        const stage_plan<double> written(list, n, rank_bits, {.back_in_order = false});
        std::printf("%s: %.2f parts in %lu stages; as written %.2f in %lu\n", name.c_str(), plan.parts_sent(),
                    plan.size(), written.parts_sent(), written.size());
        EXPECT_LE(plan.parts_sent(), most.at(name)) << name;
        EXPECT_GE(written.parts_sent(), plan.parts_sent()) << name;
    }
}

TYPED_TEST(stage_plan_of, a_reordered_program_holds_the_same_gates_and_differs_by_rounding) {
    using T = TypeParam;
    const unsigned int n = 9;
    for (const auto& [name, written] : six_circuits<T>(n, 4)) {
        program<T> other = written.reordered(n, 3);
        Zeros<T> expected(n), got(n);
        program<T>(written.copy()).run(expected);
        other.run(got);
        double worst = 0;
        for (unsigned long i = 0; i < expected.size; ++i) {
            const auto difference = expected.amplitudes[i] - got.amplitudes[i];
            worst = std::max(worst, double(std::abs(difference.real())) + double(std::abs(difference.imag())));
        }
        EXPECT_LT(worst, sizeof(T) == 4 ? 1e-5 : 1e-13) << name;
    }
}

// The same gates by other angles, and the plan of a circuit that has run is set to them.
TYPED_TEST(stage_plan_of, coefficients_of_another_plan_give_its_bits) {
    using T = TypeParam;
    const unsigned int n = 6;
    const auto turned_by = [&](double angle) {
        program<T> list(n);
        for (unsigned int q = 0; q < n; ++q) {
            list.add_gate("RX", {angle * (q + 1)}, {q});
            list.add_gate("RZ", {angle / (q + 1)}, {q});
            list.add_gate("X", {}, {(q + 1) % n}, {q});
        }
        return list;
    };
    auto first = turned_by(0.3), second = turned_by(0.7);
    Zeros<T> expected(n);
    second.run(expected);
    stage_plan<T> plan(first, n, 2);
    const stage_plan<T> other(second, n, 2);
    Parts<T>(Zeros<T>(n), 2).run(plan, 1);
    plan.set_coefficients(other.coefficients());
    Parts<T> parts(Zeros<T>(n), 2);
    parts.run(plan, 1);
    EXPECT_TRUE(parts.are(expected, plan));
    auto fewer = other.coefficients();
    fewer.pop_back();
    EXPECT_THROW(plan.set_coefficients(fewer), std::invalid_argument);
}

TYPED_TEST(stage_plan_of, nonsense_is_refused) {
    using T = TypeParam;
    using Plan = stage_plan<T>;
    program<T> list(5);
    list.add_gate("SWAP", {}, {0, 4});
    list.add_gate("X", {}, {4});
    EXPECT_NO_THROW(Plan(list, 5, 4));
    EXPECT_THROW(Plan(list, 5, 5), std::invalid_argument);
    EXPECT_THROW(Plan(list, 4, 1), std::invalid_argument);
    EXPECT_THROW(Plan(list, 64, 1), std::invalid_argument);
    EXPECT_THROW(list.reordered(4, 1), std::invalid_argument);
    Plan plan(list, 5, 3);
    std::vector<thrust::complex<T>> part(4);
    EXPECT_THROW(plan.transfers(plan.size(), 0), std::invalid_argument);
    EXPECT_THROW(plan.transfers(0, 8), std::invalid_argument);
    EXPECT_THROW(plan.run_stage(0, 8, part.data(), 1), std::invalid_argument);
    EXPECT_THROW(plan.part_of(8), std::invalid_argument);
    list.add_gate("ISWAP", {}, {0, 4});
    EXPECT_THROW(Plan(list, 5, 4), std::invalid_argument);
    list.set_fusion(true);
    EXPECT_THROW(Plan(list, 5, 1), std::invalid_argument);
}
