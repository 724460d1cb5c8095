// Matrix files and meshes of other programs: one model in every dialect, the traps of each format, and files that are damaged.
#include "exercise.h"
#include "fem/rigid.h"
#include "fem/sources/matrices/matrix_file.h"
#include "mesh_dialects.h"
#include "models.h"

using namespace zel_fem::matrices;
using zel_checks::format;

namespace
{
// The short beam of the test data, of three bricks, without the lump at its node 13; matrices with rows ascending by node.
struct DialectBeam
{
    TemporaryFolder folder;
    Model model = read_model(kSmall + "small");
    MatrixXd stiffness = by_node(*model.matrices, model.matrices->stiffness),
             mass = by_node(*model.matrices, model.matrices->mass);

    DialectBeam()
    {
        std::erase_if(model.mesh.elements, [](const Element& element) { return element.type->shape != Shape::hex20; });
        mass.diagonal().segment<3>(3 * 12).array() -= 2e-5;
    }
    int id_of(Index row) const { return model.mesh.nodes[size_t(row / 3)].id; }
    std::string write(const char* name, const std::string& text) const { return write_file(folder, name, text); }
    // Tables of nodes and elements.
    std::string mesh() const
    {
        std::string nodes, elements;
        for (const auto& [id, at] : model.mesh.nodes)
            nodes += format("%d %.17g %.17g %.17g\n", id, at[0], at[1], at[2]);
        for (const Element& element : model.mesh.elements)
            elements +=
                format("%d hex20 ", element.id) + dialects::list(dialects::ids_of(model.mesh, element), " ", 99, "");
        return write("nodes.txt", nodes) + "," + write("elements.txt", elements);
    }
    // As the writers of meshes take it.
    meshes::MeshFile mesh_file() const
    {
        const auto& sets = model.node_sets;
        return {"", model.title, model.mesh, true, {{"ROOT", sets.at("ROOT")}, {"TIP", sets.at("TIP")}}, {}};
    }
    // Both matrices by one function.
    template <typename Text> Input both(const Text& text) const
    {
        return {write("k.mtx", text(stiffness)), write("m.mtx", text(mass)), mesh(), ""};
    }
};
} // namespace

// The text of all entries that are not zero, column after column, by a function of row, column and value.
template <typename Line> static std::string lines(const MatrixXd& matrix, const Line& line)
{
    std::string text;
    for (Index j = 0; j < matrix.cols(); ++j)
        for (Index i = 0; i < matrix.rows(); ++i)
            if (matrix(i, j) != 0.0)
                text += line(i, j, matrix(i, j));
    return text;
}

static std::string market(const MatrixXd& matrix, const char* kind, bool whole)
{
    const std::string entries = lines(matrix, [whole](Index i, Index j, double value) {
        return whole || i >= j ? format("%td %td  %.16E\n", i + 1, j + 1, value) : "";
    });
    return format("%%%%MatrixMarket matrix coordinate real %s \n%%\n%% by hand\n%%====\n%td %td %td\n", kind,
                  matrix.rows(), matrix.cols(), std::count(entries.begin(), entries.end(), '\n')) +
           entries;
}

static Input lower_market(const DialectBeam& beam)
{
    return beam.both([](const MatrixXd& matrix) { return market(matrix, "Symmetric", false); });
}

// The mapping vector of a program that numbers its rows by nodes in an order of its own.
static Input market_with_vector(const DialectBeam& beam)
{
    const Index nodes = beam.mass.rows() / 3;
    Eigen::VectorXi order(beam.mass.rows());
    std::string vector = format("%%%%MatrixMarket matrix array integer general\n%td 1\n", nodes);
    for (Index k = 0; k < nodes; ++k)
    {
        const int node = int((7 * k + 3) % nodes); // of 44
        vector += format("%d\n", beam.id_of(3 * node));
        order.segment<3>(3 * k) << 3 * node, 3 * node + 1, 3 * node + 2;
    }
    Input input = beam.both([&](const MatrixXd& matrix) { return market(matrix(order, order), "symmetric", false); });
    input.dofs = beam.write("map.mtx", vector);
    return input;
}

