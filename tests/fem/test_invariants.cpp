// Inertia invariants of reduced bodies: against the mass matrix by its definition, and by the laws of a body.
#include "assembly.h"
#include "fem/rigid.h"
#include "models.h"

static ReducedBody body_of(Source& source, int modes, const std::vector<std::string>& interfaces = {},
                           bool lumped = false)
{
    ReductionOptions options = in_millimetres(modes, interfaces);
    options.lumped_invariants = lumped;
    return reduce(source, options, silent);
}

// With m = V diag(a) V^T, products of two fields over the matrix are sums over points of mass a, whose coordinates and shapes are V^T
// times those of the nodes. Invariants 1, 2 and 3 have the constant for one of the two.
static std::vector<double> defined(const Body& body, const MatrixXd& mass, int number)
{
    const Index nodes = mass.rows() / 3, modes = body.motion.cols();
    const MatrixXd m = mass(Eigen::seqN(0, nodes, 3), Eigen::seqN(0, nodes, 3));
    MatrixXd at(nodes, 3);
    for (Index p = 0; p < nodes; ++p)
        at.row(p) = body.mesh.nodes[size_t(p)].at;
    const auto component = [&](int c) -> MatrixXd { return body.motion(Eigen::seqN(c, nodes, 3), Eigen::all); };
    std::vector<double> values;
    for (int c = 0; c < 3 && number == 3; ++c)
        for (Index k = 0; k < modes; ++k)
            values.push_back((m * component(c).col(k)).sum());
    if (number < 4)
        return number == 1   ? std::vector<double>{m.sum()}
               : number == 3 ? values
                             : std::vector<double>{(m * at.col(0)).sum(), (m * at.col(1)).sum(), (m * at.col(2)).sum()};
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver(m);
    const MatrixXd turned = solver.eigenvectors().transpose() * at;
    Assembly points;
    for (Index r = 0; r < nodes; ++r)
        points.points.push_back({solver.eigenvalues()[r], {turned(r, 0), turned(r, 1), turned(r, 2)}, {}});
    for (Index k = 0; k < modes; ++k)
        points.add_mode();
    for (int c = 0; c < 3; ++c)
    {
        const MatrixXd shapes = solver.eigenvectors().transpose() * component(c);
        for (Index k = 0; k < modes; ++k)
            for (Index r = 0; r < nodes; ++r)
                points.modes[size_t(k)][size_t(r)][size_t(c)] = shapes(r, k);
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
        const ReducedBody body = body_of(*ccx::make_source({.deck = kSmall + "small"}), 7, interfaces);
        ZELDATA* db = fill_database(body);
        for (int number : kInvariantNumbers)
            expect_near(library_invariant(db, number), defined(*body.body, mass, number), 1e-12);
        EXPECT_NEAR(db->total_mass, mass.sum() / 3, 1e-12 * db->total_mass);
    }
}

// A model whose mass matrix something has been done to. Its mesh has no mass of its own.
class Changed : public Source
{
public:
    explicit Changed(void (*change)(Model& model)) : change_(change) {}
    Model read_model(Progress& progress) override { return source_->read_model(progress); }
    void read_solution(Model& model, const std::vector<Interface>& interfaces, Progress& progress) override
    {
        source_->read_solution(model, interfaces, progress);
        model.mesh_has_mass = false;
        change_(model);
    }

private:
    void (*change_)(Model& model);
    std::unique_ptr<Source> source_ = ccx::make_source({.deck = kSmall + "small"});
};

// Adds the square of a shape that no rigid motion has a part of: along x alone, or along (1, 1, 1), which couples directions that are
// alike. The body stays, the matrix is no scalar.
static void add_square(Model& model, bool along_x)
{
    const std::vector<Row>& rows = model.matrices->rows;
    MatrixXd affine = MatrixXd::Zero(Index(rows.size()), 4);
    VectorXd shape = VectorXd::Zero(affine.rows());
    for (size_t i = 0; i < rows.size(); ++i)
        if (!along_x || rows[i].component == 0)
        {
            affine.row(Index(i)) << 1.0, model.mesh.nodes[size_t(rows[i].node)].at.transpose();
            shape[Index(i)] = std::sin(rows[i].node);
        }
    shape -= affine * affine.completeOrthogonalDecomposition().solve(shape);
    const MatrixXd mass = dense(model.matrices->mass) + 1e-7 * shape * shape.transpose();
    model.matrices->mass = MatrixXd(mass.triangularView<Eigen::Upper>()).sparseView();
}

TEST_F(Invariants, AreLeftToTheNodesWhereTheMatrixKnowsDirections)
{
    void (*const changes[])(Model&) = {[](Model&) {}, [](Model& m) { add_square(m, true); },
                                       [](Model& m) { add_square(m, false); }};
    for (const auto& change : changes)
    {
        Changed source(change);
        const ReducedBody body = body_of(source, 4);
        EXPECT_PRED2(contains, told(body),
                     change == changes[0] ? "inertia invariants of the mass matrix" : "couples directions");
        EXPECT_EQ(body.body->invariants[0].empty(), change != changes[0]);
    }
    // rows that rotate the nodes of ties: 5, 8 and 9 alone
    const ReducedBody tied = body_of(*ccx::make_source({.deck = kSmall + "small_tied"}), 4),
                      lumped = body_of(*ccx::make_source({.deck = kSmall + "small_tied"}), 4, {}, true);
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
        const ReducedBody body = body_of(*ccx::make_source({.deck = kSmall + job}), 5);
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
            // (-y, x, 0) x phi = (x phi_z, y phi_z, -x phi_x - y phi_y)
            const double expected[3] = {b[6], b[7], b[8]};
            for (size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(turned[c], expected[c], 1e-9 * largest(cross)) << k << c;
        }
    }
}
