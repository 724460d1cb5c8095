// Header, masses, faces, matrices, loads and invariants as the caller gives them.
#include "assembly.h"
#include "quiet.h"

#include "database/record.h"

namespace
{
class Setters : public FileTest
{
protected:
    ZELDATA* db_ = ZEL_Create(10, 6);
    std::vector<int> face() const { return {db_->face_list, db_->face_list + db_->face_list_length}; }
    bool flag(int block) const { return zel::has_flag(db_->content_flags, block); }
};
} // namespace

TEST_F(Setters, CutHeaderTextsAtTheirLengths)
{
    const std::tuple<size_t, const char*, std::string, std::string, std::string> texts[] = {
        {127, db_->title, "title", "Title", "Title"},
        {127, db_->input_file_name, "input file name", "Name ", "Input file name"},
        {15, db_->input_file_type, "input file type", "Type ", "Input file type spec"},
        {79, db_->comment1, "Comment 1", "Comment 1", "Comment 1"},
        {79, db_->comment2, "Comment 2", "Comment 2", "Comment 2"},
        {79, db_->comment3, "Comment 3", "Comment 3", "Comment 3"},
    };
    for (size_t too_much : {size_t(0), size_t(1)})
    {
        std::string given[6], warnings, lines;
        for (size_t i = 0; i < 6; ++i)
        {
            const auto& [longest, field, heading, label, too_long] = texts[i];
            given[i] = std::string(longest, char('a' + i)).replace(3, 1, " ");
            lines += label + ": " + given[i] + "\n";
            given[i] = given[i].replace(3, 1, "\n") + std::string(too_much, 'z');
            if (too_much)
                warnings += "WARNING:  " + too_long + " too big: max size " + std::to_string(longest) +
                            ", specified size " + std::to_string(longest + 1) + ".\nWARNING:  Truncating " + heading +
                            ".\n";
        }
        const auto set = [&] {
            ZEL_SetHeader(db_, given[0].data(), given[1].data(), given[2].data(), given[3].data(), given[4].data(),
                          given[5].data());
        };
        EXPECT_EQ(errors_of([&] { output = output_of(set); }), warnings);
        EXPECT_EQ(output, lines);
        for (size_t i = 0; i < 6; ++i) // in the caller's text, too
            EXPECT_EQ(given[i].substr(0, std::get<0>(texts[i])), std::get<1>(texts[i]));
    }
    const std::string title = db_->title, name = db_->input_file_name, first = db_->comment1, third = db_->comment3;
    quietly([&] { // the record's own texts
        ZEL_SetHeader(db_, db_->comment1, db_->input_file_name, db_->input_file_type, db_->title, db_->comment2,
                      db_->comment3);
    });
    EXPECT_EQ(db_->title, first);
    EXPECT_EQ(db_->comment1, title.substr(0, 79));
    EXPECT_TRUE(db_->input_file_name == name && db_->comment3 == third);
    output_of([&] { ZEL_SetHeader(db_, const_cast<char*>("constant"), nullptr, nullptr, nullptr, nullptr, nullptr); });
    EXPECT_STREQ(db_->title, "constant");
    EXPECT_EQ(std::string(db_->comment3, sizeof db_->comment3), std::string(80, '\0'));
    ASSERT_EQ(std::strlen(db_->date), 25u);
    EXPECT_EQ(db_->date[24], ' ');
}

