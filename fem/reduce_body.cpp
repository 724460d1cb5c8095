// From a source to a body, end to end: mesh, interfaces, matrices or modes, nodal masses, checks. What is cheap to find wrong is
// looked at first.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <utility>

#include "fem/figures.h"
#include "fem/interfaces.h"
#include "fem/invariants.h"
#include "fem/loads.h"
#include "fem/reduction.h"
#include "fem/rigid.h"
#include "fem/stress.h"
#include "fem/text.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;

static void check_units(const Units& units)
{
    const double consistency = consistency_of(units);
    if (std::abs(consistency - 1.0) > kConsistentUnits)
        throw std::runtime_error(format("the units do not belong together: 1 %s is %g %s %s/%s^2, and a deck has one "
                                        "system of units throughout",
                                        units.force.c_str(), consistency, units.mass.c_str(), units.length.c_str(),
                                        units.time.c_str()));
}

static bool has_shells(const Mesh& mesh)
{
    return std::any_of(mesh.elements.begin(), mesh.elements.end(),
                       [](const Element& element) { return is_shell(element.type->shape); });
}

// "Free-free modes from the matrices of beam"
static std::string title_of(const Model& model, const char* what, const char* from)
{
    return model.job.empty() ? std::string(what) : std::string(what) + " from the " + from + " of " + model.job;
}

// Nodal inertias have no kinetic energy unless their nodes turn.
static void add_rotations(const Model& model, Body& body)
{
    const auto& elements = body.mesh.elements;
    const bool lines = std::any_of(elements.begin(), elements.end(), [](auto& element) { return element.width > 0.0; });
    if (body.rotation.size() == 0 && (has_shells(body.mesh) || lines || body.nodes.left > kSmallRest))
        body.rotation = node_rotations(body.mesh, body.motion);
    else if (model.layers && body.nodes.left > kSmallRest) // about normals and at solids, too
        body.rotation += model.layers->rest(node_rotations(body.mesh, body.motion));
}

// Unit motions of each reference node in its own six constraint modes, as computed modes have them.
static MatrixXd unit_reference_motion(size_t interfaces, Index boundary, Index modes)
{
    MatrixXd motion = MatrixXd::Zero(6 * Index(interfaces), modes);
    motion.leftCols(boundary).setIdentity();
    return motion;
}

// Refuses, before anything takes long, what no node can have.
static void prepare_stress(const Model& model, const ReductionOptions& options, Body& body)
{
    if (!options.stress && !options.strain)
        return;
    if (model.elasticities.empty())
        throw std::runtime_error(
            "there is no modal stress or strain without the elastic constants of the elements, which a "
            "deck of CalculiX has");
    body.recovery = {options.stress, options.strain, model.elasticities, model.layers, {}};
    const ModalStress modal(body);
    if (std::count(modal.known().begin(), modal.known().end(), char(1)) > 0)
        return;
    std::string reasons;
    for (const std::string& reason : modal.reasons())
        reasons += "\n" + reason;
    throw std::runtime_error("no node can have modal stress or strain" + reasons);
}

static void report_stress(Report& report, const Body& body)
{
    if (!body.recovery)
        return;
    const ModalStress modal(body);
    const char* what = body.recovery->stress && body.recovery->strain ? "modal stress and strain"
                       : body.recovery->stress                        ? "modal stress"
                                                                      : "modal strain";
    report.figure(what, format("at %td nodes%s", std::count(modal.known().begin(), modal.known().end(), char(1)),
                               has_shells(body.mesh) ? ", in shells the mean of both surfaces: no bending" : ""));
    for (const std::string& reason : modal.reasons())
        report.note(reason);
}

// What shapes of the moved nodes are for the nodes of the body.
static void take_shapes(const Model& model, NodeMotion motion, Body& body)
{
    if (model.layers && body.recovery)
        body.recovery->layer_motion = motion.displacement;
    if (model.layers)
        body.rotation = model.layers->rotation(motion.displacement);
    else
        body.rotation = std::move(motion.rotation);
    body.motion = model.layers ? model.layers->mean(motion.displacement, 3) : std::move(motion.displacement);
}

// `motion`: of all nodes that move.
static MatrixXd rigid_coefficients(const Model& model, const MassMoments& mass, const MatrixXd& motion)
{
    return fit_rigid_motions(model.moved_mesh(), mass.center(), motion).coefficients;
}

