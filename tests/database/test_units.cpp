// Unit labels, their factors, and the rescaling of a body.
#include "fixtures.h"
#include "sample_file.h"

#include "database/record.h"

#include <cctype>
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

// Dimension, label, factor to SI, spellings: each unit and how it may be written, in any case.
constexpr const char* kVocabulary = R"(
mass MEGAGRAM 1000 mgg megagram tonne
mass KILOGRAM 1 kilogram kg
mass GRAM 0.001 gram
mass MILLIGRAM 1e-6 milligram mg
mass MICROGRAM 1e-9 microgram ug
mass NANOGRAM 1e-12 nanogram ng
mass USTON 907.18474 uston us_ton
mass KPOUND_MASS 453.59237 klbm kpound_mass
mass POUND_MASS 0.45359237 pound_mass lbm
mass OUNCE_MASS 0.02834952 ounce_mass ozm
mass SLUG 14.5939029372 slug
mass SLINCH 175.1271524 DOZEN_SLUG dozen_slug slinch
force KNEWTON 1000 knewton kn
force NEWTON 1 newton n
force MILLINEWTON 0.001 millinewton mn
force DYNE 1e-5 dyne
force MICRONEWTON 1e-6 micronewton un
force NANONEWTON 1e-9 nanonewton nn
force KPOUND_FORCE 4448.22161526 kpound_force klbf kip
force POUND_FORCE 4.44822161526 pound_force lbf
force KILOGRAM_FORCE 9.80665 kilogram_force kgf kg_force
force OUNCE_FORCE 0.2780139 ounce_force ozf
length KILOMETER 1000 kilometer km
length METER 1 meter m
length CENTIMETER 0.01 centimeter cm
length MILLIMETER 0.001 millimeter mm
length MICROMETER 1e-6 micrometer micron um
length NANOMETER 1e-9 nanometer nm
length ANGSTROM 1e-10 angstrom ang
length MILE 1609.344 mile mi
length YARD 0.9144 yard yd
length FOOT 0.3048 foot ft
length INCH 0.0254 inch in
length MIL 2.54e-5 mil milli_inch
length MICROINCH 2.54e-8 uin uinch microinch micro_inch
time SECOND 1 second sec s
time MILLISECOND 0.001 millisecond millisec ms
time MICROSECOND 1e-6 microsecond microsec us
time NANOSECOND 1e-9 nanosecond nanosec ns
time DAY 86400 day d
time HOUR 3600 hour hr h
time MINUTE 60 minute min
)";

