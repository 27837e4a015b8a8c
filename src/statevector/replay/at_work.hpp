#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace velacamplix::replay {

// How many threads are at work. The one that hears waits for the others here, not at the end of the region, so that it
// hears until the end.
class at_work {
public:
    // Notes that this thread is at work for as long as the object lives.
    class one {
    public:
        explicit one(at_work& all) : all_(all) {
            const std::lock_guard<std::mutex> lock(all_.mutex_);
            ++all_.count_;
        }
        one(const one&) = delete;
        one& operator=(const one&) = delete;
        ~one() {
            const std::lock_guard<std::mutex> lock(all_.mutex_);
            --all_.count_;
            all_.changed_.notify_all();
        }

    private:
        at_work& all_;
    };

    // Calls hear() several times a second until no thread but the caller's is at work, or it returns false.
    template <class Hear>
    void outwait_others(Hear hear) {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!changed_.wait_for(lock, std::chrono::milliseconds(10), [this] { return count_ == 1; })) {
            lock.unlock();
            if (!hear()) return;
            lock.lock();
        }
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned long count_ = 0;
};

}  // namespace velacamplix::replay
