// Dense linear equations: decomposition, solution, inverse, and what is not tested on purpose.
#include "dense.h"
#include "fixtures.h"

namespace
{
using Rows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

// Pointers to the rows of a matrix, the form that the functions take.
struct Pointers : std::vector<double*>
{
    explicit Pointers(Rows& matrix)
    {
        for (int i = 0; i < matrix.rows(); ++i)
            push_back(&matrix(i, 0));
    }
};

int decompose(Rows& matrix, int* perm)
{
    return ZEL_LUPDecomposition(Pointers(matrix).data(), int(matrix.rows()), perm);
}
} // namespace

TEST(LinearEquations, AreSolvedAndInverted)
{
    for (int n : {1, 2, 5, 40})
    {
        const MatrixXd a = random_matrix(n, n, unsigned(n)), x = VectorXd::LinSpaced(n, 1, n);
        Rows lu = a;
        VectorXd b = a * x;
        std::vector<int> perm(size_t(n), 0);
        ASSERT_EQ(decompose(lu, perm.data()), 1);
        ASSERT_EQ(ZEL_LUPSolve(Pointers(lu).data(), n, perm.data(), b.data()), 1);
        EXPECT_LE(distance(b, x), 1e-10 * n);
        ASSERT_EQ(ZEL_LUPInvert(Pointers(lu).data(), n, perm.data()), 1);
        EXPECT_LE(distance(a * lu, MatrixXd::Identity(n, n)), 1e-11);
    }
}

TEST(LinearEquations, TestEveryPivotButTheLast)
{
    int perm[2];
    Rows zero_column(2, 2), dependent(2, 2), zero = Rows::Zero(1, 1);
    zero_column << 0, 1, 0, 1;
    dependent << 1, 2, 2, 4;
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(decompose(zero_column, perm), 0); }), "");
    EXPECT_EQ(decompose(dependent, perm), 1);
    double b[2] = {1.0, 1.0};
    EXPECT_EQ(ZEL_LUPSolve(Pointers(dependent).data(), 2, perm, b), 1);
    EXPECT_FALSE(std::isfinite(b[1]));
    EXPECT_EQ(decompose(zero, perm), 1);
}

TEST(LinearEquations, RefuseNothingToSolveAndSurviveFailingMemory)
{
    Rows a = random_matrix(3, 3, 7);
    int perm[3], done = 0;
    double b = 1.0;
    ASSERT_EQ(decompose(a, perm), 1);
    EXPECT_EQ(ZEL_LUPDecomposition(Pointers(a).data(), 0, perm), 1);
    EXPECT_NE(errors_of([&] { EXPECT_EQ(ZEL_LUPSolve(Pointers(a).data(), 0, perm, &b), 0); }), "");
    EXPECT_EQ(b, 1.0);
    const Rows before = a;
    const auto invert = [&] { done = ZEL_LUPInvert(Pointers(a).data(), 3, perm); };
    for_each_failing_allocation([] {}, invert,
                                [&](bool failed, const std::string& said) {
                                    EXPECT_EQ(said.starts_with("ERROR:  Failed to allocate memory at line "), failed);
                                    EXPECT_EQ(done, !failed);
                                    EXPECT_EQ(a == before, failed);
                                });
}
