// Vertex clustering: the nodes of one cell of a uniform grid become one node, as in Rossignac and Borrel, Multi-resolution
// 3D approximations for rendering complex scenes (1993). Other than there, nodes of one cell are merged only where face
// edges connect them inside the cell, and never two sides of the body that face opposite ways: a plate much thinner than a
// cell keeps both its skins, also along its rim. The rim of a shell counts as the edge of a wall that stands on it. The node
// that stays is one of those that were there.
#include "base/base.h"
#include "coarsening.h"

#include <bit>
#include <limits>

namespace zel
{

namespace
{
// Which ways a surface faces: bit k is set for a normal along axis k, bit k + kAxes for one against it.
using Facing = uint16_t;

// A cell of the grid, three numbers of 21 bits; no node is merged over kNoCell.
using Cell = uint64_t;
constexpr Cell kNoCell = ~Cell(0);

// Cubes from the lowest corner of the bounding box on.
struct VoxelGrid
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
    bool has_kept, best_is_covered; // by a node that must stay
};

// A place that nodes of a cluster can move to: a node that must stay, or the cluster's best. Those of one facing in a
// cluster form a tree (Bentley, Multidimensional binary search trees, 1975): the one in the middle of a run divides it across an
// axis.
struct Place
{
    int32_t cluster, node;
    Facing facing;
    int8_t axis;
    bool is_beside(const Place& other) const { return cluster == other.cluster && facing == other.facing; }
    bool operator<(const Place& other) const
    {
        return cluster != other.cluster ? cluster < other.cluster
               : facing != other.facing ? facing < other.facing
                                        : node < other.node;
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
static VoxelGrid grid_of(const Surface& surface, double resolution)
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
static int join_cells(const Surface& surface, const FaceWords& faces, const VoxelGrid& grid, Forest& forest)
{
    Scratch<Cell> cells(surface.node_count);
    if (!cells.data)
        return no_memory(module_word::coarsening);
    for (int32_t node = 0; node < surface.node_count; ++node)
        cells[node] = grid.cell(surface.points[node]);
    for_each_face(faces, [&](const int32_t* face) {
        const int32_t count = vertex_count(*face);
        for (int32_t i = 1, before = count; count > 2 && i <= count; before = i++) // lines pull nothing along
            if (const Cell cell = cells[face[i]]; cell == cells[face[before]] && cell != kNoCell)
                join(forest, face[i], face[before]);
    });
    return 1;
}

static void add_normal(const float (&one)[4], Facing way, int32_t node, Normals* normals, Facing* facing)
{
    for (int k = 0; k < 4; ++k)
        normals[node].sum[k] += one[k];
    facing[node] = Facing(facing[node] | way);
}

// Whether a vector of this length has one: nodes may lie so far out that areas are infinite.
static bool has_direction(double length)
{
    return length > 0.0 && length <= std::numeric_limits<double>::max();
}

// Adds the unit normals of all faces, but one of the two sides of a shell only.
static void add_normals(const Vector* points, const FaceWords& faces, const char* twins, Normals* normals,
                        Facing* facing)
{
    for_each_face(faces, [&](const int32_t* face) {
        const Vector normal = area_normal(points, face);
        const double length = norm(normal);
        if (!has_direction(length) || twins[face - faces.words] == kSecondOfTwo)
            return;
        const Vector unit = (1.0 / length) * normal;
        const float one[4] = {float(unit.x), float(unit.y), float(unit.z), 1.0f};
        const Facing way = facing_of(one);
        for (int32_t i = 1; i <= vertex_count(*face); ++i)
            add_normal(one, way, face[i], normals, facing);
    });
}

// ---- Rims ---------------------------------------------------------------------------------------------------------

namespace
{
// An edge of a face: from a corner to the next one.
struct Edge
{
    int32_t lower, higher, place, corner; // place: of the face's count word
    bool is_along(const Edge& other) const { return lower == other.lower && higher == other.higher; }
    bool operator<(const Edge& other) const
    {
        return lower != other.lower     ? lower < other.lower
               : higher != other.higher ? higher < other.higher
                                        : place < other.place;
    }
};
} // namespace

// Calls action(face, corner, from, to) for every edge of every face but lines and the second sides of shells.
template <typename Action> static void for_each_edge(const FaceWords& faces, const char* twins, Action action)
{
    for_each_face(faces, [&](const int32_t* face) {
        const int32_t count = vertex_count(*face);
        for (int32_t i = 1; count > 2 && twins[face - faces.words] != kSecondOfTwo && i <= count; ++i)
            action(face, i, face[i], face[i < count ? i + 1 : 1]);
    });
}

// Adds the normal of the wall that stands on every edge with one face: in the plane of the face, away from it. Edges that
// leave a node and edges that enter it are weighed up by a sum first, which is 0 at every node inside a closed surface:
// only those between other nodes are sorted.
static int add_walls(const Surface& surface, const FaceWords& faces, const char* twins, Normals* normals,
                     Facing* facing)
{
    Scratch<uint64_t> balance(surface.node_count);
    if (!balance.data)
        return no_memory(module_word::coarsening);
    for_each_edge(faces, twins, [&](const int32_t*, int32_t, int32_t from, int32_t to) {
        balance[from] += scrambled(to);
        balance[to] -= scrambled(from);
    });
    if (std::all_of(balance.data, balance.data + surface.node_count, [](uint64_t sum) { return sum == 0; }))
        return 1;
    int32_t count = 0;
    const auto may_be_rim = [&](int32_t from, int32_t to) { return balance[from] != 0 && balance[to] != 0; };
    for_each_edge(faces, twins,
                  [&](const int32_t*, int32_t, int32_t from, int32_t to) { count += may_be_rim(from, to); });
    Scratch<Edge> edges(count);
    if (!edges.data)
        return no_memory(module_word::coarsening);
    count = 0;
    for_each_edge(faces, twins, [&](const int32_t* face, int32_t corner, int32_t from, int32_t to) {
        if (may_be_rim(from, to))
            edges[count++] = {std::min(from, to), std::max(from, to), int32_t(face - faces.words), corner};
    });
    std::sort(edges.data, edges.data + count);
    for (int32_t begin = 0, end; begin < count; begin = end)
    {
        const Edge& edge = edges[begin];
        for (end = begin + 1; end < count && edges[end].is_along(edge);)
            ++end;
        if (end - begin > 1)
            continue;
        const int32_t* const face = faces.words + edge.place;
        const int32_t from = face[edge.corner], to = from == edge.lower ? edge.higher : edge.lower;
        const Vector wall = cross(surface.points[to] - surface.points[from], area_normal(surface.points, face));
        const double length = norm(wall);
        if (!has_direction(length))
            continue;
        const float one[4] = {float(wall.x / length), float(wall.y / length), float(wall.z / length), 1.0f};
        for (int32_t node : {from, to})
            add_normal(one, facing_of(one), node, normals, facing);
    }
    return 1;
}

// ---- The nodes that stay ------------------------------------------------------------------------------------------

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
        Cluster& home = clusters[cluster[node]];
        home.sum = home.sum + surface.points[node];
        home.count += 1;
        home.best = -1;
        home.has_kept |= surface.keep[node] != 0;
    }
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        Cluster& home = clusters[cluster[node]];
        const int32_t sharp = sharpness(normals[node]);
        const Vector from_mean = surface.points[node] - (1.0 / home.count) * home.sum;
        const double distance = dot(from_mean, from_mean);
        const bool better = sharp > home.sharpness || (sharp == home.sharpness && distance < home.distance);
        if (home.best >= 0 && !better)
            continue;
        home.best = node;
        home.sharpness = sharp;
        home.distance = distance;
    }
}

