// Modes become the eigenvectors of their own generalized stiffness and mass, and everything in modes follows.
#include "fixtures.h"

#include "base/files.h"
#include "database/record.h"
#include "write/eigenproblem.h"
#include "write/writer.h"

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace
{
using Matrix = std::vector<std::vector<double>>; // rows

Matrix matrix(int rows, int columns)
{
    return Matrix(size_t(rows), std::vector<double>(size_t(columns)));
}

// a' b c
Matrix sandwich(const Matrix& a, const Matrix& b, const Matrix& c)
{
    Matrix product = matrix(int(a[0].size()), int(c[0].size()));
    for (size_t i = 0; i < product.size(); ++i)
        for (size_t j = 0; j < product[0].size(); ++j)
            for (size_t p = 0; p < b.size(); ++p)
                for (size_t q = 0; q < b[0].size(); ++q)
                    product[i][j] += a[p][i] * b[p][q] * c[q][j];
    return product;
}

constexpr int kNodes = 9;

// A free chain of masses 1, 2, 3 ... on springs along x, with dampers to ground, described by modes that are an arbitrary
// mixture of all its motions. Stress component xx of a mode is 1000 times its displacement, strain yy 0.5 times.
struct Chain
{
    Matrix mass = matrix(kNodes, kNodes), stiffness = mass, damping = mass, mixture = mass;
    std::vector<double> force = std::vector<double>(kNodes);

    Chain()
    {
        std::mt19937 random(11);
        std::uniform_real_distribution<double> any(-1.0, 1.0);
        for (size_t p = 0; p < kNodes; ++p)
        {
            mass[p][p] = double(p + 1);
            damping[p][p] = any(random) + 2.0;
            force[p] = any(random);
            for (double& entry : mixture[p])
                entry = any(random);
            mixture[p][p] += 2.0;
        }
        for (size_t p = 0; p + 1 < kNodes; ++p)
        {
            const double spring = 1e4 * double(p + 2);
            stiffness[p][p] += spring;
            stiffness[p + 1][p + 1] += spring;
            stiffness[p][p + 1] -= spring;
            stiffness[p + 1][p] -= spring;
        }
    }

    ZELDATA* database() const
    {
        ZELDATA* db = ZEL_Create(kNodes, kNodes);
        const Matrix m = sandwich(mixture, mass, mixture), k = sandwich(mixture, stiffness, mixture);
        const Matrix c = sandwich(mixture, damping, mixture);
        for (int p = 0; p < kNodes; ++p)
        {
            ZEL_SetNodeCoordinates(db, 100 + p, double(p), 0.0, 0.0);
            ZEL_SetNodalMass(db, 100 + p, mass[size_t(p)][size_t(p)]);
        }
        for (int i = 0; i < kNodes; ++i)
        {
            double load = 0.0;
            for (int p = 0; p < kNodes; ++p)
            {
                const double x = mixture[size_t(p)][size_t(i)];
                load += x * force[size_t(p)];
                ZEL_SetMode(db, i + 1, 100 + p, ZEL_MODE_SHAPE, x, 0.0, 0.0, 0.0, 0.0, 0.0);
                ZEL_SetMode(db, i + 1, 100 + p, ZEL_MODAL_STRESS, 1000.0 * x, 0.0, 0.0, 0.0, 0.0, 0.0);
                ZEL_SetMode(db, i + 1, 100 + p, ZEL_MODAL_STRAIN, 0.0, 0.5 * x, 0.0, 0.0, 0.0, 0.0);
            }
            ZEL_SetModalLoad(db, 0, i + 1, load);
            ZEL_SetModalPreload(db, i + 1, 2.0 * load);
            for (int j = 0; j < kNodes; ++j)
            {
                ZEL_SetGeneralizedMass(db, i + 1, j + 1, m[size_t(i)][size_t(j)]);
                ZEL_SetGeneralizedStiffness(db, i + 1, j + 1, k[size_t(i)][size_t(j)]);
                ZEL_SetGeneralizedDamping(db, i + 1, j + 1, c[size_t(i)][size_t(j)]);
            }
        }
        return db;
    }
};

// Component `component` of all nodes in all modes: one column a mode.
Matrix modes_of(ZELDATA* db, int kind, int component)
{
    const int nodes = ZEL_ModeNodeCount(db, kind), modes = ZEL_ModeCount(db);
    Matrix columns = matrix(nodes, modes);
    std::vector<double> vector(size_t(6 * nodes));
    for (int i = 0; i < modes; ++i)
    {
        EXPECT_TRUE(ZEL_Read_Mode_Double(db, ZEL_ModeNumber(db, i), kind, vector.data()));
        for (int p = 0; p < nodes; ++p)
            columns[size_t(p)][size_t(i)] = vector[size_t(6 * p + component)];
    }
    return columns;
}

Matrix full(ZELDATA* db, int (*query)(ZELDATA*, double*, int))
{
    const int n = ZEL_ModeCount(db);
    std::vector<double> entries(size_t(n * n));
    EXPECT_TRUE(query(db, entries.data(), n));
    Matrix rows = matrix(n, n);
    for (int i = 0; i < n * n; ++i)
        rows[size_t(i / n)][size_t(i % n)] = entries[size_t(i)];
    return rows;
}

void expect_near(const Matrix& a, const Matrix& b, double tolerance)
{
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t j = 0; j < a[i].size(); ++j)
            EXPECT_NEAR(a[i][j], b[i][j], tolerance) << i << ", " << j;
}