// Rows from the last to the first, with commas and a list of freedoms.
static Input reversed(const DialectBeam& beam)
{
    Input input = beam.both([](const MatrixXd& matrix) {
        return "** no blanks\n" + lines(matrix.reverse(), [](Index i, Index j, double value) {
                   return i <= j ? format("%td,%td,%.17g\n", i + 1, j + 1, value) : "";
               });
    });
    std::string map;
    for (Index row = beam.mass.rows(); row-- > 0;)
        map += format("%d  %td\n", beam.id_of(row), row % 3 + 1);
    input.dofs = beam.write("map.txt", map);
    return input;
}

static Input labelled(const DialectBeam& beam)
{
    const auto line = [&](Index i, Index j, double value) {
        return i < j ? ""
                     : format("  %d,    %td,   %d,    %td,  %.15e\n", beam.id_of(i), i % 3 + 1, beam.id_of(j),
                              j % 3 + 1, value);
    };
    return beam.both([&](const MatrixXd& matrix) { return lines(matrix, line); });
}

// All six components a node, of which the rotations do nothing.
static Input six_a_node(const DialectBeam& beam)
{
    return beam.both([](const MatrixXd& matrix) {
        MatrixXd all = MatrixXd::Zero(2 * matrix.rows(), 2 * matrix.rows());
        for (Index i = 0; i < matrix.rows(); ++i)
            for (Index j = 0; j < matrix.cols(); ++j)
                all(i + i / 3 * 3, j + j / 3 * 3) = matrix(i, j);
        return market(all, "general", true);
    });
}

constexpr std::pair<const char*, Input (*)(const DialectBeam&)> kMatrixDialects[] = {
    {"Matrix Market, lower triangle", lower_market},
    {"Matrix Market with a mapping vector", market_with_vector},
    {"lines and a map", reversed},
    {"node, dof, node, dof, value", labelled},
    {"six rows a node", six_a_node},
};

static void expect_the_same_body(const ReducedBody& own, const ReducedBody& other, bool nodal_masses)
{
    constexpr double digits = 1e-10;
    EXPECT_TRUE(own.report.all_hold());
    const VectorXd a = eigenvalues_of(own), b = eigenvalues_of(other);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_LT((a.tail(a.size() - 6).array() / b.tail(a.size() - 6).array() - 1).abs().maxCoeff(), 2 * digits);
    for (Index k = own.body->interfaces.empty() ? 6 : 0; k < b.size(); ++k) // signs of modes are free
    {
        const auto &x = own.body->motion.col(k), &y = other.body->motion.col(k);
        EXPECT_LT(std::min((x - y).norm(), (x + y).norm()), digits * y.norm()) << "mode " << k;
    }
    const auto rigid_mass = [](const Body& body) { return moments_of(body.mesh, body.nodes).rigid_mass({0, 0, 0}); };
    EXPECT_LT(relative(rigid_mass(*own.body), rigid_mass(*other.body)), digits);
    const std::vector<double>&masses = own.body->nodes.masses, &expected = other.body->nodes.masses;
    for (size_t node = 0; nodal_masses && node < masses.size(); ++node)
        EXPECT_NEAR(masses[node], expected[node], digits * expected[node]);
}

TEST(MatrixFiles, OfOneModelAreTheSameInEveryDialectAndInMemory)
{
    const DialectBeam beam, other;
    Input reference = lower_market(other);
    reference.mesh = other.write("deck", dialects::flat_deck(other.mesh_file()));
    using Make = std::function<std::unique_ptr<Source>()>;
    const auto judge = [&](const Make& make, bool has_density) {
        const Model model = model_of(*make());
        ASSERT_EQ(model.matrices->rows.size(), size_t(beam.mass.rows()));
        EXPECT_EQ(model.mesh_has_mass, has_density);
        EXPECT_EQ(skin(model.mesh), skin(beam.model.mesh));
        EXPECT_LT(relative(by_node(*model.matrices, model.matrices->stiffness), beam.stiffness), 1e-10);
        EXPECT_LT(relative(by_node(*model.matrices, model.matrices->mass), beam.mass), 1e-10);
        for (const auto& interfaces :
             {std::vector<std::string>{}, {"ids=1,4,5,8,12,16,17,20", "ids=33,34,35,36@60,0,0"}})
        {
            const ReductionOptions options = in_millimetres(8, interfaces);
            expect_the_same_body(reduce(*make(), options, silent), reduced(reference, options), has_density);
        }
    };
    for (const auto& [name, write] : kMatrixDialects)
    {
        SCOPED_TRACE(name);
        const Input input = write(beam);
        judge([&] { return make_source(input); }, false);
    }
    for (const dialects::Dialect& dialect : dialects::all())
    {
        SCOPED_TRACE(dialect.name);
        Input input = lower_market(beam);
        input.mesh = beam.write("mesh", dialect.write(beam.mesh_file()));
        judge([&] { return make_source(input); }, dialect.density);
    }
    for (const int triangles : {kWhole, int(Eigen::Upper), int(Eigen::Lower)})
        judge([&] { return arrays::make_source(in_memory(beam.model.mesh, beam.stiffness, beam.mass, triangles)); },
              false);
}

