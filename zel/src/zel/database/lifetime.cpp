// The list of live databases: creation, lookup by file, and the freeing of a record with everything it owns.
#include "base/base.h"
#include "mode_files.h"
#include "record.h"
#include "stream/stream.h"
#include "zel.h"

#include <algorithm>
#include <cstring>
#include <mutex>

using namespace zel;

static_assert(ZEL_MODE_KINDS == 3, "mode, stress and strain streams are separate fields of the record");

// The live databases in order of creation, chained through next, and what is told from them about others: the files that
// they read. One thread at a time looks at it or changes it.
static ZELDATA* first_database;
static std::mutex list_mutex;

namespace zel
{

ZELDATA* current_database = nullptr;

// Frees an array of `count` owned arrays.
template <typename T> static void discard_rows(T**& rows, int count)
{
    for (int i = 0; rows && i < count; ++i)
        std::free(static_cast<void*>(rows[i]));
    discard(rows);
}

void drop_invariant(ZELDATA* db, int number)
{
    const Invariant& row = invariant_row(number);
    const int table = own(db).table_modes[number];
    if (row.values)
        discard(db->*row.values);
    else if (row.rows)
        discard_rows(db->*row.rows, row.by_pair ? table : db->invar_modes);
    else
    {
        double***& rows = db->*row.table;
        for (int i = 0; rows && i < table; ++i)
            if (rows[i])
                discard_rows(rows[i], table);
        discard(rows);
    }
    db->invar_origin[number] = 0;
}

} // namespace zel

static void free_loads(ZELDATA* db)
{
    discard(db->modal_preload);
    for (int i = 0; db->load_cases && i < db->load_case_count; ++i)
        discard(db->load_cases[i].values);
    discard(db->load_cases);
    discard(own(db).load_forces);
    db->load_case_count = db->load_capacity = db->principal_axes_done = 0;
}

static void free_matrices(ZELDATA* db)
{
    for (ZELMATRIX* matrix : {&db->stiffness, &db->mass, &db->damping})
    {
        discard(matrix->entries);
        *matrix = {};
    }
    db->non_diagonal = db->non_unit_mass = db->damping_projected = 0;
}

namespace zel
{

void start_scales(ZELDATA* db)
{
    std::fill_n(db->mode_factor, ZEL_MODE_KINDS, 1.0);
    std::fill_n(db->base_scale, 4, 1.0);
    db->units.mass_scale = db->units.length_scale = db->units.time_scale = db->units.force_scale = 1.0;
    own(db).assumed_mass = 1.0;
}

void start_empty(ZELDATA* db)
{
    start_scales(db);
    free_loads(db);
    free_matrices(db);
}

} // namespace zel

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
    discard(db->face_list);
    discard(db->node_id_index);
    discard(db->eigenvalues);
    discard(db->transformation);
    discard(db->interface_nodes);
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        discard(db->mode_nodes[kind]);
        if (kind != ZEL_MODE_SHAPE) // there it is node_id_index
            discard(db->mode_node_id_index[kind]);
        discard(db->mode_buffer[kind]);
        close_mode_stream(db, kind);
    }
    for (const Invariant& row : kInvariants)
        drop_invariant(db, row.number);
    discard(db->geometry_nodes);
    close_zel_file(db->zel_file);
    free_loads(db);
    free_matrices(db);
    discard(db->modal_statistics);
    for (const KindRow& row : kKinds)
        if (row.pre_tensors)
            discard(db->*row.pre_tensors);
    discard(db->mode_ids);
    discard(db->selected_modes);
    nodes_changed(db);
    discard_caches(own(db));
    discard(db->private_data);
    if (current_database == db)
        current_database = nullptr;
    std::free(db);
}

// The link (head or next field) that points at db, or at null for the end of the list.
static ZELDATA** link_to(const ZELDATA* db)
{
    ZELDATA** link = &first_database;
    while (*link && *link != db)
        link = &(*link)->next;
    return link;
}

// Takes a database out of the list. Null when it is not there.
static ZELDATA* take_from_list(const ZELDATA* db)
{
    const std::lock_guard lock(list_mutex);
    ZELDATA** link = link_to(db);
    ZELDATA* taken = *link;
    if (taken)
        *link = taken->next;
    return taken;
}

int zel::adopt_file(ZELDATA* db, FILE* file, const char* name)
{
    const std::lock_guard lock(list_mutex);
    db->zel_file.file = file;
    return !name || (db->zel_file.name = copy_text(name)) ? 1 : 0;
}

bool zel::held_open(const char* path)
{
    const std::lock_guard lock(list_mutex);
    for (ZELDATA* db = first_database; db; db = db->next) // mode streams have no name, or borrow this file
        if (db->zel_file.file && names_open_file(path, db->zel_file.file))
            return true;
    return false;
}

ZELDATA* zel::database_of_file(const char* path)
{
    const std::lock_guard lock(list_mutex);
    for (ZELDATA* db = first_database; db; db = db->next)
        if (db->zel_file.name && std::strcmp(db->zel_file.name, path) == 0)
            return db;
    return nullptr;
}

ZELDATA* ZEL_Create(int max_mode_nodes, int max_modes)
{
    Scratch<ZELDATA> record(1);
    Scratch<Private> caches(1);
    if (!record.data || !caches.data)
        return nullptr;
    ZELDATA* db = record.release();
    db->private_data = caches.release();
    start_scales(db);
    for (ZELSTREAM* stream : {&db->zel_file, &db->mode_file, &db->stress_file, &db->strain_file})
        stream->double_precision = 1;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        db->cached_mode[kind] = -1;
    db->version = 31;
    db->max_mode_nodes = max_mode_nodes;
    db->max_modes = max_modes;
    const std::lock_guard lock(list_mutex);
    *link_to(nullptr) = db;
    return db;
}

void ZEL_Destroy(ZELDATA*) {}

void ZEL_UnLink(ZELDATA* db)
{
    free_database(take_from_list(db));
}

void ZEL_Terminate(void)
{
    while (first_database)
        free_database(take_from_list(first_database));
}

int CheckZEL(const ZELDATA* db)
{
    const std::lock_guard lock(list_mutex);
    return db && *link_to(db) ? 1 : 0;
}

const char* zelcreate_VersionId(void)
{
    return "zelcreate " ZEL_VERSION;
}
