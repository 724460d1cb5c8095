// Nearest of a million nodes for ten thousand points, the building of the search tree included, against scanning all nodes.
#include "zel.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <random>
#include <vector>

// Of the processor, so that other programs disturb less.
static double seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

static int scan(const ZELDATA* db, const double p[3])
{
    int best = -1;
    double least = std::numeric_limits<double>::infinity();
    for (int i = 0; i < db->node_count; ++i)
    {
        const ZELNODE& n = db->nodes[i];
        const double dx = n.x - p[0], dy = n.y - p[1], dz = n.z - p[2], squared = dx * dx + dy * dy + dz * dz;
        if (squared < least)
        {
            least = squared;
            best = i;
        }
    }
    return best;
}

int main()
{
    constexpr int kNodes = 1000000, kQueries = 10000, kScans = 100;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> coordinate(0.0, 1.0);
    for (const char* cloud : {"random", "grid"})
    {
        ZELDATA* db = ZEL_Create(0, 0);
        for (int i = 0; i < kNodes; ++i)
            if (*cloud == 'r')
                ZEL_SetNodeCoordinates(db, i, coordinate(random), coordinate(random), coordinate(random));
            else
                ZEL_SetNodeCoordinates(db, i, i % 100 * 0.01, i / 100 % 100 * 0.01, i / 10000 * 0.01);
        std::vector<double> points(3 * kQueries);
        for (double& value : points)
            value = coordinate(random);
        std::vector<int> found(kQueries);

        double start = seconds();
        found[0] = ZEL_ClosestNode(db, points.data(), 0);
        const double build = seconds() - start;
        for (int i = 1; i < kQueries; ++i)
            found[size_t(i)] = ZEL_ClosestNode(db, points.data() + 3 * i, 0);
        const double all = seconds() - start;

        start = seconds();
        int wrong = 0;
        for (int i = 0; i < kScans; ++i)
            wrong += scan(db, points.data() + 3 * i) != found[size_t(i)];
        const double one_scan = (seconds() - start) / kScans;
        std::printf(
            "%-6s  build %.3f s, query %.2f us, scan %.2f ms; %d queries %.0f times faster (target 100), %d wrong\n",
            cloud, build, (all - build) / (kQueries - 1) * 1e6, one_scan * 1e3, kQueries, one_scan * kQueries / all,
            wrong);
        ZEL_UnLink(db);
    }
}
