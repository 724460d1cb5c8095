// The progress handler: who is told, how often, and what an operation leaves behind that it ends.
#include "assembly.h"
#include "fixtures.h"

#include "database/record.h"

#include <pthread.h>
#include <thread>

namespace
{

// Ends the operation at the call of this number, counted from 0; negative: never.
struct Watcher
{
    int end_at = -1, calls = 0;
    pthread_t thread = pthread_self();
    static int tell(void* context, double done, double total)
    {
        Watcher& watcher = *static_cast<Watcher*>(context);
        EXPECT_TRUE(pthread_equal(watcher.thread, pthread_self()));
        EXPECT_LE(0.0, done);
        EXPECT_LE(done, total);
        return watcher.calls++ == watcher.end_at;
    }
};

// Faces of a grid of n x n nodes that is bent, so that there is something to coarsen.
void add_grid(ZELDATA* db, int n)
{
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < n; ++k)
            ZEL_SetNodeCoordinates(db, n * i + k + 1, i, k, 0.05 * i * i);
    for (int i = 0; i + 1 < n; ++i)
        for (int k = 0; k + 1 < n; ++k)
        {
            const int corner = n * i + k + 1, ring[] = {corner, corner + n, corner + n + 1, corner + 1};
            ZEL_SetFaceList(db, 4, ring);
        }
}

class ProgressHandlers : public ZelTest
{
protected:
    static constexpr int kGrid = 8, kModes = 9;
    ZELDATA* body()
    {
        ZELDATA* db = database_of(random_assembly(kGrid * kGrid, kModes, 7, true));
        quietly([&] {
            add_grid(db, kGrid);
            for (int i = 0; i < kModes; ++i)
                for (int k = 0; k < kModes; ++k)
                {
                    ZEL_SetGeneralizedStiffness(db, 101 + i, 101 + k, (i == k ? 100.0 * (i + 1) : 1.0));
                    ZEL_SetGeneralizedMass(db, 101 + i, 101 + k, (i == k ? 2.0 : 0.125));
                }
            for (int kind : {ZEL_MODAL_STRESS, ZEL_MODAL_STRAIN})
                for (int i = 0; i < kModes; ++i)
                    ZEL_SetMode(db, 101 + i, 5, kind, 1, 2, 3, 4, 5, 6.0 + i);
        });
        return db;
    }
    // Runs an operation again and again, ended at its first call of the handler, at its second and so on, until it is not
    // ended any more. check: after each run, with whether it was ended. How many calls there are at most.
    int end_everywhere(const std::function<bool(ZELDATA*)>& run, const std::function<void(ZELDATA*, bool ended)>& check)
    {
        zel::hurried_clock = 1;
        int end_at = 0;
        for (bool ended = true; ended; ++end_at)
        {
            ZELDATA* db = body();
            Watcher watcher;
            watcher.end_at = end_at;
            bool succeeded = false;
            ZEL_SetProgressHandler(Watcher::tell, &watcher);
            std::string errors;
            output_of([&] { errors = errors_of([&] { succeeded = run(db); }); });
            ZEL_SetProgressHandler(nullptr, nullptr);
            ended = watcher.calls > end_at;
            EXPECT_EQ(succeeded, !ended) << end_at;
            EXPECT_EQ(watcher.calls, end_at + ended) << end_at;
            EXPECT_EQ(errors.ends_with("ERROR:  The operation was ended on request.\n"), ended) << errors;
            EXPECT_EQ(errors.find("ERROR"), errors.rfind("ERROR")) << errors;
            check(db, ended);
            ZEL_Terminate();
        }
        zel::hurried_clock = 0;
        return end_at;
    }
    TemporaryFolder folder;
};

} // namespace

// At once, and then no more often than ten times a second; the thread's own, and none when it is taken away.
TEST_F(ProgressHandlers, AreToldNowAndThen)
{
    ZELDATA* db = body();
    Watcher watcher;
    void* context = nullptr;
    EXPECT_EQ(ZEL_SetProgressHandler(Watcher::tell, &watcher), nullptr);
    EXPECT_EQ(ZEL_ProgressHandler(&context), Watcher::tell);
    EXPECT_EQ(context, &watcher);
    std::free(ZEL_Invar3(db));
    EXPECT_EQ(watcher.calls, 1);
    std::free(ZEL_Invar5(db, 0));
    EXPECT_EQ(watcher.calls, 1);
    zel::hurried_clock = time_t(1) << 40; // beyond the system's
    std::thread([&] {
        ZELDATA* other = body();
        std::free(ZEL_Invar3(other));
    }).join();
    EXPECT_EQ(watcher.calls, 1);
    int precision = 0;
    double a[9] = {4, 1, 0, 1, 3, 1, 0, 1, 2}, b[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1}, z[9];
    const int n = 3;
    const double none = 0.0;
    ZEL_QZHESS(&n, &n, a, b, &n, z); // the stages by themselves have no way to fail
    ZEL_QZITT(&n, &n, a, b, &none, &n, z, &precision);
    EXPECT_EQ(watcher.calls, 1);
    EXPECT_EQ(ZEL_SetProgressHandler(nullptr, nullptr), Watcher::tell);
    std::free(ZEL_Invar9(body(), 0, 0));
    EXPECT_EQ(watcher.calls, 1);
    zel::hurried_clock = 0;
}

