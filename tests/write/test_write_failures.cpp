// Output that cannot be completed leaves no file, and the older one as it was; so does a write that is refused.
#include "assembly.h"
#include "exercise.h"
#include "fixtures.h"
#include "sample_file.h"

#include "base/memory.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <random>

namespace
{

// Files of this process end at `bytes` while it lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_;
};

// What `action` writes to a descriptor, through a pipe: a file would end at the limit as well. It holds 64 KiB.
template <typename Action> std::string through_pipe(int descriptor, Action action)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const int before = dup(descriptor);
    dup2(ends[1], descriptor);
    close(ends[1]);
    action();
    std::fflush(stdout);
    dup2(before, descriptor);
    close(before);
    std::string text;
    char part[4096];
    for (ssize_t bytes; (bytes = read(ends[0], part, sizeof part)) > 0;)
        text.append(part, size_t(bytes));
    close(ends[0]);
    return text;
}

class FailingWrites : public ZelTest
{
protected:
    ZELDATA* sample_body()
    {
        const std::string path = folder.path("sample.zel");
        write_bytes(path, sample_file({60, true, false}).bytes());
        return ZEL_CreateFromZEL(path.c_str());
    }
    // Writes; keeps what went to standard error.
    int write(ZELDATA* db, const std::string& name, const char* options)
    {
        const Environment variable("VXR_ZELWRITE_OPTIONS", options);
        int result = -1;
        errors = through_pipe(STDERR_FILENO,
                              [&] { through_pipe(STDOUT_FILENO, [&] { result = ZEL_write_ZEL(db, name.c_str()); }); });
        return result;
    }
    bool reported(const std::string& text) const { return errors.find("ERROR:  " + text) != std::string::npos; }

    TemporaryFolder folder;
    std::string errors;
    const std::string out = folder.path("out.zel");
};

constexpr const char* kUnwritten[] = {
    "version number.",
    "header information.",
    "content summary.",
    "nodal coordinates.",
    "Global Body Properties.",
    "Mode Shapes.",
    "Nodal Masses.",
    "Nodal Inertia info.",
    "Units strings.",
    "Generalized Stiffness",
    "Generalized Mass info",
    "element face info.",
    "Generalized Damping",
    "Interface Nodes.",
    "Modal Stress.",
    "Invariant 1.",
    "Invariant 2.",
    "Invariant 3.",
    "Invariant 4.",
    "Invariant 5.",
    "Invariant 7.",
    "Invariant 8.",
    "Invariant 9.",
    "Preload.",
    "Modal Loads.",
    "Modal Strain.",
    "Modal Statistics.",
    "Pre-Stress.",
    "Pre-Strain.",
};

} // namespace

TEST_F(FailingWrites, AFullDiskLeavesTheOlderFileOrNone)
{
    ZELDATA* db = sample_body();
    for (const char* options : {"no_ortho", "no_ortho no_xdr single"})
    {
        ASSERT_EQ(write(db, out, options), 1);
        const std::string whole = bytes_of(out);
        for (size_t bytes = 0; bytes < whole.size(); bytes += bytes < 600 ? 97 : 331)
        {
            {
                const FileSizeLimit limit(bytes);
                ASSERT_EQ(write(db, out, options), 0) << bytes;
            }
            ASSERT_EQ(folder.files(), (std::vector<std::string>{"out.zel", "sample.zel"}));
            ASSERT_EQ(bytes_of(out), whole);
            EXPECT_TRUE(reported("  File too large\n")) << errors;
            EXPECT_EQ(errors.find("ERROR:  \n"), std::string::npos) << errors;
            const bool named = std::any_of(std::begin(kUnwritten), std::end(kUnwritten), [&](const char* block) {
                return reported(std::string("Problem writing ") + block);
            });
            EXPECT_TRUE(named) << errors;
        }
        std::remove(out.c_str());
        {
            const FileSizeLimit limit(1000);
            ASSERT_EQ(write(db, out, options), 0);
        }
        EXPECT_EQ(folder.files(), std::vector<std::string>{"sample.zel"});
        ASSERT_EQ(write(db, out, options), 1); // the database has lost nothing
        EXPECT_EQ(bytes_of(out), whole);
    }
}

TEST_F(FailingWrites, TheSignalOfTheLimitStaysWithTheHost)
{
    static int signals;
    ZELDATA* db = sample_body();
    const auto handler = std::signal(SIGXFSZ, [](int) { ++signals; });
    {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(write(db, out, "no_ortho"), 0);
    }
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(signals, 0);
}

