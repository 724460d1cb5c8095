// Modes become the eigenvectors of their own generalized stiffness and mass, and everything in modes follows.
#include "dense.h"
#include "fixtures.h"

#include "database/record.h"
#include "write/eigenproblem.h"
#include "write/writer.h"

namespace
{
// The entries on the diagonals, and those beside them that are not zero.
void set_matrices(ZELDATA* db, const MatrixXd& stiffness, const MatrixXd& mass)
{
    for (int i = 0; i < stiffness.rows(); ++i)
        for (int j = 0; j < stiffness.cols(); ++j)
        {
            if (i == j || stiffness(i, j) != 0.0)
                ZEL_SetGeneralizedStiffness(db, i + 1, j + 1, stiffness(i, j));
            if (i == j || mass(i, j) != 0.0)
                ZEL_SetGeneralizedMass(db, i + 1, j + 1, mass(i, j));
        }
}

// A body of as many nodes as freedoms, which move along x, in a basis of modes: a column of `basis` each.
ZELDATA* body_in_basis(const MatrixXd& stiffness, const MatrixXd& mass, const MatrixXd& basis)
{
    ZELDATA* db = ZEL_Create(int(basis.rows()), int(basis.cols()));
    for (int i = 0; i < basis.cols(); ++i)
        for (int p = 0; p < basis.rows(); ++p)
            ZEL_SetMode(db, i + 1, p + 1, ZEL_MODE_SHAPE, basis(p, i), 0.0, 0.0, 0.0, 0.0, 0.0);
    set_matrices(db, basis.transpose() * stiffness * basis, basis.transpose() * mass * basis);
    return db;
}

// A database without mode vectors whose matrices are diagonal.
ZELDATA* diagonal_body(const std::vector<double>& stiffness, const std::vector<double>& mass)
{
    const int modes = int(mass.size());
    ZELDATA* db = ZEL_Create(0, modes);
    set_matrices(db, VectorXd::Map(stiffness.data(), modes).asDiagonal(),
                 VectorXd::Map(mass.data(), modes).asDiagonal());
    return db;
}

constexpr int kNodes = 9;

// A free chain of masses 1, 2, 3 ... on springs along x, with dampers to ground, described by modes that are an arbitrary
// mixture of all its motions. Stress component xx of a mode is 1000 times its displacement, strain yy 0.5 times.
struct Chain
{
    MatrixXd mass = VectorXd::LinSpaced(kNodes, 1, kNodes).asDiagonal(), stiffness = MatrixXd::Zero(kNodes, kNodes);
    MatrixXd damping = random_matrix(kNodes, 1, 11).cwiseAbs().asDiagonal();
    MatrixXd mixture = 2.0 * MatrixXd::Identity(kNodes, kNodes) + 0.6 * random_matrix(kNodes, kNodes, 12);
    VectorXd force = random_matrix(kNodes, 1, 13);

    Chain()
    {
        for (int p = 0; p + 1 < kNodes; ++p)
            stiffness.block(p, p, 2, 2) += 1e4 * (p + 2) * (MatrixXd(2, 2) << 1, -1, -1, 1).finished();
    }

