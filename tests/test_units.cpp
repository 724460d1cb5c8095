// Unit labels, their factors, and the rescaling of a body.
#include "fixtures.h"

#include "zeldb.h"

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>

namespace
{
std::string canonical(std::string label)
{
    label.resize(32);
    return ZEL_ConvertUnitsLabel(label.data()) ? label.c_str() : "?";
}

struct Labels
{
    const char *mass, *length, *time, *force;
    int set(ZELDATA* db) const { return ZEL_SetUnits(db, mass, length, time, force); }
};

std::string labels_of(const ZELDATA* db)
{
    char mass[16], length[16], time[16], force[16];
    ZEL_Units(db, mass, length, time, force);
    return std::string(mass) + " " + length + " " + time + " " + force;
}
} // namespace

using Units = ZelTest;

TEST_F(Units, EveryCanonicalLabelIsASpellingOfItself)
{
    for (const ZELUNIT* table : {ZEL_MassUnits, ZEL_ForceUnits, ZEL_LengthUnits, ZEL_TimeUnits})
        for (const ZELUNIT* unit = table; *unit->label; ++unit)
        {
            EXPECT_EQ(canonical(unit->label), unit->label);
            EXPECT_EQ(ZEL_UnitsDivider(unit->label, table), unit->factor);
            EXPECT_STREQ(ZEL_UnitsLabel(unit->factor * 1.00005, table), unit->label);
        }
}

TEST_F(Units, SpellingsIgnoreCaseAndKeepTheirOddities)
{
    const std::map<std::string, std::string> expected = {
        {"kg", "KILOGRAM"},
        {"Tonne", "MEGAGRAM"},
        {"MGG", "MEGAGRAM"},
        {"Mg", "MILLIGRAM"},
        {"MN", "MILLINEWTON"},
        {"kN", "KNEWTON"},
        {"n", "NEWTON"},
        {"us_ton", "USTON"},
        {"klbm", "KPOUND_MASS"},
        {"ozm", "OUNCE_MASS"},
        {"dozen_slug", "SLINCH"},
        {"kip", "KPOUND_FORCE"},
        {"lbf", "POUND_FORCE"},
        {"kgf", "KILOGRAM_FORCE"},
        {"ozf", "OUNCE_FORCE"},
        {"micron", "MICROMETER"},
        {"ang", "ANGSTROM"},
        {"mi", "MILE"},
        {"yd", "YARD"},
        {"milli_inch", "MIL"},
        {"uinch", "MICROINCH"},
        {"MS", "MILLISECOND"},
        {"hr", "HOUR"},
        {"d", "DAY"},
        {"min", "MINUTE"},
        {"us", "MICROSECOND"},
        {"ug", "MICROGRAM"},
        {"un", "MICRONEWTON"},
        {"g", "?"},
        {"", "?"},
        {"kilograms", "?"},
        {"kg ", "?"},
    };
    for (const auto& [spelling, label] : expected)
        EXPECT_EQ(canonical(spelling), label) << spelling;
}

