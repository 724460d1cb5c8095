// How bodies are joined: which nodes, and what their reference nodes do, against dense algebra and a solver's own answer.
#include "fem/interfaces.h"
#include "fem/sources/ccx/dat.h"
#include "models.h"

static const std::string kRod = kExamples + "rod";

// The beam has 44 nodes: 0 <= x <= 60, |y| <= 10, |z| <= 5. Its edges x = 20, y = -10 and the like are on the surface.
TEST(Interfaces, AreChosenInOneGrammar)
{
    Model model = read_model(kSmall + "small");
    const TemporaryFolder folder;
    std::ofstream(folder.path("nodes")) << "# a face\n33,34 35\n** its other nodes\n36 38\t41,43,\n44 33\n";
    const std::vector<int> tip = model.node_sets.at("TIP");
    model.node_sets["TIP:xyz"] = model.node_sets["a@1,2,3"] = {5, 7};
    const std::pair<std::string, std::vector<int>> cases[] = {
        {"tip", tip},
        {"ids=44,33,34,35,36,38,41,43,33", tip},
        {"file=" + folder.path("nodes"), tip},
        {"plane=60,7,7/-2,0,0", tip},
        {"plane=62,0,0/1,0,0/2.5", tip},
        {"box=70,-20,5.0001/59.9999,20,-5", tip},
        {"cylinder=60,0,0/3,0,0/12", model.node_sets.at("ALL")},
        {"cylinder=60,0,0/3,0,0/12/4", tip},
        {"cylinder=0,0,0/0,0,-1/9/5", {11}},
        {"TIP:xyz", {5, 7}},
        {"TIP:xyz:average@0,1,2", {5, 7}},
        {"a@1,2,3@4,5,6", {5, 7}},
    };
    for (const auto& [text, nodes] : cases)
    {
        const Interface interface = choose_interfaces(model, in_millimetres(0, {text}))[0];
        EXPECT_EQ(interface.tied, nodes) << text;
        EXPECT_EQ(interface.components().size(), 6U) << text;
    }
    const Interface whole = choose_interfaces(model, in_millimetres(0, {"TIP:tx:average@4,5,6"}))[0];
    EXPECT_EQ(whole.components(), (std::vector<int>{0, 5}));
    EXPECT_EQ(whole.kind, InterfaceKind::average);
    EXPECT_EQ(whole.at, Vector3d(4, 5, 6));
    const std::pair<std::string, std::string> faults[] = {
        {"TOP", "no node set named TOP; it has ALL, ROOT, TIP"},
        {"TIP:xx", "named TIP:xx (and \":xx\" is neither"},
        {"TIP:xyz:xyz:rigid", "named TIP:xyz"},
        {"TIP@1,2", "\"1,2\" is not three numbers"},
        {"box=0,0,0/1,1", "box=0,0,0/1,1: \"1,1\" is not three numbers"},
        {"plane=0,0,0/0,0,0", "\"0,0,0\" has no direction"},
        {"cylinder=0,0,0/1,0,0", "expected cylinder=x,y,z/dx,dy,dz/radius"},
        {"cylinder=0,0,0/1,0,0/-1", "\"-1\" is negative"},
        {"plane=90,0,0/1,0,0", "lies in plane=90,0,0/1,0,0; the model reaches from 0,-10,-5 to 60,10,5"},
        {"ids=1,99", "ids=1,99 names node 99, which the mesh does not have: its 44 nodes are 1 to 44"},
        {"file=" + folder.path("none"), "no such file"},
        {"ids=1:xyz:rs", "\"1:xyz\" is not a whole number"},
    };
    model.node_sets.erase("TIP:xyz");
    expect_refused(faults, [&](const std::string& text) { choose_interfaces(model, in_millimetres(0, {text})); });
}

