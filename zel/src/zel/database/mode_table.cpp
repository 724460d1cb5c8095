// The table of modes: numbers by index and indexes by number.
#include "record.h"
#include "zel.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

using namespace zel;

// Whether a mode number occurs twice; looks only at the modes that were added since the last call. One that is greater
// than all before it is new.
static bool has_repeated_mode(const ZELDATA* db)
{
    Private& caches = own(db);
    if (caches.checked_modes > db->mode_count)
        caches.checked_modes = caches.repeated_mode = 0;
    if (caches.checked_modes == db->mode_count)
        return caches.repeated_mode != 0;
    const int* const ids = db->mode_ids;
    int highest = caches.checked_modes > 0 ? *std::max_element(ids, ids + caches.checked_modes) : INT_MIN;
    for (int& mode = caches.checked_modes; mode < db->mode_count; ++mode)
    {
        if (mode > 0 && ids[mode] <= highest && std::find(ids, ids + mode, ids[mode]) != ids + mode)
            caches.repeated_mode = 1;
        highest = std::max(highest, ids[mode]);
    }
    return caches.repeated_mode != 0;
}

int ZEL_ModeIndex(const ZELDATA* db, int mode_number)
{
    if (!db || !db->mode_ids)
        return -1;
    int& last = own(db).last_mode;
    if (!has_repeated_mode(db))
        for (int guess : {last, last + 1})
            if (guess < db->mode_count && db->mode_ids[guess] == mode_number)
                return last = guess;
    const int* end = db->mode_ids + db->mode_count;
    const int* found = std::find(static_cast<const int*>(db->mode_ids), end, mode_number);
    return found == end ? -1 : last = int(found - db->mode_ids);
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