// Lumps as programs make them: the diagonal, scaled to the mass. The body of 60 x 20 x 10 has them where the mesh has no
// density, and else the inertia of a box; flexible eigenvalues are those of the lumps in both.
TEST(MatrixFiles, OfLumpsGiveWayToADensity)
{
    const DialectBeam beam;
    const double total = 7.85e-9 * 60 * 20 * 10, square[3] = {3600, 400, 100};
    MatrixXd lumps = beam.mass.diagonal().asDiagonal();
    lumps *= 3 * total / lumps.trace();
    Input without = lower_market(beam), with_density = without;
    with_density.mass = without.mass = beam.write("lumps", market(lumps, "symmetric", false));
    with_density.mesh = beam.write("deck", dialects::flat_deck(beam.mesh_file()));
    Input heavier = with_density;
    heavier.mass = beam.write("heavier", market(1.01 * lumps, "symmetric", false));
    const VectorXd exact = generalized_eigenvalues(beam.stiffness, lumps);
    double of_points = 0.0;
    for (Index row = 0; row < lumps.rows(); row += 3)
        of_points += lumps(row, row) * beam.model.mesh.nodes[size_t(row / 3)].at.tail<2>().squaredNorm();
    for (const Input& input : {with_density, without, heavier})
    {
        const ReducedBody body = reduced(input, in_millimetres(6));
        const bool has_density = input.mesh != without.mesh, is_right = input.mass != heavier.mass;
        const std::string text = told(body);
        EXPECT_EQ(body.report.all_hold(), is_right) << text;
        EXPECT_EQ(contains(text, "mass matrix lumped, differs from volume x density by "), has_density);
        EXPECT_EQ(contains(text, "the mass matrix is diagonal: the inertias are those of masses"), !has_density);
        const MassMoments moments = moments_of(body.body->mesh, body.body->nodes);
        const Eigen::Matrix3d inertia = moments.inertia(moments.center());
        if (has_density)
            for (int axis = 0; axis < 3; ++axis)
                EXPECT_NEAR(inertia(axis, axis), total * (4100 - square[axis]) / 12, 1e-9 * inertia(axis, axis));
        else
            EXPECT_NEAR(inertia(0, 0), of_points, 1e-9 * of_points);
        const MatrixXd rigid = fit_rigid_motions(body.body->mesh, moments.center(), body.body->motion).coefficients;
        EXPECT_LT(relative(rigid.transpose() * body.body->mass * rigid, moments.rigid_mass(moments.center())), 1e-8);
        const VectorXd own = eigenvalues_of(body);
        for (Index k = 6; k < own.size() && is_right; ++k)
            EXPECT_NEAR(own[k], exact[k], 1e-8 * exact[k]);
    }
}

// CalculiX integrates the mass of C3D8R at one point, which the deck tells; to a mesh of any program the matrix tells it.
TEST(MatrixFiles, OfFewPointsGiveWayToADensity)
{
    const std::string job = kSmall + "one_point";
    const Input input{job + ".sti", job + ".mas", job + ".inp", job + ".dof"};
    const ReducedBody body = reduced(input, in_millimetres(6));
    ReductionOptions free = in_millimetres(6);
    free.free = true;
    expect_the_same_body(body, reduce_job(job, free), true);
    EXPECT_PRED2(contains, told(body), "mass matrix differs from volume x density by ");
}

