// What is asked of the running system: its name, the time, processor time.
#include "zel.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

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
