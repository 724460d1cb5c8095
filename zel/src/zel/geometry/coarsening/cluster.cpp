// Vertex clustering: the nodes of one cell of a uniform grid become one node, as in Rossignac and Borrel, Multi-resolution
// 3D approximations for rendering complex scenes (1993). Other than there, nodes of one cell are merged only where face
// edges connect them inside the cell, and never two sides of the body that face opposite ways: a plate much thinner than a
// cell keeps both its skins, also along its rim. The node that stays is one of those that were there.
#include "base/base.h"
#include "coarsening.h"

#include <bit>

namespace zel
{

static constexpr char kModule[] = "zelcoarse";

namespace
{
// Which ways a surface faces: bit k is set for a normal along axis k, bit k + kAxes for one against it.
using Facing = uint16_t;

// A cell of the grid, three numbers of 21 bits; no node is merged over kNoCell.
using Cell = uint64_t;
constexpr Cell kNoCell = ~Cell(0);

// Cubes from the lowest corner of the bounding box on.
struct Grid
{
    Vector lowest;
    double cells_per_length;
    // A coordinate that is no number, or too far out to count cells, has none.
    Cell cell(const Vector& point) const
    {
        constexpr double kMostCells = 2097152.0; // 2^21
        constexpr int kBits = 21;
        const Vector at = cells_per_length * (point - lowest);
        if (!(at.x < kMostCells && at.y < kMostCells && at.z < kMostCells))
            return kNoCell;
        return Cell(at.x) | Cell(at.y) << kBits | Cell(at.z) << (2 * kBits);
    }
};

// Clusters as a forest in which every root is the lowest node of its cluster.
struct Forest
{
    Scratch<int32_t> parent;
    Scratch<Facing> facing; // of all nodes, at the root
    explicit Forest(int32_t nodes) : parent(nodes), facing(nodes)
    {
        for (int32_t node = 0; parent.data && node < nodes; ++node)
            parent[node] = node;
    }
    bool allocated() const { return parent.data && facing.data; }
    int32_t root(int32_t node)
    {
        while (parent[node] != node)
            node = parent[node] = parent[parent[node]];
        return node;
    }
};

// Sum of the unit normals of the faces around a node, and fourth how many they are; single precision is plenty to rank
// corners.
struct Normals
{
    float sum[4];
};

// What a cluster's nodes have in common, and the best one to stay so far.
struct Cluster
{
    Vector sum; // of the positions
    int32_t count, best;
    double distance; // of the best from the mean, squared
    int32_t sharpness;
    bool has_kept;
};

// A node that must stay, in a list sorted by cluster, then along x.
struct Kept
{
    int32_t cluster, node;
    double x;
    bool operator<(const Kept& other) const
    {
        return cluster != other.cluster ? cluster < other.cluster : x != other.x ? x < other.x : node < other.node;
    }
};
} // namespace

// The axes of a cube and its space diagonals. No direction is more than 36.3 degrees off all of them, so that a normal
// within 41.4 degrees of an axis and its opposite are told apart on one axis at least, while sides at right angles are not.
static constexpr int kAxes = 7;
static constexpr float kAlong = 0.75f; // cosine

// Sign bits stand for comparisons, in loops that compilers turn into vector code.
static Facing facing_of(const float (&normal)[4])
{
    constexpr float kDiagonal = 0.57735027f; // 1 / sqrt(3)
    const float x = normal[0], y = normal[1], z = normal[2], sum = y + z, difference = y - z;
    const float cosines[8] = {x,
                              y,
                              z,
                              kDiagonal * (x + sum),
                              kDiagonal * (x + difference),
                              kDiagonal * (x - difference),
                              kDiagonal * (x - sum),
                              0.0f};
    int32_t along = 0, against = 0;
    for (int axis = 0; axis < 8; ++axis)
        along |= (std::bit_cast<int32_t>(kAlong - cosines[axis]) >> 31) & (1 << axis);
    for (int axis = 0; axis < 8; ++axis)
        against |= (std::bit_cast<int32_t>(kAlong + cosines[axis]) >> 31) & (1 << axis);
    return Facing(along | against << kAxes);
}

// Whether one faces only along, the other only against an axis. A sharp edge faces both ways by itself and joins either.
static bool are_opposite(Facing a, Facing b)
{
    const auto turned = [](Facing facing) { return unsigned(facing) >> kAxes | unsigned(facing) << kAxes; };
    return (a & ~turned(a) & turned(b) & ~unsigned(b) & ((1u << 2 * kAxes) - 1)) != 0;
}

static void join(Forest& forest, int32_t a, int32_t b)
{
    if (forest.parent[a] == forest.parent[b])
        return;
    a = forest.root(a);
    b = forest.root(b);
    if (a == b || are_opposite(forest.facing[a], forest.facing[b]))
        return;
    forest.parent[std::max(a, b)] = std::min(a, b);
    forest.facing[std::min(a, b)] = Facing(forest.facing[a] | forest.facing[b]);
}

// The grid of a resolution; with 0 cells per length where nothing can be merged.
static Grid grid_of(const Surface& surface, double resolution)
{
    Vector lowest = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, highest = -1.0 * lowest;
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        const Vector& point = surface.points[node];
        lowest = {std::min(lowest.x, point.x), std::min(lowest.y, point.y), std::min(lowest.z, point.z)};
        highest = {std::max(highest.x, point.x), std::max(highest.y, point.y), std::max(highest.z, point.z)};
    }
    const Vector extent = highest - lowest;
    const double size = 0.01 * resolution * std::max({extent.x, extent.y, extent.z});
    return {lowest, size > 0.0 ? 1.0 / size : 0.0};
}