std::string orthogonalise(ZELDATA* db, int expected = 1)
{
    return output_of([&] { EXPECT_EQ(zel::orthogonalise_modes(db), expected); });
}

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// A database without mode vectors whose matrices are diagonal.
ZELDATA* diagonal_body(const std::vector<double>& stiffness, const std::vector<double>& mass)
{
    ZELDATA* db = ZEL_Create(0, int(stiffness.size()));
    for (int i = 0; i < int(stiffness.size()); ++i)
    {
        ZEL_SetGeneralizedStiffness(db, i + 1, i + 1, stiffness[size_t(i)]);
        ZEL_SetGeneralizedMass(db, i + 1, i + 1, mass[size_t(i)]);
    }
    return db;
}

// A body whose natural modes are one unit mass each, with the given eigenvalues, in a basis of the given columns: so
// K = b' diag(eigenvalues) b and M = b' b, and whatever spans all motions has these eigenvalues.
ZELDATA* body_in_basis(const std::vector<double>& eigenvalues, const Matrix& b)
{
    const int nodes = int(b.size()), modes = int(b[0].size());
    Matrix stiffness = matrix(nodes, nodes), unit = stiffness;
    for (size_t p = 0; p < b.size(); ++p)
    {
        stiffness[p][p] = eigenvalues[p];
        unit[p][p] = 1.0;
    }
    const Matrix k = sandwich(b, stiffness, b), m = sandwich(b, unit, b);
    ZELDATA* db = ZEL_Create(nodes, modes);
    for (int i = 0; i < modes; ++i)
    {
        for (int p = 0; p < nodes; ++p)
            ZEL_SetMode(db, i + 1, p + 1, ZEL_MODE_SHAPE, b[size_t(p)][size_t(i)], 0.0, 0.0, 0.0, 0.0, 0.0);
        for (int j = 0; j < modes; ++j)
        {
            ZEL_SetGeneralizedStiffness(db, i + 1, j + 1, k[size_t(i)][size_t(j)]);
            ZEL_SetGeneralizedMass(db, i + 1, j + 1, m[size_t(i)][size_t(j)]);
        }
    }
    return db;
}

struct RandomBasis
{
    std::mt19937 random;
    std::normal_distribution<double> normal;
    std::vector<double> eigenvalues; // ascending, the first ones zero, the others over four decades
    Matrix basis;

