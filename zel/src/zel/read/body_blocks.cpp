// Readers of the blocks that describe the body without its modes: header, units, nodes, faces, masses. The file names nodes
// by their ids.
#include "reader.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>

namespace zel
{

// ---- Units, header --------------------------------------------------------------------------------------------------

// A label of the file: terminated, without blanks at its end, in its canonical spelling where that is known.
static void store_label(char (&label)[16], const char* text)
{
    char whole[17] = {};
    std::memcpy(whole, text, 16);
    for (size_t end = std::strlen(whole); end > 0 && whole[end - 1] == ' '; --end)
        whole[end - 1] = '\0';
    ZEL_ConvertUnitsLabel(whole);
    std::memset(label, 0, sizeof label);
    std::memcpy(label, whole, std::min(std::strlen(whole), sizeof label - 1));
}

static int read_units(Reader& in, const Block& row)
{
    char labels[4][16];
    if (!seek_to(in.file, block_start(in.db, row)) || !get_text(in.file, labels[0], sizeof labels))
        return unreadable(row);
    ZELUNITS& units = in.db->units;
    store_label(units.mass, labels[0]);
    store_label(units.length, labels[1]);
    store_label(units.time, labels[2]);
    store_label(units.force, labels[3]);
    return 1;
}

static int read_header(Reader& in, const Block& row)
{
    if (!seek_to(in.file, block_start(in.db, row)))
        return unreadable(row);
    for (const HeaderField& field : kHeaderFields)
    {
        char* text = field.text(in.db);
        if (!get_text(in.file, text, field.width))
            return unreadable(row);
        text[field.width - 1] = '\0';
    }
    return 1;
}

// ---- Nodes and masses ------------------------------------------------------------------------------------------------

namespace
{
// A block with a record for each node which, as a rule, is in the order of the node table. It is read together with the nodes,
// part by part while these are in the cache. Where that is not so, the block is left to its own turn.
class BesideNodes : public RecordTaker
{
public:
    bool is_whole() const { return whole_; }
    void take_part(int64_t first, int64_t count)
    {
        if (whole_ && !get_records_at(in_.file, start_, first, count, record_bytes_, *this))
            whole_ = false;
    }

protected:
    // The block begins with two integers, which are to be these.
    BesideNodes(Reader& in, int block, int first, int second, int record_bytes)
        : in_(in), record_bytes_(record_bytes), start_(block_start(in.db, block_row(block)) + 2 * kIntBytes)
    {
        int32_t head[2];
        whole_ = block_in_file(in.db, block) && seek_to(in.file, start_ - int(sizeof head)) &&
                 get_ints(in.file, head, 2) && head[0] == first && head[1] == second;
    }
    Reader& in_;

private:
    int record_bytes_;
    int64_t start_;
    std::atomic<bool> whole_;
};

// The masses: an id and a mass each.
class Masses final : public BesideNodes
{
public:
    Masses(Reader& in, int nodes) : BesideNodes(in, ZEL_BLOCK_MASSES, nodes, 1, kIntBytes + real_bytes(in.file)) {}
    bool take(int64_t first, int64_t count, const unsigned char* bytes) override
    {
        ZELNODE* const nodes = in_.db->nodes + first;
        return with_items_of(in_.file, [=](auto items) {
            const unsigned char* at = bytes;
            int64_t i = 0;
            for (; i < count && nodes[i].id == items.integer(at); ++i, at += kIntBytes + items.kRealBytes)
                nodes[i].mass = items.real(at + kIntBytes);
            return i == count;
        });
    }
};

// The ids of the nodes of the mode shapes.
class ShapeNodes final : public BesideNodes
{
public:
    ShapeNodes(Reader& in, int nodes) : BesideNodes(in, ZEL_BLOCK_MODES, in.db->mode_count, nodes, kIntBytes) {}
    bool take(int64_t first, int64_t count, const unsigned char* bytes) override
    {
        const ZELNODE* const nodes = in_.db->nodes + first;
        return with_items_of(in_.file, [=](auto items) {
            int64_t i = 0;
            while (i < count && nodes[i].id == items.integer(bytes + kIntBytes * i))
                ++i;
            return i == count;
        });
    }
};

// The nodes: an id and three coordinates each.
class Nodes final : public RecordTaker
{
public:
    Nodes(Reader& in, const Block& row, int count)
        : in_(in), row_(row), count_(count), masses_(in, count), shapes_(in, count), caller_(pthread_self())
    {}
    bool take(int64_t first, int64_t count, const unsigned char* bytes) override
    {
        if (pthread_equal(pthread_self(), caller_) && !tell_progress(in_, row_, first, count_))
            return false;
        ZELNODE* const nodes = in_.db->nodes + first;
        with_items_of(in_.file, [=](auto items) {
            run_wide([=]() ZEL_ALWAYS_INLINE {
                constexpr int kReal = items.kRealBytes;
                const unsigned char* at = bytes;
                ZELNODE* const to = nodes;
                for (int64_t i = 0; i < count; ++i, at += kIntBytes + 3 * kReal)
                    to[i] = {items.integer(at),
                             items.real(at + kIntBytes),
                             items.real(at + kIntBytes + kReal),
                             items.real(at + kIntBytes + 2 * kReal),
                             0.0,
                             nullptr};
            });
        });
        if (count > 1 && nodes[0].id == nodes[1].id) // in a hole of the file all are 0
            return false;
        enter_nodes(in_.db, int(first), int(count));
        masses_.take_part(first, count);
        shapes_.take_part(first, count);
        return true;
    }
    void finish()
    {
        in_.has_masses = masses_.is_whole();
        in_.shapes_in_order = shapes_.is_whole();
    }

private:
    Reader& in_;
    const Block& row_;
    int count_;
    Masses masses_;
    ShapeNodes shapes_;
    pthread_t caller_; // progress is told by that thread alone
};
} // namespace

static int read_nodes(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    int32_t head[2]; // nodes, coordinates of each
    if (!seek_to(in.file, block_start(db, row)) || !get_ints(in.file, head, 2))
        return unreadable(row);
    const auto [count, coordinates] = head;
    if (coordinates != 3)
        return fail("Node location should only be specified with 3 coordinates, not %ld", long(coordinates));
    if (!reserve_nodes(db, count))
        return no_room(row);
    Nodes nodes(in, row, count);
    if (!seek_to(in.file, block_start(db, row) + int(sizeof head)) ||
        !get_records(in.file, count, kIntBytes + 3 * real_bytes(in.file), nodes))
        return is_ended() ? 0 : int(unreadable(row));
    nodes.finish();
    return adopt_nodes(db, count) ? 1 : int(unreadable(row)); // an id stands for one node only
}

static int read_body_properties(Reader& in, const Block& row)
{
    double values[13];
    if (!seek_to(in.file, block_start(in.db, row)) || !get_reals(in.file, values, 13))
        return unreadable(row);
    in.db->total_mass = values[0];
    std::memcpy(in.db->center_of_mass, values + 1, sizeof in.db->center_of_mass);
    std::memcpy(in.db->inertia_tensor, values + 4, sizeof in.db->inertia_tensor);
    return 1;
}

// The node's id and the mean of its masses.
static int next_mass(ItemReader& items, int values, double& mass)
{
    const int node_id = items.integer();
    double sum = 0.0;
    for (int k = 0; k < values; ++k)
        sum += items.real();
    mass = sum / values;
    return node_id;
}

// The masses come in any order. A node may be unknown. Several masses of one node are averaged.
static int read_masses(Reader& in, const Block& row)
{
    if (in.has_masses)
        return 1;
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int count = items.integer(), values = items.integer();
    if (items.failed() || values < 1)
        return unreadable(row);
    if (values > 1)
    {
        ZEL_Warning("Each node must possess a single scalar mass");
        ZEL_Warning("Generating scalar by averaging %d values", values);
    }
    for (int node = 0; node < db->node_count; ++node)
        db->nodes[node].mass = 0.0; // some may have come with the nodes
    for (int i = 0; i < count; ++i)
    {
        if (!reads_on(in, row, i, count))
            return 0;
        double mass = 0.0;
        const int node_id = next_mass(items, values, mass);
        if (items.failed())
            return unreadable(row);
        const int node = i < db->node_count && db->nodes[i].id == node_id ? i : find_node(db, node_id);
        if (node < 0)
            continue;
        if (db->nodes[node].mass != 0.0)
            ZEL_Warning("Redefining mass of Node %d", node_id);
        db->nodes[node].mass = mass;
    }
    return 1;
}

// ---- Inertias -------------------------------------------------------------------------------------------------------

// Rotational degrees of freedom 4 to 6 as 0 to 2; -1 for any other character.
static int rotation(char degree)
{
    return degree >= 4 && degree <= 6 ? degree - 4 : -1;
}

// Where the record of a node keeps row and column of its tensor: xx yy zz xy xz yz.
static constexpr int kComponent[3][3] = {{0, 3, 4}, {3, 1, 5}, {4, 5, 2}};

// Stores one entry; `entries_set` has a bit for each of the nine entries of a tensor that the file has given before.
static int store_inertia(ZELNODE& node, int row, int column, double value, int& entries_set)
{
    if (!node.inertia && !(node.inertia = allocate<double>(6)))
        return fail("Error allocating memory for inertia matrix for node %d\n", node.id);
    const int entry = 1 << (3 * row + column);
    if (entries_set & entry)
        ZEL_Warning("Redefining mass of Nodal inertia %d", node.id);
    entries_set |= entry;
    node.inertia[kComponent[row][column]] = value;
    return 1;
}

static int read_inertias(Reader& in, const Block& row)
{
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int count = items.integer();
    if (items.failed())
        return unreadable(row);
    Scratch<int> entries_set(db->node_count);
    if (!entries_set.data)
        return no_memory(module_word::reading);
    for (int i = 0; i < count; ++i)
    {
        if (!reads_on(in, row, i, count))
            return 0;
        const int node_id = items.integer();
        const char row_degree = items.character(), column_degree = items.character();
        const double value = items.real();
        if (items.failed())
            return unreadable(row);
        if (rotation(row_degree) < 0)
            return fail("Row index of nodal inertia entries should be 4, 5, or 6.  %d encoutered\n", row_degree);
        if (rotation(column_degree) < 0)
            return fail("Column index of nodal inertia entries should be 4, 5, or 6.  %d encoutered\n", column_degree);
        const int node = find_node(db, node_id);
        if (node >= 0 &&
            !store_inertia(db->nodes[node], rotation(row_degree), rotation(column_degree), value, entries_set[node]))
            return 0;
    }
    return 1;
}

// ---- Faces and interface nodes --------------------------------------------------------------------------------------

namespace
{

// A face list that is being read: as many words as the block has integers are enough for any face in it.
struct FaceList
{
    Scratch<int> words;
    int length = 0, faces = 0;
    explicit FaceList(int64_t room) : words(room) {}

