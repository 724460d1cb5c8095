// What is left of the faces when their nodes have moved together. Only edges that return the way they came are taken out
// of a face, and only whole opposite faces, so that the directed edges of a closed surface stay in balance. The two sides of
// a shell have been opposite faces from the start, and are no fold.
#include "base/base.h"
#include "coarsening.h"

namespace zel
{

// A moved triangle is a triangle or nothing.
static void put_triangle(const int32_t* face, const int32_t* target, FaceState state, FaceWriter& out)
{
    const int32_t nodes[3] = {target[face[1]], target[face[2]], target[face[3]]};
    if (nodes[0] != nodes[1] && nodes[1] != nodes[2] && nodes[2] != nodes[0])
        out.put(*face & ~ZEL_FACE_VERTICES, nodes, 3, state);
}

// Writes the loops that a face's moved nodes form: whenever a node comes again, what lies between is a loop of its own.
// loop: room for the nodes of the face. place: of each node in the loop, -1 elsewhere, as it is left.
static void put_loops(const int32_t* face, const int32_t* target, FaceState state, int32_t* loop, int32_t* place,
                      FaceWriter& out)
{
    const int32_t count = vertex_count(*face), flags = *face & ~ZEL_FACE_VERTICES;
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
            out.put(flags, loop + seen, length - seen, state);
        while (length > seen + 1)
            place[loop[--length]] = -1;
    }
    if (length >= least)
        out.put(flags, loop, length, state);
    while (length > 0)
        place[loop[--length]] = -1;
}

// Calls action(rings, count) with every group of faces that lie on each other, either way round, in their order.
template <typename Action> static int for_each_pile(const FaceWords& faces, Action action)
{
    FaceBuckets buckets(faces);
    if (!buckets.allocated())
        return no_memory(module_word::coarsening);
    fill_buckets(faces, buckets);
    Scratch<Ring> rings(buckets.largest);
    if (!rings.data)
        return no_memory(module_word::coarsening);
    for (int32_t node = 0; node < faces.node_count; ++node)
    {
        const int32_t count = buckets.size(node);
        for (int32_t i = 0; i < count; ++i)
            rings[i] = ring_of(faces.words + buckets.faces[buckets.begin(node) + i]);
        sort_rings(rings.data, count);
        for (int32_t begin = 0, end; begin < count; begin = end)
        {
            for (end = begin + 1; end < count && compare(rings[begin], rings[end]) == 0;)
                ++end;
            if (end - begin > 1)
                action(rings.data + begin, end - begin);
        }
    }
    return 1;
}

// Calls action(face, its opposite) pair by pair.
template <typename Action> static void for_each_pair(Ring* rings, int32_t count, Action action)
{
    int32_t waiting = 0; // rings[0] to rings[waiting - 1], used as a stack, wait for an opposite
    for (int32_t i = 0; i < count; ++i)
        if (waiting > 0 && rings[waiting - 1].forward != rings[i].forward)
            action(rings[--waiting].face, rings[i].face);
        else
            rings[waiting++] = rings[i];
}

// Whether faces may lie on each other: two have the same sum over their nodes. -1 without memory.
static int may_have_piles(const FaceWords& faces)
{
    int64_t room = 1;
    while (room < 2 * int64_t(faces.face_count))
        room *= 2;
    Scratch<uint32_t> sums(room); // their high halves, 0 where there is none
    if (!sums.data)
        return no_memory(module_word::coarsening), -1;
    bool any = false;
    for_each_face(faces, [&](const int32_t* face) {
        uint64_t whole = 0;
        for (int32_t i = 1; i <= vertex_count(*face); ++i)
            whole += scrambled(face[i]);
        const uint32_t sum = uint32_t(whole >> 32);
        int64_t at = int64_t(whole & uint64_t(room - 1));
        while (!any && sums[at] != 0 && sums[at] != sum)
            at = (at + 1) & (room - 1);
        any = any || sum == 0 || sums[at] == sum;
        sums[at] = sum;
    });
    return any;
}

int find_opposite_faces(const FaceWords& faces, char* twins)
{
    const int any = may_have_piles(faces);
    if (any <= 0)
        return any == 0;
    return for_each_pile(faces, [&](Ring* rings, int32_t count) {
        for_each_pair(rings, count, [&](const int32_t* first, const int32_t* second) {
            twins[first - faces.words] = kFirstOfTwo;
            twins[second - faces.words] = kSecondOfTwo;
        });
    });
}