static double coordinate(const Vector& point, int axis)
{
    return axis == 0 ? point.x : axis == 1 ? point.y : point.z;
}

// The axis along which places are furthest apart.
static int longest_axis(const Vector* points, const Place* first, const Place* last)
{
    int longest = 0;
    double most = -1.0;
    for (int axis = 0; axis < 3; ++axis)
    {
        double low = HUGE_VAL, high = -HUGE_VAL;
        for (const Place* place = first; place < last; ++place)
        {
            low = std::min(low, coordinate(points[place->node], axis));
            high = std::max(high, coordinate(points[place->node], axis));
        }
        if (high - low > most)
        {
            most = high - low;
            longest = axis;
        }
    }
    return longest;
}

static void build_tree(const Vector* points, Place* first, Place* last)
{
    while (last - first > 1)
    {
        Place* const middle = first + (last - first) / 2;
        const int axis = longest_axis(points, first, last);
        std::nth_element(first, middle, last, [&](const Place& a, const Place& b) {
            const double x = coordinate(points[a.node], axis), y = coordinate(points[b.node], axis);
            return x != y ? x < y : a.node < b.node;
        });
        middle->axis = int8_t(axis);
        build_tree(points, first, middle);
        first = middle + 1;
    }
}

namespace
{
// The nearest place so far, the lowest node on a tie.
struct Nearest
{
    const Vector* points;
    Vector point;
    int32_t node = -1;
    double squared = HUGE_VAL;
    void search(const Place* first, const Place* last)
    {
        while (first < last)
        {
            const Place* const middle = first + (last - first) / 2;
            const Vector offset = points[middle->node] - point;
            const double distance = dot(offset, offset), across = coordinate(offset, middle->axis);
            if (distance < squared || (distance == squared && middle->node < node))
            {
                node = middle->node;
                squared = distance;
            }
            search(across > 0.0 ? first : middle + 1, across > 0.0 ? middle : last);
            if (across * across > squared)
                return;
            (across > 0.0 ? first : last) = across > 0.0 ? middle + 1 : middle;
        }
    }
};
} // namespace

