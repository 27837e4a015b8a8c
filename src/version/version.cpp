#include <velacamplix/version.hpp>

#define TEXT_OF(x) #x
#define TEXT(x) TEXT_OF(x)

namespace pbamplix {

const char* version() noexcept {
    return TEXT(VELACAMPLIX_VERSION_MAJOR) "." TEXT(VELACAMPLIX_VERSION_MINOR) "." TEXT(VELACAMPLIX_VERSION_PATCH);
}

// The build names the level: the same sources are compiled once for each.
const char* instruction_set() noexcept { return VELACAMPLIX_INSTRUCTION_SET; }

}  // namespace pbamplix
