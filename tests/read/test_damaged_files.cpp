// Files that are cut, lie about their counts or contradict themselves: each gives one message and no database, and none
// makes the library crash, leak or ask for memory beyond what the file could fill.
#include "exercise.h"
#include "reading_test.h"

#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <iterator>

namespace
{
using DamagedFiles = ReadingTest;

const FileFormat kPlain = {60, false, false}; // native, double
const FileFormat kXdr = {60, true, false};

SampleFile with_blocks(FileFormat format, const std::vector<int>& kept)
{
    SampleFile file = sample_file(format);
    std::erase_if(file.blocks, [&](const auto& block) {
        return block.first > 3 && std::find(kept.begin(), kept.end(), block.first) == kept.end();
    });
    return file;
}

// Overwrites the integer at a byte position of a block.
void put(SampleFile& file, int block, size_t position, int value)
{
    file.blocks[block].replace(position, 4, file.build().integer(value).bytes);
}
} // namespace

TEST_F(DamagedFiles, FailAtEveryLengthThatIsTooShort)
{
    const std::string path = folder.path("cut.zel");
    for (const FileFormat& format : {kPlain, FileFormat{60, true, true}})
    {
        const std::string whole = sample_file(format).bytes();
        write_bytes(path, whole);
        errors = errors_of([&] {
            for (size_t length = whole.size(); length-- > 0;)
            {
                ASSERT_EQ(truncate(path.c_str(), off_t(length)), 0);
                ASSERT_EQ(ZEL_CreateFromZEL(path.c_str()), nullptr) << format.name() << " cut to " << length;
            }
        });
        EXPECT_EQ(size_t(std::count(errors.begin(), errors.end(), '\n')), whole.size()); // one line each
    }
}

TEST_F(DamagedFiles, NameTheBlockWhoseSizeIsImpossible)
{
    for (const FileFormat& format : {kPlain, kXdr, FileFormat{60, true, true}})
        for (const BlockTexts& row : block_texts())
        {
            if (row.number <= 3)
                continue;
            const std::string message = "ERROR:  " + row.damaged + "\n";
            for (size_t position : row.counts)
                for (int count : {-1, INT_MIN, INT_MAX, 0x15555556, 1 << 20})
                {
                    SampleFile file = sample_file(format);
                    put(file, row.number, position, count);
                    EXPECT_EQ(refusal_of(file), message) << count << " at " << position;
                }
            // a flag that promises the block at the end of a file that has ended
            SampleFile file = with_blocks(format, {});
            file.forced_flags[flag_of(row.number)] = 1;
            EXPECT_EQ(refusal_of(file), message);
        }
    for (int bytes : {0, 4, 7})
    {
        SampleFile file = sample_file(kPlain);
        put(file, 14, 0, bytes);
        EXPECT_EQ(refusal_of(file), "ERROR:  Problem in element face block\n");
    }
}

static std::vector<int> numbers_in(const std::string& text)
{
    std::istringstream words(text);
    return {std::istream_iterator<int>(words), {}};
}

TEST_F(DamagedFiles, NameTheBlockThatContradictsTheBody)
{
    for (const std::vector<std::string>& row : kept_rows("contradictions.txt"))
        for (const FileFormat& format : {kPlain, kXdr})
        {
            SampleFile file = with_blocks(format, numbers_in(row[0]));
            const bool is_inertia = row[1].starts_with("inertia");
            const std::vector<int> change = numbers_in(is_inertia ? row[1].substr(7) : row[1]);
            if (is_inertia)
                file.blocks[ZEL_BLOCK_INERTIAS] = inertias_block(file, {{20, change[0], change[1], 1.0}});
            else if (change.size() == 3)
                put(file, change[0], size_t(change[1]), change[2]);
            std::string expected = "ERROR:  " + row[2] + "\n";
            for (const std::string kind : {"Strain", "Stress"})
                if (contains(row[3], kind))
                    expected = "WARNING:  " + kind + " modes are being processed before mode shapes\n" + expected;
            EXPECT_EQ(refusal_of(file), expected) << row[0] << "|" << row[1];
        }
    // records without a byte each: the count is held to the size of the file
    SampleFile file = with_blocks(format_of_version(10), {ZEL_BLOCK_MODES});
    file.blocks[ZEL_BLOCK_MODES] = file.build().integers({INT_MAX, 0}).bytes;
    EXPECT_EQ(refusal_of(file), "ERROR:  Problem in mode shapes block\n");
}