TEST_F(FailingWrites, MissingMemoryLeavesNoFileAndAUsableBody)
{
    for (const char* options : {"no_ortho full_invar lbrf2cm", "no_ortho sparse_str", "no_ortho 82_comp", "lbrf2cm"})
    {
        int successes = 0;
        for (int allocation = 0; successes == 0; ++allocation)
        {
            ZELDATA* db = database_of(random_assembly(7, 2, 4, true));
            const double values[6] = {1, 0, 0, 0, 0, 0};
            output_of([&] { ZEL_SetModeVec(db, 101, 3, 1, values); });
            ZEL_SetFace(db, 3, 2, 3, 5);
            ZEL_SetModalLoad(db, 0, 102, 1.0);
            zel::failing_allocation = allocation;
            const int written = write(db, out, options);
            const bool failed = zel::failing_allocation < 0;
            zel::failing_allocation = -1;
            if (written && !failed)
                ++successes;
            if (!written)
            {
                EXPECT_TRUE(reported("Failed to allocate memory at line ")) << allocation << errors;
                EXPECT_TRUE(folder.files().empty());
            }
            ASSERT_EQ(write(db, out, options), 1) << allocation;
            std::remove(out.c_str());
            ZEL_UnLink(db);
        }
    }
}

TEST_F(FailingWrites, RefusalsKeepTheFileThatIsThere)
{
    ZELDATA* db = sample_body();
    const std::string own = folder.path("sample.zel"), before = bytes_of(own);
    const std::string spelled = folder.folder() + "/./sample.zel", link = folder.path("link"),
                      hard = folder.path("hard");
    ASSERT_EQ(symlink("sample.zel", link.c_str()), 0);
    ASSERT_EQ(::link(own.c_str(), hard.c_str()), 0);
    for (const std::string& name : {own, spelled, link, hard})
    {
        EXPECT_EQ(write(db, name, "no_ortho"), 0);
        EXPECT_EQ(errors, "ERROR:  The output ZEL name must be different than the current ZEL name.\nERROR:    Current "
                          "ZEL name:  " +
                              own + "\nERROR:    Output ZEL name:  " + name + "\n");
        EXPECT_EQ(bytes_of(own), before);
    }
    unlink(link.c_str());
    unlink(hard.c_str());
    EXPECT_EQ(ZEL_write_ZEL(db, nullptr), 0);
    EXPECT_EQ(ZEL_write_ZEL(nullptr, out.c_str()), 0);
    ZELDATA stranger = {};
    EXPECT_EQ(ZEL_write_ZEL(&stranger, out.c_str()), 0);
    const std::string nowhere = folder.path("missing/out.zel");
    EXPECT_EQ(write(db, nowhere, "no_ortho"), 0);
    EXPECT_EQ(errors, "ERROR:  Unable to open " + nowhere +
                          " for write. Please check write permissions.\nERROR:    No such file or directory\n");
    EXPECT_EQ(folder.files(), std::vector<std::string>{"sample.zel"});
}

TEST_F(FailingWrites, AFileThatAnotherDatabaseReadsIsReplacedNotChanged)
{
    ZELDATA* reader = sample_body();
    const auto shapes = [&] {
        std::vector<double> values(size_t(3 * ZEL_ModeNodeCount(reader, 0)));
        EXPECT_EQ(ZEL_Mode(reader, ZEL_ModeNumber(reader, 1), 0, values.data(), 0), 1);
        return values;
    };
    const std::vector<double> before = shapes();
    ZELDATA* other = database_of(random_assembly(5, 2, 4, true));
    EXPECT_EQ(write(other, out, "no_ortho"), 1);
    if (geteuid() == 0) // as somebody who may write to the file, but not replace it
    {
        std::filesystem::permissions(folder.path("sample.zel"), std::filesystem::perms(0666));
        std::filesystem::permissions(folder.folder(), std::filesystem::perms(0555));
        ASSERT_EQ(seteuid(65534), 0);
        EXPECT_EQ(write(other, folder.path("sample.zel"), "no_ortho"), 0);
        EXPECT_TRUE(reported("  Permission denied\n")) << errors;
        ASSERT_EQ(seteuid(0), 0);
    }
    EXPECT_EQ(write(other, folder.path("sample.zel"), "no_ortho"), 1);
    reader->cached_mode[0] = -1; // reads again
    EXPECT_EQ(shapes(), before);
    ZEL_UnLink(reader);
    EXPECT_EQ(bytes_of(folder.path("sample.zel")).size(), bytes_of(out).size());
}

TEST_F(FailingWrites, NoDescriptorStaysOpen)
{
    const auto open_files = [] {
        const std::filesystem::directory_iterator begin("/proc/self/fd");
        return std::distance(begin, std::filesystem::directory_iterator());
    };
    const auto before = open_files();
    for (const char* options : {"", "no_ortho", "full_str sparse_str", "fast_invar MKS"})
    {
        write(sample_body(), out, options);
        const FileSizeLimit limit(3000);
        write(database_of(random_assembly(5, 2, 4, true)), out, options);
        errors_of([&] { EXPECT_EQ(ZEL_CreateFromZEL("/dev/null"), nullptr); });
        zel::failing_allocation = 0;
        EXPECT_EQ(ZEL_CreateFromZEL(out.c_str()), nullptr);
        ZEL_Terminate();
        EXPECT_EQ(open_files(), before) << options;
    }
}

