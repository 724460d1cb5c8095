// Import of CalculiX jobs: elements and bodies against closed forms, the two routes against each other, damage of all kinds.
#include <numbers>

#include "checks/checks.h"
#include "fem/figures.h"
#include "fem/rigid.h"
#include "fem/sources/ccx/dat.h"
#include "fem/sources/ccx/element_types.h"
#include "fem/sources/ccx/results.h"
#include "fem/sources/ccx/rows.h"
#include "fem/sources/ccx/shells.h"
#include "models.h"

using namespace zel_fem::ccx;
using zel_checks::format;

constexpr Shape kShapes[] = {Shape::tet4,  Shape::tet10, Shape::wedge6, Shape::wedge15, Shape::hex8,
                             Shape::hex20, Shape::tri3,  Shape::tri6,   Shape::quad4,   Shape::quad8};
constexpr const char* kNames[] = {"C3D4", "C3D10", "C3D6", "C3D15", "C3D8", "C3D20", "S3", "S6", "S4", "S8"};

// One element of every type under an affine map with determinant 24.
static Mesh mapped_element(size_t which)
{
    Eigen::Matrix3d map;
    map << 2, 1, 0, 0, 3, 1, 0, 0, 4;
    Mesh mesh;
    mesh.files = {"mapped.inp"};
    Element element{.id = 7, .type = find_element_type(kNames[which]), .density = 2.0, .thickness = 0.5, .line = 3};
    const auto& at = node_positions(kShapes[which]);
    for (Index i = 0; i < at.cols(); ++i)
    {
        mesh.nodes.push_back({int(i) + 1, map * at.col(i) + Vector3d(1, -2, 5)});
        element.nodes[size_t(i)] = int(i);
    }
    mesh.elements = {element};
    return mesh;
}

TEST(Elements, TurnAtEveryNodeWithARigidRotation)
{
    const Vector3d turn(0.3, -0.2, 0.5);
    for (size_t which = 0; which < std::size(kNames); ++which)
    {
        const Mesh mesh = mapped_element(which);
        const Eigen::Matrix3Xd motion = places(mesh).colwise().cross(-turn);
        EXPECT_LT((node_rotations(mesh, motion.reshaped()) - turn.replicate(motion.cols(), 1)).norm(), 1e-12)
            << kNames[which];
    }
}

TEST(Elements, HaveTheMassOfTheirVolumeAndAClosedSkin)
{
    const double volume[] = {4, 4, 24, 24, 192, 192}; // 1/6, 1 and 8 local units
    for (size_t which = 0; which < 6; ++which)
    {
        const Mesh mesh = mapped_element(which);
        const ElementMass mass = element_mass(mesh, mesh.elements[0]);
        EXPECT_NEAR(mass.volume, volume[which], 1e-10) << kNames[which];
        EXPECT_NEAR(mass.consistent.sum(), 2 * volume[which], 1e-10);
        EXPECT_NEAR((mass.consistent - mass.consistent.transpose()).norm(), 0.0, 1e-12);
        // second moments once by quadrature of x x^T, once as X M X^T
        const Eigen::Matrix3Xd at = places(mesh);
        EXPECT_NEAR((at * mass.consistent * at.transpose() - mass.moments.second).norm(), 0.0, 1e-9);
        double enclosed = 0.0; // tetrahedra from the origin to the triangles of the skin, outward
        for (const Face& face : skin(mesh))
            for (size_t i = 1; i + 1 < face.size(); ++i)
                enclosed += at.col(face[0]).dot(Vector3d(at.col(face[i])).cross(Vector3d(at.col(face[i + 1])))) / 6;
        EXPECT_NEAR(enclosed, volume[which], 1e-10) << kNames[which];
    }
    // of a tetrahedron: V/20 (sum x x^T + (sum x)(sum x)^T)
    const Mesh tet = mapped_element(0);
    const Eigen::Matrix3Xd at = places(tet);
    const Vector3d sum = at.rowwise().sum();
    const Eigen::Matrix3d expected = 2.0 * 4.0 / 20.0 * (at * at.transpose() + sum * sum.transpose());
    EXPECT_NEAR((element_mass(tet, tet.elements[0]).moments.second - expected).norm(), 0.0, 1e-9);
}

TEST(Elements, ThatAreInsideOutNameTheirLine)
{
    Mesh mesh = mapped_element(5);
    std::swap(mesh.elements[0].nodes[0], mesh.elements[0].nodes[4]);
    EXPECT_EQ(complaint([&] { element_mass(mesh, mesh.elements[0]); }),
              "mapped.inp:3: element 7 (C3D20) has a Jacobian that is not positive");
    Mesh tet = mapped_element(1);
    std::swap(tet.elements[0].nodes[8], tet.elements[0].nodes[9]);
    EXPECT_PRED2(contains, complaint([&] { element_mass(tet, tet.elements[0]); }), "mid-side nodes are exchanged");
}

