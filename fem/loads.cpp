// A load is gathered at the nodes: forces and moments of the body's nodes, and forces of those that the program moves,
// which differ in layers of shells. From there it goes to the rows of the matrices by its virtual work: nodes that the
// program has eliminated pass their forces to the reference node that they follow, nodes of shells to their layers.
//
// A resultant is spread over the nodes of a set like the forces of a distributing coupling: f_i = w_i (F / W + (T^-1 M)
// x r_i), with r_i from the centre, so that sums of w r vanish, and T the sum of w (r.r E - r r^T). The weights are
// integrals of the shape functions over the faces of the body's surface within the set: the force is a uniform
// traction.
#include "fem/loads.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "dense/dense.h"
#include "fem/interfaces.h"
#include "fem/sparse_modes.h"
#include "fem/text.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using zel_checks::format;

constexpr double kSpan = 1e-10; // of the nodes of a set about their centre, squared

// ---- What a user writes ------------------------------------------------------------------------------------------------

static std::vector<double> numbers_of(std::string_view text, const Place& place)
{
    std::vector<double> numbers;
    for (;;)
    {
        const size_t comma = text.find(',');
        numbers.push_back(parse_real(text.substr(0, comma), place));
        if (comma == std::string_view::npos)
            return numbers;
        text.remove_prefix(comma + 1);
    }
}

LoadChoice parse_load(const std::string& text)
{
    const Place place{"--load " + text, 0};
    const size_t equals = text.find('='), colon = text.rfind(':');
    if (equals == 0 || equals == std::string::npos || colon == std::string::npos || colon < equals)
        throw InputError(place,
                         "a load reads NAME=SET:fx,fy,fz[,mx,my,mz], NAME=gravity:gx,gy,gz or NAME=SURFACE:pressure");
    const std::string where = text.substr(equals + 1, colon - equals - 1);
    const std::vector<double> numbers = numbers_of(std::string_view(text).substr(colon + 1), place);
    LoadChoice choice;
    choice.label = text.substr(0, equals);
    const bool gravity = where == "gravity";
    if (!(numbers.size() == 3 || (!gravity && (numbers.size() == 1 || numbers.size() == 6))))
        throw InputError(place, gravity ? "gravity has three components"
                                        : "a load has three or six components, a pressure is one number");
    choice.kind = gravity ? LoadKind::gravity : numbers.size() == 1 ? LoadKind::pressure : LoadKind::resultant;
    std::copy(numbers.begin(), numbers.end(), choice.values.begin());
    if (!gravity)
        choice.nodes = parse_nodes(where);
    return choice;
}

// ---- Loads at nodes ------------------------------------------------------------------------------------------------------

namespace
{
// A load on its way to the rows.
struct AtNodes
{
    Matrix3Xd force, moment; // of the body's nodes
    Matrix3Xd moved;         // forces of the moved mesh's nodes
    VectorXd rows;           // of the matrices; may be empty
    VectorXd references;     // six an interface

    AtNodes(const Model& model, size_t interfaces)
        : force(Matrix3Xd::Zero(3, Index(model.mesh.nodes.size()))), moment(force),
          moved(Matrix3Xd::Zero(3, Index(model.moved_mesh().nodes.size()))),
          references(VectorXd::Zero(6 * Index(interfaces)))
    {}
};

// Weights of the nodes of a set, and their centre.
struct Spread
{
    VectorXd weights;
    Vector3d center = Vector3d::Zero();
};
} // namespace

static std::string name_of(const Mesh& mesh, int node)
{
    return "node " + std::to_string(mesh.nodes[size_t(node)].id);
}

static std::vector<ElementFace> faces_within(const Mesh& mesh, const std::vector<int>& nodes)
{
    std::vector<char> inside(mesh.nodes.size());
    for (int node : nodes)
        inside[size_t(node)] = 1;
    std::vector<ElementFace> faces = skin_faces(mesh);
    std::erase_if(faces, [&](const ElementFace& face) {
        const Face own = element_face(mesh.elements[size_t(face.element)], face.number);
        return own.size() < 3 || !std::all_of(own.begin(), own.end(), [&](int node) { return inside[size_t(node)]; });
    });
    return faces;
}