    ZELDATA* database() const
    {
        ZELDATA* db = body_in_basis(stiffness, mass, mixture);
        const MatrixXd c = mixture.transpose() * damping * mixture;
        const VectorXd load = mixture.transpose() * force;
        for (int i = 0; i < kNodes; ++i)
        {
            ZEL_SetNodeCoordinates(db, i + 1, i, 0.0, 0.0);
            ZEL_SetNodalMass(db, i + 1, mass(i, i));
            for (int p = 0; p < kNodes; ++p)
            {
                const double x = mixture(p, i);
                ZEL_SetMode(db, i + 1, p + 1, ZEL_MODAL_STRESS, 1000.0 * x, 0.0, 0.0, 0.0, 0.0, 0.0);
                ZEL_SetMode(db, i + 1, p + 1, ZEL_MODAL_STRAIN, 0.0, 0.5 * x, 0.0, 0.0, 0.0, 0.0);
                ZEL_SetGeneralizedDamping(db, i + 1, p + 1, c(i, p));
            }
            ZEL_SetModalLoad(db, 0, i + 1, load(i));
            ZEL_SetModalPreload(db, i + 1, 2.0 * load(i));
        }
        return db;
    }
};

// Component `component` of all nodes in all modes: one column a mode.
MatrixXd modes_of(ZELDATA* db, int kind, int component)
{
    const int nodes = ZEL_ModeNodeCount(db, kind), modes = ZEL_ModeCount(db);
    MatrixXd vectors(6 * nodes, modes);
    EXPECT_TRUE(ZEL_ModesOfNodes(db, kind, nodes, nullptr, modes, nullptr, vectors.data()));
    return vectors(Eigen::seqN(component, nodes, 6), Eigen::all);
}

MatrixXd full(ZELDATA* db, int (*query)(ZELDATA*, double*, int))
{
    MatrixXd rows(ZEL_ModeCount(db), ZEL_ModeCount(db));
    EXPECT_TRUE(query(db, rows.data(), ZEL_ModeCount(db)));
    return rows.transpose();
}

// The new modes in terms of the old ones: one column a new mode.
MatrixXd transformation_of(ZELDATA* db)
{
    MatrixXd columns(ZEL_ModeCount(db), ZEL_ModeCount(db));
    EXPECT_TRUE(ZEL_Transformation(db, columns.data()));
    return columns;
}

VectorXd eigenvalues_of(ZELDATA* db)
{
    VectorXd values(ZEL_ModeCount(db));
    for (int i = 0; i < values.size(); ++i)
        EXPECT_TRUE(ZEL_Eigenvalue(db, ZEL_ModeNumber(db, i), &values[i], nullptr, nullptr, nullptr, nullptr));
    return values;
}

std::string orthogonalise(ZELDATA* db)
{
    return output_of([&] { EXPECT_EQ(zel::orthogonalise_modes(db), 1); });
}

// Natural modes of unit mass with eigenvalues over four decades, the first ones zero, and a basis of modes beside them.
// What spans all motions has these eigenvalues.
struct RandomBasis
{
    VectorXd eigenvalues;
    MatrixXd basis;

