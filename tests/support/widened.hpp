#pragma once

#include "reference/complex.hpp"

namespace support {

// The same state in double precision, number by number.
template <class T>
reference::State<double> widened(const reference::State<T>& state) {
    reference::State<double> wide;
    for (const auto& a : state) wide.push_back({static_cast<double>(a.re), static_cast<double>(a.im)});
    return wide;
}

}  // namespace support
