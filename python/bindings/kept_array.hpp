#pragma once

#include <cstddef>

// The array of the last state that is gone, kept for the next state of that size: fresh memory costs as much as two
// passes over it. While it is kept the system may take its pages whenever it is short of memory, and counts them as
// available, but not as free; so whoever asks what is free has it dropped first.
//
// Any thread may call these, with the interpreter lock or without. They wait for nobody, so that a child process can
// call them whatever the threads of its parent were doing.

namespace velacamplix::python::kept_array {

// Keeps an array of the library's in place of the one before. Where it is not worth it, or the system could not take
// the pages back, it is released at once, as aligned_array_delete does it.
void keep(void* array, std::size_t bytes) noexcept;

// The array, if it has that many bytes; its content is of no worth. Otherwise null.
void* take(std::size_t bytes) noexcept;

// The bytes of the array, 0 without one.
std::size_t bytes() noexcept;

// Releases it; false without one.
bool drop() noexcept;

}  // namespace velacamplix::python::kept_array
