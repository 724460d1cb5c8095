// Dense linear equations: decomposition, solution, inverse, and what is not tested on purpose.
#include "base/memory.h"
#include "fixtures.h"

#include <cmath>
#include <numeric>
#include <random>

namespace
{
// A square matrix in the form that the functions take.
struct Matrix
{
    int n;
    std::vector<double> values;
    std::vector<double*> rows;
    explicit Matrix(int order) : n(order), values(size_t(order) * size_t(order)), rows(size_t(order))
    {
        for (int i = 0; i < n; ++i)
            rows[size_t(i)] = values.data() + i * n;
    }
    Matrix(const Matrix& other) : Matrix(other.n) { values = other.values; }
    double& operator()(int i, int j) { return rows[size_t(i)][j]; }
};

Matrix random_matrix(int n, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    Matrix a(n);
    for (double& value : a.values)
        value = uniform(generator);
    return a;
}
} // namespace

TEST(LinearEquations, SwapRowsForThePivot)
{
    Matrix a(2);
    a(0, 1) = a(1, 0) = 1.0;
    int perm[2];
    EXPECT_EQ(ZEL_LUPDecomposition(a.rows.data(), 2, perm), 1);
    EXPECT_EQ(perm[0], 1);
    EXPECT_EQ(perm[1], 0);
    EXPECT_EQ(a.values, (std::vector<double>{1.0, 0.0, 0.0, 1.0}));
    EXPECT_EQ(a.rows[0], a.values.data()) << "contents move, the caller's pointers do not";
}

TEST(LinearEquations, AreSolvedAndInverted)
{
    for (int n : {1, 2, 5, 40})
    {
        Matrix a = random_matrix(n, unsigned(n)), lu(a);
        std::vector<int> perm(size_t(n), 0);
        std::vector<double> x(size_t(n), 0.0), b(size_t(n), 0.0);
        std::iota(x.begin(), x.end(), 1.0);
        for (int i = 0; i < n; ++i)
            b[size_t(i)] = std::inner_product(x.begin(), x.end(), a.rows[size_t(i)], 0.0);
        ASSERT_EQ(ZEL_LUPDecomposition(lu.rows.data(), n, perm.data()), 1);
        ASSERT_EQ(ZEL_LUPSolve(lu.rows.data(), n, perm.data(), b.data()), 1);
        for (int i = 0; i < n; ++i)
            EXPECT_NEAR(b[size_t(i)], x[size_t(i)], 1e-10 * n);
        ASSERT_EQ(ZEL_LUPInvert(lu.rows.data(), n, perm.data()), 1);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
            {
                double product = 0.0;
                for (int k = 0; k < n; ++k)
                    product += a(i, k) * lu(k, j);
                EXPECT_NEAR(product, i == j ? 1.0 : 0.0, 1e-11);
            }
    }
}

TEST(LinearEquations, TestEveryPivotButTheLast)
{
    int perm[2];
    Matrix zero_column(2);
    zero_column(0, 1) = zero_column(1, 1) = 1.0;
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_LUPDecomposition(zero_column.rows.data(), 2, perm), 0); }), "");
    Matrix dependent(2);
    dependent.values = {1.0, 2.0, 2.0, 4.0};
    EXPECT_EQ(ZEL_LUPDecomposition(dependent.rows.data(), 2, perm), 1);
    double b[2] = {1.0, 1.0};
    EXPECT_EQ(ZEL_LUPSolve(dependent.rows.data(), 2, perm, b), 1);
    EXPECT_FALSE(std::isfinite(b[1]));
    Matrix zero(1);
    EXPECT_EQ(ZEL_LUPDecomposition(zero.rows.data(), 1, perm), 1);
}

TEST(LinearEquations, RefuseNothingToSolveAndSurviveFailingMemory)
{
    Matrix a = random_matrix(3, 7);
    int perm[3];
    double b[3] = {1.0, 2.0, 3.0};
    ASSERT_EQ(ZEL_LUPDecomposition(a.rows.data(), 3, perm), 1);
    EXPECT_EQ(ZEL_LUPDecomposition(a.rows.data(), 0, perm), 1);
    const std::vector<double> before = a.values;
    for (int failing = 0; failing < 5; ++failing) // two allocations, then one a column
        EXPECT_NE(errors_of([&] {
                      zel::failing_allocation = failing;
                      EXPECT_EQ(ZEL_LUPInvert(a.rows.data(), 3, perm), 0);
                  }).find("ERROR:  Failed to allocate memory at line "),
                  std::string::npos);
    zel::failing_allocation = -1;
    EXPECT_EQ(a.values, before);
    EXPECT_NE(errors_of([&] { EXPECT_EQ(ZEL_LUPSolve(a.rows.data(), 0, perm, b), 0); }), "");
    EXPECT_EQ(b[0], 1.0);
}