// Faces of different lengths along x: the mean is that of the area, whatever nodes stand close together.
TEST(Interfaces, OfAnAverageStandAtTheMeanOfTheirFaces)
{
    Model model = read_model(kSmall + "small");
    for (Node& node : model.mesh.nodes)
        node.at[0] = node.at[0] < 20 ? node.at[0] / 4 : 5 + (node.at[0] - 20) * 55 / 40;
    const Interface side = choose_interfaces(model, in_millimetres(0, {"plane=0,10,0/0,1,0:average"}))[0];
    EXPECT_LT((side.at - Vector3d(30, 10, 0)).norm(), 1e-9) << side.at.transpose();
}

TEST(Interfaces, AreChosenFromTheListOfSets)
{
    const std::vector<NodeSet> sets = list_sets(*ccx::make_source({.deck = kSmall + "small_tied"}), silent);
    std::string names;
    for (const NodeSet& set : sets)
        names += set.name + (set.reference ? ">" + std::to_string(*set.reference) : "") + " ";
    const auto tip = std::find_if(sets.begin(), sets.end(), [](const NodeSet& set) { return set.name == "TIP"; });
    ASSERT_NE(tip, sets.end()) << names;
    EXPECT_EQ(tip->nodes, 8U);
    EXPECT_EQ(tip->center, (std::array<double, 3>{60, 0, 0}));
    EXPECT_EQ(tip->from, (std::array<double, 3>{60, -10, -5}));
    EXPECT_EQ(tip->to, (std::array<double, 3>{60, 10, 5}));
    EXPECT_EQ(std::count(names.begin(), names.end(), '>'), 2) << names; // the ties
}

static void add_row(MatrixXd& rows, const VectorXd& row)
{
    rows.conservativeResize(rows.rows() + 1, row.size());
    rows.bottomRows<1>() = row.transpose();
}

static MatrixXd null_space(const MatrixXd& rows)
{
    const Eigen::ColPivHouseholderQR<MatrixXd> qr(rows.transpose());
    return MatrixXd(qr.householderQ()).rightCols(rows.cols() - qr.rank());
}

// The least of the solutions, where there are many.
static MatrixXd solve(const MatrixXd& matrix, const MatrixXd& sides)
{
    return matrix.completeOrthogonalDecomposition().solve(sides);
}

namespace
{
// The full model with all interfaces, unknowns (u, q): A (u, q) = 0.
struct Full
{
    MatrixXd k, m, a, joined; // joined (u, q): the freedoms that join
    MatrixXd all;             // the rows of both
    Index rows;

    Full(const Model& model, const std::vector<Interface>& interfaces)
        : k(dense(model.matrices->stiffness)), m(dense(model.matrices->mass)), rows(k.rows())
    {
        const Index order = rows + 6 * Index(interfaces.size());
        Index q = rows;
        for (const Interface& interface : interfaces)
        {
            MatrixXd mean = MatrixXd::Zero(6, order);
            for (Index i = 0; i < rows; ++i)
            {
                const auto [node, component] = model.matrices->rows[size_t(i)];
                const auto at = std::find(interface.tied.begin(), interface.tied.end(), node);
                if (at == interface.tied.end())
                    continue;
                const Eigen::RowVectorXd g =
                    rigid_motion(model.moved_mesh().nodes[size_t(node)].at, interface.at).row(component);
                VectorXd row = VectorXd::Unit(order, i);
                row.segment<6>(q) = -g.transpose();
                if (interface.kind == InterfaceKind::rigid)
                    add_row(a, row);
                else
                    mean += interface.weights[size_t(at - interface.tied.begin())] * g.transpose() * row.transpose();
            }
            for (int c = 0; c < 6 && interface.kind == InterfaceKind::average; ++c)
                add_row(a, mean.row(c));
            for (int c : interface.components())
                add_row(joined, VectorXd::Unit(order, q + c));
            q += 6;
        }
        all.resize(a.rows() + joined.rows(), order);
        all << a, joined;
    }

