// What of a body the writer puts into a file, as the options ask: ranges of modes, invariants, geometry nodes, no modes at
// all, other units, another origin. Files are read back.
#include "assembly.h"
#include "dense.h"
#include "fixtures.h"

#include "database/record.h"

#include <numbers>

using WriteContent = FileTest;

constexpr int kModes = 4, kBodyNodes = 6;
constexpr int kFirstNumber = 11; // of the modes

static double shape(int mode, int id, int component)
{
    return 100.0 * mode + 10.0 * id + component + 1.0;
}

static void set_vector(ZELDATA* db, int mode_number, int id, int kind, double value)
{
    quietly([&] { ASSERT_EQ(ZEL_SetMode(db, mode_number, id, kind, value, 0.0, 0.0, 0.0, 0.0, 0.0), 1); });
}

static double stiffness_of(double hertz)
{
    return std::pow(2.0 * std::numbers::pi * hertz, 2);
}

// Six nodes in a row, four modes of unit mass at 10, 20, 30 and 40 Hz, loads; metres, kilograms, seconds, newtons.
static ZELDATA* bar()
{
    ZELDATA* db = ZEL_Create(kBodyNodes, kModes + 1);
    output_of([&] {
        ZEL_SetUnits(db, "kg", "m", "s", "N");
        for (int id = 1; id <= kBodyNodes; ++id)
        {
            ZEL_SetNodeCoordinates(db, id, id, 0.5 * id, -1.0);
            ZEL_SetNodalMass(db, id, 0.25 * id);
        }
        for (int mode = 0; mode < kModes; ++mode)
        {
            const int number = kFirstNumber + mode;
            for (int id = 1; id <= kBodyNodes; ++id)
                for (int i = 0; i < 6; ++i)
                    ZEL_SetModeEntry(db, number, id, 0, i, shape(mode, id, i));
            ZEL_SetGeneralizedStiffness(db, number, number, stiffness_of(10.0 * (mode + 1)));
            ZEL_SetGeneralizedDamping(db, number, kFirstNumber, 0.5 + mode);
            ZEL_SetModalLoad(db, 0, number, 7.0 + mode);
            ZEL_SetModalPreload(db, number, -7.0 - mode);
        }
    });
    return db;
}

static std::vector<double> vector_of(ZELDATA* db, int mode_number, int kind)
{
    std::vector<double> values(6 * size_t(ZEL_ModeNodeCount(db, kind)));
    EXPECT_EQ(ZEL_Read_Mode_Double(db, mode_number, kind, values.data()), 1);
    return values;
}

static std::vector<int> nodes_of(ZELDATA* db, int kind)
{
    std::vector<int> ids;
    for (int position = 0; position < ZEL_ModeNodeCount(db, kind); ++position)
        ids.push_back(ZEL_ModeNodeID(db, kind, position));
    return ids;
}

// The bar's first mode that a file has, and how many it has.
using Range = std::pair<int, int>;

static Range range_of(ZELDATA* read)
{
    Range range = {0, ZEL_ModeCount(read)};
    for (int mode = 0; mode < range.second; ++mode)
    {
        const int first = int((vector_of(read, mode + 1, 0)[0] - shape(0, 1, 0)) / 100.0) - mode;
        EXPECT_TRUE(mode == 0 || first == range.first) << mode;
        range.first = first;
    }
    return range;
}

TEST_F(WriteContent, ModesAreARunOfFrequencies)
{
    const std::tuple<const char*, int, Range> rows[] = {
        // options; mode without generalized mass, -1: none
        {"no_ortho", -1, {0, 4}},
        {"no_ortho highpass(15) lowpass(35)", -1, {1, 2}},
        {"no_ortho lowpass(20.5)", -1, {0, 2}},
        {"no_ortho highpass(39)", -1, {3, 1}},
        {"no_ortho highpass(100)", -1, {0, 4}}, // nothing above the limit
        {"no_ortho lowpass(5)", -1, {0, 0}},
        {"no_ortho highpass(35) lowpass(15)", -1, {0, 0}},
        {"no_ortho", 2, {0, 2}}, // a mode without mass ends the range
    };
    for (const auto& [options, massless, expected] : rows)
    {
        SCOPED_TRACE(options);
        ZELDATA* db = bar();
        for (int mode = 0; mode < kModes && massless >= 0; ++mode)
            ZEL_SetGeneralizedMass(db, kFirstNumber + mode, kFirstNumber + mode, mode == massless ? 0.0 : 1.0);
        ZELDATA* read = rewrite(db, options);
        EXPECT_EQ(range_of(read), expected);
        EXPECT_EQ(ZEL_ModeCount(db), kModes); // memory keeps all of them
        EXPECT_EQ(ZEL_Exists(read, ZEL_BLOCK_STATISTICS - 1), expected.second > 0);
        EXPECT_EQ(read->modal_statistics_count, expected.second);
        EXPECT_EQ(ZEL_GetModalLoadCaseCount(read), 1);
    }
}

