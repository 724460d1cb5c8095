// Comparisons of two bodies, block by block and by their modes, as records.
#include "module.h"
#include "reports.h"

#include "checks/body_comparison.h"
#include "checks/modal_comparison.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <cmath>
#include <functional>
#include <tuple>

namespace zel_python
{

// Work on two databases, without the interpreter lock. Two threads that compare the same two bodies take their turns in the same order.
template <typename Work> static auto with_both(Database& base, Database& fresh, nb::handle progress, Work&& work)
{
    Database& other = std::less<>()(&base, &fresh) ? fresh : base;
    Messages messages;
    Progress watch(progress);
    const auto outcome = [&] {
        const Turn first(&other == &fresh ? base : fresh), second(other);
        const nb::gil_scoped_release released;
        return outcome_of([&] {
            return &other == &fresh ? work(first.db(), second.db(), watch) : work(second.db(), first.db(), watch);
        });
    }();
    messages.stop_listening();
    watch.rethrow();
    messages.deliver();
    return result_of(outcome);
}

// ---- Block by block ---------------------------------------------------------------------------------------------------------

// Check, worst, block, mode, node, component, limit, verdict.
using ComparisonRow =
    std::tuple<std::string, double, int, std::optional<int>, std::optional<int>, std::optional<int>, double, int>;

// The rows, and how many of them compared values. Both bodies are in SI units afterwards.
static std::tuple<std::vector<ComparisonRow>, int> compare(Database& base, Database& fresh, double tolerance,
                                                           nb::handle progress)
{
    const zel_checks::BodyComparison comparison =
        with_both(base, fresh, progress, [tolerance](ZELDATA* a, ZELDATA* b, Progress&) {
            return zel_checks::compare_bodies(a, b, tolerance);
        });
    std::vector<ComparisonRow> rows;
    for (const zel_checks::ComparedRow& row : comparison.rows)
        rows.emplace_back(row.check, row.worst.value_or(std::nan("")), row.block, row.mode, row.node, row.component,
                          row.limit, int(row.verdict));
    return {rows, comparison.compared};
}

static bool needs_units_of_base(Database& base, Database& fresh)
{
    return with_both(base, fresh, nb::none(),
                     [](ZELDATA* a, ZELDATA* b, Progress&) { return zel_checks::needs_units_of_base(a, b); });
}

static void write_in_units_of_base(Database& base, Database& fresh, const std::string& path)
{
    with_both(base, fresh, nb::none(), [&path](ZELDATA* a, ZELDATA* b, Progress&) {
        zel_checks::write_in_units_of_base(a, b, path);
        return true;
    });
}

// ---- By their modes ---------------------------------------------------------------------------------------------------------

using Vector = std::array<double, 3>;
using WorstRow = std::tuple<int, int, int, bool, Vector, Vector, double>;
using GroupRow = std::tuple<std::vector<int>, std::vector<int>, bool, std::optional<double>, std::optional<double>,
                            double, std::vector<double>, double, double, std::optional<WorstRow>, bool>;
using MatrixRow = std::tuple<std::string, std::optional<double>, std::string, bool>;

// Common nodes, those of one body alone, largest distance and its node, weighed?, with rotations?, groups, modes without partners,
// angles of the spans, matrices, notes, compared?, equal?
using ModalRow = std::tuple<int, int, int, double, int, bool, bool, std::vector<GroupRow>, std::vector<int>,
                            std::vector<int>, std::optional<double>, std::optional<double>, std::vector<MatrixRow>,
                            std::vector<std::string>, bool, bool>;

static GroupRow row_of(const zel_checks::ModeGroup& group)
{
    std::optional<WorstRow> worst;
    if (const auto& w = group.worst)
        worst.emplace(w->mode, w->base_node, w->fresh_node, w->turns, w->base, w->fresh, w->share);
    return {group.base,        group.fresh,
            group.rigid,       group.base_hertz,
            group.fresh_hertz, group.frequency_difference,
            group.angles,      group.assurance,
            group.unweighed,   worst,
            group.holds};
}

static ModalRow compare_modes(Database& base, Database& fresh, bool by_position, std::optional<double> distance,
                              double cluster, double mac, double frequency, double invariants, nb::handle progress)
{
    const zel_checks::ModalOptions options = {by_position, distance, cluster, mac, frequency, invariants};
    const zel_checks::ModalComparison found =
        with_both(base, fresh, progress, [&options](ZELDATA* a, ZELDATA* b, Progress& watch) {
            return zel_checks::compare_modes(a, b, options, [&watch](const char*, double share) {
                return watch.go_on(share > 0.0 ? share : 0.0, 1.0);
            });
        });
    std::vector<GroupRow> groups;
    for (const zel_checks::ModeGroup& group : found.groups)
        groups.push_back(row_of(group));
    std::vector<MatrixRow> matrices;
    for (const zel_checks::MatrixMatch& matrix : found.matrices)
        matrices.emplace_back(matrix.name, matrix.difference, matrix.reason, matrix.holds);
    return {found.common_nodes,  found.base_only,      found.fresh_only, found.farthest,       found.farthest_node,
            found.weighed,       found.with_rotations, groups,           found.base_unmatched, found.fresh_unmatched,
            found.base_in_fresh, found.fresh_in_base,  matrices,         found.notes,          found.compared,
            found.equal};
}

void add_comparing(nb::module_& module)
{
    module.def("compare", &compare, nb::arg("base"), nb::arg("fresh"), nb::arg("tolerance"), nb::arg("progress").none(),
               "The checks of a comparison; both bodies are in SI units afterwards");
    module.def("needs_units_of_base", &needs_units_of_base, nb::arg("base"), nb::arg("fresh"));
    module.def("write_in_units_of_base", &write_in_units_of_base, nb::arg("base"), nb::arg("fresh"), nb::arg("path"));
    module.def("compare_modes", &compare_modes, nb::arg("base"), nb::arg("fresh"), nb::arg("by_position"),
               nb::arg("distance").none(), nb::arg("cluster"), nb::arg("mac"), nb::arg("frequency"),
               nb::arg("invariants"), nb::arg("progress").none());
}

} // namespace zel_python
