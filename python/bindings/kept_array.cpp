#include "kept_array.hpp"

#include <velacamplix/storage.hpp>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <new>

namespace velacamplix::python::kept_array {

namespace {

// Of smaller arrays malloc keeps the pages itself.
constexpr std::size_t least_bytes = 32ul << 20, most_bytes = 1ul << 30;

// Where an array begins while it is kept.
struct Head {
    std::size_t bytes;
};

std::atomic<Head*> kept{nullptr};

void release(void* array) {
    // The type does not matter: amplitudes have no destructor.
    pbamplix::aligned_array_delete(static_cast<thrust::complex<double>*>(array));
}

// Takes none where somebody has put one meanwhile.
void put_back(Head* head) {
    Head* nothing = nullptr;
    if (head != nullptr && !kept.compare_exchange_strong(nothing, head)) release(head);
}

// Under a limit of addresses a kept array would be in the way of others, and nobody would drop it.
bool addresses_are_limited() {
    rlimit limit{};
    return getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

// Lets the system take the array's whole pages as long as nobody writes to them.
bool offer_to_system(void* array, std::size_t bytes) {
    const auto page = static_cast<std::uintptr_t>(getpagesize());
    const auto begin = (reinterpret_cast<std::uintptr_t>(array) + page - 1) & ~(page - 1);
    const auto end = (reinterpret_cast<std::uintptr_t>(array) + bytes) & ~(page - 1);
    return madvise(reinterpret_cast<void*>(begin), end - begin, MADV_FREE) == 0;
}

}  // namespace

void keep(void* array, std::size_t bytes) noexcept {
    if (bytes < least_bytes || bytes > most_bytes || addresses_are_limited() || !offer_to_system(array, bytes)) {
        return release(array);
    }
    if (Head* const before = kept.exchange(new (array) Head{bytes})) release(before);
}

void* take(std::size_t bytes) noexcept {
    Head* const head = kept.exchange(nullptr);
    if (head == nullptr || head->bytes == bytes) return head;
    put_back(head);
    return nullptr;
}

std::size_t bytes() noexcept {
    Head* const head = kept.exchange(nullptr);
    const std::size_t found = head == nullptr ? 0 : head->bytes;
    put_back(head);
    return found;
}

bool drop() noexcept {
    Head* const head = kept.exchange(nullptr);
    if (head != nullptr) release(head);
    return head != nullptr;
}

}  // namespace velacamplix::python::kept_array
