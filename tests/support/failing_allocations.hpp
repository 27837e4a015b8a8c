#pragma once

#include <new>

namespace support {

// During the life of the object the allocation number `which`, counted from 0, throws std::bad_alloc, and after it all
// others too or none. Counted are operator new and new[] in all forms, by this program, by the library, on any thread.
class FailingAllocations {
public:
    enum Extent { once, from_then_on };

    FailingAllocations(long which, Extent extent);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    bool have_failed() const;  // there was an allocation of that number
};

// For those who replace an allocation function: throws when its turn has come.
void fail_if_told();

}  // namespace support