    // Orthonormal displacements without motion of what joins.
    MatrixXd held() const
    {
        const Eigen::ColPivHouseholderQR<MatrixXd> span(null_space(all).topRows(rows)); // without q that moves no node
        return MatrixXd(span.householderQ()).leftCols(span.rank());
    }

    MatrixXd boundary_stiffness() const
    {
        MatrixXd sides = MatrixXd::Zero(all.rows(), joined.rows());
        sides.bottomRows(joined.rows()).setIdentity();
        MatrixXd u = solve(all, sides).topRows(rows);
        const MatrixXd z = held();
        u -= z * solve(z.transpose() * k * z, z.transpose() * k * u);
        return u.transpose() * k * u;
    }

    // Static displacements under forces at (u, q) with what joins held.
    VectorXd answer(const VectorXd& forces) const
    {
        const MatrixXd z = null_space(all), u = z.topRows(rows);
        return u * solve(u.transpose() * k * u, z.transpose() * forces);
    }
};
} // namespace

// Static answers at the interfaces, fixed-interface modes and all shapes, beside an independent dense solution.
TEST(Interfaces, AnswerAsTheFullModelDoes)
{
    constexpr int kCompared = 5;
    const std::tuple<const char*, std::vector<std::string>, int, int> cases[] = {
        {"small", {"ROOT@0,0,0", "TIP@70,4,20:average"}, 12, 0},
        {"small", {"ROOT:average", "TIP:average"}, 12, 0},
        {"small", {"ROOT@0,0,0", "TIP@60,0,0"}, 12, 0},
        {"small", {"TIP@60,0,0:xyz"}, 3, 3}, // one ball joint
        {"small", {"ROOT:xyz", "TIP:xyz:average"}, 6, 1},
        {"small", {"ROOT:xyr", "TIP:average:zst"}, 6, 0},
        {"small", {"ROOT", "ids=33:xyz", "ids=36:xyz:average"}, 12, 0},
        {"small", {"ids=1,12,4:average:xyzrt", "TIP:rigid"}, 11, 0}, // on a line along y
        {"strip", {"ROOT:average"}, 6, 0},
        {"strip", {"ROOT:xyz"}, 3, 3},
    };
    for (const auto& [job, texts, constraint, rigid] : cases)
    {
        SCOPED_TRACE(std::string(job) + " " + texts[0]);
        const Model model = read_model(kSmall + job);
        std::vector<Interface> interfaces = choose_interfaces(model, in_millimetres(0, texts));
        if (model.layers)
            interfaces = expanded(*model.layers, interfaces);
        check_interfaces(model, interfaces);
        const MatrixXd load = VectorXd::Unit(Index(model.matrices->rows.size()), 40),
                       moments = MatrixXd::Ones(6 * Index(interfaces.size()), 1);
        const Reduction body = reduce_craig_bampton(model, interfaces, kCompared, silent, load, moments);
        ASSERT_EQ(body.boundary_count, constraint);
        ASSERT_EQ(body.rigid_count, rigid);
        const Full full(model, interfaces);
        const MatrixXd expected = full.boundary_stiffness(), own = body.stiffness.topLeftCorner(constraint, constraint),
                       z = full.held();
        const MatrixXd moved = body.motion.leftCols(constraint).cwiseAbs(), // where all stiffness is zero
            rounding = 1e-12 * moved.transpose() * full.k.cwiseAbs() * moved;
        EXPECT_LT((own - expected).cwiseAbs().maxCoeff(), 1e-8 * expected.cwiseAbs().maxCoeff() + rounding.maxCoeff());
        const VectorXd values = body.stiffness.diagonal().tail(body.stiffness.rows() - constraint);
        const double shift = values[kCompared]; // as the mass matrix is singular
        const MatrixXd mass = z.transpose() * full.m * z;
        const VectorXd inverse = generalized_eigenvalues(mass, z.transpose() * full.k * z + shift * mass);
        for (Index i = 0; i < rigid + kCompared; ++i)
            EXPECT_NEAR(values[i], 1 / inverse[inverse.size() - 1 - i] - shift, 1e-8 * shift);
        MatrixXd shapes(full.a.cols(), body.motion.cols());
        shapes << body.motion, body.reference_motion;
        EXPECT_LT((full.a * shapes).cwiseAbs().maxCoeff(),
                  1e-8 * shapes.cwiseAbs().maxCoeff() * full.a.cwiseAbs().maxCoeff());
        EXPECT_TRUE((full.joined * shapes).isIdentity(1e-12)) << full.joined * shapes;
        VectorXd forces(shapes.rows());
        forces << load, moments;
        const Index fixed = kCompared + body.attachment_count;
        const VectorXd amplitudes = body.stiffness.diagonal().tail(fixed).cwiseInverse().cwiseProduct(
            shapes.rightCols(fixed).transpose() * forces);
        EXPECT_TRUE(rigid > 0 || // a motion without end
                    relative(body.motion.rightCols(fixed) * amplitudes, full.answer(forces)) < 1e-8);
        EXPECT_LT(relative(body.motion.transpose() * full.m * body.motion, body.mass), 1e-8);
        EXPECT_LT(relative(body.motion.transpose() * full.k * body.motion, body.stiffness), 1e-8);
    }
}