static Spread spread_over(const Mesh& mesh, const std::vector<int>& nodes)
{
    VectorXd area = VectorXd::Zero(Index(mesh.nodes.size()));
    for (const auto& [element, number] : faces_within(mesh, nodes))
    {
        const Face face = element_face(mesh.elements[size_t(element)], number);
        const FaceIntegrals integrals = face_integrals(mesh, face);
        for (size_t i = 0; i < face.size(); ++i)
            area[face[i]] += integrals.area[Index(i)];
    }
    Spread spread{VectorXd::Ones(Index(nodes.size())), Vector3d::Zero()};
    if (area.sum() > 0.0)
        for (size_t i = 0; i < nodes.size(); ++i)
            spread.weights[Index(i)] = area[nodes[i]];
    spread.weights /= spread.weights.sum();
    for (size_t i = 0; i < nodes.size(); ++i)
        spread.center += spread.weights[Index(i)] * mesh.nodes[size_t(nodes[i])].at;
    return spread;
}

static void add_resultant(const Mesh& mesh, const std::vector<int>& nodes, const Vector3d& force,
                          const Vector3d& moment, const std::string& label, AtNodes& load)
{
    if (nodes.size() == 1)
    {
        load.force.col(nodes[0]) += force;
        load.moment.col(nodes[0]) += moment;
        return;
    }
    const auto [weights, center] = spread_over(mesh, nodes);
    Matrix3d span = Matrix3d::Zero();
    for (size_t i = 0; i < nodes.size(); ++i)
    {
        const Vector3d r = mesh.nodes[size_t(nodes[i])].at - center;
        span += weights[Index(i)] * (r.squaredNorm() * Matrix3d::Identity() - r * r.transpose());
    }
    const Vector3d sizes = zel_dense::eigenpairs(span).values;
    if (!moment.isZero(0.0) && !(sizes[0] > kSpan * sizes[2]))
        throw InputError({}, "load " + label + ": its nodes lie on one line, about which they carry no moment");
    const Vector3d turn = moment.isZero(0.0) ? Vector3d::Zero() : Vector3d(zel_dense::solve_symmetric(span, moment));
    for (size_t i = 0; i < nodes.size(); ++i)
        load.force.col(nodes[i]) +=
            weights[Index(i)] * (force + turn.cross(Vector3d(mesh.nodes[size_t(nodes[i])].at - center)));
}

// Of a shell that was left as it is, the side of its normal is number 2.
static void add_pressure(const Mesh& mesh, const ElementFace& where, double pressure, Matrix3Xd& forces)
{
    const Element& element = mesh.elements[size_t(where.element)];
    const bool shell = is_shell(element.type->shape);
    const Face face = element_face(element, where.number);
    const FaceIntegrals integrals = face_integrals(mesh, face);
    if (integrals.area.size() == 0 || (shell && where.number > 2))
        throw InputError({}, format("element %d: pressure on its face %d cannot be taken", element.id, where.number));
    for (size_t i = 0; i < face.size(); ++i)
        forces.col(face[i]) += (shell && where.number == 1 ? pressure : -pressure) * integrals.normal.col(Index(i));
}

static void add_inertial(const Mesh& mesh, const LoadCase::Inertial& field, Matrix3Xd& forces)
{
    for (int index : field.elements)
    {
        const Element& element = mesh.elements[size_t(index)];
        const MatrixXd mass = element_mass(mesh, element, Rule::solver).consistent;
        Matrix3Xd acceleration(3, mass.rows());
        for (Index i = 0; i < mass.rows(); ++i)
            acceleration.col(i) = field.constant + field.slope * mesh.nodes[size_t(element.nodes[size_t(i)])].at;
        const Matrix3Xd own = acceleration * mass;
        for (Index i = 0; i < mass.rows(); ++i)
            forces.col(element.nodes[size_t(i)]) += own.col(i);
    }
}

