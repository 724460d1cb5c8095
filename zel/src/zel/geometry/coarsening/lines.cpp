// Vertices in the middle of straight edges. A vertex goes from both faces of its edge at once, so that they still share it.
#include "base/base.h"
#include "coarsening.h"

namespace zel
{

namespace
{
// Where a node is used: its corners, as places in the word list, as far as there are two at most.
struct NodeUse
{
    int32_t count, corner[2];
};

// The vertices of the faces as rings that shrink.
struct Rings
{
    Scratch<int32_t> next, previous; // corners, by corner
    Scratch<int32_t> face;           // place of the count word, by corner
    Scratch<int32_t> size;           // vertices left, by place of the count word
    explicit Rings(int32_t length) : next(length), previous(length), face(length), size(length) {}
    bool allocated() const { return next.data && previous.data && face.data && size.data; }
    void drop(int32_t corner)
    {
        next[previous[corner]] = next[corner];
        previous[next[corner]] = previous[corner];
        next[corner] = -1;
        size[face[corner]] -= 1;
    }
};
} // namespace

static void fill_rings(const Surface& surface, Rings& rings, NodeUse* uses)
{
    for_each_face(surface.faces(), [&](const int32_t* word) {
        const int32_t place = int32_t(word - surface.words), count = vertex_count(*word);
        rings.size[place] = count;
        for (int32_t corner = place + 1; corner <= place + count; ++corner)
        {
            rings.face[corner] = place;
            rings.next[corner] = corner < place + count ? corner + 1 : place + 1;
            rings.previous[corner] = corner > place + 1 ? corner - 1 : place + count;
            NodeUse& use = uses[surface.words[corner]];
            if (use.count < 2)
                use.corner[use.count] = corner;
            use.count += 1;
        }
    });
}

// Whether the way from a over b to c bends by less than a limit.
static bool is_straight(const Vector& a, const Vector& b, const Vector& c)
{
    constexpr double kStraight = 1e-3; // [rad]
    const Vector in = b - a, out = c - b;
    return std::atan2(norm(cross(in, out)), dot(in, out)) < kStraight;
}

static bool can_drop(const Surface& surface, const Rings& rings, int32_t node, const NodeUse& use)
{
    if (surface.keep[node] || use.count < 1 || use.count > 2)
        return false;
    int32_t neighbour[2][2];
    for (int32_t i = 0; i < use.count; ++i)
    {
        const int32_t corner = use.corner[i];
        if (rings.size[rings.face[corner]] <= 3)
            return false;
        const int32_t before = surface.words[rings.previous[corner]], after = surface.words[rings.next[corner]];
        neighbour[i][0] = std::min(before, after);
        neighbour[i][1] = std::max(before, after);
    }
    if (use.count == 2 && (neighbour[0][0] != neighbour[1][0] || neighbour[0][1] != neighbour[1][1]))
        return false;
    return is_straight(surface.points[neighbour[0][0]], surface.points[node], surface.points[neighbour[0][1]]);
}

int drop_straight_vertices(Surface& surface)
{
    Rings rings(surface.length);
    Scratch<NodeUse> uses(surface.node_count);
    if (!rings.allocated() || !uses.data)
        return no_memory(module_word::coarsening);
    fill_rings(surface, rings, uses.data);
    for (int32_t node = 0; node < surface.node_count; ++node)
        if (can_drop(surface, rings, node, uses[node]))
            for (int32_t i = 0; i < uses[node].count; ++i)
                rings.drop(uses[node].corner[i]);
    int32_t* const words = surface.words;
    int32_t length = 0;
    for_each_face(surface.faces(), [&](const int32_t* word) {
        const int32_t place = int32_t(word - words), count = vertex_count(*word);
        const int32_t flags = *word & ~ZEL_FACE_VERTICES;
        words[length++] = flags | rings.size[place];
        for (int32_t corner = place + 1; corner <= place + count; ++corner)
            if (rings.next[corner] >= 0)
                words[length++] = words[corner];
    });
    surface.length = length;
    return 1;
}

} // namespace zel
