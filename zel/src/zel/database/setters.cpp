// Setters of header, geometry and mass. A node that is not known yet is added by the setter that names it.
//
// Each setter checks its arguments and takes its memory before it changes the database: when it fails, everything is as it
// was.
#include "record.h"
#include "zel.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <ctime>
#include <initializer_list>

namespace zel
{

// ---- Header ------------------------------------------------------------------------------------------------------------

namespace
{
struct HeaderText
{
    const char *subject, *truncated, *label; // as the messages name it
    char* field;
    int longest;
};
} // namespace

// Copies at most `longest` characters into a field that is zeroed first, so that equal headers have equal bytes.
static void store_text(char* field, int longest, const char* text)
{
    std::memset(field, 0, size_t(longest) + 1);
    std::memcpy(field, text, strnlen(text, size_t(longest)));
}

static void set_header_text(const HeaderText& row, const char* text, size_t length)
{
    if (length > size_t(row.longest))
        ZEL_Warning("%s too big: max size %ld, specified size %ld.\nTruncating %s.", row.subject, long(row.longest),
                    long(length), row.truncated);
    store_text(row.field, row.longest, text);
    ZEL_Info("%s: %s", row.label, row.field);
}

static void set_date(ZELDATA* db)
{
    const time_t now = std::time(nullptr);
    tm local = {};
    char text[64] = "";
    if (localtime_r(&now, &local))
        asctime_r(&local, text);
    for (char& c : text)
        if (c == '\n')
            c = ' ';
    store_text(db->date, int(sizeof db->date) - 1, text);
}

// ---- Nodes -------------------------------------------------------------------------------------------------------------

// Whether all values are finite; otherwise reports the first that is not.
static bool all_finite(const char* quantity, int node_id, std::initializer_list<double> values)
{
    for (double value : values)
        if (!std::isfinite(value))
            return fail("The %s of node %d is not finite: %g.", quantity, node_id, value);
    return true;
}

// Sets a nodal mass to `before` + `mass`, where before is 0 or, to add, what the node has.
static int set_mass(ZELDATA* db, int node_id, double mass, bool add)
{
    if (!db)
        return no_database();
    const int known = add ? find_node(db, node_id) : -1;
    const double sum = known >= 0 ? db->nodes[known].mass + mass : mass;
    if (!all_finite("mass", node_id, {mass, sum}))
        return 0;
    const int node = ZEL_LookupOrAddNode(db, node_id);
    if (node < 0)
        return 0;
    db->nodes[node].mass = sum;
    raise_flag(db, ZEL_BLOCK_MASSES);
    mass_or_modes_changed(db);
    return 1;
}

// The six inertia components of a node, which is added, and given zero components, as needed. Null, with a message, when
// memory is short.
static double* inertia_of(ZELDATA* db, int node_id)
{
    Scratch<double> fresh(6);
    if (!fresh.data)
        return no_memory(module_word::setting);
    const int node = ZEL_LookupOrAddNode(db, node_id);
    if (node < 0)
        return nullptr;
    if (!db->nodes[node].inertia)
        db->nodes[node].inertia = fresh.release();
    return db->nodes[node].inertia;
}

// ---- Many nodes at once ------------------------------------------------------------------------------------------------

// Whether all values of all nodes are finite; otherwise reports the first that is not.
static bool all_finite(const char* quantity, int count, const int* node_ids, const double* values, int per_node)
{
    for (int64_t i = 0; i < int64_t(count) * per_node; ++i)
        if (!std::isfinite(values[i]))
            return all_finite(quantity, node_ids[i / per_node], {values[i]});
    return true;
}

// Makes room for the nodes of a list that are not known yet. 0, with a message and nothing changed, when memory is short.
static int reserve_unknown(ZELDATA* db, int64_t count, const int* node_ids)
{
    const auto is_new = [db](int node_id) { return find_node(db, node_id) < 0; };
    const int64_t fresh = std::count_if(node_ids, node_ids + count, is_new);
    return reserve_nodes(db, db->node_count + fresh) ? 1 : int(no_memory(module_word::setting));
}

// What the setters of many nodes have in common: store(node, values) for each node, once nothing can fail any more.
template <typename Store> static int set_nodes(ZELDATA* db, const char* quantity, int block, int count,
                                               const int* node_ids, const double* values, int per_node, Store store)
{
    if (!db)
        return no_database();
    if (count == 0)
        return 1;
    if (count < 0 || !node_ids || !values)
        return 0;
    if (!all_finite(quantity, count, node_ids, values, per_node) || !reserve_unknown(db, count, node_ids))
        return 0;
    for (int i = 0; i < count; ++i)
    {
        const int node = ZEL_LookupOrAddNode(db, node_ids[i]);
        if (node < 0)
            return 0;
        store(db->nodes[node], values + int64_t(per_node) * i);
    }
    raise_flag(db, block);
    mass_or_modes_changed(db);
    return 1;
}

namespace
{
// New inertias for the nodes of a list that have none yet: one each time that such a node is named.
struct FreshInertias
{
    int count;
    Scratch<double*> of;
    bool complete;
    FreshInertias(const ZELDATA* db, int node_count, const int* node_ids)
        : count(node_count), of(count), complete(of.data != nullptr)
    {
        for (int i = 0; i < count && complete; ++i)
            if (const int node = find_node(db, node_ids[i]); node < 0 || !db->nodes[node].inertia)
                complete = (of[i] = allocate<double>(6)) != nullptr;
    }
    ~FreshInertias()
    {
        for (int i = 0; of.data && i < count; ++i)
            std::free(of[i]);
    }
    FreshInertias(const FreshInertias&) = delete;
    FreshInertias& operator=(const FreshInertias&) = delete;
};
} // namespace

// ---- Faces and interface nodes -----------------------------------------------------------------------------------------

static constexpr int kListGrowth = 100;

// The faces of a list as they are stored, with ids in the places of node indexes, to `out`. Returns the integers that they
// take; 0, with a message, for one that is no face.
static int64_t pack_faces(int count, const int* vertex_counts, const int* node_ids, int* out)
{
    const int* const start = out;
    for (int i = 0; i < count; node_ids += vertex_counts[i++])
    {
        int kept = 0;
        for (int k = 0; k < vertex_counts[i]; ++k)
            kept = keep_vertex(out + 1, kept, node_ids[k], k == vertex_counts[i] - 1);
        if (kept < 2)
            return fail("Face %d of %d needs at least two different nodes.", i + 1, count), 0;
        *out = kept;
        out += kept + 1;
    }
    return out - start;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_SetHeader(ZELDATA* db, char* title, char* input_file_name, char* input_file_type, char* comment1,
                  char* comment2, char* comment3)
{
    if (!db)
        return no_database();
    const HeaderText rows[] = {{"Title", "title", "Title", db->title, 127},
                               {"Input file name", "input file name", "Name ", db->input_file_name, 127},
                               {"Input file type spec", "input file type", "Type ", db->input_file_type, 15},
                               {"Comment 1", "Comment 1", "Comment 1", db->comment1, 79},
                               {"Comment 2", "Comment 2", "Comment 2", db->comment2, 79},
                               {"Comment 3", "Comment 3", "Comment 3", db->comment3, 79}};
    char* const texts[] = {title, input_file_name, input_file_type, comment1, comment2, comment3};
    char copies[6][128] = {}; // the texts may be the record's own
    size_t lengths[6];
    for (int i = 0; i < 6; ++i)
    {
        lengths[i] = texts[i] ? std::strlen(texts[i]) : 0;
        for (size_t at = 0; at < lengths[i]; ++at)
            if (texts[i][at] == '\n') // without one nothing is written: the text may be a constant
                texts[i][at] = ' ';
        std::memcpy(copies[i], texts[i] ? texts[i] : "", std::min(lengths[i], sizeof copies[i] - 1));
    }
    set_date(db);
    for (int i = 0; i < 6; ++i)
        set_header_text(rows[i], copies[i], lengths[i]);
    return 1;
}

int ZEL_SetNodeCoordinates(ZELDATA* db, int node_id, double x, double y, double z)
{
    if (!db)
        return no_database();
    if (!all_finite("position", node_id, {x, y, z}))
        return 0;
    const int node = ZEL_LookupOrAddNode(db, node_id);
    if (node < 0)
        return 0;
    db->nodes[node].x = x;
    db->nodes[node].y = y;
    db->nodes[node].z = z;
    raise_flag(db, ZEL_BLOCK_NODES);
    nodes_changed(db);
    mass_or_modes_changed(db);
    return 1;
}

int ZEL_SetNodalMass(ZELDATA* db, int node_id, double mass)
{
    return set_mass(db, node_id, mass, false);
}

int ZEL_AddNodalMass(ZELDATA* db, int node_id, double mass)
{
    return set_mass(db, node_id, mass, true);
}

int ZEL_SetNodalInertia(ZELDATA* db, int node_id, double xx, double yy, double zz, double xy, double xz, double yz)
{
    if (!db)
        return no_database();
    if (!all_finite("inertia", node_id, {xx, yy, zz, xy, xz, yz}))
        return 0;
    double* inertia = inertia_of(db, node_id);
    if (!inertia)
        return 0;
    for (double value : {xx, yy, zz, xy, xz, yz})
        *inertia++ = value;
    raise_flag(db, ZEL_BLOCK_INERTIAS);
    mass_or_modes_changed(db);
    return 1;
}

int ZEL_SetNodalInertiaEntry(ZELDATA* db, int node_id, int row, int column, double value)
{
    if (!db)
        return no_database();
    constexpr int kComponent[3][3] = {{0, 3, 4}, {3, 1, 5}, {4, 5, 2}};
    const int first = row > 3 && column > 3 ? 4 : 1; // rows and columns may count as rotations of a node, 4 to 6
    row -= first;
    column -= first;
    if (row < 0 || row > 2 || column < 0 || column > 2)
        return fail("Row and column of the inertia of node %d must be 1 to 3, or both 4 to 6.", node_id);
    if (!all_finite("inertia", node_id, {value}))
        return 0;
    double* inertia = inertia_of(db, node_id);
    if (!inertia)
        return 0;
    inertia[kComponent[row][column]] = value;
    raise_flag(db, ZEL_BLOCK_INERTIAS);
    mass_or_modes_changed(db);
    return 1;
}

int ZEL_SetNodes(ZELDATA* db, int count, const int* node_ids, const double* coordinates)
{
    const auto store = [](ZELNODE& node, const double* xyz) {
        node.x = xyz[0];
        node.y = xyz[1];
        node.z = xyz[2];
    };
    if (!set_nodes(db, "position", ZEL_BLOCK_NODES, count, node_ids, coordinates, 3, store))
        return 0;
    nodes_changed(db);
    return 1;
}

int ZEL_SetNodalMasses(ZELDATA* db, int count, const int* node_ids, const double* masses)
{
    return set_nodes(db, "mass", ZEL_BLOCK_MASSES, count, node_ids, masses, 1,
                     [](ZELNODE& node, const double* mass) { node.mass = *mass; });
}

int ZEL_SetNodalInertias(ZELDATA* db, int count, const int* node_ids, const double* inertias)
{
    FreshInertias fresh(db, db && node_ids ? std::max(count, 0) : 0, node_ids);
    if (!fresh.complete)
        return no_memory(module_word::setting);
    int i = 0;
    return set_nodes(db, "inertia", ZEL_BLOCK_INERTIAS, count, node_ids, inertias, 6,
                     [&](ZELNODE& node, const double* inertia) {
                         if (!node.inertia)
                             node.inertia = std::exchange(fresh.of[i], nullptr);
                         std::copy_n(inertia, 6, node.inertia);
                         ++i;
                     });
}

int ZEL_SetFaceList(ZELDATA* db, int vertex_count, const int* node_ids)
{
    if (!db)
        return no_database();
    const int64_t room = int64_t(db->face_list_length) + (vertex_count > 0 && node_ids ? vertex_count : 0) + 2;
    if (!grow(db->face_list, db->face_capacity, room, kListGrowth))
        return no_memory(module_word::setting);
    if (vertex_count < 1 || !node_ids)
        return fail("A face has no vertices.");
    if (!reserve_unknown(db, vertex_count, node_ids))
        return 0;
    int* const face = db->face_list + db->face_list_length; // recorded only when its length is added
    int* const vertices = face + 1;
    int kept = 0;
    for (int i = 0; i < vertex_count; ++i)
    {
        const int node = ZEL_LookupOrAddNode(db, node_ids[i]);
        if (node < 0)
            return 0;
        kept = keep_vertex(vertices, kept, node, i == vertex_count - 1);
    }
    if (kept < 2)
        return fail("A face needs at least two different nodes.");
    face[0] = kept;
    db->face_list_length += kept + 1;
    db->face_count += 1;
    raise_flag(db, ZEL_BLOCK_FACES);
    faces_changed(db);
    return 1;
}

int ZEL_SetFaces(ZELDATA* db, int count, const int* vertex_counts, const int* node_ids)
{
    if (!db)
        return no_database();
    if (count == 0)
        return 1;
    if (count < 0 || !vertex_counts || !node_ids)
        return 0;
    int64_t ids = 0;
    for (int i = 0; i < count; ids += vertex_counts[i++])
        if (vertex_counts[i] < 2 || vertex_counts[i] > ZEL_FACE_VERTICES)
            return fail("Face %d of %d needs at least two different nodes.", i + 1, count);
    if (!grow(db->face_list, db->face_capacity, db->face_list_length + ids + count + 1, kListGrowth))
        return no_memory(module_word::setting);
    int* const faces = db->face_list + db->face_list_length; // recorded only when their length is added
    const int64_t length = pack_faces(count, vertex_counts, node_ids, faces);
    if (length == 0 || !reserve_unknown(db, ids, node_ids))
        return 0;
    for (int64_t at = 0; at < length;)
        for (const int64_t end = at + 1 + faces[at]; ++at < end;)
            faces[at] = ZEL_LookupOrAddNode(db, faces[at]); // there is room for it
    db->face_list_length += int(length);
    db->face_count += count;
    raise_flag(db, ZEL_BLOCK_FACES);
    faces_changed(db);
    return 1;
}

int ZEL_SetFace(ZELDATA* db, int vertex_count, ...)
{
    if (!db)
        return no_database();
    Scratch<int> node_ids(vertex_count > 0 ? vertex_count : 0);
    if (!node_ids.data)
        return no_memory(module_word::setting);
    va_list ids;
    va_start(ids, vertex_count);
    for (int i = 0; i < vertex_count; ++i)
        node_ids[i] = va_arg(ids, int);
    va_end(ids);
    return ZEL_SetFaceList(db, vertex_count, node_ids.data);
}

int ZEL_SetInterfaceNode(ZELDATA* db, int node_id)
{
    if (!db)
        return no_database();
    const int node = find_node(db, node_id);
    if (node < 0)
        return 0;
    if (is_interface_node(db, node))
        return 1;
    if (!grow(db->interface_nodes, db->interface_capacity, int64_t(db->interface_count) + 1, kListGrowth))
        return no_memory(module_word::setting);
    db->interface_nodes[db->interface_count++] = node;
    raise_flag(db, ZEL_BLOCK_INTERFACE);
    nodes_changed(db);
    faces_changed(db);
    return 1;
}

const char* zelset_VersionId(void)
{
    return "zelset " ZEL_VERSION;
}
