// Pieces that springs, equations and ties join: bodies of matrices move all nodes as the solver's own modes do, or are refused.
#include <numbers>

#include "checks/checks.h"
#include "fem/sources/ccx/element_types.h"
#include "fem/sources/ccx/frd.h"
#include "models.h"

constexpr int kModes = 6; // flexible ones that are compared

// The modes as JOB_modes.frd has them, with six or seven digits: without the rigid ones, in the mesh's order of nodes.
struct Solved
{
    std::vector<double> hertz;
    MatrixXd motion; // zero at nodes of no element

    // `own` nodes of the mesh have numbers of the deck; those behind them are the solver's own, in its order, or, between
    // plies, where they lie. Nodes that it does not print are not `used`.
    Solved(const std::string& job, const Mesh& mesh, size_t own, std::vector<char>& used)
    {
        const ccx::FrdFile frd = ccx::read_frd(job + "_modes.frd");
        for (size_t k = 0; k < kModes; ++k)
            hertz.push_back(frd.solutions.at(6 + k).value);
        motion = MatrixXd::Zero(3 * Index(mesh.nodes.size()), kModes);
        const auto first = frd.node_ids.begin();
        const Index made = std::upper_bound(first, frd.node_ids.end(), mesh.nodes[own - 1].id) - first;
        const bool plies = frd.coordinates.cols() > Index(mesh.nodes.size());
        for (size_t i = 0; i < mesh.nodes.size(); ++i)
        {
            Index at = i < own ? std::find(first, frd.node_ids.end(), mesh.nodes[i].id) - first : made + Index(i - own);
            for (at = plies && i >= own ? made : at; plies && at < frd.coordinates.cols(); ++at)
                if ((frd.coordinates.col(at) - mesh.nodes[i].at).norm() < 1e-4)
                    break;
            used[i] = char(used[i] && at < frd.coordinates.cols()); // those of masses alone are not printed
            if (!used[i])                                           // in the middle of layers
                continue;
            EXPECT_LE((frd.coordinates.col(at) - mesh.nodes[i].at).norm(), 1e-4);
            for (int k = 0; k < kModes; ++k)
                motion.col(k).segment<3>(3 * Index(i)) = frd.solutions[size_t(6 + k)].displacement.segment<3>(3 * at);
        }
    }
};

static ReducedBody by_matrices(const std::string& deck, const ReductionOptions& options = in_millimetres(kModes))
{
    return reduce_job(deck, options, ccx::Route::matrices);
}

static bool is_fit(const ReducedBody& reduced)
{
    TemporaryFolder folder;
    const std::string path = folder.path("body.zel");
    write_body(reduced, path, "full_invar", silent);
    ZELDATA* db = ZEL_CreateFromZEL(path.c_str());
    return db && zel_checks::check_body(db).all_hold();
}

class Joined : public testing::TestWithParam<const char*>
{};

