#include "statevector/storage/stages.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

using velacamplix::storage::staged_work;
using Stages = std::vector<staged_work::stage>;

namespace {

constexpr unsigned long enough_bytes = 1ul << 30;

bool always(unsigned long) { return true; }

// How often each unit is done, stage by stage; counts in `early` what begins before the stage before it is done.
struct Counted {
    std::vector<std::vector<std::atomic<int>>> done;
    std::vector<std::atomic<unsigned long>> units_done;
    std::atomic<int> early = 0, wrong_leases = 0;

    explicit Counted(const Stages& stages) : units_done(stages.size()) {
        for (const auto& s : stages) done.emplace_back(s.units);
    }
    bool operator()(unsigned long stage, unsigned long begin, unsigned long end, unsigned long share_end,
                    unsigned long lease, unsigned long team) {
        if (stage != 0 && units_done[stage - 1] != done[stage - 1].size()) ++early;
        if (begin >= end || end > share_end || share_end > done[stage].size()) ++early;
        if (lease >= std::min<unsigned long>(team, done[stage].size())) ++wrong_leases;
        for (unsigned long i = begin; i < end; ++i) ++done[stage][i];
        units_done[stage] += end - begin;
        return true;
    }
};

}  // namespace

TEST(staged_work, does_every_unit_once_and_stage_after_stage) {
    const Stages stages = {{7, 1}, {1, 1}, {0, 1}, {150000, 1}, {64, 5}, {2, 9}, {1000, 3}};
    for (const int threads : {1, 2, 3, 8}) {
        for (const unsigned long bytes : {enough_bytes, 16ul}) {
            staged_work work(stages, bytes, threads);
            for (const unsigned long first : {0ul, 0ul, 3ul}) {  // again and again
                Counted counted(stages);
                if (first != 0) counted.units_done[first - 1] = stages[first - 1].units;
                unsigned long between = first;
                work.work(
                    first,
                    [&](unsigned long stage, unsigned long begin, unsigned long end, unsigned long share_end,
                        unsigned long lease) {
                        return counted(stage, begin, end, share_end, lease, static_cast<unsigned long>(threads));
                    },
                    [&](unsigned long stage) {
                        EXPECT_EQ(stage, between++);
                        EXPECT_EQ(counted.units_done[stage], stages[stage].units);
                        return true;
                    });
                EXPECT_EQ(between, stages.size());
                EXPECT_EQ(counted.early, 0);
                EXPECT_EQ(counted.wrong_leases, 0);
                for (unsigned long s = first; s < stages.size(); ++s) {
                    for (const auto& times : counted.done[s]) ASSERT_EQ(times, 1) << "stage " << s;
                }
            }
        }
    }
}

TEST(staged_work, waits_for_no_thread_but_for_the_piece_it_is_at) {
    staged_work work({{100, 1}, {100, 1}}, enough_bytes, 2);
    std::atomic<int> done = 0;
    std::atomic<bool> one_sleeps = false;
    work.work(
        0,
        [&](unsigned long stage, unsigned long, unsigned long, unsigned long, unsigned long) {
            if (stage == 0 && !one_sleeps.exchange(true)) {
                const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
                while (done != 99 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
                EXPECT_EQ(done, 99) << "the other thread has not done what was left";
            }
            ++done;
            return true;
        },
        always);
    EXPECT_EQ(done, 200);
}

TEST(staged_work, ends_when_somebody_says_so) {
    for (const int threads : {1, 2, 5}) {
        staged_work work({{50, 1}, {50, 1}, {50, 1}}, enough_bytes, threads);
        std::atomic<int> done = 0;
        const auto body = [&](unsigned long, unsigned long, unsigned long, unsigned long, unsigned long) {
            ++done;
            return true;
        };
        work.work(0, body, [](unsigned long stage) { return stage != 1; });
        EXPECT_EQ(done, 100);
        std::atomic<int> last_stage = -1;
        const auto stops = [&](unsigned long stage, unsigned long begin, unsigned long, unsigned long, unsigned long) {
            last_stage = static_cast<int>(stage);
            return stage != 1 || begin != 20;
        };
        work.work(0, stops, always);
        EXPECT_EQ(last_stage, 1);
        work.work(0, body, always);
        EXPECT_EQ(done, 250) << "as if nothing had been";
    }
}

TEST(staged_work, lets_exceptions_reach_the_caller) {
    for (const int threads : {1, 2, 5}) {
        staged_work work({{50, 1}, {50, 1}}, enough_bytes, threads);
        const auto throws = [](unsigned long stage, unsigned long begin, unsigned long, unsigned long, unsigned long) {
            if (stage == 1 && begin == 49) throw std::runtime_error("the last unit");
            return true;
        };
        EXPECT_THROW(work.work(0, throws, always), std::runtime_error);
        const auto quiet = [](unsigned long, unsigned long, unsigned long, unsigned long, unsigned long) {
            return true;
        };
        const auto refuses = [](unsigned long) -> bool { throw std::invalid_argument("between"); };
        EXPECT_THROW(work.work(0, quiet, refuses), std::invalid_argument);
        work.work(0, quiet, always);
    }
}
