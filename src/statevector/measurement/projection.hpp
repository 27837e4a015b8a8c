#pragma once

#include <velacamplix/measurement.hpp>

namespace velacamplix::measurement {

// Moves every amplitude whose listed qubits read `value` (first listed = most significant bit) to the index where they
// read 0, leaving zero behind. The amplitudes there are overwritten: after a projection onto `value` they are zero.
template <class T>
void move_to_zero(thrust::complex<T>* amplitudes, unsigned int n, const std::vector<unsigned int>& qubits,
                  unsigned long value, int nthreads);

}  // namespace velacamplix::measurement
