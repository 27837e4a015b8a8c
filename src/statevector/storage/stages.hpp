#pragma once

#include "statevector/storage/aligned_array.hpp"
#include "statevector/storage/parallel.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

namespace velacamplix::storage {

// Work that is done in stages, by all threads of one region: no unit of a stage begins before all of the stage before
// it are done. Every thread has a share of the units, as in parallel_shares, and takes it in pieces; who is through
// with his own takes pieces from the ends of the others'. So nobody waits for a thread that is late, because it slept
// or because another program has its processor, but for the piece that it is at.
//
// A region for each stage would be simpler. But a thread that has slept takes longer to wake than a small state's stage
// takes, all that are through would fall asleep meanwhile, and so on at every stage.
class staged_work {
public:
    struct stage {
        unsigned long units;
        unsigned long piece;  // units that a thread takes at a time, as long as a share has not too many of them
    };

    // Takes all the memory that working needs.
    staged_work(std::vector<stage> stages, unsigned long bytes, int nthreads)
        : stages_(std::move(stages)),
          bytes_(bytes),
          nthreads_(nthreads),
          takers_(static_cast<unsigned long>(team_size(nthreads))) {}

    // Works on the stages from `first` on. body(stage, begin, end, share_end, lease) does some units of a share that
    // ends at share_end; leases are as in parallel_leases, below the smaller of the team and the stage's units. Between
    // stages, and after the last, the calling thread asks between(stage), while no other works. When a body or
    // `between` returns false, or throws, nobody begins another piece.
    template <class Body, class Between>
    void work(unsigned long first, const Body& body, const Between& between) {
        if (first >= stages_.size()) return;
        if (takers_.size() == 1 || bytes_ < worthwhile_bytes) return work_alone(first, body, between);
        stopped_ = false;
        begin(first);
        const auto caller = std::this_thread::get_id();
        parallel_leases(takers_.size(), bytes_, nthreads_, [&](unsigned long, unsigned long, unsigned long lease) {
            std::this_thread::get_id() == caller ? lead(first, lease, body, between) : follow(lease, body);
        });
    }

private:
    // Where a thread's share is taken: pieces are gone from its front and from its back. The number of the stage stands
    // with them, so that nobody who is late takes from a share of another stage.
    struct alignas(line_bytes) taken {
        std::atomic<std::uint64_t> word;
    };
    static constexpr unsigned long most_pieces = 0xffff;
    static constexpr std::uint64_t one_at_front = 1, one_at_back = 1ul << 16;
    static constexpr unsigned stage_bit = 32;
    static constexpr std::uint32_t over = ~std::uint32_t{0};

    // How long a thread that has nothing to do asks again and again before it lets the system wake it.
    static constexpr std::chrono::microseconds awake{100};

    struct piece {
        unsigned long begin, end, share_end;
    };

    template <class Body, class Between>
    void work_alone(unsigned long first, const Body& body, const Between& between) const {
        for (unsigned long now = first; now < stages_.size(); ++now) {
            const auto [units, size] = stages_[now];
            for (unsigned long at = 0; at < units; at += std::min(size, units - at)) {
                if (!body(now, at, at + std::min(size, units - at), units, 0ul)) return;
            }
            if (!between(now)) return;
        }
    }

    unsigned long sharers(unsigned long number) const {
        return std::min<unsigned long>(takers_.size(), stages_[number].units);
    }

    unsigned long piece_of(unsigned long number) const {
        const auto [units, size] = stages_[number];
        return std::max(size, units / (std::max(sharers(number), 1ul) * most_pieces) + 1);
    }

    static unsigned long pieces_in(share s, unsigned long size) { return (s.end - s.begin + size - 1) / size; }

    void begin(unsigned long number) {
        const std::uint64_t tag = static_cast<std::uint64_t>(static_cast<std::uint32_t>(number)) << stage_bit;
        for (taken& t : takers_) t.word.store(tag, std::memory_order_relaxed);
        unsigned long pieces = 0;
        for (unsigned long t = 0; t < sharers(number); ++t) {
            pieces += pieces_in(share_of(stages_[number].units, sharers(number), t), piece_of(number));
        }
        unfinished_.store(static_cast<std::uint32_t>(pieces), std::memory_order_relaxed);
        stage_.store(static_cast<std::uint32_t>(number), std::memory_order_release);
        stage_.notify_all();
    }

