#pragma once

#include <stdexcept>

namespace velacamplix::gates {

// A diagonal without controls may have at most this many entries. Larger ones are refused although the same matrix
// with one more non-zero entry would be applied; hosts rely on the refusal.
inline constexpr unsigned long largest_uncontrolled_diagonal = 256;

inline void refuse_large_diagonal(unsigned long entries) {
    if (entries > largest_uncontrolled_diagonal) throw std::runtime_error("Diagonal is too large for _DiagGate");
}

}  // namespace velacamplix::gates
