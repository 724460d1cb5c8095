// Units: the vocabulary of labels with their factors to SI, and how a database gets others.
#include "units.h"
#include "record.h"
#include "zel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

const ZELUNIT ZEL_MassUnits[] = {
    {"MEGAGRAM", 1000.0},
    {"KILOGRAM", 1.0},
    {"GRAM", 0.001},
    {"MILLIGRAM", 1e-06},
    {"MICROGRAM", 1e-09},
    {"NANOGRAM", 1e-12},
    {"USTON", 907.18474},
    {"KPOUND_MASS", 453.59237},
    {"POUND_MASS", 0.45359237},
    {"OUNCE_MASS", 0.02834952},
    {"SLUG", 14.5939029372},
    {"SLINCH", 175.1271524},
    {"", 0.0},
};
const ZELUNIT ZEL_ForceUnits[] = {
    {"KNEWTON", 1000.0},
    {"NEWTON", 1.0},
    {"MILLINEWTON", 0.001},
    {"DYNE", 1e-05},
    {"MICRONEWTON", 1e-06},
    {"NANONEWTON", 1e-09},
    {"KPOUND_FORCE", 4448.22161526},
    {"POUND_FORCE", 4.44822161526},
    {"KILOGRAM_FORCE", 9.80665},
    {"OUNCE_FORCE", 0.2780139},
    {"", 0.0},
};
const ZELUNIT ZEL_LengthUnits[] = {
    {"KILOMETER", 1000.0},   {"METER", 1.0},
    {"CENTIMETER", 0.01},    {"MILLIMETER", 0.001},
    {"MICROMETER", 1e-06},   {"NANOMETER", 1e-09},
    {"ANGSTROM", 1e-10},     {"MILE", 1609.344},
    {"YARD", 0.9144},        {"FOOT", 0.3048},
    {"INCH", 0.0254},        {"MIL", 2.54e-05},
    {"MICROINCH", 2.54e-08}, {"", 0.0},
};
const ZELUNIT ZEL_TimeUnits[] = {
    {"SECOND", 1.0},  {"MILLISECOND", 0.001}, {"MICROSECOND", 1e-06}, {"NANOSECOND", 1e-09},
    {"DAY", 86400.0}, {"HOUR", 3600.0},       {"MINUTE", 60.0},       {"", 0.0},
};