TEST_F(WriteContent, AllModalBlocksHaveTheSameRange)
{
    ZELDATA* db = bar();
    for (int kind : {1, 2})
        set_vector(db, 12, 4, kind, 3.5 * kind);
    db->selected_modes = static_cast<ZELIDPAIR*>(std::calloc(kModes, sizeof(ZELIDPAIR)));
    db->selected_count = kModes;
    for (int mode = 0; mode < kModes; ++mode)
        db->selected_modes[mode] = {kFirstNumber + mode, mode + 1};
    ZEL_SetGeneralizedDamping(db, 12, 13, 9.5);
    ZELDATA* read = rewrite(db, "no_ortho full_invar highpass(15) lowpass(35)");
    EXPECT_TRUE(told("Exporting frequency range [1.500000e+01,3.500000e+01]\n\n"));
    EXPECT_EQ(db->selected_modes[1].index, 1); // the first exported mode
    EXPECT_EQ(db->selected_modes[3].index, 3);
    ASSERT_EQ(range_of(read), (Range{1, 2}));
    ASSERT_EQ(read->stiffness.count, 2);
    EXPECT_EQ(read->stiffness.entries[1].row, 1);
    EXPECT_EQ(read->stiffness.entries[1].value, stiffness_of(30.0));
    ASSERT_EQ(read->damping.count, 1); // all others couple with the first mode, which is left out
    EXPECT_TRUE(read->damping.entries[0].row == 0 && read->damping.entries[0].column == 1);
    ASSERT_TRUE(read->load_cases && read->modal_preload && read->modal_statistics);
    EXPECT_EQ(read->load_cases[0].values[0], 8.0);
    EXPECT_EQ(read->modal_preload[1], -9.0);
    EXPECT_EQ(read->modal_statistics[0].pair[2].node_id, 4);
    EXPECT_DOUBLE_EQ(read->modal_statistics[0].pair[2].value, 3.5);
    EXPECT_DOUBLE_EQ(read->modal_statistics[0].pair[3].value, 7.0 * 2.0 / 3.0);
    EXPECT_EQ(read->modal_statistics[1].pair[2].node_id, 0); // a mode of zeros has no largest stress
    EXPECT_TRUE(warned("The modal stresses for mode 2 have only zero entries\nWARNING:  \n"));
    EXPECT_EQ(vector_of(read, 1, 1)[0], 3.5);
    EXPECT_EQ(vector_of(read, 2, 1)[0], 0.0);
    const size_t n = kModes;
    for (int number : {3, 4, 5, 8, 9})
    {
        const std::vector<double> all = library_invariant(db, number), part = library_invariant(read, number);
        ASSERT_EQ(part.size(), number < 5 ? 6u : number == 5 ? 12u : number == 8 ? 18u : 36u);
        for (size_t i = 0; i < part.size(); ++i) // rows of an axis, of a mode and an axis, 3x3 of a mode, of two modes
            EXPECT_EQ(part[i], all[number < 5    ? i / 2 * n + i % 2 + 1
                                   : number == 5 ? (i / 2 + 3) * n + i % 2 + 1
                                   : number == 8 ? i + 9
                                                 : ((i / 18 + 1) * n + i / 9 % 2 + 1) * 9 + i % 9])
                << number << ' ' << i;
    }
}

TEST_F(WriteContent, ModesThatAreNotOrthogonalHaveNoFrequencies)
{
    ZELDATA* db = bar();
    ZEL_SetGeneralizedStiffness(db, 11, 12, 1.0);
    EXPECT_EQ(range_of(rewrite(db, "no_ortho")), (Range{0, 4}));
    EXPECT_EQ(errors, "");
    EXPECT_EQ(range_of(rewrite(db, "no_ortho lowpass(15)")), (Range{0, 4}));
    EXPECT_EQ(errors, "WARNING:  Attempting to look at eigenvalues of non-orthogonal data\n");
}

