#include "text.hpp"

#include <cstdio>

namespace reference {
namespace {

template <class T>
std::string pair_text(Complex<T> a) {
    char text[64];
    std::snprintf(text, sizeof text, "(%g,%g)", static_cast<double>(a.re), static_cast<double>(a.im));
    return text;
}

}  // namespace

template <class T>
std::string one_line(const State<T>& state) {
    std::string text;
    for (const auto& a : state) text += pair_text(a) + " ";
    return text;
}

template <class T>
std::string one_line_each(const State<T>& state) {
    std::string text;
    for (unsigned long i = 0; i < state.size(); ++i) text += std::to_string(i) + ": " + pair_text(state[i]) + "\n";
    return text;
}

template std::string one_line(const State<float>&);
template std::string one_line(const State<double>&);
template std::string one_line_each(const State<float>&);
template std::string one_line_each(const State<double>&);

}  // namespace reference
