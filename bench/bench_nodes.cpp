// A million nodes set one by one in ascending, descending and random order of their ids. The reference is a plain append
// of the same records in memory.
#include "zel.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <numeric>
#include <random>
#include <vector>

// Of the processor, so that other programs disturb less.
static double seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

static double time_of_setting(const std::vector<int>& ids)
{
    const double start = seconds();
    ZELDATA* db = ZEL_Create(0, 0);
    for (int id : ids)
        ZEL_SetNodeCoordinates(db, id, 1.0, 2.0, 3.0);
    const double taken = seconds() - start;
    ZEL_UnLink(db);
    return taken;
}

static double time_of_appending(const std::vector<int>& ids)
{
    const double start = seconds();
    std::vector<ZELNODE> nodes;
    for (int id : ids)
        nodes.push_back({id, 1.0, 2.0, 3.0, 0.0, nullptr});
    const double taken = seconds() - start;
    return nodes.size() == ids.size() ? taken : 0.0;
}

int main()
{
    std::vector<int> ascending(1000000);
    std::iota(ascending.begin(), ascending.end(), 1);
    std::vector<int> descending(ascending.rbegin(), ascending.rend()), random = ascending;
    std::shuffle(random.begin(), random.end(), std::mt19937(1));
    const double reference = time_of_appending(ascending);
    const double times[] = {time_of_setting(ascending), time_of_setting(descending), time_of_setting(random)};
    const char* orders[] = {"ascending", "descending", "random"};
    for (int i = 0; i < 3; ++i)
        std::printf("%-10s  %.3f s, %.1f times a plain append\n", orders[i], times[i], times[i] / reference);
    std::printf("slowest over fastest: %.2f (target 4)\n",
                *std::max_element(times, times + 3) / *std::min_element(times, times + 3));
}