TEST_P(Joined, BodiesMoveAllNodesAsTheSolverDoes)
{
    const Model model = read_model(kSmall + GetParam());
    const Mesh& mesh = model.moved_mesh();
    const Reduction reduction = reduce_free(model, kModes, silent, {}, {});
    MatrixXd motion = node_motion(model, reduction).displacement.rightCols(kModes);
    std::vector<char> used = used_nodes(mesh);
    for (const LayeredNode& n : model.layers ? model.layers->nodes : std::vector<LayeredNode>())
        used[size_t(n.node)] &= char(!n.is_hung()); // the solver prints a mean of the layers there
    const Solved solved(kSmall + GetParam(), mesh, model.mesh.nodes.size(), used);
    EXPECT_GT(std::count(used.begin(), used.end(), char(1)), std::ptrdiff_t(model.mesh.nodes.size()) / 2);
    for (size_t i = 0; i < used.size(); ++i)
        motion.middleRows<3>(3 * Index(i)) *= double(used[i]);
    for (int k = 0; k < kModes; ++k)
    {
        const double hertz = std::sqrt(reduction.stiffness(6 + k, 6 + k)) / (2 * std::numbers::pi);
        EXPECT_NEAR(hertz, solved.hertz[size_t(k)], 1e-6 * hertz);
        const VectorXd own = motion.col(k), theirs = solved.motion.col(k);
        EXPECT_LE(relative(theirs * (theirs.dot(own) / theirs.squaredNorm()), own), 1e-5) << "mode " << 7 + k;
    }
    const bool incompatible = std::any_of(mesh.elements.begin(), mesh.elements.end(),
                                          [](auto& e) { return ccx::incompatible_nodes(*e.type) > 0; });
    const ReducedBody reduced = by_matrices(kSmall + GetParam());
    EXPECT_TRUE(reduced.report.all_hold()) << told(reduced);
    const bool lines = std::any_of(mesh.elements.begin(), mesh.elements.end(), [](auto& e) { return e.width > 0; });
    EXPECT_TRUE(is_fit(reduced) || !(lines || model.layers)); // few nodes of solids make coarse masses
    // The solver prints nodes between plies, and none that a shell shares with a mass alone.
    if (GetParam() == std::string("laminate") || GetParam() == std::string("hung"))
        return;
    // and by results, which need to know nothing of what joins the pieces
    const ReducedBody given = reduce_job(kSmall + GetParam() + "_modes", in_millimetres(kModes), ccx::Route::results);
    EXPECT_TRUE(is_fit(given) || !(lines || model.layers || !given.body->invariants[0].empty()));
    EXPECT_LE((eigenvalues_of(given).segment(6, kModes).array() / eigenvalues_of(reduced).tail(kModes).array() - 1)
                  .abs()
                  .maxCoeff(),
              1e-5);
    // the inertia of each mode, by the mass of the elements and by the matrix
    const std::vector<double>&by_elements = given.body->invariants[8], &by_matrix = reduced.body->invariants[8];
    EXPECT_EQ(by_elements.empty(), lines || incompatible) << GetParam();
    for (Index k = 6; k < 6 + kModes && !by_elements.empty() && !model.layers; ++k)
    {
        const VectorXd one = VectorXd::Map(&by_elements[size_t(9 * (given.body->motion.cols() + 1) * k)], 9);
        const VectorXd other = VectorXd::Map(&by_matrix[size_t(9 * (reduced.body->motion.cols() + 1) * k)], 9);
        EXPECT_LE((one - other).norm(), 2e-5) << k; // of modes of unit mass
    }
    const MatrixXd &turn = given.body->rotation, &own_turn = reduced.body->rotation;
    EXPECT_TRUE(turn.cols() == 0 || own_turn.cols() == 0 ||
                relative(turn.middleCols(6, kModes).cwiseAbs(), own_turn.rightCols(kModes).cwiseAbs()) < 1e-4);
}

INSTANTIATE_TEST_SUITE_P(, Joined,
                         testing::Values("sprung", "hanging", "tied_faces", "skew_beam", "frame", "fold", "stiffened",
                                         "hung", "laminate", "facets", "hook"));

// A force on a node without rows does the work of its own displacement, and a dashpot that of the speed between its nodes.
TEST(JoinedBodies, HaveLoadsAndDampingByTheMotionOfTheirNodes)
{
    const ReducedBody hanging = by_matrices(
        kSmall + "hanging", in_millimetres(kModes, {}, {"HELD=ids=108:1,2,3", "FACE=ids=101,108,115:0,0,5"}));
    const Index held = 3 * find_node(hanging.body->mesh, 108);
    const VectorXd work = hanging.body->motion.middleRows<3>(held).transpose() * Vector3d(1, 2, 3);
    EXPECT_LE(relative(hanging.body->loads[0].values, work), 1e-12);

    const ReducedBody sprung = by_matrices(kSmall + "sprung");
    const Mesh& mesh = sprung.body->mesh;
    std::vector<char> used = used_nodes(mesh);
    const Solved solved(kSmall + "sprung", mesh, mesh.nodes.size(), used);
    const auto motion = [&](int node) { return solved.motion.middleRows<3>(3 * find_node(mesh, node)); };
    const Vector3d line = Vector3d(10, -7, -5).normalized(); // from node 28 to node 101
    const MatrixXd parting = line.transpose() * (motion(101) - motion(28));
    const MatrixXd expected = 0.25 * parting.transpose() * parting; // printed modes have unit generalized mass
    const MatrixXd damping = sprung.body->damping.bottomRightCorner(kModes, kModes);
    EXPECT_LE(relative(damping.cwiseAbs(), expected.cwiseAbs()), 1e-4);
    EXPECT_LE(relative(damping.diagonal(), expected.diagonal()), 1e-4);
    TemporaryFolder folder;
    const std::string path = folder.path("sprung.zel");
    EXPECT_THROW(write_body(sprung, path, "full_invar", silent, parse_damping("0.02")), std::runtime_error);
    write_body(sprung, path, "full_invar", silent);
    ZELDATA* db = ZEL_CreateFromZEL(path.c_str());
    MatrixXd c(6 + kModes, 6 + kModes);
    ASSERT_TRUE(ZEL_GenDampFull(db, c.data(), 6 + kModes));
    EXPECT_LE(relative(c.diagonal().tail(kModes), damping.diagonal()), 1e-6);
}