namespace zel
{

namespace
{
constexpr int kLongestLabel = 15;
constexpr int kLongestSpellings = 4;

struct Spellings
{
    const char* canonical;
    const char* accepted[kLongestSpellings]; // null behind the last
};
} // namespace

// Matched without regard to case, in this order, the first match winning: so MN is the millinewton and Mg the milligram.
static constexpr Spellings kSpellings[] = {
    {"MEGAGRAM", {"mgg", "megagram", "tonne"}},
    {"KILOGRAM", {"kilogram", "kg"}},
    {"GRAM", {"gram"}},
    {"MICROGRAM", {"microgram", "ug"}},
    {"MILLIGRAM", {"milligram", "mg"}},
    {"NANOGRAM", {"nanogram", "ng"}},
    {"USTON", {"uston", "us_ton"}},
    {"KPOUND_MASS", {"klbm", "kpound_mass"}},
    {"POUND_MASS", {"pound_mass", "lbm"}},
    {"OUNCE_MASS", {"ounce_mass", "ozm"}},
    {"SLUG", {"slug"}},
    {"SLINCH", {"DOZEN_SLUG", "dozen_slug", "slinch"}},
    {"KNEWTON", {"knewton", "kn"}},
    {"NEWTON", {"newton", "n"}},
    {"MILLINEWTON", {"millinewton", "mn"}},
    {"DYNE", {"dyne"}},
    {"MICRONEWTON", {"micronewton", "un"}},
    {"NANONEWTON", {"nanonewton", "nn"}},
    {"KPOUND_FORCE", {"kpound_force", "klbf", "kip"}},
    {"POUND_FORCE", {"pound_force", "lbf"}},
    {"KILOGRAM_FORCE", {"kilogram_force", "kgf", "kg_force"}},
    {"OUNCE_FORCE", {"ounce_force", "ozf"}},
    {"KILOMETER", {"kilometer", "km"}},
    {"METER", {"meter", "m"}},
    {"CENTIMETER", {"centimeter", "cm"}},
    {"MILLIMETER", {"millimeter", "mm"}},
    {"MICROMETER", {"micrometer", "micron", "um"}},
    {"NANOMETER", {"nanometer", "nm"}},
    {"ANGSTROM", {"angstrom", "ang"}},
    {"MILE", {"mile", "mi"}},
    {"YARD", {"yard", "yd"}},
    {"FOOT", {"foot", "ft"}},
    {"INCH", {"inch", "in"}},
    {"MIL", {"mil", "milli_inch"}},
    {"MICROINCH", {"uin", "uinch", "microinch", "micro_inch"}},
    {"SECOND", {"second", "sec", "s"}},
    {"MILLISECOND", {"millisecond", "millisec", "ms"}},
    {"MICROSECOND", {"microsecond", "microsec", "us"}},
    {"NANOSECOND", {"nanosecond", "nanosec", "ns"}},
    {"DAY", {"day", "d"}},
    {"HOUR", {"hour", "hr", "h"}},
    {"MINUTE", {"minute", "min"}},
};

// ASCII only, so that a unit means the same in every locale.
static char folded(char c)
{
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

static bool same_folded(const char* a, const char* b)
{
    while (*a && folded(*a) == folded(*b))
    {
        ++a;
        ++b;
    }
    return folded(*a) == folded(*b);
}

// ---- Setting units --------------------------------------------------------------------------------------------------

// One dimension in a change of units: its label and scale in the record, its table and the new label.
namespace
{
struct Dimension
{
    char* label;
    double* scale;
    const ZELUNIT* table;
    const char* wanted;
    char canonical[kLongestLabel + 2]; // room for a label of full width, which is then unknown
    double ratio;
};
} // namespace

} // namespace zel

using namespace zel;

int ZEL_ConvertUnitsLabel(char* label)
{
    if (!label)
        return 0;
    for (const Spellings& unit : kSpellings)
        for (const char* spelling : unit.accepted)
            if (spelling && same_folded(label, spelling))
            {
                std::strcpy(label, unit.canonical);
                return 1;
            }
    return 0;
}

double ZEL_UnitsDivider(const char* label, const ZELUNIT* table)
{
    if (!label || !table)
        return 0.0;
    if (!*label)
        return 1.0;
    for (const ZELUNIT* unit = table; *unit->label; ++unit)
        if (std::strcmp(unit->label, label) == 0)
            return unit->factor;
    return 0.0;
}

double ZEL_Mass2Kilogram(const ZELDATA* db, double value)
{
    return db ? value * ZEL_UnitsDivider(db->units.mass, ZEL_MassUnits) : 0.0;
}

double ZEL_Force2Newton(const ZELDATA* db, double value)
{
    return db ? value * ZEL_UnitsDivider(db->units.force, ZEL_ForceUnits) : 0.0;
}

double ZEL_Length2Meter(const ZELDATA* db, double value)
{
    return db ? value * ZEL_UnitsDivider(db->units.length, ZEL_LengthUnits) : 0.0;
}

double ZEL_Time2Second(const ZELDATA* db, double value)
{
    return db ? value * ZEL_UnitsDivider(db->units.time, ZEL_TimeUnits) : 0.0;
}

const char* ZEL_UnitsLabel(double factor, const ZELUNIT* table)
{
    constexpr double kTolerance = 0.0001;
    for (const ZELUNIT* unit = table; unit && *unit->label; ++unit)
        if (std::fabs(unit->factor - factor) / std::max(unit->factor, factor) < kTolerance)
            return unit->label;
    return nullptr;
}

double ZEL_UCF(const ZELDATA* db)
{
    const double inertial = ZEL_Length2Meter(db, 1.0) * ZEL_Mass2Kilogram(db, 1.0);
    if (inertial == 0.0)
        return 0.0;
    const double time = ZEL_Time2Second(db, 1.0);
    return ZEL_Force2Newton(db, 1.0) * time * time / inertial;
}

int ZEL_Units(const ZELDATA* db, char* mass, char* length, char* time, char* force)
{
    if (!db)
        return 0;
    const struct
    {
        char* out;
        const char *label, *otherwise;
    } labels[] = {
        {mass, db->units.mass, "KILOGRAM"},
        {length, db->units.length, "METER"},
        {time, db->units.time, "SECOND"},
        {force, db->units.force, "NEWTON"},
    };
    for (const auto& unit : labels)
        if (unit.out)
            std::strcpy(unit.out, *unit.label ? unit.label : unit.otherwise);
    return 1;
}

double* ZEL_Convert_Units(double* values, int count, double factor)
{
    for (int i = 0; values && i < count; ++i)
        values[i] *= factor;
    return values;
}

int ZEL_SetUnits(ZELDATA* db, const char* mass, const char* length, const char* time, const char* force)
{
    if (!db)
        return 0;
    ZELUNITS& units = db->units;
    Dimension dimensions[] = {
        {units.mass, &units.mass_scale, ZEL_MassUnits, mass, "", 1.0},
        {units.length, &units.length_scale, ZEL_LengthUnits, length, "", 1.0},
        {units.time, &units.time_scale, ZEL_TimeUnits, time, "", 1.0},
        {units.force, &units.force_scale, ZEL_ForceUnits, force, "", 1.0},
    };
    bool first = true, same = true;
    for (Dimension& d : dimensions)
    {
        if (!d.wanted)
            return 0;
        std::strncpy(d.canonical, d.wanted, kLongestLabel);
        if (!ZEL_ConvertUnitsLabel(d.canonical))
            return 0;
        first = first && !*d.label;
        same = same && std::strcmp(d.label, d.canonical) == 0;
    }
    if (!first)
        for (Dimension& d : dimensions)
        {
            const double old_factor = ZEL_UnitsDivider(d.label, d.table);
            const double new_factor = ZEL_UnitsDivider(d.canonical, d.table);
            if (old_factor == 0.0 || !(new_factor > 0.0))
                return 0;
            d.ratio = old_factor / new_factor;
        }
    if (same)
        return 1;
    const ZELUNITS before = units;
    for (const Dimension& d : dimensions)
    {
        std::memset(d.label, 0, sizeof units.mass);
        std::strcpy(d.label, d.canonical);
        *d.scale = d.ratio;
    }
    if (!first && !ZEL_ScaleDatabase(db))
    {
        units = before;
        return 0;
    }
    raise_flag(db, ZEL_BLOCK_UNITS);
    return 1;
}

int ZEL_SetUnitsByMultiplierOnSI(ZELDATA* db, double mass, double length, double time, double force)
{
    const char* labels[] = {ZEL_UnitsLabel(mass, ZEL_MassUnits), ZEL_UnitsLabel(length, ZEL_LengthUnits),
                            ZEL_UnitsLabel(time, ZEL_TimeUnits), ZEL_UnitsLabel(force, ZEL_ForceUnits)};
    return ZEL_SetUnits(db, labels[0], labels[1], labels[2], labels[3]);
}

const char* zelunits_VersionId(void)
{
    return "zelunits " ZEL_VERSION;
}