TEST_F(Setters, AddTheNodesThatTheyName)
{
    EXPECT_EQ(ZEL_SetNodalMass(db_, 4, 1.0), 1);
    EXPECT_EQ(db_->nodes[0].x, 0.0);
    EXPECT_EQ(ZEL_AddNodalMass(db_, 9, 1.5) + ZEL_AddNodalMass(db_, 9, 1.5), 2);
    EXPECT_EQ(db_->nodes[1].mass, 3.0);
    EXPECT_EQ(ZEL_SetNodalInertiaEntry(db_, 7, 2, 3, 0.5) + ZEL_SetNodalInertiaEntry(db_, 7, 5, 4, 0.25), 2);
    EXPECT_EQ(ZEL_SetNodalInertiaEntry(db_, 7, 3, 3, 8.0), 1);
    EXPECT_EQ((std::vector<double>(db_->nodes[2].inertia, db_->nodes[2].inertia + 6)),
              (std::vector<double>{0, 0, 8, 0.25, 0, 0.5}));
    EXPECT_TRUE(flag(ZEL_BLOCK_MASSES) && flag(ZEL_BLOCK_INERTIAS) && !flag(ZEL_BLOCK_NODES));
    EXPECT_EQ(ZEL_SetInterfaceNode(db_, 8), 0);

    const double nan = std::nan("");
    EXPECT_PRED2(contains, refusal_of([&] { return ZEL_SetNodalMass(db_, 77, nan); }), "mass of node 77 is not finite");
    errors_of([&] {
        EXPECT_EQ(ZEL_SetNodeCoordinates(db_, 78, 0, -HUGE_VAL, 0), 0);
        EXPECT_EQ(ZEL_SetNodalInertia(db_, 79, 0, 0, 0, 0, 0, nan), 0);
        EXPECT_EQ(ZEL_AddNodalMass(db_, 9, HUGE_VAL), 0);
        EXPECT_EQ(ZEL_SetNodalInertiaEntry(db_, 80, 1, 4, 1.0), 0);
        EXPECT_EQ(ZEL_SetNodalInertiaEntry(db_, 80, 0, 1, 1.0), 0);
    });
    EXPECT_EQ(db_->node_count, 3);
    EXPECT_EQ(db_->nodes[1].mass, 3.0);
}

TEST_F(Setters, CloseFacesAndDropRepeatedVertices)
{
    EXPECT_EQ(ZEL_SetFace(db_, 4, 10, 20, 30, 10), 1);
    EXPECT_EQ(ZEL_SetFace(db_, 3, 10, 10, 20), 1);
    EXPECT_EQ(ZEL_SetFace(db_, 4, 10, 20, 10, 30), 1); // back at the first one in the middle
    const std::vector<int> kept = {3, 0, 1, 2, 2, 0, 1, 4, 0, 1, 0, 2};
    EXPECT_EQ(face(), kept);
    const int no_ids[1] = {};
    EXPECT_NE(errors_of([&] {
                  EXPECT_EQ(ZEL_SetFace(db_, 2, 40, 40), 0);
                  EXPECT_EQ(ZEL_SetFaceList(db_, 0, no_ids) + ZEL_SetFaceList(db_, -3, no_ids), 0);
                  EXPECT_EQ(ZEL_SetFaceList(db_, 3, nullptr), 0);
              }),
              "");
    EXPECT_EQ(face(), kept);
    EXPECT_EQ(db_->face_count, 3);
}

