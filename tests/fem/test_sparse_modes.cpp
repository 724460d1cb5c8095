// Modes of large matrices: all of them, whatever their multiplicity, and what the factor of a matrix leaves behind.
#include "fem/sparse_modes.h"

#include <unistd.h>

#include <numbers>

#include "fem/interrupt.h"
#include "models.h"

constexpr double kEdge = 10.0; // of the grid

// A bar of unit masses on a grid, with springs to the neighbours along the edges and the diagonals of faces.
struct Lattice
{
    Model model;
    MatrixXd stiffness, mass;

    Lattice(int nx, int ny, int nz)
    {
        arrays::Input input;
        for (int i = 0; i <= nx; ++i)
            for (int j = 0; j <= ny; ++j)
                for (int k = 0; k <= nz; ++k)
                    input.points.insert(input.points.end(), {kEdge * i, kEdge * j, kEdge * k});
        const Index order = Index(input.points.size());
        const Eigen::Matrix3Xd at = Eigen::Matrix3Xd::Map(input.points.data(), 3, order / 3);
        mass = MatrixXd::Identity(order, order);
        stiffness = MatrixXd::Zero(order, order);
        for (Index a = 0; a < at.cols(); ++a)
            for (Index b = 0; b < a; ++b)
                if (const Vector3d along = at.col(a) - at.col(b); along.norm() < 1.5 * kEdge)
                {
                    const Eigen::Matrix3d spring = 1e6 * along.normalized() * along.normalized().transpose();
                    stiffness.block<3, 3>(3 * a, 3 * a) += spring;
                    stiffness.block<3, 3>(3 * b, 3 * b) += spring;
                    stiffness.block<3, 3>(3 * a, 3 * b) = stiffness.block<3, 3>(3 * b, 3 * a) = -spring;
                }
        input.stiffness = compressed(stiffness, kWhole);
        input.mass = compressed(mass, kWhole);
        model = model_of(*arrays::make_source(input));
    }
};

// The first values are the expected ones, and none of those below `complete_to` is missing.
static void expect_modes(const VectorXd& values, const VectorXd& expected, double complete_to, const char* what)
{
    const Index count = values.size();
    SCOPED_TRACE(testing::Message() << what << ", " << count);
    for (Index i = 0; i < count; ++i)
        ASSERT_NEAR(values[i], expected[i], 1e-8 * expected[i]) << "mode " << i + 1;
    EXPECT_LE((expected.array() < (1 - 1e-8) * complete_to).count(), count);
    EXPECT_GT(complete_to, (1 - 1e-8) * expected[count - 1]);
}

// Every bending mode of a square section comes twice, every second number cuts a pair.
TEST(Modes, OfASquareBeamAreComplete)
{
    constexpr int kLength = 12, kWidth = 3;
    const Lattice beam(kLength, kWidth, kWidth);
    const Index order = beam.mass.rows(), face = 3 * (kWidth + 1) * (kWidth + 1), interior = order - 2 * face;
    const VectorXd all = generalized_eigenvalues(beam.stiffness, beam.mass),
                   fixed = generalized_eigenvalues(beam.stiffness.block(face, face, interior, interior),
                                                   beam.mass.block(face, face, interior, interior));
    ASSERT_GT(interior, 300);
    EXPECT_NEAR(all[7], all[6], 1e-9 * all[6]);
    const Mesh& mesh = beam.model.mesh;
    const std::vector<Interface> ends = {end_at(mesh, 0.0, 1001), end_at(mesh, kEdge * kLength, 1002)};
    for (int n = 1; n <= 30; ++n)
    {
        const Reduction modes = reduce_free(beam.model, n, silent),
                        craig_bampton = reduce_craig_bampton(beam.model, ends, n, silent);
        expect_modes(modes.stiffness.diagonal().tail(n), all.tail(order - 6), modes.complete_to, "free");
        expect_modes(craig_bampton.stiffness.diagonal().tail(n), fixed, craig_bampton.complete_to, "Craig-Bampton");
    }
}

// Equal chains of unit masses and springs, not coupled; both ends of each are held.
static SparseMatrix chains(int copies, int length)
{
    SparseMatrix stiffness(copies * length, copies * length);
    for (int i = 0; i < copies * length; ++i)
    {
        stiffness.insert(i, i) = 2.0;
        if (i % length != 0)
            stiffness.insert(i - 1, i) = -1.0;
    }
    stiffness.makeCompressed();
    return stiffness;
}

static double chain_eigenvalue(int mode, int length)
{
    return 4.0 * std::pow(std::sin(mode * std::numbers::pi / 2 / (length + 1)), 2);
}