// Nodes of few digits change the forces of rotations by far more than what comes of them; two nodes that are exchanged, a
// spring to the ground and a node without rotations to hold by are refused.
TEST(MatrixFiles, StandRoundedNodesAndNoOthers)
{
    const DialectBeam beam;
    Input input = lower_market(beam), mixed = input, held = input;
    std::string nodes, exchanged;
    const std::string elements = input.mesh.substr(input.mesh.find(','));
    for (size_t i = 0; i < beam.model.mesh.nodes.size(); ++i)
    {
        const auto& [id, at] = beam.model.mesh.nodes[i];
        const double rounding = 1e-5 * (double(i * 7 % 11) - 5);
        nodes += format("%d %.5f %.5f %.5f\n", id, at[0] + rounding, at[1] - rounding, at[2] + rounding);
        exchanged += format("%d %g %g %g\n", id == 9 ? 13 : id == 13 ? 9 : id, at[0], at[1], at[2]);
    }
    input.mesh = held.mesh = beam.write("rounded", nodes) + elements;
    mixed.mesh = beam.write("exchanged", exchanged) + elements;
    const ReducedBody body = reduced(input, in_millimetres(6));
    EXPECT_TRUE(body.report.all_hold()) << told(body);
    const VectorXd exact = generalized_eigenvalues(beam.stiffness, beam.mass);
    for (Index k = 6; k < 12; ++k)
        EXPECT_NEAR(body.body->stiffness(k, k), exact[k], 1e-9 * exact[k]);

    DialectBeam spring;
    spring.stiffness(40, 40) *= 1 + 1e-5;
    held.stiffness = lower_market(spring).stiffness;
    const std::string resists = "the stiffness matrix resists rigid motion,";
    const std::tuple<Input, std::vector<std::string>, std::string> faults[] = {
        {mixed, {}, resists},
        {held, {}, resists},
        {input,
         {"ids=33"},
         "interface with reference node 45: its only node 33 has no rotation of its own, and an interface has all six "
         "motions: tie several nodes, or join its translations alone (:xyz, at the node)"}};
    for (const auto& [wrong, interfaces, message] : faults)
    {
        const auto refusal = [&, &wrong = wrong, &interfaces = interfaces] {
            reduced(wrong, in_millimetres(1, interfaces));
        };
        EXPECT_PRED2(contains, complaint(refusal), message);
    }
}

static MatrixXd read_dense(const std::string& path, Role role = Role::stiffness)
{
    const MatrixFile file = read_matrix_file(path, role, [](double) {});
    if (file.order > 1000) // as damage makes it: sources compare it with their rows
        return {};
    std::vector<int64_t> rows(static_cast<size_t>(file.order));
    std::iota(rows.begin(), rows.end(), int64_t(0));
    return MatrixXd(upper_triangle(file, rows, file.order)).selfadjointView<Eigen::Upper>();
}

