#pragma once

namespace velacamplix::plan {

// How large the buffers are that hold a chunk of the state.
struct buffer_shape {
    unsigned run_bits;    // this many lowest bits are always local: a run of 2^run_bits amplitudes is contiguous
    unsigned local_bits;  // most bits that are local at a time
};

// As the system tells it of the core that asks.
unsigned long first_level_cache_bytes();

// The buffers that suit a state of 2^nbqbits amplitudes T worked on by `threads` threads, whose first-level caches have
// so many bytes. The bits of an exact run do not depend on them.
template <class T>
buffer_shape choose_shape(unsigned nbqbits, int threads, unsigned long cache_bytes);

// The buffers of a fused run: which gates come together, and so the bits, depend on them. They follow from the
// precision and the number of qubits alone, never from the machine. Small ones suit the smallest first-level caches in
// use.
template <class T>
buffer_shape small_fused_shape();

// Large ones, of 256 KiB, lie in the second-level cache. They take a half to a third of the passes, which the memory
// that two threads share is glad of, and are hardly slower to work on. Smaller states are cut in 32, for as many
// threads.
template <class T>
buffer_shape large_fused_shape(unsigned nbqbits);

}  // namespace velacamplix::plan