// Two point masses of 2 at x = -1 and x = 3: mass 4, center 1, inertia 20 about y and z through the origin.
TEST_F(Setters, CompareTheGlobalMassWithTheNodes)
{
    ZEL_SetNodeCoordinates(db_, 1, -1, 0, 0);
    ZEL_SetNodeCoordinates(db_, 2, 3, 0, 0);
    const double center[3] = {1, 0, 0}, inertia[9] = {0, 0, 0, 0, 20, 0, 0, 0, 20}, wrong[9] = {1}, zero[9] = {};
    const auto said = [this](double mass, const double* mass_center, const double* tensor) {
        return errors_of([&] { EXPECT_EQ(ZEL_SetGlobalMass(db_, mass, mass_center, tensor), 1); });
    };
    const std::string wrong_mass =
        "WARNING:  Global mass is inconsistent with INVAR1 setting or sum of nodal masses.\n";
    EXPECT_NE(said(4, center, inertia), ""); // nothing known yet
    for (int id : {1, 2})
        ZEL_SetNodalMass(db_, id, 2);
    EXPECT_EQ(db_->invar1, nullptr); // the check left nothing behind that would be wrong by now
    EXPECT_EQ(said(4, center, inertia), "");
    EXPECT_EQ(said(5, zero, wrong),
              wrong_mass + "WARNING:  Global center of mass is inconsistent with INVAR2 setting or nodal data.\n"
                           "WARNING:  Global mass inertia is inconsistent with INVAR7 setting or nodal data.\n");
    EXPECT_TRUE(db_->total_mass == 5.0 && flag(ZEL_BLOCK_BODY));
    EXPECT_EQ(db_->inertia_tensor[0], 1.0);
    EXPECT_EQ(ZEL_SetGlobalMass(db_, 4, nullptr, inertia) + ZEL_SetGlobalMass(db_, 4, center, nullptr), 0);
    ZELDATA* empty = ZEL_Create(0, 0);
    EXPECT_EQ(output_of([&] { ZEL_SetGlobalMass(empty, 0, zero, zero); }), "Global mass is being set to zero.\n");

    // Small differences are small beside a large mass. Where the masses cancel, the given one divides the first moment.
    const double large[9] = {0, 0, 0, 0, 2e10, 0, 0, 0, 2e10}, middle[3] = {2, 0, 0};
    const double difference[9] = {0, 0, 0, 0, 16, 0, 0, 0, 16};
    for (int id : {1, 2})
        ZEL_SetNodalMass(db_, id, 2e9);
    EXPECT_EQ(said(4e9 + 1, center, large), "");
    EXPECT_EQ(said(4e9 + 4e3, center, large), wrong_mass);
    ZEL_SetNodalMass(db_, 1, -2);
    ZEL_SetNodalMass(db_, 2, 2);
    EXPECT_EQ(said(4, middle, difference), wrong_mass);
}

TEST_F(Setters, TellUnitAndDiagonalMasses)
{
    ZEL_SetGeneralizedMass(db_, 3, 3, 1.0 + 0.5e-8);
    ZEL_SetGeneralizedStiffness(db_, 3, 3, 7.0);
    ZEL_SetGeneralizedDamping(db_, 3, 4, 0.5);
    EXPECT_EQ(db_->non_diagonal + db_->non_unit_mass, 0);
    ZEL_SetGeneralizedMass(db_, 3, 3, 0.5);
    EXPECT_EQ(db_->non_unit_mass, 1);
    EXPECT_EQ(db_->non_diagonal, 0);
    ZEL_SetGeneralizedMass(db_, 3, 4, 0.0);
    EXPECT_EQ(db_->non_diagonal, 1);
    EXPECT_EQ(db_->mass.count, 3);
    EXPECT_TRUE(flag(ZEL_BLOCK_STIFFNESS) && flag(ZEL_BLOCK_MASS) && flag(ZEL_BLOCK_DAMPING));
    for (int mode = 5; mode < 9; ++mode)
        ZEL_AddMode(db_, mode);
    EXPECT_NE(errors_of([&] { EXPECT_EQ(ZEL_SetGeneralizedMass(db_, 3, 99, 1.0), 1); }), ""); // no room for mode 99
    EXPECT_EQ(db_->mass.entries[3].row, 0);
    EXPECT_EQ(db_->mass.entries[3].column, -1);
}