TEST(Modes, OfEqualPartsComeOnceForEachPart)
{
    constexpr int kCopies = 9, kLength = 50; // more than a start block has vectors
    const SparseMatrix stiffness = chains(kCopies, kLength);
    SparseMatrix mass(stiffness.rows(), stiffness.rows());
    mass.setIdentity();
    const Cholesky factor(stiffness);
    for (int n : {1, 4, 5, 8, 9, 10, 17, 18, 19, 40, 449})
    {
        const Eigenmodes modes = lowest_modes({stiffness, mass, MatrixXd(mass.rows(), 0), 0.0}, factor, n, silent);
        const Eigen::ArrayXd largest = modes.shapes.cwiseAbs().colwise().maxCoeff();
        EXPECT_TRUE((modes.shapes.colwise().maxCoeff().transpose().array() > (1 - 1e-5) * largest).all()) << n;
        ASSERT_EQ(modes.values.size(), n);
        for (int i = 0; i < n; ++i)
            ASSERT_NEAR(modes.values[i], chain_eigenvalue(i / kCopies + 1, kLength), 1e-11) << i << " of " << n;
        EXPECT_LT((modes.shapes.transpose() * modes.shapes - MatrixXd::Identity(n, n)).norm(), 1e-9);
        EXPECT_NEAR(modes.complete_to, chain_eigenvalue(n / kCopies + 1, kLength),
                    n % kCopies == 0 ? chain_eigenvalue(1, kLength) * n : 1e-11);
    }
}

TEST(Inertia, CountsTheEigenvaluesBelowAShift)
{
    constexpr int kLength = 101;
    const SparseMatrix stiffness = chains(1, kLength);
    SparseMatrix identity(kLength, kLength);
    identity.setIdentity();
    for (int below : {0, 1, 2, 50, 51, 100, 101})
    {
        const double sigma = 0.5 * (chain_eigenvalue(below, kLength) + chain_eigenvalue(below + 1, kLength));
        EXPECT_EQ(count_negative(stiffness - sigma * identity), below);
    }
    // the 51st is just 2; twice the rounding off is still no place to count
    for (double sigma : {2.0, 2.0 + 4e-16, 2.0 - 4e-16})
        EXPECT_EQ(count_negative(stiffness - sigma * identity), std::nullopt) << sigma - 2.0;
}

class Factor : public ::testing::Test
{
protected:
    TemporaryFolder folder;
    Environment temporary{"TMP", folder.folder().c_str()};
    SparseMatrix stiffness = chains(4, 300);
    std::string refusal(const SparseMatrix& matrix, double most_bytes) const
    {
        return complaint([&] { const Cholesky factor(matrix, most_bytes); });
    }
};

TEST_F(Factor, OfABodyThatIsNotHeldIsRefused)
{
    for (double end : {1.0, 1.0 - 1e-9, 0.5, -3.0}) // free ends of a chain, and springs that push
        for (double most : {0.0, 1e9})
        {
            SparseMatrix loose = stiffness;
            loose.coeffRef(300, 300) = loose.coeffRef(599, 599) = end;
            EXPECT_PRED2(contains, refusal(loose, most), "is not positive definite: a part of the body is not held");
            EXPECT_TRUE(folder.files().empty());
        }
    // the last pivot of a free chain of unequal springs is rounding alone, of either sign
    for (int chain = 1; chain <= 20; ++chain)
    {
        SparseMatrix loose = stiffness;
        const auto spring = [chain](int i) { return 2.0 + std::sin(i * chain); };
        for (int i = 300; i < 600; ++i)
        {
            loose.coeffRef(i, i) = (i > 300 ? spring(i) : 0.0) + (i < 599 ? spring(i + 1) : 0.0);
            if (i > 300)
                loose.coeffRef(i - 1, i) = -spring(i);
        }
        EXPECT_NE(refusal(loose, 1e9), "") << chain;
    }
}

TEST_F(Factor, OutOfCoreIsTheSameAndLeavesNothing)
{
    const MatrixXd sides = MatrixXd::Identity(stiffness.rows(), 20);
    const MatrixXd expected = Cholesky(stiffness).solve(sides);
    EXPECT_LT((stiffness.selfadjointView<Eigen::Upper>() * expected - sides).norm(), 1e-10);
    EXPECT_TRUE(folder.files().empty());
    {
        const Cholesky factor(stiffness, 0.0);
        EXPECT_EQ(folder.files().size(), 1u);
        EXPECT_EQ(factor.solve(sides), expected);
        EXPECT_EQ(factor.factor_bytes(), Cholesky(stiffness).factor_bytes());
    }
    EXPECT_TRUE(folder.files().empty());
    const auto interrupted = [this] {
        zel_fem::watch_for_interrupts();
        const Cholesky factor(stiffness, 0.0);
        if (!folder.files().empty())
            kill(getpid(), SIGTERM);
        pause();
    };
    EXPECT_EXIT(interrupted(), ::testing::KilledBySignal(SIGTERM), "");
    EXPECT_TRUE(folder.files().empty());
    const Environment nowhere("TMP", folder.path("none").c_str());
    EXPECT_EQ(refusal(stiffness, 0.0), "") << "it stays in memory where there is no folder";
}

TEST_F(Factor, GoesWhereThereIsRoom)
{
    constexpr double g = 1 << 30;
    const zel_fem::FactorNeeds needs = {10 * g, 2 * g, 8 * g};
    EXPECT_FALSE(goes_to_file(needs, {4 * g, 90 * g}, 10 * g));
    EXPECT_TRUE(goes_to_file(needs, {20 * g, 9 * g}, g));
    EXPECT_FALSE(goes_to_file(needs, {20 * g, 8 * g}, g)) << "estimates are not exact";
    for (const auto& room : {zel_fem::FactorRoom{9 * g, 8 * g}, {1.5 * g, 90 * g}})
        EXPECT_PRED2(contains, complaint([&] { goes_to_file(needs, room, g); }),
                     "takes 10.0 GiB of memory, or 2.0 GiB and 8.8 GiB in");
}
