#pragma once

#include <velacamplix/threads.hpp>

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <exception>

namespace velacamplix::storage {

// What one thread works on.
struct share {
    unsigned long begin;
    unsigned long end;
};

// The contiguous share of thread `t` of `team` in [0, count): the first count % team threads take one item more.
inline share share_of(unsigned long count, unsigned long team, unsigned long t) {
    const unsigned long least = count / team;
    const unsigned long rest = count % team;
    const unsigned long begin = t * least + std::min(t, rest);
    return {begin, begin + least + (t < rest ? 1 : 0)};
}

// Threads of a region opened for this request: what parallel_shares uses at most.
inline int team_size(int nthreads) {
    const int team = pbamplix::get_num_threads(nthreads);
    return team == 0 ? omp_get_max_threads() : team;
}

// Below this many bytes of touched amplitudes a region costs more than a second thread saves (an empty region of two
// threads takes half a microsecond, and each thread's share then comes from the other's cache).
inline constexpr unsigned long worthwhile_bytes = 256ul << 10;

// Most bodies that one call of parallel_shares runs.
inline unsigned long most_bodies(unsigned long count, unsigned long bytes, int nthreads) {
    if (bytes < worthwhile_bytes) return std::min(count, 1ul);
    return std::min(count, static_cast<unsigned long>(team_size(nthreads)));
}

// Whether a region opened here and now may get more than one thread: not within a host's region that lets no other open
// inside.
inline bool shares_work(int nthreads) {
    return team_size(nthreads) > 1 && omp_get_active_level() < omp_get_max_active_levels();
}

// Calls body(begin, end) once per thread over its share of [0, count). All parallel loops of the library open here.
// `bytes` is what the whole range touches; a range too small to share runs on the calling thread. `nthreads` is a
// request as for get_num_threads. An exception of a body reaches the caller when all others have ended (one of them, if
// several throw): what a body writes must be of no worth then, so whoever changes a state takes his memory beforehand.
template <class Body>
void parallel_shares(unsigned long count, unsigned long bytes, int nthreads, Body&& body) {
    const int threads = team_size(nthreads);
    if (threads == 1 || count < 2 || bytes < worthwhile_bytes) {
        if (count != 0) body(0ul, count);
        return;
    }
    std::atomic_flag failed;
    std::exception_ptr failure;
#pragma omp parallel num_threads(threads)
    {
        const auto [begin, end] = share_of(count, static_cast<unsigned long>(omp_get_num_threads()),
                                           static_cast<unsigned long>(omp_get_thread_num()));
        try {
            if (begin != end) body(begin, end);
        } catch (...) {  // must not leave the region
            if (!failed.test_and_set()) failure = std::current_exception();
        }
    }
    if (failure) std::rethrow_exception(failure);
}

// The same with body(begin, end, lease). No other body of this call has the same lease, and all are below
// most_bodies(count, bytes, nthreads): each finds its buffer by it among those allocated beforehand. The number of the
// thread would not do, and so it is known to nobody: what runs on the calling thread runs in a team of the host's.
template <class Body>
void parallel_leases(unsigned long count, unsigned long bytes, int nthreads, Body&& body) {
    std::atomic<unsigned long> leased = 0;
    parallel_shares(count, bytes, nthreads, [&](unsigned long begin, unsigned long end) {
        body(begin, end, leased.fetch_add(1, std::memory_order_relaxed));
    });
}

}  // namespace velacamplix::storage
