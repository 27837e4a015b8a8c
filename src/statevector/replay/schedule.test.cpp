#include "statevector/replay/schedule.hpp"

#include "support/compare.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

#include <algorithm>
#include <array>
#include <random>
#include <set>

using namespace support;
using namespace velacamplix;

PRECISION_SUITE(schedules);

namespace {

template <class T>
std::vector<gates::operation<T>> random_operations(unsigned int n, unsigned int count) {
    std::mt19937 engine(n);
    const char* const names[] = {"H", "RX", "RY", "RZ", "PH", "T", "CNOT", "SWAP", "CSIGN"};
    std::vector<gates::operation<T>> operations;
    while (operations.size() < count) {
        const gates::gate_row& row = *gates::find_gate(names[engine() % std::size(names)]);
        const std::vector<T> angle = {T(engine() % 100) / 10};
        operations.push_back(gates::named_operation<T>(row, angle, random_qubits(2, n, engine)));
    }
    return operations;
}

// What tells one plan from another: of every pass, which gates it takes, when it may stop, what it gathers.
using Plan = std::vector<std::array<unsigned long, 6>>;

template <class T>
Plan plan_of(const replay::schedule<T>& schedule) {
    Plan plan;
    for (const auto& pass : schedule.passes()) {
        unsigned long local = 0, steps = 0;
        if (const auto* const work = std::get_if<replay::chunked<T>>(&pass.work)) {
            local = work->local;
            steps = work->steps.size();
        }
        plan.push_back({pass.first, pass.last, pass.done, local, steps, pass.may_stop_after});
    }
    return plan;
}

constexpr unsigned long cache_sizes[] = {0, 16ul << 10, 32ul << 10, 48ul << 10, 64ul << 10, 128ul << 10, 1ul << 20};

}  // namespace

TYPED_TEST(schedules, with_fusion_follows_from_gates_qubits_and_precision_alone) {
    for (const unsigned int n : {3u, 10u, 13u, 17u}) {
        const auto operations = random_operations<TypeParam>(n, 20 * n);
        const auto start = random_state<TypeParam>(n, Values::ordinary);
        std::set<Plan> plans;
        LoadedVector<TypeParam> first(start);
        replay::schedule<TypeParam>(operations, n, 1, true).run(operations, first.amplitudes.get());
        for (const unsigned long cache : cache_sizes) {
            for (const int threads : {1, 2, 8}) {
                replay::schedule<TypeParam> schedule(operations, n, threads, true, cache);
                plans.insert(plan_of(schedule));
                LoadedVector<TypeParam> state(start);
                schedule.run(operations, state.amplitudes.get());
                ASSERT_EQ(std::memcmp(first.amplitudes.get(), state.amplitudes.get(),
                                      state.size * sizeof(thrust::complex<TypeParam>)),
                          0)
                    << n << " qubits, cache of " << cache << " bytes, " << threads << " thread(s)";
            }
        }
        EXPECT_EQ(plans.size(), 1u) << n << " qubits";
    }
}

TYPED_TEST(schedules, without_fusion_suits_the_cache_and_gives_the_same_bits) {
    const unsigned int n = 16;
    const auto operations = random_operations<TypeParam>(n, 200);
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    LoadedVector<TypeParam> expected(start);
    for (const auto& op : operations) kernels::run_parallel(gates::prepare(op, n), expected.amplitudes.get(), 1);
    std::set<Plan> plans;
    for (const unsigned long cache : cache_sizes) {
        for (const int threads : {1, 2, 8}) {
            replay::schedule<TypeParam> schedule(operations, n, threads, false, cache);
            plans.insert(plan_of(schedule));
            LoadedVector<TypeParam> state(start);
            schedule.run(operations, state.amplitudes.get());
            ASSERT_EQ(std::memcmp(expected.amplitudes.get(), state.amplitudes.get(),
                                  state.size * sizeof(thrust::complex<TypeParam>)),
                      0)
                << "cache of " << cache << " bytes, " << threads << " thread(s)";
        }
    }
    EXPECT_GT(plans.size(), 3u);
}

// A chunk and what is read beside it stay within the cache, and a second thread finds work.
TYPED_TEST(schedules, chunks_fit_the_cache_and_leave_every_thread_some) {
    for (const unsigned long cache : cache_sizes) {
        for (const unsigned int n : {12u, 14u, 20u, 30u}) {
            for (const int threads : {1, 2, 8}) {
                const auto shape = velacamplix::plan::choose_shape<TypeParam>(n, threads, cache);
                EXPECT_LE(sizeof(thrust::complex<TypeParam>) << shape.local_bits, std::max(cache, 8ul << 10) * 2 / 3);
                EXPECT_GE(shape.local_bits, shape.run_bits);
                EXPECT_LE(shape.local_bits, threads > 1 && n >= 20 ? n - 2 : 63);
            }
        }
    }
}

// Large buffers stay within 256 KiB and leave 32 chunks or more, but for states that have fewer small ones.
TYPED_TEST(schedules, with_fusion_gather_large_chunks_unless_gates_are_few) {
    constexpr unsigned long amplitude_bytes = sizeof(thrust::complex<TypeParam>);
    const auto bytes_of = [](const replay::schedule<TypeParam>& schedule) {
        std::set<unsigned long> bytes;
        for (const auto& pass : schedule.passes()) {
            const auto* const work = std::get_if<replay::chunked<TypeParam>>(&pass.work);
            if (work != nullptr) bytes.insert(work->chunk_size() * amplitude_bytes);
        }
        return bytes;
    };
    const auto& cnot = *gates::find_gate("CNOT");
    for (const unsigned int n : {13u, 16u, 18u, 20u, 24u, 30u}) {
        std::vector<gates::operation<TypeParam>> chain;
        for (unsigned int q = 0; q + 1 < n; ++q)
            chain.push_back(gates::named_operation<TypeParam>(cnot, std::vector<TypeParam>{}, {q, q + 1}));
        const std::set<unsigned long> small = {16ul << 10};
        EXPECT_EQ(bytes_of({chain, n, 1, true}), small) << n << " qubits";
        const std::set<unsigned long> large = {std::clamp((amplitude_bytes << n) / 32, 16ul << 10, 256ul << 10)};
        EXPECT_EQ(bytes_of({random_operations<TypeParam>(n, 10 * n), n, 1, true}), large) << n << " qubits";
    }
}