    RandomBasis(unsigned seed, int motions, int rigid, int modes) : random(seed), basis(matrix(motions, modes))
    {
        for (int i = 0; i < motions; ++i)
            eigenvalues.push_back(i < rigid ? 0.0 : 1e3 * std::pow(1e4, double(i) / motions));
        for (auto& row : basis)
            for (double& value : row)
                value = normal(random);
        for (size_t i = 0; i < size_t(std::min(motions, modes)); ++i)
            basis[i][i] += 3.0;
    }
    void scale(size_t mode, double factor)
    {
        for (auto& row : basis)
            row[mode] *= factor;
    }
    // Orthogonalises; the modes that are left must be all motions, orthonormal, with their eigenvalues.
    std::string expect_all_motions(const std::string& what)
    {
        ZELDATA* db = body_in_basis(eigenvalues, basis);
        const std::string warnings = errors_of([&] { orthogonalise(db); });
        EXPECT_EQ(ZEL_ModeCount(db), int(eigenvalues.size())) << what << warnings;
        for (int i = 0; i < std::min(ZEL_ModeCount(db), int(eigenvalues.size())); ++i)
        {
            double value = 0.0;
            ZEL_Eigenvalue(db, ZEL_ModeNumber(db, i), &value, nullptr, nullptr, nullptr, nullptr);
            const double expected = eigenvalues[size_t(i)], scale = expected == 0.0 ? eigenvalues.back() : expected;
            EXPECT_NEAR(value, expected, 1e-7 * scale) << what << ", mode " << i;
        }
        const Matrix shapes = modes_of(db, ZEL_MODE_SHAPE, 0);
        Matrix unit = matrix(int(shapes.size()), int(shapes.size()));
        for (size_t i = 0; i < unit.size(); ++i)
            unit[i][i] = 1.0;
        expect_near(sandwich(shapes, unit, shapes), unit, 1e-8);
        EXPECT_FALSE(contains(warnings, "not orthogonal")) << what << warnings;
        ZEL_UnLink(db);
        return warnings;
    }
};
} // namespace

using Orthogonalisation = ZelTest;

// Attachment modes of unit forces beside constraint modes of unit displacement differ like this.
TEST_F(Orthogonalisation, DoesNotDependOnTheAmplitudesOfTheModes)
{
    for (double factor : {1e-4, 1e-6, 1e-8, 1e-10, 1e9})
        for (unsigned seed = 0; seed < 6; ++seed)
        {
            RandomBasis body(seed, 12, seed % 2 ? 6 : 0, 12);
            for (size_t mode = 1; mode < 12; mode += 2)
                body.scale(mode, factor);
            EXPECT_EQ(body.expect_all_motions("factor " + std::to_string(factor)), "");
        }
}

TEST_F(Orthogonalisation, LeavesOutDependentModesByName)
{
    for (unsigned seed = 0; seed < 24; ++seed)
    {
        const int motions = seed % 3 == 0 ? 7 : seed % 3 == 1 ? 10 : 20, extra = 1 + int(seed % 4);
        RandomBasis body(seed, motions, seed % 2 ? 6 : 0, motions + extra);
        for (int k = 0; k < extra; ++k)
            for (auto& row : body.basis) // copies of modes of another amplitude, or sums of three modes
                row[size_t(motions + k)] =
                    seed < 12 ? 300.0 * row[size_t(k + 1)] : row[0] - row[size_t(k + 1)] + row[6];
        const std::string warnings = body.expect_all_motions("seed " + std::to_string(seed));
        int named = 0;
        for (int mode = 1; mode <= motions + extra; ++mode)
            named += contains(warnings, "Mode " + std::to_string(mode) + " is a linear combination of other modes.");
        EXPECT_EQ(named, extra) << warnings;
        for (int k = 0; seed < 12 && k < extra; ++k) // of a copy and its original the copy is the one to go
            EXPECT_TRUE(contains(warnings, "Mode " + std::to_string(motions + k + 1) + " is a linear ")) << warnings;
    }
}

// Rigid-body modes given beside a full Craig-Bampton basis, which has them too, in front or behind.
TEST_F(Orthogonalisation, KeepsRigidModesThatAreGivenBesideConstraintModes)
{
    for (unsigned seed = 0; seed < 20; ++seed)
    {
        RandomBasis body(seed, 18, 6, 24);
        const size_t first = seed % 2 ? 0 : 18;
        for (size_t p = 6; p < 18; ++p)
            for (size_t mode = first; mode < first + 6; ++mode)
                body.basis[p][mode] = 0.0; // motions without stiffness only
        for (size_t mode = 0; mode < 6; ++mode)
            body.scale((first + 6 + mode) % 24, 1e-6);
        const std::string warnings = body.expect_all_motions("seed " + std::to_string(seed));
        for (size_t mode = first; mode < first + 6; ++mode)
            EXPECT_FALSE(contains(warnings, "Mode " + std::to_string(mode + 1) + " is")) << warnings;
    }
}