// Whether a node can move to another one without cutting an edge or a corner off: a node on a side to any of that side, one
// on an edge to those along it and to corners.
static bool covers(Facing place, Facing node)
{
    return (node & ~unsigned(place)) == 0;
}

// Lists the places of every cluster with nodes that must stay: these, and its best node where none of them covers it.
// Returns the end.
static Place* list_places(const Surface& surface, const Facing* facing, const int32_t* cluster, Cluster* clusters,
                          Place* places)
{
    for (int32_t node = 0; node < surface.node_count; ++node)
        if (Cluster& home = clusters[cluster[node]]; surface.keep[node])
            home.best_is_covered |= covers(facing[node], facing[home.best]);
    Place* last = places;
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        const Cluster& home = clusters[cluster[node]];
        if (surface.keep[node] || (home.has_kept && home.best == node && !home.best_is_covered))
            *last++ = {cluster[node], node, facing[node], 0};
    }
    std::sort(places, last);
    for (Place *first = places, *end; first < last; first = end)
    {
        for (end = first + 1; end < last && end->is_beside(*first);)
            ++end;
        build_tree(surface.points, first, end);
    }
    return last;
}

// The nearest place of a cluster for a node, of those that cover it or, where none does, of all.
static int32_t nearest_place(const Surface& surface, const Place* first, const Place* last, int32_t cluster,
                             int32_t node, Facing facing)
{
    Nearest covering = {surface.points, surface.points[node]}, any = covering;
    first = std::partition_point(first, last, [&](const Place& place) { return place.cluster < cluster; });
    for (const Place* end; first < last && first->cluster == cluster; first = end)
    {
        const Place& of_run = *first;
        end = std::partition_point(first, last, [&](const Place& place) { return place.is_beside(of_run); });
        if (covers(first->facing, facing))
            covering.search(first, end);
        else if (covering.node < 0)
            any.search(first, end);
    }
    return covering.node >= 0 ? covering.node : any.node;
}

int cluster_nodes(const Surface& surface, const FaceWords& faces, const char* twins, double resolution, int32_t* target)
{
    for (int32_t node = 0; node < surface.node_count; ++node)
        target[node] = node;
    const VoxelGrid grid = grid_of(surface, resolution);
    if (grid.cells_per_length == 0.0)
        return 1;
    Forest forest(surface.node_count);
    Scratch<Normals> normals(surface.node_count);
    if (!forest.allocated() || !normals.data)
        return no_memory(module_word::coarsening);
    add_normals(surface.points, faces, twins, normals.data, forest.facing.data);
    if (!add_walls(surface, faces, twins, normals.data, forest.facing.data))
        return 0;
    const auto kept_count = std::count(surface.keep, surface.keep + surface.node_count, 1);
    Scratch<Place> places(2 * kept_count);
    Scratch<Facing> facing(kept_count > 0 ? surface.node_count : 0); // of each node, not of its cluster
    if (!places.data || !facing.data)
        return no_memory(module_word::coarsening);
    if (kept_count > 0)
        std::copy_n(forest.facing.data, surface.node_count, facing.data);
    if (!join_cells(surface, faces, grid, forest))
        return 0;

    int32_t* const cluster = target; // until the clusters have their nodes
    int32_t cluster_count = 0;
    for (int32_t node = 0; node < surface.node_count; ++node)
        cluster[node] = forest.parent[node] == node ? cluster_count++ : cluster[forest.root(node)];
    Scratch<Cluster> clusters(cluster_count);
    if (!clusters.data)
        return no_memory(module_word::coarsening);
    choose_best(surface, normals.data, cluster, clusters.data);
    const Place* const last = list_places(surface, facing.data, cluster, clusters.data, places.data);
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        const Cluster& home = clusters[cluster[node]];
        if (surface.keep[node])
            target[node] = node;
        else if (!home.has_kept)
            target[node] = home.best;
        else
            target[node] = nearest_place(surface, places.data, last, cluster[node], node, facing[node]);
    }
    return 1;
}

} // namespace zel
