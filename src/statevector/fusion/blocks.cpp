#include "statevector/fusion/blocks.hpp"

#include "statevector/fusion/one_qubit_unitary.hpp"
#include "statevector/fusion/two_qubit_matrix.hpp"
#include "statevector/index/bits.hpp"
#include "statevector/kernels/fused_matrix.hpp"

#include <algorithm>
#include <array>

namespace velacamplix::fusion {
namespace {

using gates::gate_kind;
using gates::operation;
using complex = two_qubit_matrix::complex;

// What gates cost: cycles per 64 bytes of the state in a chunk in cache, measured on a Zen 5 with 512-bit vectors. One
// table for all machines, so that the same gates come together on all.
struct costs {
    static constexpr double phase = 0.75;  // on one qubit; phases of many become a table that costs 3
    static constexpr double controlled_phase = 0.35;
    static constexpr double parity = 1.2;  // rzz, and any diagonal on two qubits
    static constexpr double move = 0.6, inner_move = 1.5;
    static constexpr double h = 1.2, rotation = cost_of_a_rotation;
    static constexpr double controlled = 1.1;  // a rotation on half of the state
    static constexpr double exchange = 1.5;    // iswap, and others that leave 00 and 11 alone
    static constexpr double matrix1 = 2.4, matrix2 = 8;

    // What a block costs: any matrix on two qubits, and one in which each row mixes two.
    static constexpr double dense_block = 5, pairs_block = 2.6;
    static constexpr double dense_entry = dense_block / 4;  // of a row of any dense matrix

    // Behind a block a gate on one qubit may be taken by the next block as well.
    static constexpr double share_of_gates_behind = 0.75;
};

// Lowest qubits, which stand inside a vector of 64 bytes.
template <class T>
constexpr unsigned inner_qubits = static_cast<unsigned>(std::countr_zero(64 / sizeof(thrust::complex<T>)));

template <class T>
thrust::complex<T> rounded(complex c) {
    return {static_cast<T>(c.real()), static_cast<T>(c.imag())};
}

template <class T>
operation<T> block_on(gates::target_list targets) {
    operation<T> block{};
    block.kind = gate_kind::block;
    block.targets = targets;
    block.block_call = kernels::fused_matrix_call<T>;
    return block;
}

// A matrix that stands alone may do the same as a block.
template <class T>
void make_block_of_matrix(operation<T>& op) {
    if (op.controls != 0 || (op.kind != gate_kind::matrix1 && op.kind != gate_kind::matrix)) return;
    if (op.targets.empty() || op.targets.size() > kernels::most_fused_targets) return;
    operation<T> block = block_on<T>(op.targets);
    block.entries = op.kind == gate_kind::matrix1 ? std::vector(op.coefficients.begin(), op.coefficients.end())
                                                  : std::move(op.entries);
    op = std::move(block);
}

constexpr unsigned long none = ~0ul;

// Gates that nothing comes between: on a pair of qubits, on one, or any other gate by itself.
struct node {
    std::vector<unsigned long> gates;  // in an order in which they may act
    unsigned first = 0, second = 0;    // of a pair, the larger first; of a single one both are it
    double cost = 0;
    bool is_pair = false;
    // Of a pair: single ones next to it, by its qubits. Of a single one: below[0] is the node before it.
    unsigned long below[2] = {none, none}, above[2] = {none, none};
    bool is_taken = false;  // by a pair

    bool is_single() const { return !is_pair && !gates.empty(); }
};

template <class T>
class block_former {
public:
    explicit block_former(std::vector<operation<T>> operations) : operations_(std::move(operations)) {
        last_.fill(none);
    }

    std::vector<operation<T>> formed() {
        for (unsigned long gate = 0; gate < operations_.size(); ++gate) add(gate);
        replacements_.resize(operations_.size());
        is_replaced_.resize(operations_.size());
        for (node& n : nodes_) {
            if (n.is_pair) settle(n);
        }
        std::vector<operation<T>> result;
        for (unsigned long gate = 0; gate < operations_.size(); ++gate) {
            for (operation<T>& op : replacements_[gate]) result.push_back(std::move(op));
            if (is_replaced_[gate]) continue;
            make_block_of_matrix(operations_[gate]);
            result.push_back(std::move(operations_[gate]));
        }
        return result;
    }

private:
    void add(unsigned long gate) {
        const operation<T>& op = operations_[gate];
        const unsigned long qubits = op.target_mask() | op.controls;
        const auto first = static_cast<unsigned>(std::bit_width(qubits)) - 1;
        const auto second = static_cast<unsigned>(std::countr_zero(qubits));
        switch (index::count_bits(qubits)) {
            case 0:
                return;
            case 1:
                return add_single(gate, first);
            case 2:
                return add_pair(gate, first, second);
            default:
                for (unsigned long rest = qubits; rest != 0; rest &= rest - 1) {
                    last_[static_cast<unsigned>(std::countr_zero(rest))] = nodes_.size();
                }
                nodes_.emplace_back();
        }
    }

