// Facts, checks and stress of a body, which the command prints: here as records.
#include "arrays.h"
#include "module.h"
#include "reports.h"

#include "checks/checks.h"
#include "checks/stress.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <algorithm>
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

// Motions without stiffness, motions that answer, amplitudes of the modes.
static std::tuple<int, int, std::vector<double>> static_answer(Database& database, const std::string& load,
                                                               const std::vector<int>& held)
{
    const auto outcome = long_call(
        database, [&](ZELDATA* db) { return outcome_of([&] { return zel_checks::static_answer(db, load, held); }); });
    const zel_checks::StaticAnswer& answer = result_of(outcome);
    return {answer.rigid, answer.flexible, answer.amplitudes};
}

// (states, nodes, 6) and (states, nodes): the tensors and their von Mises stress. `amplitudes`: (states, modes).
static std::tuple<Given<double>, Given<double>> combined_stress(Database& database, const Taken<double>& amplitudes,
                                                                nb::handle progress)
{
    const std::vector<double> values(amplitudes.data(), amplitudes.data() + amplitudes.size());
    const size_t states = amplitudes.shape(0);
    Array<double> tensors, mises;
    Progress watch(progress);
    const auto outcome = long_call(database, [&](ZELDATA* db) {
        return outcome_of([&] {
            const std::vector<double> stress =
                zel_checks::combined_stress(db, values, [&watch](const char*, double share) {
                    return watch.go_on(share > 0.0 ? share : 0.0, 1.0);
                });
            const size_t nodes = zel_checks::nodes_with_stress(db).size();
            tensors = Array<double>({states, nodes, 6});
            mises = Array<double>({states, nodes});
            std::copy(stress.begin(), stress.end(), tensors.data());
            for (size_t i = 0; i < states * nodes; ++i)
                mises[i] = zel_checks::von_mises(stress.data() + 6 * i);
            return true;
        });
    });
    watch.rethrow();
    result_of(outcome);
    return {tensors.give(), mises.give()};
}

void add_checking(nb::class_<Database>& database)
{
    database.def("check", &check, nb::arg("progress").none()).def("facts", &facts);
    database.def("static_answer", &static_answer, nb::arg("load"), nb::arg("held"))
        .def("combined_stress", &combined_stress, nb::arg("amplitudes"), nb::arg("progress").none());
}

} // namespace zel_python
