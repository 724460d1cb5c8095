// Nodes, faces and interface nodes: do they lie where they should and move with the modes?
#include "checks/free_modes.h"
#include "checks/parts.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace zel_checks
{

std::vector<double> coordinates_of(const ZELDATA* db)
{
    int count = 0;
    std::vector<double> xyz(3 * static_cast<size_t>(ZEL_NodeCount(db)));
    ZEL_NodeCoordinateList(db, xyz.data(), &count);
    return xyz;
}

std::vector<std::vector<int>> faces_of(const ZELDATA* db)
{
    int count = 0, length = 0;
    ZEL_FaceListSize(db, &count, &length);
    std::vector<int> list(static_cast<size_t>(length));
    std::vector<std::vector<int>> faces;
    if (length == 0 || !ZEL_ElementFaces(db, list.data()))
        return faces;
    for (auto word = list.begin(); word != list.end();)
    {
        const int vertices = *word++ & ZEL_FACE_VERTICES;
        faces.emplace_back(word, word + vertices);
        word += vertices;
    }
    return faces;
}

std::vector<int> interface_nodes_of(const ZELDATA* db)
{
    int count = 0;
    const std::unique_ptr<int, void (*)(void*)> nodes(ZEL_InterfaceNodes(db, &count), std::free);
    return {nodes.get(), nodes.get() + count};
}

// Nodes that should lie at points of their own: all but interface nodes without mass, whose place is often that of a mesh
// node or the origin.
static std::vector<size_t> nodes_of_the_mesh(const ZELDATA* db, const std::vector<int>& interface_nodes)
{
    std::vector<size_t> nodes(size_t(ZEL_NodeCount(db)));
    std::iota(nodes.begin(), nodes.end(), size_t(0));
    std::vector<bool> reference(nodes.size());
    for (const int node : interface_nodes)
        reference[size_t(node)] = ZEL_NodalMass(db, node) == 0.0;
    std::erase_if(nodes, [&](size_t node) { return reference[node]; });
    return nodes;
}

// By pair: whether its nodes have the same translations in the rigid-body motions of the body, which then has two nodes in one place:
// the two sides of a tie or a slit. Of a body that is held, in all modes.
static std::vector<bool> move_together(ZELDATA* db, const std::vector<std::array<size_t, 2>>& pairs)
{
    constexpr double kAlike = 1e-6; // of the largest displacement of the motion
    const size_t moving = size_t(ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE));
    std::vector<bool> together(pairs.size(), ZEL_ModeCount(db) > 0);
    if (pairs.empty())
        return together;
    const FreeModes free = free_modes_of(db);
    const bool combined = free.coupled && free.rigid > 0;
    const Eigen::Index motions = free.rigid > 0 ? free.rigid : ZEL_ModeCount(db);
    Eigen::MatrixXd parting = Eigen::MatrixXd::Zero(Eigen::Index(3 * pairs.size()), motions);
    Eigen::VectorXd largest = Eigen::VectorXd::Zero(motions), u(Eigen::Index(3 * moving));
    for (int mode = 0; mode < (combined ? ZEL_ModeCount(db) : int(motions)); ++mode)
    {
        if (!ZEL_Mode(db, ZEL_ModeNumber(db, mode), ZEL_MODE_SHAPE, u.data(), 0))
            return std::vector<bool>(pairs.size(), false);
        for (Eigen::Index k = combined ? 0 : mode; k < (combined ? motions : mode + 1); ++k)
        {
            const double part = combined ? free.vectors.coeff(mode, k) : 1.0;
            largest[k] += std::abs(part) * u.cwiseAbs().maxCoeff();
            for (size_t p = 0; p < pairs.size(); ++p)
                if (const auto [a, b] = pairs[p]; a < moving && b < moving)
                    parting.col(k).segment<3>(Eigen::Index(3 * p)) +=
                        part * (u.segment<3>(Eigen::Index(3 * a)) - u.segment<3>(Eigen::Index(3 * b)));
        }
    }
    for (size_t p = 0; p < pairs.size(); ++p)
        together[p] = together[p] && pairs[p][0] < moving && pairs[p][1] < moving &&
                      (parting.middleRows<3>(Eigen::Index(3 * p)).cwiseAbs().colwise().maxCoeff().transpose().array() <=
                       kAlike * largest.array())
                          .all();
    return together;
}

static void check_points(ZELDATA* db, const std::vector<int>& interface_nodes, Report& report)
{
    const std::vector<double> xyz = coordinates_of(db);
    const auto point = [&](size_t node) {
        return std::array<double, 3>{xyz[3 * node], xyz[3 * node + 1], xyz[3 * node + 2]};
    };
    std::vector<size_t> order = nodes_of_the_mesh(db, interface_nodes);
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return point(a) < point(b); });
    std::vector<std::array<size_t, 2>> pairs; // of one place
    for (size_t i = 1; i < order.size(); ++i)
        if (point(order[i]) == point(order[i - 1]))
            pairs.push_back({order[i - 1], order[i]});
    const std::vector<bool> together = move_together(db, pairs);
    int coincident = 0, at_origin = int(std::count_if(order.begin(), order.end(), [&](size_t node) {
                            return point(node) == std::array<double, 3>{};
                        }));
    for (size_t p = 0; p < pairs.size(); ++p)
    {
        coincident += !together[p];
        at_origin -= together[p] && point(pairs[p][0]) == std::array<double, 3>{};
    }
    report.check(
        "nodes at distinct points", format("%d coincide with another, %d at the origin", coincident, at_origin),
        coincident == 0 && at_origin <= 1, {{"coincident", double(coincident)}, {"at_origin", double(at_origin)}});
}

void check_nodes(ZELDATA* db, Phases&, Report& report)
{
    const std::vector<int> interface_nodes = interface_nodes_of(db);
    check_points(db, interface_nodes, report);

    const int nodes = ZEL_NodeCount(db), moving = ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE);
    std::vector<bool> on_face(static_cast<size_t>(nodes));
    for (const std::vector<int>& face : faces_of(db))
        for (const int node : face)
            on_face[size_t(node)] = true;
    int still = 0;
    for (int node = moving; node < nodes; ++node)
        still += on_face[size_t(node)];
    report.check("face nodes move with the modes", format("%d do not", still), still == 0, {{"still", double(still)}});

    const auto off = std::count_if(interface_nodes.begin(), interface_nodes.end(),
                                   [&](int node) { return node >= moving || !on_face[size_t(node)]; });
    report.check("interface nodes on the body",
                 format("%zu interface nodes, %td without mode shapes or faces", interface_nodes.size(), off), off == 0,
                 {{"interface_nodes", double(interface_nodes.size())}, {"off_the_body", double(off)}});
}

} // namespace zel_checks
