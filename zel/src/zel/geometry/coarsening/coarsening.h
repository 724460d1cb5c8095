// Coarsening of the face mesh, step by step. Each step reads a surface, keeps it closed where it is closed (every directed
// edge has its opposite) and returns 1, or 0 with a message when memory is short.
#ifndef ZEL_GEOMETRY_COARSENING_COARSENING_H
#define ZEL_GEOMETRY_COARSENING_COARSENING_H

#include "geometry/geometry.h"

#include <algorithm>
#include <cmath>

namespace zel
{

constexpr int kOften = 1024; // faces between two looks at whether the work goes on

struct Vector
{
    double x, y, z;
};
inline Vector operator+(const Vector& a, const Vector& b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vector operator-(const Vector& a, const Vector& b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vector operator*(double factor, const Vector& a)
{
    return {factor * a.x, factor * a.y, factor * a.z};
}
inline double dot(const Vector& a, const Vector& b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Vector cross(const Vector& a, const Vector& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double norm(const Vector& a)
{
    return std::sqrt(dot(a, a));
}

// The nodes that faces use, numbered from 0 in the order of their indexes, and the faces on them as far as they are made.
struct Surface
{
    int32_t node_count;
    const Vector* points;
    const char* keep;         // 1: the node must stay
    int32_t* words = nullptr; // owned
    int32_t length = 0, face_count = 0;
    Surface(int32_t nodes, const Vector* positions, const char* kept) : node_count(nodes), points(positions), keep(kept)
    {}
    ~Surface() { std::free(words); }
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;
    FaceWords faces() const { return {words, length, face_count, node_count}; }
};

// What may become of a face that lies on another one the other way round.
enum FaceState : char
{
    kStays,
    kUnchanged, // both go when the other one has changed
    kChanged,
    kGone
};

// Appends faces to a list that has room for them; the nodes may lie further on in the same list. states: where it is wanted,
// as long as the list.
struct FaceWriter
{
    int32_t* words;
    char* states = nullptr;
    int32_t length = 0, face_count = 0;
    void put(int32_t flags, const int32_t* nodes, int32_t count, FaceState state = kStays)
    {
        words[length] = flags | count;
        if (states)
            states[length] = state;
        std::copy(nodes, nodes + count, words + length + 1);
        length += 1 + count;
        face_count += 1;
    }
};

// Scrambles a node, so that sums over a few do not agree by chance (Fibonacci hashing, Knuth 1973, with its high bits folded
// in).
inline uint64_t scrambled(int32_t node)
{
    const uint64_t product = (uint64_t(uint32_t(node)) + 1) * 0x9E3779B97F4A7C15u;
    return product ^ (product >> 29);
}

// Normal of a face, twice its area long (Newell's sum, taken from the first vertex). Zero for fewer than 3 vertices.
inline Vector area_normal(const Vector* points, const int32_t* face)
{
    const int32_t count = vertex_count(*face);
    Vector sum = {0.0, 0.0, 0.0};
    if (count < 3)
        return sum;
    const Vector origin = points[face[1]];
    Vector spoke = points[face[2]] - origin;
    for (int32_t i = 3; i <= count; ++i)
    {
        const Vector next = points[face[i]] - origin;
        sum = sum + cross(spoke, next);
        spoke = next;
    }
    return sum;
}

// A face among those that lie on it the other way round.
enum Twin : char
{
    kSingle,
    kFirstOfTwo,
    kSecondOfTwo
};

// Finds the faces that lie on each other in opposite directions, pair by pair: the two sides of a shell. twins
// [faces.length]: a Twin at the place of every count word, zero before.
int find_opposite_faces(const FaceWords& faces, char* twins);

// Merges the nodes of one cell of a grid that are connected by edges of `faces` within the cell. A cell's size is
// `resolution` percent of the longest side of the nodes' bounding box; 0 merges none. target [node_count]: the node that
// takes the place of each one.
int cluster_nodes(const Surface& surface, const FaceWords& faces, const char* twins, double resolution,
                  int32_t* target);

// Makes the faces of the surface: those of `faces` on the targets of their nodes, without what that makes void: repeated
// nodes, faces without area, pairs of opposite faces. Two sides of a shell stay, and so do faces on nodes that must. Where
// such a node would lose its faces, the nodes around it keep their places after all and become their own targets.
int map_faces(Surface& surface, const FaceWords& faces, const char* twins, int32_t* target);

// Drops faces that lie on each other in opposite directions, but none on a node that must stay, and not all that hang
// together. states [surface.length]: a FaceState at the place of every count word.
int cancel_pairs(Surface& surface, char* states);

// Merges neighbouring faces whose normals are within `angle` [rad] of the largest one's. merged: so many faces became each
// face, an array for the caller.
int merge_planar_faces(Surface& surface, double angle, Scratch<int32_t>& merged);

// Drops vertices in the middle of a straight edge that one face has, or two share.
int drop_straight_vertices(Surface& surface);

// Cuts merged faces that are not convex into triangles, unless these are more than the faces that were merged. Where a
// merged face or one of its triangles then lies on another face the other way round, both go.
int clip_merged_faces(Surface& surface, const int32_t* merged);

} // namespace zel

#endif
