#include "support/counted_allocations.hpp"
#include "support/named_gates.hpp"
#include "support/precision.hpp"

using namespace support;

// At few qubits the overhead of a gate decides: its members take nothing from the heap.

PRECISION_SUITE(named_gates);

namespace {

template <class T>
using Controlled = void (StateVector<T>::*)(unsigned int, typename StateVector<T>::controls_list);
template <class T>
using Turned = void (StateVector<T>::*)(unsigned int, T, typename StateVector<T>::controls_list);
template <class T>
using OfTwo = void (StateVector<T>::*)(unsigned int, unsigned int);

std::vector<unsigned int> first_controls(unsigned int count) {
    std::vector<unsigned int> controls;
    for (unsigned int q = 0; q < count; ++q) controls.push_back(q);
    return controls;
}

}  // namespace

TYPED_TEST(named_gates, of_one_qubit_allocate_nothing_for_up_to_8_controls) {
    using V = StateVector<TypeParam>;
    V v(10);
    v.reset();
    const Controlled<TypeParam> gates[] = {&V::apply_X, &V::apply_Y, &V::apply_Z,    &V::apply_H,
                                           &V::apply_S, &V::apply_T, &V::apply_ZtoY, &V::apply_YtoZ};
    const Turned<TypeParam> turned[] = {&V::apply_RX, &V::apply_RY, &V::apply_RZ, &V::apply_PH};
    for (unsigned int count = 0; count <= 8; ++count) {
        for (unsigned int i = 0; i < std::size(gates); ++i) {
            auto controls = first_controls(count);
            const CountedAllocations allocations;
            (v.*gates[i])(9, std::move(controls));
            EXPECT_EQ(allocations.count(), 0) << "gate " << i << ", " << count << " controls";
        }
        for (unsigned int i = 0; i < std::size(turned); ++i) {
            auto controls = first_controls(count);
            const CountedAllocations allocations;
            (v.*turned[i])(9, TypeParam(0.3), std::move(controls));
            EXPECT_EQ(allocations.count(), 0) << "turning gate " << i << ", " << count << " controls";
        }
    }
}

TYPED_TEST(named_gates, of_several_qubits_allocate_nothing) {
    using V = StateVector<TypeParam>;
    V v(10);
    v.reset();
    const OfTwo<TypeParam> gates[] = {&V::apply_CNOT, &V::apply_CSIGN, &V::apply_SWAP, &V::apply_ISWAP,
                                      &V::apply_SQRTSWAP};
    for (unsigned int i = 0; i < std::size(gates); ++i) {
        const CountedAllocations allocations;
        (v.*gates[i])(0, 7);
        (v.*gates[i])(8, 3);
        EXPECT_EQ(allocations.count(), 0) << "gate " << i;
    }
    const CountedAllocations allocations;
    v.apply_CCNOT(2, 9, 0);
    EXPECT_EQ(allocations.count(), 0);
}

TEST(counted_allocations, see_the_librarys_own) {
    const CountedAllocations allocations;
    StateVector<double> v(1);  // its list of ten names, at least
    EXPECT_GT(allocations.count(), 0);
}