    // Ends a face whose vertices have been put behind its count word.
    void finish(int vertices, int flags)
    {
        words[length] = vertices | flags;
        length += 1 + vertices;
        ++faces;
    }

    void install(ZELDATA* db)
    {
        replace(db->face_list, words);
        db->face_list_length = length;
        db->face_capacity = length > 0 ? length : 1;
        db->face_count = faces;
        faces_changed(db);
    }
};
} // namespace

static int read_faces(Reader& in, const Block& row)
{
    ItemReader items = items_of(in.db, row);
    const int bytes = items.integer(), face_count = items.integer();
    if (items.failed() || (bytes - 2 * kIntBytes) % kIntBytes != 0)
        return unreadable(row);
    const int words = (bytes - 2 * kIntBytes) / kIntBytes;
    FaceList list(words);
    if (!list.words.data)
        return no_room(row);
    while (list.length < words)
    {
        if (!reads_on(in, row, list.faces, std::max(face_count, list.faces)))
            return 0;
        const int word = items.integer(), vertices = word & ZEL_FACE_VERTICES;
        if (items.failed() || vertices < 1 || vertices >= words - list.length)
            return unreadable(row);
        for (int i = 0; i < vertices; ++i)
        {
            const int node = find_node(in.db, items.integer());
            if (items.failed() || node < 0)
                return unreadable(row);
            list.words[list.length + 1 + i] = node;
        }
        list.finish(vertices, word & ~ZEL_FACE_VERTICES);
    }
    if (list.faces != face_count)
        return unreadable(row);
    list.install(in.db);
    return 1;
}

// One element of an old group as a polygon. Elements that keep fewer than two vertices are no faces.
static bool read_element(ItemReader& items, const ZELDATA* db, int vertices, FaceList& list)
{
    items.integer(); // number of the element
    const int flags = int(uint32_t(items.integer()) << 30);
    int kept = 0;
    for (int i = 0; i < vertices; ++i)
    {
        const int node = find_node(db, items.integer());
        if (items.failed() || node < 0)
            return false;
        kept = keep_vertex(&list.words[list.length + 1], kept, node, i == vertices - 1);
    }
    if (kept >= 2)
        list.finish(kept, flags);
    return !items.failed();
}

static int read_topology(Reader& in, const Block& row)
{
    if (block_in_file(in.db, ZEL_BLOCK_FACES))
        return 1;
    ItemReader items = items_of(in.db, row);
    FaceList list(block_size(in.db, row) / kIntBytes);
    if (!list.words.data)
        return no_room(row);
    items.integer(); // elements of all groups
    const int groups = items.integer();
    for (int group = 0; group < groups; ++group)
    {
        items.integer(); // number of the group
        const int elements = items.integer(), vertices = items.integer();
        for (int element = 0; element < elements; ++element)
            if (!read_element(items, in.db, vertices, list))
                return unreadable(row);
    }
    if (items.failed())
        return unreadable(row);
    list.install(in.db);
    return 1;
}

static int read_interface_nodes(Reader& in, const Block& row)
{
    constexpr int kGrowth = 100;
    ZELDATA* db = in.db;
    ItemReader items = items_of(db, row);
    const int count = items.integer();
    if (items.failed())
        return unreadable(row);
    if (!grow(db->interface_nodes, db->interface_capacity, count, kGrowth))
        return no_room(row);
    for (int i = 0; i < count; ++i)
    {
        const int node_id = items.integer();
        if (items.failed())
            return unreadable(row);
        ZEL_SetInterfaceNode(db, node_id); // ignores an unknown node and one that is there already
    }
    return 1;
}

// ---- The table -------------------------------------------------------------------------------------------------------

static constexpr BlockReader kBodyReaders[] = {
    {ZEL_BLOCK_HEADER, read_header},
    {ZEL_BLOCK_NODES, read_nodes},
    {ZEL_BLOCK_TOPOLOGY, read_topology},
    {ZEL_BLOCK_BODY, read_body_properties},
    {ZEL_BLOCK_MASSES, read_masses},
    {ZEL_BLOCK_INERTIAS, read_inertias},
    {ZEL_BLOCK_UNITS, read_units},
    {ZEL_BLOCK_FACES, read_faces},
    {ZEL_BLOCK_INTERFACE, read_interface_nodes},
};
static_assert(rows_are_complete(kBodyReaders,
                                [](const Block& row) { return is_read_in_turn(row) && !hangs_on_modes(row); }),
              "each block without modes that is read in its turn has a reader");

int read_body_block(Reader& in, const Block& row)
{
    return row_of(kBodyReaders, row.number).read(in, row);
}

} // namespace zel
