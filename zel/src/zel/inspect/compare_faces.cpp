// Comparison of the faces: the same list, or the same faces in another order, each from another of its nodes on.
#include "compare.h"
#include "geometry/geometry.h"

using namespace zel;

static constexpr char kModule[] = "zelcompare";

namespace
{
// Faces in the base's node indexes, each from that node on that makes the sequence smallest, and an order to sort.
struct FaceTable
{
    int count;
    Scratch<int32_t> words;   // the list
    Scratch<int32_t> offsets; // of its faces, sorted
    explicit FaceTable(const ZELDATA* db) : count(0), words(db->face_list_length), offsets(db->face_count) {}
    bool allocated() const { return words.data && offsets.data; }
};
} // namespace

static int32_t mapped(const Comparison& c, int32_t node)
{
    return node >= 0 && node < c.made->node_count ? c.base_node[node] : node;
}

// Where the smallest rotation of a ring starts. Two candidates race; the one that falls behind jumps over all starts that
// it has beaten with, so that the whole takes linear time.
static int32_t smallest_rotation(const int32_t* ring, int32_t count)
{
    int32_t first = 0, second = 1;
    for (int32_t length = 0; first < count && second < count && length < count;)
    {
        const int32_t a = ring[(int64_t(first) + length) % count], b = ring[(int64_t(second) + length) % count];
        if (a == b)
        {
            ++length;
            continue;
        }
        (a > b ? first : second) += length + 1;
        if (first == second)
            ++second;
        length = 0;
    }
    return std::min(first, second);
}

// Fills a table from the faces of a database, of which `node_of` gives the nodes.
template <typename NodeOf> static void fill(FaceTable& table, const ZELDATA* db, NodeOf node_of)
{
    int32_t* list = table.words.data;
    for (int32_t at = 0; at < db->face_list_length && table.count < db->face_count;)
    {
        const int32_t vertices = vertex_count(db->face_list[at]);
        table.offsets[table.count++] = at;
        list[at] = db->face_list[at];
        for (int32_t i = 1; i <= vertices; ++i)
            list[at + i] = node_of(db->face_list[at + i]);
        std::rotate(list + at + 1, list + at + 1 + smallest_rotation(list + at + 1, vertices),
                    list + at + 1 + vertices);
        at += 1 + vertices;
    }
    std::sort(table.offsets.data, table.offsets.data + table.count, [list](int32_t a, int32_t b) {
        return std::lexicographical_compare(list + a, list + a + 1 + vertex_count(list[a]), list + b,
                                            list + b + 1 + vertex_count(list[b]));
    });
}

static bool same_faces(const FaceTable& a, const FaceTable& b)
{
    for (int i = 0; i < a.count; ++i)
    {
        const int32_t *x = a.words.data + a.offsets[i], *y = b.words.data + b.offsets[i];
        if (*x != *y || !std::equal(x + 1, x + 1 + vertex_count(*x), y + 1))
            return false;
    }
    return true;
}

// The lists word for word, but for the numbering of the nodes.
static bool same_lists(const Comparison& c)
{
    const ZELDATA *made = c.made, *base = c.base;
    if (made->face_list_length != base->face_list_length)
        return false;
    for (int32_t at = 0; at < made->face_list_length;)
    {
        const int32_t vertices = vertex_count(made->face_list[at]);
        if (made->face_list[at] != base->face_list[at])
            return false;
        for (int32_t i = 1; i <= vertices; ++i)
            if (mapped(c, made->face_list[at + i]) != base->face_list[at + i])
                return false;
        at += 1 + vertices;
    }
    return true;
}

int zel::compare_faces(Comparison& c)
{
    if (!both_have(c, ZEL_BLOCK_FACES))
        return 0;
    const ZELDATA *made = c.made, *base = c.base;
    const bool same_length = made->face_list_length == base->face_list_length;
    const bool same_count = made->face_count == base->face_count;
    expect_equal(c, same_length, "FaceListSize", "FaceListSize");
    expect_equal(c, same_count, "FaceCount", "FaceCount");
    if (same_lists(c))
    {
        say(c, kPasses, "  Pass FaceList A\n");
        return 0;
    }
    bool same = false;
    if (same_length && same_count)
    {
        FaceTable made_faces(made), base_faces(base);
        if (!made_faces.allocated() || !base_faces.allocated())
            return no_memory(kModule), -1;
        fill(made_faces, made, [&](int32_t node) { return mapped(c, node); });
        fill(base_faces, base, [](int32_t node) { return node; });
        same = same_faces(made_faces, base_faces);
    }
    say(c, same ? kPasses : kFails, same ? "  Pass FaceList B\n" : "->Fail FaceList\n");
    return same ? 0 : -1;
}
