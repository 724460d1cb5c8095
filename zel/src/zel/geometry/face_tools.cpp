// Tools on the face list: the nodes that it uses, removal of the faces between two elements, replacement by a sketch.
//
// Common faces are found by sorting. Faces are first bucketed by their largest node, which equal faces share; a bucket
// holds the few faces around one node, so that the sort inside it is short and in cache. Beside the new list this takes
// one integer a face and one a node.
#include "database/database.h"
#include "geometry.h"
#include "zel.h"

#include <algorithm>
#include <cctype>

namespace zel
{

static int32_t largest_node(const int32_t* face)
{
    return *std::max_element(face + 1, face + 1 + vertex_count(*face));
}

Ring ring_of(const int32_t* face)
{
    const int32_t* nodes = face + 1;
    const int32_t count = vertex_count(*face);
    Ring ring = {face, int32_t(std::max_element(nodes, nodes + count) - nodes), false};
    ring.forward = count > 1 && ring.node(count - 1) < ring.node(1);
    return ring;
}

int compare(const Ring& a, const Ring& b)
{
    if (*a.face != *b.face)
        return *a.face < *b.face ? -1 : 1;
    for (int32_t step = 0; step < a.size(); ++step)
        if (const int32_t left = a.walked(step), right = b.walked(step); left != right)
            return left < right ? -1 : 1;
    return 0;
}

void sort_rings(Ring* rings, int32_t count)
{
    std::sort(rings, rings + count, [](const Ring& a, const Ring& b) {
        const int order = compare(a, b);
        return order != 0 ? order < 0 : a.face < b.face;
    });
}

void fill_buckets(const FaceWords& list, FaceBuckets& buckets)
{
    Scratch<int32_t>& start = buckets.start; // of node n at n + 2 while counting, at n + 1 while filling, then at n
    for_each_face(list, [&](const int32_t* face) { ++start[largest_node(face) + 2]; });
    for (int32_t node = 0; node < list.node_count; ++node)
    {
        buckets.largest = std::max(buckets.largest, start[node + 2]);
        start[node + 2] += start[node + 1];
    }
    for_each_face(list, [&](const int32_t* face) {
        buckets.faces[start[largest_node(face) + 1]++] = int32_t(face - list.words);
    });
}

void install_faces(ZELDATA* db, int32_t* list, int32_t faces, int32_t words, int32_t capacity)
{
    discard(db->face_list);
    db->face_list = list;
    db->face_count = faces;
    db->face_list_length = words;
    db->face_capacity = capacity;
    if (faces > 0)
        raise_flag(db, ZEL_BLOCK_FACES);
    else
        clear_flag(db, ZEL_BLOCK_FACES);
    faces_changed(db);
}

// ---- Geometry nodes -----------------------------------------------------------------------------------------------

// Fills the cache with the nodes of faces and interface nodes, ascending; it stays empty when there are none.
static int find_geometry_nodes(ZELDATA* db)
{
    Scratch<char> used(db->node_count);
    if (!used.data)
        return no_memory(module_word::tools);
    int32_t count = 0;
    const auto use = [&](int32_t node) {
        if (node < 0 || node >= db->node_count || used[node])
            return;
        used[node] = 1;
        ++count;
    };
    for_each_face(faces_of(db), [&](const int32_t* face) { std::for_each_n(face + 1, vertex_count(*face), use); });
    for (int32_t i = 0; i < db->interface_count; ++i)
        use(db->interface_nodes[i]);
    if (count == 0)
        return 1;
    Scratch<int32_t> nodes(count);
    if (!nodes.data)
        return no_memory(module_word::tools);
    int32_t found = 0;
    for (int32_t node = 0; node < db->node_count; ++node)
        if (used[node])
            nodes[found++] = node;
    replace(db->geometry_nodes, nodes);
    db->geometry_node_count = count;
    return 1;
}

// ---- Common faces -------------------------------------------------------------------------------------------------

// Sorts the rings of one bucket and keeps what is no common face: of copies with the same direction the last one, of
// opposite copies none. `last_of_all`: the last ring ends the whole sorted list; it is kept only if it is new or has the
// direction of the one before, even when that one is gone with its opposite. The kept faces go to `kept`; returns how
// many they are.
static int32_t strip_bucket(Ring* rings, int32_t count, bool last_of_all, const int32_t* list, int32_t* kept)
{
    sort_rings(rings, count);
    int32_t kept_count = 0;
    for (int32_t i = 0; i < count; ++i)
    {
        if (i + 1 < count && compare(rings[i], rings[i + 1]) == 0)
        {
            if (rings[i].forward != rings[i + 1].forward)
                ++i;
            continue;
        }
        const bool ends_all = last_of_all && i + 1 == count;
        if (ends_all && i > 0 && compare(rings[i - 1], rings[i]) == 0 && rings[i - 1].forward != rings[i].forward)
            continue;
        kept[kept_count++] = int32_t(rings[i].face - list);
    }
    return kept_count;
}

// The largest node of the face that ends the whole sorted list.
static int32_t last_bucket(const FaceWords& list)
{
    int32_t last_word = INT32_MIN, last_node = -1;
    for_each_face(list, [&](const int32_t* face) {
        if (*face < last_word)
            return;
        last_node = *face > last_word ? largest_node(face) : std::max(last_node, largest_node(face));
        last_word = *face;
    });
    return last_node;
}

// Drops the common faces from the buckets; the others move to the front of buckets.faces, in order. Returns how many
// they are.
static int32_t strip_buckets(const FaceWords& faces, FaceBuckets& buckets, Ring* rings)
{
    const int32_t* list = faces.words;
    const int32_t last = last_bucket(faces);
    int32_t* const stripped = buckets.faces.data;
    int32_t kept = 0;
    for (int32_t node = 0; node < faces.node_count; ++node)
    {
        const int32_t count = buckets.size(node);
        for (int32_t i = 0; i < count; ++i)
            rings[i] = ring_of(list + buckets.faces[buckets.begin(node) + i]);
        kept += strip_bucket(rings, count, node == last, list, stripped + kept);
    }
    // One bucket after the other, the faces are in order already where all count words are the same.
    if (!std::is_sorted(stripped, stripped + kept, [list](int32_t a, int32_t b) { return list[a] < list[b]; }))
        std::sort(stripped, stripped + kept,
                  [list](int32_t a, int32_t b) { return compare(ring_of(list + a), ring_of(list + b)) < 0; });
    return kept;
}

// ---- Sketch -------------------------------------------------------------------------------------------------------

namespace
{
// Text file that is closed at the end of its scope.
struct TextFile
{
    FILE* file;
    explicit TextFile(const char* name) : file(std::fopen(name, "r")) {}
    ~TextFile()
    {
        if (file)
            std::fclose(file);
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
};

// A list of words that grows as it is filled.
struct WordList
{
    int32_t* words = nullptr;
    int32_t count = 0, capacity = 0;
    WordList() = default;
    ~WordList() { std::free(words); }
    WordList(const WordList&) = delete;
    WordList& operator=(const WordList&) = delete;
    bool append(int32_t word)
    {
        constexpr int32_t kGrowth = 1000;
        if (!grow(words, capacity, int64_t(count) + 1, kGrowth))
            return false;
        words[count++] = word;
        return true;
    }
};
} // namespace

// Reads the next decimal integer behind white space. False at anything else, also at a number that needs over 32 bits.
static bool read_integer(FILE* file, int32_t& value)
{
    int c = std::getc(file);
    while (std::isspace(c))
        c = std::getc(file);
    const bool negative = c == '-';
    if (c == '-' || c == '+')
        c = std::getc(file);
    if (!std::isdigit(c))
        return false;
    int64_t number = 0;
    for (; std::isdigit(c); c = std::getc(file))
        if (number <= INT32_MAX)
            number = 10 * number + (c - '0');
    std::ungetc(c, file);
    if (negative)
        number = -number;
    if (number < INT32_MIN || number > INT32_MAX)
        return false;
    value = int32_t(number);
    return true;
}

// Appends face number `face` (from 1) to the list. The vertex count that the file claims is not trusted: the list grows
// with the nodes that are really there.
static int read_sketch_face(ZELDATA* db, FILE* file, int32_t face, WordList& list)
{
    int32_t count, node_id;
    if (!read_integer(file, count) || count < 1 || count > ZEL_FACE_VERTICES)
        return ZEL_Warning("Incorrect definition of face %d.  Aborting.", face), 0;
    if (!list.append(count))
        return no_memory(module_word::tools);
    for (int32_t i = 0; i < count; ++i)
    {
        if (!read_integer(file, node_id))
            return ZEL_Warning("Incorrect definition of face %d.  Aborting.", face), 0;
        const int node = ZEL_NodeIndex(db, node_id);
        if (node < 0)
            return ZEL_Warning("Incorrect definition of face %d.  No node %d. Aborting.", face, node_id), 0;
        if (!list.append(node))
            return no_memory(module_word::tools);
    }
    return 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int* ZEL_GeometryNodes(ZELDATA* db, int* count)
{
    if (count)
        *count = 0;
    if (!db)
        return no_database();
    if ((!db->geometry_nodes && !find_geometry_nodes(db)) || db->geometry_node_count == 0)
        return nullptr;
    Scratch<int32_t> copy(db->geometry_node_count);
    if (!copy.data)
        return no_memory(module_word::tools);
    std::copy_n(db->geometry_nodes, db->geometry_node_count, copy.data);
    if (count)
        *count = db->geometry_node_count;
    return copy.release();
}

void ZEL_StripCommonFaces(ZELDATA* db)
{
    if (!db)
        return void(no_database());
    if (db->face_count <= 0)
        return;
    const FaceWords faces = faces_of(db);
    FaceBuckets buckets(faces);
    if (!buckets.allocated())
        return void(no_memory(module_word::tools));
    fill_buckets(faces, buckets);
    Scratch<Ring> rings(buckets.largest);
    if (!rings.data)
        return void(no_memory(module_word::tools));
    const int32_t kept = strip_buckets(faces, buckets, rings.data);

    int32_t words = 0;
    for (int32_t i = 0; i < kept; ++i)
        words += 1 + vertex_count(db->face_list[buckets.faces[i]]);
    Scratch<int32_t> list(words);
    if (!list.data)
        return void(no_memory(module_word::tools));
    int32_t* out = list.data;
    for (int32_t i = 0; i < kept; ++i)
    {
        const Ring ring = ring_of(db->face_list + buckets.faces[i]);
        *out++ = *ring.face;
        for (int32_t position = 0; position < ring.size(); ++position)
            *out++ = ring.node(position);
    }
    install_faces(db, list.release(), kept, words, words);
}

void ZEL_SketchGrid(ZELDATA* db, const char* sketch_file)
{
    if (!db || !sketch_file)
        return;
    TextFile sketch(sketch_file);
    if (!sketch.file)
        return void(ZEL_Warning("Failed to open sketch file %s", sketch_file));
    int32_t faces;
    if (!read_integer(sketch.file, faces) || faces < 0)
        return void(ZEL_Warning("Sketch file %s does not start with a face count", sketch_file));
    ZEL_Info("Using sketch file %s to replace %d faces with %d", sketch_file, db->face_count, faces);
    WordList list;
    for (int32_t face = 0; face < faces; ++face)
        if (!read_sketch_face(db, sketch.file, face + 1, list))
            return;
    install_faces(db, std::exchange(list.words, nullptr), faces, list.count, list.capacity);
}
