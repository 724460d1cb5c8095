// Unit labels, their factors, and the rescaling of a body.
#include "quiet.h"
#include "sample_file.h"

#include "database/record.h"

#include <cctype>

namespace
{
std::string canonical(std::string label)
{
    label.resize(32);
    return ZEL_ConvertUnitsLabel(label.data()) ? label.c_str() : "?";
}

std::string labels_of(const ZELDATA* db)
{
    char mass[16], length[16], time[16], force[16];
    ZEL_Units(db, mass, length, time, force);
    return std::string(mass) + " " + length + " " + time + " " + force;
}
using Units = QuietTest;

TEST_F(Units, FactorsComeFromTheOwnTableOnly)
{
    EXPECT_EQ(ZEL_UnitsDivider("", ZEL_MassUnits), 1.0);
    EXPECT_EQ(ZEL_UnitsDivider("METER", ZEL_MassUnits), 0.0);
    EXPECT_STREQ(ZEL_UnitsLabel(0.30479, ZEL_LengthUnits), "FOOT");
    for (double factor : {0.31, std::nan(""), -1.0})
        EXPECT_EQ(ZEL_UnitsLabel(factor, ZEL_LengthUnits), nullptr);

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
    db->total_mass = 3.0;
    ZEL_SetNodeCoordinates(db, 1, 1.0, 2.0, 3.0);
    ZEL_SetNodeCoordinates(db, 2, 1e306, 0.0, 0.0);
    EXPECT_FALSE(ZEL_SetUnits(db, "m", "kg", "s", "N"));    // a length for the mass
    EXPECT_FALSE(ZEL_SetUnits(db, "kg", "nm", "s", "lbf")); // beyond all numbers
    EXPECT_EQ(labels_of(db), "KILOGRAM INCH SECOND POUND_FORCE");
    EXPECT_TRUE(db->total_mass == 3.0 && db->nodes[0].x == 1.0 && db->nodes[1].x == 1e306 && db->base_scale[1] == 1.0);
    EXPECT_TRUE(ZEL_SetUnits(db, "kg", "cm", "s", "lbf"));

    // The first units are stored whatever table they belong to; then no factor is known and no change possible.
    ZELDATA* swapped = ZEL_Create(0, 0);
    EXPECT_TRUE(ZEL_SetUnits(swapped, "mm", "kg", "s", "N"));
    EXPECT_EQ(labels_of(swapped), "MILLIMETER KILOGRAM SECOND NEWTON");
    EXPECT_EQ(ZEL_UCF(swapped), 0.0);
    EXPECT_FALSE(ZEL_SetUnits(swapped, "kg", "mm", "s", "N"));
}

// Units of a body, with those of length and force in SI: values given in SI are divided by them.
struct Scale
{
    const char *mass, *length, *time, *force;
    double l, f;
};
// Mode vectors of one node in every kind, in such units: those of three nodes are set at three different times.
void set_vectors(ZELDATA* db, const Scale& units, int node_id)
{
    ZEL_SetUnits(db, units.mass, units.length, units.time, units.force);
    const double l = units.l, s = units.f / (l * l), v = node_id * 0.3;
    for (int mode : {4, 9})
    {
        ZEL_SetMode(db, mode, node_id, ZEL_MODE_SHAPE, v / l, 2 / l, mode / l, 0.1, 0.2, v);
        ZEL_SetModeEntry(db, mode, node_id, ZEL_MODE_SHAPE, 4, mode);
        ZEL_SetMode(db, mode, node_id, ZEL_MODAL_STRAIN, v, 1, 2, 3, 4, mode);
        ZEL_SetMode(db, mode, node_id, ZEL_MODAL_STRESS, v / s, 1 / s, 2 / s, 3 / s, 4 / s, 5 / s);
        ZEL_SetModeEntry(db, mode, node_id, ZEL_MODAL_STRESS, 4, mode / s);
    }
    ZEL_SetMode(db, 0, node_id, ZEL_MODAL_STRESS, 10 / s, v / s, 30 / s, 40 / s, 50 / s, 60 / s);
    ZEL_SetMode(db, 0, node_id, ZEL_MODAL_STRAIN, v, 1, 2, 3, 4, 5);
}

// Vectors that are set while the units change are those of the units that the body ends with.
TEST_F(Units, ChangesCarryModeVectorsInTemporaryFilesAlong)
{
    const Scale units[] = {{"kg", "m", "s", "N", 1, 1},
                           {"tonne", "mm", "ms", "kN", 1e-3, 1e3},
                           {"slinch", "inch", "min", "lbf", 0.0254, 4.44822161526}};
    ZELDATA* bodies[] = {ZEL_Create(3, 2), ZEL_Create(3, 2)};
    for (int body : {0, 1})
        for (int node_id : {1, 2, 3})
            set_vectors(bodies[body], units[body * (node_id - 1)], node_id);
    ZEL_SetUnits(bodies[1], "kg", "m", "s", "N");
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        for (int mode : {4, 9, 0})
        {
            double vectors[2][18] = {};
            for (int body : {0, 1})
                EXPECT_EQ(ZEL_Read_Mode_Double(bodies[body], mode, kind, vectors[body]), mode != 0 || kind != 0);
            for (int i = 0; i < 18; ++i)
                EXPECT_NEAR(vectors[1][i], vectors[0][i], 1e-14 * std::fabs(vectors[0][i])) << kind << mode << i;
        }
}

// The manual tells other programs what the labels mean: its table has every unit in the library's order, with its factor and
// every spelling, in any case.
TEST_F(Units, AreThoseOfTheManual)
{
    std::map<std::string, const ZELUNIT*> rest = {
        {"mass", ZEL_MassUnits}, {"length", ZEL_LengthUnits}, {"time", ZEL_TimeUnits}, {"force", ZEL_ForceUnits}};
    std::ifstream manual(ZEL_SOURCE "/docs/file-format.md");
    int spellings = 0;
    for (std::string line, bar, quantity, label, spelling; std::getline(manual, line);)
    {
        double factor = 0.0;
        std::istringstream cells(line);
        if (!(cells >> bar >> quantity >> bar >> label >> bar >> factor >> bar) || !rest.count(quantity))
            continue;
        const ZELUNIT* const unit = rest.at(quantity)++;
        EXPECT_EQ(unit->label, label);
        EXPECT_EQ(ZEL_UnitsDivider(label.c_str(), unit), factor) << line;
        EXPECT_STREQ(ZEL_UnitsLabel(factor * 1.00005, unit), label.c_str());
        EXPECT_EQ(canonical(label), label);
        for (; cells >> spelling && spelling != "|" && spelling != "-"; ++spellings)
        {
            spelling = spelling.substr(0, spelling.find(','));
            EXPECT_EQ(canonical(spelling), label) << spelling;
            for (char& c : spelling)
                c = char(std::isupper(c) ? std::tolower(c) : std::toupper(c));
            EXPECT_EQ(canonical(spelling), label) << spelling;
        }
    }
    for (const auto& [quantity, unit] : rest)
        EXPECT_STREQ(unit->label, "") << quantity;
    EXPECT_EQ(spellings, 50);
    for (const char* unknown : {"g", "t", "", "kilograms", "kg ", "KILOGRAM_FORCES"})
        EXPECT_EQ(canonical(unknown), "?") << unknown;
}

// Tonne, millimetre, second, newton to kilogram, metre, millisecond, kilonewton.
constexpr double kM = 1e3, kL = 1e-3, kT = 1e3, kF = 1e-3;
constexpr double kInertia = kM * kL * kL, kEnergy = kF * kL, kStress = kF / (kL * kL);

void expect_reals(const double* values, int count, int block, int first, double factor)
{
    ASSERT_TRUE(values) << block;
    for (int k = 0; k < count; ++k)
    {
        const double expected = sample::real(block, first + k) * factor;
        EXPECT_NEAR(values[k], expected, 4e-15 * std::fabs(expected)) << "block " << block << " real " << first + k;
    }
}

void expect_entries(const ZELMATRIX& matrix, int block, double factor)
{
    ASSERT_EQ(matrix.count, 4);
    for (int entry = 0; entry < 4; ++entry)
        expect_reals(&matrix.entries[entry].value, 1, block, entry, factor);
}

// A file with every block, in one encoding; half of the mode vectors are read before the change.
TEST_F(Units, EveryBlockOfAFileIsScaledByItsDimension)
{
    SampleFile file = sample_file(format_of_version(60));
    FileBuilder eigenvalues = file.build().integer(3);
    for (int mode = 0; mode < 3; ++mode) // the first one is rigid, the last one infinite
    {
        const double value = mode == 2 ? 1.2345e20 : sample::real(7, mode), hertz = mode == 0 ? 0.05 : 130.0;
        eigenvalues.integer(sample::mode_numbers[size_t(mode)])
            .reals({value, hertz, 6.0 * hertz, sample::real(7, 3), sample::real(7, 4)});
    }
    file.blocks[ZEL_BLOCK_EIGENVALUES] = eigenvalues.bytes;
    for (bool projected : {true, false})
    {
        ZELDATA* other = opened(file);
        other->damping_projected = projected;
        ASSERT_TRUE(ZEL_SetUnits(other, "kg", "m", "ms", "kN"));
        expect_entries(other->damping, 15, projected ? kT / kL * kF : kEnergy * kT);
    }
    ZELDATA* db = opened(file);
    double vector[18];
    EXPECT_TRUE(ZEL_Mode(db, 7, 0, vector, 0) && ZEL_Mode(db, 7, 1, vector, 0));
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "ms", "kN"));

    for (int node = 0; node < 7; ++node)
        EXPECT_DOUBLE_EQ(db->nodes[node].y, sample::coordinate(db->nodes[node].id, 1) * kL);
    EXPECT_DOUBLE_EQ(ZEL_NodalMass(db, 0), sample::mass(10) * kM);
    double inertia[9];
    ASSERT_TRUE(ZEL_NodalInertia(db, ZEL_NodeIndex(db, 20), inertia));
    EXPECT_DOUBLE_EQ(inertia[4], sample::real(10, 1) * kInertia);
    expect_reals(&db->total_mass, 1, 6, 0, kM);
    expect_reals(db->center_of_mass, 3, 6, 1, kL);
    expect_reals(db->inertia_tensor, 9, 6, 4, kInertia);
    double value[5];
    ASSERT_TRUE(ZEL_Eigenvalue(db, 3, &value[0], &value[1], &value[2], &value[3], &value[4]));
    expect_reals(&value[0], 1, 7, 1, kF / (kM * kL));
    EXPECT_DOUBLE_EQ(value[1], 130.0 / kT);
    EXPECT_DOUBLE_EQ(value[2], 780.0 / kT);
    EXPECT_EQ(db->eigenvalues[2].value[1], 1.2345e20); // a mark rather than a value
    expect_reals(&value[3], 1, 7, 3, kInertia);
    expect_reals(&value[4], 1, 7, 4, kEnergy);
    expect_entries(db->stiffness, 12, kEnergy);
    expect_entries(db->mass, 13, kInertia);
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
    expect_reals(db->modal_preload, 3, 27, 0, kF);
    expect_reals(db->load_cases[0].values, 3, 28, 0, kEnergy);
    expect_reals(db->load_cases[1].values, 3, 28, 3, kF);
    const double of_statistics[4] = {kL, 1.0, kStress, 1.0};
    for (int pair = 0; pair < 4; ++pair)
        expect_reals(&db->modal_statistics[1].pair[pair].value, 1, 30, 4 + pair, of_statistics[pair]);
    expect_reals(db->pre_stress[1].v, 6, 31, 6, kStress);
    expect_reals(db->pre_strain[1].v, 6, 32, 6, 1.0);
}

TEST_F(Units, AModeAddedLaterHasTheMassThatAllOthersAreAssumedToHave)
{
    ZELDATA* db = ZEL_Create(1, 3);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "m", "s", "N"));
    ZEL_SetGeneralizedStiffness(db, 1, 1, 5.0);
    ZEL_SetGeneralizedStiffness(db, 2, 2, 5.0);
    ZEL_SetModalPreload(db, 1, 5.0);
    ASSERT_TRUE(ZEL_SetUnits(db, "kg", "mm", "s", "N"));
    EXPECT_DOUBLE_EQ(db->modal_preload[0], 5e3); // modal as yet: work rather than a force
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

} // namespace
