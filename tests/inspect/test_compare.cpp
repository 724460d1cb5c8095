// Two databases of one body, and of bodies that differ in one thing.
#include "assembly.h"
#include "database/record.h"
#include "fixtures.h"
#include "sample_file.h"

#include <unistd.h>

#include <variant>

using namespace std::string_literals;

namespace
{
constexpr int kModes = 7;
const std::vector<int> kIds = {10, 20, 30, 40, 50, 60};
const std::vector<int> kStressIds = {20, 40, 60}, kStrainIds = {10, 20};

// Between -1 and 1, all different.
double value(int k)
{
    return std::sin(1.0 + 0.7 * k);
}

double vector_value(int kind, int mode, int id, int dof)
{
    return value(1000 * kind + 60 * mode + id / 10 * 6 + dof);
}

void set_faces(ZELDATA* db, bool backwards)
{
    std::vector<std::vector<int>> faces = {{10, 20, 30, 40}, {30, 40, 50}, {50, 60}};
    if (backwards)
    {
        std::reverse(faces.begin(), faces.end());
        for (auto& face : faces)
            std::rotate(face.begin(), face.begin() + 1, face.end());
    }
    for (const auto& face : faces)
        ZEL_SetFaceList(db, int(face.size()), face.data());
}

void set_eigenvalues(ZELDATA* db)
{
    db->eigenvalues = static_cast<ZELEIGEN*>(std::calloc(kModes + 1, sizeof(ZELEIGEN)));
    db->transformation = static_cast<double*>(std::calloc(kModes * kModes, sizeof(double)));
    db->eigenvalue_count = db->transformation_order = kModes;
    for (int mode = 0; mode < kModes; ++mode)
    {
        for (int field = 0; field < 6; ++field)
            db->eigenvalues[mode].value[field] = field == 0 ? mode + 1 : 0.5 * mode + 0.01 * field;
        db->transformation[mode * kModes + mode] = 1.0;
    }
}

void set_invariants(ZELDATA* db, const std::vector<int>& signs)
{
    constexpr int m = kModes;
    // Number, from which value, how many; behind so many the mode of the row changes, and of the column; 0: of no mode.
    constexpr int kRows[][5] = {
        {2, 1, 3, 0, 0},  {3, 10, 3 * m, 0, 1},  {4, 40, 3 * m, 0, 1},         {5, 100, 3 * m * m, 3 * m, 1},
        {7, 20, 9, 0, 0}, {8, 300, 9 * m, 9, 0}, {9, 400, 9 * m * m, 9 * m, 9}};
    ZEL_SetInvar1(db, 10.0);
    for (const auto& [number, from, count, row, column] : kRows)
    {
        const auto sign = [&](int k, int size) { return size == 0 ? 1 : signs[size_t(k / size % m)]; };
        std::vector<double> values;
        for (int k = 0; k < count; ++k)
            values.push_back(value(from + k) * sign(k, row) * sign(k, column));
        set_invariant(db, number, values.data());
    }
}

const std::vector<int> kPlain(kModes, 1);

// A body with every block that is compared, in SI units. `signs`: of its modes. `backwards`: its nodes, faces and interface
// nodes in another order.
void fill(ZELDATA* db, const std::vector<int>& signs, bool backwards)
{
    ZEL_SetUnits(db, "kg", "m", "s", "n");
    char title[] = "body", name[] = "file", type[] = "type", empty[] = "";
    ZEL_SetHeader(db, title, name, type, empty, empty, empty);
    for (int id : backwards ? std::vector<int>(kIds.rbegin(), kIds.rend()) : kIds)
        ZEL_SetNodeCoordinates(db, id, 0.1 * id, 0.1 * id + 0.5, 0.1 * id + 1.0);
    for (int id : kIds)
        ZEL_SetNodalMass(db, id, 0.05 * id);
    ZEL_SetNodalInertia(db, 20, 0.5, 0.25, 0.75, 0.125, -0.5, 0.0);
    for (int mode = 1; mode <= kModes; ++mode)
    {
        const int sign = signs[size_t(mode - 1)];
        for (int kind = 0; kind < 3; ++kind)
            for (int id : kind == 0 ? kIds : kind == 1 ? kStressIds : kStrainIds)
                for (int dof = 0; dof < 6; ++dof)
                    ZEL_SetModeEntry(db, mode, id, kind, dof, sign * vector_value(kind, mode, id, dof));
        ZEL_SetGeneralizedStiffness(db, mode, mode, 0.5 * mode);
        ZEL_SetGeneralizedMass(db, mode, mode, 1.0);
        ZEL_SetGeneralizedDamping(db, mode, mode, 0.01);
        ZEL_SetModalPreload(db, mode, value(mode));
        ZEL_SetModalLoad(db, 1, mode, sign * (mode == kModes ? 4.0 : 0.5));
    }
    for (int dof = 0; dof < 6; ++dof)
    {
        ZEL_SetModeEntry(db, 0, 40, ZEL_MODAL_STRESS, dof, value(dof));
        ZEL_SetModeEntry(db, 0, 10, ZEL_MODAL_STRAIN, dof, value(dof + 6));
    }
    set_faces(db, backwards);
    for (int id : {backwards ? 60 : 10, backwards ? 10 : 60})
        ZEL_SetInterfaceNode(db, id);
    set_eigenvalues(db);
    set_invariants(db, signs);
    db->total_mass = 10.0;
    std::copy_n(std::begin({1.0, 9.7, 2.0}), 3, db->center_of_mass);
    db->modal_statistics = static_cast<ZELSTATISTICS*>(std::calloc(kModes, sizeof(ZELSTATISTICS)));
    db->modal_statistics_count = kModes;
    for (int mode = 0; mode < kModes; ++mode)
        db->modal_statistics[mode].pair[1] = {20, 0.75};
    for (int block : {ZEL_BLOCK_EIGENVALUES, ZEL_BLOCK_TRANSFORMATION, ZEL_BLOCK_BODY, ZEL_BLOCK_STATISTICS})
        zel::raise_flag(db, block);
}

// Setters print paths of temporary files, and warn of invariants that do not belong together.
ZELDATA* body(const std::vector<int>& signs = kPlain, bool backwards = false)
{
    ZELDATA* db = ZEL_Create(int(kIds.size()), kModes + 1);
    quietly([&] { fill(db, signs, backwards); });
    return db;
}

std::vector<ZELCOMPARISON> rows_of(ZELDATA* base, ZELDATA* made, double tolerance)
{
    std::vector<ZELCOMPARISON> rows(200);
    rows.resize(size_t(std::max(0, ZEL_CompareBodies(base, made, tolerance, rows.data(), 200))));
    return rows;
}

// "check mode node component; ..." of the rows that fail, and the worst value of the last one.
std::string failed_rows(ZELDATA* base, ZELDATA* made, double tolerance, double* worst = nullptr)
{
    std::string text;
    for (const ZELCOMPARISON& row : rows_of(base, made, tolerance))
        if (row.verdict == ZEL_COMPARISON_FAIL)
        {
            text += (text.empty() ? "" : "; ") + std::string(row.check);
            for (int place : {row.mode, row.node, row.component})
                text += " " + (place == ZEL_NONE ? "-" : std::to_string(place));
            if (worst)
                *worst = row.worst;
        }
    return text;
}

struct Report
{
    int result;
    std::string text;
};

Report compare(ZELDATA* base, ZELDATA* made, int verbosity, double tolerance)
{
    int result = 1;
    const std::string text = output_of([&] { result = ZEL_Compare(base, made, verbosity, tolerance); });
    return {result, text};
}

using Comparing = FileTest;

TEST_F(Comparing, ABodyWithItselfAndATwinThatIsNumberedBackwards)
{
    ZELDATA* db = body();
    const Report report = compare(db, db, 2, 0.0);
    EXPECT_EQ(report.result, 0);
    EXPECT_EQ(report.text, kept_text("compare_equal.txt"));
    EXPECT_EQ(compare(db, db, 0, 0.0).text, "");
    EXPECT_EQ(compare(body(), db, 2, 0.0).text, report.text);

    const Report of_twin = compare(db, body(kPlain, true), 2, 0.0);
    EXPECT_EQ(of_twin.result, 0) << of_twin.text;
    std::string rotated = report.text;
    rotated.replace(rotated.find("FaceList A"), 10, "FaceList B");
    EXPECT_EQ(of_twin.text, rotated);
}

TEST_F(Comparing, ForgivesTheSignsOfModes)
{
    ZELDATA *base = body(), *made = body({1, -1, -1, 1, -1, 1, -1});
    const Report report = compare(base, made, 1, 0.0);
    EXPECT_EQ(report.result, 0) << report.text;
    EXPECT_PRED2(contains, report.text, "->Warning: Modal load component 7 differs in sign for case #2\n");

    made->invar5[1][3] = -made->invar5[1][3]; // one entry alone is no sign of a mode
    EXPECT_EQ(compare(base, made, 0, 1e-9).result, -1);
    made->invar9[6][0][8] += 0.25; // all invariants are one check, matrices are two
    EXPECT_EQ(compare(base, made, 0, 1e-9).result, -1);
    made->stiffness.entries[2].value += 9.0;
    made->mass.entries[2].value += 9.0;
    EXPECT_EQ(compare(base, made, 0, 1e-9).result, -3);
}

TEST_F(Comparing, BodiesInDifferentUnits)
{
    ZELDATA *base = body(), *made = body();
    ASSERT_EQ(ZEL_SetUnits(made, "tonne", "mm", "ms", "kN"), 1);
    EXPECT_EQ(compare(base, made, 0, 1e-12).text, "");
    char length[16];
    ZEL_Units(made, nullptr, length, nullptr, nullptr);
    EXPECT_STREQ(length, "METER");
}

// Vectors are read in slices where both bodies have their nodes in the same order, else whole.
TEST_F(Comparing, BodiesOfManyNodes)
{
    constexpr int kNodes = 9000;
    const auto large_body = [](bool backwards, int changed_id) {
        ZELDATA* db = ZEL_Create(kNodes, 1);
        for (int i = 1; i <= kNodes; ++i)
        {
            const int id = backwards ? kNodes + 1 - i : i;
            ZEL_SetMode(db, 1, id, ZEL_MODE_SHAPE, std::sin(id), std::cos(id), id == changed_id ? 0.25 : 0.0, 1, 0, 0);
        }
        ZEL_SetUnits(db, "kg", "m", "s", "n");
        zel::raise_flag(db, ZEL_BLOCK_NODES);
        zel::raise_flag(db, ZEL_BLOCK_EIGENVALUES);
        return db;
    };
    quietly([&] {
        for (bool backwards : {false, true})
            for (int changed_id : {0, 1, 4096, 4097, kNodes})
                EXPECT_EQ(failed_rows(large_body(false, 0), large_body(backwards, changed_id), 0.2),
                          changed_id ? "translations of a mode 1 " + std::to_string(changed_id) + " 2" : "");
    });
}

struct Perturbation
{
    double delta;     // the measure by hand; 0: fails at any tolerance
    const char* text; // of ZEL_Compare behind "->Fail ", with ~ for the measure; empty where it sees nothing
    const char* rows; // of ZEL_CompareBodies: check, mode, node, component
    std::variant<double* (*)(ZELDATA* db), void (*)(ZELDATA* db)> place; // of the value that changes; or changes itself
    double change = 0.0;
};

void add_to_mode(ZELDATA* db, int mode, int id, int kind, int dof, double change)
{
    ZEL_SetModeEntry(db, mode, id, kind, dof, vector_value(kind, mode, id, dof) + change);
}

template <int mode, int field> double* record(ZELDATA* db)
{
    return &db->eigenvalues[mode].value[field];
}

// The largest coordinate is 7, the largest mass 3, the largest load component 4; eigenvalue 7 is 3.01, its other values
// 3.02 to 3.05, generalized stiffness up to 3.5; all else is below 1.
const Perturbation kPerturbations[] = {
    {0, "InputFileType\n", "input file type - - -", [](ZELDATA* db) { db->input_file_type[0] = 'T'; }},
    {0.25 / 7, "NodeCoordinates", "node coordinates - 30 1", [](ZELDATA* db) { return &db->nodes[2].y; }, 0.25},
    {0.05, "TotalMass", "total mass - - -", [](ZELDATA* db) { return &db->total_mass; }, 0.5},
    {0.03, "TotalCM", "centre of mass - - 1", [](ZELDATA* db) { return &db->center_of_mass[1]; }, 0.3},
    {0.5 / 3.01, "EigenValue: #7~->Fail Eigenvalues\n", "eigenvalue 7 - -", record<6, 1>, -0.5},
    {0.5, "EigenValue: #1~->Fail Eigenvalues\n", "eigenvalue 1 - -", record<0, 1>, -0.5},
    {0.5 / 3.02, "Frequency", "frequency 7 - -", record<6, 2>, 0.5},
    {0.5 / 3.03, "Radians", "angular frequency 7 - -", record<6, 3>, 0.5},
    {0.5 / 3.04, "GeneralizedMass", "generalized mass of a mode 7 - -", record<6, 4>, 0.5},
    {0.5 / 3.05, "GeneralizedStiff", "generalized stiffness of a mode 7 - -", record<6, 5>, 0.5},
    {0.125, "EigenVector translational: #3~->Fail ModeShape, 1 times\n", "translations of a mode 3 30 1",
     [](ZELDATA* db) { add_to_mode(db, 3, 30, 0, 1, 0.125); }},
    {0.125, "EigenVector rotational: #5~->Fail ModeShape, 1 times\n", "rotations of a mode 5 60 3",
     [](ZELDATA* db) { add_to_mode(db, 5, 60, 0, 3, -0.125); }},
    {0.25 / 3, "NodalMass", "nodal masses - 40 -", [](ZELDATA* db) { return &db->nodes[3].mass; }, 0.25},
    {0.25, "NodalI", "nodal inertias - 20 2", [](ZELDATA* db) { return &db->nodes[1].inertia[2]; }, 0.25},
    {0, "GeneralizedStiffnessCount new: 8 base: 7\n->Fail GeneralizedStiffnessListSize new: 8 base: 7\n",
     "stiffness entries stored - - -; stiffness entries on modes - - -",
     [](ZELDATA* db) { ZEL_SetGeneralizedStiffness(db, 1, 2, 0.0); }},
    {0, "SparceStiffnessColumnList   index: 4  new: 1  base: 4\n", "rows and columns of the stiffness - - -",
     [](ZELDATA* db) { db->stiffness.entries[4].column = 1; }},
    {0, "SparceStiffnessRowList   index: 0  new: 6  base: 0\n", "rows and columns of the stiffness - - -",
     [](ZELDATA* db) { db->stiffness.entries[0].row = 6; }},
    {0.7 / 3.5, "SparceStiffness", "generalized stiffness 2 - 1",
     [](ZELDATA* db) { return &db->stiffness.entries[1].value; }, 0.7},
    {0, "GeneralizedMassListSize new: 6 base: 7\n", "mass entries on modes - - -",
     [](ZELDATA* db) { db->mass.entries[2].row = -1; }},
    {0.25, "SparceMass", "generalized mass 2 - 1", [](ZELDATA* db) { return &db->mass.entries[1].value; }, 0.25},
    {0, "FaceList\n", "faces - - -", [](ZELDATA* db) { std::swap(db->face_list[1], db->face_list[2]); }},
    {0, "InterfaceNodes\n", "interface nodes - 40 -", [](ZELDATA* db) { db->interface_nodes[1] = 3; }},
    {0, "InterfaceNodeCount  Delta: 1.000000e+00\n", "interface nodes - - -",
     [](ZELDATA* db) { ZEL_SetInterfaceNode(db, 20); }},
    {0.125, "Stress Mode: #2", "modal stress 2 40 5", [](ZELDATA* db) { add_to_mode(db, 2, 40, 1, 5, 0.125); }},
    {0.125, "Strain Mode: #7", "modal strain 7 20 0", [](ZELDATA* db) { add_to_mode(db, 7, 20, 2, 0, 0.125); }},
    {0.25, "Invar3", "invariant 3 6 - 0", [](ZELDATA* db) { return &db->invar3[5]; }, 0.25},
    {0.25, "Invar4", "invariant 4 7 - 2", [](ZELDATA* db) { return &db->invar4[20]; }, -0.25},
    {0.25, "Invar5", "invariant 5 7 - 2", [](ZELDATA* db) { return &db->invar5[6][20]; }, 0.25},
    {0.25, "Invar7", "invariant 7 - - 4", [](ZELDATA* db) { return &db->invar7[4]; }, 0.25},
    {0.25, "Invar8", "invariant 8 7 - 8", [](ZELDATA* db) { return &db->invar8[6][8]; }, -0.25},
    {0.25, "Invar9", "invariant 9 7 - 8", [](ZELDATA* db) { return &db->invar9[6][0][8]; }, 0.25},
    {0.5 / 4, "Modal Load: Case #2~->Fail Modal Loads\n", "modal load 7 - 1",
     [](ZELDATA* db) { return &db->load_cases[1].values[6]; }, -0.5},
    {0.125, "Pre-Stress Max at Node: #40 Comp: #6", "pre-stress - 40 5",
     [](ZELDATA* db) { return &db->pre_stress[1].v[5]; }, 0.125},
    {0.125, "Pre-Strain Max at Node: #10 Comp: #1", "pre-strain - 10 0",
     [](ZELDATA* db) { return &db->pre_strain[0].v[0]; }, -0.125},
    {0.25, "", "inertia of the body - - 8", [](ZELDATA* db) { return &db->inertia_tensor[8]; }, 0.25},
    {0.125, "", "preload 3 - -", [](ZELDATA* db) { return &db->modal_preload[2]; }, -0.125},
    {1.0, "", "modal load 2 - 1", [](ZELDATA* db) { return &db->load_cases[1].values[1]; }, -4.0},
    {2.0, "", "generalized damping 4 - 5", [](ZELDATA* db) { ZEL_SetGeneralizedDamping(db, 4, 6, 2.0); }},
    {0.75, "", "modal statistics 5 20 1", [](ZELDATA* db) { return &db->modal_statistics[4].pair[1].value; }, 0.75},
};

// What differs fails its own check and no other, below the measured difference and not above it.
TEST_F(Comparing, OneDifferenceFailsTheCheckThatOwnsIt)
{
    ZELDATA* base = body();
    for (const Perturbation& p : kPerturbations)
    {
        SCOPED_TRACE(p.rows);
        ZELDATA* made = body();
        if (const auto* place = std::get_if<0>(&p.place))
            *(*place)(made) += p.change;
        else
            std::get<1>(p.place)(made);
        std::string expected = *p.text ? "->Fail "s + p.text : "";
        char delta[40] = "";
        if (p.delta > 0.0 && *p.text)
            std::snprintf(delta, sizeof delta, "  Delta: %e\n", p.delta);
        expected.replace(std::min(expected.find('~'), expected.size()), 1, delta);
        const double below = p.delta > 0.0 ? p.delta * (1.0 - 1e-12) : 1e9, above = p.delta * (1.0 + 1e-12);
        const Report report = compare(base, made, 0, below);
        EXPECT_EQ(report.result, *p.text ? -1 : 0);
        EXPECT_EQ(report.text, expected);
        double worst = 0.0;
        EXPECT_EQ(failed_rows(base, made, below, &worst), p.rows);
        if (p.delta == 0.0)
            continue;
        EXPECT_NEAR(worst, p.delta, 1e-12);
        EXPECT_EQ(failed_rows(base, made, above), "");
        EXPECT_EQ(compare(base, made, 0, above).text, "");
        EXPECT_EQ(compare(base, made, 0, above).result, 0);
    }
}

// A body that lacks much of what the base has and differs in much of the rest.
void spoil(ZELDATA* db)
{
    db->version = 60;
    db->title[0] = 'B';
    db->comment2[0] = '!';
    ++db->max_modes;
    for (int i = 0; i < db->node_count; ++i)
        db->nodes[i].mass = 0.0;
    for (int mode = 0; mode < kModes; ++mode)
        std::fill_n(db->invar5[mode], 3 * kModes, 0.0);
    db->invar2[0] += 0.75;
    db->transformation[1] = 0.5;
    db->load_cases[0].processed = 1;
    ZEL_SetModalLoad(db, 2, 1, 0.5);
    std::free(db->modal_preload);
    db->modal_preload = nullptr;
    for (int block : {ZEL_BLOCK_BODY, ZEL_BLOCK_INERTIAS, ZEL_BLOCK_UNITS, ZEL_BLOCK_STIFFNESS, ZEL_BLOCK_FACES,
                      ZEL_BLOCK_INTERFACE, ZEL_BLOCK_STRESS, ZEL_BLOCK_INVAR9, ZEL_BLOCK_PRE_STRAIN})
        zel::clear_flag(db, block);
}
TEST_F(Comparing, ReportsEveryKindOfLineAtItsVerbosity)
{
    ZELDATA *base = body(), *made = body();
    for (int dof = 0; dof < 6; ++dof) // what the base does not have is noted
    {
        ZEL_SetModeEntry(base, 2, 10, ZEL_MODAL_STRAIN, dof, 0.0);
        ZEL_SetModeEntry(base, 2, 20, ZEL_MODAL_STRAIN, dof, 0.0);
        ZEL_SetModeEntry(base, 0, 40, ZEL_MODAL_STRESS, dof, 0.0);
        for (int id : kIds)
            ZEL_SetModeEntry(base, dof < 3 ? 4 : 5, id, ZEL_MODE_SHAPE, dof, 0.0);
    }
    ZEL_SetNodeCoordinates(base, 70, 0.0, 0.0, 0.0);
    spoil(made);
    const Report report = compare(base, made, 2, 0.01);
    EXPECT_EQ(report.result, -1); // invariant 2
    EXPECT_EQ(report.text, kept_text("compare_different.txt"));

    std::istringstream lines(report.text);
    std::string less;
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("  Pass ", 0) != 0)
            less += line + "\n";
    zel::clear_flag(made, ZEL_BLOCK_UNITS); // which the comparison has given it
    EXPECT_EQ(compare(base, made, 1, 0.01).text, less);
    EXPECT_EQ(compare(base, made, 0, 0.01).text, "->Fail Invar2  Delta: 0.750000\n");
    EXPECT_EQ(compare(base, made, -1, 0.01).text, "");
}

