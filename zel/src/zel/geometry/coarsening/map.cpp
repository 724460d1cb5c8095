// What is left of the faces when their nodes have moved together. Only edges that return the way they came are taken out
// of a face, and only whole opposite faces, so that the directed edges of a closed surface stay in balance.
#include "base/base.h"
#include "coarsening.h"

namespace zel
{

static constexpr char kModule[] = "zelcoarse";

// A moved triangle is a triangle or nothing.
static void put_triangle(const int32_t* face, const int32_t* target, FaceWriter& out)
{
    const int32_t nodes[3] = {target[face[1]], target[face[2]], target[face[3]]};
    if (nodes[0] != nodes[1] && nodes[1] != nodes[2] && nodes[2] != nodes[0])
        out.put(*face & ~kVertexCountMask, nodes, 3);
}

// Writes the loops that a face's moved nodes form: whenever a node comes again, what lies between is a loop of its own.
// loop: room for the nodes of the face. place: of each node in the loop, -1 elsewhere, as it is left.
static void put_loops(const int32_t* face, const int32_t* target, int32_t* loop, int32_t* place, FaceWriter& out)
{
    const int32_t count = vertex_count(*face), flags = *face & ~kVertexCountMask;
    const int32_t least = count == 2 ? 2 : 3;
    int32_t length = 0;
    for (int32_t i = 1; i <= count; ++i)
    {
        const int32_t node = target[face[i]], seen = place[node];
        if (seen < 0)
        {
            place[node] = length;
            loop[length++] = node;
            continue;
        }
        if (length - seen >= 3)
            out.put(flags, loop + seen, length - seen);
        while (length > seen + 1)
            place[loop[--length]] = -1;
    }
    if (length >= least)
        out.put(flags, loop, length);
    while (length > 0)
        place[loop[--length]] = -1;
}

// Marks opposite faces of one bucket, pair by pair in their order, with a negative first node.
static void mark_pairs(Ring* rings, int32_t count, int32_t* words)
{
    sort_rings(rings, count);
    for (int32_t begin = 0, end; begin < count; begin = end)
    {
        end = begin + 1;
        while (end < count && compare(rings[begin], rings[end]) == 0)
            ++end;
        int32_t waiting = begin; // rings[begin] to rings[waiting - 1], used as a stack, wait for an opposite
        for (int32_t i = begin; i < end; ++i)
        {
            if (waiting > begin && rings[waiting - 1].forward != rings[i].forward)
            {
                words[rings[i].face - words + 1] = -1;
                words[rings[--waiting].face - words + 1] = -1;
            }
            else
                rings[waiting++] = rings[i];
        }
    }
}

// Drops faces that lie on each other in opposite directions.
static int cancel_pairs(Surface& surface)
{
    const FaceWords faces = surface.faces();
    FaceBuckets buckets(faces);
    if (!buckets.allocated())
        return no_memory(kModule);
    fill_buckets(faces, buckets);
    Scratch<Ring> rings(buckets.largest);
    if (!rings.data)
        return no_memory(kModule);
    int32_t* const words = surface.words;
    for (int32_t node = 0; node < surface.node_count; ++node)
    {
        const int32_t count = buckets.size(node);
        for (int32_t i = 0; i < count; ++i)
            rings[i] = ring_of(words + buckets.faces[buckets.begin(node) + i]);
        mark_pairs(rings.data, count, words);
    }
    FaceWriter out = {words};
    for_each_face(faces, [&](const int32_t* face) {
        if (face[1] >= 0)
            out.put(*face & ~kVertexCountMask, face + 1, vertex_count(*face));
    });
    surface.length = out.length;
    surface.face_count = out.face_count;
    return 1;
}

// Fills the list of the surface, which has room for `capacity` words and grows, with the faces on the targets of their
// nodes.
static int move_faces(const FaceWords& faces, const int32_t* target, Surface& surface, int32_t& capacity)
{
    constexpr int32_t kGrowth = 4096;
    int32_t longest = 0;
    for_each_face(faces, [&](const int32_t* face) { longest = std::max(longest, vertex_count(*face)); });
    Scratch<int32_t> loop(longest), place(surface.node_count);
    if (!loop.data || !place.data)
        return no_memory(kModule);
    std::fill_n(place.data, surface.node_count, -1);
    FaceWriter out = {surface.words};
    bool fits = true;
    for_each_face(faces, [&](const int32_t* face) {
        const int64_t count = vertex_count(*face), most_loops = 1 + count / 3;
        fits = fits && grow(surface.words, capacity, out.length + count + most_loops, kGrowth);
        if (!fits)
            return;
        out.words = surface.words;
        if (count == 3)
            put_triangle(face, target, out);
        else
            put_loops(face, target, loop.data, place.data, out);
    });
    if (!fits)
        return no_memory(kModule);
    surface.length = out.length;
    surface.face_count = out.face_count;
    return 1;
}

// Lets the nodes around those that must stay, but are on no moved face any more, stay in their places too, so that the
// faces there stay; `all`: around every node that must stay. Returns how many nodes that changes, -1 without memory.
static int32_t hold_neighbours(const FaceWords& faces, const Surface& moved, bool all, int32_t* target)
{
    if (!std::memchr(moved.keep, 1, size_t(moved.node_count)))
        return 0;
    Scratch<char> is_used(moved.node_count);
    if (!is_used.data)
        return no_memory(kModule), -1;
    for_each_face(moved.faces(), [&](const int32_t* face) {
        for (int32_t i = 1; i <= vertex_count(*face); ++i)
            is_used[face[i]] = 1;
    });
    int32_t held = 0;
    for_each_face(faces, [&](const int32_t* face) {
        const auto must_hold = [&](int32_t node) { return moved.keep[node] && (all || !is_used[node]); };
        const int32_t *first = face + 1, *last = first + vertex_count(*face);
        if (std::any_of(first, last, must_hold))
            std::for_each(first, last, [&](int32_t node) { held += std::exchange(target[node], node) != node; });
    });
    return held;
}

int map_faces(Surface& surface, const FaceWords& faces, int32_t* target)
{
    constexpr int kPatience = 4;
    int32_t capacity = 0, held = 1;
    for (int attempt = 0; held != 0; ++attempt)
    {
        if (!move_faces(faces, target, surface, capacity) || !cancel_pairs(surface))
            return 0;
        held = hold_neighbours(faces, surface, attempt >= kPatience, target);
        if (held < 0)
            return 0;
    }
    return 1;
}

} // namespace zel