    void add_single(unsigned long gate, unsigned q) {
        if (last_[q] == none || !nodes_[last_[q]].is_single()) {
            node n;
            n.first = n.second = q;
            n.below[0] = last_[q];
            if (n.below[0] != none && nodes_[n.below[0]].is_pair) {
                node& pair = nodes_[n.below[0]];
                pair.above[q == pair.first ? 0 : 1] = nodes_.size();
            }
            last_[q] = nodes_.size();
            nodes_.push_back(std::move(n));
        }
        append(nodes_[last_[q]], gate);
    }

    void add_pair(unsigned long gate, unsigned first, unsigned second) {
        const unsigned long singles[2] = {single_at(first), single_at(second)};
        const unsigned long under[2] = {singles[0] == none ? last_[first] : nodes_[singles[0]].below[0],
                                        singles[1] == none ? last_[second] : nodes_[singles[1]].below[0]};
        if (under[0] == none || under[0] != under[1] || !nodes_[under[0]].is_pair) {
            node n;
            n.is_pair = true;
            n.first = first;
            n.second = second;
            std::copy_n(singles, 2, n.below);
            last_[first] = last_[second] = nodes_.size();
            append(n, gate);
            nodes_.push_back(std::move(n));
            return;
        }
        node& pair = nodes_[under[0]];
        for (const unsigned long single : singles) {
            if (single == none) continue;
            for (const unsigned long g : nodes_[single].gates) append(pair, g);
            nodes_[single].is_taken = true;
        }
        pair.above[0] = pair.above[1] = none;
        append(pair, gate);
        last_[first] = last_[second] = under[0];
    }

    unsigned long single_at(unsigned q) const {
        return last_[q] != none && nodes_[last_[q]].is_single() ? last_[q] : none;
    }

    void append(node& to, unsigned long gate) {
        to.gates.push_back(gate);
        to.cost += cost_of(operations_[gate]);
    }

    // Puts one operation in the place of a pair's gates and of those beside it, if that costs less.
    void settle(node& pair) {
        const two_qubit_matrix core = product_of(pair, pair.gates);
        if (!core.is_finite()) return;
        if (core.mixes_only(0)) {
            if (pair.cost > costs::controlled_phase) replace_by_phases(pair, core);
            return;
        }
        // By themselves, as a block with what stands beside it and keeps its form, as a block with all of it.
        double apart = pair.cost;
        for (const unsigned long single : pair.below) apart += cost_of_free(single);
        for (const unsigned long single : pair.above) apart += costs::share_of_gates_behind * cost_of_free(single);
        if (apart <= costs::pairs_block) return;
        std::vector<unsigned long> below, above;
        double left = 0;  // cost of what would keep out of the block
        two_qubit_matrix product = core;
        if (cost_of_block(core) < costs::dense_block) {
            for (const unsigned long single : pair.below) {
                if (cost_of_free(single) == 0) continue;
                const two_qubit_matrix more = product.after(product_of(pair, nodes_[single].gates));
                keep_or_leave(single, more, 1, product, below, left);
            }
            for (const unsigned long single : pair.above) {
                if (cost_of_free(single) == 0) continue;
                const two_qubit_matrix more = product_of(pair, nodes_[single].gates).after(product);
                keep_or_leave(single, more, costs::share_of_gates_behind, product, above, left);
            }
        }
        const double form = cost_of_block(product);
        if (form >= costs::dense_block || form + left > costs::dense_block) {
            if (apart <= costs::dense_block) return;
            below.assign(std::begin(pair.below), std::end(pair.below));
            above.assign(std::begin(pair.above), std::end(pair.above));
        } else if (apart <= form + left) {
            return;
        }
        std::vector<unsigned long> all;
        for (const unsigned long single : below) take(single, all);
        all.insert(all.end(), pair.gates.begin(), pair.gates.end());
        for (const unsigned long single : above) take(single, all);
        operation<T> block = block_on<T>({pair.first, pair.second});
        for (const complex entry : product_of(pair, all).entries) block.entries.push_back(rounded<T>(entry));
        replace(all, pair.gates.front(), {std::move(block)});
    }

    static double cost_of_block(const two_qubit_matrix& m) {
        return m.mixes_only(1) || m.mixes_only(2) || m.mixes_only(3) ? costs::pairs_block : costs::dense_block;
    }

    // Takes a single node into a block if that keeps the block's form.
    void keep_or_leave(unsigned long single, two_qubit_matrix more, double share, two_qubit_matrix& product,
                       std::vector<unsigned long>& kept, double& left) {
        more.settle_zeros();
        if (cost_of_block(more) < costs::dense_block) {
            product = more;
            kept.push_back(single);
        } else {
            left += share * nodes_[single].cost;
        }
    }