// Runs an action in a child process that may take so many bytes more, and so many seconds. Whether it returned true.
static bool succeeds_within(int64_t bytes, rlim_t seconds, const std::function<bool()>& action)
{
    const pid_t child = fork();
    if (child == 0)
    {
        long pages = 0;
        FILE* sizes = std::fopen("/proc/self/statm", "r");
        const bool known = sizes && std::fscanf(sizes, "%ld", &pages) == 1;
        const rlimit memory = {rlim_t(pages * 4096 + bytes), RLIM_INFINITY}, time = {seconds, seconds};
#ifndef ZEL_SANITIZED // AddressSanitizer maps terabytes
        setrlimit(RLIMIT_AS, &memory);
#endif
        setrlimit(RLIMIT_CPU, &time);
        _exit(known && memory.rlim_cur > 0 && action() ? 0 : 1);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A few words can claim as many modes as a quarter of the file's bytes, and blocks of values for none of them.
TEST_F(DamagedFiles, PayLittleForModesThatAreNotThere)
{
    const auto opens_as = [&](const SampleFile& file, int modes) {
        std::string bytes = file.bytes();
        const int64_t size = 4 * int64_t(modes);
        bytes.resize(size_t(size)); // what is behind the last block is of no account
        const std::string path = folder.path("claims.zel"), copy = folder.path("copy.zel");
        write_bytes(path, bytes);
        const int64_t memory = (int64_t(64) << 20) + 20 * size;
        const auto look_at_invariants = [&](ZELDATA* db) {
            const double* const arrays[] = {ZEL_Invar3(db), ZEL_Invar4(db), ZEL_Invar5(db, 0), ZEL_Invar8(db, 1),
                                            ZEL_Invar9(db, 0, modes - 1)};
            for (int block : {ZEL_BLOCK_INVAR3, ZEL_BLOCK_INVAR4, ZEL_BLOCK_INVAR5, ZEL_BLOCK_INVAR8, ZEL_BLOCK_INVAR9})
                ZEL_Contents(db, block, stdout);
            return std::all_of(std::begin(arrays), std::end(arrays), [](const double* a) { return a && *a == 0.0; });
        };
        const auto open_and = [&](const std::function<bool(ZELDATA*)>& action) {
            return succeeds_within(memory, 2, [&] {
                if (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "w", stderr))
                    return false;
                ZELDATA* db = ZEL_CreateFromZEL(path.c_str());
                return ZEL_ModeCount(db) == modes && action(db);
            });
        };
        EXPECT_TRUE(open_and(look_at_invariants)) << size;
        EXPECT_TRUE(open_and([&](ZELDATA* db) { return ZEL_write_ZEL(db, copy.c_str()) == 1; })) << size;
        EXPECT_LT(bytes_of(copy).size(), size_t(memory)) << size;
    };
    for (const int modes : {3072, 1 << 18})
    {
        SampleFile by_order = with_blocks(kPlain, {ZEL_BLOCK_NODES, ZEL_BLOCK_STIFFNESS, ZEL_BLOCK_MASSES}),
                   by_shapes = with_blocks(format_of_version(10), {ZEL_BLOCK_MODES});
        put(by_order, 12, 4, modes);
        opens_as(by_order, modes);
        by_order.blocks[ZEL_BLOCK_INVAR5] = by_order.blocks[ZEL_BLOCK_INVAR9] = by_order.build().integer(0).bytes;
        opens_as(by_order, modes);
        by_shapes.blocks[ZEL_BLOCK_MODES] = by_shapes.build().integers({modes, 0}).bytes;
        opens_as(by_shapes, modes);
    }
}

// Mutations of every format at random, from a fixed seed. What no longer opens has said why; what opens answers every
// query. Nothing allocates more than a multiple of what the file has.
TEST_F(DamagedFiles, NeverCrashOrTakeMemoryWithoutBound)
{
    constexpr int kFiles = 20'000;
    std::mt19937 random(20260105);
    std::vector<std::string> seeds;
    for (const SampleFile& file : reduced_samples())
        seeds.push_back(file.bytes());
    FILE* report = std::fopen("/dev/null", "w");
    int opened = 0;
    quietly([&] {
        for (int i = 0; i < kFiles; ++i)
            opened += exercise_file(mutated(seeds[size_t(i) % seeds.size()], random), i % 4 == 0 ? report : nullptr);
    });
    std::fclose(report);
    EXPECT_GT(opened, kFiles / 20); // else the mutations reach nothing behind the directory
    EXPECT_LT(opened, kFiles);
    EXPECT_LT(zel::largest_allocation, 1 << 22); // the files have some 10 kB, a node table starts with 1000 nodes
}

// Each mode has an entry and none a frequency, so that all of them are looked at for the first that deforms the body.
TEST_F(DamagedFiles, OpenInTimeThoughAllModesAreRigid)
{
    constexpr int kModes = 150'000;
    SampleFile file = with_blocks(kPlain, {ZEL_BLOCK_NODES});
    FileBuilder mass = file.build().integers({kModes, kModes});
    for (int mode = 1; mode <= kModes; ++mode)
        mass.integers({mode, mode}).real(1.0).integer(0);
    file.blocks[ZEL_BLOCK_MASS] = mass.bytes;
    const std::string path = folder.path("rigid.zel");
    write_bytes(path, file.bytes());
    EXPECT_TRUE(succeeds_within(int64_t(1) << 30, 4, [&] {
        ZELDATA* db = ZEL_CreateFromZEL(path.c_str());
        return ZEL_ModeCount(db) == kModes && ZEL_RigidBodyModeCount(db) == 0;
    }));
}