namespace
{
// The mass of a body by its matrix and by its mesh.
struct MatrixMass
{
    MassRule rule = MassRule::of_types;
    MassMoments matrix, expected; // as it is, and as the rule, or what comes near it, makes it of the elements
    MeshMass elements;
    bool differs = false; // the target from the matrix
    double lost = 0.0;    // of the inertia, by elements of few points or by lumping
    MassMoments target;   // that the body shall have
};
} // namespace

static bool is_diagonal(const SparseMatrix& upper)
{
    for (Index column = 0; column < upper.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
            if (entry.row() != column && entry.value() != 0.0)
                return false;
    return true;
}

static MassRule rule_of(const Model& model)
{
    if (is_diagonal(model.matrices->mass))
        return MassRule::lumped;
    return model.mass_rule_is_known ? MassRule::of_types : MassRule::unknown;
}

// Where the program's quadrature is not known, the coarsest: all mass of an element at its centre.
static MassMoments expected_moments(const Mesh& mesh, const MeshMass& elements, MassRule rule)
{
    if (rule == MassRule::of_types)
        return solver_moments(mesh);
    if (rule == MassRule::lumped)
        return moments_of(mesh, nodal_masses(mesh, elements, MassMethod::scaled, {}));
    MassMoments moments;
    for (const Element& element : mesh.elements)
    {
        const MassMoments own = element_mass(mesh, element).moments;
        moments.add(own.mass, own.center());
    }
    return moments;
}

// The body is to have the mass of volume x density where the program has lost some of it, and where the matrix has
// lumps, whose second moments are those of points.
static MatrixMass mass_of(const Model& model, const MeshMass& own)
{
    MatrixMass mass;
    mass.matrix = mass.target = matrix_moments(model);
    if (model.mesh_has_mass)
    {
        mass.rule = rule_of(model);
        mass.elements = model.layers ? mesh_mass(model.moved_mesh()) : own;
        mass.expected = expected_moments(model.moved_mesh(), mass.elements, mass.rule);
        mass.lost = inertia_error(mass.rule == MassRule::of_types ? mass.expected : mass.matrix, mass.elements.moments);
        mass.differs = mass.rule == MassRule::lumped || mass.lost >= kMassTolerance;
        if (mass.differs)
            mass.target = mass.elements.moments;
    }
    return mass;
}

// Gives it to the rigid motions and the nodes. `rigid`: these of the modes, if needed; `rows`: the modes at the rows of the matrices.
static void take_mass(const Model& model, const MatrixMass& mass, const MeshMass& own, const ReductionOptions& options,
                      const MatrixXd& rigid, Body& body, MatrixXd& rows)
{
    if (mass.differs)
        set_rigid_mass(body, mass.target, rigid, &rows);
    body.nodes = nodal_masses(body.mesh, model.mesh_has_mass ? own : matrix_mass(model), options.mass, mass.target);
    add_rotations(model, body);
}

static void take_loads(const FullLoads& loads, const MatrixXd& motion, Body& body)
{
    if (loads.labels.empty())
        return;
    const MatrixXd values = loads.modal(motion, body.reference_motion);
    for (size_t i = 0; i < loads.labels.size(); ++i)
        body.loads.push_back({loads.labels[i], values.col(Index(i))});
}

// A dashpot does c v^2 of work with the speed v at which its nodes part: c d d^T, d by mode.
static void take_dashpots(const Model& model, Body& body, Report& report)
{
    if (model.dashpots.empty())
        return;
    body.damping = MatrixXd::Zero(body.mass.rows(), body.mass.cols());
    for (const auto& [place, first, second, constant] : model.dashpots)
    {
        const Eigen::Vector3d line = model.mesh.nodes[size_t(second)].at - model.mesh.nodes[size_t(first)].at;
        if (!(line.norm() > 0.0))
            throw InputError(place, "a dashpot between two nodes of one place has no direction");
        const Eigen::RowVectorXd parting =
            line.normalized().transpose() *
            (body.motion.middleRows<3>(3 * Index(second)) - body.motion.middleRows<3>(3 * Index(first)));
        body.damping += constant * parting.transpose() * parting;
    }
    report.figure("dashpots", format("%zu, as generalized damping", model.dashpots.size()));
}

// Components of nothing but rounding become zero.
static Eigen::Vector3d without_rounding(const Eigen::Vector3d& vector)
{
    constexpr double kRounding = 1e-12;
    const double size = vector.cwiseAbs().maxCoeff();
    return vector.unaryExpr([size](double value) { return std::abs(value) <= kRounding * size ? 0.0 : value; });
}

// `attached`: by load, whether it has an attachment mode; empty: none was asked for.
static void report_loads(Report& report, const Units& units, const FullLoads& loads, const std::vector<char>& attached)
{
    for (const std::string& note : loads.notes)
        report.note(note);
    for (size_t i = 0; i < loads.labels.size(); ++i)
    {
        const Eigen::Vector3d force = without_rounding(loads.resultants.col(Index(i)).head<3>()),
                              moment = without_rounding(loads.resultants.col(Index(i)).tail<3>());
        report.figure("load " + loads.labels[i],
                      format("force %.6g %.6g %.6g %s, moment %.6g %.6g %.6g %s %s about the origin%s", force[0],
                             force[1], force[2], units.force.c_str(), moment[0], moment[1], moment[2],
                             units.force.c_str(), units.length.c_str(),
                             attached.empty() ? ""
                             : attached[i]    ? ", an attachment mode"
                                              : ", no mode needed"));
    }
    if (loads.inertial)
        report.note("a multibody solver applies gravity and inertia forces itself, by the invariants: load cases of "
                    "gravity and rotation are for statics alone, or they count twice");
}

// Where joints will load a free body: interfaces that it could have had.
static std::vector<Interface> left_out_interfaces(const Model& model, ReductionOptions options)
{
    options.free = false;
    const std::vector<Interface> interfaces = choose_interfaces(model, options);
    return model.layers ? expanded(*model.layers, interfaces) : interfaces;
}

static ModeChoice mode_choice(const ReductionOptions& options)
{
    if (!options.range)
        return options.modes;
    return {eigenvalue(options.range->lowest_hz, options.units), eigenvalue(options.range->highest_hz, options.units)};
}

static std::string modes_of(const Reduction& reduction, bool free)
{
    std::string text = free ? "6 rigid, " : format("%d constraint, ", reduction.boundary_count);
    if (reduction.rigid_count > 0)
        text += format("%d rigid, ", reduction.rigid_count);
    text += format(free ? "%d flexible" : "%d fixed-interface", reduction.mode_count);
    return text + (reduction.attachment_count > 0 ? format(", %d attachment", reduction.attachment_count) : "");
}

// `own` is the mass of the body's mesh, as in the other route.
static void reduce_matrices(const Model& model, const MeshMass& own, const ReductionOptions& options, Body& body,
                            Report& report, Progress& progress)
{
    const std::vector<Interface> interfaces = model.layers ? expanded(*model.layers, body.interfaces) : body.interfaces;
    check_interfaces(model, interfaces);
    check_equations(model);
    prepare_stress(model, options, body);
    const bool free = interfaces.empty();
    const ModeChoice choice = mode_choice(options);
    const std::vector<Interface> loaded = free ? left_out_interfaces(model, options) : std::vector<Interface>();
    const MatrixMass mass = mass_of(model, own);
    const FullLoads loads = full_loads(model, body.interfaces, options.loads, mass.target);
    const MatrixXd attached = options.attachment ? loads.forces : MatrixXd();
    Reduction reduction = free ? reduce_free(model, choice, progress, pulls_at(model, loaded), attached)
                               : reduce_craig_bampton(model, interfaces, choice, progress, attached, loads.references);
    progress.begin("shapes and nodal masses");
    NodeMotion motion = node_motion(model, reduction);
    const MatrixXd rigid = mass.differs ? rigid_coefficients(model, mass.target, motion.displacement) : MatrixXd();
    take_shapes(model, std::move(motion), body);
    body.stiffness = std::move(reduction.stiffness);
    body.mass = std::move(reduction.mass);
    body.reference_motion = std::move(reduction.reference_motion);
    take_mass(model, mass, own, options, rigid, body, reduction.motion);
    take_loads(loads, reduction.motion, body);
    std::optional<InvariantMass> invariants; // none: lumped ones are wanted
    if (!options.lumped_invariants)
        invariants = take_invariants(model, reduction.motion, mass.target, body);

    report.title(title_of(model, free ? "Free-free modes" : "Craig-Bampton reduction", "matrices"));
    report_mesh(report, body, model.notes);
    report.figure("modes", modes_of(reduction, free));
    if (model.mesh_has_mass)
    {
        report_mass(report, body.units, mass.elements, mass.matrix, mass.expected, mass.rule);
        if (mass.rule == MassRule::of_types)
            report_lost_inertia(report, mass.lost);
    }
    else
        report_matrix_mass(report, body.units, mass.matrix, is_diagonal(model.matrices->mass));
    report_nodal_masses(report, body, mass.target, options.mass);
    report_invariants(report, body, invariants);
    report_stress(report, body);
    report_modes(report, body, reduction.rigid_before);
    if (free)
        report_completeness(report, loaded, reduction.completeness);
    else
        report_fixed_modes(report, body, reduction, mass.matrix);
    if (options.verify)
        report_verification(report, verify(model, interfaces, body.stiffness, body.mass, progress), body.units);
    if (!free)
        report.figure("fixed-interface frequencies",
                      frequencies(body.stiffness.diagonal().segment(reduction.boundary_count + reduction.rigid_count,
                                                                    reduction.mode_count),
                                  0, body.units));
    if (choice.below || reduction.mode_count > 0)
        report.figure("modes complete up to", format("%.6g Hz", hertz(reduction.complete_to, body.units)));
    report_loads(report, body.units, loads, reduction.attached);
}

static void report_given_modes(const ModalBasis& basis, const Body& body, double before, Report& report)
{
    const bool free = basis.boundary_count == 0;
    if (!free)
        report.figure("asymmetry of the forces", format("%.1e", basis.asymmetry));
    if (!free || basis.rigid_count > 0)
        report_modes(report, body, before);
    else if (basis.held && body.stiffness(0, 0) > 0.0) // programs write 0 for eigenvalues below
        report.note("the body was held when its modes were computed: it has no rigid-body modes");
    else
        report.check("six rigid-body modes", "not six alone are near zero: the body falls apart", false);
    if (free && basis.rigid_count == 0)
        report.figure("frequencies", frequencies(body.stiffness.diagonal(), 0, body.units));
}

static void take_modes(Model& model, const MeshMass& own, const ReductionOptions& options, Body& body, Report& report,
                       Progress& progress)
{
    if (options.verify)
        throw std::runtime_error("there are no matrices of the full model to verify the modes of results by");
    if (options.range)
        throw std::runtime_error(
            "the results have modes that are computed: a range of frequencies chooses among those of "
            "matrices");
    if (options.strain)
        throw std::runtime_error("the strain of modes is computed from matrices alone: results bring their stress");
    if (options.stress && model.modes->stress.size() == 0)
        throw std::runtime_error("the results have no stress: *EL FILE must name S");
    check_interfaces(model, body.interfaces);
    progress.begin("shapes and nodal masses");
    const bool mass_is_in_the_mesh = model.modes->mass_is_in_the_mesh;
    const std::optional<MassMoments> program_mass = model.modes->program_mass;
    const FullLoads loads = full_loads(model, body.interfaces, options.loads, {});
    ModalBasis basis = basis_of(model.moved_mesh(), std::move(*model.modes));
    const MeshMass elements = model.layers ? mesh_mass(model.moved_mesh()) : own;
    const double lost =
        inertia_error(program_mass ? *program_mass : solver_moments(model.moved_mesh()), elements.moments);
    body.nodes = nodal_masses(body.mesh, own, options.mass, elements.moments);
    const bool free = basis.boundary_count == 0;
    double before = basis.rigid_before;
    if (!free)
        before = repair_rigid_motions(body.interfaces, basis.stiffness, basis.mass);
    const MatrixXd rigid =
        !free || basis.rigid_count > 0 ? rigid_coefficients(model, elements.moments, basis.motion) : MatrixXd();
    const bool moves = !free || basis.rigid_count > 0; // held bodies have no motions to give lost inertia to
    const bool by_elements = basis.mass_is_proved && !options.lumped_invariants && (moves || lost < kMassTolerance);
    MatrixXd layers =
        model.layers && (by_elements || !loads.labels.empty()) ? basis.motion : MatrixXd(); // what loads act on
    take_shapes(model, {std::move(basis.motion), {}}, body);
    body.stiffness = std::move(basis.stiffness);
    body.mass = std::move(basis.mass);
    body.reference_motion = unit_reference_motion(body.interfaces.size(), basis.boundary_count, body.motion.cols());
    body.stress =
        model.layers && basis.stress.size() > 0 ? model.layers->mean(basis.stress, 6) : std::move(basis.stress);
    if (rigid.size() > 0)
        set_rigid_mass(body, elements.moments, rigid, &layers);
    add_rotations(model, body);
    take_loads(loads, model.layers ? layers : body.motion, body);

    std::optional<InvariantMass> invariants; // none: those of the masses at the nodes
    if (by_elements)
    {
        take_invariants_of_elements(model.moved_mesh(), model.layers ? layers : body.motion, elements.moments, body);
        invariants = InvariantMass::elements;
    }

    const int modes = int(body.mass.rows()) - basis.boundary_count - basis.rigid_count;
    report.title(title_of(model, free ? "Modes" : "Craig-Bampton basis", "results"));
    report_mesh(report, body, model.notes);
    report.figure("modes", free ? format("%d rigid, %d flexible", basis.rigid_count, modes)
                                : format("%d constraint, %d fixed-interface", basis.boundary_count, modes));
    report.figure("modal stress", body.stress.size() > 0 ? "yes" : "no");
    report_mass(report, body.units, elements, elements.moments, elements.moments, MassRule::of_types);
    report_lost_inertia(report, lost, program_mass.has_value());
    report_nodal_masses(report, body, elements.moments, options.mass);
    report_invariants(report, body, invariants);
    report_mode_masses(report, basis, mass_is_in_the_mesh, has_shells(body.mesh));
    report_given_modes(basis, body, before, report);
    report_loads(report, body.units, loads, {});
}

// Which supports a body has lost.
static void note_released(Model& model, const std::vector<size_t>& rows)
{
    constexpr size_t kShown = 8;
    std::string places;
    for (size_t i = 0; i < std::min(rows.size(), kShown); ++i)
    {
        const auto [node, component] = model.matrices->rows[rows[i]];
        places += (i > 0 ? ", " : "") +
                  (node < 0 ? std::string("the inside of an element")
                            : format("%d.%d", model.moved_mesh().nodes[size_t(node)].id, component + 1));
    }
    if (rows.size() > kShown)
        places += format(" and %zu more", rows.size() - kShown);
    if (!rows.empty())
        model.notes.push_back("supports are taken out at " + places + " (node.component)");
}

void choose_modes(const std::string& text, ReductionOptions& options)
{
    constexpr int kMost = 100000;
    int count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    options.range.reset();
    if (error == std::errc() && end == text.data() + text.size() && count >= 0 && count <= kMost)
        options.modes = count;
    else if (!(options.range = parse_frequency_range(text)) || !std::isfinite(options.range->highest_hz))
        throw std::runtime_error(in_quotes(text) +
                                 format(" is no number of modes up to %d, nor a range of frequencies such "
                                        "as 0-2000Hz",
                                        kMost));
}

ReducedBody reduce(Source& source, const ReductionOptions& options, Progress& progress)
{
    check_units(options.units);
    if (options.modes < 0)
        throw std::runtime_error("the number of modes is negative");
    if (options.range && !(options.range->lowest_hz >= 0.0 && options.range->highest_hz > options.range->lowest_hz &&
                           std::isfinite(options.range->highest_hz)))
        throw std::runtime_error("modes are asked for in a range of frequencies without an end or a beginning");
    Model model = source.read_model(progress);
    for (const InterfaceChoice& choice : options.interfaces)
        if (!choice.nodes.file.empty())
            model.inputs.push_back(choice.nodes.file);
    for (const LoadChoice& choice : options.loads)
        if (!choice.nodes.file.empty())
            model.inputs.push_back(choice.nodes.file);
    if (!options.output.empty())
    {
        keep_inputs(options.output, model);
        check_output(options.output);
    }
    const MeshMass own = model.mesh_has_mass ? mesh_mass(model.mesh) : MeshMass{};
    const auto body = std::make_shared<Body>();
    body->units = options.units;
    body->title = model.title;
    body->file = model.file;
    body->program = model.program;
    body->interfaces = choose_interfaces(model, options);
    source.read_solution(model, body->interfaces, progress);
    body->mesh = model.mesh;
    ReducedBody reduced{body, {}};
    if (model.modes && options.attachment)
        throw std::runtime_error(
            "attachment modes need the matrices of the model: computed modes are all that there is");
    if (model.matrices && options.release_supports)
        note_released(model, release_supports(model));
    if (model.matrices)
        reduce_matrices(model, own, options, *body, reduced.report, progress);
    else
        take_modes(model, own, options, *body, reduced.report, progress);
    take_dashpots(model, *body, reduced.report);
    return reduced;
}

} // namespace zel_fem