TEST_F(Setters, GrowLoadsWithCasesAndModes)
{
    EXPECT_EQ(ZEL_SetModalLoadLabel(db_, 0, ""), 1); // before there are modes
    EXPECT_EQ(ZEL_SetModalLoad(db_, 2, 11, 1.5), 1);
    db_->principal_axes_done = 1; // of a preload that is no more
    EXPECT_EQ(ZEL_SetModalPreload(db_, 12, 2.5), 1);
    EXPECT_EQ(db_->principal_axes_done, 0);
    for (int mode = 13; mode < 17; ++mode)
        EXPECT_EQ(ZEL_SetModalLoad(db_, 0, mode, mode) + ZEL_SetModalPreload(db_, mode, -mode), 2);
    ASSERT_EQ(db_->load_case_count, 3);
    EXPECT_STREQ(db_->load_cases[0].label, "1");
    EXPECT_STREQ(db_->load_cases[1].label, "Load Case 2");
    EXPECT_STREQ(db_->load_cases[2].label, "Load Case 3");
    const auto vector = [](const double* values) { return std::vector<double>(values, values + 6); };
    EXPECT_EQ(vector(db_->load_cases[0].values), (std::vector<double>{0, 0, 13, 14, 15, 16}));
    EXPECT_EQ(vector(db_->load_cases[2].values), (std::vector<double>{1.5, 0, 0, 0, 0, 0}));
    EXPECT_EQ(vector(db_->modal_preload), (std::vector<double>{0, 2.5, -13, -14, -15, -16}));
    const std::string long_label(256, 'x');
    EXPECT_EQ(errors_of([&] { ZEL_SetModalLoadLabel(db_, 1, long_label.c_str()); }),
              "WARNING:  Modal load label too big: max size 255, specified size 256.  Truncating label.\n");
    EXPECT_EQ(db_->load_cases[1].label, long_label.substr(1));
    EXPECT_EQ(ZEL_SetModalLoadLabel(db_, 0, db_->load_cases[2].label), 1); // the record's own text
    EXPECT_STREQ(db_->load_cases[0].label, "Load Case 3");
    const std::string illegal =
        "ERROR:  The load case index -1 is illegal.\nERROR:  The load case index must be non-negative.\n";
    EXPECT_EQ(refusal_of([&] { return ZEL_SetModalLoad(db_, -1, 11, 1.0); }), illegal);
    EXPECT_EQ(refusal_of([&] { return ZEL_SetModalLoadLabel(db_, -1, "x"); }), illegal);
    for (const auto& row :
         {std::pair(INT32_MAX, 11), {2000000000, 11}, {5, 99}}) // without room for such a case or mode
        EXPECT_NE(refusal_of([&] { return ZEL_SetModalLoad(db_, row.first, row.second, 1.0); }), "");
    EXPECT_NE(refusal_of([&] { return ZEL_SetModalPreload(db_, 99, 1.0); }), "");
    EXPECT_EQ(db_->load_case_count, 3);
}

TEST_F(Setters, NeedADatabase)
{
    double values[100] = {1.0};
    const int ids[3] = {1, 2, 3};
    char text[] = "text";
    ZELDATA* const none = nullptr;
    std::string expected;
    for (int setter = 0; setter < 29; ++setter)
        expected += "ERROR:  The database has not been initialized.\n";
    const auto set_all = [&] {
        return ZEL_SetNodeCoordinates(none, 5, 1, 2, 3) + ZEL_SetNodalMass(none, 5, 2.0) +
               ZEL_AddNodalMass(none, 5, 2.0) + ZEL_SetNodalInertia(none, 5, 1, 2, 3, 0, 0, 0) +
               ZEL_SetNodalInertiaEntry(none, 5, 4, 4, 1.0) + ZEL_SetGlobalMass(none, 3.0, values, values) +
               ZEL_SetFace(none, 3, 1, 2, 3) + ZEL_SetFaceList(none, 3, ids) + ZEL_SetInterfaceNode(none, 3) +
               ZEL_SetModeVec(none, 9, 4, ZEL_MODE_SHAPE, values) + ZEL_SetModeEntry(none, 9, 4, 2, 3, 7.0) +
               ZEL_SetGeneralizedMass(none, 8, 9, 7.0) + ZEL_SetGeneralizedStiffness(none, 8, 9, 7.0) +
               ZEL_SetGeneralizedDamping(none, 8, 8, 7.0) + ZEL_SetModalLoad(none, 3, 9, 7.0) +
               ZEL_SetModalLoadLabel(none, 4, "label") + ZEL_SetModalPreload(none, 9, 7.0) +
               ZEL_SetHeader(none, text, text, text, text, text, text) + ZEL_SetInvar1(none, 7.0) +
               ZEL_SetInvar2(none, values) + ZEL_SetInvar3(none, values) + ZEL_SetInvar5(none, values) +
               ZEL_SetInvar7(none, values) + ZEL_SetInvar8(none, values) + ZEL_SetInvar9(none, values) +
               ZEL_SetNodalInertias(none, 1, ids, values) + ZEL_SetFaces(none, 1, ids, ids) +
               ZEL_SetModeArray(none, 0, ZEL_MODAL_STRAIN, 1, ids, values, 6) + (ZEL_AddMode(none, 9) >= 0 ? 1 : 0);
    };
    EXPECT_EQ(errors_of([&] { EXPECT_EQ(set_all(), 0); }), expected);
}

