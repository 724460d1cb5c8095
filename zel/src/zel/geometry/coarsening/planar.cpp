// Merging of faces that lie in a plane. The faces are divided into regions, each grown from the largest face left over
// those neighbours whose normals are close to the normal of that first face. Inside its region a polygon then grows from
// the largest face left, one face at a time along the whole path that the two have in common, for as long as it stays a
// single simple loop. So every edge of the result is one of before, used as often in each direction, and a region that is
// a disc becomes one polygon: the growth is a shelling, and every shelling of a part of a disc can be completed
// (Danaraj and Klee, Which spheres are shellable?, 1978). Around a hole or a node that must stay, some faces remain.
#include "base/base.h"
#include "coarsening.h"

#include <cfloat>

namespace zel
{

namespace
{
struct Plane
{
    Vector normal;   // of unit length, zero for a face without area
    double area;     // twice
    int32_t place;   // of the face's count word
    int32_t region;  // the first face of the region, -1: none yet
    int32_t polygon; // the first face of the polygon that took this one up, -1: none yet
    bool is_queued;
};

// The corners of all faces, named by the places of their nodes in the word list. The edge of a corner leads to the next
// corner of the polygon; its twin is the only edge the other way where the edge is used just once in each direction.
struct Corners
{
    Scratch<int32_t> face, next, previous, twin;
    explicit Corners(int32_t length) : face(length), next(length), previous(length), twin(length) {}
    bool allocated() const { return face.data && next.data && previous.data && twin.data; }
};

// First in, first out. A face waits at most once.
struct Queue
{
    Scratch<int32_t> faces;
    int32_t room, first = 0, count = 0;
    explicit Queue(int32_t face_count) : faces(face_count), room(face_count) {}
    void put(int32_t face)
    {
        const int64_t end = int64_t(first) + count++;
        faces[end < room ? end : end - room] = face;
    }
    int32_t take()
    {
        const int32_t face = faces[first];
        first = first + 1 < room ? first + 1 : 0;
        --count;
        return face;
    }
};

// A polygon that grows.
struct Polygon
{
    int32_t id;     // its first face
    int32_t corner; // one of its corners
    int32_t size, merged;
};

struct Merger
{
    const Surface& surface;
    Scratch<Plane> planes;
    Corners corners;
    Queue queue;
    Scratch<int32_t> order;   // faces, the largest first
    Scratch<int32_t> polygon; // the polygon that a node was last found on
    explicit Merger(const Surface& whole)
        : surface(whole), planes(whole.face_count), corners(whole.length), queue(whole.face_count),
          order(whole.face_count), polygon(whole.node_count)
    {}
    bool allocated() const
    {
        return planes.data && corners.allocated() && queue.faces.data && order.data && polygon.data;
    }
    const int32_t* words() const { return surface.words; }
};

// One end of an edge, for pairing: the other end and the corner that it starts at.
struct EdgeUse
{
    int32_t other, corner;
    bool operator<(const EdgeUse& use) const { return other != use.other ? other < use.other : corner < use.corner; }
};
} // namespace

// ---- Topology -----------------------------------------------------------------------------------------------------

static void find_planes(Merger& merger)
{
    // Of a face whose height is less than this part of its extent, the normal is noise.
    constexpr double kFlat = 1e-10;
    int32_t count = 0;
    for_each_face(merger.surface.faces(), [&](const int32_t* face) {
        const Vector normal = area_normal(merger.surface.points, face);
        const double area = norm(normal);
        double extent = 0.0;
        for (int32_t i = 1, before = vertex_count(*face); i <= vertex_count(*face); before = i++)
        {
            const Vector edge = merger.surface.points[face[i]] - merger.surface.points[face[before]];
            extent = std::max(extent, dot(edge, edge));
        }
        Plane& plane = merger.planes[count];
        const bool has_normal = area > kFlat * extent && area <= DBL_MAX;
        plane = {has_normal ? (1.0 / area) * normal : Vector{0.0, 0.0, 0.0},
                 has_normal ? area : 0.0,
                 int32_t(face - merger.words()),
                 -1,
                 -1,
                 false};
        merger.order[count] = count;
        ++count;
    });
    std::sort(merger.order.data, merger.order.data + count, [&](int32_t a, int32_t b) {
        const double left = merger.planes[a].area, right = merger.planes[b].area;
        return left != right ? left > right : a < b;
    });
}

static void link_corners(Merger& merger)
{
    Corners& corners = merger.corners;
    for (int32_t face = 0; face < merger.surface.face_count; ++face)
    {
        const int32_t first = merger.planes[face].place + 1;
        const int32_t last = first + vertex_count(merger.words()[first - 1]) - 1;
        for (int32_t corner = first; corner <= last; ++corner)
        {
            corners.face[corner] = face;
            corners.next[corner] = corner < last ? corner + 1 : first;
            corners.previous[corner] = corner > first ? corner - 1 : last;
            corners.twin[corner] = -1;
        }
    }
}

// Pairs the edges of one bucket: those from or to one node and a higher one.
static void pair_edges(Merger& merger, EdgeUse* uses, int32_t count, int32_t lower)
{
    Corners& corners = merger.corners;
    std::sort(uses, uses + count);
    for (int32_t begin = 0, end; begin < count; begin = end)
    {
        end = begin + 1;
        while (end < count && uses[end].other == uses[begin].other)
            ++end;
        if (end - begin != 2)
            continue;
        const int32_t a = uses[begin].corner, b = uses[begin + 1].corner;
        const bool opposite = (merger.words()[a] == lower) != (merger.words()[b] == lower);
        if (!opposite || corners.face[a] == corners.face[b])
            continue;
        corners.twin[a] = b;
        corners.twin[b] = a;
    }
}

// Finds the twins. Faces of two vertices are lines: they have no edge that a face could be merged over.
static int find_twins(Merger& merger)
{
    const int32_t nodes = merger.surface.node_count;
    const int32_t* words = merger.words();
    Scratch<int32_t> start(int64_t(nodes) + 2);
    Scratch<EdgeUse> uses(merger.surface.length);
    if (!start.data || !uses.data)
        return no_memory(module_word::coarsening);
    const auto for_each_edge = [&](auto action) { // action(lower node, higher node, corner)
        for_each_face(merger.surface.faces(), [&](const int32_t* face) {
            const int32_t count = vertex_count(*face);
            for (int32_t i = 1; count > 2 && i <= count; ++i)
            {
                const int32_t from = face[i], to = face[i < count ? i + 1 : 1];
                action(std::min(from, to), std::max(from, to), int32_t(face - words) + i);
            }
        });
    };
    for_each_edge([&](int32_t lower, int32_t, int32_t) { ++start[lower + 2]; });
    for (int32_t node = 0; node < nodes; ++node)
        start[node + 2] += start[node + 1];
    for_each_edge([&](int32_t lower, int32_t higher, int32_t corner) { uses[start[lower + 1]++] = {higher, corner}; });
    for (int32_t node = 0; node < nodes; ++node)
        pair_edges(merger, uses.data + start[node], start[node + 1] - start[node], node);
    return 1;
}

// ---- Regions ------------------------------------------------------------------------------------------------------

static int32_t flags_of(const Merger& merger, int32_t face)
{
    return merger.words()[merger.planes[face].place] & ~ZEL_FACE_VERTICES;
}

// Calls action(face) with the neighbour over every edge of a face's own, once an edge.
template <typename Action> static void for_each_neighbour(const Merger& merger, int32_t face, Action action)
{
    const int32_t first = merger.planes[face].place + 1;
    for (int32_t corner = first; corner < first + vertex_count(merger.words()[first - 1]); ++corner)
        if (const int32_t twin = merger.corners.twin[corner]; twin >= 0)
            action(merger.corners.face[twin]);
}

// Gives every face its region. A face without area has no direction of its own: it joins the first region that reaches it.
static void find_regions(Merger& merger, double angle)
{
    const double least_cosine = std::cos(angle);
    for (int32_t i = 0; i < merger.surface.face_count; ++i)
    {
        const int32_t seed = merger.order[i];
        if (merger.planes[seed].region >= 0 || merger.planes[seed].area == 0.0)
            continue;
        const Vector normal = merger.planes[seed].normal;
        merger.planes[seed].region = seed;
        for (merger.queue.put(seed); merger.queue.count > 0;)
            for_each_neighbour(merger, merger.queue.take(), [&](int32_t face) {
                Plane& plane = merger.planes[face];
                const bool fits = plane.area == 0.0 || dot(plane.normal, normal) >= least_cosine;
                if (plane.region >= 0 || !fits || flags_of(merger, face) != flags_of(merger, seed))
                    return;
                plane.region = seed;
                merger.queue.put(face);
            });
    }
}

// ---- Polygons -----------------------------------------------------------------------------------------------------

// Whether the edge of a face's corner is one that it shares with a polygon.
static bool is_shared(const Merger& merger, int32_t corner, int32_t polygon)
{
    const int32_t twin = merger.corners.twin[corner];
    return twin >= 0 && merger.planes[merger.corners.face[twin]].polygon == polygon;
}

// First corner and length of the one path of edges that a face shares with the polygon. 0 edges: it cannot be merged,
// because there are several paths, a node beside the path that is on the polygon too, a node in the path that must stay,
// or too little left.
struct SharedPath
{
    int32_t first = -1, edges = 0;
};
static SharedPath shared_path(const Merger& merger, const Polygon& polygon, int32_t face)
{
    const Corners& corners = merger.corners;
    const int32_t first = merger.planes[face].place + 1, count = vertex_count(merger.words()[first - 1]);
    SharedPath path;
    for (int32_t corner = first; corner < first + count; ++corner)
    {
        const bool shared = is_shared(merger, corner, polygon.id);
        const bool shared_before = is_shared(merger, corners.previous[corner], polygon.id);
        const int32_t node = merger.words()[corner];
        path.edges += shared;
        if (shared && !shared_before)
        {
            if (path.first >= 0)
                return {};
            path.first = corner;
        }
        if (!shared && !shared_before && merger.polygon[node] == polygon.id)
            return {};
        if (shared && shared_before && merger.surface.keep[node])
            return {};
    }
    const bool something_left = path.edges < polygon.size && polygon.size + count - 2 * path.edges >= 3;
    return path.first >= 0 && something_left ? path : SharedPath{};
}

// Takes a face into the polygon over their shared path, which goes.
static void take_up(Merger& merger, Polygon& polygon, int32_t face, const SharedPath& path)
{
    Corners& corners = merger.corners;
    const int32_t first = merger.planes[face].place + 1, count = vertex_count(merger.words()[first - 1]);
    for (int32_t corner = first; corner < first + count; ++corner)
        merger.polygon[merger.words()[corner]] = polygon.id;
    int32_t last = path.first; // corner of the last edge of the path
    for (int32_t edge = 1; edge < path.edges; ++edge)
    {
        last = corners.next[last];
        merger.polygon[merger.words()[last]] = -1; // inside from now on
    }
    const int32_t enter = corners.previous[corners.twin[last]], leave = corners.next[corners.twin[path.first]];
    const int32_t begin = corners.next[last], end = corners.previous[path.first];
    corners.next[enter] = begin;
    corners.previous[begin] = enter;
    corners.next[end] = leave;
    corners.previous[leave] = end;
    merger.planes[face].polygon = polygon.id;
    polygon.corner = enter;
    polygon.size += count - 2 * path.edges;
    polygon.merged += 1;
}

// Grows a polygon from one face as far as it goes in its region. A face that did not fit is tried again whenever a
// neighbour of it has been taken up: only that can make its path one.
static Polygon grow_polygon(Merger& merger, int32_t seed)
{
    const int32_t place = merger.planes[seed].place;
    Polygon polygon = {seed, place + 1, vertex_count(merger.words()[place]), 1};
    merger.planes[seed].polygon = seed;
    const int32_t region = merger.planes[seed].region;
    if (region < 0)
        return polygon;
    for (int32_t i = 1; i <= polygon.size; ++i)
        merger.polygon[merger.words()[place + i]] = seed;
    const auto queue = [&](int32_t face) {
        Plane& plane = merger.planes[face];
        if (plane.region != region || plane.polygon >= 0 || plane.is_queued)
            return;
        plane.is_queued = true;
        merger.queue.put(face);
    };
    for_each_neighbour(merger, seed, queue);
    while (merger.queue.count > 0)
    {
        const int32_t face = merger.queue.take();
        merger.planes[face].is_queued = false;
        const SharedPath path = shared_path(merger, polygon, face);
        if (path.edges == 0)
            continue;
        take_up(merger, polygon, face, path);
        for_each_neighbour(merger, face, queue);
    }
    return polygon;
}

// Replaces the faces of the surface by the polygons, in the order of their first faces.
static int write_polygons(const Merger& merger, Surface& surface, const Polygon* polygons, Scratch<int32_t>& merged)
{
    int64_t room = 0;
    int32_t count = 0;
    for (int32_t face = 0; face < surface.face_count; ++face)
        if (polygons[face].merged > 0)
        {
            room += 1 + polygons[face].size;
            merged[count++] = polygons[face].merged;
        }
    Scratch<int32_t> words(room);
    if (!words.data)
        return no_memory(module_word::coarsening);
    int32_t* out = words.data;
    for (int32_t face = 0; face < surface.face_count; ++face)
    {
        if (polygons[face].merged == 0)
            continue;
        *out++ = flags_of(merger, face) | polygons[face].size;
        for (int32_t i = 0, corner = polygons[face].corner; i < polygons[face].size; ++i)
        {
            *out++ = merger.words()[corner];
            corner = merger.corners.next[corner];
        }
    }
    replace(surface.words, words);
    surface.length = int32_t(room);
    surface.face_count = count;
    return 1;
}

int merge_planar_faces(Surface& surface, double angle, Scratch<int32_t>& merged)
{
    Merger merger(surface);
    Scratch<Polygon> polygons(surface.face_count); // at their first faces
    if (!merger.allocated() || !polygons.data)
        return no_memory(module_word::coarsening);
    find_planes(merger);
    link_corners(merger);
    if (!find_twins(merger))
        return 0;
    find_regions(merger, angle);
    std::fill_n(merger.polygon.data, surface.node_count, -1);
    for (int32_t i = 0; i < surface.face_count; ++i)
    {
        if (i % kOften == 0 && !goes_on())
            return 0;
        if (const int32_t face = merger.order[i]; merger.planes[face].polygon < 0)
            polygons[face] = grow_polygon(merger, face);
    }
    return write_polygons(merger, surface, polygons.data, merged);
}

} // namespace zel
