// Projection of modal loads and damping onto the principal rigid-body coordinates.
#include "assembly.h"
#include "base/memory.h"
#include "dense.h"
#include "fixtures.h"

#include <Eigen/Cholesky>

namespace
{
// Translations of all points, three rows a point, in all modes. Forces at the points do the work translations' * forces.
MatrixXd translations(const Assembly& body)
{
    MatrixXd rows(3 * body.points.size(), body.modes.size());
    for (size_t mode = 0; mode < body.modes.size(); ++mode)
        for (size_t row = 0; row < 3 * body.points.size(); ++row)
            rows(long(row), long(mode)) = body.modes[mode][row / 3][row % 3];
    return rows;
}

// Modes numbered from 101, the first ones without stiffness.
void set_matrices(ZELDATA* db, int rigid, double mass)
{
    for (int mode = 0; mode < ZEL_ModeCount(db); ++mode)
    {
        ZEL_SetGeneralizedMass(db, 101 + mode, 101 + mode, mass);
        ZEL_SetGeneralizedStiffness(db, 101 + mode, 101 + mode, mode < rigid ? 0.0 : 1e6);
    }
}

// A free body whose first six modes are rigid motions made orthogonal over its masses, scaled to generalized masses 1, 2,
// 3, ..., followed by flexible modes; with what the test needs to know of it.
struct FreeBody
{
    Assembly assembly, rigid; // with these modes; with unit motions along and about the axes
    MatrixXd motion;          // of each rigid mode for a unit of it, a column each
    ZELDATA* db;
};

FreeBody free_body(int flexible_modes)
{
    FreeBody body;
    body.assembly = random_assembly(25, 0, 61u, false);
    VectorXd mass(75);
    for (size_t p = 0; p < 25; ++p)
    {
        body.assembly.points[p].mass = std::fabs(body.assembly.points[p].mass);
        mass.segment(3 * int(p), 3).setConstant(body.assembly.points[p].mass);
    }
    body.rigid = body.assembly;
    body.rigid.add_rigid_modes();
    const MatrixXd t = translations(body.rigid), lower = (t.transpose() * mass.asDiagonal() * t).llt().matrixL();
    const MatrixXd scale = VectorXd::LinSpaced(6, 1, 6).cwiseSqrt().asDiagonal();
    body.motion = lower.transpose().triangularView<Eigen::Upper>().solve(scale);
    for (int mode = 0; mode < 6; ++mode)
        body.assembly.add_combination(body.rigid, body.motion.col(mode).data());
    const Assembly other = random_assembly(25, flexible_modes, 67u, false);
    body.assembly.modes.insert(body.assembly.modes.end(), other.modes.begin(), other.modes.end());
    body.db = database_of(body.assembly);
    set_matrices(body.db, 6, 1.0);
    for (int mode = 0; mode < 6; ++mode)
        ZEL_SetGeneralizedMass(body.db, 101 + mode, 101 + mode, mode + 1.0);
    return body;
}

std::vector<double> load_of(ZELDATA* db, int load_case)
{
    int count = 0;
    double* values = ZEL_GetModalLoad(db, load_case, &count);
    return taken(values, count);
}

constexpr const char* kNoNodalMasses = "VXR_MFORCE_NO_FEA_MASS";

using RigidBody = FileTest;
} // namespace

TEST_F(RigidBody, ModesAreCountedByFrequency)
{
    const std::pair<std::vector<double>, int> cases[] = {
        {{0, 0, 0, 0, 0, 0, 25}, 6}, {{1, 2, 3}, 0},      {{0.05, 9, 11}, 2},
        {{0.2, 1, 10001}, 2},        {{0, 0, 0}, 0},      {{0.05}, 0},
        {{0, 1e-9, 3}, 1},           {{0.05, 10, 10}, 0}, {{1, -20000, 1}, 1},
        {{0.05, -20, 1}, 0}};
    for (const auto& [hertz, rigid] : cases)
    {
        ZELDATA* db = ZEL_Create(1, int(hertz.size()));
        db->eigenvalues = zel::allocate<ZELEIGEN>(int64_t(hertz.size()) + 1);
        db->eigenvalue_count = int(hertz.size());
        for (size_t mode = 0; mode < hertz.size(); ++mode)
        {
            ZEL_AddMode(db, int(mode) + 1);
            db->eigenvalues[mode].value[2] = hertz[mode];
        }
        EXPECT_EQ(ZEL_RigidBodyModeCount(db), rigid);
    }
}

