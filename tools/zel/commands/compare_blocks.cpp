// What `zel compare` tells of blocks when it is asked for records: a line a check, or JSON.
#include "compare_report.h"
#include "tools/zel/console.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>

namespace zel_command
{

using nlohmann::ordered_json;
using zel_checks::BodyComparison, zel_checks::ComparedRow, zel_checks::format, zel_checks::Verdict;

static std::string mark_of(Verdict outcome)
{
    switch (outcome)
    {
    case Verdict::pass: return verdict(true) + "   ";
    case Verdict::fail: return verdict(false) + " ";
    case Verdict::warning: return "Warning";
    case Verdict::note: return "Note   ";
    }
    return "";
}

static std::string place_of(const ComparedRow& row)
{
    std::string text;
    const std::pair<const char*, std::optional<int>> places[] = {
        {"mode", row.mode}, {"node", row.node}, {"component", row.component}};
    for (const auto& [name, place] : places)
        if (place)
            text += format("%s%s %d", text.empty() ? "" : ", ", name, *place);
    return text;
}

void print_comparison(const BodyComparison& comparison, ShownChecks shown)
{
    for (const ComparedRow& row : comparison.rows)
    {
        if (row.verdict == Verdict::pass ? shown != ShownChecks::all
                                         : row.verdict != Verdict::fail && shown == ShownChecks::failures)
            continue;
        const std::string worst =
            row.worst ? format("%.3g (limit %.3g)", *row.worst, row.limit) : std::string("not compared");
        const std::string block = row.block > 0 ? std::string(zel_checks::block_name(row.block)) : "-";
        std::printf("%s %-22s %-32s %-28s %s\n", mark_of(row.verdict).c_str(), block.c_str(), row.check.c_str(),
                    worst.c_str(), place_of(row).c_str());
    }
    if (shown != ShownChecks::failures)
        std::printf("%s\n", comparison.compared == 0 ? "Nothing was compared"
                            : comparison.equal       ? "Files are equivalent"
                                                     : "Files differ");
}

ordered_json json_number(const std::optional<double>& value)
{
    return !value || std::isnan(*value) ? ordered_json(nullptr)
           : std::isfinite(*value)      ? ordered_json(*value)
                                        : ordered_json("infinite");
}

static ordered_json place(const std::optional<int>& value)
{
    return value ? ordered_json(*value) : ordered_json(nullptr);
}

void print_comparison_as_json(const BodyComparison& comparison)
{
    static constexpr const char* kVerdicts[] = {"pass", "note", "warning", "fail"};
    static constexpr const char* kKinds[] = {"relative", "absolute", "both"};
    ordered_json checks = ordered_json::array();
    for (const ComparedRow& row : comparison.rows)
        checks.push_back(
            {{"check", row.check},
             {"block", row.block > 0 ? ordered_json(zel_checks::block_name(row.block)) : ordered_json(nullptr)},
             {"worst", json_number(row.worst)},
             {"kind", kKinds[size_t(row.kind)]},
             {"mode", place(row.mode)},
             {"node", place(row.node)},
             {"component", place(row.component)},
             {"limit", json_number(row.limit)},
             {"verdict", kVerdicts[size_t(row.verdict)]}});
    const ordered_json told = {{"verdict", comparison.compared == 0 ? "nothing compared"
                                           : comparison.equal       ? "equal"
                                                                    : "different"},
                               {"compared", comparison.compared},
                               {"checks", checks}};
    std::printf("%s\n", told.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

} // namespace zel_command