TEST_F(Orthogonalisation, WarnsOfModesThatAreNotOrthogonal)
{
    zel::Eigenproblem problem(3, 3);
    for (int i = 0; i < 3; ++i)
    {
        problem.values[i] = problem.stiffness[4 * i] = 100.0 * (i + 1);
        problem.mass[4 * i] = problem.vectors[4 * i] = 1.0;
    }
    const auto warnings = [&] { return errors_of([&] { EXPECT_EQ(zel::check_eigenvectors(problem, 3), 1); }); };
    EXPECT_EQ(warnings(), "");
    for (double* entry : {&problem.stiffness[4], &problem.mass[7], &problem.values[1], &problem.vectors[3]})
    {
        const double before = *entry;
        *entry += 2e-6 * (entry == &problem.mass[7] || entry == &problem.vectors[3] ? 1.0 : 200.0);
        EXPECT_TRUE(contains(warnings(), "Mode 2 is not orthogonal"));
        *entry = before;
    }
}

TEST_F(Orthogonalisation, OfAMixedChainGivesItsNaturalModes)
{
    const Chain chain;
    ZELDATA* db = chain.database();
    const Matrix old = modes_of(db, ZEL_MODE_SHAPE, 0);
    const std::string report = orthogonalise(db);
    EXPECT_TRUE(contains(report, "\nSolving Generalized Eigenvalue Problem to orthogonalize mode shapes.\n"));
    EXPECT_TRUE(contains(report, "(probable rigid body mode)")) << report;

    const Matrix shapes = modes_of(db, ZEL_MODE_SHAPE, 0);
    Matrix unit = matrix(kNodes, kNodes), natural = unit;
    for (int i = 0; i < kNodes; ++i)
    {
        unit[size_t(i)][size_t(i)] = 1.0;
        double eigenvalue, hertz, gen_mass, gen_stiffness;
        ASSERT_TRUE(ZEL_Eigenvalue(db, i + 1, &eigenvalue, &hertz, nullptr, &gen_mass, &gen_stiffness));
        EXPECT_TRUE(gen_mass == 1.0 && gen_stiffness == eigenvalue);
        EXPECT_NEAR(std::fabs(hertz), std::sqrt(std::fabs(eigenvalue)) / (2.0 * M_PI), 1e-12 * std::fabs(hertz));
        natural[size_t(i)][size_t(i)] = eigenvalue;
    }
    // Mass-orthonormal vectors that make the stiffness diagonal are the eigenvectors, and the diagonal the eigenvalues.
    expect_near(sandwich(shapes, chain.mass, shapes), unit, 1e-11);
    expect_near(sandwich(shapes, chain.stiffness, shapes), natural, 1e-9 * natural[kNodes - 1][kNodes - 1]);
    for (int i = 1; i < kNodes; ++i)
        EXPECT_LT(natural[size_t(i) - 1][size_t(i) - 1], natural[size_t(i)][size_t(i)]);
    EXPECT_NEAR(natural[0][0], 0.0, 1e-6);
    for (size_t p = 1; p < kNodes; ++p) // the rigid motion, of generalized mass 1
        EXPECT_NEAR(shapes[p][0], shapes[0][0], 1e-10);
    EXPECT_NEAR(std::fabs(shapes[0][0]), 1.0 / std::sqrt(45.0), 1e-11);

    // All else follows the modes: damping, virtual work of the loads, stress and strain, the matrices themselves.
    expect_near(full(db, ZEL_GenDampFull), sandwich(shapes, chain.damping, shapes), 1e-9);
    expect_near(full(db, ZEL_GenMassFull), unit, 0.0);
    expect_near(full(db, ZEL_GenStiffFull), natural, 0.0);
    const Matrix stress = modes_of(db, ZEL_MODAL_STRESS, 0), strain = modes_of(db, ZEL_MODAL_STRAIN, 1);
    int count = 0;
    double* load = ZEL_GetModalLoad(db, 0, &count);
    double* preload = ZEL_GetModalPreload(db, &count);
    std::vector<double> transformation(kNodes * kNodes);
    ASSERT_TRUE(ZEL_Transformation(db, transformation.data()));
    for (size_t i = 0; i < kNodes; ++i)
    {
        double work = 0.0;
        for (size_t p = 0; p < kNodes; ++p)
        {
            work += shapes[p][i] * chain.force[p];
            EXPECT_NEAR(stress[p][i], 1000.0 * shapes[p][i], 1e-9);
            EXPECT_NEAR(strain[p][i], 0.5 * shapes[p][i], 1e-12);
            double combined = 0.0;
            for (size_t k = 0; k < kNodes; ++k)
                combined += transformation[i * kNodes + k] * old[p][k];
            EXPECT_NEAR(combined, shapes[p][i], 1e-11);
        }
        EXPECT_NEAR(load[i], work, 1e-11);
        EXPECT_NEAR(preload[i], 2.0 * work, 1e-11);
    }
    std::free(load);
    std::free(preload);

    // Once more changes nothing, and the transformation still speaks of the caller's modes.
    orthogonalise(db);
    expect_near(modes_of(db, ZEL_MODE_SHAPE, 0), shapes, 1e-11);
    std::vector<double> again(kNodes * kNodes);
    ASSERT_TRUE(ZEL_Transformation(db, again.data()));
    for (size_t i = 0; i < again.size(); ++i)
        EXPECT_NEAR(again[i], transformation[i], 1e-11);
    EXPECT_TRUE(db->non_diagonal == 0 && db->non_unit_mass == 0 && db->cached_mode[0] == -1);
}

