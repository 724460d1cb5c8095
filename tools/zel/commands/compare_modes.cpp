// What `zel compare --modes` tells: pairs of modes, where they differ most, spans, and invariants in one basis.
#include "compare_report.h"
#include "tools/zel/console.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>

namespace zel_command
{

using nlohmann::ordered_json;
using zel_checks::format, zel_checks::MatrixMatch, zel_checks::ModalComparison, zel_checks::ModalOptions,
    zel_checks::ModeGroup, zel_checks::WorstNode;

constexpr double kDegrees = 180.0 / M_PI;

// ---- Text ---------------------------------------------------------------------------------------------------------------

// "1-6, 9": runs of numbers in a row, in the order given.
static std::string list_of(const std::vector<int>& numbers)
{
    std::string text;
    for (size_t first = 0, end = 0; first < numbers.size(); first = end)
    {
        for (end = first + 1; end < numbers.size() && numbers[end] == numbers[end - 1] + 1; ++end)
            ;
        text += format(first > 0 ? ", %d" : "%d", numbers[first]);
        if (end - first > 1)
            text += format("-%d", numbers[end - 1]);
    }
    return text.empty() ? "none" : text;
}

static std::string hertz_text(const ModeGroup& group, const std::optional<double>& hertz)
{
    return group.rigid ? "rigid" : hertz ? format("%.6g", *hertz) : "-";
}

static std::string vector_text(const std::array<double, 3>& v)
{
    return format("(%.6g, %.6g, %.6g)", v[0], v[1], v[2]);
}

static void print_worst(const ModeGroup& group, const WorstNode& worst)
{
    std::string node = format("node %d", worst.base_node);
    if (worst.fresh_node != worst.base_node)
        node += format(" (%d in NEW)", worst.fresh_node);
    if (group.base.size() > 1)
        node += format(" in mode %d", worst.mode);
    std::printf("  %s %s %s, matched %s: off by %.2g of the largest\n", node.c_str(),
                worst.turns ? "turns by" : "moves by", vector_text(worst.base).c_str(),
                vector_text(worst.fresh).c_str(), worst.share);
}

static void print_groups(const ModalComparison& comparison)
{
    std::printf("%-12s %12s   %-12s %12s %12s   %-14s\n", "BASE", "Hz", "NEW", "Hz", "difference", "MAC or angle");
    for (const ModeGroup& group : comparison.groups)
    {
        const bool judged = !group.rigid && group.base_hertz;
        const std::string difference = judged ? format("%+.4f %%", 100.0 * group.frequency_difference) : "";
        const std::string likeness = group.base.size() == 1 ? format("%.6f", group.assurance)
                                                            : format("%.2g degrees", kDegrees * group.angles.front());
        std::printf("%-12s %12s   %-12s %12s %12s   %-14s %s\n", list_of(group.base).c_str(),
                    hertz_text(group, group.base_hertz).c_str(), list_of(group.fresh).c_str(),
                    hertz_text(group, group.fresh_hertz).c_str(), difference.c_str(), likeness.c_str(),
                    verdict(group.holds).c_str());
        if (group.worst)
            print_worst(group, *group.worst);
    }
}

static void print_unmatched(const char* body, const std::vector<int>& numbers)
{
    if (!numbers.empty())
        std::printf("Modes of %s alone: %s %s\n", body, list_of(numbers).c_str(), verdict(false).c_str());
}

static void print_span(const char* outer, const char* inner, const std::optional<double>& angle)
{
    if (angle)
        std::printf("%s spans %s to %.2g degrees\n", outer, inner, kDegrees * *angle);
    else
        std::printf("%s spans all motions of the common nodes: they are too few to tell whether it spans %s\n", outer,
                    inner);
}

static void print_matrices(const std::vector<MatrixMatch>& matrices)
{
    for (const MatrixMatch& matrix : matrices)
        if (matrix.difference)
            std::printf("  %-22s differs by %-10.2g %s\n", matrix.name.c_str(), *matrix.difference,
                        verdict(matrix.holds).c_str());
        else
            std::printf("  %-22s not compared: %s\n", matrix.name.c_str(), matrix.reason.c_str());
}

void print_modal_comparison(const ModalComparison& comparison, const ModalOptions& options)
{
    std::printf("%d modes in BASE, %d in NEW; %d common nodes by %s (%d in BASE alone, %d in NEW alone), %s\n",
                comparison.base_modes, comparison.fresh_modes, comparison.common_nodes,
                options.by_position ? "position" : "id", comparison.base_only, comparison.fresh_only,
                comparison.weighed ? "weighed by nodal masses" : "all alike");
    for (const std::string& note : comparison.notes)
        std::printf("  Note: %s\n", note.c_str());
    if (!comparison.groups.empty())
        print_groups(comparison);
    print_unmatched("BASE", comparison.base_unmatched);
    print_unmatched("NEW", comparison.fresh_unmatched);
    if (comparison.compared)
    {
        print_span("NEW", "BASE", comparison.base_in_fresh);
        print_span("BASE", "NEW", comparison.fresh_in_base);
        std::printf("In the basis of BASE, in parts of what its mass allows:\n");
        print_matrices(comparison.matrices);
    }
    std::printf("%s\n", !comparison.compared ? "Nothing was compared"
                        : comparison.equal   ? "The modes are the same"
                                             : "The modes differ");
}

// ---- JSON ---------------------------------------------------------------------------------------------------------------

static ordered_json worst_as_json(const WorstNode& worst)
{
    ordered_json vectors[2];
    for (size_t c = 0; c < 3; ++c)
    {
        vectors[0].push_back(json_number(worst.base[c]));
        vectors[1].push_back(json_number(worst.fresh[c]));
    }
    return {{"mode", worst.mode},
            {"base_node", worst.base_node},
            {"new_node", worst.fresh_node},
            {"component", worst.turns ? "rotation" : "translation"},
            {"base", vectors[0]},
            {"new", vectors[1]},
            {"share", json_number(worst.share)}};
}

static ordered_json group_as_json(const ModeGroup& group)
{
    return {{"base_modes", group.base},
            {"new_modes", group.fresh},
            {"rigid", group.rigid},
            {"base_hz", json_number(group.base_hertz)},
            {"new_hz", json_number(group.fresh_hertz)},
            {"frequency_difference",
             group.rigid || !group.base_hertz ? ordered_json(nullptr) : json_number(group.frequency_difference)},
            {"angles", group.angles},
            {"mac", json_number(group.assurance)},
            {"unweighed_mac", json_number(group.unweighed)},
            {"worst", group.worst ? worst_as_json(*group.worst) : ordered_json(nullptr)},
            {"okay", group.holds}};
}

void print_modal_comparison_as_json(const ModalComparison& comparison, const ModalOptions& options)
{
    ordered_json groups = ordered_json::array(), matrices = ordered_json::array();
    for (const ModeGroup& group : comparison.groups)
        groups.push_back(group_as_json(group));
    for (const MatrixMatch& matrix : comparison.matrices)
        matrices.push_back({{"name", matrix.name},
                            {"difference", json_number(matrix.difference)},
                            {"reason", matrix.difference ? ordered_json(nullptr) : ordered_json(matrix.reason)},
                            {"okay", matrix.difference ? ordered_json(matrix.holds) : ordered_json(nullptr)}});
    const ordered_json told = {{"verdict", !comparison.compared ? "nothing compared"
                                           : comparison.equal   ? "equal"
                                                                : "different"},
                               {"limits",
                                {{"mac", options.assurance},
                                 {"frequency", options.frequency},
                                 {"cluster", options.cluster},
                                 {"invariants", options.invariants}}},
                               {"nodes",
                                {{"match", options.by_position ? "position" : "id"},
                                 {"common", comparison.common_nodes},
                                 {"base_only", comparison.base_only},
                                 {"new_only", comparison.fresh_only},
                                 {"largest_distance", json_number(comparison.farthest)},
                                 {"largest_distance_node", comparison.farthest_node},
                                 {"weighed", comparison.weighed},
                                 {"with_rotations", comparison.with_rotations}}},
                               {"base_modes", comparison.base_modes},
                               {"new_modes", comparison.fresh_modes},
                               {"groups", groups},
                               {"base_unmatched", comparison.base_unmatched},
                               {"new_unmatched", comparison.fresh_unmatched},
                               {"angle_of_base_in_new", json_number(comparison.base_in_fresh)},
                               {"angle_of_new_in_base", json_number(comparison.fresh_in_base)},
                               {"matrices", matrices},
                               {"notes", comparison.notes}};
    std::printf("%s\n", told.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

} // namespace zel_command