TEST(MatrixFiles, AreReadInEveryFormOfTheirFormats)
{
    const MatrixXd expected = (MatrixXd(3, 3) << 2, -1, 0, -1, 2000, 0.5, 0, 0.5, 3).finished();
    const char* files[] = {
        "%%matrixmarket MATRIX Coordinate Integer General\n3 3 8\n1 1 2\n1 2 -1\n2 1 -1\n2 2 1999\n2 2 1\n"
        "2 3 0.5\n3 2 5e-1\n3 3 3\n", // entries of one place are added
        "%%MatrixMarket matrix coordinate real symmetric  \r\n%\r\n3 3 5\r\n1 1 2\r\n2 1 -1\r\n2 2 2E+03\r\n\r\n3 2 "
        ".5\r\n3 3 3.\r\n",
        "# both\n3 3 3\n2,2,+2.D3\n 2 1 -1 \n1 1 2\n3 1 0\n2 3 0.5\n",
        "7,1, 7,1, 2\n7 2 7 1 -1\n7,2,7,2,2000\n7,2,7,6,0.5\n7,6,7,6,3\n3,1,7,2,0\n",
        // continued in small field, with two rows a line, and in large field; exponents without a letter
        "DMIG    KAA            0       6       1\n"
        "DMIG    KAA            7       1               7       1      2.        +\n"
        "+              7       2     -1.\n"
        "DMIG    KAA            7       2               7       2    2.+3        +A\n"
        "+A             7       3      .5              80       1      0.\n"
        "DMIG*   KAA                            7               3                *\n"
        "*                      7               3        3.000D+0\n",
        // in free field, among other matrices
        "$TITLE   = BEAM\nGRID           1              0.      0.      0.\nDMIG,MAAX,0,6,2,0,,,1\n"
        "DMIG,MAAX,7,1,,7,1,9.D0,,\nDMIG,KAAX,0,6,2,0,,,3\nDMIG,KAAX,7,1,,7,1,2.D0,,\n+,7,2,-1.D0,,\n"
        "DMIG,KAAX,7,2,,7,2,2.D3,,\n+,7,3,5.D-1,,\nDMIG,KAAX,7,3,,7,3,3.D0,,\n",
        "1 1 2\n1 2 -1\n2 1 -1\n2 2 2000\n2 3 .5\n3 2 .5\n3 3 3\n", // both triangles as neighbours
    };
    for (const char* text : files)
    {
        const TemporaryFolder folder;
        const MatrixXd own = read_dense(write_file(folder, "k", text));
        EXPECT_EQ(MatrixXd(own.topLeftCorner(3, 3)), expected) << text;
        std::mt19937 random(7);
        for (int round = 0; round < 60; ++round) // damage is refused by InputError, or is not to be seen
            try
            {
                read_dense(write_file(folder, "k", mutated(text, random)), Role::mass);
            }
            catch (const InputError&)
            {}
    }
}

TEST(MatrixFiles, ThatAreDamagedNameFileAndLineInEveryFormat)
{
    const std::string market = "%%MatrixMarket matrix coordinate real ", dmig = "DMIG,KAA,0,6,1\nDMIG,KAA,1,1,,1,1,2.,";
    const std::pair<std::string, std::string> faults[] = {
        {"", "k: has no matrix"},
        {"*MATRIX\n1 1 1\n", "k:1: expected a matrix (Matrix Market, DMIG, \"row column value\""},
        {"%%MatrixMarket matrix array real general\n1 1\n2\n", "k:1: expected a matrix in coordinate form"},
        {"%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 2 0\n", "k:1: expected a matrix in"},
        {market + "symmetric\n%\n", "k:2: ends before the line of sizes"},
        {market + "symmetric\n2 2\n", "k:2: expected the numbers of rows, columns and entries"},
        {market + "symmetric\n2 3 1\n1 1 1\n", "k:2: the matrix has 2 rows and 3 columns: it is not square"},
        {market + "symmetric\n2 2 3\n1 1 1\n2 2 1\n", "k:4: ends behind 2 of 3 entries: it is cut off"},
        {market + "symmetric\n2 2 1\n1 1 1\n2 2 1\n", "k:4: has more entries than the 1 of its header"},
        {market + "symmetric\n2 2 1\n3 1 1\n", "k:3: entry (3, 1) lies outside of 2 rows"},
        {market + "symmetric\n2 2 4\n1 1 1\n2 2 1\n1 2 .5\n2 1 .5\n", "k: has two entries of row 1 and row 2, though"},
        {market + "general\n2 2 4\n1 1 1\n2 2 1\n1 2 .5\n2 1 .5000001\n", "k: is not symmetric: the entries of row 1"},
        {market + "general\n2 2 2\n1 1 1\n2 2 -1\n", "k: has a negative entry on its diagonal, at row 2"},
        {"1 1 1\n2 1 nan\n", "k:2: expected \"row column value\", found \"2 1 nan\""},
        {"1 1 1\n0 1 2\n", "k:2: there is no row 0: rows are counted from 1"},
        {"1 1 1\n3000000000 1 2\n", "k:2: there is no row 3000000000"},
        {"1 1 1\n-24 -24 2\n", "k:2: row -24 belongs to an internal node"},
        {"1 1 1\n2 1 .5\n2 1 .5\n2 2 1\n", "k: the entry of row 1 and row 2 stands twice"},
        {"1 1 1\n2 2 1.5", "k:2: the last line has no end: the file is cut off"},
        {"1,1,1,1,2\n-5,1,1,1,2\n", "k:2: node -5 is an internal one"},
        {"1,1,1,1,2\n1,7,1,1,2\n", "k:2: component 7 of node 1 is none of 1 to 6"},
        {"1,1,1,1,2\n1,2,1,1\n", "k:2: expected \"node, dof, node, dof, value\""},
        {"DMIG,KAA,0,9,1\n", "k:1: the matrix KAA is neither square nor symmetric, but of form 9"},
        {"DMIG,KAA,0,6,4\n", "k:1: the matrix KAA is complex"},
        {"DMIG,KAA,1,1,,1,1,2.\n", "k:1: the matrix \"KAA\" has no header"},
        {dmig + "3.\n", "k:2: the matrix KAA has an imaginary part"},
        {dmig + "\n+,1,0,2.\n", "k:3: node 1 is a scalar point"},
        {dmig + "\n+,1,2,2.x\n", "k:3: \"2.x\" is not a number"},
        {"DMIG,STIF,0,6,1\nDMIG,STIF,1,1,,1,1,2.\nDMIG,MASS,0,6,1\n",
         "k: has the matrices STIF, MASS, and no single one"},
        {"DMIG,KAA,0,6,1\nDMIG,KBB,0,6,1\n", "k:2: the matrices KAA and KBB could both be meant"},
        {"DMIG,KAA,0,6,1\n", "k: has no entries"},
    };
    const TemporaryFolder folder;
    expect_refused(faults, [&](const std::string& text) { read_dense(write_file(folder, "k", text)); });
}