TEST_F(RigidBody, LoadsBecomeTheResultantOfTheirForces)
{
    for (const char* variable : {static_cast<const char*>(nullptr), ""})
    {
        const Environment choice(kNoNodalMasses, variable);
        const FreeBody body = free_body(3);
        ASSERT_EQ(ZEL_RigidBodyModeCount(body.db), 6);
        const MatrixXd forces = random_matrix(75, 2, 71), work = translations(body.assembly).transpose() * forces;
        const MatrixXd resultants = translations(body.rigid).transpose() * forces;
        for (int load_case = 0; load_case < 2; ++load_case)
            for (int mode = 0; mode < 9; ++mode)
                ZEL_SetModalLoad(body.db, load_case, 101 + mode, work(mode, load_case));
        for (int again = 0; again < 2; ++again) // once for each load
        {
            EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_RigidModes2KORAL(body.db), 1); }), "");
            for (int load_case = 0; load_case < 2; ++load_case)
            {
                VectorXd expected = work.col(load_case);
                expected.head(6) = resultants.col(load_case);
                expect_near(load_of(body.db, load_case), {expected.begin(), expected.end()}, 1e-12);
                EXPECT_EQ(ZEL_ModalLoadProcessed(body.db, load_case), 1);
            }
        }
    }
}

