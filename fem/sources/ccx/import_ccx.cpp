// The import from end to end: deck, interfaces, one of the two routes, nodal masses, checks, file.
#include "import_ccx.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <malloc.h>
#include <numbers>
#include <utility>

#include "fem/body.h"
#include "fem/report.h"
#include "fem/rigid.h"
#include "fem/units.h"
#include "results.h"
#include "shells.h"
#include "zel.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr double kMassTolerance = 1e-3;      // of mass, centre and each principal inertia
constexpr double kMatchTolerance = 1e-6;     // matched nodal masses
constexpr double kSmallRest = 1e-4;          // of the inertia that nodal inertias take without a word
constexpr double kSmallestInertia = 1e-9;    // of a body, against its largest
constexpr double kModeMassTolerance = 1e-3;  // modes and coordinates have six digits
constexpr double kHeldShellTolerance = 5e-2; // held shells at the nodes of their middle alone, without rotary inertia
constexpr double kRigidRatio = 1e-6;         // rigid-body eigenvalues against the first flexible one
constexpr double kComputedRatio =
    1e-4; // the same before the repair: 1e-6 in good models, 5e-2 where digits are missing
constexpr double kSpanTolerance = 1e-10; // of the tied nodes' rigid motions, squared
constexpr int kFrequenciesShown = 6;
constexpr size_t kNotesShown = 5; // on the deck

// "dir/JOB" of "dir/JOB.inp" or "dir/JOB.inp.gz".
static std::string job_of(std::string deck)
{
    for (const char* suffix : {".gz", ".inp"})
        if (deck.ends_with(suffix))
            deck.resize(deck.size() - std::string_view(suffix).size());
    return deck;
}

// ---- Interfaces --------------------------------------------------------------------------------------------------------

static std::vector<int> indexes_of(const Deck& deck, const std::vector<int>& node_ids)
{
    std::vector<int> nodes;
    for (int id : node_ids)
        nodes.push_back(deck.find_node(id));
    return nodes;
}