// Modes 1 and 2 are coupled by stiffness; the file has their combinations, and what they are made of.
TEST_F(WriteContent, OrthogonalModesComeWithEigenvaluesAndTransformation)
{
    ZELDATA* db = bar();
    for (const auto& [row, column] : {std::pair{11, 12}, std::pair{12, 11}})
        ZEL_SetGeneralizedStiffness(db, row, column, 2000.0);
    ZELDATA* read = rewrite(db, "");
    EXPECT_EQ(errors, "");
    for (int block : {ZEL_BLOCK_EIGENVALUES, ZEL_BLOCK_MODES, ZEL_BLOCK_TRANSFORMATION})
        EXPECT_TRUE(ZEL_Exists(read, block - 1)) << block;
    EXPECT_FALSE(ZEL_Exists(read, ZEL_BLOCK_STIFFNESS - 1) || ZEL_Exists(read, ZEL_BLOCK_MASS - 1));
    std::vector<double> transformation(kModes * kModes);
    ASSERT_TRUE(ZEL_Transformation(read, transformation.data()));
    ZELDATA* some = rewrite(db, "highpass(15) lowpass(35)");
    ASSERT_EQ(some->transformation_order, 2);
    for (int i = 0; i < 4; ++i)
        EXPECT_NEAR(some->transformation[i], transformation[size_t((i / 2 + 1) * kModes + i % 2 + 1)], 1e-11);
    // Modes that are orthogonal stay what they are.
    const std::string first = bytes_of(read->zel_file.name);
    EXPECT_EQ(bytes_of(rewrite(read, "")->zel_file.name), first);
    EXPECT_EQ(ZEL_ModeCount(rewrite(read, "lowpass(25) no_ortho")), 2);
}

TEST_F(WriteContent, ModesAddedAfterAWriteTakePartInTheNext)
{
    for (const char* options : {"no_ortho", "", "no_ortho lowpass(45)"})
    {
        ZELDATA* db = bar();
        ZEL_UnLink(rewrite(db, ""));
        ZEL_SetGeneralizedStiffness(db, 99, 99, stiffness_of(44.0));
        ZEL_SetGeneralizedMass(db, 99, 99, 1.0);
        set_vector(db, 99, 2, 0, 3.0);
        ZELDATA* read = rewrite(db, options);
        ASSERT_EQ(ZEL_ModeCount(read), kModes + 1) << options;
        double hertz = 0.0, mass = 0.0;
        ASSERT_TRUE(ZEL_Eigenvalue(read, kModes + 1, nullptr, &hertz, nullptr, &mass, nullptr));
        EXPECT_NEAR(hertz, 44.0, 1e-11);
        EXPECT_NEAR(mass, 1.0, 1e-15);
    }
}

TEST_F(WriteContent, MatricesOfTheFileAreNotReadIntoOrthogonalModes)
{
    ZELDATA* db = bar();
    for (const auto& [row, column, mass] :
         {std::tuple(11, 11, 2.0), {11, 12, 0.5}, {12, 11, 0.5}, {12, 12, 1.0}, {13, 13, 1.0}, {14, 14, 1.0}})
        ZEL_SetGeneralizedMass(db, row, column, mass);
    ZELDATA* body = rewrite(db, "no_ortho");
    EXPECT_EQ(ZEL_ReadGeneralizedMass(body), 1);
    rewrite(body, "");
    EXPECT_EQ(ZEL_ReadGeneralizedMass(body) + ZEL_ReadGeneralizedStiffness(body) + ZEL_ReadGeneralizedDamping(body), 0);
    double mass[kModes * kModes];
    ASSERT_TRUE(ZEL_GenMassFull(body, mass, kModes));
    for (int entry = 0; entry < kModes * kModes; ++entry)
        EXPECT_EQ(mass[entry], entry % (kModes + 1) ? 0.0 : 1.0);
}

// Projected on the principal axes and then moved to the centre of mass is the same as moved and then projected.
TEST_F(WriteContent, ProjectedLoadsAndDampingFollowTheOrigin)
{
    Assembly body = random_assembly(30, 0, 5, true);
    body.add_rigid_modes();
    body.add_mode();
    body.add_mode();
    for (size_t p = 0; p < 30; ++p)
        body.modes[6][p] = body.modes[7][29 - p] = {double(p * p), 3.0, -double(p), 0.1, 0.0, 0.2};
    const std::vector<const char*> writes[] = {{"no_ortho fast_invar", "no_ortho lbrf2cm"},
                                               {"no_ortho fast_invar lbrf2cm"}};
    std::vector<double> found[2]; // damping, load and preload
    for (int way : {0, 1})
    {
        ZELDATA* db = database_of(body);
        for (int i = 0; i < 8; ++i)
        {
            ZEL_SetGeneralizedStiffness(db, 101 + i, 101 + i, i < 6 ? 0.0 : 1e6 * i);
            ZEL_SetGeneralizedMass(db, 101 + i, 101 + i, 1.0 + 0.25 * i);
            ZEL_SetModalLoad(db, 0, 101 + i, 3.0 - i);
            ZEL_SetModalPreload(db, 101 + i, i * i - 7.0);
            for (int j = 0; j < 8; ++j)
                ZEL_SetGeneralizedDamping(db, 101 + i, 101 + j, 1.0 / (1 + i + j));
        }
        for (const char* options : writes[way])
            rewrite(db, options);
        ASSERT_TRUE(db->damping_projected && db->load_cases[0].processed);
        found[way].resize(64);
        ASSERT_TRUE(ZEL_GenDampFull(db, found[way].data(), 8));
        for (const double* values : {db->load_cases[0].values, db->modal_preload})
            found[way].insert(found[way].end(), values, values + 8);
    }
    EXPECT_GT(std::fabs(found[1][3]), 1e-3);
    for (size_t i = 0; i < found[0].size(); ++i)
        EXPECT_NEAR(found[0][i], found[1][i], 1e-9) << i;
}