// Block 6 is compared as it stands, whatever the nodes weigh, and stands afterwards.
TEST_F(Comparing, TheStoredMassesAndLeavesThem)
{
    ZELDATA *base = body(), *made = body();
    base->total_mass = 0.0;
    made->total_mass = 0.5;
    const Report report = compare(base, made, 0, 0.01);
    EXPECT_EQ(report.text, "->Fail TotalMass  Delta: inf\n");
    EXPECT_EQ(report.result, -1);
    EXPECT_TRUE(base->total_mass == 0.0 && made->total_mass == 0.5 && made->center_of_mass[1] == 9.7);
}

// What is no number on one side differs, at any tolerance; on both sides it does not.
TEST_F(Comparing, SeesWhatIsNoNumber)
{
    for (const Perturbation& p : kPerturbations)
        for (double odd : {std::nan(""), HUGE_VAL, -HUGE_VAL})
        {
            const auto* place = std::get_if<0>(&p.place);
            if (!place || !*p.text)
                continue;
            SCOPED_TRACE(testing::Message() << p.text << odd);
            ZELDATA *number = body(), *none = body();
            *(*place)(none) = odd;
            EXPECT_LT(compare(number, none, -1, HUGE_VAL).result, 0);
            EXPECT_LT(compare(none, number, -1, HUGE_VAL).result, 0);
            *(*place)(number) = odd;
            EXPECT_EQ(compare(none, number, 0, 0.0).text, "");
        }
    for (double odd : {std::nan(""), HUGE_VAL}) // the last mode's whole vectors
    {
        SampleFile file = sample_file({60, true, false});
        for (const auto& [block, nodes] : {std::pair(ZEL_BLOCK_MODES, 6u), {ZEL_BLOCK_STRESS, 3u}})
        {
            std::string& bytes = file.blocks[block];
            bytes.resize(bytes.size() - 6 * 8 * nodes);
            bytes += file.build().reals(std::vector<double>(6 * nodes, odd)).bytes;
        }
        ZELDATA *number = open(sample_file({60, true, false})), *none = open(file);
        for (const Report& report : {compare(number, none, 0, HUGE_VAL), compare(none, number, 0, HUGE_VAL)})
            for (const char* line : {"EigenVector translational", "EigenVector rotational", "Stress Mode"})
                EXPECT_PRED2(contains, report.text, "->Fail "s + line);
        EXPECT_EQ(compare(none, none, 0, 0.0).text, "");
    }
}

