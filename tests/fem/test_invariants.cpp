// Inertia invariants of reduced bodies: against the mass matrix by its definition, and by the laws of a body.
#include "assembly.h"
#include "fem/rigid.h"
#include "models.h"

// With m = V diag(a) V^T, products of two fields over the matrix are sums over points of mass a, whose coordinates and
// shapes are V^T times those of the nodes. Invariants 1, 2 and 3 have the constant for one of the two.
static std::vector<double> defined(const Body& body, const MatrixXd& mass, int number)
{
    const Index nodes = mass.rows() / 3, modes = body.motion.cols();
    const MatrixXd m = mass(Eigen::seqN(0, nodes, 3), Eigen::seqN(0, nodes, 3)), at = places(body.mesh).transpose();
    MatrixXd shapes(nodes, 3 * modes); // by component, then by mode
    for (Index c = 0; c < 3; ++c)
        shapes.middleCols(c * modes, modes) = body.motion(Eigen::seqN(c, nodes, 3), Eigen::all);
    if (number < 4)
    {
        const MatrixXd fields = number == 1 ? MatrixXd(MatrixXd::Ones(nodes, 1)) : number == 2 ? at : shapes;
        const VectorXd sums = fields.transpose() * m.rowwise().sum();
        return {sums.begin(), sums.end()};
    }
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver(m);
    const MatrixXd turned = solver.eigenvectors().transpose() * at, moved = solver.eigenvectors().transpose() * shapes;
    Assembly points;
    for (Index r = 0; r < nodes; ++r)
        points.points.push_back({solver.eigenvalues()[r], {turned(r, 0), turned(r, 1), turned(r, 2)}, {}});
    for (Index k = 0; k < modes; ++k)
    {
        points.add_mode();
        for (Index r = 0; r < nodes; ++r)
            for (Index c = 0; c < 3; ++c)
                points.modes[size_t(k)][size_t(r)][size_t(c)] = moved(r, c * modes + k);
    }
    return defined_invariant(points, number);
}

using Invariants = ZelTest;

TEST_F(Invariants, AreThoseOfTheMassMatrix)
{
    const Model model = read_model(kSmall + "small");
    const MatrixXd mass = by_node(*model.matrices, model.matrices->mass);
    for (const std::vector<std::string>& interfaces : {std::vector<std::string>{}, {"ROOT@0,0,0", "TIP@60,0,0"}})
    {
        const ReducedBody body = reduce_job(kSmall + "small", in_millimetres(7, interfaces));
        ZELDATA* db = fill_database(body);
        for (int number : kInvariantNumbers)
            expect_near(library_invariant(db, number), defined(*body.body, mass, number), 1e-12);
        EXPECT_NEAR(db->total_mass, mass.sum() / 3, 1e-12 * db->total_mass);
    }
}

// The mass matrix gets the square of a shape that no rigid motion has a part of: along x alone, or along (1, 1, 1), which
// couples directions that are alike. The body stays, the matrix is no scalar.
TEST_F(Invariants, AreLeftToTheNodesWhereTheMatrixKnowsDirections)
{
    const Model model = read_model(kSmall + "small");
    const MatrixXd stiffness = by_node(*model.matrices, model.matrices->stiffness),
                   mass = by_node(*model.matrices, model.matrices->mass);
    for (Index directions : {0, 1, 3})
    {
        MatrixXd affine = MatrixXd::Zero(mass.rows(), 4);
        VectorXd shape = VectorXd::Zero(mass.rows());
        for (Index i = 0; i < mass.rows(); ++i)
            if (i % 3 < directions)
            {
                affine.row(i) << 1.0, model.mesh.nodes[size_t(i / 3)].at.transpose();
                shape[i] = std::sin(double(i / 3));
            }
        shape -= affine * affine.completeOrthogonalDecomposition().solve(shape);
        const MatrixXd changed = mass + 1e-7 * shape * shape.transpose();
        const auto source = arrays::make_source(in_memory(model.mesh, stiffness, changed, kWhole));
        const ReducedBody body = reduce(*source, in_millimetres(4), silent);
        EXPECT_PRED2(contains, told(body),
                     directions == 0 ? "inertia invariants of the mass matrix" : "couples directions");
        EXPECT_EQ(body.body->invariants[0].empty(), directions > 0);
    }
    // rows that rotate the nodes of ties: 5, 8 and 9 alone
    ReductionOptions options = in_millimetres(4);
    const ReducedBody tied = reduce_job(kSmall + "small_tied", options);
    options.lumped_invariants = true;
    const ReducedBody lumped = reduce_job(kSmall + "small_tied", options);
    EXPECT_PRED2(contains, told(tied), "5, 8 and 9 of masses at the nodes");
    EXPECT_PRED2(contains, told(lumped), "inertia invariants of the masses at the nodes");
    ZELDATA *own = fill_database(tied), *of_nodes = fill_database(lumped);
    for (int number : {5, 8, 9})
        expect_near(library_invariant(own, number), library_invariant(of_nodes, number), 1e-12);
}

// Elements of one point make inertias low. What the mass of the rigid motions has got beyond the matrix is in all nine alike.
TEST_F(Invariants, KeepTheirLawsWhereTheMatrixHasLostInertia)
{
    for (const char* job : {"one_point", "strip"}) // the other of layers, whose nodes are not the body's
    {
        SCOPED_TRACE(job);
        const ReducedBody body = reduce_job(kSmall + job, in_millimetres(5));
        ZELDATA* db = fill_database(body);
        const MassMoments mass = mesh_mass(body.body->mesh).moments;
        const size_t modes = 11;
        const std::vector<double> angular = library_invariant(db, 4), cross = library_invariant(db, 5),
                                  eighth = library_invariant(db, 8), ninth = library_invariant(db, 9);
        EXPECT_LT((Eigen::Matrix3d::Map(library_invariant(db, 7).data()) - mass.inertia({0, 0, 0})).norm(),
                  1e-9 * mass.second.norm());
        const MatrixXd rigid = fit_rigid_motions(body.body->mesh, {0, 0, 0}, body.body->motion).coefficients;
        for (size_t k = 0; k < modes; ++k)
        {
            const double* b = &eighth[9 * k]; // sum of m s x phi is in the antisymmetric part
            const double axial[3] = {b[7] - b[5], b[2] - b[6], b[3] - b[1]};
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(axial[c], angular[c * modes + k], 1e-12 * largest(angular));
            const double* own = &ninth[9 * (modes + 1) * k];
            EXPECT_NEAR(-0.5 * (own[0] + own[4] + own[8]), body.body->mass(Index(k), Index(k)), 1e-12);
            // a turn about z
            double turned[3] = {};
            for (size_t j = 0; j < modes; ++j)
                for (size_t c = 0; c < 3; ++c)
                    turned[c] += rigid(Index(j), 5) * cross[(3 * j + c) * modes + k];
            for (size_t c = 0; c < 3; ++c) // (-y, x, 0) x phi = (x phi_z, y phi_z, -x phi_x - y phi_y)
                EXPECT_NEAR(turned[c], b[6 + c], 1e-9 * largest(cross)) << k << c;
        }
    }
}
