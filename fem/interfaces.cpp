#include "fem/interfaces.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "dense/dense.h"
#include "fem/text.h"

namespace zel_fem
{

using Eigen::Vector3d;

constexpr double kUndetermined = 1e-6; // share of a freedom in a motion that no node feels

// ---- What a user names -------------------------------------------------------------------------------------------------

// Suffixes are taken off unless the model has a set whose name holds them.
static InterfaceChoice named_in(const Model& model, const InterfaceChoice& choice)
{
    for (size_t end = choice.written.size(); end != std::string::npos && end > choice.nodes.name.size();
         end = choice.written.find_last_of("@:", end - 1))
        if (has_set(model, choice.written.substr(0, end)))
        {
            InterfaceChoice longer = parse_interface("SET" + choice.written.substr(end));
            longer.nodes.name = choice.written.substr(0, end);
            return longer;
        }
    return choice;
}

// ---- Weights of an average ----------------------------------------------------------------------------------------------

// By the faces that lie within the set as a whole; all alike where there are none.
static void weigh(const Mesh& mesh, Interface& interface)
{
    std::vector<double> area(mesh.nodes.size());
    std::vector<char> tied(mesh.nodes.size());
    double sum = 0.0;
    for (int node : interface.tied)
        tied[size_t(node)] = 1;
    for (const Face& face : skin(mesh))
    {
        if (face.size() < 3 || !std::all_of(face.begin(), face.end(), [&](int node) { return tied[size_t(node)]; }))
            continue;
        const Eigen::VectorXd own = face_integrals(mesh, face).area;
        if (own.size() == 0)
            continue;
        for (size_t i = 0; i < face.size(); ++i)
            area[size_t(face[i])] += own[Eigen::Index(i)];
        sum += own.sum();
        interface.faces += own.sum() > 0.0 ? 1 : 0;
    }
    for (int node : interface.tied)
        interface.weights.push_back(sum > 0.0 ? area[size_t(node)] / sum : 1.0 / double(interface.tied.size()));
}

// ---- Interfaces --------------------------------------------------------------------------------------------------------

// Joined at the mean of its nodes unless a point is given.
static Interface interface_from(const Model& model, const InterfaceChoice& written, int reference_id)
{
    const InterfaceChoice choice = named_in(model, written);
    Interface interface {
        reference_id, -1, Vector3d::Zero(), chosen_nodes(model, choice.nodes), choice.kind, choice.freedoms
    };
    if (interface.components().empty())
        throw InputError({}, "the interface " + choice.nodes.name + " has no freedoms");
    if (choice.kind == InterfaceKind::average)
        weigh(model.mesh, interface);
    for (const Tie& tie : model.ties)
        for (int node : interface.tied)
            if (std::binary_search(tie.nodes.begin(), tie.nodes.end(), node))
                throw InputError(tie.place, "the nodes of " + choice.nodes.name + " follow node " +
                                                std::to_string(model.mesh.nodes[size_t(tie.reference)].id) +
                                                " already: leave out --interface, which takes the ties of the deck");
    for (size_t i = 0; i < interface.tied.size(); ++i)
        interface.at += model.mesh.nodes[size_t(interface.tied[i])].at *
                        (interface.weights.empty() ? 1.0 / double(interface.tied.size()) : interface.weights[i]);
    if (choice.at)
        interface.at = Vector3d((*choice.at)[0], (*choice.at)[1], (*choice.at)[2]);
    return interface;
}

std::vector<Interface> choose_interfaces(const Model& model, const ReductionOptions& options)
{
    std::vector<Interface> interfaces;
    if (options.free)
        return interfaces;
    const std::vector<Node>& nodes = model.mesh.nodes;
    int next_id = nodes.back().id;
    for (const InterfaceChoice& choice : options.interfaces)
    {
        if (next_id == std::numeric_limits<int>::max())
            throw std::runtime_error("there is no node number left for the reference node of " + choice.nodes.name);
        interfaces.push_back(interface_from(model, choice, ++next_id));
    }
    if (options.interfaces.empty())
        for (const Tie& tie : model.ties)
        {
            const Node& reference = nodes[size_t(tie.reference)];
            for (const Interface& other : interfaces)
                if (other.reference == tie.reference)
                    throw InputError(tie.place, "other nodes follow node " + std::to_string(reference.id) +
                                                    " already: tie all of them at once");
            interfaces.push_back({reference.id, tie.reference, reference.at, tie.nodes});
        }
    return interfaces;
}

std::vector<Interface> expanded(const Layers& layers, std::vector<Interface> interfaces)
{
    for (Interface& interface : interfaces)
    {
        std::vector<std::pair<int, double>> all;
        for (size_t i = 0; i < interface.tied.size(); ++i)
        {
            const std::vector<int> own = layers.nodes_of(interface.tied[i]);
            const double weight = interface.weights.empty() ? 0.0 : interface.weights[i];
            const int layered = layers.layers_of_node[size_t(interface.tied[i])];
            const std::vector<int>& outer = own.size() == 1 ? own : layers.nodes[size_t(layered)].outer;
            for (int layer : own)
                all.emplace_back(layer, std::find(outer.begin(), outer.end(), layer) == outer.end()
                                            ? 0.0
                                            : weight / double(outer.size()));
        }
        std::sort(all.begin(), all.end());
        interface.tied.clear();
        interface.weights.clear();
        for (const auto& [layer, weight] : all)
        {
            interface.tied.push_back(layer);
            if (interface.kind == InterfaceKind::average)
                interface.weights.push_back(weight);
        }
    }
    return interfaces;
}

std::vector<int> Interface::components() const
{
    std::vector<int> chosen;
    for (int c = 0; c < 6; ++c)
        if (freedoms[size_t(c)])
            chosen.push_back(c);
    return chosen;
}

// ---- Checks ------------------------------------------------------------------------------------------------------------

Eigen::Matrix<double, 6, 1> Span::scale() const
{
    Eigen::Matrix<double, 6, 1> factors;
    factors << 1, 1, 1, Vector3d::Constant(1 / size);
    return factors;
}

Span span_of(const Mesh& mesh, const Interface& interface, const std::vector<int>& moved)
{
    Span span;
    for (int node : interface.tied)
        span.size = std::max(span.size, (mesh.nodes[size_t(node)].at - interface.at).norm());
    if (!(span.size > 0.0))
        span.size = 1.0;
    for (size_t i = 0; i < interface.tied.size(); ++i)
    {
        const auto node = size_t(interface.tied[i]);
        const Eigen::Matrix<double, 3, 6> motion =
            rigid_motion(mesh.nodes[node].at, interface.at) * span.scale().asDiagonal();
        span.sum += (interface.weights.empty() ? 1.0 : interface.weights[i]) * motion.transpose() * motion;
        for (int c = 3; c < 6 && interface.kind == InterfaceKind::rigid; ++c)
            span.sum(c, c) += moved[node] >> c & 1;
    }
    return span;
}

Directions felt_directions(const Span& span, const std::vector<int>& components)
{
    Directions felt{Eigen::MatrixXd(6, 0), Eigen::MatrixXd(6, 0)};
    if (components.empty())
        return felt;
    const Eigen::MatrixXd part = span.sum(components, components);
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(part);
    const Eigen::Index lost = (pairs.values.array() < Span::zero(span.sum.trace())).count();
    const Eigen::MatrixXd vectors = pairs.vectors.rightCols(part.cols() - lost);
    felt.motions = felt.dual = Eigen::MatrixXd::Zero(6, vectors.cols());
    for (size_t i = 0; i < components.size() && vectors.cols() > 0; ++i)
    {
        const int c = components[i];
        felt.motions.row(c) = vectors.row(Eigen::Index(i)) * span.scale()[c];
        felt.dual.row(c) = vectors.row(Eigen::Index(i)) / span.scale()[c];
    }
    return felt;
}

// Nodes on one line, or a single one, leave the reference node a rotation that nothing resists, unless they turn themselves.
static void check_span(const Mesh& mesh, const Interface& interface, const std::vector<int>& moved,
                       const std::string& name)
{
    const zel_dense::Eigenpairs motions = zel_dense::eigenpairs(span_of(mesh, interface, moved).sum);
    bool lost = false;
    for (Eigen::Index k = 0; k < 6; ++k)
        for (int c : interface.components())
            lost = lost || (motions.values[k] < Span::zero(motions.values[5]) &&
                            std::abs(motions.vectors(c, k)) > kUndetermined);
    if (lost && interface.tied.size() == 1)
        throw std::runtime_error(
            name + ": its only node " + std::to_string(mesh.nodes[size_t(interface.tied[0])].id) +
            " has no rotation of its own, and an interface has all six motions: tie several nodes, or join its "
            "translations alone (:xyz, at the node)");
    if (lost)
        throw std::runtime_error(name +
                                 ": its tied nodes lie on one line, which leaves a rotation free: leave that one "
                                 "out of its freedoms, and put the reference node on the line");
}

static void check_mean(const Mesh& mesh, const Interface& interface, const std::vector<int>& moved,
                       const std::string& name)
{
    for (int node : interface.tied)
        if ((moved[size_t(node)] & kTranslations) != kTranslations)
            throw std::runtime_error(name + ": node " + std::to_string(mesh.nodes[size_t(node)].id) +
                                     " does not move in all directions, and no mean can be taken of it");
}

// A node without a row of its own moves rigidly with an interface if all rows that it depends on do.
static void check_dependents(const Model& model, const Interface& interface,
                             const std::map<int, std::vector<size_t>>& masters, const std::vector<int>& owner)
{
    for (int node : interface.tied)
    {
        const auto found = masters.find(node);
        for (size_t i = 0; found != masters.end() && i < found->second.size(); ++i)
        {
            const int master = model.matrices->rows[found->second[i]].node;
            if (master >= 0 && master != interface.reference && owner[size_t(master)] != interface.reference_id)
                throw InputError(model.dependents.from.at(node),
                                 "node " + std::to_string(model.moved_mesh().nodes[size_t(node)].id) +
                                     " of the interface with reference node " + std::to_string(interface.reference_id) +
                                     " depends on node " + std::to_string(model.moved_mesh().nodes[size_t(master)].id) +
                                     ", which is none of its nodes: leave the former out of the interface");
        }
    }
}

void check_interfaces(const Model& model, const std::vector<Interface>& interfaces)
{
    const Mesh& mesh = model.matrices ? model.moved_mesh() : model.mesh;
    const std::vector<int> moved = model.matrices ? moved_components(model) : std::vector<int>(mesh.nodes.size());
    const std::map<int, std::vector<size_t>> masters = masters_of(model.dependents);
    std::vector<int> owner(mesh.nodes.size());
    std::vector<char> structural(mesh.nodes.size());
    for (const Element& element : mesh.elements)
        for (int i = 0; element.type->shape != Shape::point && i < node_count(element.type->shape); ++i)
            structural[size_t(element.nodes[size_t(i)])] = 1;
    for (size_t i = 0; model.layers && i < model.layers->nodes.size(); ++i)
        structural[size_t(model.layers->nodes[i].node)] =
            model.layers->nodes[i].is_knot || model.layers->nodes[i].is_hung();
    for (size_t node = 0; node < moved.size() && !model.mesh_has_mass; ++node)
        structural[node] = structural[node] || moved[node] != 0; // elements only draw: what moves belongs to the body
    for (const Interface& interface : interfaces)
    {
        const std::string name = "interface with reference node " + std::to_string(interface.reference_id);
        if (interface.reference >= 0 && structural[size_t(interface.reference)])
            throw std::runtime_error(name + ": the reference node belongs to an element");
        for (int node : interface.tied)
        {
            const std::string which = name + ": node " + std::to_string(mesh.nodes[size_t(node)].id);
            if (!structural[size_t(node)])
                throw std::runtime_error(which + " belongs to no element");
            if (std::exchange(owner[size_t(node)], interface.reference_id) != 0)
                throw std::runtime_error(which + " belongs to another interface as well");
        }
        if (interface.kind == InterfaceKind::average && model.matrices)
            check_mean(mesh, interface, moved, name);
        check_dependents(model, interface, masters, owner);
        check_span(mesh, interface, moved, name);
    }
}

} // namespace zel_fem
