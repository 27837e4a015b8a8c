#pragma once

#include "reference/named_gates.hpp"
#include "support/state_vector.hpp"

#include <stdexcept>

namespace support {

// Calls the member that a reference gate names. An empty control list is left out of the call.
template <class T>
void call(StateVector<T>& v, const reference::NamedGate<T>& gate) {
    const auto& [name, q, angle, listed] = gate;
    std::optional<std::vector<unsigned int>> controls;
    if (!listed.empty()) controls = listed;
    if (name == "X") return v.apply_X(q[0], controls);
    if (name == "Y") return v.apply_Y(q[0], controls);
    if (name == "Z") return v.apply_Z(q[0], controls);
    if (name == "H") return v.apply_H(q[0], controls);
    if (name == "S") return v.apply_S(q[0], controls);
    if (name == "T") return v.apply_T(q[0], controls);
    if (name == "ZtoY") return v.apply_ZtoY(q[0], controls);
    if (name == "YtoZ") return v.apply_YtoZ(q[0], controls);
    if (name == "RX") return v.apply_RX(q[0], angle, controls);
    if (name == "RY") return v.apply_RY(q[0], angle, controls);
    if (name == "RZ") return v.apply_RZ(q[0], angle, controls);
    if (name == "PH") return v.apply_PH(q[0], angle, controls);
    if (name == "CNOT") return v.apply_CNOT(q[0], q[1]);
    if (name == "CCNOT") return v.apply_CCNOT(q[0], q[1], q[2]);
    if (name == "CSIGN") return v.apply_CSIGN(q[0], q[1]);
    if (name == "SWAP") return v.apply_SWAP(q[0], q[1]);
    if (name == "ISWAP") return v.apply_ISWAP(q[0], q[1]);
    if (name == "SQRTSWAP") return v.apply_SQRTSWAP(q[0], q[1]);
    throw std::logic_error("no such member: apply_" + name);
}

// A state vector that works on somebody else's array.
template <class T>
class BorrowingVector : public StateVector<T> {
public:
    explicit BorrowingVector(unsigned int n) : StateVector<T>(n) {}

    void borrow(thrust::complex<T>* array) {
        this->amplitudes = pbamplix::amplitude_array<T>(array, [](thrust::complex<T>*) {});
    }
};

}  // namespace support
