#include "statevector/observables/product_sums.hpp"

#include "support/compare.hpp"
#include "support/precision.hpp"

#include <random>

using namespace velacamplix::observables;

PRECISION_SUITE(product_sums);

namespace {

// A sequence whose slabs are zero but for one number each, so that a sum over it is a sum of those.
template <class T>
struct sparse_sequence {
    std::vector<T> first_of_slab;

    explicit sparse_sequence(unsigned long slabs) {
        std::mt19937_64 engine(3);
        for (unsigned long c = 0; c < slabs; ++c) first_of_slab.push_back(T(engine() % 20001) / 10000 - 1);
    }

    T sum(int threads) const {
        const unsigned long slabs = first_of_slab.size();
        const product_sequence sequence{0, false, slabs * slab_length<T>, 0, 0, 1};
        T out;
        const auto fill = [&](const product_sequence&, unsigned long number, T* to) {
            std::fill_n(to, slab_length<T>, T(0));
            to[0] = first_of_slab[number];
        };
        sum_sequences<T>({sequence}, {0}, slabs, 1ul << 30, threads, fill, &out, [] {});
        return out;
    }

    // The same one after another, in so many sections.
    T sum_in_sections(unsigned long sections) const {
        const unsigned long length = first_of_slab.size() / sections;
        T total = T(0);
        for (unsigned long s = 0; s < sections; ++s) {
            T section = T(0);
            for (unsigned long c = s * length; c < (s + 1) * length; ++c) section += first_of_slab[c];
            total = s == 0 ? section : total + section;
        }
        return total;
    }
};

}  // namespace

TYPED_TEST(product_sums, are_cut_into_4096_sections_at_most) {
    for (const unsigned long slabs : {1ul, 64ul, 1024ul, 4096ul, 8192ul}) {
        const sparse_sequence<TypeParam> sequence(slabs);
        const TypeParam expected = sequence.sum_in_sections(std::min(slabs, 4096ul));
        if (slabs > 4096) {
            EXPECT_FALSE(support::same_bits(expected, sequence.sum_in_sections(128))) << "or this would prove nothing";
            EXPECT_FALSE(support::same_bits(expected, sequence.sum_in_sections(slabs)));
        }
        for (const int threads : {1, 3, 7}) {
            EXPECT_TRUE(support::same_bits(expected, sequence.sum(threads)))
                << slabs << " slabs, " << threads << " thread(s)";
        }
    }
}

TYPED_TEST(product_sums, of_one_batch_take_8_mib_at_most) {
    for (const unsigned long patches : {1ul, 2ul, 128ul, 256ul, 4096ul, 1ul << 20}) {
        const unsigned long sections = std::min(patches, 4096ul);
        EXPECT_LE(most_masks(patches) * sections * sizeof(double), 8ul << 20) << patches;
        EXPECT_GE(most_masks(patches), 256ul) << "no fewer masks than share all the steps of a transform";
        EXPECT_LE(most_masks(patches), 4096ul);
    }
    EXPECT_EQ(most_masks(4096), 256ul);
}
