#include "support/precision.hpp"

#include <velacamplix/kernels.hpp>

#include <cmath>
#include <limits>

using pbamplix::get_diag_if_diag;
using namespace support;

PRECISION_SUITE(get_diag_if_diag_of);

namespace {

template <class T>
using Entries = std::vector<thrust::complex<T>>;

template <class T>
struct Answer {
    bool is_diagonal;
    Entries<T> diag;
};

template <class T>
Answer<T> ask(const Entries<T>& matrix, unsigned int dim, Entries<T> diag = {}) {
    const bool is_diagonal = get_diag_if_diag(matrix, diag, dim);
    return {is_diagonal, diag};
}

}  // namespace

TYPED_TEST(get_diag_if_diag_of, negative_zero_off_the_diagonal_is_true) {
    using T = TypeParam;
    const Answer<T> answer = ask<T>({{1, 2}, {T(-0.0), T(-0.0)}, {0, T(-0.0)}, {3, 4}}, 2);
    EXPECT_TRUE(answer.is_diagonal);
    EXPECT_EQ(answer.diag, (Entries<T>{{1, 2}, {3, 4}}));
}

TYPED_TEST(get_diag_if_diag_of, tiniest_number_off_the_diagonal_is_false) {
    using T = TypeParam;
    for (const T tiny : {std::numeric_limits<T>::denorm_min(), -std::numeric_limits<T>::denorm_min()}) {
        EXPECT_FALSE(ask<T>({{1, 0}, {tiny, 0}, {0, 0}, {1, 0}}, 2).is_diagonal) << "real part";
        EXPECT_FALSE(ask<T>({{1, 0}, {0, 0}, {0, tiny}, {1, 0}}, 2).is_diagonal) << "imaginary part";
    }
}

TEST(get_diag_if_diag_in_double, off_diagonal_1e_300_is_false) {
    EXPECT_FALSE(ask<double>({{1, 0}, {1e-300, 0}, {0, 0}, {1, 0}}, 2).is_diagonal);
}

TYPED_TEST(get_diag_if_diag_of, nan_off_the_diagonal_is_false) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN();
    EXPECT_FALSE(ask<T>({{1, 0}, {nan, 0}, {0, 0}, {1, 0}}, 2).is_diagonal);
    EXPECT_FALSE(ask<T>({{1, 0}, {0, 0}, {0, nan}, {1, 0}}, 2).is_diagonal);
}

TYPED_TEST(get_diag_if_diag_of, dimension_0_is_true_and_leaves_diag_empty) {
    EXPECT_TRUE(ask<TypeParam>({}, 0).is_diagonal);
    EXPECT_TRUE(ask<TypeParam>({}, 0).diag.empty());
    EXPECT_TRUE(ask<TypeParam>({}, 0, {{7, 7}, {8, 8}}).diag.empty());
}

TYPED_TEST(get_diag_if_diag_of, any_values_on_the_diagonal_is_true) {
    using T = TypeParam;
    const T nan = std::numeric_limits<T>::quiet_NaN(), infinity = std::numeric_limits<T>::infinity();
    const Answer<T> answer = ask<T>({{nan, 0}, {0, 0}, {0, 0}, {0, -infinity}}, 2);
    EXPECT_TRUE(answer.is_diagonal);
    EXPECT_TRUE(std::isnan(answer.diag[0].real()));
    EXPECT_EQ(answer.diag[1].imag(), -infinity);
}

TYPED_TEST(get_diag_if_diag_of, failure_above_the_diagonal_keeps_the_rows_before_and_its_own_entry) {
    using T = TypeParam;
    Entries<T> matrix(16);
    for (unsigned int i = 0; i < 4; ++i) matrix[5 * i] = thrust::complex<T>(T(i + 1), 0);
    matrix[1 * 4 + 3] = thrust::complex<T>(0, 9);  // row 1, behind its diagonal entry
    const Answer<T> answer = ask<T>(matrix, 4);
    EXPECT_FALSE(answer.is_diagonal);
    EXPECT_EQ(answer.diag, (Entries<T>{{1, 0}, {2, 0}, {0, 0}, {0, 0}}));
}

TYPED_TEST(get_diag_if_diag_of, failure_below_the_diagonal_keeps_the_rows_before_alone) {
    using T = TypeParam;
    Entries<T> matrix(16);
    for (unsigned int i = 0; i < 4; ++i) matrix[5 * i] = thrust::complex<T>(T(i + 1), 0);
    matrix[2 * 4 + 0] = thrust::complex<T>(9, 0);  // row 2, before its diagonal entry
    const Answer<T> answer = ask<T>(matrix, 4);
    EXPECT_FALSE(answer.is_diagonal);
    EXPECT_EQ(answer.diag, (Entries<T>{{1, 0}, {2, 0}, {0, 0}, {0, 0}}));
}

TYPED_TEST(get_diag_if_diag_of, diag_with_old_entries_resizes_it_to_the_dimension) {
    using T = TypeParam;
    EXPECT_EQ(ask<T>({{1, 0}, {0, 0}, {0, 0}, {2, 0}}, 2, Entries<T>(9)).diag.size(), 2ul);
    EXPECT_EQ(ask<T>({{1, 0}}, 1).diag, (Entries<T>{{1, 0}}));
}