// ---- What the user and the model say -------------------------------------------------------------------------------------

// The motion of a rigid body that gives the mass matrix the momentum of `target` under the acceleration.
static VectorXd weight(const Model& model, const Vector3d& acceleration, const MassMoments& target)
{
    const Vector3d center = target.center();
    const MatrixXd rigid = rigid_motions(model, center), inertia = times(model.matrices->mass, rigid);
    const Eigen::Matrix<double, 6, 6> own = rigid.transpose() * inertia;
    const Eigen::Matrix<double, 6, 1> momentum = target.rigid_mass(center).leftCols<3>() * acceleration;
    return inertia * zel_dense::solve_symmetric(own, momentum);
}

static std::vector<int> all_elements(const Mesh& mesh)
{
    std::vector<int> all(mesh.elements.size());
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = int(i);
    return all;
}

static bool same_name(const std::string& a, const std::string& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char c, unsigned char d) { return std::toupper(c) == std::toupper(d); });
}

static const std::vector<ElementFace>* surface_named(const Model& model, const NodeChoice& choice)
{
    const bool plain = choice.ids.empty() && choice.file.empty() && choice.region.index() == 0;
    for (const auto& surface : model.surfaces)
        if (plain && same_name(surface.first, choice.name))
            return &surface.second;
    return nullptr;
}

static void add_pressure_of(const Model& model, const LoadChoice& choice, AtNodes& load)
{
    if (const auto* surface = surface_named(model, choice.nodes))
    {
        for (const ElementFace& face : *surface)
            add_pressure(model.moved_mesh(), face, choice.values[0], load.moved);
        return;
    }
    const std::vector<ElementFace> faces = faces_within(model.mesh, chosen_nodes(model, choice.nodes));
    if (faces.empty())
        throw InputError({}, "load " + choice.label + ": " + choice.nodes.name +
                                 " holds no whole face of the body's surface, which a pressure could press");
    for (const ElementFace& face : faces)
        add_pressure(model.mesh, face, choice.values[0], load.force);
}

// The interface that has just these nodes, or this reference node, which the mesh may not have; -1 without one.
static int interface_of(const Model& model, const std::vector<Interface>& interfaces, const NodeChoice& choice)
{
    for (size_t j = 0; j < interfaces.size(); ++j)
        if (choice.ids.size() == 1 && choice.ids[0] == interfaces[j].reference_id)
            return int(j);
    const std::vector<int> nodes = chosen_nodes(model, choice);
    for (size_t j = 0; j < interfaces.size(); ++j)
        if (interfaces[j].tied == nodes || (nodes.size() == 1 && nodes[0] == interfaces[j].reference))
            return int(j);
    return -1;
}

// A single node may join by its translations alone.
static void check_turns(const Model& model, const Interface& interface, const Vector3d& moment)
{
    if (interface.tied.size() > 1 || model.layers || !model.matrices || moment.isZero(0.0))
        return;
    if (!(moved_components(model)[size_t(interface.tied[0])] >> 3))
        throw InputError({}, name_of(model.mesh, interface.tied[0]) +
                                 " has no rotation of its own, which a moment would turn");
}

static void add_choice(const Model& model, const std::vector<Interface>& interfaces, const LoadChoice& choice,
                       const MassMoments& target, AtNodes& load)
{
    const Vector3d force(choice.values[0], choice.values[1], choice.values[2]);
    const Vector3d moment(choice.values[3], choice.values[4], choice.values[5]);
    if (choice.kind == LoadKind::pressure)
        return add_pressure_of(model, choice, load);
    if (choice.kind == LoadKind::gravity && model.matrices)
        load.rows = weight(model, force, target);
    else if (choice.kind == LoadKind::gravity)
        add_inertial(model.moved_mesh(), {all_elements(model.mesh), force, Matrix3d::Zero()}, load.moved);
    else if (const int j = interface_of(model, interfaces, choice.nodes); j >= 0)
    {
        check_turns(model, interfaces[size_t(j)], moment);
        load.references.segment<6>(6 * j) << force, moment;
    }
    else
        add_resultant(model.mesh, chosen_nodes(model, choice.nodes), force, moment, choice.label, load);
}