TEST_F(Units, VocabularyIsCompleteInBothDirections)
{
    const std::map<std::string, const ZELUNIT*> tables = {
        {"mass", ZEL_MassUnits}, {"force", ZEL_ForceUnits}, {"length", ZEL_LengthUnits}, {"time", ZEL_TimeUnits}};
    std::map<std::string, int> units;
    std::istringstream lines(kVocabulary);
    int spellings = 0;
    for (std::string line, dimension, label, spelling; std::getline(lines, line);)
    {
        std::istringstream words(line);
        double factor = 0.0;
        if (!(words >> dimension >> label >> factor))
            continue;
        const ZELUNIT* table = tables.at(dimension);
        ++units[dimension];
        EXPECT_EQ(ZEL_UnitsDivider(label.c_str(), table), factor) << label;
        EXPECT_STREQ(ZEL_UnitsLabel(factor * 1.00005, table), label.c_str());
        EXPECT_EQ(canonical(label), label);
        for (; words >> spelling; ++spellings)
        {
            EXPECT_EQ(canonical(spelling), label) << spelling;
            for (char& c : spelling)
                c = char(std::isupper(c) ? std::tolower(c) : std::toupper(c));
            EXPECT_EQ(canonical(spelling), label) << spelling;
        }
    }
    EXPECT_EQ(spellings, 93);
    for (const auto& [dimension, table] : tables)
        EXPECT_STREQ(table[units[dimension]].label, "") << dimension;
    for (const char* unknown : {"g", "t", "", "kilograms", "kg ", "KILOGRAM_FORCES"})
        EXPECT_EQ(canonical(unknown), "?") << unknown;
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
    std::ifstream manual(ZEL_SOURCE "/docs/file-format.md");
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

namespace
{
// Tonne, millimetre, second, newton to kilogram, metre, millisecond, kilonewton.
constexpr double kM = 1e3, kL = 1e-3, kT = 1e3, kF = 1e-3;
constexpr double kInertia = kM * kL * kL, kEnergy = kF * kL, kStress = kF / (kL * kL);

void expect_reals(const char* what, const double* values, int count, int block, int first, double factor)
{
    ASSERT_TRUE(values) << what;
    for (int k = 0; k < count; ++k)
    {
        const double expected = sample::real(block, first + k) * factor;
        EXPECT_NEAR(values[k], expected, 4e-15 * std::fabs(expected)) << what << ' ' << k;
    }
}
} // namespace

// A file with every block, in one encoding; half of the mode vectors are read before the change.
TEST_F(Units, EveryBlockOfAFileIsScaledByItsDimension)
{
    const TemporaryFolder folder;
    SampleFile file = sample_file(format_of_version(60));
    FileBuilder eigenvalues = file.build();
    eigenvalues.integer(3);
    for (int mode = 0; mode < 3; ++mode) // the first one is rigid
    {
        eigenvalues.integer(sample::mode_numbers[size_t(mode)]);
        const double hertz = mode == 0 ? 0.05 : 130.0;
        eigenvalues.reals({sample::real(7, mode), hertz, 6.0 * hertz, sample::real(7, 3), sample::real(7, 4)});
    }
    file.blocks[7] = eigenvalues.bytes;
    write_bytes(folder.path("body.zel"), file.bytes());
    ZELDATA* db = ZEL_CreateFromZEL(folder.path("body.zel").c_str());
    ASSERT_TRUE(db);
    double vector[18];
    EXPECT_TRUE(ZEL_Mode(db, 7, 0, vector, 0) && ZEL_Mode(db, 7, 1, vector, 0));
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "ms", "kN"));

    for (int node = 0; node < 7; ++node)
        EXPECT_DOUBLE_EQ(db->nodes[node].y, sample::coordinate(db->nodes[node].id, 1) * kL);
    EXPECT_DOUBLE_EQ(ZEL_NodalMass(db, 0), sample::mass(10) * kM);
    double inertia[9];
    ASSERT_TRUE(ZEL_NodalInertia(db, ZEL_NodeIndex(db, 20), inertia));
    EXPECT_DOUBLE_EQ(inertia[4], sample::real(10, 1) * kInertia);
    expect_reals("mass", &db->total_mass, 1, 6, 0, kM);
    expect_reals("centre", db->center_of_mass, 3, 6, 1, kL);
    expect_reals("inertia", db->inertia_tensor, 9, 6, 4, kInertia);
    double value[5];
    ASSERT_TRUE(ZEL_Eigenvalue(db, 3, &value[0], &value[1], &value[2], &value[3], &value[4]));
    expect_reals("eigenvalue", &value[0], 1, 7, 1, kF / (kM * kL));
    EXPECT_DOUBLE_EQ(value[1], 130.0 / kT);
    EXPECT_DOUBLE_EQ(value[2], 780.0 / kT);
    expect_reals("generalized mass of a record", &value[3], 1, 7, 3, kInertia);
    expect_reals("generalized stiffness of a record", &value[4], 1, 7, 4, kEnergy);
    const double of_matrix[3] = {kEnergy, kInertia, kT / kL * kF};
    const ZELMATRIX* matrices[3] = {&db->stiffness, &db->mass, &db->damping};
    for (int i = 0; i < 3; ++i)
        for (int entry = 0; entry < 4; ++entry)
            expect_reals("matrix", &matrices[i]->entries[entry].value, 1, i == 2 ? 15 : 12 + i, entry, of_matrix[i]);
    for (int kind = 0; kind < 3; ++kind)
        for (int part = 0; part < 2; ++part)
            for (int mode : {7, 12})
            {
                const double factor = kind == 1 ? kStress : kind == 0 && part == 0 ? kL : 1.0;
                ASSERT_TRUE(ZEL_Mode(db, mode, kind, vector, part));
                const double expected =
                    sample::mode_value(kind, mode, sample::ids_of_kind(kind)[1], 3 * part + 2) * factor;
                EXPECT_NEAR(vector[5], expected, 4e-15 * expected) << kind << part << mode;
            }
    const double invar1 = ZEL_Invar1(db);
    expect_reals("invariant 1", &invar1, 1, 19, 0, kM);
    const std::pair<double*, std::vector<double>> kInvariants[] = {
        {ZEL_Invar2(db), {20, 3, 0, kM * kL}},        {ZEL_Invar3(db), {21, 9, 0, kM * kL}},
        {ZEL_Invar4(db), {22, 9, 0, kInertia}},       {ZEL_Invar5(db, 1), {23, 9, 9, kInertia}},
        {ZEL_Invar7(db), {24, 9, 0, kInertia}},       {ZEL_Invar8(db, 2), {25, 9, 18, kInertia}},
        {ZEL_Invar9(db, 1, 2), {26, 9, 45, kInertia}}};
    for (const auto& [values, row] : kInvariants)
    {
        expect_reals("invariant of block", values, int(row[1]), int(row[0]), int(row[2]), row[3]);
        std::free(values);
    }
    expect_reals("projected preload", db->modal_preload, 3, 27, 0, kF);
    expect_reals("load", db->load_cases[0].values, 3, 28, 0, kEnergy);
    expect_reals("projected load", db->load_cases[1].values, 3, 28, 3, kF);
    const double of_statistics[4] = {kL, 1.0, kStress, 1.0};
    for (int pair = 0; pair < 4; ++pair)
        expect_reals("statistics", &db->modal_statistics[1].pair[pair].value, 1, 30, 4 + pair, of_statistics[pair]);
    expect_reals("pre-stress", db->pre_stress[1].v, 6, 31, 6, kStress);
    expect_reals("pre-strain", db->pre_strain[1].v, 6, 32, 6, 1.0);
}

