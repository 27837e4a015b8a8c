#include "bindings.hpp"
#include "held_state.hpp"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace velacamplix::python {

namespace {

// Of every mapping its length, which the deleter of an array is not told.
class Lengths {
public:
    static void note(const void* start, std::size_t bytes) {
        const std::lock_guard<std::mutex> lock(mutex());
        table()[start] = bytes;
    }
    static std::size_t take(const void* start) {
        const std::lock_guard<std::mutex> lock(mutex());
        const auto found = table().extract(start);
        return found ? found.mapped() : 0;
    }

private:
    static std::map<const void*, std::size_t>& table() {
        static std::map<const void*, std::size_t> lengths;
        return lengths;
    }
    static std::mutex& mutex() {
        static std::mutex one;
        return one;
    }
};

template <class T>
void unmap(thrust::complex<T>* amplitudes) {
    munmap(static_cast<void*>(amplitudes), Lengths::take(amplitudes));
}

[[noreturn]] void refuse_by_system() {
    PyErr_SetFromErrno(errno == ENOMEM ? PyExc_MemoryError : PyExc_OSError);
    throw py::error_already_set();
}

// A state whose amplitudes are the blocks of a file, one after another in memory, for reading. `blocks` counts them in
// the file by their own size, a multiple of the system's pages.
template <class T>
std::shared_ptr<HeldState<T>> map_blocks(int descriptor, const std::vector<unsigned long>& blocks,
                                         std::size_t block_bytes, unsigned int n) {
    const std::size_t bytes = blocks.size() * block_bytes;
    void* const start = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (start == MAP_FAILED) refuse_by_system();
    Lengths::note(start, bytes);
    pbamplix::amplitude_array<T> amplitudes(static_cast<thrust::complex<T>*>(start), &unmap<T>);
    std::size_t at = 0;
    for (const unsigned long block : blocks) {
        void* const there = static_cast<char*>(start) + at;
        const auto offset = static_cast<off_t>(block * block_bytes);
        if (mmap(there, block_bytes, PROT_READ, MAP_SHARED | MAP_FIXED, descriptor, offset) == MAP_FAILED) {
            refuse_by_system();
        }
        at += block_bytes;
    }
    // Without this the system reads a page at a time and takes ten times as long. What it answers does not matter.
    madvise(start, bytes, MADV_SEQUENTIAL);
    auto held = std::make_shared<HeldState<T>>(0u);
    held->with_state([&](auto& state) {
        state.nqubits = n;
        state.size = 1ul << n;
        state.amplitudes = std::move(amplitudes);
    });
    return held;
}

py::object mapped_state(int descriptor, const std::vector<unsigned long>& blocks, std::size_t block_bytes,
                        unsigned int n, bool single) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t amplitude = single ? sizeof(thrust::complex<float>) : sizeof(thrust::complex<double>);
    struct stat about;
    if (fstat(descriptor, &about) != 0) refuse_by_system();
    const auto there = static_cast<std::size_t>(about.st_size);
    if (block_bytes == 0 || block_bytes % page != 0 || n > 58 || blocks.size() > there ||
        blocks.size() < ((amplitude << n) + block_bytes - 1) / block_bytes) {
        throw std::invalid_argument("the blocks do not fit the state");
    }
    for (const unsigned long block : blocks) {
        if (block >= there / block_bytes) throw std::invalid_argument("the file has no block " + std::to_string(block));
    }
    if (single) return py::cast(map_blocks<float>(descriptor, blocks, block_bytes, n));
    return py::cast(map_blocks<double>(descriptor, blocks, block_bytes, n));
}

}  // namespace

void bind_mapped(py::module_& module) {
    module.def("mapped_state", &mapped_state, py::arg("descriptor"), py::arg("blocks"), py::arg("block_bytes"),
               py::arg("n"), py::arg("single"));
}

}  // namespace velacamplix::python