static Vector3d parse_point(std::string_view text, const std::string& option)
{
    Vector3d at;
    for (int axis = 0; axis < 3; ++axis)
    {
        const size_t comma = std::min(text.find(','), text.size());
        if ((axis < 2) != (comma < text.size()))
            throw std::runtime_error("an interface reads SET or SET@x,y,z, not " + option);
        at[axis] = parse_real(text.substr(0, comma), {"--interface " + option, 0});
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return at;
}

// "SET" or "SET@x,y,z"; a set without a point is joined at the mean of its nodes.
static Interface interface_from_option(const Deck& deck, const std::string& option, int reference_id)
{
    const size_t sign = option.find('@');
    std::string name = option.substr(0, sign);
    for (char& c : name)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    const auto set = deck.node_sets.find(name);
    if (set == deck.node_sets.end() || set->second.empty())
        throw std::runtime_error("the deck has no node set named " + option.substr(0, sign));
    for (const Tie& tie : deck.ties)
        for (int id : set->second)
            if (std::binary_search(tie.node_ids.begin(), tie.node_ids.end(), id))
                throw InputError(tie.place, "the nodes of " + name + " follow node " +
                                                std::to_string(tie.reference_id) +
                                                " already: leave out --interface, which takes the ties of the deck");
    Interface interface {
        reference_id, Vector3d::Zero(), indexes_of(deck, set->second)
    };
    for (int node : interface.tied)
        interface.at += deck.mesh.nodes[size_t(node)].at / double(interface.tied.size());
    if (sign != std::string::npos)
        interface.at = parse_point(std::string_view(option).substr(sign + 1), option);
    return interface;
}

// Nodes on one line, or a single one, would leave the reference node a rotation that nothing resists.
static void check_span(const Mesh& mesh, const Interface& interface, const std::string& name)
{
    double size = 0.0;
    for (int node : interface.tied)
        size = std::max(size, (mesh.nodes[size_t(node)].at - interface.at).norm());
    Eigen::Matrix<double, 6, 6> span = Eigen::Matrix<double, 6, 6>::Zero();
    for (int node : interface.tied)
    {
        Eigen::Matrix<double, 3, 6> motion = rigid_motion(mesh.nodes[size_t(node)].at, interface.at);
        motion.rightCols<3>() /= size > 0.0 ? size : 1.0;
        span += motion.transpose() * motion;
    }
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix<double, 6, 6>> solver(span);
    if (solver.eigenvalues()[0] < kSpanTolerance * solver.eigenvalues()[5])
        throw std::runtime_error(name + ": its tied nodes lie on one line, which leaves a rotation free");
}

static void check_interfaces(const Deck& deck, const std::vector<Interface>& interfaces)
{
    const Mesh& mesh = deck.mesh;
    std::vector<int> owner(mesh.nodes.size());
    std::vector<char> structural(mesh.nodes.size());
    for (const Element& element : mesh.elements)
        for (int i = 0; element.type->shape != Shape::point && i < node_count(element.type->shape); ++i)
            structural[size_t(element.nodes[size_t(i)])] = 1;
    for (const Interface& interface : interfaces)
    {
        const std::string name = "interface with reference node " + std::to_string(interface.reference_id);
        const int reference = deck.find_node(interface.reference_id);
        if (reference >= 0 && structural[size_t(reference)])
            throw std::runtime_error(name + ": the reference node belongs to an element");
        for (int node : interface.tied)
        {
            const std::string which = name + ": node " + std::to_string(mesh.nodes[size_t(node)].id);
            if (!structural[size_t(node)])
                throw std::runtime_error(which + " belongs to no element");
            if (std::exchange(owner[size_t(node)], interface.reference_id) != 0)
                throw std::runtime_error(which + " belongs to another interface as well");
        }
        check_span(mesh, interface, name);
    }
}

static std::vector<Interface> choose_interfaces(const Deck& deck, const ImportOptions& options)
{
    std::vector<Interface> interfaces;
    if (options.free)
        return interfaces;
    int next_id = deck.mesh.nodes.back().id;
    for (const std::string& option : options.interfaces)
    {
        if (next_id == std::numeric_limits<int>::max())
            throw std::runtime_error("there is no node number left for the reference node of " + option);
        interfaces.push_back(interface_from_option(deck, option, ++next_id));
    }
    if (options.interfaces.empty())
        for (const Tie& tie : deck.ties)
            interfaces.push_back({tie.reference_id, deck.mesh.nodes[size_t(deck.find_node(tie.reference_id))].at,
                                  indexes_of(deck, tie.node_ids)});
    return interfaces;
}

// ---- Checks ------------------------------------------------------------------------------------------------------------

static double relative(double a, double b)
{
    return std::abs(a - b) / std::max(std::abs(b), 1e-300);
}

// Largest difference of the inertias about the centre, in units of the two principal inertias that it lies between: the small
// inertia of a slender body counts as much as the others.
static double inertia_error(const MassMoments& a, const MassMoments& b)
{
    const Vector3d center = b.center();
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> axes(b.inertia(center));
    const Vector3d size = axes.eigenvalues().cwiseMax(kSmallestInertia * axes.eigenvalues()[2]).cwiseSqrt();
    const Eigen::Matrix3d turned =
        axes.eigenvectors().transpose() * (a.inertia(center) - b.inertia(center)) * axes.eigenvectors();
    return (turned.array() / (size * size.transpose()).array()).abs().maxCoeff();
}

static double gyration(const MassMoments& moments)
{
    return std::sqrt(moments.inertia(moments.center()).trace() / moments.mass);
}

// `given` are the moments of the matrices, `expected` what the solver's quadrature makes of the elements.
static void report_mass(Report& report, const Units& units, const MeshMass& elements, const MassMoments& given,
                        const MassMoments& expected)
{
    const MassMoments& own = elements.moments;
    report.figure("volume", format("%.6e %s^3", elements.volume, units.length.c_str()));
    report.check("mass", format("%.6e %s, volume x density %.6e", given.mass, units.mass.c_str(), own.mass),
                 relative(given.mass, own.mass) < kMassTolerance);
    const Vector3d center = given.center();
    report.check("centre of mass", format("%.6e %.6e %.6e", center[0], center[1], center[2]),
                 (center - own.center()).norm() < kMassTolerance * gyration(own));
    const Eigen::Vector3d principal =
        Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d>(given.inertia(center)).eigenvalues();
    report.check("principal inertias", format("%.6e %.6e %.6e", principal[0], principal[1], principal[2]),
                 inertia_error(given, expected) < kMassTolerance);
}

static void report_nodal_masses(Report& report, const Body& body, const MassMoments& target, MassMethod method)
{
    const std::vector<char> used = used_nodes(body.deck->mesh);
    double smallest = std::numeric_limits<double>::infinity();
    for (size_t i = 0; i < used.size(); ++i)
        if (used[i])
            smallest = std::min(smallest, body.nodes.masses[i]);
    if (body.nodes.left > kSmallRest)
        report.note(
            format("masses at the nodes cannot have the inertia of the body: nodal inertias make up for %.1e of it",
                   body.nodes.left));
    report.check("smallest nodal mass", format("%.3e %s", smallest, body.units.mass.c_str()), smallest >= 0.0);
    const MassMoments own = moments_of(body.deck->mesh, body.nodes);
    const double worst = std::max({relative(own.mass, target.mass), inertia_error(own, target),
                                   (own.center() - target.center()).norm() / gyration(target)});
    const std::string value = format("differ by %.1e in mass, centre or inertia", worst);
    if (method == MassMethod::matched)
        report.check("nodal masses", value, worst < kMatchTolerance);
    else
        report.figure("nodal masses", value);
}

static double seconds_of(const Units& units)
{
    return ZEL_UnitsDivider(units.time.c_str(), ZEL_TimeUnits);
}

static double hertz(double eigenvalue, double seconds)
{
    return std::sqrt(std::max(eigenvalue, 0.0)) / seconds / (2 * std::numbers::pi);
}

static std::string frequencies(const VectorXd& eigenvalues, Index first, double seconds)
{
    std::string text;
    for (Index k = first; k < std::min<Index>(first + kFrequenciesShown, eigenvalues.size()); ++k)
        text += format("%s%.6g", k > first ? " " : "", hertz(eigenvalues[k], seconds));
    return text.empty() ? "none" : text + " Hz";
}

// Eigenvalues of the written body: six rigid ones, and all others well above them. Those of the rigid motions before they
// were made exact tell how much the stiffness has lost to the printed digits.
static void report_modes(Report& report, const Body& body, double before)
{
    VectorXd values = generalized_eigenvalues(body.stiffness, body.mass);
    const double rigid = values.head(6).cwiseAbs().maxCoeff();
    const bool has_flexible = values.size() > 6, resolved = !has_flexible || before < kComputedRatio * values[6];
    report.check("six rigid-body modes", format("largest |eigenvalue| %.2e, %.2e as computed", rigid, before),
                 resolved && (!has_flexible || (values[6] > 0.0 && rigid < kRigidRatio * values[6])));
    if (!resolved)
        report.note("the stiffness has too few digits for this body: import its modes (*NODE FILE) instead");
    report.figure("free frequencies", frequencies(values, 6, seconds_of(body.units)));
}

// ---- Routes ------------------------------------------------------------------------------------------------------------

static Route choose_route(const std::string& job, Route wanted)
{
    if (wanted != Route::automatic)
        return wanted;
    if (input_exists(job + ".sti"))
        return Route::matrices;
    if (input_exists(job + ".frd"))
        return Route::results;
    throw InputError({job + ".sti", 0}, "no such file, nor " + job +
                                            ".frd: solve the deck with *FREQUENCY, "
                                            "SOLVER=MATRIXSTORAGE first");
}

// Unit motions of each reference node in its own six constraint modes.
static MatrixXd unit_reference_motion(size_t interfaces, Index modes)
{
    MatrixXd motion = MatrixXd::Zero(6 * Index(interfaces), modes);
    motion.leftCols(motion.rows()).setIdentity();
    return motion;
}

static void report_mesh(Report& report, const Body& body)
{
    const Mesh& mesh = body.deck->mesh;
    report.figure("mesh", format("%zu nodes, %zu elements", mesh.nodes.size(), mesh.elements.size()));
    for (size_t i = 0; i < std::min<size_t>(body.deck->notes.size(), kNotesShown); ++i)
        report.note(body.deck->notes[i]);
    if (body.deck->notes.size() > kNotesShown)
        report.note(format("and %zu more like these", body.deck->notes.size() - kNotesShown));
    for (const Interface& i : body.interfaces)
        report.figure("interface node", format("%d, tied to %zu nodes, at %.6g %.6g %.6g", i.reference_id,
                                               i.tied.size(), i.at[0], i.at[1], i.at[2]));
}

// The same interfaces, tied to all layers of shells.
static std::vector<Interface> expanded(const Expansion& expansion, std::vector<Interface> interfaces)
{
    for (Interface& interface : interfaces)
    {
        std::vector<int> layers;
        for (int node : interface.tied)
            for (int layer : expansion.nodes_of(node))
                layers.push_back(layer);
        std::sort(layers.begin(), layers.end());
        interface.tied = std::move(layers);
    }
    return interfaces;
}

// Nodal inertias have no kinetic energy unless their nodes turn.
static void add_rotations(Body& body)
{
    if (body.rotation.size() == 0 && (has_shells(body.deck->mesh) || body.nodes.left > kSmallRest))
        body.rotation = node_rotations(body.deck->mesh, body.motion);
}

static std::string few_points(double lost)
{
    return format(
        "the solver integrates the mass at few points and makes inertias up to %.1f %% low: the body has those of "
        "volume x density",
        100 * lost);
}

static void import_matrices(const ImportOptions& options, const std::string& job, Body& body, const MeshMass& elements,
                            PhaseLog& log, Report& report)
{
    const Expansion expansion = expand_shells(*body.deck);
    const std::vector<Interface> interfaces = expanded(expansion, body.interfaces);
    check_interfaces(expansion.deck, interfaces);
    log.begin("read the matrices");
    StoredMatrices matrices = read_matrices(job, log);
    expansion.name_layers(matrices.freedoms);
    const Model model = make_model(expansion.deck, std::move(matrices), interfaces);
    const bool free = body.interfaces.empty();
    Reduction reduction =
        free ? reduce_free(model, options.modes, log) : reduce_craig_bampton(model, options.modes, log);
    log.begin("shapes and nodal masses");
    const MatrixXd motion = node_motion(model, reduction);
    body.motion = expansion.mean(motion, 3);
    if (!expansion.shells.empty())
        body.rotation = expansion.rotation(motion);
    body.stiffness = std::move(reduction.stiffness);
    body.mass = std::move(reduction.mass);
    body.reference_motion = unit_reference_motion(body.interfaces.size(), body.motion.cols());
    const MassMoments matrix = matrix_moments(model), expected = solver_moments(expansion.deck.mesh);
    const MeshMass solids = mesh_mass(expansion.deck.mesh);
    const double lost = inertia_error(expected, solids.moments);
    const MassMoments& target = lost < kMassTolerance ? matrix : solids.moments;
    if (lost >= kMassTolerance)
        set_rigid_mass(body, target);
    body.nodes = nodal_masses(body.deck->mesh, elements, options.mass, target);
    add_rotations(body);

    report.title(free ? "Free-free modes from the matrices of " + job
                      : "Craig-Bampton reduction from the matrices of " + job);
    report_mesh(report, body);
    report.figure("modes", free ? format("6 rigid, %d flexible", options.modes)
                                : format("%d constraint, %d fixed-interface", reduction.boundary_count, options.modes));
    report_mass(report, body.units, solids, matrix, expected);
    if (lost >= kMassTolerance)
        report.note(few_points(lost));
    report_nodal_masses(report, body, target, options.mass);
    report_modes(report, body, reduction.rigid_before);
    if (!free)
        report.figure("fixed-interface frequencies",
                      frequencies(body.stiffness.diagonal().tail(options.modes), 0, seconds_of(body.units)));
    if (options.modes > 0)
        report.figure("modes complete up to", format("%.6g Hz", hertz(reduction.complete_to, seconds_of(body.units))));
}

// Whether the results are those of the nodes that the solver made for shells (OUTPUT=3D).
static bool has_layers(const Deck& deck, const FrdFile& frd)
{
    return has_shells(deck.mesh) &&
           std::any_of(frd.node_ids.begin(), frd.node_ids.end(), [&deck](int id) { return deck.find_node(id) < 0; });
}

static ResultBody body_from_layers(const Expansion& expansion, Body& body, FrdFile& frd, const std::string& job,
                                   int step)
{
    expansion.name_layers(frd.node_ids);
    ResultBody results = body_from_results(expansion.deck, body.interfaces, frd, job, step);
    body.rotation = expansion.rotation(results.motion);
    results.motion = expansion.mean(results.motion, 3);
    if (results.stress.size() > 0)
        results.stress = expansion.mean(results.stress, 6);
    return results;
}

// The mass matrix that the solver's modes belong to, by the solver's own quadrature. What the results do not hold, the freedoms
// of incompatible modes and the rotations of shells, is missing from it: there the rigid motions alone are judged.
static void report_mode_masses(Report& report, const Mesh& mesh, const ResultBody& results)
{
    const bool shells = has_shells(mesh);
    const bool whole = !shells && std::none_of(mesh.elements.begin(), mesh.elements.end(),
                                               [](const Element& element) { return element.type->name == "C3D8I"; });
    const std::string all = format("differ from 1 by %.1e at most", results.mass_error);
    if (whole || results.boundary_count > 0)
        return report.check("masses of the modes", all, results.mass_error < kModeMassTolerance);
    if (results.rigid_count > 0)
    {
        report.figure("masses of the modes", all);
        report.check("masses of the rigid ones", format("differ from 1 by %.1e at most", results.rigid_error),
                     results.rigid_error < kModeMassTolerance);
    }
    else if (shells && results.held)
        report.check("masses of the modes", all, results.mass_error < kHeldShellTolerance);
    else
        report.figure("masses of the modes", all);
}

static void import_results(const ImportOptions& options, const std::string& job, Body& body, const MeshMass& elements,
                           PhaseLog& log, Report& report)
{
    check_interfaces(*body.deck, body.interfaces);
    log.begin("read the results");
    FrdFile frd = read_frd(job + ".frd");
    const bool layers = has_layers(*body.deck, frd);
    const Expansion expansion = layers ? expand_shells(*body.deck) : Expansion{*body.deck, {}, {}};
    ResultBody results = layers ? body_from_layers(expansion, body, frd, job, options.step)
                                : body_from_results(*body.deck, body.interfaces, frd, job, options.step);
    log.begin("shapes and nodal masses");
    const MeshMass solids = mesh_mass(expansion.deck.mesh);
    const double lost = inertia_error(solver_moments(expansion.deck.mesh), solids.moments);
    body.nodes = nodal_masses(body.deck->mesh, elements, options.mass, solids.moments);
    const bool free = results.boundary_count == 0;
    double before = results.rigid_before;
    if (!free)
    {
        Reduction reduction;
        reduction.stiffness = results.stiffness;
        reduction.mass = results.mass;
        repair_rigid_motions(body.interfaces, reduction);
        results.stiffness = reduction.stiffness;
        before = reduction.rigid_before;
    }
    body.stiffness = std::move(results.stiffness);
    body.mass = std::move(results.mass);
    body.motion = std::move(results.motion);
    body.reference_motion = std::move(results.reference_motion);
    body.stress = std::move(results.stress);
    if (!free || results.rigid_count > 0)
        set_rigid_mass(body, solids.moments);
    add_rotations(body);

    const int modes = int(body.mass.rows()) - results.boundary_count - results.rigid_count;
    report.title((free ? "Modes from the results of " : "Craig-Bampton basis from the results of ") + job);
    report_mesh(report, body);
    report.figure("modes", free ? format("%d rigid, %d flexible", results.rigid_count, modes)
                                : format("%d constraint, %d fixed-interface", results.boundary_count, modes));
    report.figure("modal stress", body.stress.size() > 0 ? "yes" : "no");
    report_mass(report, body.units, solids, solids.moments, solids.moments);
    if (lost >= kMassTolerance)
        report.note(few_points(lost));
    report_nodal_masses(report, body, solids.moments, options.mass);
    report_mode_masses(report, body.deck->mesh, results);
    if (!free)
        report.figure("asymmetry of the forces", format("%.1e", results.asymmetry));
    if (!free || results.rigid_count > 0)
        report_modes(report, body, before);
    else if (results.held && body.stiffness(0, 0) > 0.0) // the solver writes 0 for eigenvalues below
        report.note("the body was held when its modes were computed: it has no rigid-body modes");
    else
        report.check("six rigid-body modes", "not six alone are near zero: the body falls apart", false);
    if (free && results.rigid_count == 0)
        report.figure("frequencies", frequencies(body.stiffness.diagonal(), 0, seconds_of(body.units)));
}

static int run(const ImportOptions& options)
{
    const std::string job = job_of(options.deck);
    PhaseLog log(!options.verbose);
    Report report;
    Body body;
    body.units = parse_units(options.units);
    const double consistency = consistency_of(body.units);
    if (relative(consistency, 1.0) > kConsistentUnits)
        throw std::runtime_error(format("the units do not belong together: 1 %s is %g %s %s/%s^2, and a deck has one "
                                        "system of units throughout",
                                        body.units.force.c_str(), consistency, body.units.mass.c_str(),
                                        body.units.length.c_str(), body.units.time.c_str()));
    log.begin("read the deck");
    const Deck deck = read_deck(job + ".inp");
    keep_inputs(options.output, job, deck);
    check_output(options.output);
    const MeshMass elements = mesh_mass(deck.mesh);
    body.deck = &deck;
    body.interfaces = choose_interfaces(deck, options);
    if (choose_route(job, options.route) == Route::matrices)
        import_matrices(options, job, body, elements, log, report);
    else
        import_results(options, job, body, elements, log, report);
    log.begin("write the file");
    write_body(body, options.output, options.write_options, options.verbose);
    log.finish();
    report.print();
    std::printf("%s is written.\n", options.output.c_str());
    return report.all_hold() ? 0 : 1;
}

int import_ccx(const ImportOptions& options)
{
    // Blocks of vectors come and go: memory that is freed stays with the process, where it need not be cleared again.
    mallopt(M_MMAP_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    try
    {
        return run(options);
    }
    catch (const InputError& error)
    {
        zel_command::print_problem(error.what());
    }
    catch (const std::bad_alloc&)
    {
        zel_command::print_problem(options.deck + ": out of memory");
    }
    catch (const std::exception& error)
    {
        zel_command::print_problem(options.deck + ": " + error.what());
    }
    return 2;
}

} // namespace zel_fem
