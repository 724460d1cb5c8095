// Models from matrices and meshes in memory: beams with six rows a node against closed forms, and arrays that do not belong
// together. By way of files they give the same body: see test_matrices.cpp.
#include "models.h"

using ArrayInput = arrays::Input;
using arrays::Matrix;

constexpr int kBeams = 40;
constexpr double kBeamLength = 1000, kSide = 20, kElastic = 210000, kDensity = 7.85e-9; // a square section

// Of a slender beam along x (Przemieniecki, Theory of Matrix Structural Analysis, 1968): u, w, rotation about y for the
// plane x-z, and so on by symmetry; rotary inertia of the section about x alone.
static void beam_matrices(MatrixXd& stiffness, MatrixXd& mass)
{
    const double l = kBeamLength / kBeams, area = kSide * kSide, inertia = std::pow(kSide, 4) / 12,
                 m = kDensity * area * l;
    const double shear = kElastic / 2.6, torsion = 0.1406 * std::pow(kSide, 4);
    stiffness = mass = MatrixXd::Zero(12, 12);
    const auto couple = [](MatrixXd& a, int i, double own, double other) {
        a(i, i) = a(i + 6, i + 6) = own;
        a(i, i + 6) = a(i + 6, i) = other;
    };
    couple(stiffness, 0, kElastic * area / l, -kElastic * area / l);
    couple(stiffness, 3, shear * torsion / l, -shear * torsion / l);
    couple(mass, 0, m / 3, m / 6);
    couple(mass, 3, 2 * inertia / area * m / 3, 2 * inertia / area * m / 6);
    for (const auto& [across, turn, sign] : {std::tuple{1, 5, 1.0}, {2, 4, -1.0}})
    {
        const int at[4] = {across, turn, across + 6, turn + 6};
        const double t = sign * l, k = kElastic * inertia / std::pow(l, 3), c = m / 420;
        Eigen::Matrix4d bend, move;
        bend << 12, 6 * t, -12, 6 * t, 6 * t, 4 * l * l, -6 * t, 2 * l * l, -12, -6 * t, 12, -6 * t, 6 * t, 2 * l * l,
            -6 * t, 4 * l * l;
        move << 156, 22 * t, 54, -13 * t, 22 * t, 4 * l * l, 13 * t, -3 * l * l, 54, 13 * t, 156, -22 * t, -13 * t,
            -3 * l * l, -22 * t, 4 * l * l;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
            {
                stiffness(at[i], at[j]) = k * bend(i, j);
                mass(at[i], at[j]) = c * move(i, j);
            }
    }
}

static ArrayInput beam_of_lines(void (*change)(MatrixXd& stiffness) = [](MatrixXd&) {})
{
    MatrixXd k, m, stiffness = MatrixXd::Zero(6 * (kBeams + 1), 6 * (kBeams + 1)), mass = stiffness;
    beam_matrices(k, m);
    ArrayInput input;
    input.cells = {{"line", 2, {}}};
    for (int i = 0; i <= kBeams; ++i)
        input.points.insert(input.points.end(), {kBeamLength / kBeams * i, 0.0, 0.0});
    for (int i = 0; i < kBeams; ++i)
    {
        stiffness.block<12, 12>(6 * i, 6 * i) += k;
        mass.block<12, 12>(6 * i, 6 * i) += m;
        input.cells[0].nodes.insert(input.cells[0].nodes.end(), {i, i + 1});
    }
    change(stiffness);
    input.stiffness = compressed(stiffness, kWhole);
    input.mass = compressed(mass, Eigen::Lower);
    return input;
}

static double euler(double root)
{
    return root * root * std::sqrt(kElastic * kSide * kSide / 12 / kDensity) / (kBeamLength * kBeamLength);
}

