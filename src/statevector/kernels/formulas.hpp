#pragma once

#include "statevector/packs/ordinary.hpp"

#include <velacamplix/kernels.hpp>

#include <type_traits>

// What each gate does to the packs of one group, by its tag: the specialisation of `formula` for a tag is the gate. It
// is built once per share of a call's groups from the call's coefficients and then rewrites its operands in place, from
// the old values only. The order of operations is part of the library's behaviour.
//
// Each of the three shapes ends with the list of its gates, for all of which the loop is compiled.

namespace velacamplix::kernels {

using namespace packs;
using namespace pbamplix::cpu;  // the tags

template <class G, class V>
struct formula;

// How many amplitudes a gate's formula takes at a time: 1, 2 or 4.
template <class G, class V = wide_pack<double>>
inline constexpr unsigned group_size = std::is_invocable_v<formula<G, V>&, V&>       ? 1
                                       : std::is_invocable_v<formula<G, V>&, V&, V&> ? 2
                                                                                     : 4;

// --- one amplitude -----------------------------------------------------------------------------------------------

template <class V>
struct formula<GateZ, V> {
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a) const { a = negate(a); }
};

// i * a in full: (0 * re - im, 0 * im + re).
template <class V>
[[gnu::always_inline]] inline V times_i(V a) {
    const V zeros = a * broadcast<V>(0);
    const V turned = swap_parts(a);
    return join_parts(zeros - turned, zeros + turned);
}

template <class V>
struct formula<GateS, V> {
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a) const { a = times_i(a); }
};

template <class V>
struct formula<GateT, V> {
    V c = broadcast<V>(precision<scalar_of<V>>::inverse_sqrt2);
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a) const {
        const V scaled = a * c;
        const V turned = swap_parts(scaled);
        a = join_parts(scaled - turned, scaled + turned);
    }
};

// diag(1, factor) as a tag without a number, which GatePH<T> carries.
struct GatePhase {};
template <class V>
struct formula<GatePhase, V> {
    factor<V> p;
    explicit formula(const thrust::complex<scalar_of<V>>* c) : p(c[0]) {}
    [[gnu::always_inline]] void operator()(V& a) const { a = p * a; }
};

// diag(d0, d1) has loops of its own, in diagonal.cpp.
struct GateRZ {};

#define VELACAMPLIX_PHASE_GATES(each) each(GateZ) each(GateS) each(GateT) each(GatePhase)

// --- two amplitudes: target bit 0, target bit 1 --------------------------------------------------------------------

template <class V>
struct formula<GateX, V> {
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const { std::swap(a0, a1); }
};

template <class V>
struct formula<GateY, V> {
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        const V old0 = a0;
        a0 = negate_imaginary(swap_parts(a1));
        a1 = negate_real(swap_parts(old0));
    }
};

template <class V>
struct formula<GateH, V> {
    V c = broadcast<V>(precision<scalar_of<V>>::inverse_sqrt2);
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        const V sum = a0 + a1;
        const V difference = a0 - a1;
        a0 = sum * c;
        a1 = difference * c;
    }
};

template <class V>
struct formula<GateZtoY, V> {
    V c = broadcast<V>(precision<scalar_of<V>>::inverse_sqrt2);
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        const V sum = a1 + a0;
        const V turned0 = swap_parts(a0);
        const V turned1 = swap_parts(a1);
        a0 = sum * c;
        a1 = join_parts(turned1 - turned0, turned0 - turned1) * c;  // c (a1.im - a0.im), c (a0.re - a1.re)
    }
};

template <class V>
struct formula<GateYtoZ, V> {
    V c = broadcast<V>(precision<scalar_of<V>>::inverse_sqrt2);
    V turning_c = negate_real(c);
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        const V scaled = a0 * c;
        const V t = swap_parts(a1) * turning_c;  // (-c a1.im, c a1.re)
        a0 = scaled - t;
        a1 = t + scaled;
    }
};

