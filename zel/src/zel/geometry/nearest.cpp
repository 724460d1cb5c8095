// Nodes nearest to a point, exactly as a scan over all candidates would find them: by squared distance, equal ones in the
// order of the candidates, which are the nodes of the table or the interface nodes. What lies within a radius is told by
// distances: the square of a radius is rounded on its own, and may vanish.
//
// Many candidates are sorted into the cells of a grid, which are numbered along a Morton curve (G. M. Morton, 1966): every
// cube of cells, and so every cube of an octree over the grid, is a run of points. A cell that holds many points gets a
// grid of its own. The occupied cubes become a tree of tight bounding boxes; most bodies take one counting sort and one
// pass, about fifty scans. A box is skipped only when its squared distance is strictly greater than the worst that is
// wanted. Rounding is monotone and products are not contracted, so the distance of a box never exceeds that of a point in
// it, and ties stay exact.
#include "database/database.h"
#include "zel.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zel
{

namespace
{
constexpr int kLeaf = 64;         // points that are not divided further: larger leaves make the tree cheaper to build
constexpr int kChildren = 8;      // of a cube
constexpr int kWorthATree = 1000; // fewer candidates are scanned
constexpr int kQueriesPerBuild = 64; // a build costs about so many scans
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// A candidate by its distance to the point in question.
struct Candidate
{
    double squared;
    int position; // in the order of the candidates
    bool operator<(const Candidate& other) const
    {
        return squared < other.squared || (squared == other.squared && position < other.position);
    }
};

// The candidates of a query.
struct Candidates
{
    const ZELNODE* nodes;
    const int* subset; // null: all nodes
    int count;
    int node(int position) const { return subset ? subset[position] : position; }
};
} // namespace

struct Point
{
    double xyz[3];
    int position; // in the order of the candidates
};

struct Box
{
    double low[3], high[3];
};

// A cube of the octree: a run of points and, unless they are few, a run of smaller cubes.
struct Cube
{
    Box box;
    int first_point, points;
    int first_child, children;
};

struct NearestNodes
{
    Cube* cubes; // owned; children stand behind their parents
    int cube_count, cube_capacity;
    Point* points; // owned
    int queries;   // answered so far, up to kQueriesPerBuild
};

static void discard_tree(NearestNodes*& tree)
{
    if (!tree)
        return;
    discard(tree->cubes);
    discard(tree->points);
    discard(tree);
}

static void forget_trees(NearestCache& nearest)
{
    for (int which = 0; which < 2; ++which)
        if (NearestNodes*& tree = nearest.trees[which])
        {
            // A tree that hardly served is not built anew at once: queries and changes may go on by turns.
            nearest.scans_before_tree[which] = std::max(kQueriesPerBuild - tree->queries, 0);
            discard_tree(tree);
        }
}

// ---- Building ----------------------------------------------------------------------------------------------------------

namespace
{
constexpr int kMaxLevels = 5;                    // of a grid: 2^5 cells along an edge
constexpr int kMaxCells = 1 << (3 * kMaxLevels); // of a grid
constexpr int kCellPoints = kLeaf / 2;           // that a cell is meant to hold
constexpr int kSpread[1 << kMaxLevels] = {       // the bits of a number, each moved to every third place
    0x0000, 0x0001, 0x0008, 0x0009, 0x0040, 0x0041, 0x0048, 0x0049, 0x0200, 0x0201, 0x0208,
    0x0209, 0x0240, 0x0241, 0x0248, 0x0249, 0x1000, 0x1001, 0x1008, 0x1009, 0x1040, 0x1041,
    0x1048, 0x1049, 0x1200, 0x1201, 0x1208, 0x1209, 0x1240, 0x1241, 0x1248, 0x1249};

constexpr Box kEmptyBox = {{kInfinity, kInfinity, kInfinity}, {-kInfinity, -kInfinity, -kInfinity}};

// Cubic cells over the bounding box of some points, 2^levels along its longest edge.
struct CellGrid
{
    double low[3];
    double scale; // cells a length
    int levels, cells;
    int cell_of(const Point& point) const
    {
        const double last = (1 << levels) - 1;
        int cell = 0;
        for (int axis = 0; axis < 3; ++axis)
            cell |= kSpread[int(std::min((point.xyz[axis] - low[axis]) * scale, last))] << axis;
        return cell;
    }
};

struct Builder
{
    NearestNodes& tree;
    Scratch<uint16_t> cell_of_point;
    Scratch<int> ends; // behind the last point of each cell
};
} // namespace

static void enlarge(Box& box, const double low[3], const double high[3])
{
    for (int axis = 0; axis < 3; ++axis)
    {
        box.low[axis] = std::min(box.low[axis], low[axis]);
        box.high[axis] = std::max(box.high[axis], high[axis]);
    }
}

// A grid whose scale is not finite cannot tell the points apart.
template <typename PointAt> static CellGrid grid_over(const PointAt& point_at, int points)
{
    Box box = kEmptyBox;
    for (int i = 0; i < points; ++i)
    {
        const Point point = point_at(i);
        enlarge(box, point.xyz, point.xyz);
    }
    CellGrid grid = {{box.low[0], box.low[1], box.low[2]}, 0.0, 1, 8};
    for (; grid.levels < kMaxLevels && grid.cells < points / kCellPoints; ++grid.levels)
        grid.cells *= 8;
    grid.scale =
        (1 << grid.levels) / std::max({box.high[0] - box.low[0], box.high[1] - box.low[1], box.high[2] - box.low[2]});
    return grid;
}

// Puts points into `sorted` by the cells of the grid; where that cannot tell them apart, evenly as they come.
template <typename PointAt>
static void sort_into_cells(Builder& builder, const CellGrid& grid, const PointAt& point_at, int points, Point* sorted)
{
    int* starts = builder.ends.data;
    std::fill(starts, starts + grid.cells, 0);
    const bool even = !std::isfinite(grid.scale);
    for (int i = 0; i < points; ++i)
    {
        const int cell = even ? int(int64_t(i) * grid.cells / points) : grid.cell_of(point_at(i));
        builder.cell_of_point[i] = uint16_t(cell);
        ++starts[cell];
    }
    int start = 0;
    for (int cell = 0; cell < grid.cells; ++cell)
        start += std::exchange(starts[cell], start);
    for (int i = 0; i < points; ++i)
        sorted[starts[builder.cell_of_point[i]]++] = point_at(i);
}

static bool append_cube(NearestNodes& tree, int first_point, int points)
{
    constexpr int kGrowth = 1024;
    if (!grow(tree.cubes, tree.cube_capacity, int64_t(tree.cube_count) + 1, kGrowth))
        return false;
    tree.cubes[tree.cube_count++] = {kEmptyBox, first_point, points, 0, 0};
    return true;
}

// Divides a cube into the occupied ones of its eight parts, and these in turn. The cube has `cells` cells of the grid from
// `first_cell` on, whose points begin at `grid_point`. A single cell is left as it is. False when memory is short.
static bool add_children(Builder& builder, int cube, int first_cell, int cells, int grid_point)
{
    NearestNodes& tree = builder.tree;
    if (tree.cubes[cube].points <= kLeaf || cells == 1)
        return true;
    const int part = cells / kChildren, first_child = tree.cube_count;
    int begin = tree.cubes[cube].first_point, cell_of_child[kChildren];
    for (int cell = first_cell; cell < first_cell + cells; cell += part)
    {
        const int end = grid_point + builder.ends[cell + part - 1];
        if (end == begin)
            continue;
        cell_of_child[tree.cube_count - first_child] = cell;
        if (!append_cube(tree, begin, end - begin))
            return false;
        begin = end;
    }
    const int children = tree.cube_count - first_child;
    tree.cubes[cube].first_child = first_child;
    tree.cubes[cube].children = children;
    for (int child = 0; child < children; ++child)
        if (!add_children(builder, first_child + child, cell_of_child[child], part, grid_point))
            return false;
    return true;
}

// Divides a cube of many points, which `point_at` yields, over a grid of its own.
template <typename PointAt>
static bool divide(Builder& builder, int cube, const CellGrid& grid, const PointAt& point_at)
{
    const int first = builder.tree.cubes[cube].first_point;
    sort_into_cells(builder, grid, point_at, builder.tree.cubes[cube].points, builder.tree.points + first);
    return add_children(builder, cube, 0, grid.cells, first);
}

// Divides what is still too large. The largest cell of the first grid bounds the room that this takes.
static bool divide_cells(Builder& builder)
{
    NearestNodes& tree = builder.tree;
    int largest = 0;
    for (int cube = 0; cube < tree.cube_count; ++cube)
        if (tree.cubes[cube].children == 0)
            largest = std::max(largest, tree.cubes[cube].points);
    if (largest <= kLeaf)
        return true;
    Scratch<Point> copy(largest);
    if (!copy.data)
        return false;
    const auto copied = [&](int i) { return copy[i]; };
    for (int cube = 0; cube < tree.cube_count; ++cube)
    {
        const Cube now = tree.cubes[cube];
        if (now.children > 0 || now.points <= kLeaf)
            continue;
        std::copy_n(tree.points + now.first_point, now.points, copy.data);
        if (!divide(builder, cube, grid_over(copied, now.points), copied))
            return false;
    }
    return true;
}

static void bound(NearestNodes& tree, Cube& cube)
{
    for (int i = 0; i < cube.children; ++i)
    {
        const Box& child = tree.cubes[cube.first_child + i].box;
        enlarge(cube.box, child.low, child.high);
    }
    for (int i = 0; cube.children == 0 && i < cube.points; ++i)
    {
        const Point& point = tree.points[cube.first_point + i];
        enlarge(cube.box, point.xyz, point.xyz);
    }
}

// Whether all coordinates, and the extent of the whole, are finite.
static bool fits_into_a_tree(const Candidates& from)
{
    Box all = kEmptyBox;
    bool finite = true;
    for (int position = 0; position < from.count; ++position)
    {
        const ZELNODE& node = from.nodes[from.node(position)];
        const double point[3] = {node.x, node.y, node.z};
        finite = finite && std::isfinite(node.x + node.y + node.z);
        enlarge(all, point, point);
    }
    return finite && std::isfinite(all.high[0] - all.low[0]) && std::isfinite(all.high[1] - all.low[1]) &&
           std::isfinite(all.high[2] - all.low[2]);
}

static bool fill_tree(NearestNodes& tree, const Candidates& from)
{
    Builder builder = {tree, Scratch<uint16_t>(from.count), Scratch<int>(kMaxCells)};
    tree.points = allocate_to_fill<Point>(from.count);
    if (!builder.cell_of_point.data || !builder.ends.data || !tree.points || !append_cube(tree, 0, from.count))
        return false;
    const auto candidate = [&](int position) {
        const ZELNODE& node = from.nodes[from.node(position)];
        return Point{{node.x, node.y, node.z}, position};
    };
    if (!divide(builder, 0, grid_over(candidate, from.count), candidate) || !divide_cells(builder))
        return false;
    for (int cube = tree.cube_count - 1; cube >= 0; --cube) // children stand behind their parents
        bound(tree, tree.cubes[cube]);
    return true;
}

// Null when memory is short or the candidates do not fit into a tree: they must be scanned.
static NearestNodes* build_tree(const Candidates& from)
{
    NearestNodes* tree = fits_into_a_tree(from) ? allocate<NearestNodes>(1) : nullptr;
    if (tree && !fill_tree(*tree, from))
        discard_tree(tree);
    return tree;
}

// ---- Searching ---------------------------------------------------------------------------------------------------------

namespace
{
// Keeps the k nearest of all candidates that it is offered, the worst on top of a heap.
struct Nearest
{
    Candidate* kept;
    int k;
    int count = 0;
    double bound() const { return count < k ? kInfinity : kept[0].squared; }
    void offer(Candidate candidate)
    {
        if (count == k && !(candidate < kept[0]))
            return;
        if (count == k)
            std::pop_heap(kept, kept + count--);
        kept[count++] = candidate;
        std::push_heap(kept, kept + count);
    }
};

// Keeps all candidates whose square does not exceed a limit.
struct Within
{
    double limit;
    Candidate* kept = nullptr; // owned by the caller
    int count = 0, capacity = 0;
    bool complete = true; // false: memory was short
    double bound() const { return limit; }
    void offer(Candidate candidate)
    {
        constexpr int kGrowth = 64;
        if (candidate.squared > limit)
            return;
        complete = complete && grow(kept, capacity, int64_t(count) + 1, kGrowth);
        if (complete)
            kept[count++] = candidate;
    }
};
} // namespace

static double squared_distance(const Box& box, const double point[3])
{
    double d[3];
    for (int axis = 0; axis < 3; ++axis)
        d[axis] = std::max({box.low[axis] - point[axis], point[axis] - box.high[axis], 0.0});
    return d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
}

template <typename Keeper>
static void search_points(const NearestNodes& tree, const Cube& cube, const double point[3], Keeper& keeper)
{
    for (int i = cube.first_point; i < cube.first_point + cube.points; ++i)
    {
        const double* xyz = tree.points[i].xyz;
        const double dx = xyz[0] - point[0], dy = xyz[1] - point[1], dz = xyz[2] - point[2];
        const double squared = dx * dx + dy * dy + dz * dz;
        if (squared <= keeper.bound())
            keeper.offer({squared, tree.points[i].position});
    }
}

// Searches a cube, the nearest of its children first.
template <typename Keeper>
static void search_cube(const NearestNodes& tree, const Cube& cube, const double point[3], Keeper& keeper)
{
    if (cube.children == 0)
        return search_points(tree, cube, point, keeper);
    Candidate order[kChildren];
    int count = 0;
    for (int child = cube.first_child; child < cube.first_child + cube.children; ++child)
    {
        const Candidate candidate = {squared_distance(tree.cubes[child].box, point), child};
        if (candidate.squared > keeper.bound())
            continue;
        int at = count++;
        for (; at > 0 && candidate.squared < order[at - 1].squared; --at)
            order[at] = order[at - 1];
        order[at] = candidate;
    }
    for (int i = 0; i < count && order[i].squared <= keeper.bound(); ++i)
        search_cube(tree, tree.cubes[order[i].position], point, keeper);
}

template <typename Keeper> static void scan(const Candidates& from, const double point[3], Keeper& keeper)
{
    for (int position = 0; position < from.count; ++position)
    {
        const ZELNODE& node = from.nodes[from.node(position)];
        const double dx = node.x - point[0], dy = node.y - point[1], dz = node.z - point[2];
        const double squared = dx * dx + dy * dy + dz * dz;
        if (!std::isnan(squared)) // a candidate that is nowhere is near nothing
            keeper.offer({squared, position});
    }
}

static Candidates candidates_of(const ZELDATA* db, bool use_subset)
{
    if (use_subset && db->interface_count > 0)
        return {db->nodes, db->interface_nodes, db->interface_count};
    return {db->nodes, nullptr, db->node_count};
}

// The tree over the candidates, which is built when it pays; null: they are to be scanned.
static NearestNodes* tree_for(ZELDATA* db, const Candidates& from)
{
    const int which = from.subset ? 1 : 0;
    NearestCache& nearest = nearest_cache(db);
    NearestNodes*& tree = nearest.trees[which];
    int& scans = nearest.scans_before_tree[which];
    if (from.count < kWorthATree)
        return nullptr;
    if (!tree && scans > 0)
    {
        --scans;
        return nullptr;
    }
    if (!tree)
        tree = build_tree(from);
    nearest.forget = forget_trees;
    if (!tree)
        scans = kQueriesPerBuild;
    else if (tree->queries < kQueriesPerBuild)
        ++tree->queries;
    return tree;
}

template <typename Keeper>
static void search(ZELDATA* db, const Candidates& from, const double point[3], Keeper& keeper)
{
    const bool finite = std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2]);
    if (const NearestNodes* tree = finite ? tree_for(db, from) : nullptr)
        search_cube(*tree, tree->cubes[0], point, keeper);
    else
        scan(from, point, keeper);
}

