#pragma once

#include "export.hpp"

namespace pbamplix {

// The size of a parallel region for an object's stored request. Requests of 0 and more come back unchanged
// (0 means OpenMP's default team); a negative request counts as 1.
VELACAMPLIX_API int get_num_threads(int requested);

}  // namespace pbamplix