// Translations of a mode of pure rotation are rounding noise: they do not tell which way it points.
TEST_F(Comparing, TurnsModesOfPureRotationByTheirRotations)
{
    for (int draw = 0; draw < 12; ++draw)
    {
        ZELDATA* db[2];
        for (int side = 0; side < 2; ++side)
        {
            db[side] = body();
            for (int id : kIds)
                for (int dof = 0; dof < 6; ++dof)
                {
                    const double noise = draw < 2 ? 0.0 : 1e-12 * value(100 * draw + 50 * side + id + dof);
                    const double rotation = (draw % 2 && side ? -40 : 40) * value(id + dof);
                    ZEL_SetModeEntry(db[side], 3, id, ZEL_MODE_SHAPE, dof, dof < 3 ? noise : rotation);
                }
        }
        const std::string text = compare(db[0], db[1], 0, 1e-9).text;
        EXPECT_EQ(text.find("EigenVector"), std::string::npos) << draw << text;
    }
}

TEST_F(Comparing, WarnsOfCountsThatDiffer)
{
    ZELDATA *base = body(), *made = body();
    for (int kind : {ZEL_MODAL_STRESS, ZEL_MODAL_STRAIN})
        ZEL_SetModeEntry(base, 8, 50, kind, 0, 1.0); // a mode and a node more
    ++base->eigenvalue_count;
    ZEL_SetGeneralizedMass(base, 8, 8, 1.0);
    ZEL_SetGeneralizedStiffness(base, 8, 8, 1.0);
    ZEL_SetFaceList(base, 3, std::begin({10, 20, 60}));
    std::free(std::exchange(base->modal_preload, nullptr));
    const std::string text = compare(base, made, 1, 0.01).text;
    for (const char* line :
         {"ModeCount", "EigenvalueCount", "NumberOfGenStiff new: 7 base: 8", "FaceListSize",
          "NumberOfGenMass new: 7 base: 8", "FaceCount", "NodeCount for Stress modes base: 4  new: 3",
          "NodeCount for Stress modes base: 3  new: 2", "Pre-Stress NodeCount differ... base: 4  new: 3",
          "Pre-Strain NodeCount differ... base: 3  new: 2"})
        EXPECT_NE(text.find("->Warning "s + line + "\n"), std::string::npos) << line << "\n" << text;

    std::free(std::exchange(made->load_cases[0].values, nullptr));
    std::free(std::exchange(base->load_cases[0].values, nullptr));
    const std::string nothing = compare(base, made, 1, 0.01).text;
    for (const char* line :
         {"Null modal load vector found for case #1 in new ZEL", "Null modal load vector found for case #1 in base ZEL",
          "Null modal preload vector found in base file"})
        EXPECT_NE(nothing.find("->Warning: "s + line + "\n"), std::string::npos) << line << "\n" << nothing;
}