// The older file stands, nothing is left beside it, and the body can be written as if nothing had been.
TEST_F(ProgressHandlers, EndAWriteAnywhere)
{
    const std::string path = folder.path("out.zel"), whole = folder.path("whole.zel");
    const char* const options = "full_invar coarsen(30)";
    ZELDATA* const source = body();
    quietly([&] { ASSERT_EQ(ZEL_WriteWithOptions(source, whole.c_str(), options), 1); });
    write_bytes(path, "older");
    const auto run = [&](ZELDATA* db) { return ZEL_WriteWithOptions(db, path.c_str(), options) == 1; };
    int compared = 0;
    const int calls = end_everywhere(run, [&](ZELDATA* db, bool ended) {
        EXPECT_EQ(folder.files(), (std::vector<std::string>{"out.zel", "whole.zel"}));
        EXPECT_EQ(bytes_of(path) == "older", ended);
        if (compared++ % 7 != 0)
            return;
        const std::string again = folder.path("again.zel");
        quietly([&] { EXPECT_EQ(ZEL_WriteWithOptions(db, again.c_str(), options), 1); });
        ZELCOMPARISON rows[300] = {};
        ZEL_CompareBodies(ZEL_CreateFromZEL(whole.c_str()), ZEL_CreateFromZEL(again.c_str()), 1e-9, rows, 300);
        for (const ZELCOMPARISON& row : rows)
            EXPECT_NE(row.verdict, ZEL_COMPARISON_FAIL) << row.check;
        std::remove(again.c_str());
    });
    EXPECT_GT(calls, 60); // coarsening, stages of the solver, vectors, sums, blocks
}

TEST_F(ProgressHandlers, EndOtherOperationsAnywhere)
{
    const std::string path = folder.path("body.zel");
    ZELDATA* const source = body();
    quietly([&] { ASSERT_EQ(ZEL_WriteWithOptions(source, path.c_str(), "full_invar"), 1); });
    ZELDATA* plain = body();
    const std::string faces = report_of(plain, ZEL_BLOCK_FACES), masses = report_of(plain, ZEL_BLOCK_MASS);
    const std::vector<double> third = library_invariant(plain, 3), ninth = library_invariant(plain, 9);
    const auto write_bare = [&](ZELDATA*) {
        ZELDATA* bare = ZEL_Create(0, 0); // nothing but coarsening lasts
        add_grid(bare, kGrid);
        return ZEL_WriteWithOptions(bare, folder.path("bare.zel").c_str(), "coarsen(30)") == 1;
    };
    const auto ninth_of = [](ZELDATA* db) {
        double* values = ZEL_Invar9(db, 0, 1);
        std::free(values);
        return values != nullptr;
    };
    const auto compare = [&](ZELDATA* db) {
        ZEL_SetUnits(db, "kg", "m", "s", "N");
        return ZEL_CompareBodies(db, db, 0.0, nullptr, 0) >= 0;
    };
    const auto compare_printing = [&](ZELDATA* db) {
        zel::raise_flag(db, ZEL_BLOCK_EIGENVALUES);
        return ZEL_Compare(db, db, 0, 0.0) == 0;
    };
    const auto nothing = [](ZELDATA*, bool) {};
    const std::tuple<int, std::function<bool(ZELDATA*)>, std::function<void(ZELDATA*, bool ended)>> operations[] = {
        {10, [&](ZELDATA*) { return ZEL_ReadZEL(ZEL_Create(0, 0), std::fopen(path.c_str(), "rb"), nullptr) == 1; },
         nothing},
        {10, [&](ZELDATA*) { return ZEL_CreateFromZEL(path.c_str()) != nullptr; },
         [&](ZELDATA*, bool ended) { EXPECT_TRUE(ZEL_CreateFromZEL(path.c_str())) << ended; }},
        {5, [](ZELDATA* db) { return ZEL_TrimGeometry(db, "30, 10") == 1; },
         [&](ZELDATA* db, bool ended) { EXPECT_EQ(report_of(db, ZEL_BLOCK_FACES) == faces, ended); }},
        {5, write_bare, nothing},
        {1, ninth_of, [&](ZELDATA* db, bool) { EXPECT_EQ(library_invariant(db, 9), ninth); }},
        {1, [](ZELDATA* db) { return ZEL_AnsysAddGenMass(db, 4, kModes - 4) == 1; },
         [&](ZELDATA* db, bool ended) { EXPECT_EQ(report_of(db, ZEL_BLOCK_MASS) == masses, ended); }},
        {20, compare, [&](ZELDATA* db, bool) { EXPECT_EQ(library_invariant(db, 3), third); }},
        {20, compare_printing, nothing},
    };
    for (const auto& [least_calls, run, check] : operations)
        EXPECT_GT(end_everywhere(run, check), least_calls);
}
