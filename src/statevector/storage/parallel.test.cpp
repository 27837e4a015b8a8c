#include "statevector/storage/parallel.hpp"

#include "support/watched_regions.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

using pbamplix::get_num_threads;
using velacamplix::storage::most_bodies;
using velacamplix::storage::parallel_leases;
using velacamplix::storage::parallel_shares;
using velacamplix::storage::share_of;

static_assert(std::is_same_v<decltype(&get_num_threads), int (*)(int)>);

TEST(get_num_threads, returns_requests_of_0_and_more_unchanged) {
    for (int requested : {0, 1, 2, 3, 7, 1000, 2147483647}) EXPECT_EQ(get_num_threads(requested), requested);
}

TEST(get_num_threads, counts_a_negative_request_as_1) {
    for (int requested : {-1, -2, -2147483647 - 1}) EXPECT_EQ(get_num_threads(requested), 1);
}

TEST(thread_split, gives_the_first_threads_one_item_more) {
    for (unsigned long team : {1ul, 2ul, 3ul, 7ul, 64ul}) {
        for (unsigned long count : {0ul, 1ul, 2ul, 5ul, 7ul, 64ul, 100ul, (1ul << 40) + 3}) {
            const unsigned long share = count / team, rest = count % team;
            for (unsigned long t = 0; t < team; ++t) {
                const unsigned long first = t < rest ? t * (share + 1) : rest + t * share;
                const auto [begin, end] = share_of(count, team, t);
                EXPECT_EQ(begin, first) << count << " items, thread " << t << " of " << team;
                EXPECT_EQ(end, first + share + (t < rest ? 1 : 0)) << count << " items, thread " << t << " of " << team;
            }
        }
    }
}

namespace {

// How often each of `count` items is handed out when they touch `bytes`.
std::vector<int> handed_out(unsigned long count, unsigned long bytes, int threads) {
    std::vector<std::atomic<int>> seen(count);
    parallel_shares(count, bytes, threads, [&](unsigned long begin, unsigned long end) {
        for (unsigned long i = begin; i < end; ++i) ++seen[i];
    });
    return {seen.begin(), seen.end()};
}

}  // namespace

TEST(parallel_shares, hand_out_every_item_exactly_once) {
    for (int threads : {-3, 0, 1, 2, 3, 7}) {
        for (unsigned long count : {0ul, 1ul, 2ul, 5ul, 1000ul}) {
            for (unsigned long bytes : {16ul, 1ul << 30}) {
                EXPECT_EQ(handed_out(count, bytes, threads), std::vector<int>(count, 1))
                    << count << " items, " << threads << " thread(s)";
            }
        }
    }
}

TEST(parallel_shares, open_one_region_of_the_requested_size) {
    support::WatchedRegions regions;
    handed_out(1000, 1ul << 30, 3);
    EXPECT_EQ(regions.thread_counts(), (std::vector<unsigned int>{3}));
}

TEST(parallel_shares, do_not_share_a_small_range) {
    support::WatchedRegions regions;
    handed_out(1000, 16000, 3);
    EXPECT_TRUE(regions.thread_counts().empty());
}

TEST(parallel_shares, count_a_negative_request_as_one_thread) {
    support::WatchedRegions regions;
    handed_out(1000, 1ul << 30, -5);
    for (unsigned int threads : regions.thread_counts()) EXPECT_EQ(threads, 1u);
}

namespace {

// How often each lease is given out.
std::vector<int> leased(unsigned long count, unsigned long bytes, int threads) {
    std::vector<std::atomic<int>> seen(most_bodies(count, bytes, threads));
    parallel_leases(count, bytes, threads,
                    [&](unsigned long, unsigned long, unsigned long lease) { ++seen.at(lease); });
    return {seen.begin(), seen.end()};
}

}  // namespace

TEST(parallel_leases, go_to_one_body_each) {
    for (int threads : {-3, 0, 1, 2, 3, 7}) {
        for (unsigned long count : {0ul, 1ul, 2ul, 5ul, 1000ul}) {
            for (unsigned long bytes : {16ul, 1ul << 30}) {
                const auto bodies = static_cast<unsigned long>(omp_get_max_threads());
                const unsigned long asked = threads == 0  ? bodies
                                            : threads < 0 ? 1
                                                          : static_cast<unsigned long>(threads);
                const unsigned long most = bytes == 16 ? std::min(count, 1ul) : std::min(count, asked);
                EXPECT_EQ(leased(count, bytes, threads), std::vector<int>(most, 1))
                    << count << " items, " << threads << " thread(s)";
            }
        }
    }
}

// There the thread's own number is that of the host's team.
TEST(parallel_leases, begin_at_0_on_every_thread_of_a_hosts_region) {
    std::vector<std::vector<int>> small(8), large(8);
#pragma omp parallel for num_threads(8) schedule(static, 1)
    for (std::size_t i = 0; i < 8; ++i) {
        small[i] = leased(1000, 16, 1);
        large[i] = leased(1000, 1ul << 30, 1);
    }
    EXPECT_EQ(small, std::vector<std::vector<int>>(8, {1}));
    EXPECT_EQ(large, std::vector<std::vector<int>>(8, {1}));
}

TEST(parallel_shares, let_an_exception_of_a_body_reach_the_caller_when_all_have_ended) {
    for (const int threads : {1, 2, 3, 7}) {
        for (const unsigned long bytes : {16ul, 1ul << 30}) {
            for (const unsigned long thrower : {0ul, 9ul}) {
                std::atomic<unsigned long> ended = 0;
                const auto body = [&](unsigned long begin, unsigned long end) {
                    if (begin <= thrower && thrower < end) throw std::length_error("one of them");
                    ended += end - begin;
                };
                EXPECT_THROW(parallel_shares(10, bytes, threads, body), std::length_error) << threads << " thread(s)";
                const bool alone = threads == 1 || bytes == 16;
                EXPECT_EQ(ended == 0, alone) << threads << " thread(s)";
            }
        }
    }
}

TEST(parallel_shares, let_one_exception_of_several_reach_the_caller) {
    const auto body = [](unsigned long begin, unsigned long) { throw static_cast<int>(begin); };
    EXPECT_THROW(parallel_shares(10, 1ul << 30, 5, body), int);
    EXPECT_EQ(handed_out(10, 1ul << 30, 5), std::vector<int>(10, 1)) << "the next region is as any other";
}
