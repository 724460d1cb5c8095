// Small tools on modes that the writer, the comparison and the units rely on.
#include "zel.h"
#include "zeldb.h"

#include <cmath>

using namespace zel;

int ZEL_ModeIndex(const ZELDATA* db, int mode_number)
{
    if (!db || !db->mode_ids)
        return -1;
    for (int mode = 0; mode < db->mode_count; ++mode)
        if (db->mode_ids[mode] == mode_number)
            return mode;
    return -1;
}

int ZEL_ModeNumber(const ZELDATA* db, int mode_index)
{
    return db && db->mode_ids && mode_index >= 0 && mode_index < db->mode_count ? db->mode_ids[mode_index] : 0;
}

// Frequency of the mode at an index, 0 when it cannot be told.
static double frequency(ZELDATA* db, int mode)
{
    double hertz = 0.0;
    ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode), nullptr, &hertz, nullptr, nullptr, nullptr);
    return hertz;
}

int ZEL_RigidBodyModeCount(ZELDATA* db)
{
    constexpr double kAlmostZero = 0.1, kClearlyFlexible = 10.0, kJump = 10000.0;
    const int modes = ZEL_ModeCount(db);
    if (modes < 2)
        return 0;
    const double first = frequency(db, 0);
    double previous = first;
    for (int mode = 1; mode < modes; ++mode)
    {
        const double current = frequency(db, mode);
        if (std::fabs(first) < kAlmostZero && current > kClearlyFlexible)
            return mode;
        if (std::fabs(current) > kJump * std::fabs(previous))
            return mode;
        previous = current;
    }
    return 0;
}

const char* zeltools_VersionId(void)
{
    return "zeltools " ZEL_VERSION;
}
