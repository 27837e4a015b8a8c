#pragma once

#include "statevector/plan/buffer_shape.hpp"
#include "statevector/plan/footprint.hpp"

#include <functional>
#include <vector>

namespace velacamplix::plan {

// Which gates may change places. Gates that share only bits which both merely read commute. Unless results may differ
// by rounding, one of the two must also move amplitudes and do nothing else to them: then the other does the same
// arithmetic with the same numbers before as after, to the last bit and to the sign of a zero.
enum class exchange { exact, up_to_rounding };

// Gates that act, in this order, while the bits under `local` are together in a buffer. One gate that mixes more than
// a buffer holds has local = 0 and runs over the whole array.
struct layer {
    std::vector<unsigned long> gates;
    unsigned long local = 0;
};

// Deals gates out to layers for an array of 2^nbqbits amplitudes, and hands over one after another until `take`
// returns false. A layer takes every gate that fits its buffer and may overtake those left behind, from the first to
// a bounded distance. Spare places are filled with the lowest bits, which lengthens the runs.
void deal_out(const std::vector<footprint>& gates, unsigned nbqbits, buffer_shape shape, exchange allowed,
              const std::function<bool(layer)>& take);

// Adds the lowest free bits until `wanted` bits are local.
unsigned long fill_up(unsigned long local, unsigned nbqbits, unsigned wanted);

}  // namespace velacamplix::plan
