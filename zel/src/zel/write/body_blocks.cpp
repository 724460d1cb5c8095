// Writers of the blocks that describe the body without its modes: header, nodes, faces, masses, units. Nodes are named by
// their ids, as everywhere in a file.
#include "blocks.h"
#include "geometry/geometry.h"

#include <algorithm>

namespace zel
{

// ---- Head of the file ----------------------------------------------------------------------------------------------------

static int write_version(Writer& out, const Block&)
{
    return put_int(out.file, out.options.version) && out.compatible;
}

// Fields are filled with NULs, whatever stands behind the end of a text in memory.
static int write_header(Writer& out, const Block&)
{
    for (const HeaderField& field : kHeaderFields)
    {
        char text[kHeaderCharacters] = {};
        std::strncpy(text, field.text(out.db), size_t(field.width));
        if (!put_text(out.file, text, field.width))
            return 0;
    }
    return 1;
}

static int write_summary(Writer& out, const Block&)
{
    return put_text(out.file, out.flags, kSummaryFlags);
}

// ---- Nodes -----------------------------------------------------------------------------------------------------------------

// One node at the origin is nothing unusual; several are likely to have been forgotten.
static void warn_of_nodes_at_origin(const ZELDATA* db)
{
    const auto at_origin = [](const ZELNODE& node) { return node.x == 0.0 && node.y == 0.0 && node.z == 0.0; };
    const ZELNODE *begin = db->nodes, *end = begin + db->node_count;
    const int found = int(std::count_if(begin, end, at_origin));
    if (found < 2)
        return;
    ZEL_Warning("Found %d node(s) with coordinates (0,0,0).  They are:", found);
    constexpr int kMostListed = 20;
    int listed = 0;
    for (const ZELNODE* node = begin; node < end && listed < kMostListed; ++node)
        if (at_origin(*node) && ++listed)
            ZEL_Warning("   %d", node->id);
    if (found > listed)
        ZEL_Warning("   and %d more", found - listed);
}

static int write_nodes(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    ZEL_Info("\nNode info:\n   Count: %ld", long(db->node_count));
    warn_of_nodes_at_origin(db);
    ItemWriter items(out.file);
    items.integer(db->node_count);
    items.integer(3);
    for (int node = 0; node < db->node_count; ++node)
    {
        items.integer(db->nodes[node].id);
        for (double coordinate : {db->nodes[node].x, db->nodes[node].y, db->nodes[node].z})
            items.real(coordinate);
    }
    return items.finish();
}

static int write_masses(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    ItemWriter items(out.file);
    int massless = 0;
    items.integer(db->node_count);
    items.integer(1);
    for (int node = 0; node < db->node_count; ++node)
    {
        items.integer(db->nodes[node].id);
        items.real(db->nodes[node].mass);
        massless += db->nodes[node].mass == 0.0;
    }
    if (massless > 0)
        ZEL_Warning("Found %d massless node(s)", massless);
    return items.finish();
}

namespace
{
// Where the components of a nodal inertia stand in its matrix, whose rows and columns are the rotations 4 to 6.
struct InertiaComponent
{
    char row, column;
};
constexpr InertiaComponent kInertiaComponents[6] = {{4, 4}, {5, 5}, {6, 6}, {4, 5}, {4, 6}, {5, 6}};
} // namespace

// The diagonal of an inertia is always written, a product only when there is one.
static bool is_written(const ZELNODE& node, int component)
{
    return node.inertia && (component < 3 || node.inertia[component] != 0.0);
}

static int write_inertias(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    int64_t entries = 0;
    for (int node = 0; node < db->node_count; ++node)
        for (int component = 0; component < 6; ++component)
            entries += is_written(db->nodes[node], component);
    if (entries > INT32_MAX)
        return 0;
    ZEL_Info("\nNodal inertia info:\n   Sparse matrix entries: %ld", long(entries));
    ItemWriter items(out.file);
    items.integer(int32_t(entries));
    for (int node = 0; node < db->node_count; ++node)
        for (int component = 0; component < 6; ++component)
            if (is_written(db->nodes[node], component))
            {
                items.integer(db->nodes[node].id);
                items.character(kInertiaComponents[component].row);
                items.character(kInertiaComponents[component].column);
                items.real(db->nodes[node].inertia[component]);
            }
    return items.finish();
}

static int write_interface_nodes(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    ItemWriter items(out.file);
    items.integer(db->interface_count);
    for (int i = 0; i < db->interface_count; ++i)
        items.integer(db->nodes[db->interface_nodes[i]].id);
    return items.finish();
}

// ---- Faces -----------------------------------------------------------------------------------------------------------------

namespace
{
// A face in the face list: its count word, with two flags in its top bits, then node indexes.
struct Face
{
    const int* words;
    int vertices() const { return vertex_count(words[0]); }
    int flags() const { return int(uint32_t(words[0]) >> 30); }
    Face next() const { return {words + 1 + vertices()}; }
};
} // namespace

static void put_vertices(ItemWriter& items, const ZELDATA* db, Face face)
{
    for (int i = 1; i <= face.vertices(); ++i)
        items.integer(db->nodes[face.words[i]].id);
}

// The faces from `face` on, at most `limit`, that have as many vertices as it.
static int run_length(Face face, int limit)
{
    const int vertices = face.vertices();
    int run = 0;
    for (; run < limit && face.vertices() == vertices; face = face.next())
        ++run;
    return run;
}

// Calls group(first face, number of faces) for each run of faces with one vertex count.
template <typename Group> static void for_each_group(const ZELDATA* db, Group group)
{
    Face face = {db->face_list};
    for (int left = db->face_count; left > 0;)
    {
        const int faces = run_length(face, left);
        group(face, faces);
        for (int i = 0; i < faces; ++i)
            face = face.next();
        left -= faces;
    }
}

// Each run of faces with one vertex count is a group, so that the order of the faces survives.
static int write_topology(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    int groups = 0, group_number = 0, element_number = 0;
    for_each_group(db, [&](Face, int) { ++groups; });
    ItemWriter items(out.file);
    items.integer(db->face_count);
    items.integer(groups);
    for_each_group(db, [&](Face face, int faces) {
        for (int head : {++group_number, faces, face.vertices()})
            items.integer(head);
        for (int i = 0; i < faces; ++i, face = face.next())
        {
            items.integer(++element_number);
            items.integer(face.flags());
            put_vertices(items, db, face);
        }
    });
    return items.finish();
}

static int write_faces(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    const int64_t bytes = 8 + 4 * int64_t(db->face_list_length);
    if (bytes > INT32_MAX) // the block tells its size as an integer
        return 0;
    ZEL_Info("\nNumber of Element Faces: %d", db->face_count);
    ItemWriter items(out.file);
    items.integer(int32_t(bytes));
    items.integer(db->face_count);
    Face face = {db->face_list};
    for (int i = 0; i < db->face_count; ++i, face = face.next())
    {
        items.integer(face.words[0]);
        put_vertices(items, db, face);
    }
    return items.finish();
}

// ---- Body and units ----------------------------------------------------------------------------------------------------------

static int write_body_properties(Writer& out, const Block&)
{
    const ZELDATA* db = out.db;
    const double *c = db->center_of_mass, *j = db->inertia_tensor;
    ZEL_Info("\nGlobal body properties:");
    ZEL_Info("Mass          : %lf\n", db->total_mass);
    ZEL_Info("Center of Mass: %lf %lf %lf", c[0], c[1], c[2]);
    ZEL_Info("Inertia Tensor: %lf %lf %lf", j[0], j[1], j[2]);
    ZEL_Info("                %lf %lf %lf", j[3], j[4], j[5]);
    ZEL_Info("                %lf %lf %lf", j[6], j[7], j[8]);
    return put_reals(out.file, &db->total_mass, 1) && put_reals(out.file, c, 3) && put_reals(out.file, j, 9);
}

static int write_units(Writer& out, const Block&)
{
    constexpr int kWidth = 16;
    char labels[4][kWidth] = {};
    ZEL_Units(out.db, labels[0], labels[1], labels[2], labels[3]);
    ZEL_Info("\nUnits:\n   Mass:   %s\n   Length: %s\n   Time:   %s\n   Force:  %s", labels[0], labels[1], labels[2],
             labels[3]);
    return put_text(out.file, labels[0], 4 * kWidth);
}

// ---- The table ---------------------------------------------------------------------------------------------------------------

static constexpr BlockWriter kBodyWriters[] = {
    {ZEL_BLOCK_VERSION, write_version},
    {ZEL_BLOCK_HEADER, write_header},
    {ZEL_BLOCK_SUMMARY, write_summary},
    {ZEL_BLOCK_NODES, write_nodes},
    {ZEL_BLOCK_TOPOLOGY, write_topology},
    {ZEL_BLOCK_BODY, write_body_properties},
    {ZEL_BLOCK_MASSES, write_masses},
    {ZEL_BLOCK_INERTIAS, write_inertias},
    {ZEL_BLOCK_UNITS, write_units},
    {ZEL_BLOCK_FACES, write_faces},
    {ZEL_BLOCK_INTERFACE, write_interface_nodes},
};
static_assert(rows_are_complete(kBodyWriters, [](const Block& row) { return !is_modal_block(row); }),
              "each block without modes has a writer");

int write_body_block(Writer& out, const Block& row)
{
    return row_of(kBodyWriters, row.number).write(out, row);
}

} // namespace zel
