#pragma once

#include <functional>
#include <vector>

namespace velacamplix::replay {

// What the planner knows of a gate.
struct footprint {
    unsigned long mixed = 0;  // index bits whose values it mixes: only these must be gathered into a buffer
    unsigned long read = 0;   // its other bits: controls, and targets of a diagonal; constants for a chunk without them
    bool moves = false;       // it only moves amplitudes
};

// Which gates may change places. Gates that share only bits which both merely read commute. Unless results may differ
// by rounding, one of the two must also move amplitudes and do nothing else to them: then the other does the same
// arithmetic with the same numbers before as after, to the last bit and to the sign of a zero.
enum class exchange { exact, up_to_rounding };

// Gates that act, in this order, while the bits under `local` are together in a buffer. One gate that mixes more than
// a buffer holds has local = 0 and runs over the whole array.
struct stretch {
    std::vector<unsigned long> gates;
    unsigned long local = 0;
};

// How large the buffers of one level are.
struct buffer_shape {
    unsigned run_bits;    // this many lowest bits are always local: a run of 2^run_bits amplitudes is contiguous
    unsigned local_bits;  // most bits that are local at a time
};

// Deals gates out to stretches for an array of 2^nbqbits amplitudes, and hands over one after another until `take`
// returns false. A stretch takes every gate that fits its buffer and may overtake those left behind, from the first to
// a bounded distance. Spare places are filled with the lowest bits, which lengthens the runs.
void deal_out(const std::vector<footprint>& gates, unsigned nbqbits, buffer_shape shape, exchange allowed,
              const std::function<bool(stretch)>& take);

// Adds the lowest free bits until `wanted` bits are local.
unsigned long fill_up(unsigned long local, unsigned nbqbits, unsigned wanted);

}  // namespace velacamplix::replay