// More nodes than the writers of blocks and the change of basis take at once.
TEST_F(Orthogonalisation, OfABodyOfManyNodesReachesEveryNodeAndItsFile)
{
    constexpr int kMany = 5000, kModes = 36;
    zel::refuse_mapping = true; // old and new vectors of a block of nodes then take memory
    const auto value = [](int mode, int node, int component) { return std::sin(0.37 * node + 2.0 * mode) + component; };
    ZELDATA* db = ZEL_Create(kMany, kModes);
    output_of([&] {
        for (int node = 1; node <= kMany; ++node)
        {
            ZEL_SetNodeCoordinates(db, node, node, 0.5 * node, -node);
            ZEL_SetNodalMass(db, node, 1.0 + node);
            for (int mode = 0; mode < kModes; ++mode)
                for (int kind : {ZEL_MODE_SHAPE, ZEL_MODAL_STRESS})
                    ZEL_SetMode(db, mode + 1, node, kind, value(mode, node, 0), value(mode, node, 1),
                                value(mode, node, 2), value(mode, node, 3), value(mode, node, 4), kind);
        }
    });
    for (int i = 1; i <= kModes; ++i)
        for (int j = 1; j <= kModes; ++j)
        {
            ZEL_SetGeneralizedMass(db, i, j, i == j ? 2.0 : 0.5);
            ZEL_SetGeneralizedStiffness(db, i, j, i == j ? 100.0 * i : 7.0);
        }
    const TemporaryFolder folder;
    output_of([&] { ASSERT_EQ(ZEL_write_ZEL(db, folder.path("many.zel").c_str()), 1); });
    zel::refuse_mapping = false;
    ZELDATA* read = ZEL_CreateFromZEL(folder.path("many.zel").c_str());
    ASSERT_TRUE(read);
    double t[kModes * kModes];
    ASSERT_TRUE(ZEL_Transformation(read, t));
    for (int kind : {ZEL_MODE_SHAPE, ZEL_MODAL_STRESS})
        for (int component : {0, 4})
        {
            const Matrix vectors = modes_of(read, kind, component);
            for (int node = 1; node <= kMany; ++node)
                for (int mode = 0; mode < kModes; ++mode)
                {
                    double expected = 0.0;
                    for (int old = 0; old < kModes; ++old)
                        expected += t[kModes * mode + old] * value(old, node, component);
                    ASSERT_NEAR(vectors[size_t(node) - 1][size_t(mode)], expected, 1e-12) << node;
                }
        }
    for (int node = 0; node < kMany; ++node)
        ASSERT_TRUE(read->nodes[node].y == 0.5 * (node + 1) && read->nodes[node].mass == node + 2.0) << node;
}

TEST_F(Orthogonalisation, FollowsUnitsSetBeforeAndInvariantsOfTheBody)
{
    const Chain chain;
    ZELDATA* db = chain.database();
    double* before = ZEL_Invar3(db); // filled slots are transformed, or made anew from the nodes: the same sums
    std::free(before);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "s", "N") && ZEL_SetUnits(db, "tonne", "mm", "s", "N"));
    orthogonalise(db);
    const Matrix shapes = modes_of(db, ZEL_MODE_SHAPE, 0);
    double* moments = ZEL_Invar3(db);
    for (int i = 0; i < kNodes; ++i)
    {
        double expected = 0.0;
        for (int p = 0; p < kNodes; ++p)
            expected += 1e-3 * double(p + 1) * shapes[size_t(p)][size_t(i)];
        EXPECT_NEAR(moments[i], expected, 1e-12);
    }
    std::free(moments);
    EXPECT_EQ(db->mode_factor[ZEL_MODE_SHAPE], 1.0);
    expect_near(sandwich(shapes, chain.mass, shapes), full(db, ZEL_GenMassFull), 1e3); // 1e-3 tonne a kilogram
    EXPECT_NEAR(sandwich(shapes, chain.mass, shapes)[3][3], 1e3, 1e-6);
}

