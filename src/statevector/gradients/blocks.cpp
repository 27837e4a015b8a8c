#include "statevector/gradients/blocks.hpp"

#include "statevector/fusion/blocks.hpp"
#include "statevector/fusion/simplify.hpp"
#include "statevector/fusion/two_qubit_matrix.hpp"
#include "statevector/gradients/inverse.hpp"
#include "statevector/index/bits.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <complex>
#include <numeric>
#include <optional>

namespace velacamplix::gradients {

using gates::gate_kind;
using gates::operation;

namespace {

using fusion::two_qubit_matrix;
using complex = std::complex<double>;

// What sums cost beside the gates, in cycles as theirs: one that flips qubits reads both states; diagonal ones read
// their products, which a block forms for itself and gates apart share.
constexpr double cost_of_flip = 2, cost_of_products = 1.5, cost_of_diagonal = 0.5;
// A rotation apart is turned back on both states in one walk, which forms its sum too.
constexpr double cost_of_turn = 3.5;

// Smaller parts of a matrix are rounding errors.
constexpr double least_part = 1e-14;

template <class T>
unsigned long qubits_of(const operation<T>& op) {
    return op.target_mask() | op.controls;
}

double cost_of_sums(const std::vector<pauli_sum>& sums) {
    double cost = 0;
    for (const pauli_sum& sum : sums) cost += sum.is_diagonal() ? cost_of_diagonal : cost_of_flip;
    return cost;
}

// A block's, by itself.
double cost_in_block(const std::vector<pauli_sum>& sums) {
    const bool has_products = std::any_of(sums.begin(), sums.end(), [](const auto& sum) { return sum.is_diagonal(); });
    return cost_of_sums(sums) + (has_products ? cost_of_products : 0);
}

// Two qubits as a matrix's: the larger first. A block on one qubit has another beside it that nothing acts on.
struct pair {
    unsigned first, second;

    explicit pair(unsigned long qubits)
        : first(static_cast<unsigned>(std::bit_width(qubits)) - 1),
          second(static_cast<unsigned>(std::countr_zero(qubits))) {
        if (first == second) second == 0 ? ++first : --second;
    }
    unsigned inside(unsigned long mask) const {
        return ((mask & index::bit(first)) != 0 ? 2u : 0u) | ((mask & index::bit(second)) != 0 ? 1u : 0u);
    }
    unsigned long outside(unsigned bits) const {
        return ((bits & 2) != 0 ? index::bit(first) : 0) | ((bits & 1) != 0 ? index::bit(second) : 0);
    }
};

// i^y_count
complex phase_of(unsigned y_count) {
    constexpr std::array<complex, 4> powers = {complex(1, 0), complex(0, 1), complex(-1, 0), complex(0, -1)};
    return powers[y_count % 4];
}

two_qubit_matrix conjugate_transpose(const two_qubit_matrix& m) {
    two_qubit_matrix result;
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = 0; column < 4; ++column) {
            result.entries[4 * column + row] = std::conj(m.entries[4 * row + column]);
            result.from[4 * column + row] = m.from[4 * row + column];
        }
    }
    return result;
}

two_qubit_matrix matrix_of(const pauli_sum& sum, const pair& where) {
    const unsigned flip = where.inside(sum.flip), phase = where.inside(sum.phase),
                   controls = where.inside(sum.controls);
    two_qubit_matrix result;
    for (unsigned j = 0; j < 4; ++j) {
        if ((j & controls) != controls) continue;
        const double sign = index::count_bits(j & phase) % 2 != 0 ? -1 : 1;
        result.entries[4 * (j ^ flip) + j] = sign * phase_of(sum.y_count);
    }
    return result;
}