// Joins the ends of every edge that lies in one cell.
static int join_cells(const Surface& surface, const FaceWords& faces, const Grid& grid, Forest& forest)
{
    Scratch<Cell> cells(surface.node_count);
    if (!cells.data)
        return no_memory(kModule);
    for (int32_t node = 0; node < surface.node_count; ++node)
        cells[node] = grid.cell(surface.points[node]);
    for_each_face(faces, [&](const int32_t* face) {
        const int32_t count = vertex_count(*face);
        for (int32_t i = 1, before = count; i <= count; before = i++)
            if (const Cell cell = cells[face[i]]; cell == cells[face[before]] && cell != kNoCell)
                join(forest, face[i], face[before]);
    });
    return 1;
}

static void add_normals(const Vector* points, const FaceWords& faces, Normals* normals, Facing* facing)
{
    for_each_face(faces, [&](const int32_t* face) {
        const Vector normal = area_normal(points, face);
        const double length = norm(normal);
        if (!(length > 0.0))
            return;
        const Vector unit = (1.0 / length) * normal;
        const float one[4] = {float(unit.x), float(unit.y), float(unit.z), 1.0f};
        const Facing way = facing_of(one);
        for (int32_t i = 1; i <= vertex_count(*face); ++i)
        {
            Normals& at = normals[face[i]];
            for (int k = 0; k < 4; ++k)
                at.sum[k] += one[k];
            facing[face[i]] = Facing(facing[face[i]] | way);
        }
    });
}

// How far the faces around a node are from lying in one plane, in hundredths: 0 in a plane, 100 where the normals cancel.
// Coarse, so that the facets of a smooth side do not choose the node: only edges of more than some 10 degrees are sharp.
static int32_t sharpness(const Normals& normals)
{
    const auto& [x, y, z, count] = normals.sum;
    return count > 0.0f ? int32_t(100.5f - 100.0f * std::sqrt(x * x + y * y + z * z) / count) : 0;
}

