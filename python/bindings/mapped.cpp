#include "bindings.hpp"
#include "file_mapping.hpp"
#include "held_state.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace velacamplix::python {

namespace {

void raise_as_python_does(int error, const char* message) {
    PyErr_SetObject(PyExc_OSError, py::make_tuple(error, message).ptr());
}

// A state whose amplitudes are blocks of a file.
py::object mapped_state(int descriptor, const std::vector<unsigned long>& blocks, std::size_t block_bytes,
                        unsigned int n, bool single) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t amplitude = single ? sizeof(thrust::complex<float>) : sizeof(thrust::complex<double>);
    struct stat about;
    if (fstat(descriptor, &about) != 0) throw std::system_error(errno, std::generic_category());
    const auto there = static_cast<std::size_t>(about.st_size);
    if (block_bytes == 0 || block_bytes % page != 0 || n > 58 || blocks.size() > there ||
        blocks.size() < ((amplitude << n) + block_bytes - 1) / block_bytes) {
        throw std::invalid_argument("the blocks do not fit the state");
    }
    for (const unsigned long block : blocks) {
        if (block >= there / block_bytes) throw std::invalid_argument("the file has no block " + std::to_string(block));
    }
    auto mapping = std::make_unique<FileMapping>(descriptor, blocks, block_bytes);
    if (single) return py::cast(std::make_shared<HeldState<float>>(n, std::move(mapping)));
    return py::cast(std::make_shared<HeldState<double>>(n, std::move(mapping)));
}

}  // namespace

void bind_mapped(py::module_& module) {
    py::register_local_exception_translator([](std::exception_ptr raised) {
        try {
            if (raised) std::rethrow_exception(raised);
        } catch (const FileGone& error) {
            raise_as_python_does(EIO, error.what());
        } catch (const std::system_error& error) {
            raise_as_python_does(error.code().value(), error.what());
        }
    });
    module.def("mapped_state", &mapped_state, py::arg("descriptor"), py::arg("blocks"), py::arg("block_bytes"),
               py::arg("n"), py::arg("single"));
}

}  // namespace velacamplix::python
