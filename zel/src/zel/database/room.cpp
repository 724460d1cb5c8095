// Room for nodes and modes in a body that grows beyond what it was created for.
#include "base/base.h"
#include "mode_files.h"
#include "record.h"
#include "zel.h"

#include <algorithm>

namespace zel
{

// Whether the vectors of a kind lie in the file that the database was read from.
static bool has_vectors_in_file(const ZELDATA* db)
{
    for (const KindRow& row : kKinds)
        if ((db->*row.stream).file && !(db->*row.stream).temporary && db->mode_positions[row.kind])
            return true;
    return false;
}

// Room for mode numbers; on false they are as before.
static bool reserve_mode_numbers(ZELDATA* db, int modes)
{
    if (!db->mode_ids)
        return true; // made with the first mode
    int* numbers = reallocate(db->mode_ids, modes);
    if (numbers)
        db->mode_ids = numbers;
    return numbers;
}

} // namespace zel

using namespace zel;

int ZEL_MakeRoom(ZELDATA* db, int max_mode_nodes, int max_modes)
{
    if (!db)
        return no_database();
    const int nodes = std::max(max_mode_nodes, db->max_mode_nodes);
    const int modes = std::max({max_modes, db->max_modes, db->mode_count});
    if (nodes == db->max_mode_nodes && modes == db->max_modes)
        return 1;
    if (modes > db->max_modes && has_vectors_in_file(db))
        return fail("There is no room for further modes beside those of a ZEL file.");
    // Files first: what no disk can hold asks for no memory.
    if (!grow_mode_files(db, nodes, modes))
        return 0;
    const bool has_loads = db->load_case_count > 0 || db->modal_preload;
    if (has_loads && !reserve_load_components(db, modes))
        return 0;
    if (!reserve_mode_numbers(db, modes))
        return no_memory(module_word::setting);
    db->max_mode_nodes = nodes;
    db->max_modes = modes;
    return 1;
}
