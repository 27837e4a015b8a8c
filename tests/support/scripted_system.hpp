#pragma once

#include <string>
#include <vector>

// What the operating system answers to the library. This program's own `sysinfo`, `getrandom`, `getpagesize`,
// `madvise` and aligned array allocation stand before the C library's; without a script they pass every call on.
namespace support {

// Free memory as the library is told, for the life of the object.
class ScriptedMemory {
public:
    // free bytes = free_units * unit, as the system call reports them.
    explicit ScriptedMemory(unsigned long free_units, unsigned int unit = 1);
    ~ScriptedMemory();
    ScriptedMemory(const ScriptedMemory&) = delete;
    ScriptedMemory& operator=(const ScriptedMemory&) = delete;

    void set_free_units(unsigned long free_units);
    void set_free_swap_units(unsigned long free_swap_units);
    void fail();  // the call returns -1 though it filled in plenty of memory

    int queries() const;
};

// The next answers of the system's random source; afterwards, and when `refuse` was called, it has none to give.
class ScriptedEntropy {
public:
    struct Request {
        unsigned long bytes;
        unsigned int flags;
    };

    explicit ScriptedEntropy(std::vector<unsigned int> answers);
    ~ScriptedEntropy();
    ScriptedEntropy(const ScriptedEntropy&) = delete;
    ScriptedEntropy& operator=(const ScriptedEntropy&) = delete;

    void answer_only(long bytes);  // every call returns this many bytes (or -1) instead of 4

    const std::vector<Request>& requests() const;
};

// Every allocation and release of 64-byte aligned arrays, and every memory query, in order.
class WatchedArrays {
public:
    struct Event {
        enum Kind { allocated, released, queried } kind;
        unsigned long bytes;  // of an allocation
        const void* array;
    };

    WatchedArrays();
    ~WatchedArrays();
    WatchedArrays(const WatchedArrays&) = delete;
    WatchedArrays& operator=(const WatchedArrays&) = delete;

    void refuse_allocations();  // the allocator itself fails: std::bad_alloc

    const std::vector<Event>& events() const;
    std::string order() const;  // "query allocate release ..."
};

// A system whose pages have this many bytes; keeps what the library advises about its memory instead of passing it on.
class ScriptedPages {
public:
    struct Advice {
        unsigned long begin, bytes;
        int advice;
    };

    explicit ScriptedPages(unsigned int bytes);
    ~ScriptedPages();
    ScriptedPages(const ScriptedPages&) = delete;
    ScriptedPages& operator=(const ScriptedPages&) = delete;

    const std::vector<Advice>& advice() const;
};

}  // namespace support