    RandomBasis(unsigned seed, int motions, int rigid, int modes)
        : eigenvalues(motions), basis(random_matrix(modes, motions, seed).transpose())
    {
        for (int i = 0; i < motions; ++i)
            eigenvalues[i] = i < rigid ? 0.0 : 1e3 * std::pow(1e4, double(i) / motions);
        basis.diagonal().array() += 3.0;
    }
    // Orthogonalises; the modes that are left must be all motions, orthonormal, with their eigenvalues.
    std::string expect_all_motions()
    {
        const int motions = int(eigenvalues.size());
        const MatrixXd unit = MatrixXd::Identity(motions, motions);
        ZELDATA* db = body_in_basis(eigenvalues.asDiagonal(), unit, basis);
        const std::string warnings = errors_of([&] { orthogonalise(db); });
        const VectorXd values = eigenvalues_of(db);
        EXPECT_EQ(values.size(), motions) << warnings;
        for (int i = 0; i < std::min(int(values.size()), motions); ++i)
            EXPECT_NEAR(values[i], eigenvalues[i], 1e-7 * eigenvalues[eigenvalues[i] == 0.0 ? motions - 1 : i]) << i;
        const MatrixXd shapes = modes_of(db, ZEL_MODE_SHAPE, 0);
        EXPECT_LE(distance(shapes.transpose() * shapes, unit), 1e-8);
        EXPECT_FALSE(contains(warnings, "not orthogonal")) << warnings;
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
            SCOPED_TRACE(factor);
            RandomBasis body(seed, 12, seed % 2 ? 6 : 0, 12);
            for (int mode = 1; mode < 12; mode += 2)
                body.basis.col(mode) *= factor;
            EXPECT_EQ(body.expect_all_motions(), "");
        }
}

TEST_F(Orthogonalisation, LeavesOutDependentModesByName)
{
    for (unsigned seed = 0; seed < 24; ++seed)
    {
        SCOPED_TRACE(seed);
        const int motions = seed % 3 == 0 ? 7 : seed % 3 == 1 ? 10 : 20, extra = 1 + int(seed % 4);
        RandomBasis body(seed, motions, seed % 2 ? 6 : 0, motions + extra);
        MatrixXd& b = body.basis;
        for (int k = 0; k < extra; ++k) // copies of modes of another amplitude, or sums of three modes
            b.col(motions + k) =
                seed < 12 ? VectorXd(300.0 * b.col(k + 1)) : VectorXd(b.col(0) - b.col(k + 1) + b.col(6));
        const std::string warnings = body.expect_all_motions();
        int named = 0;
        for (int mode = 1; mode <= motions + extra; ++mode)
        {
            const bool is_named =
                contains(warnings, "Mode " + std::to_string(mode) + " is a linear combination of other modes.");
            named += is_named;
            EXPECT_TRUE(is_named || seed >= 12 || mode <= motions) << mode << " is the copy of another\n" << warnings;
        }
        EXPECT_EQ(named, extra) << warnings;
    }
}

// Rigid-body modes given beside a full Craig-Bampton basis, which has them too, in front or behind.
TEST_F(Orthogonalisation, KeepsRigidModesThatAreGivenBesideConstraintModes)
{
    for (unsigned seed = 0; seed < 20; ++seed)
    {
        SCOPED_TRACE(seed);
        RandomBasis body(seed, 18, 6, 24);
        const int first = seed % 2 ? 0 : 18;
        body.basis.block(6, first, 12, 6).setZero(); // motions without stiffness only
        for (int mode = 0; mode < 6; ++mode)
            body.basis.col((first + 6 + mode) % 24) *= 1e-6;
        const std::string warnings = body.expect_all_motions();
        for (int mode = first; mode < first + 6; ++mode)
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
    const MatrixXd old = modes_of(db, ZEL_MODE_SHAPE, 0);
    const std::string report = orthogonalise(db);
    EXPECT_PRED2(contains, report, "\nSolving Generalized Eigenvalue Problem to orthogonalize mode shapes.\n");
    EXPECT_PRED2(contains, report, "(probable rigid body mode)");

    const MatrixXd shapes = modes_of(db, ZEL_MODE_SHAPE, 0), unit = MatrixXd::Identity(kNodes, kNodes);
    const VectorXd natural = eigenvalues_of(db);
    EXPECT_TRUE(std::is_sorted(natural.begin(), natural.end()));
    for (int i = 0; i < kNodes; ++i)
    {
        double hertz, gen_mass, gen_stiffness;
        ASSERT_TRUE(ZEL_Eigenvalue(db, i + 1, nullptr, &hertz, nullptr, &gen_mass, &gen_stiffness));
        EXPECT_TRUE(gen_mass == 1.0 && gen_stiffness == natural[i]);
        EXPECT_NEAR(std::fabs(hertz), std::sqrt(std::fabs(natural[i])) / (2.0 * M_PI), 1e-12 * std::fabs(hertz));
    }
    // Mass-orthonormal vectors that make the stiffness diagonal are the eigenvectors, and the diagonal the eigenvalues.
    const MatrixXd diagonal = natural.asDiagonal();
    EXPECT_LE(distance(shapes.transpose() * chain.mass * shapes, unit), 1e-11);
    EXPECT_LE(distance(shapes.transpose() * chain.stiffness * shapes, diagonal), 1e-9 * natural[kNodes - 1]);
    EXPECT_NEAR(natural[0], 0.0, 1e-6); // the rigid motion, of generalized mass 1
    EXPECT_LE(distance(shapes.col(0).cwiseAbs(), VectorXd::Constant(kNodes, 1.0 / std::sqrt(45.0))), 1e-10);
    EXPECT_NEAR(std::fabs(shapes.col(0).sum()), kNodes / std::sqrt(45.0), 1e-10);

    // All else follows the modes: damping, virtual work of the loads, stress and strain, the matrices themselves.
    EXPECT_LE(distance(full(db, ZEL_GenDampFull), shapes.transpose() * chain.damping * shapes), 1e-9);
    EXPECT_EQ(distance(full(db, ZEL_GenMassFull), unit), 0.0);
    EXPECT_EQ(distance(full(db, ZEL_GenStiffFull), diagonal), 0.0);
    EXPECT_LE(distance(modes_of(db, ZEL_MODAL_STRESS, 0), 1000.0 * shapes), 1e-9);
    EXPECT_LE(distance(modes_of(db, ZEL_MODAL_STRAIN, 1), 0.5 * shapes), 1e-12);
    const MatrixXd transformation = transformation_of(db);
    EXPECT_LE(distance(old * transformation, shapes), 1e-11);
    const VectorXd work = shapes.transpose() * chain.force;
    EXPECT_LE(distance(VectorXd::Map(db->load_cases[0].values, kNodes), work), 1e-11);
    EXPECT_LE(distance(VectorXd::Map(db->modal_preload, kNodes), 2.0 * work), 1e-11);

    // Once more changes nothing, and the transformation still speaks of the caller's modes.
    orthogonalise(db);
    EXPECT_LE(distance(modes_of(db, ZEL_MODE_SHAPE, 0), shapes), 1e-11);
    EXPECT_LE(distance(transformation_of(db), transformation), 1e-11);
    EXPECT_TRUE(db->non_diagonal == 0 && db->non_unit_mass == 0 && db->cached_mode[0] == -1);
}

// More nodes than the writers of blocks and the change of basis take at once.
TEST_F(Orthogonalisation, OfABodyOfManyNodesReachesEveryNodeAndItsFile)
{
    constexpr int kMany = 5000, kModes = 36;
    zel::refuse_mapping = true; // old and new vectors of a block of nodes then take memory
    const MatrixXd old = random_matrix(6 * kMany, kModes, 5);
    ZELDATA* db = ZEL_Create(kMany, kModes);
    quietly([&] {
        for (int node = 0; node < kMany; ++node)
        {
            ZEL_SetNodeCoordinates(db, node + 1, node, 0.5 * node, -node);
            ZEL_SetNodalMass(db, node + 1, 1.0 + node);
        }
        for (int mode = 0; mode < kModes; ++mode)
            for (int kind : {ZEL_MODE_SHAPE, ZEL_MODAL_STRESS})
                ZEL_SetModeArray(db, mode + 1, kind, kMany, nullptr, &old(0, mode), 6);
    });
    MatrixXd mass = MatrixXd::Constant(kModes, kModes, 0.5), stiffness = MatrixXd::Constant(kModes, kModes, 7.0);
    mass.diagonal().setConstant(2.0);
    stiffness.diagonal() = VectorXd::LinSpaced(kModes, 100.0, 100.0 * kModes);
    set_matrices(db, stiffness, mass);
    const TemporaryFolder folder;
    output_of([&] { ASSERT_EQ(ZEL_write_ZEL(db, folder.path("many.zel").c_str()), 1); });
    zel::refuse_mapping = false;
    ZELDATA* read = ZEL_CreateFromZEL(folder.path("many.zel").c_str());
    ASSERT_TRUE(read);
    const MatrixXd expected = old * transformation_of(read);
    for (int kind : {ZEL_MODE_SHAPE, ZEL_MODAL_STRESS})
        for (int component : {0, 4})
            EXPECT_LE(distance(modes_of(read, kind, component), expected(Eigen::seqN(component, kMany, 6), Eigen::all)),
                      1e-12);
    for (int node = 0; node < kMany; ++node)
        ASSERT_TRUE(read->nodes[node].y == 0.5 * node && read->nodes[node].mass == node + 1.0) << node;
}

TEST_F(Orthogonalisation, FollowsUnitsSetBeforeAndInvariantsOfTheBody)
{
    const Chain chain;
    ZELDATA* db = chain.database();
    std::free(ZEL_Invar3(db)); // filled slots are transformed, or made anew from the nodes: the same sums
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "s", "N") && ZEL_SetUnits(db, "tonne", "mm", "s", "N"));
    orthogonalise(db);
    const MatrixXd shapes = modes_of(db, ZEL_MODE_SHAPE, 0);
    const std::vector<double> moments = taken(ZEL_Invar3(db), kNodes);
    EXPECT_LE(distance(VectorXd::Map(moments.data(), kNodes), 1e-3 * shapes.transpose() * chain.mass.diagonal()),
              1e-12);
    EXPECT_EQ(db->mode_factor[ZEL_MODE_SHAPE], 1.0);
    const MatrixXd unit = MatrixXd::Identity(kNodes, kNodes); // 1e-3 tonne a kilogram
    EXPECT_LE(distance(1e-3 * shapes.transpose() * chain.mass * shapes, unit), 1e-9);
    EXPECT_EQ(distance(full(db, ZEL_GenMassFull), unit), 0.0);
}