// An entry that finds no room leaves no new mode behind. Nodes are so many that their room grows more than once.
TEST_F(Setters, AddAllOrNothingWithoutMemory)
{
    std::vector<int> ids(5000);
    std::iota(ids.begin(), ids.end(), 7);
    const std::vector<double> values(3 * ids.size(), 0.5);
    ZELDATA* db = nullptr;
    std::vector<std::pair<std::function<int()>, int>> setters; // and how many nodes and modes there are then
    for (const auto set : {ZEL_SetGeneralizedMass, ZEL_SetGeneralizedStiffness, ZEL_SetGeneralizedDamping})
        setters.emplace_back([&db, set] { return set(db, 8, 9, 7.0); }, 4);
    for (const auto set : {ZEL_SetNodes, ZEL_SetNodalMasses})
        setters.emplace_back([&, set] { return set(db, int(ids.size()), ids.data(), values.data()); }, 5002);
    for (const auto& row : setters)
    {
        std::string before;
        int done = 0;
        const auto make = [&] {
            db = ZEL_Create(1, 4);
            ZEL_AddMode(db, 3);
            ZEL_LookupOrAddNode(db, 3);
            before = state_of(db);
        };
        const auto check = [&](bool failed, const std::string&) {
            EXPECT_TRUE(failed || done);
            EXPECT_EQ(ZEL_NodeCount(db) + ZEL_ModeCount(db), done ? row.second : 2);
            EXPECT_TRUE(done || state_of(db) == before);
            EXPECT_EQ(row.first(), 1) << "again";
        };
        EXPECT_GT(for_each_failing_allocation(
                      make, [&] { done = row.first(); }, check),
                  0);
    }
}

// A write with invariants leaves mode shapes at the nodes of faces only. Nodes that it left out, and new ones, can have some
// again.
TEST_F(Setters, WorkAfterAWriteThatReducedTheModeShapes)
{
    ZELDATA* db = ZEL_Create(8, 2);
    for (int id = 1; id <= 6; ++id)
    {
        ZEL_SetNodeCoordinates(db, id, id, 0.5 * id, id * id);
        ZEL_SetNodalMass(db, id, 1.0);
        ZEL_SetMode(db, 1, id, ZEL_MODE_SHAPE, id, 0, 0, 0, 0, 0);
    }
    ZEL_SetFace(db, 3, 2, 3, 5);
    rewrite(db, "full_invar no_ortho");
    ASSERT_EQ(ZEL_ModeNodeCount(db, 0), 3);
    EXPECT_EQ(ZEL_SetMode(db, 1, 6, ZEL_MODE_SHAPE, 7, 8, 9, 0, 0, 0), 1);
    EXPECT_EQ(ZEL_SetMode(db, 1, 77, ZEL_MODE_SHAPE, 70, 8, 9, 0, 0, 0), 1);
    EXPECT_EQ(ZEL_ModeNodeCount(db, 0), 5);
    for (const auto& [id, expected] : std::map<int, double>{{2, 2}, {3, 3}, {4, 0}, {5, 5}, {6, 7}, {77, 70}})
    {
        double translation[3];
        EXPECT_EQ(ZEL_ModeByNode(db, 1, 0, id, translation, 0), id != 4) << id;
        EXPECT_EQ(translation[0], expected) << id;
        EXPECT_EQ(ZEL_ModeNodeIndex(db, 0, id) >= 0, id != 4);
    }
}