// Shells, solids and beams have nodes in common, which the deck loads or holds in all freedoms: statics by the solver.
TEST(JoinedBodies, BearLoadsAndInterfacesAtNodesOfShellsAndSolids)
{
    const std::pair<const char*, const char*> cases[] = {{"hung_loaded", "ids=2,3,10,21,22,25,26,27"},
                                                         {"hung_held", "ids=5,6,7,8,14"}};
    TemporaryFolder folder;
    for (const auto& [job, held] : cases)
    {
        copy_matrices("hung", folder.path(job));
        std::filesystem::copy_file(kSmall + job + ".inp.gz", folder.path(std::string(job) + ".inp.gz"));
        ReductionOptions options = in_millimetres(2, {held});
        options.attachment = true;
        const ReducedBody reduced = by_matrices(folder.path(job), options);
        EXPECT_TRUE(reduced.report.all_hold()) << told(reduced);
        ASSERT_EQ(reduced.body->loads.size(), 1u);
        const VectorXd answer = static_answer(*reduced.body, 6, 0);
        const ccx::FrdFile frd = ccx::read_frd(kSmall + job + ".frd");
        const VectorXd& expected = frd.solutions.at(0).displacement;
        const Layers layers = read_model(kSmall + "hung").layers.value();
        const auto given = [&](int node) { // by its place: the layers have numbers of the solver's own
            const auto off = (frd.coordinates.colwise() - layers.mesh.nodes[size_t(node)].at).colwise().norm();
            Index at = 0;
            EXPECT_LE(off.minCoeff(&at), 1e-4);
            return Vector3d(expected.segment<3>(3 * at));
        };
        for (int node = 0; node < int(layers.layers_of_node.size()); ++node)
        {
            const int layered = layers.layers_of_node[size_t(node)];
            const std::vector<int> outer = layered < 0 ? std::vector{node} : layers.nodes[size_t(layered)].outer;
            Vector3d mean = Vector3d::Zero();
            for (int one : outer)
                mean += given(one) / double(outer.size());
            EXPECT_LE((answer.segment<3>(3 * Index(node)) - mean).norm(), 1e-5 * expected.cwiseAbs().maxCoeff())
                << job << " " << layers.mesh.nodes[size_t(node)].id;
        }
    }
}

// Beside the zeros that it stores the solver's matrices are those of the deck without dashpots. Forces along them do the work.
TEST(JoinedBodies, AreDampedAtNodesOfShellsAndSolids)
{
    TemporaryFolder folder;
    std::string deck = text_of(kSmall + "hung.inp");
    deck.insert(deck.find("*STEP"), "*ELEMENT, TYPE=DASHPOTA, ELSET=DAMPERS\n17, 36, 21\n18, 48, 6\n19, 50, 46\n"
                                    "*DASHPOT, ELSET=DAMPERS\n\n0.25\n");
    copy_matrices("hung", folder.path("hung"));
    const std::vector<std::string> along = {"A=ids=36:8,4,6",  "a=ids=21:-8,-4,-6",   "B=ids=48:-17,8,-6",
                                            "b=ids=6:17,-8,6", "C=ids=50:-22,-4,3.5", "c=ids=46:22,4,-3.5"};
    const ReducedBody reduced = by_matrices(write_file(folder, "hung.inp", deck), in_millimetres(kModes, {}, along));
    const double squares[] = {116, 389, 512.25}; // of the lengths
    MatrixXd expected = MatrixXd::Zero(6 + kModes, 6 + kModes);
    for (size_t i = 0; i < 3; ++i)
    {
        const VectorXd work = reduced.body->loads[2 * i].values + reduced.body->loads[2 * i + 1].values;
        expected += 0.25 * work * work.transpose() / squares[i];
    }
    EXPECT_GT(expected.diagonal().tail(kModes).minCoeff(), 0.0);
    EXPECT_LE(relative(reduced.body->damping, expected), 1e-12);
}

