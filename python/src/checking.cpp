// Facts and checks of a body, which the command prints: here as records.
#include "module.h"
#include "reports.h"

#include "checks/checks.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <array>
#include <tuple>

namespace zel_python
{

std::vector<ReportRow> rows_of(const zel_checks::Report& report)
{
    std::vector<ReportRow> rows;
    for (const zel_checks::Row& row : report.rows())
    {
        std::vector<std::tuple<std::string, double>> figures;
        for (const zel_checks::Number& number : row.numbers)
            figures.emplace_back(number.name, number.value);
        rows.emplace_back(int(row.kind), row.name, row.text, row.holds, std::move(figures));
    }
    return rows;
}

// What the library cannot do for a check is a row of the report, and its messages are warnings.
static std::vector<ReportRow> check(Database& database, nb::handle progress)
{
    Messages messages;
    Progress watch(progress);
    const auto outcome = [&] {
        const Turn turn(database);
        const nb::gil_scoped_release released;
        return outcome_of([&] {
            return zel_checks::check_body(
                turn.db(), [&watch](const char*, double share) { return watch.go_on(share > 0.0 ? share : 0.0, 1.0); });
        });
    }();
    messages.stop_listening();
    watch.rethrow();
    messages.deliver(false);
    return rows_of(result_of(outcome));
}

// Coupled modes?, mass, centre, principal inertias; mode, hertz and rigid? of each frequency; number, name and bytes of each block.
using FactsRow =
    std::tuple<bool, double, std::array<double, 3>, std::array<double, 3>, std::vector<std::tuple<int, double, bool>>,
               std::vector<std::tuple<int, std::string, int64_t>>>;

static FactsRow facts(Database& database)
{
    const auto outcome =
        long_call(database, [](ZELDATA* db) { return outcome_of([db] { return zel_checks::facts_of(db); }); });
    const zel_checks::Facts& facts = result_of(outcome);
    FactsRow row(facts.coupled_modes, facts.mass.mass, facts.mass.center, facts.principal_inertias, {}, {});
    for (const zel_checks::Frequency& one : facts.frequencies)
        std::get<4>(row).emplace_back(one.mode, one.hertz, one.rigid);
    for (const zel_checks::Block& block : facts.blocks)
        std::get<5>(row).emplace_back(block.number, block.name, block.bytes);
    return row;
}

void add_checking(nb::class_<Database>& database)
{
    database.def("check", &check, nb::arg("progress").none()).def("facts", &facts);
}

} // namespace zel_python
