// The inertia invariants: against sums in long double, and where their values come from.
#include "assembly.h"
#include "database/mode_files.h"
#include "fixtures.h"
#include "mechanics/mechanics.h"
#include "sample_file.h"

using InvariantsOf = FileTest;

// Sizes beyond a block of nodes, a tile of modes and a panel of tiles.
TEST_F(InvariantsOf, PointMassesAreTheirSums)
{
    for (const auto& [points, modes] : {std::pair(1, 1), {60, 7}, {20000, 3}, {30, 33}, {24, 261}})
        for (bool inertias : {false, true})
        {
            SCOPED_TRACE(testing::Message() << points << " points, " << modes << " modes");
            const Assembly body = random_assembly(points, modes, 5u, inertias);
            expect_invariants(database_of(body), body, 1e-12);
        }
}

// Read from the blocks of a file where these are all that is known, in current units.
TEST_F(InvariantsOf, AFileAreReadInCurrentUnits)
{
    SampleFile massless = sample_file({60, true, false});
    for (int block : {ZEL_BLOCK_MASSES, ZEL_BLOCK_INERTIAS})
        massless.blocks.erase(block);
    ZELDATA* db = opened(massless);
    EXPECT_TRUE(zel::mass_data_suffices(db, zel::InvariantSet::all));
    ASSERT_EQ(ZEL_SetUnits(db, "GRAM", "METER", "SECOND", "NEWTON"), 1);
    zel::RigidInvariants rigid = {};
    ASSERT_EQ(zel::rigid_invariants(db, rigid), 1);
    EXPECT_EQ(db->invar7, nullptr);
    EXPECT_EQ(std::vector<double>(rigid.tensor, rigid.tensor + 9), library_invariant(db, 7));
    for (const zel::InvariantRow& row : zel::kInvariants)
    {
        const std::vector<double> values = library_invariant(db, row.number);
        std::vector<double> expected = sample::reals(row.block, 0, int(values.size()));
        for (double& value : expected)
            value *= row.number == 1 ? 1e6 : row.number <= 3 ? 1e3 : 1.0; // Mg, Mg mm and Mg mm2
        expect_near(values, expected, 1e-15);
    }
    db->file_flags[zel::flag_position(ZEL_BLOCK_INVAR9)] = 0;
    zel::drop_invariant(db, 9);
    EXPECT_FALSE(zel::mass_data_suffices(db, zel::InvariantSet::all));
    EXPECT_TRUE(zel::mass_data_suffices(db, zel::InvariantSet::fast));
}

TEST_F(InvariantsOf, ABlockForAnotherModeCountKeepWhatIsCommon)
{
    for (int file_modes : {2, 4})
    {
        SampleFile file = sample_file(format_of_version(60));
        std::vector<double> five(size_t(3 * file_modes * file_modes)), nine(3 * five.size());
        for (const auto& [block, values] : {std::pair(ZEL_BLOCK_INVAR5, &five), {ZEL_BLOCK_INVAR9, &nine}})
        {
            std::iota(values->begin(), values->end(), 1.0);
            file.blocks[block] = file.build().integer(file_modes).reals(*values).bytes;
        }
        ZELDATA* db = opened(file);
        EXPECT_TRUE(errors_of([&] { std::free(ZEL_Invar5(db, 0)); }).starts_with("ERROR:  nm!=ModeCount at line "));
        errors_of([&] { std::free(ZEL_Invar9(db, 0, 0)); });
        const std::vector<double> read_five = library_invariant(db, 5), read_nine = library_invariant(db, 9);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                for (int k = 0; k < 9; ++k)
                {
                    const bool common = i < file_modes && j < file_modes;
                    EXPECT_EQ(read_nine[size_t((3 * i + j) * 9 + k)],
                              common ? nine[size_t((file_modes * i + j) * 9 + k)] : 0.0);
                    EXPECT_EQ(read_five[size_t((3 * i + k / 3) * 3 + j)],
                              common ? five[size_t((3 * i + k / 3) * file_modes + j)] : 0.0);
                }
    }
}

TEST_F(InvariantsOf, ABodyWithoutNodalMassesFollowFromItsGlobalMass)
{
    ZELDATA* db = database_of({});
    const double center[3] = {1, 0, 0}, inertia[9] = {4, 1, 2, 1, 5, 3, 2, 3, 6};
    errors_of([&] { EXPECT_EQ(ZEL_SetGlobalMass(db, 2.0, center, inertia), 1); });
    EXPECT_EQ(ZEL_Invar1(db), 2.0);
    EXPECT_EQ(library_invariant(db, 2), (std::vector<double>{2, 0, 0}));
    EXPECT_EQ(library_invariant(db, 7), (std::vector<double>{4, -1, -2, -1, 5, -3, -2, -3, 6}));
    EXPECT_EQ(ZEL_CalculateGlobalMassFromNodeMass(db), 1);
    EXPECT_EQ(std::vector<double>(db->inertia_tensor, db->inertia_tensor + 9),
              std::vector<double>(inertia, inertia + 9));
    EXPECT_EQ(db->center_of_mass[0], 1.0);
    EXPECT_TRUE(zel::mass_data_suffices(db, zel::InvariantSet::rigid));
    EXPECT_FALSE(zel::mass_data_suffices(db, zel::InvariantSet::fast));
}

