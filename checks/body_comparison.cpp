// Rows of the library's comparison under tolerances of the caller's, and the copy that makes bodies in other units comparable.
#include "checks/body_comparison.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <sstream>

namespace zel_checks
{

// ---- Tolerances -----------------------------------------------------------------------------------------------------------

struct KindName
{
    const char* name;
    ToleranceKind kind;
};
static constexpr KindName kKinds[] = {
    {"relative", ToleranceKind::relative}, {"absolute", ToleranceKind::absolute}, {"both", ToleranceKind::both}};

static const char* kind_name(ToleranceKind kind)
{
    return std::find_if(std::begin(kKinds), std::end(kKinds), [&](const KindName& one) { return one.kind == kind; })
        ->name;
}

static std::optional<double> number_from(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool whole = !text.empty() && *end == '\0' && std::isfinite(value) && value >= 0.0;
    return whole ? std::optional<double>(value) : std::nullopt;
}

// What stands behind the name.
static std::optional<Tolerance> tolerance_from(const std::string& text)
{
    std::istringstream words(text);
    words.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    std::string kind, value, word, floor, more;
    words >> kind >> value >> word >> floor >> more;
    const auto* row =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&](const KindName& one) { return kind == one.name; });
    const auto limit = number_from(value), least = word.empty() ? 0.0 : number_from(floor);
    if (row == std::end(kKinds) || !limit || !least || !more.empty() || (!word.empty() && word != "floor"))
        return std::nullopt;
    return Tolerance{row->kind, *limit, *least};
}

Tolerances tolerances_from(const std::string& text)
{
    Tolerances tolerances;
    std::istringstream lines(text);
    lines.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    int number = 0;
    for (std::string line; std::getline(lines, line);)
    {
        ++number;
        line.resize(std::min(line.size(), line.find('#')));
        const size_t first = line.find_first_not_of(" \t\r"), colon = line.rfind(':');
        if (first == std::string::npos)
            continue;
        const auto tolerance =
            colon == std::string::npos || colon == first ? std::nullopt : tolerance_from(line.substr(colon + 1));
        if (!tolerance)
            throw std::runtime_error(
                format("line %d: expected \"NAME: relative|absolute|both VALUE [floor VALUE]\"", number));
        const std::string name = line.substr(first, line.find_last_not_of(" \t", colon - 1) + 1 - first);
        if (!tolerances.emplace(name, *tolerance).second)
            throw std::runtime_error(format("line %d: \"%s\" stands there twice", number, name.c_str()));
    }
    return tolerances;
}

// ---- Rows -----------------------------------------------------------------------------------------------------------------

static std::optional<int> place(int value)
{
    return value == ZEL_NONE ? std::nullopt : std::optional<int>(value);
}

static double measure(const ZELCOMPARISON& row, ToleranceKind kind)
{
    if (kind == ToleranceKind::both || std::isinf(row.worst))
        return row.worst;
    if (kind == ToleranceKind::absolute || std::isnan(row.scale) || row.difference == 0.0)
        return row.difference;
    return row.scale > 0.0 ? row.difference / row.scale : HUGE_VAL;
}

static bool is_judged(const ZELCOMPARISON& row)
{
    return row.verdict == ZEL_COMPARISON_PASS || row.verdict == ZEL_COMPARISON_FAIL;
}

static ComparedRow judged(const ZELCOMPARISON& row, const Tolerances& tolerances)
{
    ComparedRow result = {row.check,          row.block,
                          row.worst,          place(row.mode),
                          place(row.node),    place(row.component),
                          row.limit,          Verdict(row.verdict),
                          ToleranceKind::both};
    if (std::isnan(row.worst))
        result.worst.reset();
    const auto tolerance = tolerances.find(row.check);
    if (tolerance == tolerances.end() || !is_judged(row) || !result.worst)
        return result;
    const auto& [kind, value, floor] = tolerance->second;
    result.worst = measure(row, kind);
    result.limit = value;
    result.kind = kind;
    const bool fails =
        std::isinf(*result.worst) ? row.difference > floor : *result.worst > value && row.difference > floor;
    result.verdict = fails ? Verdict::fail : Verdict::pass;
    return result;
}

static std::vector<ZELCOMPARISON> library_rows(ZELDATA* base, ZELDATA* fresh, double tolerance)
{
    std::vector<ZELCOMPARISON> rows(256);
    int count = 0;
    while ((count = ZEL_CompareBodies(base, fresh, tolerance, rows.data(), int(rows.size()))) > int(rows.size()))
        rows.resize(size_t(count));
    if (count < 0)
        throw std::runtime_error("the bodies cannot be compared");
    rows.resize(size_t(count));
    return rows;
}

