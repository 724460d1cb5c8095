// ZEL_TrimGeometry on a torus of 500 000 triangles, against the sloppy simplifier of meshoptimizer, which is asked for the
// same number of triangles, with the mean distance of each result from the torus. And two bodies that ask for more than
// linear time if polygons are clipped or kept nodes are searched carelessly, at one size and at eight times that size.
//   build/.../bench/coarsen [passes]
#include "harness.h"
#include "zel.h"

#include <meshoptimizer.h>

#include <cmath>
#include <cstdlib>
#include <malloc.h>
#include <string>
#include <vector>

static constexpr double kRing = 1.0, kTube = 0.4; // radii
static constexpr int kSteps = 500;                // around the ring and around the tube

namespace
{
struct Mesh
{
    std::vector<double> points; // x, y, z a vertex
    std::vector<unsigned> triangles;
};

struct Result
{
    std::vector<unsigned> triangles;
    double distance = bench::kNotMeasured;
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

// Keeps the triangles with their distance from the torus, and shows both.
static void keep(benchmark::State& state, Result& result, const Mesh& torus, const std::vector<unsigned>& triangles)
{
    if (result.triangles != triangles)
        result = {triangles, mean_distance({torus.points, triangles})};
    state.counters["triangles"] = double(triangles.size() / 3);
    state.counters["mean_distance"] = result.distance;
}

static void trim(benchmark::State& state, ZELDATA* db, const char* resolution, const Mesh& torus, Result& result)
{
    set_faces(db, torus);
    for (auto _ : state)
        if (!ZEL_TrimGeometry(db, resolution))
            state.SkipWithError("The faces cannot be trimmed");
    keep(state, result, torus, triangles_of(db));
}

// To as many triangles as `own` has.
static void simplify(benchmark::State& state, const std::vector<float>& positions, const Mesh& torus, const Result& own,
                     Result& result)
{
    std::vector<unsigned> triangles(torus.triangles.size());
    size_t count = 0;
    for (auto _ : state)
        count =
            meshopt_simplifySloppy(triangles.data(), torus.triangles.data(), torus.triangles.size(), positions.data(),
                                   positions.size() / 3, 3 * sizeof(float), own.triangles.size(), 1.0f, nullptr);
    triangles.resize(count);
    keep(state, result, torus, triangles);
}

// A flat comb, which becomes one polygon with a corner a tooth.
static ZELDATA* make_comb(int teeth)
{
    ZELDATA* db = ZEL_Create(0, 0);
    for (int i = 0; i <= teeth; ++i)
        for (double y : {0.0, 1.0, 30.0})
            ZEL_SetNodeCoordinates(db, db->node_count + 1, y, i + (y > 1.0 ? 0.5 : 0.0), 0);
    Mesh mesh;
    for (unsigned i = 0; i < 3 * unsigned(teeth); i += 3)
        for (unsigned corner : {i, i + 4, i + 3, i, i + 1, i + 4, i + 1, i + 2, i + 4})
            mesh.triangles.push_back(corner);
    set_faces(db, mesh);
    return db;
}

// A plate across the first axis, where each second node must stay.
static ZELDATA* make_kept_plate(int rows)
{
    constexpr unsigned kRow = 50;
    ZELDATA* db = ZEL_Create(0, 0);
    Mesh mesh;
    for (unsigned i = 0; i < kRow * unsigned(rows); ++i)
    {
        ZEL_SetNodeCoordinates(db, int(i) + 1, 0, i % kRow, i / kRow);
        if (i % kRow + 1 < kRow && i / kRow + 1 < unsigned(rows))
            for (unsigned corner : {i, i + 1, i + kRow + 1, i, i + kRow + 1, i + kRow})
                mesh.triangles.push_back(corner);
    }
    set_faces(db, mesh);
    for (int id = 1; id <= db->node_count; id += 2)
        ZEL_SetInterfaceNode(db, id);
    return db;
}

// The faces are trimmed once a pass, as a trimmed body is another one; making the body is not timed.
static void grow(benchmark::State& state, ZELDATA* (*make)(int), int size, const char* resolution)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        ZELDATA* db = make(size);
        state.ResumeTiming();
        if (!ZEL_TrimGeometry(db, resolution))
            state.SkipWithError("The faces cannot be trimmed");
        state.PauseTiming();
        ZEL_UnLink(db);
        state.ResumeTiming();
    }
}

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    // Memory that was freed stays with the process, for both alike: the kernel's time for pages is not what is compared.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    const int passes = bench::argument(argc, argv, 1, 15);
    const Mesh torus = make_torus();
    ZELDATA* db = ZEL_Create(0, 0);
    for (size_t i = 0; i < torus.points.size(); i += 3)
        ZEL_SetNodeCoordinates(db, int(i / 3) + 1, torus.points[i], torus.points[i + 1], torus.points[i + 2]);
    const std::vector<float> positions(torus.points.begin(), torus.points.end());

    static const char* const kResolutions[] = {"1", "2", "5", "10"};
    Result own[std::size(kResolutions)], reference[std::size(kResolutions)];
    for (size_t i = 0; i < std::size(kResolutions); ++i)
    {
        const std::string name = std::string(kResolutions[i]) + " %", other = name + ", meshoptimizer";
        bench::add(name, passes, [&, i](benchmark::State& state) { trim(state, db, kResolutions[i], torus, own[i]); });
        bench::add(other, passes,
                   [&, i](benchmark::State& state) { simplify(state, positions, torus, own[i], reference[i]); });
        bench::at_most(name + ", time over meshoptimizer", 4, bench::ratio(name, other));
        bench::at_most(name + ", distance over meshoptimizer", 1.2,
                       [&, i] { return own[i].distance / reference[i].distance; });
    }
    bench::add("comb of 12 500 teeth", 5, [](benchmark::State& state) { grow(state, make_comb, 12500, "0"); });
    bench::add("comb of 100 000 teeth", 5, [](benchmark::State& state) { grow(state, make_comb, 100000, "0"); });
    bench::at_most("comb, growth over eight times the faces", 16,
                   bench::ratio("comb of 100 000 teeth", "comb of 12 500 teeth"));
    bench::add("10 000 nodes, half kept", 5, [](benchmark::State& state) { grow(state, make_kept_plate, 200, "50"); });
    bench::add("80 000 nodes, half kept", 5, [](benchmark::State& state) { grow(state, make_kept_plate, 1600, "50"); });
    bench::at_most("kept nodes, growth over eight times the nodes", 16,
                   bench::ratio("80 000 nodes, half kept", "10 000 nodes, half kept"));
    const int result = bench::run();
    ZEL_Terminate();
    return result;
}
