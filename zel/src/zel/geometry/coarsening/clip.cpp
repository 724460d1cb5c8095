// Polygons that are not convex become triangles by ear clipping (Meisters, Polygons have ears, 1975), in the plane of the
// polygon. Only vertices that are not convex can lie in an ear; they form a tree of boxes (Bentley, Multidimensional binary
// search trees, 1975), so that an ear looks at those few around it. A diagonal that leaves the polygon leaves all that is
// left of it too: a vertex that is no ear is tried again when a neighbour has been cut off, and not before.
#include "base/base.h"
#include "coarsening.h"

namespace zel
{

// Sine of the angle below which a corner counts as straight.
static constexpr double kStraightSine = 1e-6;

namespace
{
struct Point2
{
    double x, y;
};

// A vertex of the polygon that is being clipped.
struct Vertex
{
    Point2 at;
    int32_t node;
    int32_t previous, next; // positions in the polygon
    bool is_convex;
    int32_t blocker; // in the tree, -1: convex from the start
    int32_t round;   // counts how often it was put in the queue
};

// A vertex that was not convex at first, and the run of blockers that it is the middle of.
struct Blocker
{
    int32_t vertex;
    int32_t count; // of the run, those that are not convex now
    Point2 low, high;
};

// A vertex to try; void when it has been put in the queue again since.
struct Trial
{
    int32_t vertex, round;
};

// Room for the work on one polygon of the longest kind.
struct Clipper
{
    Scratch<Vertex> vertices;
    Scratch<Blocker> blockers;
    Scratch<Trial> queue;       // all vertices, and two for every one that is cut off
    Scratch<int32_t> triangles; // three nodes each
    int32_t blocker_count = 0, queued = 0;
    explicit Clipper(int32_t longest)
        : vertices(longest), blockers(longest), queue(3 * int64_t(longest)), triangles(3 * int64_t(longest))
    {}
    bool allocated() const { return vertices.data && blockers.data && queue.data && triangles.data; }
    void put(int32_t vertex) { queue[queued++] = {vertex, ++vertices[vertex].round}; }
};
} // namespace

// Twice the signed area of a triangle.
static double signed_area(const Point2& a, const Point2& b, const Point2& c)
{
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

static double distance(const Point2& a, const Point2& b)
{
    return std::hypot(b.x - a.x, b.y - a.y);
}

// Sine of the left turn from a over b to c; 0 where points coincide.
static double turn(const Point2& a, const Point2& b, const Point2& c)
{
    const double lengths = distance(a, b) * distance(b, c);
    return lengths > 0.0 ? signed_area(a, b, c) / lengths : 0.0;
}

static double turn_at(const Vertex* vertices, int32_t i)
{
    const Vertex& vertex = vertices[i];
    return turn(vertices[vertex.previous].at, vertex.at, vertices[vertex.next].at);
}

// Projects a face into its plane, counter-clockwise; returns whether it is convex there.
static bool project(const Surface& surface, const int32_t* face, Vertex* vertices)
{
    const int32_t count = vertex_count(*face);
    const Vector sum = area_normal(surface.points, face);
    const double length = norm(sum);
    if (!(length > 0.0))
        return true; // no plane to clip it in
    const Vector normal = (1.0 / length) * sum;
    const Vector axis = std::fabs(normal.x) < 0.6 ? Vector{1.0, 0.0, 0.0} : Vector{0.0, 1.0, 0.0};
    const Vector across = cross(normal, axis), e2 = (1.0 / norm(across)) * across, e1 = cross(e2, normal);
    const Vector& origin = surface.points[face[1]];
    for (int32_t i = 0; i < count; ++i)
    {
        const Vector offset = surface.points[face[1 + i]] - origin;
        vertices[i] = {{dot(offset, e1), dot(offset, e2)},
                       face[1 + i],
                       i > 0 ? i - 1 : count - 1,
                       i + 1 < count ? i + 1 : 0,
                       false,
                       -1,
                       0};
    }
    bool convex = true;
    for (int32_t i = 0; i < count; ++i)
    {
        const double sine = turn_at(vertices, i);
        vertices[i].is_convex = sine > kStraightSine;
        convex = convex && sine >= -kStraightSine;
    }
    return convex;
}

static bool is_inside(const Point2& p, const Point2& a, const Point2& b, const Point2& c)
{
    return signed_area(a, b, p) >= 0.0 && signed_area(b, c, p) >= 0.0 && signed_area(c, a, p) >= 0.0;
}

// ---- Blockers -----------------------------------------------------------------------------------------------------

// Makes a tree of the blockers first to last - 1, the middle of every run its root.
static void build_tree(Clipper& clipper, int32_t first, int32_t last)
{
    if (first >= last)
        return;
    Blocker* const blockers = clipper.blockers.data;
    const auto at = [&](int32_t blocker) { return clipper.vertices[blockers[blocker].vertex].at; };
    Point2 low = at(first), high = low;
    for (int32_t i = first + 1; i < last; ++i)
    {
        low = {std::min(low.x, at(i).x), std::min(low.y, at(i).y)};
        high = {std::max(high.x, at(i).x), std::max(high.y, at(i).y)};
    }
    const bool is_wide = high.x - low.x > high.y - low.y;
    const int32_t middle = first + (last - first) / 2;
    std::nth_element(blockers + first, blockers + middle, blockers + last, [&](const Blocker& a, const Blocker& b) {
        const Point2 &p = clipper.vertices[a.vertex].at, &q = clipper.vertices[b.vertex].at;
        const double x = is_wide ? p.x : p.y, y = is_wide ? q.x : q.y;
        return x != y ? x < y : a.vertex < b.vertex;
    });
    blockers[middle].count = last - first;
    blockers[middle].low = low;
    blockers[middle].high = high;
    clipper.vertices[blockers[middle].vertex].blocker = middle;
    build_tree(clipper, first, middle);
    build_tree(clipper, middle + 1, last);
}

// Counts a blocker in or out of the runs that it is in.
static void count_blocker(Clipper& clipper, int32_t blocker, int32_t change)
{
    for (int32_t first = 0, last = clipper.blocker_count;;)
    {
        const int32_t middle = first + (last - first) / 2;
        clipper.blockers[middle].count += change;
        if (blocker == middle)
            return;
        (blocker < middle ? last : first) = blocker < middle ? middle : middle + 1;
    }
}

// Whether an edge of a triangle has all of a box on its outer side. Rounding is monotone: no point in the box is inside then.
static bool is_outside(const Blocker& box, const Point2& a, const Point2& b, const Point2& c)
{
    const auto all_right = [&](const Point2& from, const Point2& to) {
        return signed_area(from, to, {to.y > from.y ? box.low.x : box.high.x, to.x > from.x ? box.high.y : box.low.y}) <
               0.0;
    };
    return all_right(a, b) || all_right(b, c) || all_right(c, a) || box.low.x > std::max({a.x, b.x, c.x}) ||
           box.high.x < std::min({a.x, b.x, c.x}) || box.low.y > std::max({a.y, b.y, c.y}) ||
           box.high.y < std::min({a.y, b.y, c.y});
}

// Whether a blocker of a run lies in the triangle at vertex i or on its edges.
static bool is_blocked(const Clipper& clipper, int32_t i, int32_t first, int32_t last)
{
    const Vertex* const vertices = clipper.vertices.data;
    const int32_t before = vertices[i].previous, after = vertices[i].next;
    const Point2 &a = vertices[before].at, &b = vertices[i].at, &c = vertices[after].at;
    while (first < last)
    {
        const int32_t middle = first + (last - first) / 2;
        const Blocker& blocker = clipper.blockers[middle];
        if (blocker.count == 0 || is_outside(blocker, a, b, c))
            return false;
        const int32_t other = blocker.vertex;
        const bool is_corner = other == before || other == i || other == after;
        if (!is_corner && !vertices[other].is_convex && is_inside(vertices[other].at, a, b, c))
            return true;
        if (is_blocked(clipper, i, first, middle))
            return true;
        first = middle + 1;
    }
    return false;
}

// ---- Ears ---------------------------------------------------------------------------------------------------------

// Lists the vertices from `first` on that are left, to be tried.
static void fill_queue(Clipper& clipper, int32_t first, int32_t left)
{
    clipper.queued = 0;
    for (int32_t i = first; left > 0; --left, i = clipper.vertices[i].next)
        clipper.put(i);
}

// Takes a vertex out of the polygon. Its neighbours wait behind all others: next door, the next ears would make a fan of
// slivers.
static void cut_off(Clipper& clipper, const Vertex& vertex)
{
    Vertex* const vertices = clipper.vertices.data;
    vertices[vertex.previous].next = vertex.next;
    vertices[vertex.next].previous = vertex.previous;
    for (int32_t i : {vertex.previous, vertex.next})
    {
        const bool was_convex = std::exchange(vertices[i].is_convex, turn_at(vertices, i) > kStraightSine);
        if (vertices[i].blocker >= 0 && was_convex != vertices[i].is_convex)
            count_blocker(clipper, vertices[i].blocker, was_convex ? 1 : -1);
        clipper.put(i);
    }
}

// Cuts the projected polygon of `count` vertices into count - 2 triangles; false when it runs out of ears, because its
// projection crosses itself.
static bool clip(Clipper& clipper, int32_t count)
{
    Vertex* const vertices = clipper.vertices.data;
    clipper.blocker_count = 0;
    for (int32_t i = 0; i < count; ++i)
        if (!vertices[i].is_convex)
            clipper.blockers[clipper.blocker_count++].vertex = i;
    build_tree(clipper, 0, clipper.blocker_count);
    fill_queue(clipper, 0, count);
    int32_t* out = clipper.triangles.data;
    int32_t left = count, left_before = count; // when the queue was filled
    for (int32_t tried = 0, i = 0; left > 2; ++tried)
    {
        if (tried == clipper.queued) // rounding can hide an ear for a while
        {
            if (left == left_before)
                return false;
            fill_queue(clipper, vertices[i].next, left_before = left);
            tried = 0;
        }
        const Trial trial = clipper.queue[tried];
        const Vertex& vertex = vertices[trial.vertex];
        if (trial.round != vertex.round || !vertex.is_convex ||
            is_blocked(clipper, trial.vertex, 0, clipper.blocker_count))
            continue;
        i = trial.vertex;
        for (int32_t corner : {vertex.previous, i, vertex.next})
            *out++ = vertices[corner].node;
        cut_off(clipper, vertex);
        --left;
    }
    return true;
}

int clip_merged_faces(Surface& surface, const int32_t* merged)
{
    int64_t room = 0;
    int32_t longest = 0;
    for_each_face(surface.faces(), [&](const int32_t* face) {
        const int32_t count = vertex_count(*face);
        room += std::max(int64_t(count) + 1, 4 * (int64_t(count) - 2));
        longest = std::max(longest, count);
    });
    Clipper clipper(longest);
    Scratch<int32_t> words(room <= INT32_MAX ? room : -1);
    Scratch<char> states(room <= INT32_MAX ? room : -1);
    if (!clipper.allocated() || !words.data || !states.data)
        return no_memory(module_word::coarsening);
    FaceWriter out = {words.data, states.data};
    int32_t index = 0;
    for_each_face(surface.faces(), [&](const int32_t* face) {
        const int32_t count = vertex_count(*face), flags = *face & ~ZEL_FACE_VERTICES;
        const int32_t before = merged[index++];
        const FaceState state = before > 1 ? kChanged : kUnchanged;
        const bool may_clip = before > 1 && count - 2 <= before && (index % kOften != 0 || goes_on());
        if (!may_clip || project(surface, face, clipper.vertices.data) || !clip(clipper, count))
            return out.put(flags, face + 1, count, state);
        for (int32_t i = 0; i < count - 2; ++i)
            out.put(flags, clipper.triangles.data + 3 * i, 3, state);
    });
    if (is_ended())
        return 0;
    replace(surface.words, words);
    surface.length = out.length;
    surface.face_count = out.face_count;
    return cancel_pairs(surface, states.data);
}

} // namespace zel
