#pragma once

#include <velacamplix/measurement.hpp>

namespace velacamplix::measurement {

// One outcome over the listed qubits (all when the list is empty), for one output of the engine: what a scan of the
// running sum finds. Reads the view at most once; no allocation.
template <class Seq>
unsigned long draw_outcome(const Seq& view, std::mt19937_64& rng, const std::vector<unsigned int>& qubits);

}  // namespace velacamplix::measurement
