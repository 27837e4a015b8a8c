#pragma once

#include "export.hpp"

#define VELACAMPLIX_VERSION_MAJOR 0
#define VELACAMPLIX_VERSION_MINOR 2
#define VELACAMPLIX_VERSION_PATCH 0

namespace pbamplix {

// "major.minor.patch" of the library that was loaded, which may differ from the headers' macros above.
VELACAMPLIX_API const char* version() noexcept;

// The instruction-set level the loaded library was built for: "x86-64", "x86-64-v3", "x86-64-v4", or the
// processor's name elsewhere. The dynamic loader picks the highest that the machine supports.
VELACAMPLIX_API const char* instruction_set() noexcept;

}  // namespace pbamplix