TEST_F(Units, ThatMakeAValueInfiniteAreRefused)
{
    ZELDATA* db = ZEL_Create(2, 2);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "s", "N"));
    ZEL_SetNodeCoordinates(db, 1, 1.0, 2.0, 3.0);
    ZEL_SetNodeCoordinates(db, 2, 1e306, 0.0, 0.0);
    EXPECT_FALSE(ZEL_SetUnits(db, "kg", "nm", "s", "N"));
    EXPECT_TRUE(db->nodes[0].x == 1.0 && db->nodes[1].x == 1e306 && db->base_scale[1] == 1.0);
    EXPECT_EQ(labels_of(db), "KILOGRAM METER SECOND NEWTON");
    EXPECT_TRUE(ZEL_SetUnits(db, "kg", "cm", "s", "N"));
}

TEST_F(Units, AModeAddedLaterHasTheMassThatAllOthersAreAssumedToHave)
{
    ZELDATA* db = ZEL_Create(1, 3);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "s", "N"));
    ZEL_SetGeneralizedStiffness(db, 1, 1, 5.0);
    ZEL_SetGeneralizedStiffness(db, 2, 2, 5.0);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "mm", "s", "N"));
    ZEL_SetGeneralizedStiffness(db, 3, 3, 5e3);
    double full[9];
    ASSERT_TRUE(ZEL_GenMassFull(db, full, 3));
    for (int mode = 1; mode <= 3; ++mode)
    {
        double eigenvalue = 0.0, mass = 0.0;
        ASSERT_TRUE(ZEL_Eigenvalue(db, mode, &eigenvalue, nullptr, nullptr, &mass, nullptr));
        EXPECT_DOUBLE_EQ(mass, 1e6);
        EXPECT_DOUBLE_EQ(eigenvalue, 5e-3);
        EXPECT_DOUBLE_EQ(full[4 * (mode - 1)], 1e6);
    }
}

// Units, loads and factors that a database had before it is read are not those of the file.
TEST_F(Units, OfADatabaseThatIsReadAreThoseOfTheFile)
{
    const TemporaryFolder folder;
    write_bytes(folder.path("body.zel"), sample_file(format_of_version(60)).bytes());
    ZELDATA *touched = ZEL_Create(0, 0), *fresh = ZEL_CreateFromZEL(folder.path("body.zel").c_str());
    ZEL_SetUnits(touched, "kg", "m", "s", "N");
    ZEL_SetUnits(touched, "kg", "mm", "ms", "N");
    ZEL_SetModalLoadLabel(touched, 0, "mine");
    ASSERT_TRUE(ZEL_ReadZEL(touched, std::fopen(folder.path("body.zel").c_str(), "rb"), nullptr));
    ASSERT_EQ(touched->load_case_count, 2);
    EXPECT_STREQ(touched->load_cases[0].label, "gravity");
    EXPECT_EQ(labels_of(touched), labels_of(fresh));
    double of_touched[18], of_fresh[18];
    for (int kind = 0; kind < 3; ++kind)
    {
        ASSERT_TRUE(ZEL_Mode(touched, 7, kind, of_touched, 0) && ZEL_Mode(fresh, 7, kind, of_fresh, 0));
        EXPECT_EQ(of_touched[0], of_fresh[0]);
    }
    EXPECT_EQ(ZEL_Invar1(touched), ZEL_Invar1(fresh));
    EXPECT_EQ(touched->stiffness.entries[0].value, fresh->stiffness.entries[0].value);
}
