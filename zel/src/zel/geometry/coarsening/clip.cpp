// Polygons that are not convex become triangles by ear clipping (Meisters, Polygons have ears, 1975), in the plane of the
// polygon. Only vertices that are not convex can lie in an ear; they are kept sorted along one axis, so that an ear looks
// at those few in its own strip.
#include "base/base.h"
#include "coarsening.h"

namespace zel
{

static constexpr char kModule[] = "zelcoarse";

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
};

// Room for the work on one polygon of the longest kind.
struct Clipper
{
    Scratch<Vertex> vertices;
    Scratch<int32_t> blockers;  // vertices that were not convex at first, by ascending x
    Scratch<int32_t> triangles; // three nodes each
    explicit Clipper(int32_t longest) : vertices(longest), blockers(longest), triangles(3 * int64_t(longest)) {}
    bool allocated() const { return vertices.data && blockers.data && triangles.data; }
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
                       false};
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

// Whether the triangle at a convex vertex has no other vertex in it or on its edges.
static bool is_ear(const Clipper& clipper, int32_t blocker_count, int32_t i)
{
    const Vertex* vertices = clipper.vertices.data;
    const int32_t before = vertices[i].previous, after = vertices[i].next;
    const Point2 &a = vertices[before].at, &b = vertices[i].at, &c = vertices[after].at;
    const double lowest = std::min({a.x, b.x, c.x}), highest = std::max({a.x, b.x, c.x});
    const int32_t* const blockers = clipper.blockers.data;
    const int32_t* const end = blockers + blocker_count;
    const int32_t* blocker =
        std::lower_bound(blockers, end, lowest, [&](int32_t vertex, double x) { return vertices[vertex].at.x < x; });
    for (; blocker < end && vertices[*blocker].at.x <= highest; ++blocker)
    {
        const int32_t other = *blocker;
        const bool is_corner = other == before || other == i || other == after;
        if (!is_corner && !vertices[other].is_convex && is_inside(vertices[other].at, a, b, c))
            return false;
    }
    return true;
}

// Cuts the projected polygon of `count` vertices into count - 2 triangles; false when it runs out of ears, because its
// projection crosses itself.
static bool clip(Clipper& clipper, int32_t count)
{
    Vertex* const vertices = clipper.vertices.data;
    int32_t blocker_count = 0;
    for (int32_t i = 0; i < count; ++i)
        if (!vertices[i].is_convex)
            clipper.blockers[blocker_count++] = i;
    std::sort(clipper.blockers.data, clipper.blockers.data + blocker_count, [&](int32_t a, int32_t b) {
        return vertices[a].at.x != vertices[b].at.x ? vertices[a].at.x < vertices[b].at.x : a < b;
    });
    int32_t* out = clipper.triangles.data;
    int32_t left = count;
    for (int32_t i = 0, tried = 0; left > 2; ++tried)
    {
        if (tried > left)
            return false;
        Vertex& vertex = vertices[i];
        if (!vertex.is_convex || !is_ear(clipper, blocker_count, i))
        {
            i = vertex.next;
            continue;
        }
        for (int32_t corner : {vertex.previous, i, vertex.next})
            *out++ = vertices[corner].node;
        vertices[vertex.previous].next = vertex.next;
        vertices[vertex.next].previous = vertex.previous;
        vertex.is_convex = true; // it blocks nothing any more
        --left;
        for (int32_t corner : {vertex.previous, vertex.next})
            vertices[corner].is_convex = turn_at(vertices, corner) > kStraightSine;
        i = vertices[vertex.next].next; // not next door, which would make a fan of slivers
        tried = -1;
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
    if (!clipper.allocated() || !words.data)
        return no_memory(kModule);
    FaceWriter out = {words.data};
    int32_t index = 0;
    for_each_face(surface.faces(), [&](const int32_t* face) {
        const int32_t count = vertex_count(*face), flags = *face & ~kVertexCountMask;
        const int32_t before = merged[index++];
        const bool may_clip = before > 1 && count - 2 <= before;
        if (!may_clip || project(surface, face, clipper.vertices.data) || !clip(clipper, count))
            return out.put(flags, face + 1, count);
        for (int32_t i = 0; i < count - 2; ++i)
            out.put(flags, clipper.triangles.data + 3 * i, 3);
    });
    replace(surface.words, words);
    surface.length = out.length;
    surface.face_count = out.face_count;
    return 1;
}

} // namespace zel