BodyComparison compare_bodies(ZELDATA* base, ZELDATA* fresh, double tolerance, const Tolerances& tolerances)
{
    BodyComparison comparison = {{}, 0, false};
    std::set<std::string> made;
    for (const ZELCOMPARISON& row : library_rows(base, fresh, tolerance))
    {
        comparison.rows.push_back(judged(row, tolerances));
        if (is_judged(row) && !std::isnan(row.worst))
        {
            made.insert(row.check);
            comparison.compared += row.scale > 0.0 || (!std::isnan(row.scale) && row.difference > 0.0);
        }
    }
    for (const auto& [name, asked] : tolerances)
        if (made.count(name) == 0)
            comparison.rows.push_back({name, 0, {}, {}, {}, {}, asked.value, Verdict::fail, asked.kind});
    comparison.equal =
        comparison.compared > 0 && std::none_of(comparison.rows.begin(), comparison.rows.end(),
                                                [](const ComparedRow& row) { return row.verdict == Verdict::fail; });
    return comparison;
}

// Two digits, none of them lost.
static std::string rounded_up(double value)
{
    std::string text = format("%.1e", value);
    if (std::strtod(text.c_str(), nullptr) < value)
        text = format("%.1e", value + 0.05 * std::pow(10.0, std::floor(std::log10(value))));
    return text;
}

std::string baseline_of(const BodyComparison& comparison, double tolerance)
{
    std::string text = "# What differs, at most: NAME: relative|absolute|both VALUE [floor VALUE]\n";
    std::vector<std::string> names;
    std::map<std::string, double> worst;
    std::map<std::string, ToleranceKind> kinds;
    for (const ComparedRow& row : comparison.rows)
        if ((row.verdict == Verdict::pass || row.verdict == Verdict::fail) && row.worst)
        {
            if (worst.emplace(row.check, 0.0).second)
                names.push_back(row.check);
            worst[row.check] = std::max(worst[row.check], *row.worst);
            kinds[row.check] = row.kind;
        }
    for (const std::string& name : names)
        text += std::isinf(worst[name])
                    ? "# " + name + ": differs infinitely\n"
                    : name + ": " + kind_name(kinds[name]) + " " +
                          (worst[name] > tolerance ? rounded_up(worst[name]) : format("%.6g", tolerance)) + "\n";
    return text;
}

// ---- Units ----------------------------------------------------------------------------------------------------------------

namespace
{
// What the library tells goes nowhere.
class Silence
{
public:
    Silence() : before_(ZEL_MessageHandler(&context_))
    {
        ZEL_SetMessageHandler([](void*, int, const char*) {}, nullptr);
    }
    ~Silence() { ZEL_SetMessageHandler(before_, context_); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    void* context_ = nullptr;
    ZELMESSAGEHANDLER before_;
};
} // namespace

static bool is_normalised(ZELDATA* db)
{
    constexpr double kRounding = 1e-6; // files of single precision have no more
    if (!db->eigenvalues)
        return false;
    for (const Mode& mode : modes_of(db))
        if (!(std::fabs(mode.mass - 1.0) <= kRounding))
            return false;
    return ZEL_ModeCount(db) > 0;
}

// What the content of a body needs to be written again.
static std::string options_to_keep(ZELDATA* db)
{
    const char* invariants = ZEL_Exists(db, ZEL_BLOCK_INVAR9 - 1)   ? "full_invar"
                             : ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1) ? "fast_invar"
                                                                    : "";
    return std::string(invariants) + (ZEL_Double_Prec(db) ? "" : " single");
}

bool needs_units_of_base(ZELDATA* base, ZELDATA* fresh)
{
    return units_of(base) != units_of(fresh) && is_normalised(base) && is_normalised(fresh);
}

void write_in_units_of_base(ZELDATA* base, ZELDATA* fresh, const std::string& path)
{
    const auto units = units_of(base);
    const Silence silence;
    if (!ZEL_SetUnits(fresh, units[0].c_str(), units[1].c_str(), units[2].c_str(), units[3].c_str()) ||
        !ZEL_WriteWithOptions(fresh, path.c_str(), options_to_keep(fresh).c_str()))
        throw std::runtime_error(path + ": no copy in the units of the base can be written");
}

} // namespace zel_checks
