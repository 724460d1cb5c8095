// A job of CalculiX as a model: what the deck says, and what its rows and results mean.
#include <algorithm>
#include <filesystem>
#include <unordered_map>
#include <utility>

#include "checks/report.h"
#include "fem/sources/ccx/beams.h"
#include "fem/sources/ccx/ccx.h"
#include "fem/sources/ccx/element_types.h"
#include "fem/sources/ccx/results.h"
#include "fem/sources/ccx/rows.h"
#include "fem/sources/ccx/shells.h"
#include "fem/sources/ccx/trusses.h"

namespace zel_fem::ccx
{

using zel_checks::format;

namespace
{
class CcxSource : public Source
{
public:
    explicit CcxSource(const Job& job);
    Model read_model(Progress& progress) override;
    void read_solution(Model& model, const std::vector<Interface>& interfaces, Progress& progress) override;

private:
    Route choose_route() const;
    void read_matrices_into(Model& model, Progress& progress) const;
    void read_results_into(Model& model, const std::vector<Interface>& interfaces, Progress& progress) const;

    std::string job_;
    Route route_;
    int step_;
    Deck deck_;
};
} // namespace

// "dir/JOB" of "dir/JOB.inp" or "dir/JOB.inp.gz".
static std::string job_of(std::string deck)
{
    for (const char* suffix : {".gz", ".inp"})
        if (deck.ends_with(suffix))
            deck.resize(deck.size() - std::string_view(suffix).size());
    return deck;
}

CcxSource::CcxSource(const Job& job) : job_(job_of(job.deck)), route_(job.route), step_(job.step) {}

static std::vector<int> indexes_of(const Deck& deck, const std::vector<int>& node_ids)
{
    std::vector<int> nodes;
    for (int id : node_ids)
        nodes.push_back(deck.find_node(id));
    return nodes;
}

// All that one of the routes or the solver itself may use of the job.
static std::vector<std::string> files_of(const std::string& job, const Deck& deck)
{
    std::vector<std::string> files = deck.mesh.files;
    for (const char* suffix : {".inp", ".frd", ".dat", ".sti", ".mas", ".dof"})
        for (const char* packed : {"", ".gz"})
            files.push_back(job + suffix + packed);
    return files;
}

// Nodes with moments of their own: of shells, and reference nodes of couplings. By index.
static std::vector<char> turning_nodes(const Deck& deck)
{
    std::vector<char> turning(deck.mesh.nodes.size());
    for (const Element& element : deck.mesh.elements)
        for (int i = 0; is_expanded(element) && i < node_count(element.type->shape); ++i)
            turning[size_t(element.nodes[size_t(i)])] = 1;
    for (const Tie& tie : deck.ties)
        turning[size_t(deck.find_node(tie.reference_id))] |= char(tie.turns);
    return turning;
}

// Forces on the node that carries the rotations of a tie are moments. The solver passes over those of nodes that do not
// turn, and so does this, with a note.
static void add_nodal(const Deck& deck, const StepLoads& step, const LoadKey& key, double value,
                      const std::vector<char>& turning, LoadCase& load, std::vector<std::string>& notes)
{
    LoadCase::Nodal own{deck.find_node(key.target), key.part - 1, value};
    const int first = key.part <= 3 ? 0 : 3;
    Eigen::Vector3d along = value * Eigen::Vector3d::Unit(own.component - first);
    if (const auto turned = deck.transforms.find(key.target); turned != deck.transforms.end())
        along = turned->second.axes(deck.mesh.nodes[size_t(own.node)].at) * along;
    bool acts = own.component < 3 || turning[size_t(own.node)];
    for (const Tie& tie : deck.ties)
        if (tie.rotation_id == key.target)
        {
            acts = key.part <= 3;
            own = {deck.find_node(tie.reference_id), key.part + 2, value};
        }
    for (int c = 0; acts && c < 3; ++c)
        if (along[c] != 0.0)
            load.nodal.push_back({own.node, own.component - own.component % 3 + c, along[c]});
    if (!acts)
        notes.push_back(InputError(step.place, format("node %d does not turn: its load of component %d is passed over, "
                                                      "as the solver does",
                                                      key.target, key.part))
                            .what());
}

static LoadCase load_case_of(const Deck& deck, const StepLoads& step, const std::vector<char>& turning,
                             std::vector<std::string>& notes)
{
    LoadCase load;
    load.label = step.label;
    for (const auto& [key, active] : step.loads)
    {
        const Eigen::Vector3d point(key.axis[0], key.axis[1], key.axis[2]);
        const Eigen::Vector3d direction(key.axis[3], key.axis[4], key.axis[5]);
        // away from the axis, as far as it is
        const Eigen::Matrix3d off = active.value * (Eigen::Matrix3d::Identity() - direction * direction.transpose());
        if (key.kind == LoadKey::nodal)
            add_nodal(deck, step, key, active.value, turning, load, notes);
        else if (key.kind == LoadKey::pressure)
            load.pressures.push_back({{key.target, key.part}, active.value});
        else if (key.kind == LoadKey::gravity)
            load.inertial.push_back({active.elements, active.value * direction, Eigen::Matrix3d::Zero()});
        else
            load.inertial.push_back({active.elements, -off * point, off});
    }
    return load;
}

Model CcxSource::read_model(Progress& progress)
{
    progress.begin("read the deck");
    deck_ = read_deck(job_ + ".inp");
    Model model;
    model.job = job_;
    model.program = "CalculiX";
    model.title = deck_.heading;
    model.file = std::filesystem::path(deck_.mesh.files[0]).filename().string();
    model.inputs = files_of(job_, deck_);
    model.notes = deck_.notes;
    model.mesh = deck_.mesh;
    for (const auto& [name, ids] : deck_.node_sets)
        model.node_sets[name] = indexes_of(deck_, ids);
    model.surfaces = deck_.surfaces;
    model.elasticities = deck_.elasticities;
    const std::vector<char> turning = turning_nodes(deck_);
    for (const StepLoads& step : deck_.static_loads)
        model.load_cases.push_back(load_case_of(deck_, step, turning, model.notes));
    for (const auto& [place, element, constant] : deck_.dashpots)
    {
        const auto& nodes = deck_.mesh.elements[size_t(element)].nodes;
        model.dashpots.push_back({place, nodes[0], nodes[1], constant});
    }
    for (const Tie& tie : deck_.ties)
        model.ties.push_back({tie.place, deck_.find_node(tie.reference_id), indexes_of(deck_, tie.node_ids)});
    return model;
}

Route CcxSource::choose_route() const
{
    if (route_ != Route::automatic)
        return route_;
    if (input_exists(job_ + ".sti"))
        return Route::matrices;
    if (input_exists(job_ + ".frd"))
        return Route::results;
    throw InputError({job_ + ".sti", 0}, "no such file, nor " + job_ +
                                             ".frd: solve the deck with *FREQUENCY, "
                                             "SOLVER=MATRIXSTORAGE first");
}

void CcxSource::read_solution(Model& model, const std::vector<Interface>& interfaces, Progress& progress)
{
    if (choose_route() == Route::matrices)
        read_matrices_into(model, progress);
    else
        read_results_into(model, interfaces, progress);
}

// What is between layers is not what the deck says of the node of the shell.
static void check_constraints(const Deck& deck, const Layers& layers)
{
    const auto check = [&](const Place& place, int id) {
        if (const int node = deck.find_node(id); node >= 0 && layers.layers_of_node[size_t(node)] >= 0)
            throw InputError(
                place,
                format("node %d belongs to a shell or beam, whose constraints are not proved: take the modes of *NODE "
                       "FILE, OUTPUT=2D (route results)",
                       id));
    };
    for (const Equation& equation : deck.equations)
        for (const Equation::Term& term : equation.terms)
            check(equation.place, term.node_id);
    for (const SurfaceTie& tie : deck.surface_ties)
        for (const std::string& name : {tie.slave, tie.master})
            if (const auto nodes = deck.surface_nodes.find(name); nodes != deck.surface_nodes.end())
                for (int id : nodes->second)
                    check(tie.place, id);
}

void CcxSource::read_matrices_into(Model& model, Progress& progress) const
{
    if (!deck_.results_only.empty())
        throw deck_.results_only.front();
    Expansion expansion = expand_shells(deck_);
    check_constraints(deck_, expansion.layers);
    progress.begin("read the matrices");
    StoredMatrices stored = read_matrices(job_, progress);
    hang_trusses(deck_, stored);
    expansion.name_layers(stored.freedoms);
    std::vector<zel_fem::Row> rows = rows_of(expansion.deck, stored);
    model.dependents = dependents_of(expansion.deck, expansion.knots, rows);
    model.matrices = {std::move(rows), std::move(stored.stiffness), std::move(stored.mass)};
    if (!expansion.layers.nodes.empty())
        model.layers = std::move(expansion.layers);
}

// Whether the results are those of the nodes that the solver made for shells (OUTPUT=3D).
static bool has_layers(const Deck& deck, const FrdFile& frd)
{
    return has_expanded(deck.mesh) &&
           std::any_of(frd.node_ids.begin(), frd.node_ids.end(), [&deck](int id) { return deck.find_node(id) < 0; });
}

// The mass of the solids that the solver computes for shells; none where it is not known which they are.
static std::optional<MassMoments> mass_of_layers(const Deck& deck)
{
    try
    {
        if (has_expanded(deck.mesh))
            return solver_moments(expand_shells(deck).deck.mesh);
    }
    catch (const InputError&)
    {}
    return {};
}

void CcxSource::read_results_into(Model& model, const std::vector<Interface>& interfaces, Progress& progress) const
{
    progress.begin("read the results");
    FrdFile frd = read_frd(job_ + ".frd");
    if (!has_layers(deck_, frd))
    {
        for (const Element& element : deck_.mesh.elements)
            if (is_beam(*element.type))
                throw InputError(deck_.mesh.place(element),
                                 "results of beams are taken with *NODE FILE, OUTPUT=3D alone: without it "
                                 "nothing is known of their torsion");
        model.modes = modes_from_results(deck_, interfaces, frd, job_, step_);
        model.modes->program_mass = mass_of_layers(deck_);
        return;
    }
    Expansion expansion = expand_shells(deck_);
    const auto made =
        std::count_if(frd.node_ids.begin(), frd.node_ids.end(), [&](int id) { return deck_.find_node(id) < 0; });
    const size_t expected = expansion.deck.mesh.nodes.size() - deck_.mesh.nodes.size();
    if (size_t(made) != expected)
        throw InputError(
            {job_ + ".frd", 0},
            format(
                "has %td nodes of the solver's own making, and the shells and beams of the deck make %zu: trusses need "
                "*NODE FILE, OUTPUT=2D, and composite shells are taken by matrices alone",
                made, expected));
    expansion.name_layers(frd.node_ids);
    model.modes = modes_from_results(expansion.deck, interfaces, frd, job_, step_);
    model.layers = std::move(expansion.layers);
}

std::unique_ptr<Source> make_source(const Job& job)
{
    return std::make_unique<CcxSource>(job);
}

} // namespace zel_fem::ccx
