// Modes of large matrices: all of them, whatever their multiplicity, and what the factor of a matrix leaves behind.
#include "fem/sparse_modes.h"

#include <unistd.h>

#include <cmath>
#include <csignal>
#include <fstream>
#include <numbers>

#include "fem/interrupt.h"
#include "fem/reduction.h"
#include "fixtures.h"

using namespace zel_fem;
using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

static Progress silent;
constexpr double kEdge = 10.0; // of an element

// A block of hexahedra of steel as a model that comes from no program.
struct Block
{
    Model model;
    MatrixXd stiffness, mass;

    Block(int nx, int ny, int nz);
    Interface end(int id, double x) const;
};

static MatrixXd hexahedron_stiffness(const Mesh& mesh, const Element& element)
{
    const double e = 210000, nu = 0.3, lambda = e * nu / (1 + nu) / (1 - 2 * nu), mu = e / 2 / (1 + nu);
    Eigen::Matrix3Xd at(3, 8);
    for (int i = 0; i < 8; ++i)
        at.col(i) = mesh.nodes[size_t(element.nodes[size_t(i)])].at;
    MatrixXd stiffness = MatrixXd::Zero(24, 24), gradient;
    VectorXd value;
    for (int point = 0; point < 8; ++point)
    {
        const Vector3d signs(point & 1 ? 1 : -1, point & 2 ? 1 : -1, point & 4 ? 1 : -1);
        shape_functions(Shape::hex8, signs / std::numbers::sqrt3, value, gradient);
        const Eigen::Matrix3d jacobian = at * gradient;
        const MatrixXd slope = gradient * jacobian.inverse();
        for (int m = 0; m < 8; ++m)
            for (int n = 0; n < 8; ++n)
                stiffness.block<3, 3>(3 * m, 3 * n) +=
                    jacobian.determinant() *
                    (lambda * slope.row(m).transpose() * slope.row(n) + mu * slope.row(n).transpose() * slope.row(m) +
                     mu * slope.row(m).dot(slope.row(n)) * Eigen::Matrix3d::Identity());
    }
    return stiffness;
}

static Mesh block_mesh(int nx, int ny, int nz)
{
    static constexpr ElementType kHexahedron = {"hexahedron", Shape::hex8, 0, 2};
    const auto node = [=](int i, int j, int k) { return (i * (ny + 1) + j) * (nz + 1) + k; };
    Mesh mesh;
    for (int i = 0; i <= nx; ++i)
        for (int j = 0; j <= ny; ++j)
            for (int k = 0; k <= nz; ++k)
                mesh.nodes.push_back({node(i, j, k) + 1, kEdge * Vector3d(i, j, k)});
    for (int i = 0; i < nx; ++i)
        for (int j = 0; j < ny; ++j)
            for (int k = 0; k < nz; ++k)
            {
                Element element{.id = int(mesh.elements.size()) + 1, .type = &kHexahedron, .density = 7.85e-9};
                size_t corner = 0;
                for (int dk = 0; dk < 2; ++dk)
                    for (const auto& [di, dj] : {std::array{0, 0}, {1, 0}, {1, 1}, {0, 1}})
                        element.nodes[corner++] = node(i + di, j + dj, k + dk);
                mesh.elements.push_back(element);
            }
    return mesh;
}

Block::Block(int nx, int ny, int nz)
{
    model.mesh = block_mesh(nx, ny, nz);
    const Index order = 3 * Index(model.mesh.nodes.size());
    stiffness = mass = MatrixXd::Zero(order, order);
    for (const Element& element : model.mesh.elements)
    {
        const MatrixXd k = hexahedron_stiffness(model.mesh, element), m = element_mass(model.mesh, element).consistent;
        for (int a = 0; a < 8; ++a)
            for (int b = 0; b < 8; ++b)
            {
                const Index row = 3 * element.nodes[size_t(a)], column = 3 * element.nodes[size_t(b)];
                stiffness.block<3, 3>(row, column) += k.block<3, 3>(3 * a, 3 * b);
                mass.block<3, 3>(row, column) += m(a, b) * Eigen::Matrix3d::Identity();
            }
    }
    model.matrices.emplace();
    for (int i = 0; i < int(order); ++i)
        model.matrices->rows.push_back({i / 3, i % 3});
    model.matrices->stiffness = MatrixXd(stiffness.triangularView<Eigen::Upper>()).sparseView();
    model.matrices->mass = MatrixXd(mass.triangularView<Eigen::Upper>()).sparseView();
    check_equations(model);
}