// A Hermitian matrix as a sum of products of Pauli matrices, each with its real weight.
std::vector<std::pair<pauli_sum, double>> parts_of(const two_qubit_matrix& m, const pair& where) {
    std::vector<std::pair<pauli_sum, double>> parts;
    for (unsigned flip = 0; flip < 4; ++flip) {
        for (unsigned phase = 0; phase < 4; ++phase) {
            const unsigned y_count = index::count_bits(flip & phase);
            double weight = 0;
            for (unsigned j = 0; j < 4; ++j) {
                const double sign = index::count_bits(j & phase) % 2 != 0 ? -1 : 1;
                weight += sign * (std::conj(phase_of(y_count)) * m.entries[4 * (j ^ flip) + j]).real() / 4;
            }
            if (std::abs(weight) <= least_part) continue;
            parts.push_back({{where.outside(flip), where.outside(phase), y_count, 0}, weight});
        }
    }
    return parts;
}

// A derivative formed behind later gates, whose product is `after`: P there is after P after^dagger.
derivative moved_behind(const derivative& own, const two_qubit_matrix& after, const pair& where) {
    derivative moved;
    moved.weights.resize(own.weights.size());
    for (std::size_t s = 0; s < own.sums.size(); ++s) {
        const two_qubit_matrix turned = after.after(matrix_of(own.sums[s], where)).after(conjugate_transpose(after));
        for (const auto& [sum, weight] : parts_of(turned, where)) {
            const auto known = std::find_if(moved.sums.begin(), moved.sums.end(),
                                            [&sum = sum](const pauli_sum& other) { return is_same(sum, other); });
            const auto place = static_cast<std::size_t>(known - moved.sums.begin());
            if (known == moved.sums.end()) {
                moved.sums.push_back(sum);
                for (auto& row : moved.weights) row.push_back(0);
            }
            for (std::size_t a = 0; a < own.weights.size(); ++a) moved.weights[a][place] += own.weights[a][s] * weight;
        }
    }
    return moved;
}

template <class T>
class block_former {
public:
    explicit block_former(std::span<const operation<T>> operations) : operations_(operations) {}

    void add(unsigned long gate) {
        const unsigned long qubits = qubits_of(operations_[gate]);
        const bool is_small = std::has_single_bit(qubits) || index::count_bits(qubits) == 2;
        std::vector<unsigned long> together;
        for (auto& [mask, gates] : open_) {
            if ((mask & qubits) == 0) continue;
            // A block on two qubits takes gates on one; a gate on two takes blocks on one of them.
            if (is_small && index::count_bits(mask | qubits) <= 2) {
                together.insert(together.end(), gates.begin(), gates.end());
            } else {
                close(gates);
            }
            gates.clear();
        }
        std::erase_if(open_, [](const open_block& block) { return block.gates.empty(); });
        together.push_back(gate);
        if (!is_small) return close(together);
        unsigned long mask = 0;
        for (const unsigned long one : together) mask |= qubits_of(operations_[one]);
        open_.push_back({mask, std::move(together)});
    }

    block_list<T> formed() {
        for (const open_block& block : open_) close(block.gates);
        std::sort(closed_.begin(), closed_.end(), [](const auto& a, const auto& b) { return a.place < b.place; });
        block_list<T> blocks;
        for (closed_block& block : closed_) {
            if (block.fused) blocks.fused.emplace(blocks.size(), std::move(*block.fused));
            blocks.gates.insert(blocks.gates.end(), block.gates.begin(), block.gates.end());
            blocks.ends.push_back(blocks.gates.size());
        }
        return blocks;
    }

private:
    struct open_block {
        unsigned long mask;
        std::vector<unsigned long> gates;
    };
    struct closed_block {
        unsigned long place;
        std::vector<unsigned long> gates;
        std::optional<fused_block<T>> fused;
    };

    // Together if that costs less. The place among all gates is that of the first gate on both qubits: what stands
    // before it on one of them commutes with all in between, and so does what comes behind.
    void close(const std::vector<unsigned long>& gates) {
        if (auto block = fused(gates)) {
            const auto on_both = std::find_if(gates.begin(), gates.end(), [this](unsigned long gate) {
                return index::count_bits(qubits_of(operations_[gate])) > 1;
            });
            closed_.push_back({on_both != gates.end() ? *on_both : gates[0], gates, std::move(block)});
            return;
        }
        for (const unsigned long gate : gates) closed_.push_back({gate, {gate}, std::nullopt});
    }

