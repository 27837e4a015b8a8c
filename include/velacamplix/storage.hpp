#pragma once

#include "amplitude.hpp"
#include "export.hpp"

#include <memory>

namespace pbamplix {

// Releases an amplitude array that the library allocated (aligned array form of operator delete, 64 bytes).
// Instantiated for thrust::complex<float> and thrust::complex<double>.
template <class A>
VELACAMPLIX_API void aligned_array_delete(A* p);

// The owning holder of a state's array: an empty one holds a null pointer and never calls its deleter.
template <class T>
using amplitude_array = std::unique_ptr<thrust::complex<T>[], void (*)(thrust::complex<T>*)>;

}  // namespace pbamplix
