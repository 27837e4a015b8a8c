#pragma once

namespace support {

// Heap allocations through operator new, by this program and by the library, during the life of the object.
class CountedAllocations {
public:
    CountedAllocations();
    ~CountedAllocations();
    CountedAllocations(const CountedAllocations&) = delete;
    CountedAllocations& operator=(const CountedAllocations&) = delete;

    long count() const;
};

}  // namespace support
