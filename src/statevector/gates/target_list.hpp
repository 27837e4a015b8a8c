#pragma once

#include "statevector/index/bits.hpp"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <vector>

namespace velacamplix::gates {

// Distinct qubits in listed order, at most 63 of them. They stand in the object itself: a program copies as many lists
// as it has gates, and most are of one qubit.
class target_list {
public:
    target_list() = default;
    target_list(std::initializer_list<unsigned int> qubits) : target_list(qubits.begin(), qubits.end()) {}
    explicit target_list(const std::vector<unsigned int>& qubits) : target_list(qubits.begin(), qubits.end()) {}
    template <class Iterator>
    target_list(Iterator begin, Iterator end) {
        for (; begin != end; ++begin) push_back(*begin);
    }

    unsigned int size() const { return size_; }
    bool empty() const { return size_ == 0; }
    unsigned int operator[](std::size_t i) const { return qubits_[i]; }
    const unsigned char* begin() const { return qubits_.data(); }
    const unsigned char* end() const { return begin() + size_; }

    void push_back(unsigned int qubit) { qubits_[size_++] = static_cast<unsigned char>(qubit); }
    void clear() { size_ = 0; }

    friend bool operator==(const target_list& a, const target_list& b) { return std::ranges::equal(a, b); }

    unsigned long mask() const {
        unsigned long mask = 0;
        for (const unsigned int q : *this) mask |= index::bit(q);
        return mask;
    }
    std::vector<unsigned int> listed() const { return {begin(), end()}; }

private:
    unsigned char size_ = 0;
    std::array<unsigned char, 63> qubits_;
};

}  // namespace velacamplix::gates
