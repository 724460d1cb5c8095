#include "fem/damping.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "checks/report.h"
#include "fem/text.h"
#include "zel.h"

namespace zel_fem
{

using zel_checks::format;

// ---- What a user writes ------------------------------------------------------------------------------------------------

static std::vector<std::string> fields_of(const std::string& text)
{
    std::vector<std::string> fields;
    std::istringstream parts(text);
    parts.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    for (std::string part; std::getline(parts, part, ',');)
        fields.push_back(part);
    if (text.empty() || text.back() == ',')
        fields.emplace_back();
    return fields;
}

static double parse_ratio(const std::string& text, const Place& place)
{
    const double ratio = parse_real(text, place);
    if (!(ratio >= 0.0 && ratio <= 1.0))
        throw InputError(place, text + " is no damping ratio, which lies between 0 and 1 (critical)");
    return ratio;
}

static DampingPart parse_part(const std::string& text, const Place& place)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos)
        return {parse_ratio(text, place), {}, {}};
    const std::string left = text.substr(0, colon), right = text.substr(colon + 1);
    if (right.find("Hz") == std::string::npos)
        return {parse_ratio(right, place), parse_int(left, place), {}};
    const auto range = parse_frequency_range(right);
    if (!range)
        throw InputError(place, in_quotes(right) + " is no range of frequencies such as 0-500Hz or 500Hz-");
    return {parse_ratio(left, place), {}, range};
}

static bool overlap(const DampingPart& a, const DampingPart& b)
{
    if (!a.mode && !a.range)
        return true;
    if (a.mode || b.mode)
        return a.mode == b.mode;
    return !b.range || (a.range->lowest_hz < b.range->highest_hz && b.range->lowest_hz < a.range->highest_hz);
}

Damping parse_damping(const std::string& text)
{
    const Place place{"--damping " + text, 0};
    const std::vector<std::string> fields = fields_of(text);
    Damping damping;
    for (size_t i = 0; i < fields.size(); ++i)
    {
        damping.parts.push_back(parse_part(fields[i], place));
        for (size_t j = 0; j < i; ++j)
            if (overlap(damping.parts[i], damping.parts[j]) || overlap(damping.parts[j], damping.parts[i]))
                throw InputError(place, fields[j] + " and " + fields[i] + " give one mode two ratios");
    }
    return damping;
}

Damping parse_rayleigh(const std::string& text)
{
    const Place place{"--rayleigh " + text, 0};
    const std::vector<std::string> fields = fields_of(text);
    if (fields.size() != 2)
        throw InputError(place, "Rayleigh damping has two factors, alpha,beta in 1/s and s");
    std::array<double, 2> factors = {};
    for (size_t i = 0; i < 2; ++i)
    {
        factors[i] = parse_real(fields[i], place);
        if (factors[i] < 0.0)
            throw InputError(place, fields[i] + " would drive the body: factors are not negative");
    }
    return {{}, factors};
}

std::string text_of(const DampedModes& modes)
{
    return format("%d of %d flexible modes are damped", modes.damped, modes.damped + modes.undamped) +
           (modes.rigid > 0 ? format(", none of %d rigid-body modes", modes.rigid) : "");
}

// ---- Into a database ---------------------------------------------------------------------------------------------------

static bool is_coupled(ZELDATA* db)
{
    using Query = int (*)(ZELDATA*, int*, int*, double*);
    const std::pair<int, Query> kMatrices[] = {{ZEL_NumberOfGenMass(db), ZEL_GenMassSparse},
                                               {ZEL_NumberOfGenStiff(db), ZEL_GenStiffSparse}};
    for (const auto& [count, entries] : kMatrices)
    {
        std::vector<int> rows(size_t(std::max(count, 1))), columns(rows.size());
        std::vector<double> values(rows.size());
        const bool there = entries(db, rows.data(), columns.data(), values.data()) != 0;
        for (size_t i = 0; there && i < size_t(count); ++i)
            if (rows[i] != columns[i] && values[i] != 0.0)
                return true;
    }
    return false;
}