// Lets faces of which all that hang together over common nodes would go stay.
static int spare_whole_parts(const FaceWords& faces, char* states)
{
    Scratch<int32_t> parent(faces.node_count);
    Scratch<char> has_more(faces.node_count);
    if (!parent.data || !has_more.data)
        return no_memory(module_word::coarsening);
    for (int32_t node = 0; node < faces.node_count; ++node)
        parent[node] = node;
    const auto root = [&](int32_t node) {
        while (parent[node] != node)
            node = parent[node] = parent[parent[node]];
        return node;
    };
    for_each_face(faces, [&](const int32_t* face) {
        for (int32_t i = 2; i <= vertex_count(*face); ++i)
        {
            const int32_t a = root(face[1]), b = root(face[i]);
            parent[std::max(a, b)] = std::min(a, b);
        }
    });
    for_each_face(faces, [&](const int32_t* face) {
        if (states[face - faces.words] != kGone)
            has_more[root(face[1])] = 1;
    });
    for_each_face(faces, [&](const int32_t* face) {
        if (!has_more[root(face[1])])
            states[face - faces.words] = kStays;
    });
    return 1;
}

int cancel_pairs(Surface& surface, char* states)
{
    const FaceWords faces = surface.faces();
    const auto state = [&](const int32_t* face) -> char& { return states[face - faces.words]; };
    for_each_face(faces, [&](const int32_t* face) {
        if (std::any_of(face + 1, face + 1 + vertex_count(*face), [&](int32_t node) { return surface.keep[node]; }))
            state(face) = kStays;
    });
    bool any = false;
    const auto cancel = [&](const int32_t* a, const int32_t* b) {
        state(a) = state(b) = kGone;
        any = true;
    };
    const int done = for_each_pile(faces, [&](Ring* rings, int32_t count) {
        Ring* const changed =
            std::stable_partition(rings, rings + count, [&](const Ring& ring) { return state(ring.face) == kChanged; });
        for_each_pair(rings, int32_t(changed - rings), cancel);
        for (Ring *left = rings, *other = changed; other < rings + count; ++other)
        {
            while (left < changed && state(left->face) == kGone)
                ++left;
            if (left < changed && state(other->face) == kUnchanged && left->forward != other->forward)
                cancel(left->face, other->face);
        }
    });
    if (!done || (any && !spare_whole_parts(faces, states)))
        return 0;
    FaceWriter out = {surface.words};
    for_each_face(faces, [&](const int32_t* face) {
        if (state(face) != kGone)
            out.put(*face & ~ZEL_FACE_VERTICES, face + 1, vertex_count(*face));
    });
    surface.length = out.length;
    surface.face_count = out.face_count;
    return 1;
}

// What becomes of a face whose nodes move.
static FaceState moved_state(const FaceWords& faces, const char* twins, const int32_t* target, const int32_t* face)
{
    if (twins[face - faces.words] != kSingle)
        return kStays;
    const auto moves = [&](int32_t node) { return target[node] != node; };
    return std::any_of(face + 1, face + 1 + vertex_count(*face), moves) ? kChanged : kUnchanged;
}

// The list of faces for a surface: so long at most, whatever loops the faces form.
static int64_t most_words(int64_t words)
{
    return words + words / 3;
}

// Fills the list of the surface, which has room for `capacity` words and grows, with the faces on the targets of their
// nodes. states [most_words(faces.length)]: of the new faces.
static int move_faces(const FaceWords& faces, const char* twins, const int32_t* target, Surface& surface,
                      int32_t& capacity, char* states)
{
    constexpr int32_t kGrowth = 4096;
    int32_t longest = 0;
    for_each_face(faces, [&](const int32_t* face) { longest = std::max(longest, vertex_count(*face)); });
    Scratch<int32_t> loop(longest), place(surface.node_count);
    if (!loop.data || !place.data)
        return no_memory(module_word::coarsening);
    std::fill_n(place.data, surface.node_count, -1);
    FaceWriter out = {surface.words, states};
    bool fits = true;
    for_each_face(faces, [&](const int32_t* face) {
        const int64_t count = vertex_count(*face), most_loops = 1 + count / 3;
        fits = fits && grow(surface.words, capacity, out.length + count + most_loops, kGrowth);
        if (!fits)
            return;
        out.words = surface.words;
        const FaceState state = moved_state(faces, twins, target, face);
        if (count == 3)
            put_triangle(face, target, state, out);
        else
            put_loops(face, target, state, loop.data, place.data, out);
    });
    if (!fits)
        return no_memory(module_word::coarsening);
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
        return no_memory(module_word::coarsening), -1;
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

int map_faces(Surface& surface, const FaceWords& faces, const char* twins, int32_t* target)
{
    constexpr int kPatience = 4;
    Scratch<char> states(most_words(faces.length));
    if (!states.data)
        return no_memory(module_word::coarsening);
    int32_t capacity = 0, held = 1;
    for (int attempt = 0; held != 0; ++attempt)
    {
        if (!move_faces(faces, twins, target, surface, capacity, states.data) || !cancel_pairs(surface, states.data))
            return 0;
        held = hold_neighbours(faces, surface, attempt >= kPatience, target);
        if (held < 0 || !goes_on())
            return 0;
    }
    return 1;
}

} // namespace zel
