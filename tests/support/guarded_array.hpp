#pragma once

#include "reference/complex.hpp"

#include <gtest/gtest.h>
#include <velacamplix/amplitude.hpp>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace support {

// An amplitude array between two fences of known bytes: whatever a kernel writes outside is found. `shifted_by`
// moves the array off its 64-byte boundary by whole amplitudes, as a host's own buffer may lie.
template <class T>
class GuardedArray {
public:
    explicit GuardedArray(unsigned long size, unsigned long shifted_by = 0)
        : bytes_(size * sizeof(thrust::complex<T>)),
          before_(fence + shifted_by * sizeof(thrust::complex<T>)),
          total_((before_ + bytes_ + fence + 63) / 64 * 64),
          memory_(static_cast<unsigned char*>(std::aligned_alloc(64, total_))) {
        std::memset(memory_.get(), pattern, total_);
    }
    explicit GuardedArray(const reference::State<T>& start, unsigned long shifted_by = 0)
        : GuardedArray(start.size(), shifted_by) {
        load(start);
    }

    thrust::complex<T>* data() { return reinterpret_cast<thrust::complex<T>*>(memory_.get() + before_); }

    void load(const reference::State<T>& start) { std::memcpy(memory_.get() + before_, start.data(), bytes_); }

    testing::AssertionResult fences_stand() const {
        for (unsigned long i = before_; i-- > 0;) {
            if (memory_.get()[i] == pattern) continue;
            return testing::AssertionFailure() << "a write " << before_ - i << " byte(s) before the array";
        }
        for (unsigned long i = before_ + bytes_; i < total_; ++i) {
            if (memory_.get()[i] == pattern) continue;
            return testing::AssertionFailure() << "a write " << i - before_ - bytes_ << " byte(s) behind the array";
        }
        return testing::AssertionSuccess();
    }

private:
    struct Free {
        void operator()(unsigned char* p) const { std::free(p); }
    };
    static constexpr unsigned long fence = 1024;
    static constexpr unsigned char pattern = 0xA5;

    unsigned long bytes_, before_, total_;
    std::unique_ptr<unsigned char, Free> memory_;
};

}  // namespace support
