#include "statevector/object/seed.hpp"

#include <sys/random.h>

#include <chrono>
#include <cstdint>

namespace velacamplix::object {

unsigned int draw_seed() {
    unsigned int seed;
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof seed)) return seed;
    const std::int64_t now =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    const std::int64_t seconds = now / 1000000000;
    const std::int64_t nanoseconds = now - seconds * 1000000000;
    // Microseconds in the upper bits, the low bits of the second below them.
    return (static_cast<unsigned int>(nanoseconds / 1000) << 16) + static_cast<unsigned int>(seconds % 65536);
}

}  // namespace velacamplix::object
