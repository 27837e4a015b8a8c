#include "observables.hpp"

#include "arithmetic.hpp"
#include "indices.hpp"
#include "one_qubit.hpp"
#include "probabilities.hpp"
#include "two_qubit.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace reference {
namespace {

template <class T>
Complex<T> power_of_i(unsigned long k) {
    const Complex<T> powers[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
    return powers[k & 3];
}

unsigned int ones(unsigned long x) { return static_cast<unsigned int>(std::popcount(x)); }

template <class T>
Complex<T> product(const State<T>& state, unsigned long flip, unsigned long i) {
    const Complex<T> bra = state[i ^ flip];
    return multiply(Complex<T>{bra.re, -bra.im}, state[i]);
}

template <class T>
T share(const State<T>& state, PauliString p, unsigned long i) {
    const Complex<T> x = product(state, p.flip, i);
    const Complex<T> unit = power_of_i<T>(p.y_count + 2 * ones(i & p.phase));
    return x.re * unit.re - x.im * unit.im;
}

template <class T>
Complex<T> share_density(const State<T>& matrix, PauliString p, unsigned long r) {
    const unsigned long dim = 1ul << (qubit_count(matrix.size()) / 2);
    const Complex<T> sign = {ones(r & p.phase) % 2 == 0 ? T(1) : T(-1), T(0)};
    return multiply(multiply(matrix[(r ^ p.flip) * dim + r], power_of_i<T>(p.y_count)), sign);
}

}  // namespace

template <class T>
T term_value(const State<T>& state, PauliString p) {
    T sum = T(0);
    for (unsigned long i = 0; i < state.size(); ++i) sum = sum + share(state, p, i);
    return sum;
}

template <class T>
Complex<T> expectation_value(const State<T>& state, const PauliSum<T>& sum) {
    Complex<T> total = {0, 0};
    for (unsigned long i = 0; i < state.size(); ++i) {
        for (unsigned long t = 0; t < sum.strings.size(); ++t) {
            const T value = share(state, sum.strings[t], i);
            total = add(total, {sum.coefficients[t].re * value, sum.coefficients[t].im * value});
        }
    }
    return add(total, sum.constant);
}

template <class T>
Complex<T> term_value_density(const State<T>& matrix, PauliString p) {
    const unsigned long dim = 1ul << (qubit_count(matrix.size()) / 2);
    Complex<T> sum = {0, 0};
    for (unsigned long r = 0; r < dim; ++r) sum = add(sum, share_density(matrix, p, r));
    return sum;
}

template <class T>
Complex<T> expectation_value_density(const State<T>& matrix, const PauliSum<T>& sum) {
    const unsigned long dim = 1ul << (qubit_count(matrix.size()) / 2);
    Complex<T> total = {0, 0};
    for (unsigned long r = 0; r < dim; ++r) {
        for (unsigned long t = 0; t < sum.strings.size(); ++t) {
            total = add(total, multiply(sum.coefficients[t], share_density(matrix, sum.strings[t], r)));
        }
    }
    return add(total, sum.constant);
}

namespace {

template <class T>
T sum_of_row(std::vector<T> row) {
    while (row.size() > 1) {
        const unsigned long half = row.size() / 2;
        for (unsigned long j = 0; j < half; ++j) row[j] = row[j] + row[j + half];
        row.resize(half);
    }
    return row[0];
}

// Whole rows, joined in eights until one is left; missing rows are zeros.
template <class T>
T sum_of_slab(std::vector<T> numbers) {
    const unsigned long row = 64 / sizeof(T);
    unsigned long rows = 1;
    while (rows * row < numbers.size()) rows *= 8;
    numbers.resize(rows * row, T(0));
    for (; rows > 1; rows /= 8) {
        for (unsigned long r = 0; r < rows / 8; ++r) {
            for (unsigned long c = 0; c < row; ++c) {
                T x[8];
                for (unsigned long k = 0; k < 8; ++k) x[k] = numbers[(8 * r + k) * row + c];
                numbers[r * row + c] = ((x[0] + x[1]) + (x[2] + x[3])) + ((x[4] + x[5]) + (x[6] + x[7]));
            }
        }
    }
    numbers.resize(row);
    return sum_of_row(numbers);
}

}  // namespace

template <class T>
T term_value_by_tree(const State<T>& state, PauliString p) {
    const unsigned long row = 64 / sizeof(T);
    const unsigned long slab = 512 * row;
    const bool pairs = p.flip >= row;
    const unsigned long highest = pairs ? std::bit_floor(p.flip) : 0;
    const bool imaginary = p.y_count % 2 == 1;

    // The numbers to add, with their signs.
    std::vector<T> numbers;
    for (unsigned long i = 0; i < state.size(); ++i) {
        if (i & highest) continue;
        const Complex<T> x = product(state, p.flip, i);
        const T part = imaginary ? x.im : x.re;
        numbers.push_back(ones(i & p.phase) % 2 == 0 ? part : negated(part));
    }

    const unsigned long tiles = std::max(1ul, state.size() / (2 * slab));
    const unsigned long sections = std::min(tiles, 4096ul);
    const unsigned long section_length = numbers.size() / sections;
    T total = T(0);
    for (unsigned long s = 0; s < sections; ++s) {
        T section = T(0);
        for (unsigned long first = s * section_length; first < (s + 1) * section_length; first += slab) {
            const unsigned long last = std::min(first + slab, (s + 1) * section_length);
            section = section + sum_of_slab(std::vector<T>(numbers.begin() + static_cast<long>(first),
                                                           numbers.begin() + static_cast<long>(last)));
        }
        total = s == 0 ? section : total + section;
    }

    // Re(x i^k) is +Re x, -Im x, -Re x, +Im x. The two indices of a pair have equal shares, or opposite ones.
    const unsigned int k = p.y_count % 4;
    if (pairs) total = total * ((ones(p.flip & p.phase) + p.y_count) % 2 == 0 ? T(2) : T(0));
    return (k == 1 || k == 2 ? -total : total) + T(0);
}

template <class T>
void prune(Term<T>& term) {
    for (long p = static_cast<long>(term.op.size()) - 1; p >= 0; --p) {
        if (term.op[static_cast<unsigned long>(p)] != 'I') continue;
        term.op = term.op.substr(0, static_cast<unsigned long>(p));
        term.qubits.erase(term.qubits.begin() + p);
    }
}

template <class T>
void change_basis(State<T>& state, const Term<T>& term, bool undo, bool density_matrix) {
    const unsigned int copy = qubit_count(state.size()) / 2;
    for (unsigned long j = 0; j < term.qubits.size(); ++j) {
        const unsigned int q = term.qubits[j];
        const char op = j < term.op.size() ? term.op[j] : '\0';
        if (op == 'X') {
            density_matrix ? apply(TwoQubit::HH, state, q, q + copy, {}) : apply(OneQubit::H, state, q, {});
        } else if (op == 'Y' && density_matrix) {
            apply(undo ? TwoQubit::ZtoYZtoYConj : TwoQubit::YtoZYtoZConj, state, q, q + copy, {});
        } else if (op == 'Y') {
            apply(undo ? OneQubit::ZtoY : OneQubit::YtoZ, state, q, {});
        }
    }
}

template <class T>
Estimate<T> evaluate_term(const std::vector<T>& cumulative, Complex<T> coefficient, unsigned long shots,
                          std::mt19937_64& engine) {
    T sum = T(0);
    for (unsigned long shot = 0; shot < shots; ++shot) {
        T u = static_cast<T>(static_cast<unsigned long>(engine())) * static_cast<T>(5.421010862427522e-20);
        if (u >= T(1)) u = std::nextafter(T(1), T(0));
        unsigned long first = 0, left = cumulative.size();
        while (left > 0) {
            const unsigned long half = left / 2;
            if (cumulative[first + half] < u) {
                first += half + 1;
                left -= half + 1;
            } else {
                left = half;
            }
        }
        sum = sum + (ones(first) % 2 == 0 ? T(1) : T(-1));
    }
    const T mean = sum / static_cast<T>(shots);
    const T error = shots <= 1 ? T(0) : std::sqrt((T(1) - mean * mean) / static_cast<T>(shots - 1));
    return {{coefficient.re * mean, coefficient.im * mean}, {coefficient.re * error, coefficient.im * error}};
}

template <class T>
std::vector<Estimate<T>> evaluate_terms(State<T>& state, std::vector<Term<T>> terms, unsigned long shots,
                                        std::mt19937_64& engine, bool density_matrix) {
    std::vector<Estimate<T>> results;
    for (Term<T>& term : terms) {
        prune(term);
        change_basis(state, term, false, density_matrix);
        const std::vector<T> view = state_view(state);
        std::vector<T> table;
        for (unsigned long v = 0; v < 1ul << term.qubits.size(); ++v) {
            unsigned long pattern = 0;
            for (unsigned long j = 0; j < term.qubits.size(); ++j) pattern |= ((v >> j) & 1) << term.qubits[j];
            const T p = marginal_sum(view, pattern, term.qubits);
            table.push_back(v == 0 ? p : table[v - 1] + p);
        }
        results.push_back(evaluate_term(table, term.coefficient, shots, engine));
        change_basis(state, term, true, density_matrix);
    }
    return results;
}

#define REFERENCE_OBSERVABLES(T)                                                                                       \
    template T term_value(const State<T>&, PauliString);                                                               \
    template Complex<T> expectation_value(const State<T>&, const PauliSum<T>&);                                        \
    template Complex<T> term_value_density(const State<T>&, PauliString);                                              \
    template Complex<T> expectation_value_density(const State<T>&, const PauliSum<T>&);                                \
    template T term_value_by_tree(const State<T>&, PauliString);                                                       \
    template void prune(Term<T>&);                                                                                     \
    template void change_basis(State<T>&, const Term<T>&, bool, bool);                                                 \
    template Estimate<T> evaluate_term(const std::vector<T>&, Complex<T>, unsigned long, std::mt19937_64&);            \
    template std::vector<Estimate<T>> evaluate_terms(State<T>&, std::vector<Term<T>>, unsigned long, std::mt19937_64&, \
                                                     bool);
REFERENCE_OBSERVABLES(float)
REFERENCE_OBSERVABLES(double)
#undef REFERENCE_OBSERVABLES

}  // namespace reference