static void add_case(const Model& model, const LoadCase& own, AtNodes& load)
{
    for (const auto& [node, component, value] : own.nodal)
        (component < 3 ? load.force : load.moment)(component % 3, node) += value;
    for (const auto& [face, value] : own.pressures)
        add_pressure(model.moved_mesh(), face, value, load.moved);
    for (const LoadCase::Inertial& field : own.inertial)
        add_inertial(model.moved_mesh(), field, load.moved);
    load.rows = own.rows;
}

// ---- From nodes to rows --------------------------------------------------------------------------------------------------

// Reference nodes of interfaces have motions of their own in the body.
static void take_references(const std::vector<Interface>& interfaces, AtNodes& load)
{
    for (size_t j = 0; j < interfaces.size(); ++j)
        if (const int node = interfaces[j].reference; node >= 0)
        {
            load.references.segment<3>(6 * Index(j)) += load.force.col(node);
            load.references.segment<3>(6 * Index(j) + 3) += load.moment.col(node);
            load.force.col(node).setZero();
            load.moment.col(node).setZero();
        }
}

// The outer nodes share a force, and make a moment by forces about their mean; none about the normal of a shell.
static void take_layers(const Layers& layers, const Mesh& mesh, AtNodes& load)
{
    for (const LayeredNode& n : layers.nodes)
    {
        const Vector3d force = load.force.col(n.node), moment = load.moment.col(n.node);
        const Vector3d turn = n.turn * moment;
        Vector3d carried = Vector3d::Zero();
        for (size_t i = 0; i < n.outer.size(); ++i)
        {
            const Vector3d arm = n.arms.col(Index(i)), couple = turn.cross(arm);
            load.moved.col(n.outer[i]) += force / double(n.outer.size()) + couple;
            carried += arm.cross(couple);
        }
        if ((carried - moment).norm() > kSpan * moment.norm())
            throw InputError({}, name_of(mesh, n.node) + " of a shell carries no moment about the normal");
        load.force.col(n.node).setZero();
        load.moment.col(n.node).setZero();
    }
}

// Displacements without rows pass their forces to the rows they depend on. A moment on a node of a tie goes to its reference node.
static VectorXd pass_to_masters(const Model& model, Matrix3Xd& force, Matrix3Xd& moment)
{
    VectorXd values = VectorXd::Zero(Index(model.matrices->rows.size()));
    const std::vector<int> moved = moved_components(model);
    for (const Tie& tie : model.ties)
        for (int node : tie.nodes)
            if (moved[size_t(node)] == 0)
            {
                moment.col(tie.reference) += Vector3d(moment.col(node));
                moment.col(node).setZero();
            }
    if (model.dependents.from.empty())
        return values;
    Matrix3Xd own = Matrix3Xd::Zero(3, force.cols());
    for (const auto& [node, place] : model.dependents.from)
        for (int c = 0; c < 3; ++c)
            if (!(moved[size_t(node)] >> c & 1))
                std::swap(own(c, node), force(c, node));
    values = model.dependents.motion.transpose() * own.reshaped();
    return values;
}

static void check_taken(const Model& model, const Matrix3Xd& force, const Matrix3Xd& moment)
{
    for (const auto& [values, what] : {std::pair(&force, " has no freedom for a force"),
                                       std::pair(&moment, " has no rotation of its own, which a moment would turn")})
        for (Index i = 0; i < values->cols(); ++i)
            if (!values->col(i).isZero(0.0))
                throw InputError({}, name_of(model.moved_mesh(), int(i)) + what);
}