Interface Block::end(int id, double x) const
{
    Interface end{id, -1, Vector3d(x, 0, 0), {}};
    for (size_t i = 0; i < model.mesh.nodes.size(); ++i)
        if (std::abs(model.mesh.nodes[i].at[0] - x) < 1e-9)
            end.tied.push_back(int(i));
    return end;
}

// The first values are the expected ones, and none of those below `complete_to` is missing.
static void expect_modes(const VectorXd& values, const VectorXd& expected, double complete_to, const char* what)
{
    const Index count = values.size();
    for (Index i = 0; i < count; ++i)
        ASSERT_NEAR(values[i], expected[i], 1e-8 * expected[i]) << what << ": mode " << i + 1 << " of " << count;
    EXPECT_LE((expected.array() < (1 - 1e-8) * complete_to).count(), count) << what << ", " << count;
    EXPECT_GT(complete_to, (1 - 1e-8) * expected[count - 1]) << what << ", " << count;
}

// Every bending mode of a square section comes twice, every second number cuts a pair.
TEST(Modes, OfASquareBeamAreComplete)
{
    constexpr int kLength = 12, kWidth = 3;
    const Block beam(kLength, kWidth, kWidth);
    const Index order = beam.mass.rows(), face = 3 * (kWidth + 1) * (kWidth + 1), interior = order - 2 * face;
    const VectorXd all = generalized_eigenvalues(beam.stiffness, beam.mass),
                   fixed = generalized_eigenvalues(beam.stiffness.block(face, face, interior, interior),
                                                   beam.mass.block(face, face, interior, interior));
    ASSERT_GT(interior, 300);
    EXPECT_NEAR(all[7], all[6], 1e-9 * all[6]);
    const std::vector<Interface> ends = {beam.end(1001, 0.0), beam.end(1002, kEdge * kLength)};
    for (int n = 1; n <= 30; ++n)
    {
        const Reduction modes = reduce_free(beam.model, n, silent),
                        craig_bampton = reduce_craig_bampton(beam.model, ends, n, silent);
        expect_modes(modes.stiffness.diagonal().tail(n), all.tail(order - 6), modes.complete_to, "free");
        expect_modes(craig_bampton.stiffness.diagonal().tail(n), fixed, craig_bampton.complete_to, "Craig-Bampton");
    }
}

TEST(Modes, OfACubeAreComplete)
{
    const Block cube(5, 5, 5);
    const VectorXd all = generalized_eigenvalues(cube.stiffness, cube.mass);
    for (int n : {1, 2, 3, 4, 7, 8, 9, 12, 15, 20, 25, 30})
    {
        const Reduction modes = reduce_free(cube.model, n, silent);
        expect_modes(modes.stiffness.diagonal().tail(n), all.tail(all.size() - 6), modes.complete_to, "cube");
    }
}

// ---- Chains, of which everything is known ------------------------------------------------------------------------------

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

// ---- The factor --------------------------------------------------------------------------------------------------------

static std::string refusal(const SparseMatrix& stiffness, double most_bytes)
{
    try
    {
        const Cholesky factor(stiffness, most_bytes);
    }
    catch (const std::exception& error)
    {
        return error.what();
    }
    return "";
}

class Factor : public ::testing::Test
{
protected:
    TemporaryFolder folder;
    Environment temporary{"TMP", folder.folder().c_str()};
    SparseMatrix stiffness = chains(4, 300);
};

TEST_F(Factor, OfABodyThatIsNotHeldIsRefused)
{
    for (double end : {1.0, 1.0 - 1e-9, 0.5, -3.0}) // free ends of a chain, and springs that push
        for (double most : {0.0, 1e9})
        {
            SparseMatrix loose = stiffness;
            loose.coeffRef(300, 300) = loose.coeffRef(599, 599) = end;
            EXPECT_EQ(refusal(loose, most),
                      "the stiffness matrix is not positive definite: a part of the body is not held")
                << end;
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
    EXPECT_NE(refusal(stiffness, 0.0).find("cannot put the factor of the stiffness matrix into"), std::string::npos);
}