// 1/2 [[1 + i, 1 - i], [1 - i, 1 + i]], a root of X. Each amplitude is multiplied by a half and by half of i once.
struct GateSX {};
template <class V>
struct formula<GateSX, V> {
    V half = broadcast<V>(scalar_of<V>(0.5));
    V turning_half = negate_real(half);
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        const V x = a0 * half, ix = swap_parts(a0) * turning_half;
        const V y = a1 * half, iy = swap_parts(a1) * turning_half;
        a0 = (x + ix) + (y - iy);
        a1 = (x - ix) + (y + iy);
    }
};

// RX and RY have a real diagonal and an imaginary or real rest, but their products are taken in full: a zero times an
// infinity counts, and so does the sign of a zero. Where all results are finite and different from zero the products
// with zeros changed nothing: each is a zero, added to a number or to a partner whose sum did not vanish. So the short
// formula is tried first, and its results are kept if all of them are ordinary. States with many zeros make that
// attempt in vain, so after a failure it rests for some groups.
template <class V>
class short_attempt {
public:
    explicit short_attempt(bool allowed) : resting_(allowed ? 0 : ~0ul) {}

    // Whether to try now.
    [[gnu::always_inline]] bool rested() {
        if (resting_ == 0) return true;
        --resting_;
        return false;
    }
    // One product stands for both results: a zero, an infinity or a NaN in either shows in it.
    [[gnu::always_inline]] bool holds(V result0, V result1) {
        if (all_ordinary(result0 * result1)) return true;
        resting_ = 31;
        return false;
    }

private:
    unsigned long resting_;
};

// [[d, o], [o, d]], d = (cos, 0), o = (0, -sin)
template <class V>
struct formula<GateRX, V> {
    factor<V> d, o;
    short_attempt<V> attempt;
    explicit formula(const thrust::complex<scalar_of<V>>* c)
        : d(c[0]), o(c[1]), attempt(c[0].imag() == 0 && c[1].real() == 0) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) {
        const V old0 = a0;
        if (attempt.rested()) {
            const V short0 = old0 * d.re + swap_parts(a1) * o.im;
            const V short1 = swap_parts(old0) * o.im + a1 * d.re;
            if (attempt.holds(short0, short1)) {
                a0 = short0;
                a1 = short1;
                return;
            }
        }
        a0 = d * old0 + o * a1;
        a1 = o * old0 + d * a1;
    }
};

// [[d, -o], [o, d]], d = (cos, 0), o = (sin, 0)
template <class V>
struct formula<GateRY, V> {
    factor<V> d, o;
    short_attempt<V> attempt;
    explicit formula(const thrust::complex<scalar_of<V>>* c)
        : d(c[0]), o(c[1]), attempt(c[0].imag() == 0 && c[1].imag() == 0) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) {
        const V old0 = a0;
        if (attempt.rested()) {
            const V short0 = old0 * d.re - a1 * o.re;
            const V short1 = old0 * o.re + a1 * d.re;
            if (attempt.holds(short0, short1)) {
                a0 = short0;
                a1 = short1;
                return;
            }
        }
        a0 = d * old0 - o * a1;
        a1 = o * old0 + d * a1;
    }
};

template <class V>
struct formula<_Gate1QB<true>, V> {
    factor<V> m00, m01, m10, m11;
    explicit formula(const thrust::complex<scalar_of<V>>* c) : m00(c[0]), m01(c[1]), m10(c[2]), m11(c[3]) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        const V old0 = a0;
        a0 = m00 * old0 + m01 * a1;
        a1 = m10 * old0 + m11 * a1;
    }
};

// [[m00, m01], [m10, m11]] given by three angles. Where m01 and m10 vanish it is a diagonal, as of a matrix.
struct GateU {};
template <class V>
struct formula<GateU, V> : formula<_Gate1QB<true>, V> {
    using matrix = formula<_Gate1QB<true>, V>;
    bool is_diagonal;
    explicit formula(const thrust::complex<scalar_of<V>>* c)
        : matrix(c),
          is_diagonal(c[1] == thrust::complex<scalar_of<V>>(0) && c[2] == thrust::complex<scalar_of<V>>(0)) {}
    [[gnu::always_inline]] void operator()(V& a0, V& a1) const {
        if (!is_diagonal) return matrix::operator()(a0, a1);
        a0 = matrix::m00 * a0;
        a1 = matrix::m11 * a1;
    }
};

