#include "scripted_system.hpp"

#include "failing_allocations.hpp"

#include <sys/mman.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace support {
namespace {

struct MemoryScript {
    bool active = false;
    bool fails = false;
    unsigned long free_units = 0, free_swap_units = 0;
    unsigned int unit = 1;
    int queries = 0;
} memory;

struct EntropyScript {
    bool active = false;
    std::vector<unsigned int> answers;
    unsigned long next = 0;
    long returned = 4;
    std::vector<ScriptedEntropy::Request> requests;
} entropy;

struct ArrayLog {
    bool active = false;
    bool refuses = false;
    std::vector<WatchedArrays::Event> events;
} arrays;

struct PageScript {
    unsigned int bytes = 0;  // 0: not active
    std::vector<ScriptedPages::Advice> advice;
} pages;

}  // namespace

ScriptedMemory::ScriptedMemory(unsigned long free_units, unsigned int unit) {
    memory = {};
    memory.active = true;
    memory.free_units = free_units;
    memory.unit = unit;
}
ScriptedMemory::~ScriptedMemory() { memory = {}; }
void ScriptedMemory::set_free_units(unsigned long free_units) { memory.free_units = free_units; }
void ScriptedMemory::set_free_swap_units(unsigned long free_swap_units) { memory.free_swap_units = free_swap_units; }
void ScriptedMemory::fail() { memory.fails = true; }
int ScriptedMemory::queries() const { return memory.queries; }

ScriptedEntropy::ScriptedEntropy(std::vector<unsigned int> answers) {
    entropy = {};
    entropy.active = true;
    entropy.answers = std::move(answers);
}
ScriptedEntropy::~ScriptedEntropy() { entropy = {}; }
void ScriptedEntropy::answer_only(long bytes) { entropy.returned = bytes; }
const std::vector<ScriptedEntropy::Request>& ScriptedEntropy::requests() const { return entropy.requests; }

WatchedArrays::WatchedArrays() {
    arrays = {};
    arrays.active = true;
}
WatchedArrays::~WatchedArrays() { arrays = {}; }
void WatchedArrays::refuse_allocations() { arrays.refuses = true; }
const std::vector<WatchedArrays::Event>& WatchedArrays::events() const { return arrays.events; }
std::string WatchedArrays::order() const {
    std::string text;
    for (const Event& event : arrays.events) {
        if (!text.empty()) text += " ";
        text += event.kind == Event::queried ? "query" : event.kind == Event::allocated ? "allocate" : "release";
    }
    return text;
}

ScriptedPages::ScriptedPages(unsigned int bytes) { pages = {bytes, {}}; }
ScriptedPages::~ScriptedPages() { pages = {}; }
const std::vector<ScriptedPages::Advice>& ScriptedPages::advice() const { return pages.advice; }

namespace {

long answer_entropy(void* buffer, unsigned long length, unsigned int flags) {
    entropy.requests.push_back({length, flags});
    if (entropy.returned < 0 || entropy.next == entropy.answers.size()) {
        errno = EAGAIN;
        return -1;
    }
    const unsigned int answer = entropy.answers[entropy.next++];
    std::memcpy(buffer, &answer, length < 4 ? length : 4);
    return entropy.returned;
}

void* allocate_array(unsigned long bytes, unsigned long alignment) {
    if (arrays.active && arrays.refuses && alignment == 64) throw std::bad_alloc();
    fail_if_told();
    const unsigned long rounded = (bytes + alignment - 1) / alignment * alignment;
    void* array = std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
    if (array == nullptr) throw std::bad_alloc();
    if (arrays.active && alignment == 64) arrays.events.push_back({WatchedArrays::Event::allocated, bytes, array});
    return array;
}

void release_array(void* array, unsigned long alignment) noexcept {
    if (arrays.active && alignment == 64) arrays.events.push_back({WatchedArrays::Event::released, 0, array});
    std::free(array);
}

}  // namespace
}  // namespace support

extern "C" int sysinfo(struct sysinfo* info) noexcept {
    using namespace support;
    if (arrays.active) arrays.events.push_back({WatchedArrays::Event::queried, 0, nullptr});
    if (!memory.active) return static_cast<int>(syscall(SYS_sysinfo, info));
    ++memory.queries;
    std::memset(info, 0, sizeof *info);
    info->mem_unit = memory.unit;
    info->freeram = memory.fails ? 1ul << 50 : memory.free_units;
    info->freeswap = memory.free_swap_units;
    // Much of everything that does not count.
    info->totalram = info->totalswap = info->bufferram = info->sharedram = 1ul << 50;
    return memory.fails ? -1 : 0;
}

extern "C" ssize_t getrandom(void* buffer, size_t length, unsigned int flags) {
    if (support::entropy.active) return support::answer_entropy(buffer, length, flags);
    return syscall(SYS_getrandom, buffer, length, flags);
}

extern "C" int getpagesize() noexcept {
    return static_cast<int>(support::pages.bytes != 0 ? support::pages.bytes : sysconf(_SC_PAGESIZE));
}

extern "C" int madvise(void* begin, size_t bytes, int advice) noexcept {
    if (support::pages.bytes == 0) return static_cast<int>(syscall(SYS_madvise, begin, bytes, advice));
    support::pages.advice.push_back({reinterpret_cast<unsigned long>(begin), bytes, advice});
    return 0;
}

void* operator new[](std::size_t bytes, std::align_val_t alignment) {
    return support::allocate_array(bytes, static_cast<unsigned long>(alignment));
}
void* operator new[](std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    try {
        return support::allocate_array(bytes, static_cast<unsigned long>(alignment));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete[](void* array, std::align_val_t alignment) noexcept {
    support::release_array(array, static_cast<unsigned long>(alignment));
}
void operator delete[](void* array, std::size_t, std::align_val_t alignment) noexcept {
    support::release_array(array, static_cast<unsigned long>(alignment));
}
