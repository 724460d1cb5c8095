// Models made of arrays, on their way through the same reduction as those of files.
#include "arrays.h"
#include "module.h"
#include "reports.h"

#include "fem/fem.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <array>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

namespace zel_python
{

// By compressed columns: size, starts, rows, values.
using Matrix = std::tuple<int64_t, Taken<int64_t>, Taken<int64_t>, Taken<double>>;
// Type and nodes of a cell, and the points of all cells.
using Cells = std::vector<std::tuple<std::string, int, Taken<int64_t>>>;
using NodeSets = std::vector<std::pair<std::string, Taken<int64_t>>>;
using Interfaces = std::vector<std::tuple<std::string, std::vector<int>, std::optional<std::array<double, 3>>>>;
// Label, kind, set, ids and values; and labels with forces at all rows.
using Loads = std::vector<std::tuple<std::string, int, std::string, std::vector<int>, std::array<double, 6>>>;
using LoadVectors = std::vector<std::pair<std::string, Taken<double>>>;

namespace
{
// Looks for signals where the reduction tells how far it is.
class Watching : public zel_fem::Progress
{
public:
    explicit Watching(zel_python::Progress& progress) : progress_(progress) {}

protected:
    bool begins(const std::string&) override { return progress_.go_on(0.0, 1.0); }
    bool advances(double share) override { return progress_.go_on(share > 0.0 ? share : 0.0, 1.0); }

private:
    zel_python::Progress& progress_;
};
} // namespace

template <typename T> static std::vector<T> copy_of(const Taken<T>& array)
{
    return {array.data(), array.data() + array.size()};
}

static zel_fem::arrays::Matrix matrix_of(const Matrix& matrix)
{
    const auto& [order, starts, rows, values] = matrix;
    return {order, copy_of(starts), copy_of(rows), copy_of(values)};
}

static zel_fem::ReductionOptions options_of(const std::array<std::string, 4>& units, const Interfaces& interfaces,
                                            const Loads& loads, bool attachment, int mass_method,
                                            bool lumped_invariants, bool release_supports, bool verify)
{
    zel_fem::ReductionOptions options;
    options.units = {units[0], units[1], units[2], units[3]};
    for (const auto& [text, ids, at] : interfaces)
    {
        zel_fem::InterfaceChoice choice = ids.empty() ? zel_fem::parse_interface(text) : zel_fem::InterfaceChoice{};
        if (!ids.empty())
            choice.nodes = {text, ids};
        if (at)
            choice.at = at;
        options.interfaces.push_back(choice);
    }
    for (const auto& [label, kind, name, ids, values] : loads)
        options.loads.push_back({label, zel_fem::LoadKind(kind), {name, ids}, values});
    options.attachment = attachment;
    options.free = interfaces.empty();
    options.mass = zel_fem::MassMethod(mass_method);
    options.lumped_invariants = lumped_invariants;
    options.release_supports = release_supports;
    options.verify = verify;
    return options;
}

// `dofs`: point and component of each row, or nothing
static std::pair<Database*, std::vector<ReportRow>>
reduce(const Matrix& stiffness, const Matrix& mass, Taken<double> points, const Cells& cells, const NodeSets& sets,
       Taken<int64_t> dofs, const std::array<std::string, 4>& units, const Interfaces& interfaces, const Loads& loads,
       const LoadVectors& load_vectors, bool attachment, const std::string& modes, int mass_method,
       bool lumped_invariants, bool release_supports, bool verify, const std::string& title, nb::handle progress)
{
    zel_fem::arrays::Input input;
    input.title = title;
    input.program = "Python";
    input.points = copy_of(points);
    for (const auto& [type, nodes, table] : cells)
        input.cells.push_back({type, nodes, copy_of(table)});
    for (const auto& [name, nodes] : sets)
        input.node_sets[name] = copy_of(nodes);
    input.stiffness = matrix_of(stiffness);
    input.mass = matrix_of(mass);
    for (size_t i = 0; i + 2 <= dofs.size(); i += 2)
        input.dofs.push_back({dofs.data()[i], dofs.data()[i + 1]});
    for (const auto& [label, forces] : load_vectors)
        input.loads.push_back({label, copy_of(forces)});
    Messages messages;
    zel_python::Progress watch(progress);
    const auto outcome = [&] {
        const nb::gil_scoped_release released;
        return outcome_of([&] {
            Watching watching(watch);
            zel_fem::ReductionOptions options = options_of(units, interfaces, loads, attachment, mass_method,
                                                           lumped_invariants, release_supports, verify);
            zel_fem::choose_modes(modes, options);
            const auto source = zel_fem::arrays::make_source(std::move(input));
            const zel_fem::ReducedBody body = zel_fem::reduce(*source, options, watching);
            return std::pair(zel_fem::fill_database(body), rows_of(body.report));
        });
    }();
    messages.stop_listening();
    watch.rethrow();
    const auto& [db, rows] = result_of(outcome);
    auto database = std::make_unique<Database>(db);
    messages.deliver();
    return {database.release(), rows};
}

void add_reducing(nb::module_& module)
{
    using nb::arg;
    module.def("reduce", &reduce, arg("stiffness"), arg("mass"), arg("points"), arg("cells"), arg("sets"), arg("dofs"),
               arg("units"), arg("interfaces"), arg("loads"), arg("load_vectors"), arg("attachment"), arg("modes"),
               arg("mass_method"), arg("lumped_invariants"), arg("release_supports"), arg("verify"), arg("title"),
               arg("progress").none(), nb::rv_policy::take_ownership,
               "The body of a model and the report of its reduction");
}

} // namespace zel_python
