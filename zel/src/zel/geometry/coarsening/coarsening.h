// Coarsening of the face mesh, step by step. Each step reads a surface, keeps it closed where it is closed (every directed
// edge has its opposite) and returns 1, or 0 with a message when memory is short.
#ifndef ZEL_GEOMETRY_COARSENING_COARSENING_H
#define ZEL_GEOMETRY_COARSENING_COARSENING_H

#include "geometry/geometry.h"

#include <algorithm>
#include <cmath>

namespace zel
{

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

// Appends faces to a list that has room for them; the nodes may lie further on in the same list.
struct FaceWriter
{
    int32_t* words;
    int32_t length = 0, face_count = 0;
    void put(int32_t flags, const int32_t* nodes, int32_t count)
    {
        words[length] = flags | count;
        std::copy(nodes, nodes + count, words + length + 1);
        length += 1 + count;
        face_count += 1;
    }
};

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

// Merges the nodes of one cell of a grid that are connected by edges of `faces` within the cell. A cell's size is
// `resolution` percent of the longest side of the nodes' bounding box; 0 merges none. target [node_count]: the node that
// takes the place of each one.
int cluster_nodes(const Surface& surface, const FaceWords& faces, double resolution, int32_t* target);

// Makes the faces of the surface: those of `faces` on the targets of their nodes, without what that makes void: repeated
// nodes, faces without area, pairs of opposite faces. Where a node that must stay would lose its faces, the nodes around
// it keep their places after all and become their own targets.
int map_faces(Surface& surface, const FaceWords& faces, int32_t* target);

// Merges neighbouring faces whose normals are within `angle` [rad] of the largest one's. merged: so many faces became each
// face, an array for the caller.
int merge_planar_faces(Surface& surface, double angle, Scratch<int32_t>& merged);

// Drops vertices in the middle of a straight edge that one face has, or two share.
int drop_straight_vertices(Surface& surface);

// Cuts merged faces that are not convex into triangles, unless these are more than the faces that were merged.
int clip_merged_faces(Surface& surface, const int32_t* merged);

} // namespace zel

#endif
