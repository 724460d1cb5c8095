// Checks and facts of bodies as records. Every check has a body with one fault that it must find, and only it.
#include "assembly.h"
#include "box.h"
#include "fixtures.h"
#include "sample_file.h"

#include "checks/checks.h"

#include <limits>

using zel_checks::Report, zel_checks::Row, zel_checks::RowKind, zel_checks::check_body;

namespace
{
using Names = std::vector<std::string>;

using Change = std::function<void(ZELDATA*)>;

struct Fault
{
    Names checks = {}; // that must fail
    const char* options = "full_invar";
    Change built = {};           // what is wrong before the body is written,
    std::string behind = {};     // what is behind it in the file,
    Change opened = {};          // what becomes wrong when it is open,
    Change with_invariants = {}; // or when its invariants are read
};

class Checks : public ZelTest
{
protected:
    ZELDATA* open_box(const Fault& fault = {})
    {
        ZEL_Terminate();
        ZELDATA* db = box();
        if (fault.built)
            errors_of([&] { fault.built(db); });
        write_and_free(db, path, fault.options);
        write_bytes(path, bytes_of(path) + fault.behind);
        db = ZEL_CreateFromZEL(path.c_str());
        if (fault.opened)
            fault.opened(db);
        if (!fault.with_invariants)
            return db;
        for (int number : kInvariantNumbers)
            library_invariant(db, number);
        fault.with_invariants(db);
        return db;
    }
    // The checks that fail.
    Names failed(const Fault& fault)
    {
        ZELDATA* db = open_box(fault);
        Names names;
        errors_of([&] {
            const Report report = check_body(db);
            for (const Row& row : report.rows())
                if (!*row.holds)
                    names.push_back(row.name);
            EXPECT_EQ(report.all_hold(), names.empty());
        });
        return names;
    }
    TemporaryFolder folder;
    const std::string path = folder.path("box.zel");
};

// A number of a check; not a number when the check has none of that name.
double number_of(const Report& report, const std::string& check, const std::string& name)
{
    for (const Row& row : report.rows())
        for (const auto& [its_name, value] : row.numbers)
            if (row.name == check && its_name == name)
                return value;
    return std::numeric_limits<double>::quiet_NaN();
}
} // namespace

TEST_F(Checks, HoldForASoundBody)
{
    const Report report = check_body(open_box());
    EXPECT_TRUE(report.all_hold());
    EXPECT_EQ(number_of(report, "blocks fill the file", "file_bytes"), double(bytes_of(path).size()));
    EXPECT_EQ(number_of(report, "mass, centre and inertia agree", "mass_nodes"), 24.0);
    EXPECT_EQ(number_of(report, "six rigid-body modes in front", "rigid_modes"), 6.0);
    EXPECT_NEAR(number_of(report, "generalized mass symmetric, positive", "lowest_eigenvalue"), 1.0, 1e-9);
    EXPECT_EQ(number_of(report, "units consistent", "factor"), 1.0);
    for (const zel_checks::Frequency& frequency : zel_checks::facts_of(ZEL_CreateFromZEL(path.c_str())).frequencies)
        EXPECT_EQ(frequency.rigid, frequency.mode <= 6);
}

