// Unit labels, their factors, and the rescaling of a body.
#include "fixtures.h"

#include "zeldb.h"

#include <cmath>
#include <map>

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
