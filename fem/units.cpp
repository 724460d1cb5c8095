#include "fem/units.h"

#include <array>
#include <map>
#include <sstream>
#include <stdexcept>

#include "zel.h"

namespace zel_fem
{

// Symbols that engineers write and the library does not know.
static const std::map<std::string, std::string> kSymbols = {{"t", "tonne"}, {"g", "gram"}};

static const std::array<const ZELUNIT*, 4> kTables = {ZEL_MassUnits, ZEL_LengthUnits, ZEL_TimeUnits, ZEL_ForceUnits};

static std::string without_blanks(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t"), last = text.find_last_not_of(" \t");
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

static std::string label_of(const std::string& spelling)
{
    constexpr size_t kRoom = 16; // of a label, its end included
    char label[kRoom] = "";
    const auto symbol = kSymbols.find(spelling);
    if (!spelling.empty() && spelling.size() < kRoom)
        (symbol != kSymbols.end() ? symbol->second : spelling).copy(label, kRoom - 1);
    if (!ZEL_ConvertUnitsLabel(label))
        throw std::runtime_error("\"" + spelling + "\" is not a unit");
    return label;
}

Units parse_units(const std::string& text)
{
    Units units;
    const std::array<std::string*, 4> labels = {&units.mass, &units.length, &units.time, &units.force};
    std::istringstream parts(text + ",");
    parts.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    for (std::string part; std::getline(parts, part, ',');)
    {
        const std::string label = label_of(without_blanks(part));
        for (size_t i = 0; i < kTables.size(); ++i)
        {
            if (ZEL_UnitsDivider(label.c_str(), kTables[i]) <= 0.0)
                continue;
            if (!labels[i]->empty())
                throw std::runtime_error("the units name both " + *labels[i] + " and " + label);
            *labels[i] = label;
        }
    }
    for (const std::string* unit : labels)
        if (unit->empty())
            throw std::runtime_error("the units must name one each of mass, length, time and force, as in mm,t,s,N");
    return units;
}

double consistency_of(const Units& units)
{
    const auto si = [](const std::string& label, const ZELUNIT* table) {
        return ZEL_UnitsDivider(label.c_str(), table);
    };
    const double mass = si(units.mass, ZEL_MassUnits), length = si(units.length, ZEL_LengthUnits);
    const double time = si(units.time, ZEL_TimeUnits), force = si(units.force, ZEL_ForceUnits);
    return force * time * time / (mass * length);
}

} // namespace zel_fem
