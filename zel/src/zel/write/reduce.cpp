// Reduction of the modal data to the nodes that carry geometry. The node table keeps all of its nodes, but since mode
// shapes belong to the nodes at its front, the kept ones move there. New mode files are complete before anything of the
// database changes.
#include "base/base.h"
#include "database/database.h"
#include "geometry/geometry.h"
#include "writer.h"

#include <algorithm>

namespace
{

// What becomes of the node list of one kind.
struct KindPlan
{
    int kept = 0;             // nodes that stay in the list
    int* positions = nullptr; // owned: their positions so far; null: the list stays as it is
    zel::ModeReplacement vectors;
    bool has_new_vectors = false;
    ~KindPlan() { std::free(positions); }
};

} // namespace

namespace zel
{

// ---- What stays ----------------------------------------------------------------------------------------------------------------

// Leaves a plan empty when all of the kind's nodes carry geometry, or none does.
static int plan_kind(const ZELDATA* db, int kind, const char* has_geometry, KindPlan& plan)
{
    const int count = db->mode_node_count[kind];
    Scratch<int> positions(count);
    if (!positions.data)
        return no_memory(module_word::writing);
    for (int position = 0; position < count; ++position)
        if (has_geometry[db->mode_nodes[kind][position] - db->nodes])
            positions[plan.kept++] = position;
    if (plan.kept > 0 && plan.kept < count)
        plan.positions = positions.release();
    return 1;
}

// ---- New mode files ------------------------------------------------------------------------------------------------------------

static int open_shortened(ZELDATA* db, int kind, KindPlan& plan)
{
    switch (plan.vectors.open(db, kind, db->mode_count, plan.kept))
    {
    case ModeReplacement::kNotOpened:
        return fail("Unable to open %s for write.  Specify different temporary file directory by\nsetting the %s "
                    "environment variable",
                    plan.vectors.name(), temporary_folder_variable());
    case ModeReplacement::kNoSpace:
        return fail("Insufficient disk space for file %s.  Specify different temporary\nfile directory by setting the "
                    "%s environment variable",
                    plan.vectors.name(), temporary_folder_variable());
    case ModeReplacement::kNoMemory: return no_memory(module_word::writing);
    case ModeReplacement::kReady: break;
    }
    ZEL_Info("Shortened mode file: %s", plan.vectors.name());
    return 1;
}

static int shorten_vectors(ZELDATA* db, int kind, KindPlan& plan)
{
    const int count = db->mode_node_count[kind];
    Scratch<double> vector(int64_t(kComponents) * count);
    if (!vector.data)
        return no_memory(module_word::writing);
    if (!open_shortened(db, kind, plan))
        return 0;
    Progress progress(db->mode_count);
    for (int mode = 0; mode < db->mode_count; ++mode)
    {
        if (!progress.reach(mode))
            return 0;
        if (!read_mode_slice(db, kind, mode, 0, count, vector.data))
            return fail("Failed to extract mode information for ZEL.");
        for (int i = 0; i < plan.kept; ++i) // forwards, never beyond what was read
            std::memmove(vector.data + int64_t(kComponents) * i, vector.data + int64_t(kComponents) * plan.positions[i],
                         kComponents * sizeof(double));
        if (!plan.vectors.write(mode, 0, plan.kept, vector.data))
            return fail("Insufficient disk space for file %s.  Specify different temporary\nfile directory by setting "
                        "the %s environment variable",
                        plan.vectors.name(), temporary_folder_variable());
    }
    plan.has_new_vectors = true;
    return 1;
}

// ---- New order of nodes --------------------------------------------------------------------------------------------------------

// The nodes of the mode shapes that stay come first, then all others, each in the order that they had.
static void order_nodes(const ZELDATA* db, const KindPlan& plan, int* new_index)
{
    std::fill_n(new_index, db->node_count, -1);
    for (int i = 0; i < plan.kept; ++i)
        new_index[plan.positions[i]] = i; // a position of kind 0 is a node index
    int next = plan.kept;
    for (int node = 0; node < db->node_count; ++node)
        if (new_index[node] < 0)
            new_index[node] = next++;
}

static void renumber_faces(ZELDATA* db, const int* new_index)
{
    for (int at = 0; at < db->face_list_length;)
    {
        const int end = at + 1 + vertex_count(db->face_list[at]);
        for (++at; at < end; ++at)
            db->face_list[at] = new_index[db->face_list[at]];
    }
}

// Moves the nodes to their new places, and with them all that names nodes by their index. `sorted` has room for all nodes.
static void renumber_nodes(ZELDATA* db, const int* new_index, ZELNODE* sorted)
{
    for (int kind = ZEL_MODAL_STRESS; kind <= ZEL_MODAL_STRAIN; ++kind)
        for (int position = 0; position < db->mode_node_count[kind]; ++position)
        {
            ZELNODE*& listed = db->mode_nodes[kind][position];
            listed = db->nodes + new_index[listed - db->nodes];
        }
    for (int node = 0; node < db->node_count; ++node)
        sorted[new_index[node]] = db->nodes[node];
    std::copy_n(sorted, db->node_count, db->nodes);
    renumber_faces(db, new_index);
    for (int i = 0; i < db->interface_count; ++i)
        db->interface_nodes[i] = new_index[db->interface_nodes[i]];
}

// ---- Lists -----------------------------------------------------------------------------------------------------------------------

// Pre-stress or pre-strain follows the node list of its kind. What was beyond the old room is zero.
static void shorten_pre_tensors(ZELSIX* records, int room, const KindPlan& plan)
{
    for (int i = 0; records && i < room; ++i)
        records[i] = i < plan.kept && plan.positions[i] < room ? records[plan.positions[i]] : ZELSIX{};
}

static void shorten_list(ZELDATA* db, int kind, KindPlan& plan)
{
    if (!plan.positions)
        return;
    if (plan.has_new_vectors)
        plan.vectors.install();
    if (const KindRow& row = kKinds[kind]; row.pre_tensors)
        shorten_pre_tensors(db->*row.pre_tensors, db->*row.pre_tensor_capacity, plan);
    if (kind != ZEL_MODE_SHAPE) // there the list is the node table, which was put in order
        for (int i = 0; i < plan.kept; ++i)
            db->mode_nodes[kind][i] = db->mode_nodes[kind][plan.positions[i]];
    db->mode_node_count[kind] = plan.kept;
}

// ---- Reduction -------------------------------------------------------------------------------------------------------------------

// Marks the nodes that carry geometry, and tells whether any does. 0, with a message, when memory is short.
static int mark_geometry_nodes(ZELDATA* db, char* has_geometry, bool& any)
{
    const unsigned losses = reported().losses;
    int count = 0;
    int* nodes = ZEL_GeometryNodes(db, &count);
    for (int i = 0; i < count; ++i)
        has_geometry[nodes[i]] = 1;
    std::free(nodes);
    any = count > 0;
    return reported().losses == losses;
}

int find_shapes_inside(ZELDATA* db, bool& inside)
{
    Scratch<char> has_geometry(db->node_count);
    if (!has_geometry.data)
        return no_memory(module_word::writing);
    const int shapes = db->mode_node_count[ZEL_MODE_SHAPE];
    if (!mark_geometry_nodes(db, has_geometry.data, inside))
        return 0;
    inside = inside && std::memchr(has_geometry.data, 0, size_t(shapes));
    return 1;
}

int reduce_to_geometry_nodes(ZELDATA* db)
{
    KindPlan plans[ZEL_MODE_KINDS];
    Scratch<char> has_geometry(db->node_count);
    Scratch<int> new_index(db->node_count);
    Scratch<ZELNODE> sorted(db->node_count);
    if (!has_geometry.data || !new_index.data || !sorted.data)
        return no_memory(module_word::writing);
    bool any = false;
    if (!mark_geometry_nodes(db, has_geometry.data, any))
        return 0;
    if (!any)
        return 1;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        KindPlan& plan = plans[kind];
        if (!plan_kind(db, kind, has_geometry.data, plan))
            return 0;
        if (plan.positions && db->mode_positions[kind] && !shorten_vectors(db, kind, plan))
            return 0;
    }
    if (plans[ZEL_MODE_SHAPE].positions)
    {
        order_nodes(db, plans[ZEL_MODE_SHAPE], new_index.data);
        renumber_nodes(db, new_index.data, sorted.data);
    }
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        shorten_list(db, kind, plans[kind]);
    node_table_rewritten(db);
    forget_cached_modes(db);
    return 1;
}

} // namespace zel
