// Modal loads and the preload. A mode that is not known yet is added by the setter that names it.
#include "caches.h"
#include "record.h"
#include "zel.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace zel
{

// ---- Forces of projected vectors ---------------------------------------------------------------------------------------

static ProjectedForces& forces_of(const ZELDATA* db)
{
    return caches(db).forces;
}

int preload_forces(const ZELDATA* db)
{
    return forces_of(db).of_preload;
}

int load_forces(const ZELDATA* db, int load_case)
{
    return forces_of(db).of_case[load_case];
}

void set_preload_forces(ZELDATA* db, int forces)
{
    forces_of(db).of_preload = forces;
}

void set_load_forces(ZELDATA* db, int load_case, int forces)
{
    forces_of(db).of_case[load_case] = forces;
}

bool reserve_loads(ZELDATA* db, int count)
{
    Scratch<ZELLOADCASE> cases(count);
    Scratch<int> forces(count);
    if (!cases.data || !forces.data)
        return false;
    replace(db->load_cases, cases);
    replace(forces_of(db).of_case, forces);
    return true;
}

void free_loads(ZELDATA* db)
{
    discard(db->modal_preload);
    for (int i = 0; db->load_cases && i < db->load_case_count; ++i)
        discard(db->load_cases[i].values);
    discard(db->load_cases);
    discard(forces_of(db).of_case);
    db->load_case_count = db->load_capacity = db->principal_axes_done = 0;
}

// ---- Setting -----------------------------------------------------------------------------------------------------------

// Puts a vector in a larger one, zero at its end.
static void move_load(double*& vector, double* larger, int count)
{
    if (vector)
        std::copy_n(vector, count, larger);
    std::free(vector);
    vector = larger;
}

int reserve_load_components(ZELDATA* db, int room)
{
    if (room <= db->load_capacity)
        return 1;
    Scratch<double*> larger(int64_t(db->load_case_count) + 1); // the last one is the preload's
    bool complete = larger.data != nullptr;
    for (int i = 0; complete && i <= db->load_case_count; ++i)
        if (i < db->load_case_count || db->modal_preload)
            complete = (larger[i] = allocate<double>(room)) != nullptr;
    if (!complete)
    {
        for (int i = 0; larger.data && i <= db->load_case_count; ++i)
            std::free(larger[i]);
        return no_memory(module_word::setting);
    }
    for (int i = 0; i < db->load_case_count; ++i)
        move_load(db->load_cases[i].values, larger[i], db->load_capacity);
    if (db->modal_preload)
        move_load(db->modal_preload, larger[db->load_case_count], db->load_capacity);
    db->load_capacity = room;
    return 1;
}

// Modes, present and to come.
static int most_modes(const ZELDATA* db)
{
    return std::max(db->max_modes, db->mode_count);
}

// 0, with a message, when a number is negative or its table alone is beyond the machine's memory.
static int check_load_case(const ZELDATA* db, int load_case)
{
    if (load_case < 0 || load_case == INT32_MAX)
        return fail("The load case index %d is illegal.\nThe load case index must be non-negative.", load_case);
    const double vector = double(most_modes(db)) * double(sizeof(double));
    const double bytes = (double(load_case) - db->load_case_count) * (double(sizeof(ZELLOADCASE)) + vector);
    return bytes <= double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE))
               ? 1
               : int(no_memory(module_word::setting));
}

// Adds load cases, all zero, up to `load_case`. On 0 there are as many as before.
static int reserve_load_cases(ZELDATA* db, int load_case)
{
    if (load_case < db->load_case_count)
        return 1;
    int*& known = forces_of(db).of_case;
    int* forces = reallocate(known, int64_t(load_case) + 1);
    if (!forces)
        return no_memory(module_word::setting);
    known = forces;
    ZELLOADCASE* cases = reallocate(db->load_cases, int64_t(load_case) + 1);
    if (!cases)
        return no_memory(module_word::setting);
    db->load_cases = cases;
    for (int added = db->load_case_count; added <= load_case; ++added)
    {
        forces[added] = 0;
        cases[added] = {};
        cases[added].values = allocate<double>(db->load_capacity);
        if (!cases[added].values)
        {
            while (--added >= db->load_case_count)
                std::free(cases[added].values);
            if (db->load_case_count == 0)
                discard(db->load_cases);
            return no_memory(module_word::setting);
        }
        std::snprintf(cases[added].label, sizeof cases[added].label, "Load Case %d", added + 1);
    }
    db->load_case_count = load_case + 1;
    return 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_SetModalLoad(ZELDATA* db, int load_case, int mode_number, double value)
{
    if (!db)
        return no_database();
    if (!check_load_case(db, load_case))
        return 0;
    if (!std::isfinite(value))
        return fail("The load of mode %d in load case %d is not finite: %g.", mode_number, load_case, value);
    ModeToSet mode(db, mode_number);
    if (mode.index() < 0 || !reserve_load_components(db, most_modes(db)) || !reserve_load_cases(db, load_case))
        return 0;
    mode.keep();
    db->load_cases[load_case].values[mode.index()] = value;
    raise_flag(db, ZEL_BLOCK_LOADS);
    return 1;
}

int ZEL_SetModalLoadLabel(ZELDATA* db, int load_case, const char* label)
{
    if (!db)
        return no_database();
    char text[256] = {}; // a copy: the caller's may be a label of the table that is about to grow
    const size_t longest = sizeof text - 1, length = label ? std::strlen(label) : 0;
    if (length > 0)
        std::memcpy(text, label, std::min(length, longest));
    else
        std::snprintf(text, sizeof text, "%d", load_case + 1);
    if (!check_load_case(db, load_case) || !reserve_load_components(db, most_modes(db)) ||
        !reserve_load_cases(db, load_case))
        return 0;
    if (length > longest)
        ZEL_Warning("Modal load label too big: max size %ld, specified size %ld.  Truncating label.", long(longest),
                    long(length));
    std::memcpy(db->load_cases[load_case].label, text, sizeof text);
    raise_flag(db, ZEL_BLOCK_LOADS);
    return 1;
}

int ZEL_SetModalPreload(ZELDATA* db, int mode_number, double value)
{
    if (!db)
        return no_database();
    if (!std::isfinite(value))
        return fail("The preload of mode %d is not finite: %g.", mode_number, value);
    ModeToSet mode(db, mode_number);
    if (mode.index() < 0 || !reserve_load_components(db, most_modes(db)))
        return 0;
    if (!db->modal_preload)
    {
        db->modal_preload = allocate<double>(db->load_capacity);
        if (!db->modal_preload)
            return no_memory(module_word::setting);
        db->principal_axes_done = 0;
    }
    mode.keep();
    db->modal_preload[mode.index()] = value;
    raise_flag(db, ZEL_BLOCK_PRELOAD);
    return 1;
}