TEST_F(Comparing, NeedsTwoDatabases)
{
    ZELDATA* db = body();
    const std::string error = "ERROR:  The database has not been initialized.\n";
    for (ZELDATA* base : {db, static_cast<ZELDATA*>(nullptr)})
    {
        ZELDATA* made = base ? nullptr : db;
        EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_Compare(base, made, 2, 0.0), -1); }), error);
        EXPECT_EQ(errors_of([&] { EXPECT_EQ(ZEL_CompareBodies(base, made, 0.0, nullptr, 0), -1); }), error);
    }
}

// The rows are the same for a smaller room, and the differences of a body that is numbered backwards, with other signs.
TEST_F(Comparing, HandsOutAsManyRowsAsThereIsRoomFor)
{
    ZELDATA *base = body(), *made = body({-1, 1, 1, 1, 1, 1, 1}, true);
    add_to_mode(made, 2, 30, 0, 2, 0.5);
    std::fill_n(made->invar3, 3 * kModes, 0.0);
    ZEL_SetModeEntry(made, 1, 50, ZEL_MODE_SHAPE, 0, 0.25 - vector_value(0, 1, 50, 0));
    std::string printed;
    EXPECT_EQ(output_of([&] { printed = failed_rows(base, made, 1e-9); }), "");
    EXPECT_EQ(printed.substr(0, printed.find("; inv")), "translations of a mode 1 50 0; translations of a mode 2 30 2")
        << printed;
    const std::vector<ZELCOMPARISON> all = rows_of(base, made, 1e-9);
    EXPECT_EQ(ZEL_CompareBodies(base, made, 1e-9, nullptr, 5), int(all.size()));
    ZELCOMPARISON few[4] = {};
    EXPECT_EQ(ZEL_CompareBodies(base, made, 1e-9, few, 3), int(all.size()));
    EXPECT_STREQ(few[2].check, all[2].check);
    EXPECT_EQ(few[3].check, nullptr);
}