TEST_F(Units, FactorsComeFromTheOwnTableOnly)
{
    EXPECT_EQ(ZEL_UnitsDivider("", ZEL_MassUnits), 1.0);
    EXPECT_EQ(ZEL_UnitsDivider("METER", ZEL_MassUnits), 0.0);
    EXPECT_STREQ(ZEL_UnitsLabel(0.30479, ZEL_LengthUnits), "FOOT");
    EXPECT_EQ(ZEL_UnitsLabel(0.31, ZEL_LengthUnits), nullptr);
    EXPECT_EQ(ZEL_UnitsLabel(std::nan(""), ZEL_LengthUnits), nullptr);
    EXPECT_EQ(ZEL_UnitsLabel(-1.0, ZEL_LengthUnits), nullptr);

    ZELDATA* db = ZEL_Create(0, 0);
    EXPECT_EQ(labels_of(db), "KILOGRAM METER SECOND NEWTON");
    EXPECT_EQ(ZEL_UCF(db), 1.0);
    ASSERT_TRUE(ZEL_SetUnits(db, "lbm", "ft", "hr", "lbf"));
    EXPECT_DOUBLE_EQ(ZEL_Mass2Kilogram(db, 2.0), 0.90718474);
    EXPECT_DOUBLE_EQ(ZEL_Length2Meter(db, 10.0), 3.048);
    EXPECT_DOUBLE_EQ(ZEL_Time2Second(db, 0.5), 1800.0);
    EXPECT_DOUBLE_EQ(ZEL_Force2Newton(db, 1.0), 4.44822161526);
    EXPECT_NEAR(ZEL_UCF(db), 32.174048556 * 3600.0 * 3600.0, 1.0); // standard gravity in ft/h^2
    ASSERT_TRUE(ZEL_SetUnits(db, "tonne", "mm", "s", "N"));
    EXPECT_DOUBLE_EQ(ZEL_UCF(db), 1.0);
}

TEST_F(Units, ChangesThatFailTouchNothing)
{
    ZELDATA* db = ZEL_Create(0, 0);
    EXPECT_FALSE(ZEL_SetUnits(db, "kg", "cubit", "s", "N"));
    EXPECT_FALSE(ZEL_SetUnits(db, "kg", nullptr, "s", "N"));
    EXPECT_FALSE(ZEL_SetUnitsByMultiplierOnSI(db, 1.0, 0.31, 1.0, 1.0));
    EXPECT_FALSE(ZEL_SetUnits(nullptr, "kg", "m", "s", "N"));
    ASSERT_TRUE(ZEL_SetUnitsByMultiplierOnSI(db, 1.0, 0.0254, 1.0, 4.44822));
    EXPECT_EQ(labels_of(db), "KILOGRAM INCH SECOND POUND_FORCE");
    db->total_mass = 3.0;
    EXPECT_FALSE(ZEL_SetUnits(db, "m", "kg", "s", "N")); // a length for the mass
    EXPECT_EQ(labels_of(db), "KILOGRAM INCH SECOND POUND_FORCE");
    EXPECT_EQ(db->total_mass, 3.0);

    // The first units are stored whatever table they belong to; then no factor is known and no change possible.
    ZELDATA* swapped = ZEL_Create(0, 0);
    EXPECT_TRUE(ZEL_SetUnits(swapped, "mm", "kg", "s", "N"));
    EXPECT_EQ(labels_of(swapped), "MILLIMETER KILOGRAM SECOND NEWTON");
    EXPECT_EQ(ZEL_UCF(swapped), 0.0);
    EXPECT_FALSE(ZEL_SetUnits(swapped, "kg", "mm", "s", "N"));
}

TEST_F(Units, RatiosAreThoseOfTheLastChangeAndFactorsOfAll)
{
    ZELDATA* db = ZEL_Create(0, 0);
    const Labels changes[] = {{"kg", "m", "s", "N"}, {"kg", "mm", "s", "N"}, {"kg", "in", "s", "kN"}};
    for (const Labels& labels : changes)
        ASSERT_TRUE(labels.set(db));
    EXPECT_DOUBLE_EQ(db->units.length_scale, 1.0 / 25.4);
    EXPECT_DOUBLE_EQ(db->units.force_scale, 1e-3);
    EXPECT_DOUBLE_EQ(db->base_scale[1], 1.0 / 0.0254);
    EXPECT_DOUBLE_EQ(db->mode_factor[ZEL_MODE_SHAPE], 1.0 / 0.0254);
    EXPECT_DOUBLE_EQ(db->mode_factor[ZEL_MODAL_STRESS], 1e-3 * 0.0254 * 0.0254);
    EXPECT_EQ(db->mode_factor[ZEL_MODAL_STRAIN], 1.0);
}

