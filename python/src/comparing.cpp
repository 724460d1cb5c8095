// The comparison of two bodies as rows.
#include "module.h"

#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <functional>
#include <tuple>

namespace zel_python
{

// Check, worst, block, mode, node, component, limit, verdict.
using ComparisonRow = std::tuple<std::string, double, int, int, int, int, double, int>;

static std::vector<ZELCOMPARISON> rows_of(ZELDATA* base, ZELDATA* fresh, double tolerance)
{
    std::vector<ZELCOMPARISON> rows(256);
    int count = 0;
    while ((count = ZEL_CompareBodies(base, fresh, tolerance, rows.data(), int(rows.size()))) > int(rows.size()))
        rows.resize(size_t(count));
    rows.resize(size_t(count > 0 ? count : 0));
    return rows;
}

// Both are in SI units afterwards. Two threads that compare the same two bodies take their turns in the same order.
static std::vector<ComparisonRow> compare(Database& base, Database& fresh, double tolerance, nb::handle progress)
{
    Database& other = std::less<>()(&base, &fresh) ? fresh : base;
    Messages messages;
    const Progress watch(progress);
    const auto rows = [&] {
        const Turn first(&other == &fresh ? base : fresh), second(other);
        const nb::gil_scoped_release released;
        return &other == &fresh ? rows_of(first.db(), second.db(), tolerance)
                                : rows_of(second.db(), first.db(), tolerance);
    }();
    messages.stop_listening();
    watch.rethrow();
    messages.deliver();
    std::vector<ComparisonRow> told;
    for (const ZELCOMPARISON& row : rows)
        told.emplace_back(row.check, row.worst, row.block, row.mode, row.node, row.component, row.limit, row.verdict);
    return told;
}

void add_comparing(nb::module_& module)
{
    module.attr("NONE") = int(ZEL_NONE);
    module.def("compare", &compare, nb::arg("base"), nb::arg("fresh"), nb::arg("tolerance"), nb::arg("progress").none(),
               "The checks of a comparison; both bodies are in SI units afterwards");
}

} // namespace zel_python