// Chooses the sharpest node of every cluster, then the nearest to its mean, then the lowest. cluster: of each node.
static void choose_best(const Surface& surface, const Normals* normals, const int32_t* cluster, Cluster* clusters)
{
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        Cluster& own = clusters[cluster[node]];
        own.sum = own.sum + surface.points[node];
        own.count += 1;
        own.best = -1;
        own.has_kept |= surface.keep[node] != 0;
    }
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        Cluster& own = clusters[cluster[node]];
        const int32_t sharp = sharpness(normals[node]);
        const Vector from_mean = surface.points[node] - (1.0 / own.count) * own.sum;
        const double distance = dot(from_mean, from_mean);
        const bool better = sharp > own.sharpness || (sharp == own.sharpness && distance < own.distance);
        if (own.best >= 0 && !better)
            continue;
        own.best = node;
        own.sharpness = sharp;
        own.distance = distance;
    }
}

// The nearest of a cluster's kept nodes, the lowest one on a tie: outwards from the node's own place along x, as far as x
// alone leaves a chance.
static int32_t nearest_kept(const Surface& surface, const Kept* first, const Kept* last, int32_t cluster, int32_t node)
{
    const Vector& point = surface.points[node];
    int32_t nearest = -1;
    double least = 0.0;
    const auto try_one = [&](const Kept& kept) { // false: this one and all beyond it are too far
        const double dx = kept.x - point.x;
        if (nearest >= 0 && dx * dx > least)
            return false;
        const Vector offset = surface.points[kept.node] - point;
        const double distance = dot(offset, offset);
        if (nearest < 0 || distance < least || (distance == least && kept.node < nearest))
        {
            nearest = kept.node;
            least = distance;
        }
        return true;
    };
    const Kept* const middle = std::lower_bound(first, last, Kept{cluster, -1, point.x});
    for (const Kept* up = middle; up < last && up->cluster == cluster && try_one(*up); ++up)
    {}
    for (const Kept* down = middle; down > first && (down - 1)->cluster == cluster && try_one(*(down - 1)); --down)
    {}
    return nearest;
}

// Fills and sorts the list of kept nodes; returns its end.
static Kept* list_kept(const Surface& surface, const int32_t* cluster, Scratch<Kept>& kept)
{
    Kept* last = kept.data;
    for (int32_t node = 0; node < surface.node_count; ++node)
        if (surface.keep[node])
            *last++ = {cluster[node], node, std::isnan(surface.points[node].x) ? 0.0 : surface.points[node].x};
    std::sort(kept.data, last);
    return last;
}

int cluster_nodes(const Surface& surface, const FaceWords& faces, double resolution, int32_t* target)
{
    for (int32_t node = 0; node < surface.node_count; ++node)
        target[node] = node;
    const Grid grid = grid_of(surface, resolution);
    if (grid.cells_per_length == 0.0)
        return 1;
    Forest forest(surface.node_count);
    Scratch<Normals> normals(surface.node_count);
    Scratch<Kept> kept(std::count(surface.keep, surface.keep + surface.node_count, 1));
    if (!forest.allocated() || !normals.data || !kept.data)
        return no_memory(kModule);
    add_normals(surface.points, faces, normals.data, forest.facing.data);
    if (!join_cells(surface, faces, grid, forest))
        return 0;

    int32_t* const cluster = target; // until the clusters have their nodes
    int32_t cluster_count = 0;
    for (int32_t node = 0; node < surface.node_count; ++node)
        cluster[node] = forest.parent[node] == node ? cluster_count++ : cluster[forest.root(node)];
    Scratch<Cluster> clusters(cluster_count);
    if (!clusters.data)
        return no_memory(kModule);
    choose_best(surface, normals.data, cluster, clusters.data);
    const Kept* const last_kept = list_kept(surface, cluster, kept);
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        const int32_t own = cluster[node];
        if (surface.keep[node])
            target[node] = node;
        else if (clusters[own].has_kept)
            target[node] = nearest_kept(surface, kept.data, last_kept, own, node);
        else
            target[node] = clusters[own].best;
    }
    return 1;
}

} // namespace zel
