// Two kinds of jobs. A frequency step alone gives modes. Static steps that move one freedom of one reference node each, and a
// frequency step with all of them held, give a Craig-Bampton basis, with columns of K from the printed reaction forces.
#include "fem/sources/ccx/results.h"

#include <algorithm>
#include <numbers>
#include <utility>

#include "checks/report.h"
#include "fem/body.h"
#include "fem/sources/ccx/dat.h"
#include "fem/sources/ccx/element_types.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kUnitTolerance = 1e-6;  // of a prescribed unit motion, and of printed times
constexpr double kSameNode = 1e-4;       // of the body's size: coordinates in text have six digits
constexpr double kAsymmetryLimit = 1e-3; // of printed forces

// Position in the file of every node that elements use; -1 elsewhere.
static std::vector<int> match_nodes(const Deck& deck, const FrdFile& frd, const std::string& path)
{
    const auto& nodes = deck.mesh.nodes;
    std::vector<int> position(nodes.size(), -1);
    double size = 0.0;
    for (const Node& node : nodes)
        size = std::max(size, (node.at - nodes[0].at).norm());
    for (size_t i = 0; i < frd.node_ids.size(); ++i)
    {
        const int node = deck.find_node(frd.node_ids[i]);
        if (node < 0 || (nodes[size_t(node)].at - frd.coordinates.col(Index(i))).norm() > kSameNode * size)
            throw InputError({path, 0}, "node " + std::to_string(node < 0 ? frd.node_ids[i] : nodes[size_t(node)].id) +
                                            " is not that of the deck");
        position[size_t(node)] = int(i);
    }
    const std::vector<char> used = used_nodes(deck.mesh);
    for (size_t i = 0; i < nodes.size(); ++i)
        if (used[i] && position[i] < 0)
            throw InputError({path, 0}, "has no node " + std::to_string(nodes[i].id));
    return position;
}

namespace
{
// Where the values of the mesh's nodes stand in the file.
struct NodeOrder
{
    const Mesh& mesh;
    const std::string& path;
    std::vector<int> position;        // -1 for a node without one
    std::vector<char> used, strained; // by any element, and by one that has stresses
};
} // namespace

// The values of a solution in the order of the mesh. A node that is not in the file is at rest, as no element uses it.
static VectorXd in_mesh_order(const VectorXd& values, const NodeOrder& order, Index width)
{
    const std::vector<char>& needed = width == 3 ? order.used : order.strained;
    VectorXd ordered = VectorXd::Zero(width * Index(order.position.size()));
    for (size_t i = 0; i < order.position.size(); ++i)
    {
        if (order.position[i] < 0)
            continue;
        const auto own = values.segment(width * order.position[i], width);
        if (!own.hasNaN())
            ordered.segment(width * Index(i), width) = own;
        else if (needed[i])
            throw InputError(
                {order.path, 0},
                zel_checks::format("has no %s of node %d: *NODE FILE and *EL FILE must not be confined to a set",
                                   width == 3 ? "displacement" : "stress", order.mesh.nodes[i].id));
    }
    return ordered;
}

// The solutions that are modes, all of one step.
static std::vector<const FrdSolution*> modes_of_step(const FrdFile& frd, int step, const std::string& path)
{
    std::vector<const FrdSolution*> modes;
    std::string steps;
    int last = 0;
    for (const FrdSolution& s : frd.solutions)
    {
        if (s.mode > 0 && s.step != last)
            steps += (steps.empty() ? "" : ", ") + std::to_string(last = s.step);
        if (s.mode > 0 && (step == 0 || s.step == step))
            modes.push_back(&s);
    }
    if (step != 0 && modes.empty())
        throw InputError({path, 0}, zel_checks::format("step %d has no modes; those with modes: %s", step,
                                                       steps.empty() ? "none" : steps.c_str()));
    if (step == 0 && steps.find(',') != std::string::npos)
        throw InputError({path, 0}, "the steps " + steps + " have modes: name the one to import with --step");
    return modes;
}

static std::vector<char> strained_nodes(const Mesh& mesh)
{
    Mesh solids;
    solids.nodes = mesh.nodes;
    for (const Element& element : mesh.elements)
        if (element.type->shape != Shape::point)
            solids.elements.push_back(element);
    return used_nodes(solids);
}

static double square(double x)
{
    return x * x;
}

static bool has_stress(const std::vector<const FrdSolution*>& solutions)
{
    for (const FrdSolution* s : solutions)
        if (s->stress.size() == 0)
            return false;
    return true;
}

// The reference freedom, from 0, that a static step moves by one while all others are held.
static int moved_freedom(const PrintedStep& step, const std::vector<int>& freedom_nodes)
{
    int moved = -1;
    for (size_t f = 0; f < freedom_nodes.size(); ++f)
    {
        const auto at = step.displacements.find(freedom_nodes[f]);
        if (at == step.displacements.end())
            throw InputError(step.place,
                             "the displacement of node " + std::to_string(freedom_nodes[f]) +
                                 " is not printed: *NODE PRINT must name all reference nodes, with U and RF");
        const double value = at->second.v[f % 3];
        if (std::abs(value) > kUnitTolerance && (moved >= 0 || std::abs(value - 1.0) > kUnitTolerance))
            throw InputError(step.place, "the step does not move one reference freedom by one and hold the others");
        if (std::abs(value) > kUnitTolerance)
            moved = int(f);
    }
    if (moved < 0)
        throw InputError(step.place, "the step moves no reference freedom");
    return moved;
}

