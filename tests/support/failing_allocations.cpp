#include "failing_allocations.hpp"

#include <atomic>

namespace support {
namespace {

constexpr long none = -1;
std::atomic<long> first_to_fail = none;
std::atomic<bool> only_this = true;
std::atomic<long> seen = 0;

}  // namespace

FailingAllocations::FailingAllocations(long which, Extent extent) {
    seen = 0;
    only_this = extent == once;
    first_to_fail = which;
}
FailingAllocations::~FailingAllocations() { first_to_fail = none; }
bool FailingAllocations::have_failed() const { return seen > first_to_fail; }

void fail_if_told() {
    const long which = first_to_fail;
    if (which == none) return;
    const long number = seen++;
    if (number == which || (number > which && !only_this)) throw std::bad_alloc();
}

}  // namespace support
