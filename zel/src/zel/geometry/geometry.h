// The face list as flat words: per face a count word, then its node indexes. The low 30 bits of a count word are the
// vertex count; the two top bits are flags that travel with the face.
#ifndef ZEL_GEOMETRY_GEOMETRY_H
#define ZEL_GEOMETRY_GEOMETRY_H

#include "base/base.h"
#include "zel.h"

namespace zel
{

inline int32_t vertex_count(int32_t count_word)
{
    return count_word & ZEL_FACE_VERTICES;
}

// A face list over nodes 0 to node_count - 1.
struct FaceWords
{
    const int32_t* words;
    int32_t length, face_count, node_count;
};

inline FaceWords faces_of(const ZELDATA* db)
{
    return {db->face_list, db->face_list_length, db->face_count, db->node_count};
}

// Calls action(face) with the count word of every face, in order. The action may write over the face and those before it.
template <typename Action> void for_each_face(const FaceWords& list, Action action)
{
    for (int64_t at = 0; at < list.length;)
    {
        const int32_t* face = list.words + at;
        at += 1 + vertex_count(*face);
        action(face);
    }
}

// A face read from its largest node on, so that faces on the same nodes can be compared.
struct Ring
{
    const int32_t* face; // the count word, behind it the nodes
    int32_t start;       // position of the largest node, the first one on a tie
    bool forward;        // the larger neighbour of the largest node comes next in the face, not before it
    int32_t size() const { return vertex_count(*face); }
    int32_t node(int32_t position) const // of the rotated face
    {
        const int32_t from_start = size() - start;
        return face[1 + (position < from_start ? start + position : position - from_start)];
    }
    // The walk towards the larger neighbour, step 0 the largest node.
    int32_t walked(int32_t step) const { return node(forward || step == 0 ? step : size() - step); }
};
Ring ring_of(const int32_t* face);

// Negative, zero or positive as a comes before, with or behind b: by count word, then node by node along the walk.
int compare(const Ring& a, const Ring& b);

// Sorts rings, equal ones in the order of the face list.
void sort_rings(Ring* rings, int32_t count);

// Faces grouped by their largest node, which equal faces share, in the order of the list: bucket n is faces[start[n]] to
// faces[start[n + 1]]. A face is named by the place of its count word.
struct FaceBuckets
{
    Scratch<int32_t> start, faces;
    int32_t largest = 0; // faces in the largest bucket
    explicit FaceBuckets(const FaceWords& list) : start(int64_t(list.node_count) + 2), faces(list.face_count) {}
    bool allocated() const { return start.data && faces.data; }
    int32_t begin(int32_t node) const { return start[node]; }
    int32_t size(int32_t node) const { return start[node + 1] - start[node]; }
};
void fill_buckets(const FaceWords& list, FaceBuckets& buckets); // which have been allocated

// Puts a finished, owned list of `words` words in the place of the database's faces.
void install_faces(ZELDATA* db, int32_t* list, int32_t faces, int32_t words, int32_t capacity);

} // namespace zel

#endif