TEST_F(WriteContent, ABodyWithoutModesIsWritten)
{
    ZELDATA* db = ZEL_Create(0, 0);
    ZEL_SetNodalMass(db, 5, 2.0);
    set_vector(db, 0, 5, ZEL_MODAL_STRAIN, 1.0);
    for (const char* options : {"", "no_ortho", "full_invar"})
    {
        ZELDATA* read = rewrite(db, options);
        EXPECT_TRUE(warned("Pre-Strain cannot be written without modes.\n")) << errors;
        for (int block : {ZEL_BLOCK_EIGENVALUES, ZEL_BLOCK_MODES, ZEL_BLOCK_TRANSFORMATION, ZEL_BLOCK_STATISTICS,
                          ZEL_BLOCK_STRAIN, ZEL_BLOCK_PRE_STRAIN})
            EXPECT_FALSE(ZEL_Exists(read, block - 1)) << block;
        EXPECT_EQ(ZEL_NodalMass(read, 0), 2.0);
        EXPECT_EQ(ZEL_Invar1(read), 2.0);
    }
}

TEST_F(WriteContent, SparseStressLeavesOutNodesOfZeros)
{
    ZELDATA* db = bar();
    const double pre[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 6.0};
    set_vector(db, 11, 2, 1, 1.0); // only in a mode that is not exported
    set_vector(db, 13, 5, 1, 2.0);
    set_vector(db, 12, 1, 1, 0.0);
    ZEL_SetModeVec(db, 0, 3, 1, pre);
    set_vector(db, 11, 4, 2, 1.0);
    set_vector(db, 11, 6, 2, 1.0);
    EXPECT_EQ(nodes_of(rewrite(db, "no_ortho"), 1), (std::vector<int>{2, 5, 1, 3}));
    ZELDATA* read = rewrite(db, "no_ortho sparse_str highpass(15)");
    EXPECT_EQ(nodes_of(read, 1), (std::vector<int>{5, 3}));
    EXPECT_EQ(nodes_of(read, 2), (std::vector<int>{4})); // zeros everywhere: one node stays
    EXPECT_EQ(vector_of(read, 0, 1), (std::vector<double>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6}));
    EXPECT_EQ(vector_of(read, 2, 1), (std::vector<double>{2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(nodes_of(rewrite(db, "no_ortho full_str"), 1), (std::vector<int>{1, 2, 3, 4, 5, 6}));
}

// More nodes than are copied at once, listed from the last to the first; every seventh has no stress.
TEST_F(WriteContent, StressOfManyNodesIsThatOfEachNode)
{
    constexpr int kMany = 5000, kPeak = 1234;
    const auto stress_of = [](int id) { return id == kPeak ? 9999.0 : id % 7 ? id : 0.0; };
    ZELDATA* db = ZEL_Create(kMany, 1);
    output_of([&] {
        for (int id = 1; id <= kMany; ++id)
            ZEL_SetNodeCoordinates(db, id, id, 1, 2);
        for (int id = kMany; id > 0; --id)
            for (int mode : {0, 1})
                ZEL_SetModeEntry(db, mode, id, ZEL_MODAL_STRESS, 0, (2 - mode) * stress_of(id));
    });
    for (const char* options : {"no_ortho", "no_ortho sparse_str", "no_ortho full_str"})
    {
        ZELDATA* read = rewrite(db, options);
        const std::vector<int> ids = nodes_of(read, 1);
        ASSERT_EQ(int(ids.size()), std::strstr(options, "sparse") ? kMany - kMany / 7 : kMany) << options;
        const std::vector<double> stress = vector_of(read, 1, 1), pre = vector_of(read, 0, 1);
        for (size_t at = 0; at < ids.size(); ++at)
            ASSERT_TRUE(stress[6 * at] == stress_of(ids[at]) && pre[6 * at] == 2.0 * stress_of(ids[at]))
                << options << at;
        EXPECT_EQ(read->modal_statistics[0].pair[2].node_id, kPeak) << options;
        EXPECT_DOUBLE_EQ(read->modal_statistics[0].pair[2].value, 9999.0);
    }
}

TEST_F(WriteContent, PreStressAloneBringsABlockOfZeroVectors)
{
    const double pre[6] = {1.0, 2.0, 3.0, 4.0, 5.0, 6.0};
    ZELDATA* db = bar();
    ZEL_SetModeVec(db, 0, 4, 1, pre);
    ZELDATA* read = rewrite(db, "no_ortho");
    EXPECT_TRUE(told("\nStress Mode info:\n   Modes: 4\n   Nodes: 1\n") && told("\nPre-Stress info:\n   Nodes: 1\n"));
    EXPECT_EQ(ZEL_ModeNodeID(read, 1, 0), 4);
    EXPECT_EQ(vector_of(read, 4, 1)[0], 0.0);
    EXPECT_EQ(vector_of(read, 0, 1)[5], 6.0);
}

TEST_F(WriteContent, InvariantsAreThoseOfTheNodes)
{
    const Assembly body = random_assembly(40, 5, 3, true);
    const std::tuple<const char*, const char*, std::vector<int>> rows[] = {
        {"no_ortho full_invar", "Computing *all* invariants\n", {}},
        {"no_ortho fast_invar", "Computing fast set of invariants\n", {5, 9}},
        {"no_ortho empty", "Computing *rigid* invariants\n", {3, 4, 5, 8, 9}},
        {"no_ortho", "", {1, 2, 3, 4, 5, 7, 8, 9}}};
    for (const auto& [options, announcement, missing] : rows)
    {
        SCOPED_TRACE(options);
        ZELDATA* read = rewrite(database_of(body), options);
        EXPECT_TRUE(told(announcement));
        EXPECT_EQ(errors.find("insufficient"), std::string::npos);
        for (int number : kInvariantNumbers)
        {
            const int block = number < 6 ? 18 + number : 17 + number;
            const bool absent = std::count(missing.begin(), missing.end(), number);
            EXPECT_EQ(ZEL_Exists(read, block - 1), !absent) << number;
            if (!absent)
                expect_near(library_invariant(read, number), defined_invariant(body, number), 1e-12);
        }
    }
}

// The same points with other masses: what invariants that are given tell, and sums over the nodes do not.
static Assembly heavier(Assembly body)
{
    for (size_t p = 0; p < body.points.size(); ++p)
        body.points[p].mass *= 1.3 + std::sin(double(p));
    return body;
}

static void give_invariants(ZELDATA* db, const Assembly& body)
{
    EXPECT_EQ(ZEL_SetInvar1(db, defined_invariant(body, 1)[0]), 1);
    for (int number : {2, 3, 4, 5, 7, 8, 9})
        EXPECT_EQ(set_invariant(db, number, defined_invariant(body, number).data()), 1);
}

// The body with places and shapes as a file has them.
static Assembly moved_as(ZELDATA* read, Assembly body)
{
    body.modes.clear();
    for (size_t p = 0; p < body.points.size(); ++p)
    {
        const ZELNODE& node = read->nodes[ZEL_NodeIndex(read, int(p) + 1)];
        body.points[p].s = {node.x, node.y, node.z};
    }
    for (int mode = 1; mode <= ZEL_ModeCount(read); ++mode)
    {
        body.add_mode();
        for (size_t p = 0; p < body.points.size(); ++p)
            for (int part : {0, 1})
                EXPECT_TRUE(ZEL_ModeByNode(read, mode, 0, int(p) + 1, &body.modes.back()[p][size_t(3 * part)], part));
    }
    return body;
}

// Mode 6 is the sum of the first two and is left out where the modes become orthogonal.
TEST_F(WriteContent, GivenInvariantsGoWithModesOriginAndUnits)
{
    const double sum[] = {1, 1, 0, 0, 0};
    Assembly body = random_assembly(40, 5, 11, true);
    body.add_combination(Assembly(body), sum);
    MatrixXd basis = MatrixXd::Identity(6, 5);
    basis.row(5) = Eigen::RowVectorXd::Map(sum, 5);
    const VectorXd masses = VectorXd::LinSpaced(5, 1, 5), springs = 7 + masses.array().square();
    const MatrixXd mass = basis * masses.asDiagonal() * basis.transpose(),
                   stiffness = basis * springs.asDiagonal() * basis.transpose();
    const Assembly given = heavier(body);
    for (const char* options : {"", "no_ortho", "lbrf2cm", "no_ortho lbrf2cm MKS", "MKS", "full_invar"})
    {
        SCOPED_TRACE(options);
        ZELDATA* db = database_of(body);
        ZEL_SetUnits(db, "kg", "mm", "s", "N");
        for (int i = 0; i < 6; ++i)
            for (int j = 0; j < 6; ++j)
            {
                ZEL_SetGeneralizedMass(db, 101 + i, 101 + j, mass(i, j));
                ZEL_SetGeneralizedStiffness(db, 101 + i, 101 + j, stiffness(i, j));
            }
        give_invariants(db, given);
        ZELDATA* read = rewrite(db, options);
        const bool kept = std::strstr(options, "no_ortho"), si = std::strstr(options, "MKS");
        ASSERT_EQ(ZEL_ModeCount(read), kept ? 6 : 5);
        Assembly expected = moved_as(read, given);
        for (Point& point : expected.points)
            for (double& value : point.inertia)
                value *= si ? 1e-6 : 1.0;
        expect_invariants(read, expected, 1e-11);
        ZEL_Terminate();
    }
}

TEST_F(WriteContent, MissingMassesAndIllegalSetsAreReported)
{
    ZELDATA* db = ZEL_Create(1, 1);
    set_vector(db, 1, 1, 0, 1.0);
    for (const auto& [options, set] : {std::pair("full_invar", "full"), {"fast_invar", "partial"}, {"empty", "full"}})
    {
        rewrite(db, (std::string("no_ortho ") + options).c_str());
        EXPECT_TRUE(warned("There is insufficient mass data to compute a " + std::string(set) +
                           " set of mass invariants.\nWARNING:  Some or all mass invariants will be set to zero.\n"))
            << options << errors;
    }
    ZELDATA* body = bar();
    ZEL_SetUnits(body, "kg", "mm", "s", "N");
    ZELDATA* read = rewrite(body, "no_ortho invar MKS");
    EXPECT_TRUE(reported("Illegal invariants option, use full_invar or fast_invar.\n"));
    EXPECT_STREQ(read->units.length, "MILLIMETER"); // the units stay
    EXPECT_FALSE(ZEL_Exists(read, ZEL_BLOCK_INVAR1 - 1));
}

// A body of 60 nodes of which five carry geometry.
const std::vector<int> kGeometryIds = {9, 17, 40, 41, 58};

static ZELDATA* body_with_faces(const Assembly& assembly)
{
    ZELDATA* db = database_of(assembly);
    const double pre[6] = {1, 2, 3, 4, 5, 6};
    for (int id : {50, 41, 30, 9}) // 41 and 9 will stay
        for (int mode = 101; mode <= 105; ++mode)
            set_vector(db, mode, id, 1, mode + 0.125 * id);
    ZEL_SetModeVec(db, 0, 9, 1, pre);
    set_vector(db, 101, 2, 2, 1.0); // none of its nodes has geometry: strain stays as it is
    ZEL_SetFace(db, 3, 40, 9, 58);
    ZEL_SetFace(db, 3, 58, 41, 40);
    ZEL_SetInterfaceNode(db, 17);
    return db;
}

static void expect_reduced(ZELDATA* read, const Assembly& body)
{
    ASSERT_EQ(nodes_of(read, 0), kGeometryIds);
    ASSERT_EQ(nodes_of(read, 1), (std::vector<int>{41, 9}));
    EXPECT_EQ(nodes_of(read, 2), std::vector<int>{2});
    for (int mode = 0; mode < 5; ++mode)
    {
        std::vector<double> expected;
        for (int id : kGeometryIds)
            for (double value : body.modes[size_t(mode)][size_t(id - 1)])
                expected.push_back(value);
        EXPECT_EQ(vector_of(read, mode + 1, 0), expected);
        const std::vector<double> stress = vector_of(read, mode + 1, 1);
        EXPECT_EQ(stress[0], 101 + mode + 0.125 * 41);
        EXPECT_EQ(stress[6], 101 + mode + 0.125 * 9);
    }
    EXPECT_EQ(vector_of(read, 0, 1), (std::vector<double>{0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6}));
}

static void expect_whole(ZELDATA* read, const Assembly& body)
{
    ASSERT_EQ(ZEL_NodeCount(read), int(body.points.size()));
    for (size_t p = 0; p < body.points.size(); ++p)
    {
        const ZELNODE& node = read->nodes[ZEL_NodeIndex(read, int(p) + 1)];
        EXPECT_TRUE(node.mass == body.points[p].mass && node.z == body.points[p].s[2]) << p;
    }
    EXPECT_EQ(taken(ZEL_InterfaceNodeIDs(read, nullptr), 1)[0], 17);
    std::vector<int> face_ids;
    for (int at : {1, 2, 3, 5, 6, 7})
        face_ids.push_back(ZEL_NodeID(read, read->face_list[at]));
    EXPECT_EQ(face_ids, (std::vector<int>{40, 9, 58, 58, 41, 40}));
    expect_invariants(read, body, 1e-12);
}

TEST_F(WriteContent, InvariantsOfAllNodesGoWithVectorsOfTheGeometryNodes)
{
    const Assembly body = random_assembly(60, 5, 8, true);
    ZELDATA* built = body_with_faces(body);
    for (ZELDATA* db : {built, rewrite(built, "no_ortho")}) // vectors from temporary files, and from a ZEL file
        for (bool again : {false, true})
        {
            ZELDATA* read = rewrite(db, "no_ortho full_invar");
            EXPECT_EQ(told("Shortened mode file: "), !again); // the second time there is nothing left to drop
            expect_reduced(read, body);
            expect_whole(read, body);
        }
}

// Inner nodes go where invariants are computed. Beside invariants that the body has they stay, until faces lose more.
TEST_F(WriteContent, ShapesOfInnerNodesStayBesideGivenInvariants)
{
    const Assembly body = random_assembly(60, 5, 8, true), given = heavier(body);
    write_bytes(folder.path("face.txt"), "1\n3 40 9 58\n");
    const std::string fewer = "no_ortho sketch(" + folder.path("face.txt") + ")";
    ZELDATA* db = body_with_faces(body);
    give_invariants(db, given);
    for (int write = 0; write < 3; ++write)
    {
        const char* options[] = {"no_ortho", "no_ortho MKS", fewer.c_str()};
        db = rewrite(db, options[write]);
        ASSERT_EQ(ZEL_ModeNodeCount(db, 0), 60);
    }
    db = rewrite(db, "no_ortho full_invar");
    EXPECT_EQ(ZEL_ModeNodeCount(db, 0), 4);
    ZELDATA* reduced = rewrite(body_with_faces(body), "no_ortho full_invar");
    ASSERT_EQ(ZEL_ModeNodeCount(reduced, 0), 5);
    reduced = rewrite(reduced, fewer.c_str());
    EXPECT_EQ(ZEL_ModeNodeCount(reduced, 0), 4);
    expect_invariants(db, given, 1e-12);
    expect_invariants(reduced, body, 1e-12);
}

TEST_F(WriteContent, EmptyKeepsGeometryAndMass)
{
    ZELDATA* db = bar();
    set_vector(db, 12, 4, 1, 3.5);
    ZEL_SetFace(db, 3, 1, 2, 3);
    ZEL_SetInterfaceNode(db, 2);
    ZEL_SetNodalInertia(db, 3, 1, 1, 1, 0, 0, 0);
    const std::vector<int> old = {1, 2, 3, 4, 5, 6, 9, 10, 11, 17},
                           own = {1, 2, 3, 4, 6, 9, 10, 11, 14, 17, 19, 20, 24};
    for (const auto& [options, expected] :
         {std::pair("no_ortho empty", own), {"no_ortho empty 82_comp", old}, {"no_ortho 81_comp empty", old}})
    {
        ZELDATA* read = rewrite(db, options);
        std::vector<int> present;
        for (int block = 1; block <= ZEL_BLOCKS; ++block)
            if (ZEL_Exists(read, block - 1))
                present.push_back(block);
        EXPECT_EQ(present, expected) << options;
        EXPECT_EQ(read->face_count, 1);
    }
}

TEST_F(WriteContent, UnitsBecomeSi)
{
    ZELDATA* db = bar();
    ZEL_SetUnits(db, "tonne", "mm", "s", "N");
    std::free(ZEL_Invar8(db, 0)); // summed in the units before
    ZELDATA* read = rewrite(db, "no_ortho MKS fast_invar");
    EXPECT_TRUE(told("\nUnits:\n   Mass:   KILOGRAM\n   Length: METER\n   Time:   SECOND\n   Force:  NEWTON\n"));
    ZELDATA* same = rewrite(bar(), "no_ortho fast_invar");
    for (int mode = 1; mode <= kModes; ++mode)
    {
        expect_near(vector_of(read, mode, 0), vector_of(same, mode, 0), 1e-14);
        EXPECT_NEAR(read->modal_statistics[mode - 1].pair[0].value, same->modal_statistics[mode - 1].pair[0].value,
                    1e-11);
    }
    for (int number : {1, 2, 3, 4, 7, 8})
        expect_near(library_invariant(read, number), library_invariant(same, number), 1e-14);
    EXPECT_NEAR(read->nodes[3].mass, 1.0, 1e-14);
    EXPECT_NEAR(read->nodes[3].x, 4.0, 1e-14);

    ZELDATA* unknown = bar();
    std::strcpy(unknown->units.length, "PARSEC");
    EXPECT_STREQ(rewrite(unknown, "no_ortho MKS")->units.length, "PARSEC");
    EXPECT_TRUE(warned("The units cannot be converted to SI and stay as they are.\n"));
}

TEST_F(WriteContent, TheOriginIsShiftedTwice)
{
    ZELDATA* db = bar(); // sum of id * id / 4 over sum of id / 4: 91/21
    db->center_of_mass[0] = 5.0;
    EXPECT_EQ(library_invariant(db, 2)[0], 0.25 * 91.0);
    ZELDATA* read = rewrite(db, "no_ortho lbrf2cm");
    const double x = 91.0 / 21.0;
    EXPECT_EQ(output.find("Shifting LBRF to CM at (4.333e+00,2.167e+00,-1.000e+00)\n\nShifting LBRF to CM at ("), 0u);
    for (int node = 0; node < kBodyNodes; ++node)
    {
        EXPECT_NEAR(read->nodes[node].x, node + 1 - x, 1e-14);
        EXPECT_NEAR(read->nodes[node].z, 0.0, 1e-14);
    }
    EXPECT_EQ(db->nodes[0].x, read->nodes[0].x);
    EXPECT_LE(largest(library_invariant(db, 2)), 1e-13); // summed anew

    ZELDATA* weightless = ZEL_Create(0, 0);
    ZEL_SetNodeCoordinates(weightless, 1, 2, 3, 4);
    EXPECT_EQ(rewrite(weightless, "no_ortho lbrf2cm")->nodes[0].x, 2.0);
    EXPECT_FALSE(told("Shifting"));
}

TEST_F(WriteContent, TheGeometryIsChangedInAFixedOrder)
{
    ZELDATA* db = bar();
    const std::string sketch = folder.path("faces.txt");
    write_bytes(sketch, "3  3 1 2 3  3 3 2 1  4 2 4 6 5"); // the first two are the sides of one face
    ZELDATA* read = rewrite(db, ("coarsen(0) strip_face lbrf2cm no_ortho sketch(\"" + sketch + "\")").c_str());
    size_t at = 0;
    for (const std::string step :
         {"Shifting LBRF", "Using sketch file ", "Shifting LBRF", "Coarsening to resolution 0%", "Exporting"})
    {
        at = output.find(step, at);
        ASSERT_NE(at, std::string::npos) << step << " in " << output;
        at += step.size();
    }
    EXPECT_TRUE(told("Face reduction from 1 to 1\n") && told("\nNumber of Element Faces: 1\n"));
    EXPECT_EQ(read->face_count, 1);
}

TEST_F(WriteContent, ALongListOfNodesIsCut)
{
    ZELDATA* db = ZEL_Create(1, 1);
    for (int id = 1; id <= 1000; ++id)
        ZEL_SetNodeCoordinates(db, id, 0, 0, 0);
    rewrite(db, "no_ortho");
    EXPECT_EQ(errors.rfind("WARNING:  Found 1000 node(s) with coordinates (0,0,0).  They are:\nWARNING:     1\n", 0),
              0u);
    EXPECT_TRUE(errors.ends_with("\nWARNING:     20\nWARNING:     and 980 more\n")) << errors;
}

TEST_F(WriteContent, TheSummaryAndTheWarningsTellOfTheBody)
{
    ZELDATA* db = ZEL_Create(3, 2);
    ZEL_SetNodeCoordinates(db, 7, 0, 0, 0);
    rewrite(db, "no_ortho");
    EXPECT_EQ(errors, ""); // one node at the origin is no fault
    ZEL_SetNodalMass(db, 8, 1.5);
    ZEL_SetNodeCoordinates(db, 9, 0, 1, 0);
    set_vector(db, 4, 9, 0, 0.0);
    rewrite(db, "no_ortho");
    EXPECT_EQ(errors, "WARNING:  Found 2 node(s) with coordinates (0,0,0).  They are:\nWARNING:     7\nWARNING:     8\n"
                      "WARNING:  The mode shape for mode 1 has only zero entries\nWARNING:  \n"
                      "WARNING:  Found 2 massless node(s)\n");
    EXPECT_EQ(output, kept_text("summary.txt"));
}
