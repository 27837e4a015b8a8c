#include "statevector/kernels/diagonal_run.hpp"

#include "reference/diagonal.hpp"
#include "support/compare.hpp"
#include "support/guarded_array.hpp"
#include "support/precision.hpp"
#include "support/random_state.hpp"
#include "support/state_vector.hpp"

using namespace support;
using velacamplix::kernels::diagonal_run;

PRECISION_SUITE(run_of_diagonals);

// Targets on every position, inside and outside the packs, in changing order.
TYPED_TEST(run_of_diagonals, multiplies_in_the_order_of_its_gates_bit_for_bit) {
    for (unsigned int n = diagonal_run<TypeParam>::fewest_qubits; n <= 10; ++n) {
        const auto start = random_state<TypeParam>(n, Values::unusual, n);
        diagonal_run<TypeParam> run(n);
        auto expected = start;
        for (unsigned int gate = 0; gate < 2 * n; ++gate) {
            const auto d = random_coefficients<TypeParam>(2, gate);
            const unsigned int target = gate * 3 % n;
            run.add_inside(target, as_thrust(d[0]), as_thrust(d[1]));
            reference::apply_diagonal(expected, {target}, {}, d);
        }
        GuardedArray<TypeParam> array(start);
        run.run(array.data(), 0);
        EXPECT_TRUE(same_bits(expected, array.data())) << n << " qubits";
        EXPECT_TRUE(array.fences_stand());
    }
}

TYPED_TEST(run_of_diagonals, takes_the_factor_of_an_outside_bit_from_the_base) {
    const unsigned int n = 7;
    const auto start = random_state<TypeParam>(n, Values::ordinary);
    const auto d = random_coefficients<TypeParam>(4);
    diagonal_run<TypeParam> run(n);
    run.add_outside(1ul << 20, as_thrust(d[0]), as_thrust(d[1]));
    run.add_inside(2, as_thrust(d[2]), as_thrust(d[3]));
    for (const bool one : {false, true}) {
        auto expected = start;
        const auto outside = one ? d[1] : d[0];
        reference::apply_diagonal(expected, {0}, {}, {outside, outside});
        reference::apply_diagonal(expected, {2}, {}, {d[2], d[3]});
        GuardedArray<TypeParam> array(start);
        run.run(array.data(), one ? 5ul << 20 : 2ul << 20);
        EXPECT_TRUE(same_bits(expected, array.data())) << one;
    }
}