// Inertias of nodes belong to the momentum of a mode in its invariants only, which the variable chooses.
TEST_F(RigidBody, LoadsTakeNodalInertiasFromTheInvariants)
{
    Assembly with = random_assembly(25, 0, 91u, true), without;
    with.add_rigid_modes();
    with.add_mode();
    without = with;
    for (Point& point : without.points)
        point.inertia.clear();
    for (const char* variable : {static_cast<const char*>(nullptr), ""})
    {
        const Environment choice(kNoNodalMasses, variable);
        ZELDATA* db = database_of(with);
        set_matrices(db, 6, 2.0);
        ZEL_SetModalLoad(db, 0, 104, 2.0);
        errors_of([&] { ZEL_RigidBodyForcesOnPrincipalAxes(db); });
        const std::vector<double> momentum = defined_invariant(variable ? with : without, 4);
        for (int axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(db->load_cases[0].values[3 + axis], momentum[size_t(7 * axis + 3)], 1e-11) << axis;
    }
}

TEST_F(RigidBody, PreloadsWarnOfTheirResultant)
{
    const FreeBody body = free_body(1);
    VectorXd couple = VectorXd::Zero(75); // in x, which has moments about y and z
    couple[0] = 1.0;
    couple[3] = -1.0;
    const VectorXd work = translations(body.assembly).transpose() * couple;
    for (int mode = 0; mode < 7; ++mode)
        ZEL_SetModalPreload(body.db, 101 + mode, work[mode]);
    const std::string warning = "WARNING:  ZEL contains a preload with a rigid body component which is being ignored\n";
    EXPECT_EQ(errors_of([&] { ZEL_RigidBodyForcesOnPrincipalAxes(body.db); }), warning + warning);
    EXPECT_EQ(body.db->modal_preload[0], 0.0) << "forces below 1e-10 are none";
    EXPECT_EQ(body.db->principal_axes_done, 1);
}

TEST_F(RigidBody, LoadsOfBodiesWithFewRigidModes)
{
    // Frequencies far apart: one rigid mode; all high: none.
    for (int rigid : {0, 1})
    {
        Assembly assembly = random_assembly(5, 0, 83u, false);
        assembly.add_rigid_modes();
        assembly.modes.resize(4);
        ZELDATA* db = database_of(assembly);
        set_matrices(db, rigid, 2.0);
        for (int mode = 0; mode < 4; ++mode)
            ZEL_SetModalLoad(db, 0, 101 + mode, 1.0 + mode);
        EXPECT_EQ(errors_of([&] { ZEL_RigidBodyForcesOnPrincipalAxes(db); }),
                  "WARNING:  ZEL only contains " + std::to_string(rigid) +
                      " rigid body modes.\nWARNING:    The resultant load vector will be mishandled.\nWARNING:  \n");
        EXPECT_EQ(ZEL_ModalLoadProcessed(db, 0), 1);
        const double half = ZEL_Invar1(db) / 2.0;
        if (rigid == 0)
            EXPECT_EQ(load_of(db, 0), (std::vector<double>{1, 2, 3, 4}));
        else // a translation along x: of its moments the vector has room for that about x
            expect_near(load_of(db, 0), {half, 0, 0, 0}, 1e-12);
    }
}

// Three rigid modes of six: the damping stays, a preload along x is told of once, and without load cases nothing else is
// said. Of a rigid mode without mass there is no force.
TEST_F(RigidBody, OfThreeRigidModesTakesForcesOfThoseWithMass)
{
    const FreeBody body = free_body(2);
    ZELDATA* db = body.db;
    for (int mode = 0; mode < 8; ++mode)
    {
        db->stiffness.entries[mode].value = mode < 3 ? 1e-3 : 1e6;
        ZEL_SetModalPreload(db, 101 + mode, mode == 1 || mode == 2 ? 0.0 : 1.0);
        ZEL_SetGeneralizedDamping(db, 101 + mode, 101, 0.5);
    }
    ASSERT_EQ(ZEL_RigidBodyModeCount(db), 3);
    EXPECT_EQ(errors_of([&] { ZEL_RigidModes2KORAL(db); }),
              "WARNING:  ZEL contains a preload with a rigid body component which is being ignored\n");
    EXPECT_FALSE(db->damping_projected);
    EXPECT_TRUE(db->modal_preload[0] != 0.0 && db->modal_preload[1] == 0.0 && db->modal_preload[5] != 0.0);
    EXPECT_EQ(db->modal_preload[6], 1.0);

    db->eigenvalues = zel::allocate<ZELEIGEN>(9);
    db->eigenvalue_count = 8;
    for (int mode = 0; mode < 8; ++mode)
    {
        const double hertz = mode < 3 ? 0.0 : 50.0, mass = mode == 1 ? 0.0 : 2.0;
        const double record[6] = {101.0 + mode, hertz, hertz, hertz, mass, hertz};
        std::copy_n(record, 6, db->eigenvalues[mode].value);
        ZEL_SetModalLoad(db, 0, 101 + mode, mode == 1 ? 1e3 : mode == 0 ? 1.0 : 0.0);
    }
    errors_of([&] { ZEL_RigidBodyForcesOnPrincipalAxes(db); });
    double* moments = ZEL_Invar3(db);
    for (int axis = 0; axis < 3; ++axis)
        EXPECT_NEAR(db->load_cases[0].values[axis], moments[8 * axis] / 2.0, 1e-12);
    std::free(moments);
}

// q' C q is the power for modal rates q, as is y' C' y for the principal rates y = T q of the same motion.
TEST_F(RigidBody, DampingKeepsItsPower)
{
    const FreeBody body = free_body(2);
    const MatrixXd before = random_matrix(8, 8, 89);
    for (int i = 0; i < 64; ++i)
        ZEL_SetGeneralizedDamping(body.db, 101 + i / 8, 101 + i % 8, before(i / 8, i % 8));
    MatrixXd t = MatrixXd::Identity(8, 8), after(8, 8), again(8, 8);
    t.topLeftCorner(6, 6) = body.motion;
    ASSERT_EQ(ZEL_DampingOnPrincipalAxes(body.db), 1);
    ASSERT_EQ(ZEL_GenDampFull(body.db, after.data(), 8), 1);
    EXPECT_EQ(body.db->damping_projected, 1);
    EXPECT_LE(distance(t.transpose() * after.transpose() * t, before), 1e-10); // rows come first
    ASSERT_EQ(ZEL_DampingOnPrincipalAxes(body.db), 1);
    ASSERT_EQ(ZEL_GenDampFull(body.db, again.data(), 8), 1);
    EXPECT_EQ(again, after) << "once is enough";
}

// What is a force in a projected vector stays one whatever the rigid-body modes and the unit of time look like later on.
TEST_F(RigidBody, ProjectedForcesScaleAsForcesInEveryUnitOfTime)
{
    for (bool through_file : {false, true})
    {
        FreeBody body = free_body(2);
        ZELDATA* db = body.db;
        ZEL_SetUnits(db, "kg", "mm", "s", "kN");
        for (int mode = 0; mode < 8; ++mode) // rigid modes of 0.05 Hz that the unit of the millisecond hides
        {
            db->stiffness.entries[mode].value = mode < 6 ? 0.0987 * (mode + 1) : 1e6;
            ZEL_SetModalLoad(db, 0, 101 + mode, mode + 4.0);
            ZEL_SetModalPreload(db, 101 + mode, 2.0);
        }
        std::strcpy(db->units.force, "NEWTON"); // consistent: frequencies in hertz
        std::strcpy(db->units.length, "METER");
        errors_of([&] { ZEL_RigidBodyForcesOnPrincipalAxes(db); });
        ASSERT_TRUE(db->load_cases[0].processed && db->principal_axes_done);
        ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "ms", "N"));
        if (through_file)
            db = rewrite(db, "no_ortho");
        const std::vector<double> load(db->load_cases[0].values, db->load_cases[0].values + 8);
        const std::vector<double> preload(db->modal_preload, db->modal_preload + 8);
        ASSERT_TRUE(ZEL_SetUnits(db, "kg", "mm", "ms", "kN"));
        for (size_t i = 0; i < 8; ++i)
        {
            const double factor = i < 3 ? 1e-3 : 1.0; // newton to kilonewton; newton metre to kilonewton millimetre
            EXPECT_NEAR(db->load_cases[0].values[i], load[i] * factor, 1e-12 * std::fabs(load[i]));
            EXPECT_NEAR(db->modal_preload[i], preload[i] * factor, 1e-12 * std::fabs(preload[i]));
        }
    }
}

