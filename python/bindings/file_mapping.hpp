#pragma once

#include <cstddef>
#include <stdexcept>
#include <vector>

namespace velacamplix::python {

// What a state lies in has become shorter, or the disk does not give it back. OSError in Python.
struct FileGone : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Blocks of a file, one after another in memory, for reading. `blocks` counts them in the file by their own size, a
// multiple of the system's pages; all of them lie within the file now.
//
// The system ends a process that reads from a mapping what the file does not have any more, or what the disk cannot
// read. Here it does not: the whole mapping becomes zeros, and `require_whole` throws from then on. Work on a mapping
// stands between `begin` and `require_whole`. What the system itself reads, to write it elsewhere for example, fails
// with EFAULT.
class FileMapping {
public:
    // Throws std::bad_alloc, or std::system_error with what the system says.
    FileMapping(int descriptor, const std::vector<unsigned long>& blocks, std::size_t block_bytes);
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;
    ~FileMapping();

    void* start() const;
    // Throws FileGone too. Looks after the signal, which anyone in the process may have taken meanwhile.
    void begin() const;
    void require_whole() const;

    struct Place;

private:
    Place* place_;
};

}  // namespace velacamplix::python