// The invariants of a body, given to another one of as many modes, are what that has, in the order of their blocks.
TEST_F(Setters, StoreInvariantsInTheOrderOfTheirBlocks)
{
    const Assembly body = random_assembly(9, 2, 3, true);
    const int numbers[] = {2, 3, 4, 5, 7, 8, 9};
    const auto block_of = [](int number) { return ZEL_BLOCK_INVAR1 + number - (number < 6 ? 1 : 2); };
    double values[36];
    std::iota(values, values + 36, 1.0);
    EXPECT_EQ(ZEL_SetInvar3(db_, values) + ZEL_SetInvar9(db_, values), 0); // no modes yet
    EXPECT_EQ(ZEL_SetInvar6(db_, values), 1);
    for (int mode : {1, 2})
        ZEL_AddMode(db_, mode);
    for (int number : numbers)
    {
        EXPECT_TRUE(!flag(block_of(number)) && set_invariant(db_, number, nullptr) == 0) << number;
        EXPECT_EQ(set_invariant(db_, number, defined_invariant(body, number).data()), 1) << number;
        EXPECT_TRUE(flag(block_of(number))) << number;
    }
    ZEL_SetNodalMass(db_, 1, 5.0); // drops what was computed, not what was given
    for (int number : numbers)
        EXPECT_EQ(library_invariant(db_, number), defined_invariant(body, number)) << number;

    // Invariant 5 by mode, row and column; antisymmetric in mode and column.
    const auto said = [this](int number, const double* given) {
        return errors_of([&] { EXPECT_EQ(set_invariant(db_, number, given), 1); });
    };
    const double antisymmetric[12] = {0, 1, 0, -2, 0, 3, -1, 0, 2, 0, -3, 0};
    EXPECT_EQ(said(5, antisymmetric), "");
    EXPECT_PRED2(contains, said(5, values), "WARNING");
    EXPECT_EQ(db_->invar5[1][5], 12.0);
    double symmetric[36] = {};
    symmetric[9 * 1 + 1] = symmetric[9 * 2 + 3] = 4.0; // pair (0, 1) entry xy, pair (1, 0) entry yx
    EXPECT_EQ(said(9, symmetric), "");
    symmetric[9 * 2 + 3] += 1e-7;
    EXPECT_PRED2(contains, said(9, symmetric), "WARNING");

    const double ones[2] = {1.0, 1.0}, almost[2] = {1.0, std::nextafter(1.0, 2.0)};
    EXPECT_EQ(ZEL_SetInvar6(db_, ones), 1);
    EXPECT_EQ(refusal_of([&] { return ZEL_SetInvar6(db_, almost); }),
              "ERROR:  Inertia Invariant 6 must be an identity matrix.\n");
    EXPECT_EQ(db_->mass.count, 3);
    for (double mass : {0.0, -1.0, std::nan("")})
        EXPECT_EQ(refusal_of([&] { return ZEL_SetInvar1(db_, mass); }),
                  "ERROR:  Inertia Invariant 1 must be greater than zero\n");
    EXPECT_EQ(ZEL_SetInvar1(db_, 2.0) + ZEL_SetInvar1(db_, 3.0), 2);
    EXPECT_EQ(*db_->invar1, 3.0);

    // A further mode drops what was given for modes, by name.
    const std::string dropped = errors_of([&] { ZEL_AddMode(db_, 3); });
    for (int number : numbers)
    {
        const bool of_modes = number != 2 && number != 7;
        EXPECT_EQ(
            contains(dropped, "Inertia Invariant " + std::to_string(number) + " was given for the modes before mode 3"),
            of_modes);
        EXPECT_EQ(flag(block_of(number)), !of_modes);
    }
    EXPECT_TRUE(db_->invar1 && !db_->invar3);
}
