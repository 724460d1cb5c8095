// Comparison of the faces: the same list, or the same faces in another order, each from another of its nodes on.
#include "compare.h"
#include "geometry/geometry.h"

namespace zel
{

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
    return node >= 0 && node < c.fresh->node_count ? c.base_node[node] : node;
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
    const ZELDATA *fresh = c.fresh, *base = c.base;
    if (fresh->face_list_length != base->face_list_length)
        return false;
    for (int32_t at = 0; at < fresh->face_list_length;)
    {
        const int32_t vertices = vertex_count(fresh->face_list[at]);
        if (fresh->face_list[at] != base->face_list[at])
            return false;
        for (int32_t i = 1; i <= vertices; ++i)
            if (mapped(c, fresh->face_list[at + i]) != base->face_list[at + i])
                return false;
        at += 1 + vertices;
    }
    return true;
}

int compare_faces(Comparison& c, const Block& row)
{
    Finding faces = {"faces", row.number};
    if (!both_have(c, faces))
        return 0;
    const ZELDATA *fresh = c.fresh, *base = c.base;
    expect_equal(c, {"length of the face list", row.number}, fresh->face_list_length, base->face_list_length,
                 "FaceListSize", "FaceListSize");
    expect_equal(c, {"face count", row.number}, fresh->face_count, base->face_count, "FaceCount", "FaceCount");
    faces.worst = 0.0;
    if (same_lists(c))
    {
        tell(c, ZEL_COMPARISON_PASS, faces, "  Pass FaceList A\n");
        return 0;
    }
    bool same = false;
    if (fresh->face_list_length == base->face_list_length && fresh->face_count == base->face_count)
    {
        FaceTable fresh_faces(fresh), base_faces(base);
        if (!fresh_faces.allocated() || !base_faces.allocated())
            return no_room(c);
        fill(fresh_faces, fresh, [&](int32_t node) { return mapped(c, node); });
        fill(base_faces, base, [](int32_t node) { return node; });
        same = same_faces(fresh_faces, base_faces);
    }
    faces.worst = same ? 0.0 : 1.0;
    if (same)
        tell(c, ZEL_COMPARISON_PASS, faces, "  Pass FaceList B\n");
    else
        tell(c, ZEL_COMPARISON_FAIL, faces, "->Fail FaceList\n");
    return same ? 0 : -1;
}

} // namespace zel