// The solver has spread the load over the wall of the bore as its *DISTRIBUTING does, with the other bore held.
TEST(Interfaces, BoreThatIsFreeToDeformAnswersAsTheSolverSays)
{
    double work[2], frequency[2];
    VectorXd load(6);
    load << 300, 500, 1000, 4000, -3000, 2000;
    for (const bool average : {false, true})
    {
        const std::string kind = average ? "average" : "rigid", small = "SMALL@150,0,0:" + kind;
        const ReducedBody moving = reduce_job(kRod, in_millimetres(20, {"LARGE@0,0,0:" + kind, small})),
                          held = reduce_job(kRod, in_millimetres(0, {"LARGE@0,0,0", small}));
        EXPECT_TRUE(moving.report.all_hold());
        frequency[average] = eigenvalues_of(moving)[6];
        const Body& body = *held.body;
        const VectorXd q = body.stiffness.bottomRightCorner(6, 6).ldlt().solve(load);
        work[average] = load.dot(q);
        if (!average)
            continue;
        double largest = 0.0, worst = 0.0;
        const auto steps = ccx::read_printed_steps(kSmall + "rod_loaded.dat");
        for (const auto& [id, printed] : steps[0].displacements)
        {
            const Vector3d u = body.motion.rightCols(6).middleRows<3>(3 * find_node(body.mesh, id)) * q;
            largest = std::max(largest, u.norm());
            worst = std::max(worst, (u - Vector3d(printed.v[0], printed.v[1], printed.v[2])).norm());
        }
        EXPECT_GT(largest, 0.5);
        EXPECT_LT(worst, 2e-6 * largest); // seven digits are printed
    }
    EXPECT_NEAR(std::sqrt(frequency[true]) / (2 * std::numbers::pi), 1236.78, 0.5); // as without interfaces
    EXPECT_GT(frequency[false], 1.01 * frequency[true]);
    EXPECT_GT(work[true], 1.001 * work[false]);
}

TEST(Interfaces, SayWhatIsLeftUndetermined)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"ids=1,12,4:average"}, "lie on one line, which leaves a rotation free"},
        {{"ids=1,12,4@5,0,0:average:xyzrt"}, "lie on one line"}, // the reference node swings round the line
        {{"ids=33:average"}, "its only node 33 has no rotation of its own"},
        {{"ids=33@0,0,0:xyz"}, "its only node 33 has no rotation of its own"},
        {{"ROOT:average", "ids=1:xyz"}, "node 1 belongs to another interface as well"},
    };
    expect_refused(cases, [](const auto& texts) { reduce_job(kSmall + "small", in_millimetres(1, texts)); });
}
