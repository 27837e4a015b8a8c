#include "statevector/fusion/fusion.hpp"

#include "statevector/fusion/blocks.hpp"
#include "statevector/fusion/one_qubit_unitary.hpp"
#include "statevector/fusion/simplify.hpp"
#include "statevector/index/bits.hpp"

#include <algorithm>

namespace velacamplix::fusion {
namespace {

using gates::gate_kind;
using gates::operation;
using complex = std::complex<double>;

// With factors of length 1: others could not be divided by, or divided out again.
template <class T>
bool is_phase_on_one_qubit(const operation<T>& op) {
    return op.is_diagonal() && op.kind != gate_kind::product && op.targets.size() == 1 && op.controls == 0 &&
           matrix_of(op).is_unitary(packs::precision<T>::unitary_tolerance);
}

// The square of what may count as a length of 1.
template <class T>
inline constexpr double longest = 1 + 10 * packs::precision<T>::unitary_tolerance;

// Of larger matrices the answer would cost more than using it saves.
constexpr unsigned long largest_matrix_looked_at = 64;

// The greatest sum of |A^dagger A| over a row bounds the square of what A multiplies a length by.
template <class T>
bool never_lengthens(const thrust::complex<T>* matrix, unsigned long dim) {
    if (dim > largest_matrix_looked_at) return false;
    std::vector<complex> wide(dim * dim);
    for (unsigned long i = 0; i < dim * dim; ++i) {
        wide[i] = {static_cast<double>(matrix[i].real()), static_cast<double>(matrix[i].imag())};
    }
    for (unsigned long column = 0; column < dim; ++column) {
        double sum = 0;
        for (unsigned long other = 0; other < dim; ++other) {
            complex product = 0;
            for (unsigned long row = 0; row < dim; ++row) {
                product += std::conj(wide[row * dim + column]) * wide[row * dim + other];
            }
            sum += std::abs(product);
        }
        if (!(sum <= longest<T>)) return false;  // nor with a NaN
    }
    return true;
}

// Whether no state becomes longer by the operation: true of unitary matrices, projectors and Kraus operators.
template <class T>
bool never_lengthens(const operation<T>& op) {
    switch (op.kind) {
        case gate_kind::diagonal:
            return std::all_of(op.diagonal->entries.get(), op.diagonal->entries.get() + (1ul << op.diagonal->bits),
                               [](const thrust::complex<T>& d) {
                                   const auto re = static_cast<double>(d.real()), im = static_cast<double>(d.imag());
                                   return re * re + im * im <= longest<T>;
                               });
        case gate_kind::matrix1:
            return never_lengthens(op.coefficients.data(), 2);
        case gate_kind::matrix2:
        case gate_kind::matrix:
            return never_lengthens(op.entries.data(), 1ul << op.targets.size());
        default:
            return true;
    }
}

// Holds back phases on single qubits until a gate mixes their qubit.
template <class T>
class diagonal_collector {
public:
    explicit diagonal_collector(unsigned nbqbits) : held_(nbqbits) {}

    // Appends the layer with the diagonals that its gates force out. Before a gate over the whole array each of them is
    // a layer of its own.
    void collect(fused_layer<T> from, std::vector<fused_layer<T>>& to) {
        std::vector<operation<T>> result;
        for (operation<T>& op : from.operations) {
            if (is_phase_on_one_qubit(op)) {
                hold(op);
                continue;
            }
            const unsigned long forced = plan::footprint_of(op).mixed & held_mask_;
            if (forced != 0) release(forced, from.local, result);
            result.push_back(std::move(op));
        }
        if (from.local == 0) {
            for (operation<T>& op : result) to.push_back({{std::move(op)}, 0});
        } else if (!result.empty()) {
            to.push_back({std::move(result), from.local});
        }
    }

    // What is still held in the end, for a layer of these local bits; no gate when nothing is.
    std::vector<operation<T>> rest(unsigned long local) {
        if (std::abs(phase_ - complex(1)) > 1e-15) {
            held_[0].zero *= phase_;
            held_[0].one *= phase_;
            held_mask_ |= 1;
        }
        std::vector<operation<T>> gates;
        while (held_mask_ != 0) {
            gates.push_back(product_of((held_mask_ & ~local) | with_lowest(0, held_mask_ & local)));
        }
        return gates;
    }

private:
    // A product reads a factor for every amplitude; so many phases on half of the amplitudes cost as much.
    static constexpr unsigned fewest_for_a_product = 4;
    // On so many qubits of a buffer the table of factors takes 16 or 32 KiB, and leaves a large chunk its cache.
    static constexpr unsigned most_in_a_product = 11;