static void make_orthogonal(ZELDATA* db, const std::string& write_options)
{
    const auto asks = [&](const char* keyword) { return write_options.find(keyword) != std::string::npos; };
    if (asks("empty"))
        throw std::runtime_error("a body that is written without modes (empty) has no damping");
    if (!asks("no_ortho") && !ZEL_OrthogonaliseModes(db))
        throw std::runtime_error("the modes cannot be made orthogonal, and have no damping of their own");
    if (is_coupled(db))
        throw std::runtime_error(
            "generalized matrices couple the modes, which no_ortho keeps as they are: damping is given to "
            "orthogonal modes");
}

namespace
{
// One mode as its damping sees it, and what it gets.
struct ModeToDamp
{
    double radians; // per unit of time
    double stiffness, hertz, ratio = 0.0;
    bool is_named = false;
};
} // namespace

// Of a mode without mass or with a stiffness that is not positive, no frequency is positive.
static std::vector<ModeToDamp> modes_of(ZELDATA* db, int rigid)
{
    std::vector<ModeToDamp> modes;
    for (int i = 0; i < ZEL_ModeCount(db); ++i)
    {
        ModeToDamp mode = {};
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, i), nullptr, nullptr, &mode.radians, nullptr, &mode.stiffness);
        const double seconds = ZEL_Time2Second(db, 1.0);
        mode.hertz = mode.radians / (2 * std::numbers::pi) / (seconds > 0.0 ? seconds : 1.0);
        if (i >= rigid && !(mode.radians > 0.0 && mode.stiffness > 0.0 && std::isfinite(mode.radians)))
            throw std::runtime_error(
                format("mode %d is no rigid-body mode and has no positive frequency to be damped at", i + 1));
        modes.push_back(mode);
    }
    return modes;
}

static bool has(const DampingPart& part, size_t mode, double hertz)
{
    if (part.mode)
        return *part.mode == int(mode) + 1;
    return !part.range || (hertz >= part.range->lowest_hz && hertz < part.range->highest_hz);
}

static void take_ratio(ModeToDamp& mode, size_t index, const Damping& damping)
{
    for (const DampingPart& part : damping.parts)
    {
        if (!has(part, index, mode.hertz))
            continue;
        if (std::exchange(mode.is_named, true))
            throw std::runtime_error(format("mode %zu of %.6g Hz is given two damping ratios", index + 1, mode.hertz));
        mode.ratio = part.ratio;
    }
    if (damping.rayleigh)
    {
        const double omega = 2 * std::numbers::pi * mode.hertz;
        mode.ratio = (*damping.rayleigh)[0] / (2 * omega) + (*damping.rayleigh)[1] * omega / 2;
    }
}

static void check_numbers(const Damping& damping, int modes, int rigid, const std::string& write_options)
{
    for (const DampingPart& part : damping.parts)
    {
        if (!part.mode)
            continue;
        if (write_options.find("pass(") != std::string::npos)
            throw std::runtime_error("lowpass and highpass change which modes there are: name the damped ones by their "
                                     "frequencies");
        if (*part.mode < 1 || *part.mode > modes)
            throw std::runtime_error(format("no mode %d is there to be damped: the body has %d", *part.mode, modes));
        if (*part.mode <= rigid)
            throw std::runtime_error(format("mode %d is a rigid-body mode, which stays undamped", *part.mode));
    }
}

DampedModes set_damping(ZELDATA* db, const Damping& damping, const std::string& write_options)
{
    make_orthogonal(db, write_options);
    const int rigid = ZEL_RigidBodyModeCount(db);
    std::vector<ModeToDamp> modes = modes_of(db, rigid);
    check_numbers(damping, int(modes.size()), rigid, write_options);
    DampedModes found = {0, 0, rigid};
    for (size_t i = size_t(rigid); i < modes.size(); ++i)
    {
        take_ratio(modes[i], i, damping);
        ++(modes[i].ratio > 0.0 ? found.damped : found.undamped);
    }
    ZEL_RemoveGeneralizedDamping(db);
    for (int i = rigid; i < int(modes.size()); ++i)
    {
        // of critical damping 2 sqrt(k m), which is 2 k / omega in any units
        const ModeToDamp& mode = modes[size_t(i)];
        const int number = ZEL_ModeNumber(db, i);
        if (mode.ratio > 0.0 &&
            !ZEL_SetGeneralizedDamping(db, number, number, 2 * mode.ratio * mode.stiffness / mode.radians))
            throw std::runtime_error("the library cannot store the damping");
    }
    return found;
}

} // namespace zel_fem