TEST_F(Orthogonalisation, LeavesProjectedLoadsAndDampingInTheirRigidDirections)
{
    std::vector<double> stiffness = {0, 0, 0, 0, 0, 0, 900.0, 400.0}, mass(8, 1.0);
    ZELDATA* db = diagonal_body(stiffness, mass);
    for (int i = 1; i <= 8; ++i)
    {
        ZEL_SetModalLoad(db, 0, i, double(i));
        ZEL_SetGeneralizedDamping(db, i, i, 10.0 * double(i));
    }
    db->load_cases[0].processed = 1;
    db->damping_projected = 1;
    orthogonalise(db);
    int count = 0;
    double* load = ZEL_GetModalLoad(db, 0, &count);
    const std::vector<double> expected = {1, 2, 3, 4, 5, 6, 8, 7}; // only the flexible modes change places
    for (size_t i = 0; i < 8; ++i)
    {
        EXPECT_EQ(std::fabs(load[i]), expected[i]);
        EXPECT_EQ(full(db, ZEL_GenDampFull)[i][i], 10.0 * expected[i]);
    }
    std::free(load);
}

TEST_F(Orthogonalisation, TellsRigidModesByBothBounds)
{
    const std::string rigid = "(probable rigid body mode)";
    const std::string few = orthogonalise(diagonal_body({1.0, -1.0, -1.5, 1.5}, {1, 1, 1, 1}));
    EXPECT_TRUE(contains(few, "   1 : -1.50000000000000e+00  Sqrt undefined.  Possible problem with input data.\n"));
    EXPECT_TRUE(contains(few, "   2 : -1.00000000000000e+00  Sqrt undefined.     (probable rigid body mode)\n"));
    EXPECT_TRUE(contains(few, "   3 : 1.00000000000000e+00  1.59154943091885e-01 (probable rigid body mode)\n"));
    EXPECT_TRUE(contains(few, "   4 : 1.50000000000000e+00  1.94924200308406e-01\n"));
    const std::vector<double> unit(7, 1.0);
    EXPECT_TRUE(contains(orthogonalise(diagonal_body({0.5, 400, 400, 400, 400, 400, 500}, unit)), rigid));
    EXPECT_FALSE(contains(orthogonalise(diagonal_body({0.5, 400, 400, 400, 400, 400, 499}, unit)), rigid));
}

// At first equal ones are reversed; from then on they stay, so that a copy of a body has its modes where the body has them.
TEST_F(Orthogonalisation, ReversesEqualEigenvaluesOnceAndKeepsTheirOrderAfterwards)
{
    ZELDATA* db = diagonal_body({5.0, 0.0, 0.0, 5.0}, {1, 1, 1, 1});
    for (int write = 0; write < 3; ++write)
    {
        orthogonalise(db);
        double t[16];
        ASSERT_TRUE(ZEL_Transformation(db, t));
        const int expected[] = {2, 1, 3, 0};
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(std::fabs(t[4 * i + expected[i]]), 1.0) << i;
    }
}