static VectorXd at_rows(const Model& model, Matrix3Xd force, Matrix3Xd moment)
{
    VectorXd values = pass_to_masters(model, force, moment);
    const std::vector<Row>& rows = model.matrices->rows;
    for (size_t i = 0; i < rows.size(); ++i)
        if (const auto [node, component] = rows[i]; node >= 0)
            values[Index(i)] += std::exchange((component < 3 ? force : moment)(component % 3, node), 0.0);
    check_taken(model, force, moment);
    return values;
}

// Modes tell nothing of rotations.
static VectorXd at_moved_nodes(const Model& model, const Matrix3Xd& force, const Matrix3Xd& moment)
{
    check_taken(model, Matrix3Xd(3, 0), moment);
    return force.reshaped();
}

static void append(const Model& model, const std::vector<Interface>& interfaces, const std::string& label, AtNodes load,
                   FullLoads& all)
{
    const Index nodes = Index(model.mesh.nodes.size());
    take_references(interfaces, load);
    if (model.layers)
        take_layers(*model.layers, model.mesh, load);
    load.moved.leftCols(nodes) += load.force;
    Matrix3Xd moment = Matrix3Xd::Zero(3, load.moved.cols());
    moment.leftCols(nodes) = load.moment;
    VectorXd forces = model.matrices ? at_rows(model, load.moved, moment) : at_moved_nodes(model, load.moved, moment);
    if (load.rows.size() > 0)
        forces += load.rows;
    const Index count = all.forces.cols() + 1;
    all.forces.conservativeResize(forces.size(), count);
    all.forces.rightCols<1>() = forces;
    all.references.conservativeResize(load.references.size(), count);
    all.references.rightCols<1>() = load.references;
    all.labels.push_back(label);
}

// Forces and moments about the origin.
static MatrixXd resultants_of(const Model& model, const std::vector<Interface>& interfaces, const FullLoads& all)
{
    const Vector3d origin = Vector3d::Zero();
    MatrixXd resultants = MatrixXd::Zero(6, all.forces.cols());
    if (all.labels.empty())
        return resultants;
    if (model.matrices)
        resultants = rigid_motions(model, origin).transpose() * all.forces;
    const std::vector<Node>& nodes = model.moved_mesh().nodes;
    for (size_t i = 0; !model.matrices && i < nodes.size(); ++i)
        resultants += rigid_motion(nodes[i].at, origin).transpose() * all.forces.middleRows<3>(3 * Index(i));
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        resultants += rigid_motion(interfaces[j].at, origin).transpose() * all.references.middleRows<3>(6 * Index(j));
        resultants.bottomRows<3>() += all.references.middleRows<3>(6 * Index(j) + 3);
    }
    return resultants;
}

FullLoads full_loads(const Model& model, const std::vector<Interface>& interfaces,
                     const std::vector<LoadChoice>& choices, const MassMoments& target)
{
    FullLoads all;
    for (const LoadChoice& choice : choices)
    {
        if (std::find(all.labels.begin(), all.labels.end(), choice.label) != all.labels.end())
            throw InputError({}, "two loads are named " + choice.label);
        AtNodes load(model, interfaces.size());
        add_choice(model, interfaces, choice, target, load);
        append(model, interfaces, choice.label, std::move(load), all);
        all.inertial |= choice.kind == LoadKind::gravity;
    }
    for (const LoadCase& own : model.load_cases)
        try
        {
            AtNodes load(model, interfaces.size());
            add_case(model, own, load);
            append(model, interfaces, own.label, std::move(load), all);
            all.inertial |= !own.inertial.empty();
        }
        catch (const InputError& error)
        {
            all.notes.push_back(own.label + " is no load case: " + error.what());
        }
    if (!all.labels.empty())
        all.resultants = resultants_of(model, interfaces, all);
    return all;
}

} // namespace zel_fem
