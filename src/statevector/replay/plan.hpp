#pragma once

#include <vector>

namespace velacamplix::replay {

// What the planner knows of a gate: the index bits whose values it mixes. Only these must be gathered into a buffer; a
// control, or the target of a diagonal gate, is a constant for a chunk that does not contain it.
struct footprint {
    unsigned long mixed;
};

// Gates first ... last - 1 act while the bits under `local` are together in a buffer. A stretch whose one gate mixes
// more than a buffer holds has local = 0 and runs over the whole array.
struct stretch {
    unsigned long first;
    unsigned long last;
    unsigned long local;
};

// How large the buffers of one level are.
struct buffer_shape {
    unsigned run_bits;    // this many lowest bits are always local: a run of 2^run_bits amplitudes is contiguous
    unsigned local_bits;  // most bits that are local at a time
};

// Adds the lowest free bits until `wanted` bits are local.
unsigned long fill_up(unsigned long local, unsigned nbqbits, unsigned wanted);

// Cuts gates begin ... end - 1, in their order, into the fewest stretches for an array of 2^nbqbits amplitudes. Spare
// places are filled with the lowest bits, which lengthens the runs.
std::vector<stretch> cut(const std::vector<footprint>& gates, unsigned long begin, unsigned long end, unsigned nbqbits,
                         buffer_shape shape);

}  // namespace velacamplix::replay