    std::optional<fused_block<T>> fused(const std::vector<unsigned long>& gates) const {
        // A matrix by itself may do the same in a faster loop.
        if (gates.size() == 1 && operations_[gates[0]].kind != gate_kind::matrix) return std::nullopt;
        fused_block<T> block;
        std::vector<operation<T>> inverses;
        double apart = 0, together = 0;
        for (auto gate = gates.rbegin(); gate != gates.rend(); ++gate) {
            inverses.push_back(inverse_of(operations_[*gate]));
            apart += is_turn(operations_[*gate])
                         ? cost_of_turn
                         : 2 * fusion::cost_of(inverses.back()) + cost_of_sums(derivative_of(operations_[*gate]).sums);
        }
        if (gates.size() == 1) {
            block.undoing = fusion::form_blocks(std::move(inverses));
            block.derivatives.resize(1);
            return block;
        }
        block.undoing = fusion::form_blocks(fusion::simplify<T>(inverses));
        for (const operation<T>& op : block.undoing) together += 2 * fusion::cost_of(op);
        if (together >= apart) return std::nullopt;

        unsigned long mask = 0;
        for (const unsigned long gate : gates) mask |= qubits_of(operations_[gate]);
        const pair where(mask);
        two_qubit_matrix after = two_qubit_matrix::identity();
        std::vector<pauli_sum> sums;
        block.derivatives.resize(gates.size());
        for (std::size_t place = gates.size(); place-- > 0;) {
            const operation<T>& op = operations_[gates[place]];
            block.derivatives[place] = moved_behind(derivative_of(op), after, where);
            for (const pauli_sum& sum : block.derivatives[place].sums) {
                if (std::none_of(sums.begin(), sums.end(), [&](const auto& other) { return is_same(sum, other); })) {
                    sums.push_back(sum);
                }
            }
            after = after.after(fusion::matrix_of(op, where.first, where.second));
        }
        if (!after.is_finite() || together + cost_in_block(sums) >= apart) return std::nullopt;
        return block;
    }

    std::span<const operation<T>> operations_;
    std::vector<open_block> open_;
    std::vector<closed_block> closed_;
};

}  // namespace

template <class T>
block_list<T> single_gates(unsigned long count) {
    block_list<T> blocks;
    blocks.gates.resize(count);
    blocks.ends.resize(count);
    std::iota(blocks.gates.begin(), blocks.gates.end(), 0ul);
    std::iota(blocks.ends.begin(), blocks.ends.end(), 1ul);
    return blocks;
}

template <class T>
block_list<T> fused_gates(std::span<const operation<T>> operations, const std::function<void()>& go_on) {
    block_former<T> former(operations);
    for (unsigned long gate = 0; gate < operations.size(); ++gate) {
        former.add(gate);
        if (go_on && gate % 1024 == 1023) go_on();
    }
    return former.formed();
}

template <class T>
std::vector<operation<T>> undoing_of(std::span<const operation<T>> operations, const block_list<T>& blocks,
                                     unsigned long block) {
    const auto fused = blocks.fused.find(block);
    if (fused != blocks.fused.end()) return fused->second.undoing;
    return {inverse_of(operations[blocks[block][0]])};
}

template <class T>
derivative derivative_of(std::span<const operation<T>> operations, const block_list<T>& blocks, unsigned long block,
                         unsigned long place) {
    const auto fused = blocks.fused.find(block);
    return fused != blocks.fused.end() ? fused->second.derivatives[place]
                                       : derivative_of(operations[blocks[block][place]]);
}

#define VELACAMPLIX_INSTANTIATE(T)                                                                                     \
    template block_list<T> single_gates<T>(unsigned long);                                                             \
    template block_list<T> fused_gates(std::span<const operation<T>>, const std::function<void()>&);                   \
    template std::vector<operation<T>> undoing_of(std::span<const operation<T>>, const block_list<T>&, unsigned long); \
    template derivative derivative_of(std::span<const operation<T>>, const block_list<T>&, unsigned long,              \
                                      unsigned long);
VELACAMPLIX_FOR_EACH_PRECISION(VELACAMPLIX_INSTANTIATE)

}  // namespace velacamplix::gradients
