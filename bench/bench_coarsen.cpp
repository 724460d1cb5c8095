// ZEL_TrimGeometry on a torus of 500 000 triangles, against the sloppy simplifier of meshoptimizer, which is asked for the
// same number of triangles. Prints the processor time of each and the mean distance of its result from the torus.
#include "zel.h"

#include <meshoptimizer.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>
#include <vector>

// Processor time, which does not count what other programs take of a busy machine.
static double processor_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

static constexpr double kRing = 1.0, kTube = 0.4; // radii
static constexpr int kSteps = 500;                // around the ring and around the tube

namespace
{
struct Mesh
{
    std::vector<double> points; // x, y, z a vertex
    std::vector<unsigned> triangles;
};
} // namespace

static Mesh make_torus()
{
    const double step = 2.0 * std::acos(-1.0) / kSteps;
    Mesh mesh;
    for (int i = 0; i < kSteps * kSteps; ++i)
    {
        const double along = step * (i / kSteps), around = step * (i % kSteps + 0.5 * (i / kSteps % 2));
        const double radius = kRing + kTube * std::cos(around);
        for (double coordinate : {radius * std::cos(along), radius * std::sin(along), kTube * std::sin(around)})
            mesh.points.push_back(coordinate);
    }
    const auto vertex = [](int along, int around) {
        return unsigned(along % kSteps * kSteps + (around + kSteps) % kSteps);
    };
    for (int i = 0; i < kSteps * kSteps; ++i)
    {
        const int along = i / kSteps, around = i % kSteps, shift = along % 2;
        const unsigned a = vertex(along, around), b = vertex(along, around + 1);
        const unsigned c = vertex(along + 1, around + shift), d = vertex(along + 1, around + shift + 1);
        if (shift)
            for (unsigned corner : {a, c, b, b, c, d})
                mesh.triangles.push_back(corner);
        else
            for (unsigned corner : {a, c, d, a, d, b})
                mesh.triangles.push_back(corner);
    }
    return mesh;
}

// Area-weighted mean distance of the triangles from the torus, from 64 samples each.
static double mean_distance(const Mesh& mesh)
{
    constexpr int kSamples = 8; // along each edge
    double distance = 0.0, total = 0.0;
    for (size_t t = 0; t < mesh.triangles.size(); t += 3)
    {
        const double* p[3];
        for (size_t i = 0; i < 3; ++i)
            p[i] = &mesh.points[3 * mesh.triangles[t + i]];
        double u[3], v[3];
        for (int axis = 0; axis < 3; ++axis)
        {
            u[axis] = p[1][axis] - p[0][axis];
            v[axis] = p[2][axis] - p[0][axis];
        }
        const double area = std::hypot(u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]);
        total += area;
        for (int i = 0; i < kSamples; ++i)
            for (int j = 0; j < kSamples; ++j)
            {
                double s = (i + 0.5) / kSamples, r = (j + 0.5) / kSamples, at[3];
                if (s + r > 1.0)
                {
                    s = 1.0 - s;
                    r = 1.0 - r;
                }
                for (int axis = 0; axis < 3; ++axis)
                    at[axis] = p[0][axis] + s * u[axis] + r * v[axis];
                const double off_tube = std::hypot(std::hypot(at[0], at[1]) - kRing, at[2]);
                distance += area / (kSamples * kSamples) * std::fabs(off_tube - kTube);
            }
    }
    return distance / total;
}

// Messages go to standard output; the figures are printed here.
static double time_trim(ZELDATA* db, const char* text)
{
    std::fflush(stdout);
    const int output = dup(1), nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, 1);
    const double start = processor_seconds();
    const int result = ZEL_TrimGeometry(db, text);
    const double seconds = processor_seconds() - start;
    std::fflush(stdout);
    dup2(output, 1);
    close(output);
    close(nowhere);
    return result ? seconds : -1.0;
}

static void set_faces(ZELDATA* db, const Mesh& mesh)
{
    std::free(db->face_list);
    db->face_count = int(mesh.triangles.size() / 3);
    db->face_list_length = db->face_capacity = 4 * db->face_count;
    db->face_list = static_cast<int*>(std::malloc(size_t(db->face_list_length) * sizeof(int)));
    for (int face = 0; face < db->face_count; ++face)
    {
        db->face_list[4 * face] = 3;
        for (int i = 0; i < 3; ++i)
            db->face_list[4 * face + 1 + i] = int(mesh.triangles[size_t(3 * face + i)]);
    }
}

static std::vector<unsigned> triangles_of(const ZELDATA* db)
{
    std::vector<unsigned> triangles;
    for (int at = 0; at < db->face_list_length; at += db->face_list[at] + 1)
        for (int i = 2; i < db->face_list[at]; ++i)
            for (int corner : {1, i, i + 1})
                triangles.push_back(unsigned(db->face_list[at + corner]));
    return triangles;
}

int main()
{
    constexpr double kMostTime = 4.0, kMostDistance = 1.2;
    constexpr int kRuns = 5;
    // Memory that was freed stays with the process, for both alike: the kernel's time for pages is not what is compared.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    const Mesh torus = make_torus();
    ZELDATA* db = ZEL_Create(0, 0);
    for (size_t i = 0; i < torus.points.size(); i += 3)
        ZEL_SetNodeCoordinates(db, int(i / 3) + 1, torus.points[i], torus.points[i + 1], torus.points[i + 2]);
    const std::vector<float> positions(torus.points.begin(), torus.points.end());

    std::printf("%zu triangles; mean distance %.3g\n", torus.triangles.size() / 3, mean_distance(torus));
    for (const char* resolution : {"1", "2", "5", "10"})
    {
        Mesh own = {torus.points, {}}, reference = own;
        double own_time = 1e9, reference_time = 1e9;
        for (int run = 0; run < kRuns; ++run)
        {
            set_faces(db, torus);
            own_time = std::min(own_time, time_trim(db, resolution));
        }
        own.triangles = triangles_of(db);
        for (int run = 0; run < kRuns; ++run)
        {
            reference.triangles.resize(torus.triangles.size());
            const double start = processor_seconds();
            const size_t count = meshopt_simplifySloppy(reference.triangles.data(), torus.triangles.data(),
                                                        torus.triangles.size(), positions.data(), positions.size() / 3,
                                                        3 * sizeof(float), own.triangles.size(), 1.0f, nullptr);
            reference_time = std::min(reference_time, processor_seconds() - start);
            reference.triangles.resize(count);
        }
        const double own_distance = mean_distance(own), reference_distance = mean_distance(reference);
        std::printf("resolution %s%%\n", resolution);
        std::printf("  meshoptimizer  %6zu triangles  %6.1f ms  mean distance %.3e\n", reference.triangles.size() / 3,
                    1e3 * reference_time, reference_distance);
        std::printf("  zel            %6zu triangles  %6.1f ms  mean distance %.3e\n", own.triangles.size() / 3,
                    1e3 * own_time, own_distance);
        std::printf("  ratios: time %.2f (target: at most %.0f), distance %.2f (target: at most %.1f)\n",
                    own_time / reference_time, kMostTime, own_distance / reference_distance, kMostDistance);
    }
    ZEL_Terminate();
    return 0;
}