    double cost_of_free(unsigned long single) const {
        return single == none || nodes_[single].is_taken ? 0 : nodes_[single].cost;
    }

    void take(unsigned long single, std::vector<unsigned long>& to) {
        if (single == none || nodes_[single].is_taken) return;
        nodes_[single].is_taken = true;
        to.insert(to.end(), nodes_[single].gates.begin(), nodes_[single].gates.end());
    }

    two_qubit_matrix product_of(const node& pair, const std::vector<unsigned long>& gates) const {
        two_qubit_matrix product = two_qubit_matrix::identity();
        for (const unsigned long gate : gates) {
            product = matrix_of(operations_[gate], pair.first, pair.second).after(product);
        }
        product.settle_zeros();
        return product;
    }

    // diag(d0, d1, d2, d3) is diag(d0, d1) on the second qubit, diag(1, d2 / d0) on the first, and d3 d0 / (d1 d2)
    // where both are 1.
    void replace_by_phases(const node& pair, const two_qubit_matrix& m) {
        const complex d[4] = {m.entries[0], m.entries[5], m.entries[10], m.entries[15]};
        for (const complex factor : d) {
            if (std::abs(std::abs(factor) - 1) > packs::precision<T>::unitary_tolerance) return;
        }
        std::vector<operation<T>> phases;
        const factor_pair second{d[0], d[1]}, first{1, d[2] / d[0]}, both{1, d[3] * d[0] / (d[1] * d[2])};
        if (!second.is_identity()) phases.push_back(phase_on(pair.second, second));
        if (!first.is_identity()) phases.push_back(phase_on(pair.first, first));
        if (!both.is_identity()) {
            operation<T>& op = phases.emplace_back();
            op.kind = gate_kind::ph;
            op.targets = {pair.second};
            op.controls = index::bit(pair.first);
            op.coefficients[0] = rounded<T>(both.one);
        }
        replace(pair.gates, pair.gates.front(), std::move(phases));
    }

    static operation<T> phase_on(unsigned q, const factor_pair& f) {
        operation<T> op{};
        op.kind = gate_kind::rz;
        op.targets = {q};
        op.coefficients[0] = rounded<T>(f.zero);
        op.coefficients[1] = rounded<T>(f.one);
        return op;
    }

    // The place is that of the pair's first gate on both qubits: what stands before it on one of them commutes with all
    // in between, and so does what comes behind.
    void replace(const std::vector<unsigned long>& gates, unsigned long place, std::vector<operation<T>> by) {
        for (const unsigned long gate : gates) is_replaced_[gate] = true;
        replacements_[place] = std::move(by);
    }

    std::vector<operation<T>> operations_;
    std::vector<node> nodes_;
    std::array<unsigned long, 64> last_;  // node by qubit
    std::vector<std::vector<operation<T>>> replacements_;
    std::vector<bool> is_replaced_;
};

}  // namespace

template <class T>
double cost_of(const operation<T>& op) {
    const bool controlled = op.controls != 0;
    const unsigned qubits = op.targets.size() + (controlled ? 1 : 0);
    if (op.is_diagonal()) {
        if (qubits <= 1) return costs::phase;
        return gates::is_phase(op.kind) ? costs::controlled_phase : costs::parity;
    }
    if (op.is_move()) {
        const bool inner = (op.target_mask() & index::low_bits(inner_qubits<T>)) != 0;
        return (inner ? costs::inner_move : costs::move) * (qubits == 1 ? 2 : 1);
    }
    switch (op.kind) {
        case gate_kind::h:
            return controlled ? costs::controlled : costs::h;
        case gate_kind::matrix1:
            return controlled ? costs::controlled : costs::matrix1;
        case gate_kind::iswap:
        case gate_kind::sqrt_swap:
            return costs::exchange;
        case gate_kind::rxx:
        case gate_kind::ryy:
            return 2 * costs::rotation;
        case gate_kind::matrix2:
            return costs::matrix2;
        case gate_kind::block:
        case gate_kind::matrix:
            return costs::dense_entry * static_cast<double>(1ul << op.targets.size());
        default:
            return controlled ? costs::controlled : costs::rotation;
    }
}

template <class T>
std::vector<operation<T>> form_blocks(std::vector<operation<T>> operations) {
    return block_former<T>(std::move(operations)).formed();
}

template std::vector<operation<float>> form_blocks(std::vector<operation<float>>);
template std::vector<operation<double>> form_blocks(std::vector<operation<double>>);

template double cost_of(const operation<float>&);
template double cost_of(const operation<double>&);

}  // namespace velacamplix::fusion
