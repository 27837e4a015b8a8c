#pragma once

namespace velacamplix::object {

// Four bytes from the system's random source; from the clock where that is not ready.
unsigned int draw_seed();

}  // namespace velacamplix::object