TEST_F(Orthogonalisation, DropsInfiniteModesAndWarnsOfComplexOnes)
{
    ZELDATA* db = diagonal_body({3.0, 8.0, 1.0}, {1.0, 0.0, 1.0});
    ZEL_SetModalLoad(db, 0, 3, 7.0);
    std::string report;
    const std::string warnings = errors_of([&] { report = orthogonalise(db); });
    EXPECT_EQ(warnings, "WARNING:  Mode 2 is not physically meaningful\n"
                        "WARNING:  It contains an infinite eigenvalue.  Ignoring this mode.\nWARNING:  \n");
    EXPECT_TRUE(contains(report, "   3 : Infinity.  Possible mass singularity.  Ignored.\n"));
    EXPECT_EQ(ZEL_ModeCount(db), 2);
    double t[4];
    ASSERT_TRUE(ZEL_Transformation(db, t));
    EXPECT_EQ(std::vector<double>(t, t + 4), (std::vector<double>{1, 0, 0, 1}));

    // A massless combination in a mixed basis is infinite too, even where rounding leaves it merely huge.
    std::mt19937 random(3);
    std::uniform_real_distribution<double> any(-1.0, 1.0);
    for (int trial = 0; trial < 50; ++trial)
    {
        const int n = 2 + trial % 5;
        Matrix k = matrix(n, n), m = k, mix = k;
        for (size_t i = 0; i < size_t(n); ++i)
        {
            k[i][i] = double(i + 1);
            m[i][i] = i == 0 ? 0.0 : 1.0;
            for (double& entry : mix[i])
                entry = 0.3 * any(random);
            mix[i][i] += 1.0;
        }
        ZELDATA* mixed = ZEL_Create(0, n);
        const Matrix gen_k = sandwich(mix, k, mix), gen_m = sandwich(mix, m, mix);
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
            {
                ZEL_SetGeneralizedStiffness(mixed, i, j, gen_k[size_t(i)][size_t(j)]);
                ZEL_SetGeneralizedMass(mixed, i, j, gen_m[size_t(i)][size_t(j)]);
            }
        errors_of([&] { orthogonalise(mixed); });
        EXPECT_EQ(ZEL_ModeCount(mixed), n - 1) << "trial " << trial;
    }

    ZELDATA* turning = ZEL_Create(0, 2); // eigenvalues +i and -i
    ZEL_SetGeneralizedStiffness(turning, 1, 2, 1.0);
    ZEL_SetGeneralizedStiffness(turning, 2, 1, -1.0);
    const std::string complex = errors_of([&] { orthogonalise(turning); });
    EXPECT_EQ(complex.find("nonzero imaginary part, 1.000000\n"), complex.find("nonzero"));
    EXPECT_TRUE(contains(complex, "nonzero imaginary part, -1.000000\n"));
}

TEST_F(Orthogonalisation, ThatFailsKeepsTheModes)
{
    const Chain chain;
    const TemporaryFolder folder;
    const Environment tmp("TMP", folder.folder().c_str());
    ZELDATA* db = chain.database();
    const Matrix shapes = modes_of(db, ZEL_MODE_SHAPE, 0), damping = full(db, ZEL_GenDampFull);
    const Matrix stiffness = full(db, ZEL_GenStiffFull);
    const size_t files = folder.open_files();
    const auto expect_untouched = [&] {
        expect_near(modes_of(db, ZEL_MODE_SHAPE, 0), shapes, 0.0);
        expect_near(full(db, ZEL_GenDampFull), damping, 0.0);
        expect_near(full(db, ZEL_GenStiffFull), stiffness, 0.0);
        EXPECT_EQ(folder.open_files(), files);
    };
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small = {1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = zel::orthogonalise_modes(db);
    setrlimit(RLIMIT_FSIZE, &before);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(contains(testing::internal::GetCapturedStderr(), "Insufficient disk space for file "));
    EXPECT_EQ(result, 0);
    expect_untouched();

    // Every allocation in turn. The solver does without its own, more slowly.
    int64_t left = -1;
    int failures = 0;
    for (int allocation = 0; left < 0; ++allocation)
    {
        ZEL_UnLink(db);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        db = chain.database();
        zel::failing_allocation = allocation;
        const int done = zel::orthogonalise_modes(db);
        left = std::exchange(zel::failing_allocation, -1);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), done == 1) << "allocation " << allocation;
        if (done)
            continue;
        ++failures;
        expect_untouched();
    }
    EXPECT_GT(failures, 25);
}

TEST_F(Orthogonalisation, ChecksEigenvalueRecords)
{
    ZELDATA* diagonal = diagonal_body({4.0, 9.0}, {1.0, 0.0});
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(zel::check_eigenvalues(diagonal), 0); }),
              "ERROR:  Mode 2 is not physically meaningful.\n"
              "ERROR:  It is associated with a zero generalized mass\nERROR:  \n");
    EXPECT_EQ(diagonal->eigenvalue_count, 2);
    ZELDATA* coupled = diagonal_body({4.0, 9.0}, {1.0, 1.0});
    ZEL_SetGeneralizedStiffness(coupled, 1, 2, 0.0);
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(zel::check_eigenvalues(coupled), 0); }),
              "ERROR:  Attempting to look at eigenvalues of non-orthogonal data\n");
}
