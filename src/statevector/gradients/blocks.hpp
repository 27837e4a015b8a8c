#pragma once

#include "statevector/gates/operation.hpp"
#include "statevector/gradients/derivative.hpp"

#include <functional>
#include <map>
#include <span>
#include <vector>

namespace velacamplix::gradients {

// The gates of a block, multiplied: what undoes them all, and the derivatives by each, with the sums formed behind the
// last of them.
template <class T>
struct fused_block {
    std::vector<gates::operation<T>> undoing;
    std::vector<derivative> derivatives;
};

// A list of gates in blocks that go back one after another, sums being formed behind each.
template <class T>
struct block_list {
    std::vector<unsigned long> gates;               // in an order that does the same
    std::vector<unsigned long> ends;                // of each block, among these
    std::map<unsigned long, fused_block<T>> fused;  // by block; any other is one gate

    unsigned long size() const { return ends.size(); }
    std::span<const unsigned long> operator[](unsigned long block) const {
        const unsigned long begin = block == 0 ? 0 : ends[block - 1];
        return std::span(gates).subspan(begin, ends[block] - begin);
    }
};

// A rotation that fusion, where it stands apart, turns back on both states in one walk. Whether that happens does not
// depend on which derivatives are wanted.
template <class T>
bool is_turn(const gates::operation<T>& op) {
    return op.controls == 0 && (op.kind == gates::gate_kind::rx || op.kind == gates::gate_kind::ry);
}

// Every gate by itself.
template <class T>
block_list<T> single_gates(unsigned long count);

// Gates on one pair of qubits that no third one comes between stand together where going back costs less then: two
// states take one matrix, and the derivatives share their sums. go_on hears every few thousand gates and may throw.
template <class T>
block_list<T> fused_gates(std::span<const gates::operation<T>> operations, const std::function<void()>& go_on = {});

// What undoes a block.
template <class T>
std::vector<gates::operation<T>> undoing_of(std::span<const gates::operation<T>> operations,
                                            const block_list<T>& blocks, unsigned long block);

// The derivatives by the gate at a place of a block, with lambda and psi the states behind the block.
template <class T>
derivative derivative_of(std::span<const gates::operation<T>> operations, const block_list<T>& blocks,
                         unsigned long block, unsigned long place);

}  // namespace velacamplix::gradients
