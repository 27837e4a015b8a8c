#pragma once

#include <atomic>
#include <stdexcept>
#include <thread>

namespace velacamplix::python {

// A mutex that knows when waiting would take for ever, and throws instead. Its owner may be the caller itself, in a
// function that the library calls while it works. Or the owner may be gone: a child process begins with the one thread
// that forked, and what another thread was holding then stays taken.
class Turn {
public:
    void lock() {
        const int mine = generation();
        for (int owner = 0; !owner_.compare_exchange_strong(owner, mine); owner = 0) {
            if (owner != mine) {
                throw std::runtime_error(
                    "another thread was using this state vector when the process forked; in the new process it cannot "
                    "be used");
            }
            if (thread_ == std::this_thread::get_id()) {
                throw std::runtime_error("this state vector is at work; it cannot be used by what its work calls");
            }
            owner_.wait(owner);
        }
        thread_ = std::this_thread::get_id();
    }
    // Takes it if nobody has it.
    bool try_lock() {
        int nobody = 0;
        if (!owner_.compare_exchange_strong(nobody, generation())) return false;
        thread_ = std::this_thread::get_id();
        return true;
    }
    void unlock() {
        thread_ = std::thread::id();
        owner_ = 0;
        owner_.notify_one();
    }

    // To be called in a child process, before anything else.
    static void begin_generation() { ++generation(); }

private:
    // 1 in the process that loaded the module, one more in each child's child.
    static std::atomic<int>& generation() {
        static std::atomic<int> number{1};
        return number;
    }

    std::atomic<int> owner_{0};  // the generation that took the turn; 0 while nobody has it
    std::atomic<std::thread::id> thread_{};
};

}  // namespace velacamplix::python
