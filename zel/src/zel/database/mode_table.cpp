// The table of modes: numbers by index, indexes by number, and what follows from a new mode.
#include "base/base.h"
#include "caches.h"
#include "invariant_slots.h"
#include "record.h"
#include "zel.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>

namespace zel
{

static ModeNumberCache& cache_of(const ZELDATA* db)
{
    return caches(db).mode_numbers;
}

void forget_mode_lookups(ZELDATA* db)
{
    cache_of(db).checked = cache_of(db).repeated = 0;
}

// Several threads may look up at once: what they remember is the same, and told apart in order.
static int seen(int& value)
{
    return std::atomic_ref(value).load(std::memory_order_acquire);
}

static void remember(int& value, int fresh)
{
    std::atomic_ref(value).store(fresh, std::memory_order_release);
}

// Whether a mode number occurs twice; looks only at the modes that were added since the last call. One that is greater
// than all before it is new.
static bool has_repeated_mode(const ZELDATA* db)
{
    ModeNumberCache& cache = cache_of(db);
    const int* const ids = db->mode_ids;
    const int checked = seen(cache.checked) <= db->mode_count ? seen(cache.checked) : 0;
    bool repeated = checked > 0 && seen(cache.repeated);
    if (checked == db->mode_count)
        return repeated;
    int highest = checked > 0 ? *std::max_element(ids, ids + checked) : INT_MIN;
    for (int mode = checked; mode < db->mode_count; ++mode)
    {
        if (mode > 0 && ids[mode] <= highest && std::find(ids, ids + mode, ids[mode]) != ids + mode)
            repeated = true;
        highest = std::max(highest, ids[mode]);
    }
    remember(cache.repeated, repeated);
    remember(cache.checked, db->mode_count);
    return repeated;
}

// ---- New modes -------------------------------------------------------------------------------------------------------------

// Appends a number to the table of modes; its index, or -1 with a message.
static int append_mode(ZELDATA* db, int mode_number)
{
    if (db->mode_count >= db->max_modes)
    {
        ZEL_Error("Insufficient room for mode %d in temporary mode shape file.  \n"
                  "Specify larger number of modes in ZEL_Create.\n",
                  mode_number);
        return -1;
    }
    if (!db->mode_ids)
        db->mode_ids = allocate<int>(db->max_modes);
    if (!db->mode_ids)
    {
        no_memory(module_word::setting);
        return -1;
    }
    db->mode_ids[db->mode_count] = mode_number;
    return db->mode_count++;
}

// Invariants that the caller gave, or a file had, are of the modes that there were: they say nothing of the new one.
static void drop_given_invariants(ZELDATA* db, int mode_number)
{
    for (const InvariantRow& row : kInvariants)
    {
        const char origin = db->invar_origin[row.number];
        if (!row.modal || (origin != kGiven && origin != kRead))
            continue;
        ZEL_Warning("Inertia Invariant %d was given for the modes before mode %d and is dropped.", row.number,
                    mode_number);
        drop_invariant(db, row.number);
        block_changed(db, row.block);
        clear_flag(db, row.block);
    }
}

// What follows from a mode that has just been appended.
static void mode_added(ZELDATA* db)
{
    const int mode = db->mode_count - 1;
    for (int& cached : db->cached_mode)
        if (cached == mode) // stood for the pre-stress or pre-strain so far
            cached = -1;
    drop_given_invariants(db, db->mode_ids[mode]);
    mass_or_modes_changed(db);
}

ModeToSet::ModeToSet(ZELDATA* db, int mode_number) : db_(db), index_(ZEL_ModeIndex(db, mode_number))
{
    made_table_ = !db->mode_ids;
    fresh_ = index_ < 0 && (index_ = append_mode(db, mode_number)) >= 0;
}

ModeToSet::~ModeToSet()
{
    if (fresh_)
    {
        --db_->mode_count;
        forget_mode_lookups(db_);
    }
    if (made_table_ && db_->mode_count == 0)
        discard(db_->mode_ids);
}

void ModeToSet::keep()
{
    if (std::exchange(fresh_, false))
        mode_added(db_);
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_ModeIndex(const ZELDATA* db, int mode_number)
{
    if (!db || !db->mode_ids)
        return -1;
    int& last = cache_of(db).last;
    const int before = seen(last);
    int index = -1;
    if (!has_repeated_mode(db))
        for (int guess : {before, before + 1})
            if (guess < db->mode_count && db->mode_ids[guess] == mode_number)
                index = guess;
    if (index < 0)
    {
        const int* end = db->mode_ids + db->mode_count;
        const int* found = std::find(static_cast<const int*>(db->mode_ids), end, mode_number);
        if (found == end)
            return -1;
        index = int(found - db->mode_ids);
    }
    if (index != before)
        remember(last, index);
    return index;
}

int ZEL_ModeNumber(const ZELDATA* db, int mode_index)
{
    return db && db->mode_ids && mode_index >= 0 && mode_index < db->mode_count ? db->mode_ids[mode_index] : 0;
}

int By_Id(const void* a, const void* b)
{
    const int first = *static_cast<const int*>(a), second = *static_cast<const int*>(b);
    return first < second ? -1 : int(first > second);
}

int SelectedModeIndex(int mode_number, const int* sorted_numbers, int count)
{
    if (!sorted_numbers || count < 1)
        return -1;
    const void* found = std::bsearch(&mode_number, sorted_numbers, size_t(count), sizeof(int), By_Id);
    return found ? int(static_cast<const int*>(found) - sorted_numbers) : -1;
}

int ZEL_AddMode(ZELDATA* db, int mode_number)
{
    if (!db)
    {
        no_database();
        return -1;
    }
    const int mode = append_mode(db, mode_number);
    if (mode >= 0)
        mode_added(db);
    return mode;
}

int ZEL_LookupOrAddMode(ZELDATA* db, int mode_number)
{
    const int mode = ZEL_ModeIndex(db, mode_number);
    return mode >= 0 ? mode : ZEL_AddMode(db, mode_number);
}