// ---- Exported ----------------------------------------------------------------------------------------------------------

// New array of node indexes, nearest first; null when there are none, and with a message when memory is short.
static int* nodes_of(const Candidates& from, Candidate* kept, int count)
{
    if (count == 0)
        return nullptr;
    int* nodes = allocate<int>(count);
    if (!nodes)
        return no_memory(module_word::tools);
    std::sort(kept, kept + count);
    for (int i = 0; i < count; ++i)
        nodes[i] = from.node(kept[i].position);
    return nodes;
}

namespace
{
// A node of a neighbourhood.
struct Neighbor
{
    double distance, squared;
    int position;
    bool operator<(const Neighbor& other) const
    {
        if (distance != other.distance)
            return distance < other.distance;
        return squared < other.squared || (squared == other.squared && position < other.position);
    }
};

// Squares outside this range have lost digits, or all of them.
constexpr double kLeastSquare = 1e-290, kGreatestSquare = 1e300;
} // namespace

static double distance_of(const ZELNODE& node, const double point[3], double squared)
{
    if (squared >= kLeastSquare && squared <= kGreatestSquare)
        return std::sqrt(squared);
    return std::hypot(node.x - point[0], node.y - point[1], node.z - point[2]);
}

// Squares up to which a distance may be within a radius: a few roundings more than the radius squared.
static double square_limit(double radius)
{
    constexpr double kRoundings = 1.0 + 1e-15;
    return std::max(radius * radius * kRoundings, kLeastSquare);
}

