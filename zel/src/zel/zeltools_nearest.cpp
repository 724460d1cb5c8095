// Nodes nearest to a point, exactly as a scan over all candidates would find them: by squared distance, equal ones in the
// order of the candidates, which are the nodes of the table or the interface nodes.
//
// Many candidates are put in the order of a Morton curve (G. M. Morton, 1966), in which every cube of an octree is a run;
// the octree's occupied cubes become a tree of tight bounding boxes. It is built by one sort and one pass, in less than
// the time of a hundred scans. A box is skipped only when its squared distance is strictly greater than the worst that is
// wanted. Rounding is monotone and products are not contracted, so the distance of a box never exceeds that of a point in
// it, and ties stay exact.
#include "zel.h"
#include "zeldb.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

using namespace zel;

static constexpr const char* kModule = "zeltools";

namespace
{
constexpr int kLeaf = 64;         // points that are not divided further: larger leaves make the tree cheaper to build
constexpr int kChildren = 8;      // of a cube
constexpr int kWorthATree = 1000; // fewer candidates are scanned
constexpr int kQueriesPerBuild = 64; // a build costs about so many scans
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Box
{
    double low[3], high[3];
};

// A point's place on the curve.
struct Place
{
    uint64_t key;
    int position;
};

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

namespace zel
{
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
    double* coordinates; // owned: x, y, z of each point
    int* positions;      // owned: candidate of each point
    int queries;         // answered so far, up to kQueriesPerBuild
};
} // namespace zel

static void discard_tree(NearestNodes*& tree)
{
    if (!tree)
        return;
    discard(tree->cubes);
    discard(tree->coordinates);
    discard(tree->positions);
    discard(tree);
}

void zel::nodes_changed(ZELDATA* db)
{
    Private& caches = own(db);
    for (int which = 0; which < 2; ++which)
        if (NearestNodes*& tree = caches.nearest[which])
        {
            // A tree that hardly served is not built anew at once: queries and changes may go on by turns.
            caches.scans_before_tree[which] = std::max(kQueriesPerBuild - tree->queries, 0);
            discard_tree(tree);
        }
}

// ---- Building ----------------------------------------------------------------------------------------------------------

// Moves the low 21 bits of a number to every third bit.
static uint64_t spread(uint64_t bits)
{
    bits &= 0x1fffff;
    bits = (bits | bits << 32) & 0x001f00000000ffff;
    bits = (bits | bits << 16) & 0x001f0000ff0000ff;
    bits = (bits | bits << 8) & 0x100f00f00f00f00f;
    bits = (bits | bits << 4) & 0x10c30c30c30c30c3;
    return (bits | bits << 2) & 0x1249249249249249;
}

static void enlarge(Box& box, const double low[3], const double high[3])
{
    for (int axis = 0; axis < 3; ++axis)
    {
        box.low[axis] = std::min(box.low[axis], low[axis]);
        box.high[axis] = std::max(box.high[axis], high[axis]);
    }
}

static constexpr Box kEmptyBox = {{kInfinity, kInfinity, kInfinity}, {-kInfinity, -kInfinity, -kInfinity}};

// Places on the curve through the bounding cube of all candidates; false when a coordinate or the cube is not finite.
static bool place_on_curve(const Candidates& from, Scratch<Place>& places)
{
    constexpr double kCells = 2097151.0; // along an edge of the cube
    Box all = kEmptyBox;
    for (int position = 0; position < from.count; ++position)
    {
        const ZELNODE& node = from.nodes[from.node(position)];
        if (!std::isfinite(node.x) || !std::isfinite(node.y) || !std::isfinite(node.z))
            return false;
        const double point[3] = {node.x, node.y, node.z};
        enlarge(all, point, point);
    }
    const double edge = std::max({all.high[0] - all.low[0], all.high[1] - all.low[1], all.high[2] - all.low[2]});
    if (!std::isfinite(edge))
        return false;
    const double scale = std::isfinite(kCells / edge) ? kCells / edge : 0.0;
    for (int position = 0; position < from.count; ++position)
    {
        const ZELNODE& node = from.nodes[from.node(position)];
        const double point[3] = {node.x, node.y, node.z};
        uint64_t key = 0;
        for (int axis = 0; axis < 3; ++axis)
            key |= spread(uint64_t(std::min((point[axis] - all.low[axis]) * scale, kCells))) << axis;
        places[position] = {key, position};
    }
    return true;
}

// Stable radix sort by key, 11 bits a pass.
static void sort_places(Scratch<Place>& places, Scratch<Place>& other, int count)
{
    constexpr int kDigitBits = 11, kDigits = 1 << kDigitBits, kKeyBits = 63;
    const auto digit_of = [](const Place& place, int shift) { return int(place.key >> shift) & (kDigits - 1); };
    for (int shift = 0; shift < kKeyBits; shift += kDigitBits)
    {
        int starts[kDigits] = {};
        for (int i = 0; i < count; ++i)
            ++starts[digit_of(places[i], shift)];
        int start = 0;
        for (int& digit : starts)
            start += std::exchange(digit, start);
        for (int i = 0; i < count; ++i)
            other[starts[digit_of(places[i], shift)]++] = places[i];
        std::swap(places.data, other.data);
    }
}