#define VELACAMPLIX_PAIR_GATES(each)                                                                         \
    each(GateX) each(GateY) each(GateH) each(GateZtoY) each(GateYtoZ) each(GateSX) each(GateRX) each(GateRY) \
        each(GateU) each(_Gate1QB<true>)

// --- four amplitudes: local index 00, 01, 10, 11 -------------------------------------------------------------------

// A gate that leaves the local indices 00 and 11 alone says so: where no target stands inside the packs, these are then
// neither read nor written.
struct leaves_00_and_11 {};

template <class V>
struct formula<GateSWAP, V> : leaves_00_and_11 {
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V&, V& b, V& c, V&) const { std::swap(b, c); }
};

template <class V>
struct formula<GateISWAP, V> : leaves_00_and_11 {
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V&, V& b, V& c, V&) const {
        const V old_b = b;
        b = times_i(c);
        c = times_i(old_b);
    }
};

// 1/2 (1 + i) and 1/2 (1 - i), the halves taken before the sums.
template <class V>
struct formula<GateSQRTSWAP, V> : leaves_00_and_11 {
    V half = broadcast<V>(scalar_of<V>(0.5));
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V&, V& b, V& c, V&) const {
        const V x = b * half;
        const V y = c * half;
        const V turned_x = swap_parts(x);
        const V turned_y = swap_parts(y);
        const V x_plus = join_parts(x - turned_x, x + turned_x);   // (x.re - x.im, x.im + x.re)
        const V x_minus = join_parts(x + turned_x, x - turned_x);  // (x.re + x.im, x.im - x.re)
        const V y_plus = join_parts(y - turned_y, y + turned_y);
        const V y_minus = join_parts(y + turned_y, y - turned_y);
        b = x_plus + y_minus;
        c = y_plus + x_minus;
    }
};

// diag(d0, d1, d1, d0)
struct GateRZZ {};
template <class V>
struct formula<GateRZZ, V> {
    factor<V> even, odd;
    explicit formula(const thrust::complex<scalar_of<V>>* d) : even(d[0]), odd(d[1]) {}
    [[gnu::always_inline]] void operator()(V& a, V& b, V& c, V& d) const {
        a = even * a;
        b = odd * b;
        c = odd * c;
        d = even * d;
    }
};

template <class V>
struct formula<GateHH, V> {
    factor<V> half{thrust::complex<scalar_of<V>>(scalar_of<V>(0.5), 0)};
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a, V& b, V& c, V& d) const {
        const V r0 = ((a + b) + c) + d;
        const V r1 = ((a - b) + c) - d;
        const V r2 = ((a + b) - c) - d;
        const V r3 = ((a - b) - c) + d;
        a = half * r0;
        b = half * r1;
        c = half * r2;
        d = half * r3;
    }
};

template <class V>
struct formula<GateZtoYZtoYConj, V> {
    factor<V> half{thrust::complex<scalar_of<V>>(scalar_of<V>(0.5), 0)};
    factor<V> half_i{thrust::complex<scalar_of<V>>(0, scalar_of<V>(0.5))};
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a, V& b, V& c, V& d) const {
        const V r0 = ((a + b) + c) + d;
        const V r1 = ((b - a) - c) + d;  // -A + B - C + D
        const V r2 = ((a + b) - c) - d;
        const V r3 = ((a - b) - c) + d;
        a = half * r0;
        b = half_i * r1;
        c = half_i * r2;
        d = half * r3;
    }
};

template <class V>
struct formula<GateYtoZYtoZConj, V> {
    factor<V> half{thrust::complex<scalar_of<V>>(scalar_of<V>(0.5), 0)};
    factor<V> half_i{thrust::complex<scalar_of<V>>(0, scalar_of<V>(0.5))};
    explicit formula(const thrust::complex<scalar_of<V>>*) {}
    [[gnu::always_inline]] void operator()(V& a, V& b, V& c, V& d) const {
        const V ha = half * a;
        const V ib = half_i * b;
        const V ic = half_i * c;
        const V hd = half * d;
        const V s = ha + ib;
        const V t = ha - ib;
        a = (s - ic) + hd;
        b = (t - ic) - hd;
        c = (ic + s) - hd;
        d = hd + (t + ic);
    }
};