TEST_F(Orthogonalisation, LeavesProjectedLoadsAndDampingInTheirRigidDirections)
{
    ZELDATA* db = diagonal_body({0, 0, 0, 0, 0, 0, 900.0, 400.0}, std::vector<double>(8, 1.0));
    for (int i = 1; i <= 8; ++i)
    {
        ZEL_SetModalLoad(db, 0, i, i);
        ZEL_SetGeneralizedDamping(db, i, i, 10.0 * i);
    }
    db->load_cases[0].processed = 1;
    db->damping_projected = 1;
    orthogonalise(db);
    VectorXd expected = VectorXd::LinSpaced(8, 1, 8);
    std::swap(expected[6], expected[7]); // only the flexible modes change places
    EXPECT_EQ(distance(VectorXd::Map(db->load_cases[0].values, 8).cwiseAbs(), expected), 0.0);
    EXPECT_EQ(distance(full(db, ZEL_GenDampFull).diagonal(), 10.0 * expected), 0.0);
}

TEST_F(Orthogonalisation, TellsRigidModesByBothBounds)
{
    EXPECT_PRED2(contains, orthogonalise(diagonal_body({1.0, -1.0, -1.5, 1.5}, {1, 1, 1, 1})),
                 "   1 : -1.50000000000000e+00  Sqrt undefined.  Possible problem with input data.\n"
                 "   2 : -1.00000000000000e+00  Sqrt undefined.     (probable rigid body mode)\n"
                 "   3 : 1.00000000000000e+00  1.59154943091885e-01 (probable rigid body mode)\n"
                 "   4 : 1.50000000000000e+00  1.94924200308406e-01\n");
    const std::vector<double> unit(7, 1.0);
    for (double last : {500, 499})
        EXPECT_EQ(contains(orthogonalise(diagonal_body({0.5, 400, 400, 400, 400, 400, last}, unit)), "(probable rigid"),
                  last == 500);
}

