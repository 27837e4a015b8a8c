#include "resets.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"

#include <bit>

namespace reference {

template <class T>
State<T> basis_state_0(unsigned int n) {
    State<T> state(1ul << n, {T(0), T(0)});
    state[0] = {T(1), T(0)};
    return state;
}

template <class T>
State<T> reversed_copy(const State<T>& source) {
    State<T> state(source.size());
    for (unsigned long i = 0; i < source.size(); ++i) state[i] = source[reverse_bits(i, qubit_count(source.size()))];
    return state;
}

template <class T>
State<T> product_state(const std::string& s, unsigned int n) {
    unsigned long fixed = 0, ones = 0, minus = 0;
    T f = T(1);
    for (unsigned int i = 0; i < s.size(); ++i) {
        const unsigned long bit = 1ul << (i % 64);
        if (s[i] == '0' || s[i] == '1') fixed |= bit;
        if (s[i] == '1') ones |= bit;
        if (s[i] == '+' || s[i] == '-') f = f * inverse_root_of_two<T>;
        if (s[i] == '-') minus |= bit;
    }
    State<T> state(1ul << n);
    for (unsigned long k = 0; k < state.size(); ++k) {
        Complex<T> value = {T(0), T(0)};
        if ((k & fixed) == ones) {
            value = {f, T(0)};
            if (std::popcount(k & minus) % 2 == 1) value = {negated(value.re), negated(value.im)};
        }
        state[reverse_bits(k, n)] = value;
    }
    return state;
}

template State<float> basis_state_0(unsigned int);
template State<double> basis_state_0(unsigned int);
template State<float> reversed_copy(const State<float>&);
template State<double> reversed_copy(const State<double>&);
template State<float> product_state(const std::string&, unsigned int);
template State<double> product_state(const std::string&, unsigned int);

}  // namespace reference