static bool append_cube(NearestNodes& tree, int first_point, int points)
{
    constexpr int kGrowth = 1024;
    if (!grow(tree.cubes, tree.cube_capacity, int64_t(tree.cube_count) + 1, kGrowth))
        return false;
    tree.cubes[tree.cube_count++] = {kEmptyBox, first_point, points, 0, 0};
    return true;
}

// Behind the points from `first` on that lie in the same child of a cube. The keys of the points before `last` differ in
// the three bits at `shift` and below; points in one cell of the curve are divided evenly instead.
static int end_of_child(const Scratch<Place>& places, int first, int last, int shift, int even_share)
{
    if (shift < 0)
        return std::min(last, first + even_share);
    const uint64_t digit = places[first].key >> shift;
    const auto in_child = [=](const Place& place) { return place.key >> shift == digit; };
    return int(std::partition_point(places.data + first, places.data + last, in_child) - places.data);
}

// Divides a cube of many points; false when memory is short.
static bool divide(NearestNodes& tree, int cube, const Scratch<Place>& places)
{
    const int first = tree.cubes[cube].first_point, last = first + tree.cubes[cube].points;
    if (last - first <= kLeaf)
        return true;
    const int differing_bits = 64 - std::countl_zero(places[first].key ^ places[last - 1].key);
    const int shift = differing_bits == 0 ? -1 : (differing_bits - 1) / 3 * 3;
    const int even_share = (last - first + kChildren - 1) / kChildren;
    tree.cubes[cube].first_child = tree.cube_count;
    for (int begin = first; begin < last;)
    {
        const int end = end_of_child(places, begin, last, shift, even_share);
        if (!append_cube(tree, begin, end - begin))
            return false;
        ++tree.cubes[cube].children;
        begin = end;
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
        const double* point = tree.coordinates + 3 * int64_t(cube.first_point + i);
        enlarge(cube.box, point, point);
    }
}

static bool build_cubes(NearestNodes& tree, const Scratch<Place>& places, int count)
{
    if (!append_cube(tree, 0, count))
        return false;
    for (int cube = 0; cube < tree.cube_count; ++cube)
        if (!divide(tree, cube, places))
            return false;
    for (int cube = tree.cube_count - 1; cube >= 0; --cube)
        bound(tree, tree.cubes[cube]);
    return true;
}

// Null when memory is short or the candidates do not fit into a tree: they must be scanned.
static NearestNodes* build_tree(const Candidates& from)
{
    Scratch<Place> places(from.count), other(from.count);
    NearestNodes* tree = allocate<NearestNodes>(1);
    bool complete = tree && places.data && other.data && place_on_curve(from, places);
    if (complete)
    {
        tree->coordinates = allocate<double>(3 * int64_t(from.count));
        tree->positions = allocate<int>(from.count);
        complete = tree->coordinates && tree->positions;
    }
    if (complete)
    {
        sort_places(places, other, from.count);
        for (int i = 0; i < from.count; ++i)
        {
            const ZELNODE& node = from.nodes[from.node(places[i].position)];
            double* point = tree->coordinates + 3 * int64_t(i);
            point[0] = node.x;
            point[1] = node.y;
            point[2] = node.z;
            tree->positions[i] = places[i].position;
        }
        complete = build_cubes(*tree, places, from.count);
    }
    if (!complete)
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
    // A candidate that is nowhere comes behind all others; but as in a plain search, none replaces the first one.
    static double unplaced(int position) { return position == 0 ? 0.0 : kInfinity; }
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

// Keeps all candidates within a distance.
struct Within
{
    double limit;
    Candidate* kept = nullptr; // owned by the caller
    int count = 0, capacity = 0;
    bool complete = true; // false: memory was short
    double bound() const { return limit; }
    static double unplaced(int) { return kInfinity; }
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
        const double* xyz = tree.coordinates + 3 * int64_t(i);
        const double dx = xyz[0] - point[0], dy = xyz[1] - point[1], dz = xyz[2] - point[2];
        const double squared = dx * dx + dy * dy + dz * dz;
        if (squared <= keeper.bound())
            keeper.offer({squared, tree.positions[i]});
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
        keeper.offer({std::isnan(squared) ? keeper.unplaced(position) : squared, position});
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
    NearestNodes*& tree = own(db).nearest[which];
    int& scans = own(db).scans_before_tree[which];
    if (from.count < kWorthATree)
        return nullptr;
    if (!tree && scans > 0)
    {
        --scans;
        return nullptr;
    }
    if (!tree)
        tree = build_tree(from);
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

// New array of node indexes, nearest first; null with a message when memory is short.
static int* nodes_of(const Candidates& from, Candidate* kept, int count)
{
    int* nodes = allocate<int>(count);
    if (!nodes)
        return no_memory(kModule);
    std::sort(kept, kept + count);
    for (int i = 0; i < count; ++i)
        nodes[i] = from.node(kept[i].position);
    return nodes;
}

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
    return from.node(best.position);
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
        return no_memory(kModule);
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
    Within within{radius * radius};
    search(db, from, point, within);
    Scratch<double> lengths(within.count);
    int* nodes = nullptr;
    if (!within.complete || !lengths.data)
        no_memory(kModule);
    else if (within.count > 0)
        nodes = nodes_of(from, within.kept, within.count);
    for (int i = 0; nodes && i < within.count; ++i)
        lengths[i] = std::sqrt(within.kept[i].squared);
    std::free(within.kept);
    if (!nodes)
        return nullptr;
    if (distances)
        *distances = lengths.release();
    found = within.count;
    return nodes;
}
