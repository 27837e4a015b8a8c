#pragma once

#include "complex.hpp"

#include <string>

namespace reference {

// Every amplitude as "(re,im) ", six significant digits, on one line.
template <class T>
std::string one_line(const State<T>& state);

// Every amplitude on a line of its own, "index: (re,im)".
template <class T>
std::string one_line_each(const State<T>& state);

}  // namespace reference