TEST_F(RigidBody, LoadsOfABodyWithoutMassStay)
{
    ZELDATA* db = ZEL_Create(0, 8);
    for (int mode = 1; mode <= 8; ++mode)
    {
        ZEL_SetGeneralizedStiffness(db, mode, mode, mode <= 6 ? 0.0 : 1e6);
        ZEL_SetModalLoad(db, 0, mode, mode);
    }
    EXPECT_PRED2(contains, errors_of([&] { ZEL_RigidBodyForcesOnPrincipalAxes(db); }), "No mass data tells");
    EXPECT_FALSE(db->load_cases[0].processed);
    EXPECT_EQ(load_of(db, 0), (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8}));
}

// Masses on a line, in any direction, do not resist turning about it.
TEST_F(RigidBody, DampingOfAStraightBodyIsSingularInEveryDirection)
{
    for (int trial = 0; trial < 100; ++trial)
    {
        Assembly line;
        const MatrixXd direction = random_matrix(3, 1, unsigned(trial));
        for (int p = 0; p < 3 + trial % 20; ++p)
            line.points.push_back({1.0, {0.9 * p * direction(0), 0.9 * p * direction(1), 0.9 * p * direction(2)}, {}});
        line.add_rigid_modes();
        line.add_mode();
        ZELDATA* db = database_of(line);
        set_matrices(db, 6, 1.0);
        for (int mode = 101; mode <= 107; ++mode)
            ZEL_SetGeneralizedDamping(db, mode, mode, 0.5);
        EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_DampingOnPrincipalAxes(db), 0); }),
                  "ERROR:  LU Decomposition failed.\nERROR:  \n");
        EXPECT_FALSE(db->damping_projected);
        EXPECT_EQ(db->damping.count, 7);
        EXPECT_EQ(db->damping.entries[3].value, 0.5);
        errors_of([&] { EXPECT_EQ(ZEL_RigidModes2KORAL(db), 1); });
    }
    EXPECT_EQ(errors_of([] { EXPECT_EQ(ZEL_RigidModes2KORAL(nullptr), 0); }),
              "ERROR:  The database has not been initialized.\n");
}