// What makes no body of matrices that are sound by themselves.
TEST(MatrixFiles, ThatDoNotFitTheirMeshOrMapAreRefused)
{
    const DialectBeam beam;
    using Change = std::function<void(Input&)>;
    const auto map = [&](const std::string& text) -> Change {
        return [&beam, text](Input& in) { in.dofs = beam.write("map", text); };
    };
    const auto mass = [&](const std::string& text) -> Change {
        return [&beam, text](Input& in) { in.mass = beam.write("m", text); };
    };
    const std::string vector = "%%MatrixMarket matrix array integer general\n", three = "1.1\n1.2\n1.3\n",
                      some = beam.write("some.txt", "1 0 0 0\n2 1 0 0\n");
    const std::pair<Change, std::string> faults[] = {
        {[&](Input& in) { in.mass = beam.folder.path("none"); }, "none: no such file"},
        {[&](Input& in) { in.mesh = some; },
         "the matrices have 132 rows, neither three nor six for each of the 2 nodes"},
        {map(three), "map: has 3 rows, and the matrices have 132"},
        {map("1.1\n1.7\n"), "map:2: component 7 of node 1 is none of 1 to 6"},
        {map("1 1\n1 1\n"), "map:2: two rows move component 1 of node 1"},
        {map("1 1\n45 1\n"), "map:2: a row moves node 45, which the mesh does not have"},
        {map("1 1\nx\n"), "map:2: expected \"node.component\""},
        {map(vector + "2 1\n1\n"), "map:3: ends behind 1 of 2 entries"},
        {map(vector + "1 1\n1\n"), "map: names 1 nodes, and the matrices have 132 rows, not three for each: rows of "
                                   "constrained and coupled freedoms"},
        {[&](Input& in) { in = labelled(beam), map(three)(in); },
         "map: the matrices say themselves what their rows move"},
        {[&](Input& in) { in = labelled(beam), in.mesh = some; },
         "k.mtx: the matrices move node 3, which the mesh does not have"},
        {[&](Input& in) { in = labelled(beam), mass("1 1 1\n")(in); },
         "m: one of the matrices names the nodes of its rows"},
        {mass("%%MatrixMarket matrix coordinate real symmetric\n1 1 1\n1 1 1\n"), "m: has 1 rows, and "},
        {mass("1 1 1\n2 2 1\n3 3 1\n"),
         "m: has no entry on the diagonal for component 1 of node 2: the file is cut off"},
        {[&](Input& in) { in = market_with_vector(beam), in.dofs.clear(); },
         "the stiffness matrix resists rigid motion"},
        {[](Input& in) { std::swap(in.stiffness, in.mass); }, "the stiffness matrix resists rigid motion"},
    };
    expect_refused(faults, [&](const Change& change) {
        Input spoilt = lower_market(beam);
        change(spoilt);
        reduced(spoilt, in_millimetres(1));
    });
}