// At first equal ones are reversed; from then on they stay, so that a copy of a body has its modes where the body has them.
TEST_F(Orthogonalisation, ReversesEqualEigenvaluesOnceAndKeepsTheirOrderAfterwards)
{
    ZELDATA* db = diagonal_body({5.0, 0.0, 0.0, 5.0}, {1, 1, 1, 1});
    for (int write = 0; write < 3; ++write)
    {
        orthogonalise(db);
        const int expected[] = {2, 1, 3, 0};
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(std::fabs(transformation_of(db)(expected[i], i)), 1.0) << i;
    }
}

TEST_F(Orthogonalisation, DropsInfiniteModesAndWarnsOfComplexOnes)
{
    ZELDATA* db = diagonal_body({3.0, 8.0, 1.0}, {1.0, 0.0, 1.0});
    const std::string warnings = errors_of(
        [&] { EXPECT_PRED2(contains, orthogonalise(db), "   3 : Infinity.  Possible mass singularity.  Ignored.\n"); });
    EXPECT_EQ(warnings, "WARNING:  Mode 2 is not physically meaningful\n"
                        "WARNING:  It contains an infinite eigenvalue.  Ignoring this mode.\nWARNING:  \n");
    ASSERT_EQ(ZEL_ModeCount(db), 2);
    EXPECT_EQ(distance(transformation_of(db), MatrixXd::Identity(2, 2)), 0.0);

    // A massless combination in a mixed basis is infinite too, even where rounding leaves it merely huge.
    for (unsigned trial = 0; trial < 50; ++trial)
    {
        const int n = 2 + int(trial) % 5;
        const MatrixXd unit = MatrixXd::Identity(n, n), stiffness = VectorXd::LinSpaced(n, 1, n).asDiagonal();
        MatrixXd mass = unit;
        mass(0, 0) = 0.0;
        ZELDATA* mixed = body_in_basis(stiffness, mass, unit + 0.2 * random_matrix(n, n, trial));
        errors_of([&] { orthogonalise(mixed); });
        EXPECT_EQ(ZEL_ModeCount(mixed), n - 1) << "trial " << trial;
    }

    ZELDATA* turning = ZEL_Create(0, 2); // eigenvalues +i and -i
    ZEL_SetGeneralizedStiffness(turning, 1, 2, 1.0);
    ZEL_SetGeneralizedStiffness(turning, 2, 1, -1.0);
    const std::string complex = errors_of([&] { orthogonalise(turning); });
    EXPECT_EQ(complex.find("nonzero imaginary part, 1.000000\n"), complex.find("nonzero"));
    EXPECT_PRED2(contains, complex, "nonzero imaginary part, -1.000000\n");
}