// What ends the process in ZEL_Compare fails a row, and the rest is compared.
TEST_F(Comparing, OfBodiesWithOtherNodesGoesOn)
{
    ZELDATA *base = body(), *made = body();
    for (int id : {75, 80})
        ZEL_SetNodeCoordinates(made, id, 0.0, 0.0, 0.0);
    ZEL_SetModeEntry(made, 1, 50, ZEL_MODAL_STRESS, 0, 1.0);
    made->nodes[2].y += 0.25;
    zel::clear_flag(base, ZEL_BLOCK_EIGENVALUES);
    const std::string rows = failed_rows(base, made, 1e-9);
    EXPECT_EQ(rows, "nodes that the base lacks - 75 -; nodes that the base's modes lack - 75 -; "
                    "nodes that the base's modes lack - 50 -; "
                    "presence of the block - - -; node count - - -; node coordinates - 30 1; "
                    "node count of the modes - - -");
    for (ZELDATA* part : {ZEL_Create(0, 0), made})
        EXPECT_NE(failed_rows(ZEL_Create(0, 0), part, 0.0), "");
}

// What does not go together ends the process. Each of two bodies is changed; `both`: also when they change roles.
TEST_F(Comparing, EndsWithBodiesThatDoNotBelongTogether)
{
    const auto lack = [](int block) { return [block](ZELDATA*, ZELDATA* made) { zel::clear_flag(made, block); }; };
    const auto add_vector = [](int kind) {
        return [kind](ZELDATA*, ZELDATA* made) { ZEL_SetModeEntry(made, 1, 50, kind, 0, 1.0); };
    };
    const auto repeat = [](int kind, int node) { // stands for one node of the base
        return [=](ZELDATA*, ZELDATA* made) { ASSERT_GE(zel::append_mode_node(made, kind, node), 0); };
    };
    const std::string transpose = "\n->Try transposing input ZELs. \\(Exit\\)\n\n$";
    const std::tuple<std::function<void(ZELDATA*, ZELDATA*)>, bool, std::string> rows[] = {
        {lack(ZEL_BLOCK_NODES), true, "^->Fail no nodal_coords \\(Exit\\)$"},
        {lack(ZEL_BLOCK_EIGENVALUES), true, "^->Fail no eigenvalues \\(Exit\\)$"},
        {lack(ZEL_BLOCK_MODES), true, "^->Fail no mode_shapes \\(Exit\\)$"},
        {[](ZELDATA*, ZELDATA* made) { ZEL_SetNodeCoordinates(made, 75, 0.0, 0.0, 0.0); }, false,
         "^->Fail Node 75 does not exist in base file \\(Exit\\)\n\n$"},
        {[](ZELDATA* base, ZELDATA*) {
             std::free(std::exchange(base->nodes[1].inertia, nullptr)); // with the node nobody would
             base->node_count = 0, zel::node_table_rewritten(base);
         },
         false, "^->Fail Node 10 does not exist in base file \\(Exit\\)\n\n$"},
        {add_vector(1), false, "^->Fail Node 50 does not exist for stress modes in base file." + transpose},
        {add_vector(2), false, "^->Fail Node 50 does not exist for strain modes in base file." + transpose},
        {[](ZELDATA*, ZELDATA* made) { zel::append_node(made, 10); }, false,
         "^->Fail NodeCount base: 6 < new: 7  \\(Exit\\)\n\n$"},
        {repeat(1, 1), false, "^->Fail NodeCount for Stress modes in base: 3 < new: 4 " + transpose},
        {repeat(2, 0), false, "^->Fail NodeCount for Strain modes in base: 2 < new: 3 " + transpose}};
    for (const auto& [change, both, text] : rows)
    {
        ZELDATA *base = body(), *made = body();
        change(base, made);
        for (int roles = 0; roles < (both ? 2 : 1); ++roles, std::swap(base, made))
        {
            const auto end = [&] {
                dup2(STDERR_FILENO, STDOUT_FILENO);
                ZEL_Compare(base, made, -1, 1e9);
            };
            std::fflush(nullptr);
            EXPECT_EXIT(end(), ::testing::ExitedWithCode(255), text);
        }
    }
}

} // namespace