TEST_F(Checks, FindTheFaultOfABody)
{
    const auto add_reference = [](double x) { // a node at rest, where another one is or where none is
        return [x](ZELDATA* db) {
            ZEL_SetNodeCoordinates(db, 9, x, 1.0, 1.0);
            ZEL_SetInterfaceNode(db, 9);
        };
    };
    const auto stiffness = [](int row, int column, double value) {
        return [=](ZELDATA* db) { ZEL_SetGeneralizedStiffness(db, row, column, value); };
    };
    const auto couple = [](ZELDATA* db) {
        ZEL_SetGeneralizedStiffness(db, 6, 7, 100.0);
        ZEL_SetGeneralizedStiffness(db, 7, 6, 100.0);
    };
    const double products[9] = {24, 12, 12, 12, 60, 6, 12, 6, 60}, beside[3] = {1.0, 0.5, 0.51};
    const std::vector<double> ones(21, 1.0);
    const Fault kFaults[] = {
        {.checks = {"blocks fill the file"}, .behind = "more"},
        {.checks = {"blocks fill the file", "mode vectors can be read", "mass, centre and inertia agree",
                    "invariants can be read"},
         .opened = [&](ZELDATA*) { std::filesystem::resize_file(path, 2000); }},
        {.checks = {"counts agree"}, .opened = [](ZELDATA* db) { db->transformation_order = 6; }},
        {.checks = {"mass, centre and inertia agree"},
         .options = "",
         .built = [&](ZELDATA* db) { ZEL_SetGlobalMass(db, 24.0, beside, products); }},
        {.checks = {"six rigid-body modes in front"}, .built = stiffness(6, 6, 1e6)},
        {.checks = {"rigid-body modes orthonormal"},
         .options = "no_ortho",
         .built = [](ZELDATA* db) { ZEL_SetGeneralizedMass(db, 3, 3, 1.01); }},
        {.checks = {"flexible modes orthogonal to rigid ones", "flexible modes over lumped masses",
                    "generalized mass symmetric, positive"},
         .options = "no_ortho",
         .built = [](ZELDATA* db) { ZEL_SetGeneralizedMass(db, 7, 7, -1.0); }},
        {.checks = {"generalized stiffness symmetric, not negative"},
         .options = "no_ortho",
         .built = stiffness(7, 7, -1e5)},
        {.checks = {"six rigid-body modes in front", "generalized stiffness symmetric, not negative"},
         .options = "no_ortho",
         .built = stiffness(6, 7, 1.0)},
        {.checks = {"six rigid-body modes in front", "generalized stiffness symmetric, not negative"},
         .options = "no_ortho",
         .built = couple},
        {.checks = {"rigid-body modes by invariants", "invariants 5 and 8 of rigid-body modes",
                    "flexible modes without momentum"},
         .built = [&](ZELDATA* db) { ZEL_SetInvar3(db, ones.data()); }},
        {.checks = {"flexible modes without momentum"}, // 1e-5 of one mode's angular momentum
         .with_invariants = [](ZELDATA* db) { db->invar4[6] += 1e-5 * std::sqrt(12.0); }},
        {.checks = {"invariants 5 and 9 symmetric in the modes", "invariants 5 and 8 of rigid-body modes"},
         .with_invariants = [](ZELDATA* db) { db->invar5[2][1] += 1e-5; }},
        {.checks = {"invariants 5 and 8 of rigid-body modes"},
         .with_invariants = [](ZELDATA* db) { db->invar8[6][1] += 1e-4; }},
        {.checks = {"invariants 5 and 9 symmetric in the modes"},
         .with_invariants = [](ZELDATA* db) { db->invar9[1][4][2] += 1e-5; }},
        {.checks = {"mass, centre and inertia agree", "invariant 7 is that of a body"}, // the third has 30, 12 and 50
         .with_invariants = [](ZELDATA* db) { db->invar7[8] += 20.0; }},
        {.checks = {"nodes at distinct points"},
         .built = [](ZELDATA* db) { ZEL_SetNodeCoordinates(db, 9, 2.0, 1.0, 1.0); }},
        {.checks = {"face nodes move with the modes"},
         .opened = [](ZELDATA* db) { db->mode_node_count[ZEL_MODE_SHAPE] = 7; }},
        {.checks = {"interface nodes on the body"}, .built = add_reference(2.0)},
        {.checks = {"interface nodes on the body"}, .built = add_reference(5.0)},
        {.checks = {"units consistent"}, .built = [](ZELDATA* db) { ZEL_SetUnits(db, "kg", "m", "s", "kN"); }},
    };
    std::set<std::string> seen;
    for (const Fault& fault : kFaults)
    {
        seen.insert(fault.checks.begin(), fault.checks.end());
        EXPECT_EQ(failed(fault), fault.checks);
    }
    const Report sound = check_body(open_box());
    for (const Row& row : sound.rows())
        EXPECT_TRUE(seen.count(row.name)) << "no body fails the check: " << row.name;
    EXPECT_EQ(seen.size(), sound.rows().size() + 1); // invariants that cannot be read are no check of a sound body
}

// The two sides of a slit are as one in rigid-body motions and part in others. A wrong coordinate shows in the first.
TEST_F(Checks, KnowTheSidesOfASlitFromAWrongCoordinate)
{
    const double t = 1.0 / std::sqrt(24.0), a = 1.0 / std::sqrt(12.0), b = 1.0 / std::sqrt(30.0);
    // Of the eighth node in all modes, but for the stretching.
    const double corner[7][3] = {{t}, {0, t}, {0, 0, t}, {0, -a / 2, a / 2}, {b / 2, 0, -b}, {-b / 2, b, 0}, {-t}};
    for (const double elsewhere : {0.0, 1e-3})
    {
        const auto add_side = [&](ZELDATA* db) {
            for (int mode = 1; const auto& [x, y, z] : corner)
            {
                ZEL_SetMode(db, mode, 9, 0, x + (mode == 5 ? elsewhere : 0.0), y, z, 0, 0, 0);
                ++mode;
            }
            ZEL_SetNodeCoordinates(db, 9, 2.0, 1.0, 1.0);
            ZEL_SetFace(db, 3, 5, 6, 9);
        };
        const Report report = check_body(open_box({.built = add_side}));
        EXPECT_EQ(number_of(report, "nodes at distinct points", "coincident"), elsewhere == 0.0 ? 0.0 : 1.0);
    }
}