TEST(NodalMasses, AreCorrectedToTheInertiaOfTheBody)
{
    const Deck deck = read_deck(kExamples + "cantilever.inp");
    const MeshMass mass = mesh_mass(deck.mesh);
    EXPECT_NEAR(mass.moments.mass, 7.85e-9 * 1000 * 40 * 20, 1e-14);
    const Eigen::Matrix3d target = mass.moments.inertia(mass.moments.center());
    EXPECT_NEAR(target(0, 0), mass.moments.mass * (40. * 40 + 20 * 20) / 12, 1e-10 * target(0, 0));
    auto inertia = [&](MassMethod method) {
        const NodalMasses nodes = nodal_masses(deck.mesh, mass, method, mass.moments);
        const std::vector<double>& masses = nodes.masses;
        EXPECT_EQ(nodes.left, 0.0);
        if (method != MassMethod::row_sum)
            EXPECT_GT(*std::min_element(masses.begin(), masses.end()), 0.0);
        else
            EXPECT_LT(*std::min_element(masses.begin(), masses.end()), 0.0); // corners of serendipity bricks
        const MassMoments moments = moments_of(deck.mesh, nodes);
        EXPECT_NEAR(moments.mass, mass.moments.mass, 1e-12 * moments.mass);
        return Eigen::Matrix3d(moments.inertia(mass.moments.center()));
    };
    EXPECT_NEAR((inertia(MassMethod::matched) - target).norm() / target(0, 0), 0.0, 1e-8);
    EXPECT_GT(inertia(MassMethod::scaled)(0, 0), 1.1 * target(0, 0));
    // squares of the coordinates are among the functions of the bricks, so that sums of rows are exact
    EXPECT_NEAR(inertia(MassMethod::row_sum)(0, 0), target(0, 0), 1e-10 * target(0, 0));
}

// A part of a tube in S8R, with coordinates of so many digits.
static Mesh panel(int along, int around, double angle, int digits)
{
    std::ostringstream deck;
    deck << std::fixed << std::setprecision(digits) << "*NODE\n";
    const auto id = [&](int i, int j) { return 1 + i + (2 * along + 1) * j; };
    for (int j = 0; j <= 2 * around; ++j)
        for (int i = 0; i <= 2 * along; ++i)
            if (const double phi = angle * j / (2 * around); i % 2 == 0 || j % 2 == 0)
                deck << id(i, j) << "," << 30.0 * i / along << "," << 30 * std::sin(phi) << "," << 30 * std::cos(phi)
                     << "\n";
    deck << "*ELEMENT,TYPE=S8R,ELSET=E\n";
    for (int j = 0; j < 2 * around; j += 2)
        for (int i = 0; i < 2 * along; i += 2)
        {
            deck << 1 + i + 1000 * j;
            for (const auto& [a, b] : {std::pair(0, 0), {2, 0}, {2, 2}, {0, 2}, {1, 0}, {2, 1}, {1, 2}, {0, 1}})
                deck << "," << id(i + a, j + b);
            deck << "\n";
        }
    deck << "*MATERIAL,NAME=M\n*DENSITY\n7.85e-9\n*SHELL SECTION,ELSET=E,MATERIAL=M\n1.5\n";
    const TemporaryFolder folder;
    return read_deck(write_file(folder, "panel.inp", deck.str())).mesh;
}

// Nodes on a cylinder, or all but on one, have some moments whatever their masses are; the rest goes to nodal inertias.
TEST(NodalMasses, OfPanelsHaveTheMomentsOfTheBody)
{
    for (const auto& [along, around, angle] :
         {std::tuple(5, 3, 1.2), {4, 2, 2.0}, {5, 3, 0.3}, {2, 6, 5.0}, {8, 3, 0.02}})
        for (const int digits : {2, 3, 5, 12})
        {
            const Mesh mesh = panel(along, around, angle, digits);
            const MeshMass mass = mesh_mass(mesh);
            const NodalMasses nodes = nodal_masses(mesh, mass, MassMethod::matched, mass.moments);
            const MassMoments found = moments_of(mesh, nodes);
            SCOPED_TRACE(testing::Message() << along << " x " << around << ", " << angle << ", " << digits);
            EXPECT_GT(*std::min_element(nodes.masses.begin(), nodes.masses.end()), 0.0);
            EXPECT_NEAR(found.mass / mass.moments.mass, 1.0, 1e-9);
            EXPECT_LT((found.center() - mass.moments.center()).norm(), 1e-8);
            EXPECT_LT((found.second - mass.moments.second).norm(), 1e-8 * mass.moments.second.norm());
            EXPECT_LT(nodes.left, 0.05);
        }
}

// What masses in a plane cannot have is no fault of theirs, but it is in the figure.
TEST(NodalMasses, TellHowFarTheCentreLiesBesideThePlane)
{
    Body body;
    body.mesh = panel(4, 2, 2.0, 12);
    const MeshMass mass = mesh_mass(body.mesh);
    body.nodes = nodal_masses(body.mesh, mass, MassMethod::matched, mass.moments);
    MassMoments target = mass.moments;
    const Vector3d center = target.center(), beside(0, 0, 1e-3); // some 3e-5 of the radius of gyration
    target.first += target.mass * beside;
    target.second += target.mass * (beside * center.transpose() + center * beside.transpose());
    for (const double apart : {0.0, 3e-5})
    {
        Report report;
        body.nodes.apart = apart;
        report_nodal_masses(report, body, target, MassMethod::matched);
        EXPECT_EQ(report.all_hold(), apart > 0.0);
        EXPECT_GT(report.rows().back().numbers.at(0).value, 1e-5);
    }
}

// The few points of the solver move the centre of a coarse panel: no fault of its matrices, unlike another centre.
TEST(NodalMasses, HaveTheCentreOfTheBodyWhereTheSolverMovesIt)
{
    const Mesh mesh = panel(4, 2, 2.0, 12);
    const MassMoments solver = solver_moments(mesh);
    for (const double wrong : {0.0, 1e-3})
    {
        Report report;
        MassMoments given = solver;
        given.first[2] += wrong * given.first.norm();
        report_mass(report, Units(), mesh_mass(mesh), given, solver, MassRule::of_types);
        EXPECT_EQ(report.all_hold(), wrong == 0.0);
        EXPECT_EQ(report.rows().back().kind, zel_checks::RowKind::note);
    }
}

static const std::string kTet = "*NODE\n1,0,0,0\n2,1,0,0\n3,0,1,0\n4,0,0,1\n*ELEMENT,TYPE=C3D4,ELSET=E\n9,1,2,3,4\n";
static const std::string kSteel = "*MATERIAL,NAME=M\n*DENSITY\n2.\n*SOLID SECTION,ELSET=E,MATERIAL=M\n";

