#pragma once

// Treats this header and what it includes as a system's: Thrust's code does not pass everyone's warning flags.
#pragma GCC system_header

// Thrust is used header-only, for thrust::complex alone; without this definition its headers ask for a GPU toolkit.
#ifndef THRUST_DEVICE_SYSTEM
#define THRUST_DEVICE_SYSTEM THRUST_DEVICE_SYSTEM_CPP
#endif

#include <thrust/complex.h>

namespace pbamplix {

// One entry of a state: real part first, 8 bytes for float, 16 for double.
template <class T>
using amplitude = thrust::complex<T>;

}  // namespace pbamplix