    // The next piece for a thread; empty when all are taken.
    piece take(unsigned long number, unsigned long lease) {
        const unsigned long team = sharers(number), size = piece_of(number);
        if (lease >= team) return {0, 0, 0};
        for (unsigned long i = 0; i < team; ++i) {
            const unsigned long owner = lease + i < team ? lease + i : lease + i - team;
            const share all = share_of(stages_[number].units, team, owner);
            const unsigned long pieces = pieces_in(all, size);
            std::uint64_t word = takers_[owner].word.load(std::memory_order_relaxed);
            for (;;) {
                const unsigned long front = word & most_pieces, back = word >> 16 & most_pieces;
                if (word >> stage_bit != static_cast<std::uint32_t>(number)) return {0, 0, 0};
                if (front + back >= pieces) break;
                const std::uint64_t more = word + (i == 0 ? one_at_front : one_at_back);
                if (!takers_[owner].word.compare_exchange_weak(word, more, std::memory_order_relaxed)) continue;
                const unsigned long at = all.begin + size * (i == 0 ? front : pieces - 1 - back);
                return {at, std::min(at + size, all.end), all.end};
            }
        }
        return {0, 0, 0};
    }

    template <class Body>
    void work_on(unsigned long number, unsigned long lease, const Body& body) {
        std::uint32_t finished = 0;
        for (;;) {
            if (stopped_.load(std::memory_order_relaxed)) return;
            const piece next = take(number, lease);
            if (next.begin == next.end) break;
            bool goes_on = false;
            try {
                goes_on = body(number, next.begin, next.end, next.share_end, lease);
            } catch (...) {
                stop();
                throw;
            }
            if (!goes_on) return stop();
            ++finished;
        }
        if (finished == 0) return;
        if (unfinished_.fetch_sub(finished, std::memory_order_acq_rel) == finished) unfinished_.notify_all();
    }

    void stop() {
        stopped_ = true;
        unfinished_.store(0);  // of no worth any more: wakes the one who leads
        unfinished_.notify_all();
    }

    template <class Body, class Between>
    void lead(unsigned long first, unsigned long lease, const Body& body, const Between& between) {
        struct ending {
            staged_work& all;
            ~ending() {
                all.stage_.store(over, std::memory_order_release);
                all.stage_.notify_all();
            }
        } const others_leave{*this};
        for (unsigned long number = first; number < stages_.size(); ++number) {
            if (number != first) begin(number);
            work_on(number, lease, body);
            wait_until(unfinished_, [this](std::uint32_t pieces) { return pieces == 0 || stopped_; });
            if (stopped_) return;
            if (!between(number)) {
                stopped_ = true;
                return;
            }
        }
    }

    template <class Body>
    void follow(unsigned long lease, const Body& body) {
        std::uint32_t now = stage_.load(std::memory_order_acquire);
        while (now != over) {
            work_on(now, lease, body);
            now = wait_until(stage_, [now](std::uint32_t number) { return number != now; });
        }
    }

    template <class Done>
    static std::uint32_t wait_until(const std::atomic<std::uint32_t>& number, const Done& done) {
        const auto sleeps_from = std::chrono::steady_clock::now() + awake;
        do {
            for (int i = 0; i < 64; ++i) {
                const std::uint32_t value = number.load(std::memory_order_acquire);
                if (done(value)) return value;
                relax();
            }
        } while (std::chrono::steady_clock::now() < sleeps_from);
        for (;;) {
            const std::uint32_t value = number.load(std::memory_order_acquire);
            if (done(value)) return value;
            number.wait(value, std::memory_order_acquire);
        }
    }

    // Leaves the processor's units to the thread beside it for a moment.
    static void relax() {
#if defined(__x86_64__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }

    std::vector<stage> stages_;
    unsigned long bytes_;
    int nthreads_;
    std::vector<taken> takers_;  // by lease
    alignas(line_bytes) std::atomic<std::uint32_t> stage_ = over;
    alignas(line_bytes) std::atomic<std::uint32_t> unfinished_ = 0;  // pieces of the stage
    std::atomic<bool> stopped_ = false;
};

}  // namespace velacamplix::storage