template <class V>
struct formula<_Gate2QB<true>, V> {
    const thrust::complex<scalar_of<V>>* m;  // 16 entries, row-major
    explicit formula(const thrust::complex<scalar_of<V>>* entries) : m(entries) {}
    [[gnu::always_inline]] void operator()(V& a, V& b, V& c, V& d) const {
        const V old[4] = {a, b, c, d};
        const V turned[4] = {quarter_turn(a), quarter_turn(b), quarter_turn(c), quarter_turn(d)};
        a = row(0, old, turned);
        b = row(4, old, turned);
        c = row(8, old, turned);
        d = row(12, old, turned);
    }

private:
    // The multiplications spread the scalars over the pack as they read them.
    [[gnu::always_inline]] V row(int at, const V* old, const V* turned) const {
        return ((product(at, old[0], turned[0]) + product(at + 1, old[1], turned[1])) +
                product(at + 2, old[2], turned[2])) +
               product(at + 3, old[3], turned[3]);
    }
    [[gnu::always_inline]] V product(int at, V x, V turned) const { return x * m[at].real() + turned * m[at].imag(); }
};

// [[c, 0, 0, o], [0, c, m, 0], [0, m, c, 0], [o, 0, 0, c]], c = (cos, 0), o and m imaginary. The zeros count, as those
// of RX do, and the same short attempt is made without them. Where o and m vanish the matrix is a diagonal, and the
// zeros of a diagonal are no part of it.
template <class V>
class double_flip {
    using complex = thrust::complex<scalar_of<V>>;

public:
    explicit double_flip(const complex* numbers)
        : c_(numbers[0]),
          o_(numbers[1]),
          m_(numbers[2]),
          cosine_(c_),
          outer_(o_),
          middle_(m_),
          is_diagonal_(o_ == complex(0) && m_ == complex(0)),
          attempt_(c_.imag() == 0 && o_.real() == 0 && m_.real() == 0) {}

    [[gnu::always_inline]] void operator()(V& a, V& b, V& c, V& d) {
        if (is_diagonal_) {
            a = cosine_ * a;
            b = cosine_ * b;
            c = cosine_ * c;
            d = cosine_ * d;
            return;
        }
        if (attempt_.rested()) {
            const V short_a = a * cosine_.re + swap_parts(d) * outer_.im;
            const V short_b = b * cosine_.re + swap_parts(c) * middle_.im;
            const V short_c = swap_parts(b) * middle_.im + c * cosine_.re;
            const V short_d = swap_parts(a) * outer_.im + d * cosine_.re;
            if (attempt_.holds(short_a, short_d) && attempt_.holds(short_b, short_c)) {
                a = short_a;
                b = short_b;
                c = short_c;
                d = short_d;
                return;
            }
        }
        const complex matrix[] = {c_, 0, 0, o_, 0, c_, m_, 0, 0, m_, c_, 0, o_, 0, 0, c_};
        formula<_Gate2QB<true>, V> full(matrix);
        full(a, b, c, d);
    }

private:
    complex c_, o_, m_;
    factor<V> cosine_, outer_, middle_;
    bool is_diagonal_;
    short_attempt<V> attempt_;
};

struct GateRXX {};
template <class V>
struct formula<GateRXX, V> : double_flip<V> {
    using double_flip<V>::double_flip;
};

struct GateRYY {};
template <class V>
struct formula<GateRYY, V> : double_flip<V> {
    using double_flip<V>::double_flip;
};

// _Gate2QB<true> is not among them: its entries stand in a table, and it is asked for by a function of its own.
#define VELACAMPLIX_QUAD_GATES(each)                                                                         \
    each(GateSWAP) each(GateISWAP) each(GateSQRTSWAP) each(GateRZZ) each(GateRXX) each(GateRYY) each(GateHH) \
        each(GateZtoYZtoYConj) each(GateYtoZYtoZConj)

}  // namespace velacamplix::kernels
