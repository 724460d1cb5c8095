#include "fem/interfaces.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "fem/text.h"

namespace zel_fem
{

using Eigen::Vector3d;

constexpr double kSpanTolerance = 1e-10; // of the tied nodes' rigid motions, squared
constexpr int kRotations = 56;           // bits of moved_components

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

// Joined at the mean of its nodes unless a point is given.
static Interface interface_from(const Model& model, const InterfaceChoice& written, int reference_id)
{
    const InterfaceChoice choice = named_in(model, written);
    if (choice.kind != InterfaceKind::rigid || choice.freedoms != InterfaceChoice{}.freedoms)
        throw std::runtime_error("the interface " + choice.nodes.name + " is not rigid with six freedoms");
    Interface interface {
        reference_id, -1, Vector3d::Zero(), chosen_nodes(model, choice.nodes)
    };
    for (const Tie& tie : model.ties)
        for (int node : interface.tied)
            if (std::binary_search(tie.nodes.begin(), tie.nodes.end(), node))
                throw InputError(tie.place, "the nodes of " + choice.nodes.name + " follow node " +
                                                std::to_string(model.mesh.nodes[size_t(tie.reference)].id) +
                                                " already: leave out --interface, which takes the ties of the deck");
    for (int node : interface.tied)
        interface.at += model.mesh.nodes[size_t(node)].at / double(interface.tied.size());
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
        std::vector<int> all;
        for (int node : interface.tied)
            for (int layer : layers.nodes_of(node))
                all.push_back(layer);
        std::sort(all.begin(), all.end());
        interface.tied = std::move(all);
    }
    return interfaces;
}

// ---- Checks ------------------------------------------------------------------------------------------------------------

// Nodes on one line, or a single one, would leave the reference node a rotation that nothing resists, unless they turn
// themselves.
static void check_span(const Mesh& mesh, const Interface& interface, const std::vector<int>& moved,
                       const std::string& name)
{
    double size = 0.0;
    for (int node : interface.tied)
        size = std::max(size, (mesh.nodes[size_t(node)].at - interface.at).norm());
    Eigen::Matrix<double, 6, 6> span = Eigen::Matrix<double, 6, 6>::Zero();
    for (int node : interface.tied)
    {
        if ((moved[size_t(node)] & kRotations) == kRotations)
            return;
        Eigen::Matrix<double, 3, 6> motion = rigid_motion(mesh.nodes[size_t(node)].at, interface.at);
        motion.rightCols<3>() /= size > 0.0 ? size : 1.0;
        span += motion.transpose() * motion;
    }
    if (interface.tied.size() == 1)
        throw std::runtime_error(
            name + ": its only node " + std::to_string(mesh.nodes[size_t(interface.tied[0])].id) +
            " has no rotation of its own, and an interface has all six motions: tie several nodes");
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix<double, 6, 6>> solver(span);
    if (solver.eigenvalues()[0] < kSpanTolerance * solver.eigenvalues()[5])
        throw std::runtime_error(name + ": its tied nodes lie on one line, which leaves a rotation free");
}

void check_interfaces(const Model& model, const std::vector<Interface>& interfaces)
{
    const Mesh& mesh = model.matrices ? model.moved_mesh() : model.mesh;
    const std::vector<int> moved = model.matrices ? moved_components(model) : std::vector<int>(mesh.nodes.size());
    std::vector<int> owner(mesh.nodes.size());
    std::vector<char> structural(mesh.nodes.size());
    for (const Element& element : mesh.elements)
        for (int i = 0; element.type->shape != Shape::point && i < node_count(element.type->shape); ++i)
            structural[size_t(element.nodes[size_t(i)])] = 1;
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
        check_span(mesh, interface, moved, name);
    }
}

} // namespace zel_fem