// Nodes whose components 1 to 3 are the reference freedoms, each three times: translations, then rotations of every tie.
static std::vector<int> freedom_nodes(const Deck& deck, const std::vector<Interface>& interfaces)
{
    std::vector<int> nodes;
    for (const Interface& interface : interfaces)
    {
        const auto tie = std::find_if(deck.ties.begin(), deck.ties.end(),
                                      [&interface](const Tie& t) { return t.reference_id == interface.reference_id; });
        if (tie == deck.ties.end())
            throw InputError({deck.mesh.files[0], 0},
                             "computed modes have the interfaces of the deck's *RIGID BODY and "
                             "*COUPLING alone, rigid and with all six freedoms: leave out --interface, or import "
                             "matrices, which serve every kind");
        if (tie->rotation_id == 0)
            throw InputError(tie->place, "a unit rotation needs a node of its own: name one with ROT NODE=");
        nodes.insert(nodes.end(), 3, tie->reference_id);
        nodes.insert(nodes.end(), 3, tie->rotation_id);
    }
    return nodes;
}

// Printed forces, one column a moved freedom; order[f] is the printed step that moves freedom f.
static MatrixXd boundary_forces(const std::vector<PrintedStep>& steps, const std::vector<int>& nodes,
                                std::vector<int>& order)
{
    MatrixXd forces = MatrixXd::Zero(Index(nodes.size()), Index(nodes.size()));
    order.assign(nodes.size(), -1);
    for (size_t s = 0; s < steps.size(); ++s)
    {
        const int column = moved_freedom(steps[s], nodes);
        if (std::exchange(order[size_t(column)], int(s)) >= 0)
            throw InputError(steps[s].place, "a second step moves the same reference freedom");
        for (size_t f = 0; f < nodes.size(); ++f)
        {
            const auto at = steps[s].forces.find(nodes[f]);
            if (at == steps[s].forces.end())
                throw InputError(steps[s].place, "the force at node " + std::to_string(nodes[f]) + " is not printed");
            forces(Index(f), column) = at->second.v[f % 3];
        }
    }
    return forces;
}

static void take_constraint_modes(const FrdFile& frd, const std::string& job, const std::vector<int>& nodes,
                                  std::vector<const FrdSolution*>& solutions, GivenModes& modes)
{
    const std::vector<PrintedStep> steps = read_printed_steps(job + ".dat");
    std::vector<int> order;
    modes.boundary_forces = boundary_forces(steps, nodes, order);
    if (asymmetry_of(modes.boundary_forces) > kAsymmetryLimit)
        throw InputError({job + ".dat", 0},
                         "the printed forces are not those of a symmetric stiffness: the static steps "
                         "must be linear, without PERTURBATION");
    for (size_t f = 0; f < order.size(); ++f)
    {
        const FrdSolution* found = nullptr;
        for (const FrdSolution& s : frd.solutions)
            if (order[f] >= 0 && s.mode == 0 && std::abs(s.value - steps[size_t(order[f])].time) < kUnitTolerance)
                found = &s;
        if (!found)
            throw InputError({job + ".frd", 0}, "has no static step that moves component " + std::to_string(f % 3 + 1) +
                                                    " of node " + std::to_string(nodes[f]));
        solutions.push_back(found);
    }
}

GivenModes modes_from_results(const Deck& deck, const std::vector<Interface>& interfaces, const FrdFile& frd,
                              const std::string& job, int step)
{
    const std::string path = job + ".frd";
    const NodeOrder order{deck.mesh, path, match_nodes(deck, frd, path), used_nodes(deck.mesh),
                          strained_nodes(deck.mesh)};
    const std::vector<const FrdSolution*> own = modes_of_step(frd, step, path);
    std::vector<const FrdSolution*> solutions;
    const std::vector<int> nodes = freedom_nodes(deck, interfaces);
    GivenModes modes;
    if (!nodes.empty())
        take_constraint_modes(frd, job, nodes, solutions, modes);
    solutions.insert(solutions.end(), own.begin(), own.end());
    if (solutions.empty())
        throw InputError({path, 0}, "has no modes");

    const Index count = Index(solutions.size());
    modes.motion.resize(3 * Index(order.position.size()), count);
    if (has_stress(solutions))
        modes.stress.resize(6 * Index(order.position.size()), count);
    modes.eigenvalues.resize(Index(own.size()));
    for (Index k = 0; k < count; ++k)
    {
        const FrdSolution& s = *solutions[size_t(k)];
        if (s.displacement.size() == 0)
            throw InputError({path, 0}, "a step has no displacements: *NODE FILE must name U");
        modes.motion.col(k) = in_mesh_order(s.displacement, order, 3);
        if (modes.stress.size() > 0)
            modes.stress.col(k) = in_mesh_order(s.stress, order, 6);
        if (k >= Index(nodes.size()))
            modes.eigenvalues[k - Index(nodes.size())] = square(2 * std::numbers::pi * s.value);
    }
    modes.mass_is_in_the_mesh =
        std::none_of(deck.mesh.elements.begin(), deck.mesh.elements.end(),
                     [](const Element& element) { return incompatible_nodes(*element.type) > 0; });
    return modes;
}

} // namespace zel_fem::ccx