TEST(Arrays, OfBeamsCarryTheRotationsOfTheirNodes)
{
    ReductionOptions options = in_millimetres(12);
    const ReducedBody free = reduced(beam_of_lines(), options);
    EXPECT_TRUE(free.report.all_hold());
    const VectorXd values = eigenvalues_of(free);
    for (Index k : {6, 7})
        EXPECT_NEAR(std::sqrt(values[k]), euler(4.730041), 1e-5 * euler(4.730041));
    // a slope of 0.982502 x 4.730041 / L at the end for a unit deflection there
    const VectorXd u = free.body->motion.col(6).head<3>(), turn = free.body->rotation.col(6).head<3>();
    EXPECT_NEAR(turn.norm() / u.norm(), 0.982502 * 4.730041 / kBeamLength, 1e-6);
    EXPECT_NEAR(u.dot(turn), 0.0, 1e-9 * u.norm() * turn.norm());

    options.interfaces = {{{"root", {1}}}, {{"tip", {kBeams + 1}}, {{kBeamLength, 0, 50}}}}; // one of them with an arm
    const ReducedBody held = reduced(beam_of_lines(), options);
    EXPECT_TRUE(held.report.all_hold());
    const MatrixXd& constraint = held.body->motion;
    EXPECT_NEAR(std::sqrt(held.body->stiffness(12, 12)), euler(4.730041),
                1e-5 * euler(4.730041)); // clamped at both ends
    const Index tip = 3 * kBeams;
    EXPECT_LT((constraint.block<3, 3>(tip, 6) - MatrixXd::Identity(3, 3)).norm(), 1e-12);
    EXPECT_LT((constraint.block<3, 1>(tip, 10) - Vector3d(-50, 0, 0)).norm(), 1e-9); // turned about y, 50 above it
    EXPECT_LT((held.body->rotation.block<3, 3>(tip, 9) - MatrixXd::Identity(3, 3)).norm(), 1e-12);
    // half way along a cubic: 1/2 of a unit shift, slope 3/2 / L; 1/8 L of a unit turn
    const Index middle = 3 * (kBeams / 2);
    EXPECT_NEAR(constraint(middle + 1, 7), 0.5, 1e-9);
    EXPECT_NEAR(held.body->rotation(middle + 2, 7), 1.5 / kBeamLength, 1e-12);
    EXPECT_NEAR(constraint(middle + 1, 11), -kBeamLength / 8, 1e-7);

    ZELDATA* db = fill_database(held);
    double shape[3];
    ASSERT_TRUE(ZEL_ModeByNode(db, 8, 0, kBeams / 2 + 1, shape, 1));
    EXPECT_EQ(shape[2], held.body->rotation(middle + 2, 7));
    EXPECT_EQ(db->face_count, kBeams + 1); // lines are drawn, and the arm
    ZEL_UnLink(db);
}

// Penalties of all sizes at one end, a soft spring in the middle; rows that were eliminated stay refused.
TEST(Arrays, LoseTheirSupportsOnRequest)
{
    ReductionOptions options = in_millimetres(4);
    options.release_supports = true;
    const ReducedBody free = reduced(beam_of_lines(), options);
    const ArrayInput held = beam_of_lines([](MatrixXd& stiffness) {
        for (int row = 0; row < 6; ++row)
            stiffness(row, row) += std::pow(10.0, 4 + 3 * row);
        stiffness(121, 121) += 100.0;
    });
    const ArrayInput eliminated = beam_of_lines([](MatrixXd& stiffness) {
        stiffness.topRows<6>().setZero();
        stiffness.leftCols<6>().setZero();
        stiffness.topLeftCorner<6, 6>().setIdentity();
    });
    const ReducedBody body = reduced(held, options);
    EXPECT_TRUE(body.report.all_hold());
    const VectorXd own = eigenvalues_of(body), expected = eigenvalues_of(free);
    for (Index k = 6; k < own.size(); ++k)
        EXPECT_NEAR(own[k], expected[k], 1e-6 * expected[k]);
    EXPECT_THROW(reduced(eliminated, options), std::runtime_error);
    options.release_supports = false;
    EXPECT_THROW(reduced(held, options), std::runtime_error);
}

