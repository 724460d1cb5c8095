// The life of a record: creation, and the freeing of a record with everything it owns.
#include "base/base.h"
#include "caches.h"
#include "invariant_slots.h"
#include "mode_files.h"
#include "record.h"
#include "stream/stream.h"
#include "zel.h"

#include <algorithm>
#include <cstring>

namespace zel
{

ZELDATA* current_database = nullptr;

static void free_matrices(ZELDATA* db)
{
    for (const MatrixRow& row : kMatrices)
    {
        discard((db->*row.list).entries);
        db->*row.list = {};
    }
    db->non_diagonal = db->non_unit_mass = db->damping_projected = 0;
}

void drop_held(ZELDATA* db, const Block& row)
{
    std::visit(
        [db](auto array) {
            if constexpr (!std::is_same_v<decltype(array), std::monostate>)
                discard(db->*array);
        },
        row.held.array);
    if (row.held.count)
        db->*row.held.count = 0;
}

void start_scales(ZELDATA* db)
{
    std::fill_n(db->mode_factor, ZEL_MODE_KINDS, 1.0);
    std::fill_n(db->base_scale, 4, 1.0);
    db->units.mass_scale = db->units.length_scale = db->units.time_scale = db->units.force_scale = 1.0;
    set_assumed_mass(db, 1.0);
}

void start_empty(ZELDATA* db)
{
    start_scales(db);
    free_loads(db);
    free_matrices(db);
}

static void close_zel_file(ZELSTREAM& stream)
{
    if (!stream.file)
        return;
    close_xdr(stream);
    discard(stream.name);
    std::fclose(stream.file);
    stream.file = nullptr;
}

// Frees a record, which is in the list no more, with everything it owns; null is ignored.
static void free_database(ZELDATA* db)
{
    if (!db)
        return;
    for (int node = 0; db->nodes && node < db->node_count; ++node)
        discard(db->nodes[node].inertia);
    discard(db->nodes);
    discard(db->conversion_buffer);
    discard(db->node_id_index);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        discard(db->mode_nodes[kind]);
        if (kind != ZEL_MODE_SHAPE) // there it is node_id_index
            discard(db->mode_node_id_index[kind]);
        discard(db->mode_buffer[kind]);
        close_mode_stream(db, kind);
    }
    for (const Block& row : kBlocks)
        drop_held(db, row);
    for (const InvariantRow& row : kInvariants)
        drop_invariant(db, row.number);
    discard(db->geometry_nodes);
    close_zel_file(db->zel_file);
    free_loads(db);
    free_matrices(db);
    discard(db->mode_ids);
    discard(db->selected_modes);
    nodes_changed(db);
    free_node_lookups(db);
    discard(db->private_data);
    if (current_database == db)
        current_database = nullptr;
    std::free(db);
}

} // namespace zel

using namespace zel;

ZELDATA* ZEL_Create(int max_mode_nodes, int max_modes)
{
    Scratch<ZELDATA> record(1);
    Scratch<Caches> caches(1);
    if (!record.data || !caches.data)
        return nullptr;
    ZELDATA* db = record.release();
    db->private_data = caches.release();
    start_scales(db);
    db->zel_file.double_precision = 1;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        mode_stream(db, kind).double_precision = 1;
        db->cached_mode[kind] = -1;
    }
    db->version = 31;
    db->max_mode_nodes = max_mode_nodes;
    db->max_modes = max_modes;
    add_live(db);
    return db;
}

void ZEL_Destroy(ZELDATA*) {}

void ZEL_UnLink(ZELDATA* db)
{
    free_database(take_live(db));
}

void ZEL_Terminate(void)
{
    while (ZELDATA* first = take_first_live())
        free_database(first);
}

const char* zelcreate_VersionId(void)
{
    return "zelcreate " ZEL_VERSION;
}