namespace
{
// Units in SI, by which the values of a body given in SI are divided.
struct Scale
{
    Labels labels;
    double m, l, t, f;
};
const Scale kSi = {{"kg", "m", "s", "N"}, 1, 1, 1, 1},
            kMillimetres = {{"tonne", "mm", "ms", "kN"}, 1e3, 1e-3, 1e-3, 1e3},
            kInches = {{"slinch", "inch", "min", "lbf"}, 175.1271524, 0.0254, 60, 4.44822161526};
} // namespace

// Mode vectors of one node in every kind: those of three nodes are set at three different times.
static void set_vectors(ZELDATA* db, const Scale& u, int node_id)
{
    const double l = u.l, s = u.f / (u.l * u.l), v = node_id * 0.3;
    for (int mode : {4, 9})
    {
        ZEL_SetMode(db, mode, node_id, ZEL_MODE_SHAPE, v / l, 2 / l, mode / l, 0.1, 0.2, v);
        ZEL_SetMode(db, mode, node_id, ZEL_MODAL_STRAIN, v, 1, 2, 3, 4, mode);
        ZEL_SetMode(db, mode, node_id, ZEL_MODAL_STRESS, v / s, 1 / s, 2 / s, 3 / s, 4 / s, 5 / s);
        ZEL_SetModeEntry(db, mode, node_id, ZEL_MODAL_STRESS, 4, mode / s);
    }
    ZEL_SetMode(db, 0, node_id, ZEL_MODAL_STRESS, 10 / s, v / s, 30 / s, 40 / s, 50 / s, 60 / s);
    ZEL_SetMode(db, 0, node_id, ZEL_MODAL_STRAIN, v, 1, 2, 3, 4, 5);
}

// All other quantities, with numbers that have no round ratios.
static void set_body(ZELDATA* db, const Scale& u)
{
    const double ml = u.m * u.l, mll = ml * u.l, fl = u.f * u.l, flt = fl * u.t;
    double first[6], second[36];
    for (int i = 0; i < 36; ++i)
    {
        first[i % 6] = (0.7 + i % 6) / ml;
        second[i] = (1.3 + i) / mll;
    }
    for (int node_id : {1, 2, 3})
    {
        ZEL_SetNodeCoordinates(db, node_id, 0.37 * node_id / u.l, -1.1 / u.l, 2.3 / u.l);
        ZEL_SetNodalMass(db, node_id, 1.7 * node_id / u.m);
    }
    ZEL_SetNodalInertia(db, 2, 1.1 / mll, 1.2 / mll, 1.3 / mll, 0.1 / mll, 0.2 / mll, 0.3 / mll);
    for (int mode : {4, 9})
    {
        ZEL_SetGeneralizedMass(db, mode, 4, 1.9 * mode / mll);
        ZEL_SetGeneralizedStiffness(db, mode, 4, 170.0 * mode / fl);
        ZEL_SetGeneralizedDamping(db, mode, 4, 0.017 * mode / flt);
        ZEL_SetModalLoad(db, 1, mode, 13.0 * mode / fl);
        ZEL_SetModalPreload(db, mode, 15.0 * mode / fl);
    }
    ZEL_SetInvar1(db, 10.2 / u.m);
    ZEL_SetInvar2(db, first);
    ZEL_SetInvar3(db, first);
    ZEL_SetInvar4(db, second);
    ZEL_SetInvar5(db, second);
    ZEL_SetInvar7(db, second);
    ZEL_SetInvar8(db, second);
    ZEL_SetInvar9(db, second);
    const double center[3] = {0.86 / u.l, -1.1 / u.l, 2.3 / u.l};
    ZEL_SetGlobalMass(db, 10.2 / u.m, center, second);
}