TEST(Decks, AreReadAsTheSolverDoes)
{
    TemporaryFolder folder;
    write_file(folder, "nodes.inc", "4, 0., 0., 1.D+0\r\n** a comment\n 3, ,1,\n");
    const Deck deck =
        read_deck(write_file(folder, "job.inp",
                             "*heading\nA tetrahedron\n*Node, nset = all\n1\n2, 1.\n*INCLUDE, INPUT=nodes.inc\n"
                             "5, 5,5,5\n6, 6,6,6\n*ELEMENT, TYPE=C3D4,\n ELSET=E\n9, 1, 2,\n3, 4\n"
                             "*NSET, NSET=odd, GENERATE\n1, 2000000000, 2\n*NSET,NSET=mixed\nODD, 4,\n"
                             "*Surface, name=base\nE, S1\n*SURFACE, NAME=TOP, TYPE=NODE\n4\n"
                             "*COUPLING, REF NODE=5, SURFACE=BASE, CONSTRAINT NAME=C\n*KINEMATIC\n1, 3\n"
                             "*RIGID BODY, NSET=MIXED, REF NODE=5, ROT NODE=6\n" +
                                 kSteel + "*STEP\n*FREQUENCY, SOLVER = matrixstorage\n*END STEP\n"));
    EXPECT_EQ(deck.heading, "A tetrahedron");
    EXPECT_EQ(deck.mesh.nodes[3].at, Vector3d(0, 0, 1));
    EXPECT_EQ(deck.node_sets.at("ALL"), (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(deck.node_sets.at("MIXED"), (std::vector<int>{1, 3, 4, 5}));
    ASSERT_EQ(deck.ties.size(), 2u);
    EXPECT_EQ(deck.ties[0].node_ids, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(deck.ties[1].node_ids, (std::vector<int>{1, 3, 4})); // not the reference node
    EXPECT_EQ(deck.ties[1].rotation_id, 6);
    EXPECT_TRUE(deck.steps.at(0).stores_matrices);
    EXPECT_NEAR(mesh_mass(deck.mesh).moments.mass, 2.0 / 6, 1e-15);
    EXPECT_EQ(deck.mesh.place(deck.mesh.elements[0]).line, 11);
}

TEST(Decks, PassOverWhatTheSolverPassesOver)
{
    TemporaryFolder folder;
    const Deck deck = read_deck(write_file(
        folder, "job.inp",
        "*NODE\n1,0,0,0\n2,1,0,0\n3,0,1,0\n4,0,0,1\n*ELEMENT,TYPE=C3D4,ELSET=E\n9,1,2,3,4,1,2\n*NSET,NSET=1A\n1,88\n"
        "*NSET,NSET=B\n1A,3\n" +
            kSteel));
    EXPECT_EQ(deck.node_sets.at("B"), (std::vector<int>{1, 3}));
    EXPECT_EQ(deck.mesh.elements[0].nodes[4], 0);
    ASSERT_EQ(deck.notes.size(), 2u);
    EXPECT_PRED2(contains, deck.notes[0], "job.inp:7: an element of type C3D4 has 4 nodes: the others");
    EXPECT_PRED2(contains, deck.notes[1], "job.inp:9: node 88 is not defined: it is left out");
}

TEST(Decks, ThatCannotBeImportedNameFileAndLine)
{
    const std::pair<std::string, std::string> faults[] = {
        {"1, 2\n", "job.inp:1: data before the first keyword"},
        {"*NODE\n1, x\n", "job.inp:2: \"x\" is not a number"},
        {"*NODE\n1.5, 0\n", "job.inp:2: \"1.5\" is not a whole number"},
        {"*NODE\n1, 1e999\n", "job.inp:2: \"1e999\" is not a number"},
        {"*NODE\n-4, 0\n", "job.inp:2: node number -4 is not positive"},
        {"*NODE\n1,0,0,0\n", "job.inp: the deck has no elements"},
        {"*ELEMENT\n", "job.inp:1: *ELEMENT without TYPE="},
        {"*ELEMENT,TYPE=B31R\n", "job.inp:1: elements of type B31R cannot be imported"},
        {"*ELEMENT,TYPE=C3D4\n1,1,2\n", "job.inp:2: an element of type C3D4 has 4 nodes, not 2"},
        {kTet + "9,1,2,3,4\n", "job.inp:8: element 9 is defined twice"},
        {kTet + "8,1,2,3,77\n" + kSteel, "job.inp:8: element 8: node 77 is not defined"},
        {kTet, "job.inp:7: element 9 has no section"},
        {kTet + "*SOLID SECTION,ELSET=E,MATERIAL=M\n", "job.inp:8: there is no material named M"},
        {kTet + "*MATERIAL,NAME=M\n*SOLID SECTION,ELSET=E,MATERIAL=M\n", "job.inp:9: the material M has no *DENSITY"},
        {kTet + "*MATERIAL,NAME=M\n*DENSITY\n-1\n", "job.inp:10: the density is negative"},
        {kTet + "*EQUATION\n3\n1,1,1.,2,1,-1.\n", "job.inp:9: the equation has 2 terms"},
        {kTet + "*ELEMENT,TYPE=SPRING1\n", "job.inp:8: an element of type SPRING1 holds a node to the ground"},
        {kTet + "*DASHPOT,ELSET=E\n\n1\n", "job.inp:8: element 9 is not of type DASHPOTA"},
        {kTet + "*DASHPOT,ELSET=E\n\n-1\n", "job.inp:10: the constant of a dashpot is negative"},
        {kTet + "*TRANSFORM,NSET=A\n", "job.inp:8: *TRANSFORM without two points"},
        {kTet + "*NSET,NSET=A\n1,B\n", "job.inp:9: there is no node set named B"},
        {kTet + "*NSET,NSET=A\n1,88\n*NODE\n88,5\n" + kSteel, "job.inp:9: node 88 is named before it is defined"},
        {kTet + "*NODAL THICKNESS\nA,4\n", "job.inp:8: *NODAL THICKNESS cannot be imported"},
        {kTet + "*NORMAL\n9,1,0,0,1\n", "job.inp:8: *NORMAL cannot be imported"},
        {kTet + "*SHELL SECTION,ELSET=E,MATERIAL=M,OFFSET=0.5\n1\n",
         "job.inp:8: shells with OFFSET cannot be imported"},
        {kTet + "*SHELL SECTION,NODAL THICKNESS,ELSET=E,MATERIAL=M\n1\n",
         "job.inp:8: shells with NODAL THICKNESS cannot be imported"},
        {kTet + "*NSET,NSET=A,GENERATE\n1,4,0\n", "job.inp:9: the increment of GENERATE is not positive"},
        {kTet + "*SURFACE,NAME=A\nE,S5\n", "job.inp:9: element 9 has no face \"S5\""},
        {kTet + "*RIGID BODY,NSET=E,REF NODE=1\n", "job.inp:8: there is no node set named E"},
        {kTet + "*NSET,NSET=A\n1\n*RIGID BODY,NSET=A,REF NODE=66\n", "job.inp:10: node 66 is not defined"},
        {kTet + "*SURFACE,NAME=A\nE,S1\n*COUPLING,SURFACE=A,REF NODE=4\n*STEP\n",
         "job.inp:10: *COUPLING without *KINEMATIC"},
        {"*INCLUDE,INPUT=none.inc\n", "job.inp:1: the included file none.inc does not exist"},
        {"*INCLUDE,INPUT=job.inp\n", "job.inp:1: files include each other too deeply"},
        {"*INCLUDE,INPUT=part.inc\n", "part.inc:2: \"?\" is not a number"},
    };
    TemporaryFolder folder;
    write_file(folder, "part.inc", "*NODE\n1, ?\n");
    expect_refused(faults, [&](const std::string& text) { read_deck(write_file(folder, "job.inp", text)); });
    for (int i = 14; i >= 0; --i) // 16384 times the last one
    {
        const std::string next = i < 14 ? "*INCLUDE,INPUT=job" + std::to_string(i + 1) + "\n" : "**\n";
        write_file(folder, "job" + std::to_string(i), next + next);
    }
    EXPECT_PRED2(contains, complaint([&] { read_deck(folder.path("job0")); }), "more than 10000 files are included");
    for (const char* card : {"*KINEMATIC\n1,2\n", "*DISTRIBUTING\n"}) // results need to know nothing of it
    {
        const std::string path = write_file(
            folder, "job.inp", kTet + kSteel + "*SURFACE,NAME=A\nE,S1\n*COUPLING,SURFACE=A,REF NODE=4\n" + card);
        EXPECT_EQ(read_deck(path).results_only.size(), 1u) << card;
    }
}

TEST(Matrices, ThatAreDamagedNameFileAndLine)
{
    const std::string dof = "1.1\n1.2\n", good = "1 1  1.0e+00\n1 2  0.5\n2 2  1.5\n";
    const std::tuple<std::string, std::string, std::string> faults[] = {
        {"1.1\nx\n", good, "m.dof:2: expected node.component, found \"x\""},
        {"1.1\n1.4\n", good, "m.dof:2: \"1.4\" names no displacement of a node"},
        {"", good, "m.dof: has no freedoms"},
        {dof + "1.3\n", good, "m.sti:3: ends before the last of 3 columns: it is cut off"},
        {"1.1\n", good, "m.sti:2: entry (1, 2) is not the next one"},
        {dof, "1 1 1.0\n1 2 abc\n", "m.sti:2: expected \"row column value\", found \"1 2 abc\""},
        {dof, "1 1 1.0\n1 2 nan\n", "m.sti:2: expected \"row column value\""},
        {dof, "1 1 1.0\n2 1 1.0\n", "m.sti:2: entry (2, 1) is not the next one"},
        {dof, "1 1 1.0\n1 2 0.5\n1 2 0.5\n", "m.sti:3: entry (1, 2) is not the next one"},
        {dof, "1 1 1.0\n1 2 0.5\n2 2 1", "m.sti:3: ends before the last of 2 columns: it is cut off"},
        {dof, "0 1 1.0\n", "m.sti:1: entry (0, 1) is not the next one"},
    };
    TemporaryFolder folder;
    write_file(folder, "m.mas", good);
    for (const auto& [freedoms, stiffness, expected] : faults)
    {
        write_file(folder, "m.dof", freedoms);
        write_file(folder, "m.sti", stiffness);
        EXPECT_PRED2(contains, complaint([&] { read_matrices(folder.path("m"), silent); }), expected);
    }
    std::filesystem::copy(kSmall + "small.sti.gz", folder.path("m.sti.gz"));
    std::filesystem::resize_file(folder.path("m.sti.gz"), 9000);
    std::filesystem::remove(folder.path("m.sti"));
    EXPECT_PRED2(contains, complaint([&] { read_matrices(folder.path("m"), silent); }), "m.sti.gz:");
}

// The short beam of the test data, as it is and with its ends tied by the solver.
TEST(CraigBampton, DoesNotMindWhoTiesTheNodes)
{
    const Model model = read_model(kSmall + "small"), tied = read_model(kSmall + "small_tied");
    std::vector<Interface> ties;
    for (const zel_fem::Tie& tie : tied.ties) // *RIGID BODY at the root, *COUPLING at the tip
    {
        const Node& reference = tied.mesh.nodes[size_t(tie.reference)];
        ties.push_back({reference.id, tie.reference, reference.at, tie.nodes});
    }
    const std::vector<Interface> ends = {end_at(model.mesh, 0.0, 1001), end_at(model.mesh, 60.0, 1002)};
    const Reduction ours = reduce_craig_bampton(model, ends, 6, silent),
                    solvers = reduce_craig_bampton(tied, ties, 6, silent);
    const VectorXd values = generalized_eigenvalues(ours.stiffness, ours.mass);
    EXPECT_LT(values.head(6).cwiseAbs().maxCoeff(), std::min(1e-9 * values[6], 0.1 * ours.rigid_before));
    EXPECT_LT(relative(solvers.stiffness, ours.stiffness), 1e-9);
    EXPECT_LT(relative(solvers.mass.cwiseAbs(), ours.mass.cwiseAbs()), 1e-9);
    const MatrixXd a = node_motion(model, ours).displacement.leftCols(12);
    EXPECT_LT(relative(node_motion(tied, solvers).displacement.topLeftCorner(a.rows(), 12), a), 1e-9);
    const MassMoments mass = matrix_moments(model), same = matrix_moments(tied);
    EXPECT_LT((mass.second - same.second).norm(), 1e-9 * mass.second.norm());
    EXPECT_LT((mass.second - mesh_mass(model.mesh).moments.second).norm(), 1e-9 * mass.second.norm());
}

TEST(Models, ThatAreHeldOrOfAnotherMeshAreRefused)
{
    const Model good = read_model(kSmall + "small");
    const std::pair<void (*)(Model&), const char*> faults[] = {
        {[](Model& m) { m.matrices->stiffness.coeffRef(40, 40) *= 1.5; },
         "resists rigid motion, most at component 2 of node 14"},
        {[](Model& m) { m.matrices->rows[3].node = 0; }, "node 2 has no freedoms"},
        {[](Model& m) { m.matrices->mass.coeffRef(40, 40) *= 1.5; }, "whose mass is the same along x, y and z"},
        {[](Model& m) { m.matrices->mass *= 0.0; }, "the mass matrix has no mass"},
    };
    expect_refused(faults, [&good](const auto& spoil) {
        Model model = good;
        spoil(model);
        check_equations(model);
    });
    const Deck deck = read_deck(kSmall + "small.inp");
    StoredMatrices stored = read_matrices(kSmall + "small", silent);
    stored.freedoms[3].node_id = 5000;
    EXPECT_PRED2(contains, complaint([&] { rows_of(deck, stored); }), "freedoms of node 5000");
}

TEST(Results, GiveTheSameBodyAsTheMatrices)
{
    const Deck deck = read_deck(kExamples + "tied_beam.inp");
    const std::vector<Interface> ends = {end_at(deck.mesh, 0.0, 622), end_at(deck.mesh, 1000.0, 624)};
    const ModalBasis results = basis_of(
        deck.mesh, modes_from_results(deck, ends, read_frd(kExamples + "tied_beam.frd"), kExamples + "tied_beam"));
    const Model free_model = read_model(kExamples + "cantilever"); // without the four nodes of the ties
    const std::vector<Interface> own_ends = {end_at(free_model.mesh, 0.0, 1001), end_at(free_model.mesh, 1000.0, 1002)};
    const Reduction body = reduce_craig_bampton(free_model, own_ends, 10, silent);
    // forces are printed with seven digits, displacements stored with six
    const VectorXd scale = body.stiffness.diagonal().head(12).cwiseSqrt();
    const MatrixXd difference = (results.stiffness - body.stiffness).topLeftCorner(12, 12);
    EXPECT_LT(difference.cwiseQuotient(scale * scale.transpose()).cwiseAbs().maxCoeff(), 1e-5);
    EXPECT_LT((results.mass - body.mass).topLeftCorner(12, 12).norm(), 1e-5 * body.mass.norm());
    for (int i = 12; i < 22; ++i)
        EXPECT_NEAR(results.stiffness(i, i), body.stiffness(i, i), 1e-6 * body.stiffness(i, i));
    const MatrixXd motion = node_motion(free_model, body).displacement.leftCols(12);
    EXPECT_LT((results.motion.topLeftCorner(motion.rows(), 12) - motion).cwiseAbs().maxCoeff(), 1e-2);
    EXPECT_LT(results.mass_error, 1e-4);
}

// The same two nodes and their results in the forms that the solver writes.
static std::string result_file(bool binary)
{
    const auto node = [&](int id, const std::vector<double>& values, bool floats) {
        std::string text = format(" -1%10d", id);
        for (double v : values)
            text += format("%12.5E", v);
        if (!binary)
            return text + "\n";
        text.assign(reinterpret_cast<const char*>(&id), 4);
        for (double v : values)
        {
            const float single = float(v);
            text.append(reinterpret_cast<const char*>(floats ? static_cast<const void*>(&single) : &v), floats ? 4 : 8);
        }
        return text;
    };
    const std::string end = binary ? "" : " -3\n", blanks(37, ' '),
                      head = std::string("  100CL  101 107.2685930           2                     2   13MODAL      ") +
                             (binary ? "2" : "1");
    return "    1C\n    2C" + std::string(29, ' ') + "2" + blanks + (binary ? "3\n" : "1\n") +
           node(4, {-100.25, -2.5, 3}, false) + node(7, {-1e6, 0, 0.5}, false) + end + "    1PSTEP" +
           std::string(25, ' ') + "1           1           9\n    1PMODE                         3\n" + head +
           "\n -4  DISP        4    1\n -5  D1          1    2    1    0\n -5  D2          1    2    2    0\n"
           " -5  D3          1    2    3    0\n -5  ALL         1    2    0    0    1ALL\n" +
           node(4, {-0.5, -0.25, -8}, true) + node(7, {1, 2, 3}, true) + end + head +
           "\n -4  STRESS      6    1\n -5  SXX         1    4    1    1\n -5  SYY         1    4    2    2\n"
           " -5  SZZ         1    4    3    3\n -5  SXY         1    4    1    2\n -5  SYZ         1    4    2    3\n"
           " -5  SZX         1    4    3    1\n" +
           node(7, {1, 2, 3, 4, 5, 6}, true) + node(4, {-1, -2, -3, -4, -5, -6}, true) + end + " 9999\n";
}

TEST(Results, AreReadFromTextAndBinaryAndRefusedWhenCutAnywhere)
{
    TemporaryFolder folder;
    for (bool binary : {false, true})
    {
        const std::string text = result_file(binary);
        const FrdFile frd = read_frd(write_file(folder, "r.frd", text));
        EXPECT_EQ(frd.node_ids, (std::vector<int>{4, 7}));
        EXPECT_EQ(frd.coordinates.col(1), Vector3d(-1e6, 0, 0.5));
        ASSERT_EQ(frd.solutions.size(), 1u);
        EXPECT_EQ(frd.solutions[0].step, 9);
        EXPECT_EQ(frd.solutions[0].mode, 3);
        EXPECT_EQ(frd.solutions[0].value, 107.268593);
        EXPECT_EQ(frd.solutions[0].displacement.head<3>(), Vector3d(-0.5, -0.25, -8));
        EXPECT_EQ(frd.solutions[0].stress.tail<6>(), (Eigen::Vector<double, 6>{1, 2, 3, 4, 6, 5})); // yz, zx exchanged
        for (size_t length = 0; length + 1 < text.size(); length += 7) // every kind of line is longer than that
            EXPECT_NE(complaint([&] { read_frd(write_file(folder, "r.frd", text.substr(0, length))); }), "") << length;
    }
    const std::string dat = "\n displacements (vx,vy,vz) for set R and time  0.1E+01\n\n  5  1.0 0. 0.\n\n"
                            " forces (fx,fy,fz) for set R and time  0.1E+01\n\n  5  7.0 x 0.\n\n";
    EXPECT_EQ(complaint([&] { read_printed_steps(write_file(folder, "r.dat", dat)); }),
              "r.dat:8: \"x\" is not a number");
}

struct ImportOptions : ReductionOptions, Job
{};

class Import : public ZelTest
{
protected:
    TemporaryFolder folder;
    ImportOptions options = {in_millimetres(10), {}};
    std::string printed, messages; // rows of the report; warnings and errors of the library, or the exception

    Import() { options.output = folder.path("body.zel"); }
    // 0: all is well, 1: a check does not hold, 2: no body
    int run()
    {
        printed = messages = "";
        const auto take = [](void* self, int severity, const char* text) {
            if (severity != ZEL_MESSAGE_INFO)
                static_cast<Import*>(self)->messages.append(text).append("\n");
        };
        ZEL_SetMessageHandler(take, this);
        int status = 2;
        const std::string refusal = complaint([&] {
            const ReducedBody body = reduce(*make_source(options), options, silent);
            write_body(body, options.output, "full_invar", silent);
            printed = told(body);
            status = body.report.all_hold() ? 0 : 1;
        });
        messages += refusal;
        ZEL_SetMessageHandler(nullptr, nullptr);
        return status;
    }
    // A body of the test data that passes all checks, without the one before it.
    ZELDATA* imported(const std::string& job)
    {
        ZEL_Terminate();
        options.deck = kSmall + job;
        EXPECT_EQ(run(), 0) << job << messages << printed;
        return ZEL_CreateFromZEL(options.output.c_str());
    }
};

TEST_F(Import, WritesABodyThatReadsBack)
{
    options.deck = kExamples + "rod";
    options.interfaces = {parse_interface("LARGE@0,0,0"), parse_interface("small@150,0,0")};
    std::filesystem::create_symlink("real.zel", options.output);
    ASSERT_EQ(run(), 0) << messages << printed;
    EXPECT_EQ(printed.find("CHECK!"), std::string::npos) << printed;
    EXPECT_TRUE(std::filesystem::is_symlink(options.output));
    EXPECT_EQ(folder.files(), (std::vector<std::string>{"body.zel", "real.zel"}));
    EXPECT_EQ(messages, ""); // none on reference nodes without mass
    ZELDATA* db = ZEL_CreateFromZEL(options.output.c_str());
    ASSERT_TRUE(db);
    EXPECT_EQ(ZEL_ModeCount(db), 22);
    EXPECT_EQ(ZEL_NodeCount(db), 4288 + 2);
    int count = 0;
    int* const references = ZEL_InterfaceNodeIDs(db, &count);
    const std::vector<int> ids = taken(references, count);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(ids[1] - ids[0], 1);
    // bores of 24 and 11 mm, 20 and 18 mm deep, in a body of steel
    const zel_checks::MassProperties of_body = zel_checks::mass_properties(db);
    EXPECT_NEAR(of_body.mass, 7.85e-9 * 76746, 1e-4 * of_body.mass);
    EXPECT_NEAR(of_body.center[1], 0.0, 1e-3);
}

// A strip of 200 x 20 x 4, whose nodes 1 to 5 are one end.
TEST_F(Import, GivesShellsTheirRotationsByBothRoutes)
{
    const double root = 4.730041,
                 euler = root * root * std::sqrt(210000 * 16 / 12 / 7.85e-9) / 4e4 / (2 * std::numbers::pi);
    for (const char* job : {"strip", "strip_layers"}) // from matrices, from modes at the nodes of the layers
    {
        options.modes = 6;
        ZELDATA* db = imported(job);
        ASSERT_TRUE(db);
        const auto motion = [db](int mode, int node, int part) {
            Vector3d value;
            EXPECT_TRUE(ZEL_ModeByNode(db, mode, 0, node, value.data(), part));
            return value;
        };
        EXPECT_NEAR(*zel_checks::modes_of(db).at(6).hertz, euler, 3e-3 * euler);
        for (int mode = 1; mode <= 6; ++mode) // rigid; shells do not tell a rotation about their normal
        {
            const Vector3d u = motion(mode, 1, 0), theta = motion(mode, 1, 1);
            EXPECT_LT((motion(mode, 69, 1) - theta).norm(), 1e-9 * theta.norm() + 1e-9);
            EXPECT_NEAR(motion(mode, 69, 0)[2] - u[2], theta.cross(Vector3d(200, 20, 0))[2], 1e-9 * u.norm() + 1e-9);
        }
        // Euler's free beam slopes by 0.982502 x 4.730041 / L at its end for a unit deflection
        const Vector3d u = motion(7, 3, 0), theta = motion(7, 3, 1);
        EXPECT_NEAR(theta[1] / u[2], 0.982502 * root / 200, 0.01 * 0.0232);
        EXPECT_LT(std::abs(theta[0]) + std::abs(theta[2]), 1e-4 * std::abs(theta[1]));
    }
}

// Bodies of which the solver, or a lumped mass at the nodes, has less inertia than volume x density.
TEST_F(Import, KeepsTheInertiaOfVolumeTimesDensity)
{
    const double tube = 2 / std::numbers::pi * (20 + 4. / 12 / 20); // centre of half a tube
    const std::tuple<const char*, double, double, double> bodies[] = {
        {"one_point", 7.85e-9 * 60 * 12 * 7, (12. * 12 + 7 * 7) / 12, 1e-8},
        {"one_point_modes", 7.85e-9 * 60 * 12 * 7, (12. * 12 + 7 * 7) / 12, 1e-8},
        {"strip", 7.85e-9 * 200 * 20 * 4, (20. * 20 + 4 * 4) / 12, 1e-8},
        {"strip_layers", 7.85e-9 * 200 * 20 * 4, (20. * 20 + 4 * 4) / 12, 1e-8},
        {"plate", 7.85e-9 * 200 * 40 * 5, (40. * 40 + 5 * 5) / 12, 1e-8},
        {"incompatible", 7.85e-6, (10. * 10 + 10 * 10) / 12, 1e-8}, // rows inside elements
        {"half_tube", 7.85e-9 * 40 * std::numbers::pi * 20 * 2, 400 + 4 / 4. - tube * tube, 1e-3}, // of six elements
    };
    options.modes = 4;
    for (const auto& [job, mass, gyration, tolerance] : bodies) // of inertia, squared, about the axis along x
    {
        ZELDATA* db = imported(job);
        ASSERT_TRUE(db);
        EXPECT_EQ(messages, "") << job; // none on rigid modes without stress
        const bool all_on_the_skin = job == std::string("half_tube") || job == std::string("incompatible");
        EXPECT_EQ(printed.find("masses at the nodes cannot") != std::string::npos, all_on_the_skin) << printed;
        const zel_checks::MassProperties own = zel_checks::mass_properties(db);
        EXPECT_NEAR(own.mass, mass, tolerance * mass) << job;
        EXPECT_NEAR(zel_checks::tensor_about(own, own.center)[0] / mass, gyration, tolerance * gyration) << job;
    }
    // one point a brick leaves 8/9 of the three sides across and 3/4 of the two
    const Deck deck = read_deck(kSmall + "one_point.inp");
    const MassMoments low = solver_moments(deck.mesh);
    EXPECT_NEAR(low.inertia(low.center())(0, 0), low.mass * (144 * 8. / 9 + 49 * 3. / 4) / 12, 1e-12);
}

// 14 printed digits of membrane stiffness are too few for the bending of a sheet 3000 times wider than thick.
TEST_F(Import, SaysWhereTheDigitsOfTheMatricesAreTooFew)
{
    options.deck = kSmall + "thin";
    options.modes = 4;
    EXPECT_EQ(run(), 1) << messages;
    EXPECT_PRED2(contains, printed, "import its modes (*NODE FILE) instead");
}

TEST_F(Import, TakesTheModesOfOneStepOfSeveral)
{
    double lowest[3] = {};
    for (int step : {1, 2}) // free, clamped at one end
    {
        options.step = step;
        ZELDATA* db = imported("two_steps");
        ASSERT_TRUE(db);
        EXPECT_EQ(ZEL_ModeCount(db), 8);
        lowest[step] = *zel_checks::modes_of(db).at(0).hertz;
    }
    EXPECT_PRED2(contains, printed, "it has no rigid-body modes");
    EXPECT_NEAR(lowest[1], 0.0, 1e-6);
    // Euler's clamped beam, 60 x 20 x 10, which shear and the three elements move by a few per cent
    const double euler = 1.875104 * 1.875104 * std::sqrt(210000 * 100 / 12 / 7.85e-9) / 3600 / (2 * std::numbers::pi);
    EXPECT_NEAR(lowest[2], euler, 0.05 * euler);
}

TEST_F(Import, RefusesShellsThatMeetOtherwise)
{
    const std::string nodes = "*NODE\n1, 0, 0\n2, 1, 0\n3, 1, 1\n4, 0, 1\n5, 2, 0\n6, 2, 1\n7, 2, 0, 1\n8, 2, 1, 1\n",
                      steel = "*MATERIAL, NAME=M\n*ELASTIC\n1, 0\n*DENSITY\n1\n",
                      one = "*ELEMENT, TYPE=S4R, ELSET=A\n1, 1, 2, 3, 4\n",
                      section = "*SHELL SECTION, ELSET=A, MATERIAL=M\n0.1\n",
                      far = "*ELEMENT, TYPE=S4R, ELSET=B\n2, 2, 5, 6, 3\n" + section +
                            "*SHELL SECTION, ELSET=B, MATERIAL=M\n0.2\n";
    const std::pair<std::string, std::string> faults[] = {
        {"*NODE\n5, 2, 0, 0.01\n6, 2, 1, 0.01\n" + one + far,
         "s.inp:16: node 2 joins shells of different thickness at a slight angle"},
        {"*NODE\n1, 0, 0, -0.5\n4, 0, 1, -0.5\n5, 2, 0, 0.5\n6, 2, 1, 0.5\n" + one + far,
         "s.inp:18: node 2 joins shells of different thickness, and their normal lies along none of the axes"},
        {one + "*ELEMENT, TYPE=T3D2, ELSET=B\n2, 3, 7\n" + section + "*SOLID SECTION, ELSET=B, MATERIAL=M\n1\n",
         "s.inp:13: node 3 of a truss belongs to a shell or beam as well: matrices of such a knot are not proved"},
        {one + "*NSET, NSET=E\n1, 2, 3\n*RIGID BODY, NSET=E, REF NODE=7\n" + section,
         "s.inp:14: matrices of tied shells cannot be imported: leave the tie out of the deck and name its nodes with "
         "--interface"},
        {one + section,
         "s.inp:11: node 1 has other freedoms in the matrices than shells or beams without supports and ties"},
    };
    expect_refused(faults, [&](const std::string& deck) {
        std::vector<Freedom> freedoms;
        expand_shells(read_deck(write_file(folder, "s.inp", nodes + deck + steel))).name_layers(freedoms);
    });
}

TEST_F(Import, GivesTheSameBytesTwice)
{
    options.deck = kSmall + "small.inp";
    options.modes = 3;
    options.free = true;
    ASSERT_EQ(run(), 0) << messages;
    const std::string bytes = bytes_of(options.output);
    options.output = folder.path("again.zel");
    ASSERT_EQ(run(), 0);
    const std::string others = bytes_of(options.output);
    ASSERT_EQ(bytes.size(), others.size());
    const auto other = std::not_equal_to<>();
    EXPECT_LE(std::inner_product(bytes.begin(), bytes.end(), others.begin(), 0, std::plus<>(), other), 8); // the date
}

TEST_F(Import, NeverWritesOverWhatItReads)
{
    options.deck = folder.path("job");
    copy_matrices("small", options.deck);
    std::filesystem::copy(kSmall + "small.inp.gz", options.deck + ".inp.gz");
    for (const char* suffix : {".inp.gz", ".sti.gz", ".mas.gz", ".dof.gz"})
    {
        options.output = folder.path(std::string("link") + suffix);
        std::filesystem::create_symlink(options.deck + suffix, options.output);
        EXPECT_EQ(run(), 2);
        EXPECT_PRED2(contains, messages, "the output is " + options.deck + suffix + ", which is read");
        EXPECT_EQ(bytes_of(options.deck + suffix), bytes_of(kSmall + "small" + suffix));
    }
}

TEST_F(Import, RefusesWhatItCannotUseAndLeavesNoFile)
{
    options.deck = kSmall + "small";
    const std::pair<void (*)(ImportOptions&), const char*> faults[] = {
        {[](ImportOptions& o) { o.units = parse_units("mm,kg,s,N"); },
         "the units do not belong together: 1 NEWTON is 1000"},
        {[](ImportOptions& o) { o.interfaces = {parse_interface("ALL")}; }, "all nodes of the body are tied"},
        {[](ImportOptions& o) { o.modes = 100000; }, "ask for fewer modes"},
        {[](ImportOptions& o) { o.deck = "nowhere/job"; }, "nowhere/job.inp: no such file"},
        {[](ImportOptions& o) { o.route = Route::results; }, "small.frd: no such file"},
        {[](ImportOptions& o) { o.deck = kExamples + "free_beam", o.interfaces = {parse_interface("ROOT")}; },
         "computed modes have the interfaces of the deck's"},
        {[](ImportOptions& o) { o.interfaces = {parse_interface("ids=1,2")}; }, "tied nodes lie on one line"},
        {[](ImportOptions& o) { o.deck = kSmall + "two_steps"; },
         "two_steps.frd: the steps 1, 2 have modes: name the one to import with --step"},
        {[](ImportOptions& o) { o.deck = kSmall + "two_steps", o.step = 3; },
         "step 3 has no modes; those with modes: 1, 2"},
        {[](ImportOptions& o) { o.deck = kSmall + "some_nodes"; }, "some_nodes.frd: has no displacement of node 2"},
        {[](ImportOptions& o) { o.deck = kSmall + "small_tied", o.interfaces = {parse_interface("ROOT")}; },
         "the nodes of ROOT follow node 45 already"},
        {[](ImportOptions& o) { o.output = "/nowhere/body.zel"; },
         "/nowhere/body.zel cannot be written: No such file or directory"},
        {[](ImportOptions& o) { o.output = "/", o.deck = kSmall + "thin"; }, "/ cannot be written: Is a directory"},
    };
    const ImportOptions good = options;
    for (const auto& [spoil, expected] : faults)
    {
        options = good;
        spoil(options);
        EXPECT_EQ(run(), 2) << expected;
        EXPECT_PRED2(contains, messages, expected);
        EXPECT_EQ(printed, "");
        EXPECT_TRUE(folder.files().empty());
    }
    const std::pair<const char*, const char*> units[] = {
        {"mm,t,s", "the units must name one each of mass, length, time and force"},
        {"mm,t,s,stone", "\"stone\" is not a unit"},
        {"mm,m,s,N", "the units name both MILLIMETER and METER"},
    };
    expect_refused(units, parse_units);
}