TEST(Arrays, ThatDoNotBelongTogetherAreRefused)
{
    const std::pair<void (*)(ArrayInput&), const char*> faults[] = {
        {[](ArrayInput& in) { in.points.pop_back(); }, "points have three coordinates each"},
        {[](ArrayInput& in) { in.points[4] = NAN; }, "point 1 has a coordinate that is no finite number"},
        {[](ArrayInput& in) { in.cells[0].nodes[1] = 41; }, "a cell of type line names point 41 of 41"},
        {[](ArrayInput& in) { in.cells[0].nodes[1] = -1; }, "a cell of type line names point -1 of 41"},
        {[](ArrayInput& in) { in.cells[0].nodes_per_cell = 3; }, "cells of type line have 2 nodes, not 3"},
        {[](ArrayInput& in) { in.node_sets["a"] = {41}; }, "the node set a names point 41 of 41"},
        {[](ArrayInput& in) { in.mass.order = 5; }, "the stiffness matrix has 246 rows, the mass matrix 5"},
        {[](ArrayInput& in) { in.points.resize(120), in.cells.clear(); },
         "neither three nor six for each of 40 points"},
        {[](ArrayInput& in) { in.dofs.resize(1); }, "dofs has 1 rows, the matrices have 246"},
        {[](ArrayInput& in) { in.dofs.resize(246), in.dofs[0][1] = 6; }, "row 0 of dofs names component 6 of point 0"},
        {[](ArrayInput& in) { in.dofs.resize(246), in.dofs[0][1] = in.dofs[1][1] = 1; },
         "two rows move component 1 of point 0"},
        {[](ArrayInput& in) { in.stiffness.starts[3] = 1000000; },
         "the stiffness matrix is no compressed square matrix"},
        {[](ArrayInput& in) { in.stiffness.indices[3] = 246; }, "the stiffness matrix has an entry in row 246 of 246"},
        {[](ArrayInput& in) { in.mass.values[2] = INFINITY; },
         "the mass matrix has an entry that is no finite number at ("},
        {[](ArrayInput& in) { in.stiffness.values[0] *= 1.001; },
         "the stiffness matrix is not symmetric: its entries at ("},
        {[](ArrayInput& in) { in.stiffness.values[1] *= 1.001; }, "the stiffness matrix resists rigid motion"},
        {[](ArrayInput& in) { in = beam_of_lines([](MatrixXd& k) { k(3, 3) *= 1.0001; }); }, // against torsion alone
         "the stiffness matrix resists rigid motion, most at component 4 of node 1:"},
        {[](ArrayInput& in) { in.mass.values[1] = -1; }, "the mass matrix has a negative entry on its diagonal"},
        {[](ArrayInput& in) { in.mass.values[0] *= 0.5; }, "the mass matrix is not that of a body"},
    };
    TemporaryFolder folder;
    expect_refused(faults, [](const auto& spoil) {
        ArrayInput input = beam_of_lines();
        spoil(input);
        reduced(input, in_millimetres(2));
    });
    struct StopAt : Progress
    {
        std::string last;
        bool begins(const std::string& phase) override { return phase != last; }
        bool advances(double) override { return !last.empty(); }
    } stop;
    for (const char* phase : {"take the mesh", "take the matrices", "free-free modes", "shapes and nodal masses"})
    {
        stop.last = phase;
        EXPECT_THROW(reduce(*arrays::make_source(beam_of_lines()), in_millimetres(2), stop), Stopped) << phase;
    }
    // the writing of the library as well, which leaves no file
    stop.last = "";
    const ReducedBody body = reduced(beam_of_lines(), in_millimetres(2));
    const std::string said =
        errors_of([&] { EXPECT_THROW(write_body(body, folder.path("b.zel"), "full_invar", stop), Stopped); });
    EXPECT_PRED2(contains, said, "ended on request");
    EXPECT_TRUE(folder.files().empty());
}