static std::vector<double> everything(ZELDATA* db)
{
    std::vector<double> all = {db->total_mass, ZEL_UCF(db)};
    const auto add = [&](const double* values, int count) { all.insert(all.end(), values, values + count); };
    for (int node = 0; node < db->node_count; ++node)
        all.insert(all.end(), {db->nodes[node].x, db->nodes[node].y, db->nodes[node].z, db->nodes[node].mass});
    add(db->nodes[1].inertia, 6);
    add(db->center_of_mass, 3);
    add(db->inertia_tensor, 9);
    for (const ZELMATRIX* matrix : {&db->mass, &db->stiffness, &db->damping})
        for (int i = 0; i < matrix->count; ++i)
            all.push_back(matrix->entries[i].value);
    add(db->load_cases[1].values, db->mode_count);
    add(db->modal_preload, db->mode_count);
    add(db->invar1, 1);
    add(db->invar2, 3);
    add(db->invar3, 6);
    add(db->invar4, 6);
    add(db->invar7, 9);
    for (int i = 0; i < 2; ++i)
    {
        add(db->invar5[i], 6);
        add(db->invar8[i], 9);
        add(db->invar9[i][1 - i], 9);
    }
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        for (int mode : {4, 9, 0})
        {
            double vector[18] = {};
            EXPECT_EQ(ZEL_Read_Mode_Double(db, mode, kind, vector), mode != 0 || kind != 0);
            add(vector, 18);
        }
    return all;
}

// A body that is built while its units change equals the one built in the units that it ends with.
TEST_F(Units, ChangesCarryEveryQuantityAlong)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr(); // the given invariants contradict each other
    ZELDATA *si = ZEL_Create(3, 2), *built_otherwise = ZEL_Create(3, 2), *round_trip = ZEL_Create(3, 2);
    kSi.labels.set(si);
    kMillimetres.labels.set(built_otherwise);
    for (int node_id : {1, 2, 3})
    {
        set_vectors(si, kSi, node_id);
        set_vectors(built_otherwise, kMillimetres, node_id);
    }
    set_body(si, kSi);
    set_body(built_otherwise, kMillimetres);
    kSi.labels.set(built_otherwise);

    kSi.labels.set(round_trip);
    set_vectors(round_trip, kSi, 1);
    set_body(round_trip, kSi);
    kMillimetres.labels.set(round_trip);
    set_vectors(round_trip, kMillimetres, 2);
    kInches.labels.set(round_trip);
    set_vectors(round_trip, kInches, 3);
    kSi.labels.set(round_trip);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();

    const std::vector<double> expected = everything(si);
    for (ZELDATA* db : {built_otherwise, round_trip})
    {
        const std::vector<double> converted = everything(db);
        ASSERT_EQ(converted.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i)
            EXPECT_NEAR(converted[i], expected[i], 1e-14 * std::fabs(expected[i])) << "value " << i;
    }
}

// The manual tells other programs what the labels mean: its table has every unit with its factor and every spelling.
TEST_F(Units, AreThoseOfTheManual)
{
    const std::map<std::string, const ZELUNIT*> tables = {
        {"mass", ZEL_MassUnits}, {"length", ZEL_LengthUnits}, {"time", ZEL_TimeUnits}, {"force", ZEL_ForceUnits}};
    std::ifstream manual(ZEL_FILE_FORMAT);
    int units = 0, spellings = 0;
    for (std::string line, bar, quantity, label, spelling; std::getline(manual, line);)
    {
        double factor = 0.0;
        std::istringstream cells(line);
        if (!(cells >> bar >> quantity >> bar >> label >> bar >> factor >> bar) || !tables.count(quantity))
            continue;
        ++units;
        EXPECT_EQ(ZEL_UnitsDivider(label.c_str(), tables.at(quantity)), factor) << line;
        EXPECT_EQ(canonical(label), label);
        for (; cells >> spelling && spelling != "|" && spelling != "-"; ++spellings)
            EXPECT_EQ(canonical(spelling.substr(0, spelling.find(','))), label) << spelling;
    }
    int known = 0;
    for (const auto& [quantity, table] : tables)
        for (const ZELUNIT* unit = table; unit->label[0]; ++unit)
            ++known;
    EXPECT_EQ(units, known);
    EXPECT_EQ(spellings, 50);
}