TEST_F(InvariantsOf, ABodyWithoutModesAreThoseOfTheRigidOne)
{
    ZELDATA* db = ZEL_Create(1, 1);
    ZEL_SetNodeCoordinates(db, 9, 1, 0, 0);
    ZEL_SetNodalMass(db, 9, 2.5);
    EXPECT_EQ(library_invariant(db, 7), (std::vector<double>{0, 0, 0, 0, 2.5, 0, 0, 0, 2.5}));
    for (double* none :
         {ZEL_Invar3(db), ZEL_Invar4(db), ZEL_Invar5(db, 0), ZEL_Invar6(db), ZEL_Invar8(db, 0), ZEL_Invar9(db, 0, 0)})
        EXPECT_EQ(none, nullptr);
    EXPECT_EQ(zel::fill_invariants(db, zel::InvariantSet::all), 1);
    EXPECT_EQ(errors_of([] { EXPECT_EQ(ZEL_Invar2(nullptr), nullptr); }), "");
    EXPECT_EQ(ZEL_Invar1(nullptr), 0.0);

    ZELDATA* massless = ZEL_Create(1, 1);
    ZEL_SetNodalInertia(massless, 9, 1, 2, 3, 0, 0, 4);
    EXPECT_EQ(library_invariant(massless, 7), (std::vector<double>{1, 0, 0, 0, 2, 4, 0, 4, 3}));
}

// A part of a sum would be worse than none: it would look like a body.
TEST_F(InvariantsOf, ShapesThatMissAMassAreZero)
{
    const Assembly body = random_assembly(9, 2, 37u, true);
    ZELDATA* db = database_of(body);
    EXPECT_TRUE(zel::mass_data_suffices(db, zel::InvariantSet::all));
    db->mode_node_count[0] = 8; // as in a file whose shapes are of fewer nodes
    for (int number : {3, 4, 5, 8, 9})
        EXPECT_EQ(largest(library_invariant(db, number)), 0.0) << number;
    expect_near(library_invariant(db, 7), defined_invariant(body, 7), 1e-13);
    EXPECT_EQ(ZEL_SetNodalMass(db, 9, 0.0), 1);
    EXPECT_GT(largest(library_invariant(db, 3)), 0.0) << "the ninth node has neither mass nor inertia";
    EXPECT_EQ(ZEL_SetNodalInertia(db, 9, 1, 1, 1, 0, 0, 0), 1);
    EXPECT_EQ(largest(library_invariant(db, 3)), 0.0);
}

TEST_F(InvariantsOf, AChangedBodyAreSummedAnewUnlessGiven)
{
    Assembly body = random_assembly(9, 2, 41u, false);
    ZELDATA* db = database_of(body);
    for (int number : kInvariantNumbers)
        library_invariant(db, number);
    const std::vector<double> given = library_invariant(db, 8);
    ASSERT_EQ(ZEL_SetInvar8(db, given.data()), 1);
    auto& points = body.points;
    const std::function<int()> changes[] = {
        [&] { return ZEL_SetNodalMass(db, 5, points[4].mass = 7.0); },
        [&] {
            return points[2].s = {1, -2, 0.5}, ZEL_SetNodeCoordinates(db, 3, 1, -2, 0.5);
        },
        [&] { return points[1].inertia = {3, 4, 5, 0, 0, 1}, ZEL_SetNodalInertia(db, 2, 3, 4, 5, 0, 0, 1); },
        [&] { return ZEL_SetNodalInertiaEntry(db, 2, 1, 1, points[1].inertia[0] = 9.0); },
        [&] { return body.modes[1][3] = {1, 2, 3, 4, 5, 6}, ZEL_SetMode(db, 102, 4, 0, 1, 2, 3, 4, 5, 6); }};
    for (const auto& change : changes)
    {
        ASSERT_EQ(change(), 1);
        expect_invariants(db, body, 1e-12, {1, 2, 3, 4, 5, 7, 9});
        EXPECT_EQ(library_invariant(db, 8), given) << &change - changes;
    }
}

TEST_F(InvariantsOf, AnUnreadableModeAreRefusedUntilItCanBeRead)
{
    zel::refuse_mapping = true;
    const Assembly body = random_assembly(20000, 3, 43u, true);
    ZELDATA* db = database_of(body);
    zel::refuse_mapping = false;
    // The second half of the middle record lies beyond the end of its file, so that the first block of nodes is read.
    const int64_t position = std::exchange(db->mode_positions[0][1], db->mode_positions[0][2] + 24 * 20000);
    EXPECT_EQ(
        errors_of([&] { EXPECT_TRUE(!ZEL_Invar3(db) && !ZEL_Invar9(db, 0, 2)); }),
        "ERROR:  The mode shape of mode 102 cannot be read.\nERROR:  The mode shape of mode 102 cannot be read.\n");
    db->mode_positions[0][1] = position;
    expect_invariants(db, body, 1e-12);
}

TEST_F(InvariantsOf, ABodyAreSummedInOnePassOverItsModes)
{
    ZELDATA* db = database_of(random_assembly(20, 5, 47u, true));
    const int64_t before = zel::mode_reads;
    ASSERT_EQ(zel::fill_invariants(db, zel::InvariantSet::all), 1);
    EXPECT_EQ(zel::mode_reads - before, 5);
    for (int number : kInvariantNumbers)
        library_invariant(db, number);
    EXPECT_EQ(zel::mode_reads - before, 5);
}
