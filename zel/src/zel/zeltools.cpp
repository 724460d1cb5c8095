// Small tools that the writer, the comparison and the units rely on: lookups of modes, the rigid-body modes, dense linear
// equations, and what is asked of the running system.
#include "zel.h"
#include "zeldb.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <sys/utsname.h>
#include <utility>

using namespace zel;

static constexpr char kModule[] = "zeltools";
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

// Frequency of the mode at an index, 0 when it cannot be told.
static double frequency(ZELDATA* db, int mode)
{
    double hertz = 0.0;
    ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode), nullptr, &hertz, nullptr, nullptr, nullptr);
    return hertz;
}

static int count_rigid_modes(ZELDATA* db, double hertz_per_unit)
{
    constexpr double kAlmostZero = 0.1, kClearlyFlexible = 10.0, kJump = 10000.0;
    const int modes = ZEL_ModeCount(db);
    if (modes < 2)
        return 0;
    const double first = frequency(db, 0) * hertz_per_unit;
    double previous = first;
    for (int mode = 1; mode < modes; ++mode)
    {
        const double current = frequency(db, mode) * hertz_per_unit;
        if (std::fabs(first) < kAlmostZero && current > kClearlyFlexible)
            return mode;
        if (std::fabs(current) > kJump * std::fabs(previous))
            return mode;
        previous = current;
    }
    return 0;
}

int ZEL_RigidBodyModeCount(ZELDATA* db)
{
    return count_rigid_modes(db, 1.0);
}

int zel::rigid_modes_by_hertz(ZELDATA* db)
{
    const double seconds = ZEL_Time2Second(db, 1.0);
    return count_rigid_modes(db, seconds > 0.0 ? 1.0 / seconds : 1.0);
}

// ---- Linear equations: LU decomposition with row pivoting, after Doolittle ------------------------------------------

// Row of the largest magnitude in a column, at or below the diagonal; the lowest such row, -1 when all are zero.
static int pivot_row(const double* const* a, int n, int column)
{
    int pivot = -1;
    double largest = 0.0;
    for (int row = column; row < n; ++row)
        if (const double magnitude = std::fabs(a[row][column]); magnitude > largest)
        {
            largest = magnitude;
            pivot = row;
        }
    return pivot;
}

int ZEL_LUPDecomposition(double** a, int n, int* perm)
{
    if (!a || !perm)
        return 0;
    for (int row = 0; row < n; ++row)
        perm[row] = row;
    for (int column = 0; column < n - 1; ++column)
    {
        const int pivot = pivot_row(a, n, column);
        if (pivot < 0)
            return 0;
        std::swap(perm[column], perm[pivot]);
        for (int j = 0; j < n; ++j) // the rows' contents: their pointers are the caller's
            std::swap(a[column][j], a[pivot][j]);
        for (int row = column + 1; row < n; ++row)
        {
            const double factor = a[row][column] /= a[column][column];
            for (int j = column + 1; j < n; ++j)
                a[row][j] -= factor * a[column][j];
        }
    }
    return 1;
}

int ZEL_LUPSolve(double** lu, int n, const int* perm, double* b)
{
    Scratch<double> y(n > 0 ? n : -1); // no equations are refused like no memory
    if (!y.data)
        return no_memory(kModule);
    if (!lu || !perm || !b)
        return 0;
    for (int row = 0; row < n; ++row)
    {
        double value = b[perm[row]];
        for (int j = 0; j < row; ++j)
            value -= lu[row][j] * y[j];
        y[row] = value;
    }
    for (int row = n - 1; row >= 0; --row)
    {
        double value = y[row];
        for (int j = row + 1; j < n; ++j)
            value -= lu[row][j] * b[j];
        b[row] = value / lu[row][row];
    }
    return 1;
}

int ZEL_LUPInvert(double** lu, int n, const int* perm)
{
    Scratch<double> inverse(n > 0 ? int64_t(n) * n : -1), column(n);
    if (!inverse.data || !column.data)
        return no_memory(kModule);
    for (int j = 0; j < n; ++j)
    {
        for (int row = 0; row < n; ++row)
            column[row] = row == j ? 1.0 : 0.0;
        if (!ZEL_LUPSolve(lu, n, perm, column.data))
            return 0;
        for (int row = 0; row < n; ++row)
            inverse[int64_t(row) * n + j] = column[row];
    }
    for (int row = 0; row < n; ++row)
        std::memcpy(lu[row], &inverse[int64_t(row) * n], size_t(n) * sizeof(double));
    return 1;
}

// ---- The running system ---------------------------------------------------------------------------------------------

int ZEL_uname(int kind, char* buffer)
{
    utsname system = {};
    int major = 0, minor = 0, build = 0;
    if (!buffer || uname(&system) < 0)
        return 0;
    std::sscanf(system.release, "%d.%d.%d", &major, &minor, &build);
    const char* name = system.sysname;
    switch (kind)
    {
    case 2: std::sprintf(buffer, "%s_ %d_%d", name, major, minor); break;
    case 3: std::sprintf(buffer, "%s_ %d_%d %d", name, major, minor, build); break;
    case 12: std::sprintf(buffer, "%s__%d_%d", name, major, minor); break;
    case 13: std::sprintf(buffer, "%s__%d_%d_%d", name, major, minor, build); break;
    default: std::sprintf(buffer, "%s_", name); break;
    }
    return 0;
}

int ZEL_localtime_ISO8601(int kind, char* buffer)
{
    const time_t now = std::time(nullptr);
    tm utc = {}, local = {};
    tzset(); // localtime_r need not look at TZ
    gmtime_r(&now, &utc);
    localtime_r(&now, &local);
    const int offset = int(local.tm_gmtoff); // [s]
    const int hours = offset / 3600, minutes = std::abs(offset % 3600 / 60);
    char date[40], time_of_day[40];
    std::snprintf(date, sizeof date, "%4d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    std::snprintf(time_of_day, sizeof time_of_day, "%02d:%02d %+03d%02d", local.tm_hour, local.tm_min, hours, minutes);
    if (kind < 0)
    {
        std::printf("%%utl_23-v-val, GMT = %4d-%02d-%02d %02d:%02d, tz_value(%d)\n", utc.tm_year + 1900, utc.tm_mon + 1,
                    utc.tm_mday, utc.tm_hour, utc.tm_min, offset);
        std::printf("%%utl_23-v-val, Loc = %s %02d:%02d", date, local.tm_hour, local.tm_min);
        std::printf(" %+03d%02d\n", hours, minutes);
    }
    if (!buffer)
        return 0;
    if (kind == 1 || kind == -1)
        std::strcpy(buffer, date);
    else if (kind == 2 || kind == -2)
        std::strcpy(buffer, time_of_day);
    else
        std::sprintf(buffer, "%s %s", date, time_of_day);
    return 0;
}

double ZEL_cputime(void)
{
    return double(std::clock()) / double(CLOCKS_PER_SEC);
}

const char* zeltools_VersionId(void)
{
    return "zeltools " ZEL_VERSION;
}
