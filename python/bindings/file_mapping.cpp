#include "file_mapping.hpp"

#include <sys/mman.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>
#include <new>
#include <system_error>

namespace velacamplix::python {

// Of one mapping what the signal's handler needs. The handler may run at any moment, so a place is never freed: it
// waits for the next mapping.
struct FileMapping::Place {
    std::atomic<std::uintptr_t> start{0};
    std::atomic<std::size_t> bytes{0};  // 0: free
    std::atomic<bool> is_gone{false};
    Place* next = nullptr;
};

namespace {

std::atomic<FileMapping::Place*> places{nullptr};
std::mutex mutex;  // of those who take and give back places, and of those who look after the handler
// What was to be done before; written before the handler is there.
struct sigaction before;
// Whether the handler has stepped back once since it was put there.
std::atomic<bool> has_stepped_back{false};

bool becomes_zeros(std::uintptr_t address) {
    for (FileMapping::Place* place = places.load(); place != nullptr; place = place->next) {
        const std::size_t bytes = place->bytes.load();
        const std::uintptr_t start = place->start.load();
        if (address - start >= bytes || place->bytes.load() != bytes) continue;
        place->is_gone.store(true);
        void* const there = reinterpret_cast<void*>(start);
        return mmap(there, bytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0) == there;
    }
    return false;
}

extern "C" void on_bus_error(int number, siginfo_t* about, void*) {
    const int error = errno;
    const bool is_of_memory = about->si_code > 0;  // and not sent by someone
    const bool is_done = is_of_memory && becomes_zeros(reinterpret_cast<std::uintptr_t>(about->si_addr));
    errno = error;
    if (is_done) return;
    // Not ours. What was there before hears of it when it happens again. It may hand the signal back to this handler,
    // and then the process ends as it would by itself.
    struct sigaction plain = {};
    plain.sa_handler = SIG_DFL;
    sigaction(number, has_stepped_back.exchange(true) ? &plain : &before, nullptr);
    if (!is_of_memory) raise(number);
}

void look_after_handler() {
    struct sigaction now = {};
    sigaction(SIGBUS, nullptr, &now);
    if ((now.sa_flags & SA_SIGINFO) != 0 && now.sa_sigaction == &on_bus_error) return;
    const std::lock_guard<std::mutex> lock(mutex);
    before = now;
    has_stepped_back.store(false);
    struct sigaction ours = {};
    ours.sa_sigaction = &on_bus_error;
    ours.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&ours.sa_mask);
    sigaction(SIGBUS, &ours, nullptr);
}

FileMapping::Place* free_place() {
    for (FileMapping::Place* place = places.load(); place != nullptr; place = place->next) {
        if (place->bytes.load() == 0) return place;
    }
    auto* const made = new FileMapping::Place;
    made->next = places.load();
    places.store(made);
    return made;
}

[[noreturn]] void refuse_by_system() {
    if (errno == ENOMEM) throw std::bad_alloc();
    throw std::system_error(errno, std::generic_category());
}

}  // namespace

FileMapping::FileMapping(int descriptor, const std::vector<unsigned long>& blocks, std::size_t block_bytes) {
    const std::size_t bytes = blocks.size() * block_bytes;
    void* const start = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (start == MAP_FAILED) refuse_by_system();
    std::size_t at = 0;
    for (const unsigned long block : blocks) {
        void* const there = static_cast<char*>(start) + at;
        const auto offset = static_cast<off_t>(block * block_bytes);
        if (mmap(there, block_bytes, PROT_READ, MAP_SHARED | MAP_FIXED, descriptor, offset) == MAP_FAILED) {
            const int error = errno;
            munmap(start, bytes);
            errno = error;
            refuse_by_system();
        }
        at += block_bytes;
    }
    // Without this the system reads a page at a time and takes ten times as long. What it answers does not matter.
    madvise(start, bytes, MADV_SEQUENTIAL);
    const std::lock_guard<std::mutex> lock(mutex);
    place_ = free_place();
    place_->is_gone.store(false);
    place_->start.store(reinterpret_cast<std::uintptr_t>(start));
    place_->bytes.store(bytes);
}

FileMapping::~FileMapping() {
    const std::lock_guard<std::mutex> lock(mutex);
    munmap(start(), place_->bytes.exchange(0));
}

void* FileMapping::start() const { return reinterpret_cast<void*>(place_->start.load()); }

void FileMapping::begin() const {
    require_whole();
    look_after_handler();
}

void FileMapping::require_whole() const {
    if (!place_->is_gone.load()) return;
    throw FileGone(
        "the state's file could not be read: somebody has shortened it, or the disk has failed; make the state anew");
}

}  // namespace velacamplix::python