// Masses at nodes in a plane have no centre beside it, where the invariants of a matrix may have theirs.
TEST_F(Checks, LetTheCentreLieBesideNodesInAPlane)
{
    for (const auto& [along, flat, holds] : {std::tuple(0, true, false), {2, true, true}, {2, false, false}})
    {
        const auto flatten = [flat = flat](ZELDATA* db) {
            for (int node = 0; flat && node < db->node_count; ++node)
                db->nodes[node].z = 0.5;
        };
        const auto shift = [along = along](ZELDATA* db) {
            for (int node = 0; node < db->node_count; ++node)
                (along == 0 ? db->nodes[node].x : db->nodes[node].z) += 1e-6;
        };
        const Names names = failed({.built = flatten, .opened = shift});
        EXPECT_EQ(std::count(names.begin(), names.end(), "mass, centre and inertia agree"), holds ? 0 : 1)
            << along << flat;
    }
}

TEST_F(Checks, TellHowFarTheyAreAndStopWhenTold)
{
    ZELDATA* db = open_box();
    Names phases;
    double last = 0.0;
    check_body(db, [&](const char* phase, double share) {
        if (share < 0.0)
            phases.push_back(phase);
        EXPECT_EQ(phases.back(), phase);
        last = share < 0.0 ? last : share;
        return share <= 1.0;
    });
    EXPECT_EQ(phases, (Names{"read the modes", "multiply the modes", "nodes and invariants"}));
    EXPECT_EQ(last, 1.0);
    EXPECT_THROW(check_body(db, [](const char*, double share) { return share < 0.5; }), zel_checks::Stopped);
}

// Two springs of stiffness 1 beside each other, joined by one of 1, among modes of which the file says no more than their count.
TEST_F(Checks, SeeCoupledModesAmongThousandsThatAreOnlyCounted)
{
    constexpr int kModes = 20000;
    SampleFile file = sample_file({60, false, false});
    FileBuilder stiffness = file.build().integers({4, kModes});
    for (const int row : {1, 2})
        for (const int column : {1, 2})
            stiffness.integers({row, column}).real(row == column ? 2.0 : -1.0).integer(0);
    file.blocks = {{2, file.blocks[2]}, {ZEL_BLOCK_NODES, file.blocks[4]}, {ZEL_BLOCK_STIFFNESS, stiffness.bytes}};
    write_bytes(path, file.bytes() + std::string(4 * kModes, '\0'));
    const auto frequencies = zel_checks::facts_of(ZEL_CreateFromZEL(path.c_str())).frequencies;
    ASSERT_EQ(frequencies.size(), size_t(kModes));
    EXPECT_TRUE(frequencies[kModes - 3].rigid);
    EXPECT_NEAR(frequencies[kModes - 2].hertz, 0.5 / M_PI, 1e-15);
    EXPECT_NEAR(frequencies[kModes - 1].hertz, 0.5 * std::sqrt(3.0) / M_PI, 1e-15);
}

TEST_F(Checks, TellHowInterfacesTakePartInModes)
{
    const auto damp = [](ZELDATA* db) { ZEL_SetGeneralizedDamping(db, 7, 7, 2.0 * 0.03 * 100.0 * M_PI); };
    const zel_checks::ModeTable table = zel_checks::mode_table_of(open_box({.built = damp}));
    EXPECT_EQ(table.interface_ids, std::vector<int>{1});
    for (size_t k = 0; k < 7; ++k)
    {
        const zel_checks::InterfaceMotion& motion = table.modes[k].interfaces[0];
        EXPECT_NEAR(motion.translation, 1.0, 1e-9) << k; // a corner like all others
        EXPECT_NEAR(motion.rotation, k < 3 || k == 6 ? 0.0 : std::sqrt(36.0 / (k == 3 ? 12.0 : 30.0)), 1e-9) << k;
        EXPECT_EQ(motion.flexibility, k < 6 ? 0.0 : 1.0);
        EXPECT_EQ(table.modes[k].damping_ratio.has_value(), k == 6);
    }
    EXPECT_NEAR(*table.modes[6].damping_ratio, 0.03, 1e-12);
    EXPECT_NEAR(table.modes[3].kinetic_energy[1], 0.5, 1e-12); // turns about x, half along y, half along z
}