TEST_F(FailingWrites, ConflictingOptionsEndTheWriteAfterTheGeometryChanged)
{
    ZELDATA* db = database_of(random_assembly(3, 1, 4, false));
    const double x = db->nodes[0].x;
    write_bytes(out, "good and old");
    EXPECT_EQ(write(db, out, "full_str sparse_str lbrf2cm"), 0);
    EXPECT_EQ(errors, "ERROR:  Cannot specify full and sparse stress and strain modes.\n"
                      "ERROR:  Problem writing version number.\n");
    EXPECT_EQ(bytes_of(out), "good and old");
    EXPECT_NE(db->nodes[0].x, x);
}

TEST_F(FailingWrites, WithoutDiskSpaceForNewModesNothingIsWrittenOrNothingReduced)
{
    ZELDATA* db = ZEL_Create(2000, 20); // each mode file takes 1.9 MB
    output_of([&] {
        ZEL_SetUnits(db, "kg", "mm", "s", "N");
        for (int id = 1; id <= 4; ++id)
        {
            const double values[6] = {1.0 * id, 0, 0, 0, 0, 0};
            ZEL_SetNodeCoordinates(db, id, id, 0, 1);
            ZEL_SetNodalMass(db, id, 1.0);
            ZEL_SetModeVec(db, 1, id, 0, values);
        }
        ZEL_SetFace(db, 2, 1, 2);
        for (int entry = 0; entry < 4; ++entry)
        {
            ZEL_SetGeneralizedStiffness(db, 1 + entry / 2, 1 + entry % 2, entry % 3 ? -1.0 : 5.0);
            ZEL_SetGeneralizedMass(db, 1 + entry / 2, 1 + entry % 2, entry % 3 ? 0.5 : 2.0);
        }
        ZEL_SetModalLoad(db, 0, 1, 7.0);
        ZEL_SetModalPreload(db, 2, 3.0);
    });
    const auto write_with_little_space = [&](const char* options, int expected) {
        const FileSizeLimit limit(1000000);
        EXPECT_EQ(write(db, out, options), expected);
        EXPECT_TRUE(reported("Insufficient disk space for file "));
    };
    write_with_little_space("fast_invar", 0); // no orthogonal modes: no file, and nothing of the body changes
    EXPECT_TRUE(folder.files().empty());
    EXPECT_TRUE(!db->transformation && !db->eigenvalues && db->stiffness.count == 4 && db->mass.count == 4);
    EXPECT_TRUE(db->load_cases[0].values[0] == 7.0 && db->modal_preload[1] == 3.0 && !db->load_cases[0].processed);
    write_with_little_space("no_ortho fast_invar MKS", 1); // no reduction, and so no other units
    EXPECT_NE(
        errors.find(".  Specify different temporary\nERROR:  file directory by setting the TMP environment variable\n"),
        std::string::npos);
    ZELDATA* read = ZEL_CreateFromZEL(out.c_str());
    ASSERT_TRUE(read);
    EXPECT_EQ(ZEL_ModeNodeCount(read, 0), 4);
    EXPECT_STREQ(read->units.length, "MILLIMETER");
}

// Whatever opens, damaged or not, can be written in every way, and what was written opens again.
TEST_F(FailingWrites, DamagedBodiesAreWrittenOrRefused)
{
    constexpr const char* kOptions[] = {"",
                                        "no_ortho full_invar",
                                        "full_invar MKS",
                                        "82_comp empty",
                                        "sparse_str highpass(0)",
                                        "full_str",
                                        "no_ortho lbrf2cm",
                                        "strip_face fast_invar coarsen(20)",
                                        "no_ortho 81_comp"};
    std::mt19937 random(20260106);
    std::vector<std::string> seeds;
    for (const FileFormat& format : all_formats())
        seeds.push_back(sample_file(format).bytes());
    const std::string in = folder.path("in.zel");
    int written = 0, opened = 0, reread = 0;
    for (int i = 0; i < 900; ++i)
    {
        ZELDATA* db = nullptr;
        write_bytes(in, mutated(seeds[size_t(i) % seeds.size()], random));
        errors_of([&] { db = ZEL_CreateFromZEL(in.c_str()); });
        if (!db)
            continue;
        ++opened;
        if (write(db, out, kOptions[size_t(i) % std::size(kOptions)]))
        {
            ++written;
            const std::string refusal = errors_of([&] { reread += ZEL_CreateFromZEL(out.c_str()) != nullptr; });
            EXPECT_EQ(refusal.find("ERROR"), std::string::npos) << i << refusal;
        }
        std::remove(out.c_str()); // a new file need not be synced
        ZEL_Terminate();
    }
    EXPECT_GT(opened, 100);
    EXPECT_EQ(reread, written);
    EXPECT_GT(written, opened * 9 / 10);
}