TEST(JoinedBodies, AreRefusedWhereAConstraintIsNotProved)
{
    TemporaryFolder folder;
    const auto copy = [&](const std::string& job, const std::string& old, const std::string& put) {
        std::string deck = text_of(kSmall + job + ".inp");
        const size_t found = deck.find(old);
        EXPECT_NE(found, std::string::npos) << old;
        deck.replace(found, old.size(), put);
        copy_matrices(job, folder.path(job));
        return write_file(folder, job + ".inp", deck);
    };
    const std::string half = "101, 1, 1., 7, 1, -1.0",
                      sorry = " does not follow rigid motions of the body: the constraint";
    const std::tuple<std::string, std::string, std::string, std::string> faults[] = {
        {"hanging", half, "101, 1, 1., 7, 1, -1.1", "node 101" + sorry},
        {"hanging", half, "101, 1, 1., 6, 1, -1.0", "node 101" + sorry}, // keeps frequencies, mass and translations
        {"hanging", half, "101, 1, 0., 7, 1, -1.0", "the equations leave displacements undetermined"},
        {"hanging", half, "1, 1, 1., 7, 1, -1.0", "the equations leave displacements undetermined"},
        {"hanging", "*EQUATION\n", "*EQUATION\n2\n1, 1, 1., 2, 1, -1.\n", "the constraint is not in the matrices"},
        {"hanging", "*EQUATION\n", "*EQUATION\n2\n1, 4, 1., 2, 4, -1.\n",
         "*EQUATION between other than the components"},
        {"hanging", "*STEP", "*TRANSFORM, NSET=JOINT, TYPE=R\n1,0,0,0,1,0\n*STEP",
         "*TRANSFORM comes behind an *EQUATION"},
        {"hanging", "*STEP", "*MPC\nPLANE, 1, 2, 3, 4\n*STEP", "*MPC is not linear"},
        {"sprung", "*SPRING, ELSET=AXIAL", "*SPRING, NONLINEAR, ELSET=AXIAL", "*SPRING with NONLINEAR"},
        {"tied_faces", "*TIE, NAME=JOINT\n", "*TIE, NAME=JOINT, MULTISTAGE\n", "*TIE with MULTISTAGE"},
        {"tied_faces", "FINE, COARSE", "FINE, ROUGH", "there is no surface of faces ROUGH"},
        {"stiffened", "14, 20, 0, 5", "14, 20, 1, 5", "a truss of three nodes must be straight"},
        {"stiffened", "16.", "0.", "the area of truss 3 is not positive"},
        {"stiffened", "8, 7, 13", "8, 8, 13", "node 8 of a truss has other"},
        {"laminate", "1.6e-9", "1.7e-9", "the plies of a composite shell differ in density"},
        {"hung", "*ELEMENT, TYPE=B31, ELSET=STUB",
         "*ELEMENT, TYPE=B31, ELSET=BEAM\n99, 39, 50\n*ELEMENT, TYPE=B31, ELSET=STUB",
         "or of one without middle nodes"},
        {"tied_faces", "2, S4", "1, S4", "node 101 has no freedoms in the matrices"}, // far from the nodes
    };
    for (const auto& [job, old, put, expected] : faults)
    {
        const std::string deck = copy(job, old, put);
        EXPECT_PRED2(contains, complaint([&] { by_matrices(deck, in_millimetres(3)); }), expected);
    }
    // mechanisms: two bars, which no force keeps from moving across them, and two bricks on a common edge
    EXPECT_PRED2(contains, complaint([&] { by_matrices(kSmall + "scissors"); }), "the model is a mechanism");
    const ReducedBody hinge = by_matrices(kSmall + "hinge");
    EXPECT_FALSE(hinge.report.all_hold());
    EXPECT_PRED2(contains, told(hinge), "7 motions, not six, meet hardly any stiffness");
    // what nodes with axes of their own carry: by 2 away from the axis z, by 3 around it, at (60, 7)
    const auto turned = [&](const std::string& axis) {
        copy("sprung", "*STEP",
             "*NSET, NSET=END\n28\n*TRANSFORM, NSET=END, TYPE=C\n" + axis +
                 "\n*STEP\n*STATIC\n*CLOAD\n28, 1, 2.\n28, 2, 3.\n*END STEP\n*STEP");
        return read_model(folder.path("sprung"));
    };
    const Model model = turned("0, 0, 0, 0, 0, 1");
    Vector3d force = Vector3d::Zero();
    for (const LoadCase::Nodal& one : model.load_cases.at(0).nodal)
        force[one.component] += model.mesh.nodes[size_t(one.node)].id == 28 ? one.value : NAN;
    EXPECT_LE((force - (2 * Vector3d(60, 7, 0) + 3 * Vector3d(-7, 60, 0)) / std::hypot(60, 7)).norm(), 1e-14);
    EXPECT_PRED2(contains, complaint([&] { turned("60, 7, 0, 60, 7, 1"); }), "lies on the axis");
    const auto tied = [](const char* nodes) { by_matrices(kSmall + "hanging", in_millimetres(3, {nodes})); };
    EXPECT_PRED2(contains, complaint([&] { tied("ids=101,102,103,110"); }), "node 101 of the interface");
    EXPECT_EQ(complaint([&] { tied("ids=7,14,21,28,101,108,115,122,129,136"); }), "");
}
