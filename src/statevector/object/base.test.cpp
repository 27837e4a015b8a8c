#include "support/precision.hpp"
#include "support/scripted_system.hpp"
#include "support/state_vector.hpp"

#include <cstdint>

using namespace support;
using pbamplix::PybindAmplixStateVector;

// What a host compiled against the headers relies on: names, types and order of the data members, slots of the
// virtual table.

static_assert(std::is_abstract_v<PybindAmplixStateVector>);
static_assert(std::has_virtual_destructor_v<PybindAmplixStateVector>);
static_assert(std::is_same_v<decltype(PybindAmplixStateVector::named_ctrl_gates), std::vector<std::string>>);

PRECISION_SUITE(state_vector_layout);

TYPED_TEST(state_vector_layout, data_members_have_their_types) {
    using V = StateVector<TypeParam>;
    static_assert(std::is_base_of_v<PybindAmplixStateVector, V>);
    static_assert(std::is_constructible_v<V, unsigned int>);
    static_assert(std::is_same_v<decltype(V::seed), unsigned int>);
    static_assert(std::is_same_v<decltype(V::rng), std::mt19937_64>);
    static_assert(std::is_same_v<decltype(V::nqubits), unsigned int>);
    static_assert(std::is_same_v<decltype(V::size), unsigned long>);
    static_assert(std::is_same_v<decltype(V::amplitudes), pbamplix::amplitude_array<TypeParam>>);
    static_assert(std::is_same_v<decltype(V::is_density_matrix), bool>);
    static_assert(std::is_same_v<decltype(V::num_threads), int>);
    static_assert(std::is_same_v<decltype(V::named_ctrl_gates), std::vector<std::string>>);
}

TYPED_TEST(state_vector_layout, data_members_stand_in_order) {
    StateVector<TypeParam> v(1);
    const PybindAmplixStateVector& base = v;
    const void* members[] = {&v,
                             &base.named_ctrl_gates,
                             &v.seed,
                             &v.rng,
                             &v.nqubits,
                             &v.size,
                             &v.amplitudes,
                             &v.is_density_matrix,
                             &v.num_threads,
                             &v.named_ctrl_gates};
    for (unsigned int i = 1; i < std::size(members); ++i) {
        EXPECT_LT(reinterpret_cast<std::uintptr_t>(members[i - 1]), reinterpret_cast<std::uintptr_t>(members[i]))
            << "member " << i;
    }
    // The base holds the table's address and its list, nothing else.
    EXPECT_EQ(sizeof(PybindAmplixStateVector), sizeof(void*) + sizeof(std::vector<std::string>));
}

namespace {

// A pointer to a virtual member holds the byte offset of its slot. What says that it is virtual is the lowest bit of
// the same word in the Itanium ABI, and of the second word on aarch64.
template <class Member>
std::intptr_t slot_of(Member member) {
    std::intptr_t parts[2];
    static_assert(sizeof member == sizeof parts);
    std::memcpy(parts, &member, sizeof parts);
#if defined(__aarch64__)
    EXPECT_EQ(parts[1] % 2, 1) << "not virtual";
    return parts[0] / static_cast<std::intptr_t>(sizeof(void*));
#else
    EXPECT_EQ(parts[0] % 2, 1) << "not virtual";
    return (parts[0] - 1) / static_cast<std::intptr_t>(sizeof(void*));
#endif
}

}  // namespace

TEST(state_vector_base, virtual_operations_have_their_slots) {
    // The destructor comes first; it takes two slots.
    EXPECT_EQ(slot_of(&PybindAmplixStateVector::resize), 2);
    EXPECT_EQ(slot_of(&PybindAmplixStateVector::reset), 3);
    EXPECT_EQ(slot_of(&PybindAmplixStateVector::release_memory), 4);
    EXPECT_EQ(slot_of(&PybindAmplixStateVector::get_named_ctrl_gates), 5);
}

TYPED_TEST(state_vector_layout, overrides_take_the_slots_of_the_base) {
    using V = StateVector<TypeParam>;
    EXPECT_EQ(slot_of(&V::resize), 2);
    EXPECT_EQ(slot_of(&V::reset), 3);
    EXPECT_EQ(slot_of(&V::release_memory), 4);
    EXPECT_EQ(slot_of(&V::get_named_ctrl_gates), 5);
}

namespace {

// The least a derived class can be.
class Plain : public PybindAmplixStateVector {
public:
    void resize(unsigned int) override {}
    void reset(std::optional<unsigned long>) override {}
    void release_memory() override {}
};

}  // namespace

TEST(state_vector_base, own_list_of_controlled_gates_is_empty) {
    Plain plain;
    EXPECT_TRUE(plain.get_named_ctrl_gates().empty());
    EXPECT_EQ(&plain.get_named_ctrl_gates(), &plain.named_ctrl_gates);
}

TYPED_TEST(state_vector_layout, controlled_gates_are_ten_names_in_order) {
    StateVector<TypeParam> v(1);
    const std::vector<std::string> expected = {"X", "Y", "Z", "H", "S", "T", "RX", "RY", "RZ", "PH"};
    EXPECT_EQ(v.named_ctrl_gates, expected);
    PybindAmplixStateVector& base = v;
    EXPECT_EQ(&base.get_named_ctrl_gates(), &v.named_ctrl_gates) << "the derived list, also through the base";
    EXPECT_TRUE(base.named_ctrl_gates.empty()) << "the base's own list";
}

TYPED_TEST(state_vector_layout, destruction_through_the_base_frees_the_array) {
    WatchedArrays arrays;
    PybindAmplixStateVector* v = new StateVector<TypeParam>(3);
    delete v;
    EXPECT_EQ(arrays.order(), "query allocate release");
}