// Those of the candidates that are within the radius by their distance, nearest first; their number.
static int select_neighbors(const Candidates& from, const Within& within, const double point[3], double radius,
                            Neighbor* out)
{
    int count = 0;
    for (int i = 0; i < within.count; ++i)
    {
        const auto [squared, position] = within.kept[i];
        const double distance = distance_of(from.nodes[from.node(position)], point, squared);
        if (distance <= radius)
            out[count++] = {distance, squared, position};
    }
    std::sort(out, out + count);
    return count;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_ClosestNode(ZELDATA* db, const double point[3], int use_subset)
{
    if (!db)
        no_database();
    if (!db || !point || db->node_count == 0)
        return -1;
    const Candidates from = candidates_of(db, use_subset != 0);
    Candidate best;
    Nearest nearest{&best, 1};
    search(db, from, point, nearest);
    return nearest.count > 0 ? from.node(best.position) : -1;
}

int* ZEL_ClosestNodes(ZELDATA* db, const double point[3], int k, int use_subset, int* count)
{
    int ignored;
    int& found = count ? *count : ignored;
    found = 0;
    if (!db)
        return no_database();
    if (!point || k < 1 || db->node_count == 0)
        return nullptr;
    const Candidates from = candidates_of(db, use_subset != 0);
    k = std::min(k, from.count);
    Scratch<Candidate> kept(k);
    if (!kept.data)
        return no_memory(module_word::tools);
    Nearest nearest{kept.data, k};
    search(db, from, point, nearest);
    int* nodes = nodes_of(from, kept.data, nearest.count);
    found = nodes ? nearest.count : 0;
    return nodes;
}

int* ZEL_ClosestNodesInNeighborhood(ZELDATA* db, const double point[3], double radius, int* count, double** distances)
{
    int ignored;
    int& found = count ? *count : ignored;
    found = 0;
    if (distances)
        *distances = nullptr;
    if (!db)
        return no_database();
    if (!point || !(radius >= 0.0) || db->node_count == 0)
        return nullptr;
    const Candidates from = candidates_of(db, false);
    Within within{square_limit(radius)};
    search(db, from, point, within);
    Scratch<Neighbor> neighbors(within.count);
    const bool complete = within.complete && neighbors.data;
    const int selected = complete ? select_neighbors(from, within, point, radius, neighbors.data) : 0;
    std::free(within.kept);
    Scratch<int> nodes(selected);
    Scratch<double> lengths(selected);
    if (!complete || !nodes.data || !lengths.data)
        return no_memory(module_word::tools);
    if (selected == 0)
        return nullptr;
    for (int i = 0; i < selected; ++i)
    {
        nodes[i] = from.node(neighbors[i].position);
        lengths[i] = neighbors[i].distance;
    }
    if (distances)
        *distances = lengths.release();
    found = selected;
    return nodes.release();
}