    // Adds the lowest bits of `more` while a product may take them.
    static unsigned long with_lowest(unsigned long bits, unsigned long more) {
        for (more &= ~bits; more != 0 && index::count_bits(bits) < most_in_a_product; more &= more - 1) {
            bits |= more & -more;
        }
        return bits;
    }

    void hold(const operation<T>& op) {
        const one_qubit_unitary u = matrix_of(op);
        factor_pair& f = held_[op.targets[0]];
        f.zero *= u.m00;
        f.one *= u.m11;
        held_mask_ |= index::bit(op.targets[0]);
    }

    // Before a gate that mixes the qubits `forced`: what else is local goes along when it is much, the lowest first.
    void release(unsigned long forced, unsigned long local, std::vector<operation<T>>& to) {
        const unsigned long along = with_lowest(forced & local, held_mask_ & local);
        if (index::count_bits(along) >= fewest_for_a_product) {
            to.push_back(product_of(along));
            return;
        }
        for (; forced != 0; forced &= forced - 1) {
            const auto q = static_cast<unsigned>(std::countr_zero(forced));
            const complex ratio = held_[q].one / held_[q].zero;
            phase_ *= held_[q].zero;
            held_[q] = {};
            held_mask_ &= ~index::bit(q);
            if (std::abs(ratio - complex(1)) <= 1e-15) continue;
            operation<T> op{};
            op.kind = gate_kind::ph;
            op.targets = {q};
            op.coefficients[0] = thrust::complex<T>(static_cast<T>(ratio.real()), static_cast<T>(ratio.imag()));
            to.push_back(std::move(op));
        }
    }

    operation<T> product_of(unsigned long qubits) {
        operation<T> op{};
        op.kind = gate_kind::product;
        for (; qubits != 0; qubits &= qubits - 1) {
            const auto q = static_cast<unsigned>(std::countr_zero(qubits));
            op.targets.push_back(q);
            for (const complex f : {held_[q].zero, held_[q].one}) {
                op.entries.push_back({static_cast<T>(f.real()), static_cast<T>(f.imag())});
            }
            held_[q] = {};
            held_mask_ &= ~index::bit(q);
        }
        return op;
    }

    std::vector<factor_pair> held_;
    unsigned long held_mask_ = 0;
    complex phase_ = 1;
};

// Gates that cost less than a rotation on every qubit, a chain of CNOT for one, need two or three passes in large
// chunks too. Each of these has few steps to fetch the next chunk in, which the second-level cache would hold beside it
// only if their runs did not lie at powers of two: then small chunks are faster.
template <class T>
plan::buffer_shape suitable_shape(const std::vector<operation<T>>& list, unsigned nbqbits) {
    double cost = 0;
    for (const operation<T>& op : list) cost += cost_of(op);
    return cost < cost_of_a_rotation * nbqbits ? plan::small_fused_shape<T>() : plan::large_fused_shape<T>(nbqbits);
}

}  // namespace

template <class T>
std::vector<fused_layer<T>> fuse(std::span<const operation<T>> batch, unsigned nbqbits) {
    // States that become longer may leave the range of numbers in one order of commuting gates and not in another.
    const bool may_be_rewritten =
        std::all_of(batch.begin(), batch.end(), [](const operation<T>& op) { return never_lengthens(op); });
    const std::vector<operation<T>> list =
        may_be_rewritten ? form_blocks(simplify(batch)) : std::vector<operation<T>>(batch.begin(), batch.end());
    const plan::buffer_shape shape = suitable_shape<T>(list, nbqbits);
    diagonal_collector<T> collector(nbqbits);
    std::vector<fused_layer<T>> layers;
    const auto allowed = may_be_rewritten ? plan::exchange::up_to_rounding : plan::exchange::exact;
    plan::deal_out(plan::footprints_of<T>(list), nbqbits, shape, allowed, [&](const plan::layer& part) {
        fused_layer<T> next{{}, part.local};
        for (const unsigned long gate : part.gates) next.operations.push_back(list[gate]);
        if (may_be_rewritten) {
            collector.collect(std::move(next), layers);
        } else {
            layers.push_back(std::move(next));
        }
        return true;
    });
    const bool has_place = !layers.empty() && layers.back().local != 0;
    const unsigned long local =
        has_place ? layers.back().local : plan::fill_up(0, nbqbits, std::min(shape.local_bits, nbqbits));
    for (operation<T>& product : collector.rest(local)) {
        if (layers.empty() || layers.back().local == 0) layers.push_back({{}, local});
        layers.back().operations.push_back(std::move(product));
    }
    return layers;
}

template std::vector<fused_layer<float>> fuse(std::span<const operation<float>>, unsigned);
template std::vector<fused_layer<double>> fuse(std::span<const operation<double>>, unsigned);

}  // namespace velacamplix::fusion
