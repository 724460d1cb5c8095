// ZEL_SetModeVec on 100 000 nodes x 20 modes in four orders of calls. The reference writes the same bytes, record by
// record, with fwrite.
#include "zel.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <numeric>
#include <random>
#include <unistd.h>
#include <vector>

static constexpr int kNodes = 100000, kModes = 20;

// Of the processor, so that other programs disturb less.
static double seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

static double time_of_writing()
{
    FILE* file = std::tmpfile();
    double values[6] = {1, 2, 3, 4, 5, 6};
    const double start = seconds();
    for (int i = 0; i < kNodes * kModes; ++i)
    {
        values[0] = i;
        std::fwrite(values, sizeof values, 1, file);
    }
    std::fflush(file);
    const double taken = seconds() - start;
    std::fclose(file);
    return taken;
}

enum Order
{
    kModeByMode,
    kModeByModeRandomNodes,
    kNodeByNode,
    kInterleavedReads
};

static double time_of_setting(Order order)
{
    ZELDATA* db = ZEL_Create(kNodes, kModes);
    std::vector<int> ids(kNodes);
    std::iota(ids.begin(), ids.end(), 1);
    for (int id : ids)
        ZEL_SetNodeCoordinates(db, id, 0, 0, 0);
    if (order == kModeByModeRandomNodes)
        std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
    double values[6] = {1, 2, 3, 4, 5, 6}, translation[3];
    const double start = seconds();
    for (int outer = 0; outer < (order == kNodeByNode ? kNodes : kModes); ++outer)
        for (int inner = 0; inner < (order == kNodeByNode ? kModes : kNodes); ++inner)
        {
            const int mode = 1 + (order == kNodeByNode ? inner : outer);
            const int id = ids[size_t(order == kNodeByNode ? outer : inner)];
            values[0] = inner;
            ZEL_SetModeVec(db, mode, id, ZEL_MODE_SHAPE, values);
            if (order == kInterleavedReads && inner % 16 == 0)
                ZEL_ModeByNode(db, mode, ZEL_MODE_SHAPE, id, translation, 0);
        }
    const double taken = seconds() - start;
    ZEL_UnLink(db);
    return taken;
}

int main()
{
    if (!std::freopen("/dev/null", "w", stdout)) // paths of temporary files
        return 1;
    time_of_setting(kModeByMode); // once, to warm up
    const double reference = time_of_writing();
    std::fprintf(stderr, "fwrite of the same bytes          %6.1f ns a vector\n", reference / kNodes / kModes * 1e9);
    const struct
    {
        Order order;
        const char *name, *target;
    } rows[] = {
        {kModeByMode, "mode by mode, nodes in order", " (target 6)"},
        {kModeByModeRandomNodes, "mode by mode, nodes at random", ""},
        {kNodeByNode, "node by node over all modes", " (target 12)"},
        {kInterleavedReads, "mode by mode with reads between", ""},
    };
    for (const auto& row : rows)
    {
        const double taken = time_of_setting(row.order);
        std::fprintf(stderr, "%-32s  %6.1f ns a vector, %.2f times fwrite%s\n", row.name, taken / kNodes / kModes * 1e9,
                     taken / reference, row.target);
    }
}
