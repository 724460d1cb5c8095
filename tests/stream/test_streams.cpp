// Values on their way into files and back: the bulk path against libtirpc, widths, positions beyond 4 GiB.
#include "fixtures.h"

#include "stream/stream.h"

#include <rpc/xdr.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <bit>

using namespace zel;

namespace
{
// An anonymous file with a stream record over it.
struct OpenStream
{
    ZELSTREAM stream = {};
    OpenStream(bool xdr, bool double_precision, bool writing)
    {
        stream.file = std::tmpfile();
        stream.double_precision = double_precision;
        if (xdr && writing)
            open_xdr_writer(stream);
        else if (xdr)
            open_xdr_reader(stream);
    }
    ~OpenStream()
    {
        close_xdr(stream);
        std::fclose(stream.file);
    }
    std::string bytes()
    {
        std::fflush(stream.file);
        std::string all(size_t(FileSeek_Win32(stream.file, 0, 2) == 0 ? FileTell_Win32(stream.file) : 0), '\0');
        FileSeek_Win32(stream.file, 0, 0);
        EXPECT_EQ(std::fread(all.data(), 1, all.size(), stream.file), all.size());
        return all;
    }
    void fill(const std::string& bytes)
    {
        std::fwrite(bytes.data(), 1, bytes.size(), stream.file);
        std::fflush(stream.file);
        FileSeek_Win32(stream.file, 0, 0);
    }
};

// What libtirpc itself writes for a vector.
template <typename Item> std::string bytes_of_libtirpc(const std::vector<Item>& items, xdrproc_t encode)
{
    OpenStream out(true, true, true);
    std::vector<Item> copy = items;
    EXPECT_TRUE(xdr_vector(static_cast<XDR*>(out.stream.xdr_stream), reinterpret_cast<char*>(copy.data()),
                           u_int(copy.size()), sizeof(Item), encode));
    return out.bytes();
}

// Numbers with every awkward bit pattern, then random ones.
std::vector<double> awkward_reals(size_t count)
{
    std::vector<double> reals = {0.0, -0.0, 1.0, -1.5e300, HUGE_VAL, -HUGE_VAL, 5e-324};
    for (uint64_t bits : {uint64_t(0x7ff8dead'beef1234), uint64_t(0xfff8000000000001)}) // not numbers
        reals.push_back(std::bit_cast<double>(bits));
    std::mt19937_64 random(7);
    while (reals.size() < count)
        reals.push_back(std::ldexp(double(random()), int(random() % 60) - 90));
    reals.resize(count);
    return reals;
}

// Around the size of a block of doubles and of one of floats or integers, and around the runs that two threads share.
const size_t kLengths[] = {0,      1,      9,      131071, 131072,  131073,  262143,
                           262144, 262145, 524287, 524288, 1048575, 1048576, 1500001};
constexpr int64_t kSharedRun = 1100003; // shared by two threads in every encoding

constexpr std::pair<bool, bool> kEncodings[] = {
    {false, false}, {false, true}, {true, false}, {true, true}}; // XDR; double
} // namespace

TEST(Streams, BulkEncodingGivesTheBytesOfLibtirpc)
{
    for (const size_t length : kLengths)
    {
        const std::vector<double> reals = awkward_reals(length);
        const std::vector<float> floats(reals.begin(), reals.end());
        std::vector<int32_t> ints;
        for (const double real : reals)
            ints.push_back(int32_t(std::bit_cast<uint64_t>(real) >> 13));

        OpenStream doubles_out(true, true, true), floats_out(true, false, true), ints_out(true, true, true);
        for (OpenStream* out : {&doubles_out, &floats_out})
            ASSERT_TRUE(put_reals(out->stream, reals.data(), int64_t(length)));
        ASSERT_TRUE(put_ints(ints_out.stream, ints.data(), int64_t(length)));
        EXPECT_TRUE(doubles_out.bytes() == bytes_of_libtirpc(reals, reinterpret_cast<xdrproc_t>(xdr_double)));
        EXPECT_TRUE(floats_out.bytes() == bytes_of_libtirpc(floats, reinterpret_cast<xdrproc_t>(xdr_float)));
        EXPECT_TRUE(ints_out.bytes() == bytes_of_libtirpc(ints, reinterpret_cast<xdrproc_t>(xdr_int)));
    }
}

// Runs of one block, of some, and of so many that two threads share them.
TEST(Streams, EveryEncodingGivesBackWhatWasPut)
{
    const std::vector<double> reals = awkward_reals(size_t(kSharedRun));
    const std::vector<int32_t> ints = {1, -2, INT32_MIN, INT32_MAX};
    const auto there_and_back = [&](bool xdr, bool double_precision, int64_t length) {
        OpenStream out(xdr, double_precision, true), in(xdr, double_precision, false);
        ASSERT_TRUE(put_int(out.stream, -77) && put_text(out.stream, "A\0\xe9z", 4));
        ASSERT_TRUE(put_reals(out.stream, reals.data(), length) && put_ints(out.stream, ints.data(), 4));
        const std::string bytes = out.bytes();
        EXPECT_EQ(bytes.size(), 4u + 4u * (xdr ? 4 : 1) + uint64_t(length) * (double_precision ? 8 : 4) + 16u);
        in.fill(bytes);

        int32_t value = 0;
        std::vector<int32_t> ints_back(4);
        char text_back[5] = {};
        std::vector<double> back(reals.size());
        ASSERT_TRUE(get_int(in.stream, value) && get_text(in.stream, text_back, 4));
        ASSERT_TRUE(get_reals(in.stream, back.data(), length) && get_ints(in.stream, ints_back.data(), 4));
        EXPECT_EQ(value, -77);
        EXPECT_EQ(std::string(text_back, 5), std::string("A\0\xe9z", 5));
        EXPECT_EQ(ints_back, ints);
        for (size_t i = 0; i < size_t(length); ++i)
        {
            const double kept = double_precision ? reals[i] : double(float(reals[i]));
            ASSERT_TRUE(kept == back[i] || (std::isnan(kept) && std::isnan(back[i]))) << i;
        }
        EXPECT_FALSE(get_int(in.stream, value)); // the end of the file
        EXPECT_TRUE(get_ints(in.stream, ints_back.data(), 0));
        EXPECT_FALSE(get_reals(in.stream, back.data(), 1));
    };
    for (const auto& [xdr, double_precision] : kEncodings)
        for (const int64_t length : {int64_t(32769), int64_t(300007), kSharedRun})
            there_and_back(xdr, double_precision, length);
}

// A stream over memory has no descriptor; the positions of another are beyond it.
TEST(Streams, LongRunsPassThroughAStreamOverMemory)
{
    const std::vector<double> reals = awkward_reals(size_t(kSharedRun));
    std::vector<double> back(reals.size());
    std::string memory(4 + 8 * reals.size() + 1, '\0'); // and the zero that closing appends
    for (const bool writing : {true, false})
    {
        ZELSTREAM stream = {};
        stream.double_precision = 1;
        stream.file = fmemopen(memory.data(), memory.size(), writing ? "wb" : "rb");
        ASSERT_TRUE(writing ? open_xdr_writer(stream) : open_xdr_reader(stream));
        int32_t front = 9;
        ASSERT_TRUE(writing ? put_int(stream, front) : get_int(stream, front));
        ASSERT_TRUE(writing ? put_reals(stream, reals.data(), kSharedRun) : get_reals(stream, back.data(), kSharedRun));
        close_xdr(stream);
        ASSERT_EQ(std::fclose(stream.file), 0);
    }
    for (size_t i = 0; i < reals.size(); ++i)
        ASSERT_EQ(std::bit_cast<uint64_t>(back[i]), std::bit_cast<uint64_t>(reals[i])) << i;
}

// Numbers of modes in front of vectors, between what the stream itself writes.
TEST(Streams, RunsThatAreWrittenBehindHaveTheBytesOfOthers)
{
    const std::vector<double> reals = awkward_reals(size_t(kSharedRun));
    for (const auto& [xdr, double_precision] : kEncodings)
        for (const int records : {1, 12}) // a short run, and more blocks than wait at a time
        {
            OpenStream plain(xdr, double_precision, true), behind(xdr, double_precision, true);
            ASSERT_TRUE(put_int(plain.stream, 5) && put_int(behind.stream, 5));
            RunWriter writer(behind.stream, records > 1 ? records * kSharedRun * 8 : 8);
            for (int record = 0; record < records; ++record)
            {
                const int64_t length = kSharedRun - 7 * record;
                ASSERT_TRUE(put_int(plain.stream, record) && put_reals(plain.stream, reals.data(), length));
                ASSERT_TRUE(writer.integer(record) && writer.reals(reals.data(), length));
            }
            ASSERT_TRUE(writer.finish() && put_int(behind.stream, 6) && put_int(plain.stream, 6));
            EXPECT_TRUE(behind.bytes() == plain.bytes());
        }
}

// The process itself as a file: where a page is missing a read fails, and behind it goes on.
TEST(Streams, LongRunsFailWhenOnlyTheirFirstHalfDoes)
{
    constexpr size_t kBytes = size_t(16) << 20;
    unsigned char* pages =
        static_cast<unsigned char*>(mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(pages, MAP_FAILED);
    std::vector<double> back(size_t{kSharedRun});
    OpenStream in(true, true, false);
    in.stream.file = std::freopen("/proc/self/mem", "rb", in.stream.file);
    ASSERT_TRUE(in.stream.file && seek_to(in.stream, int64_t(reinterpret_cast<intptr_t>(pages))));
    EXPECT_TRUE(get_reals(in.stream, back.data(), kSharedRun));
    munmap(pages + (1 << 20), 4096);
    ASSERT_TRUE(seek_to(in.stream, int64_t(reinterpret_cast<intptr_t>(pages))));
    EXPECT_FALSE(get_reals(in.stream, back.data(), kSharedRun));
    munmap(pages, kBytes);
}

static volatile sig_atomic_t signals_here, signals_elsewhere;
static std::set<pid_t> older_threads; // this one, and those of other libraries

static std::set<pid_t> threads_of_this_process()
{
    std::set<pid_t> ids;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        ids.insert(std::stoi(task.path().filename()));
    return ids;
}

// Handlers of the host program run on its own thread, which may keep something to itself.
TEST(Streams, HelpersTakeNoSignals)
{
    const std::vector<double> reals = awkward_reals(size_t(kSharedRun));
    older_threads = threads_of_this_process();
    struct sigaction action = {}, before = {};
    action.sa_flags = SA_RESTART;
    action.sa_handler = [](int) {
        volatile sig_atomic_t& count = older_threads.count(gettid()) ? signals_here : signals_elsewhere;
        count = count + 1;
    };
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval often = {{0, 300}, {0, 300}}, never = {};
    OpenStream out(true, true, true);
    {
        const RunWriter writer(out.stream, 8 * kSharedRun);
        std::set<pid_t> helpers = threads_of_this_process();
        std::erase_if(helpers, [](pid_t id) { return older_threads.count(id) == 1; });
        ASSERT_EQ(helpers.size(), 1u);
        const std::string status = bytes_of("/proc/self/task/" + std::to_string(*helpers.begin()) + "/status");
        const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        EXPECT_TRUE(blocked >> (SIGALRM - 1) & 1) << status;
    }
    setitimer(ITIMER_REAL, &often, nullptr);
    for (int round = 0; round < 1000 && (round < 40 || signals_here < 40); ++round)
        EXPECT_TRUE(seek_to(out.stream, 0) && put_reals(out.stream, reals.data(), kSharedRun));
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(signals_here, 40);
    EXPECT_EQ(signals_elsewhere, 0);
}

TEST(Streams, LongRunsFailOnAFullDeviceOrACutFile)
{
    const std::vector<double> reals = awkward_reals(size_t(kSharedRun));
    std::vector<double> back(reals.size());
    for (const bool double_precision : {false, true})
    {
        OpenStream out(true, double_precision, true), in(true, double_precision, false),
            full(true, double_precision, true);
        ASSERT_TRUE(put_reals(out.stream, reals.data(), kSharedRun));
        const std::string whole = out.bytes();
        for (const size_t left : {whole.size() / 3, whole.size() - 1}) // cut in the first half, in the second
        {
            ASSERT_EQ(ftruncate(fileno(in.stream.file), 0), 0);
            FileSeek_Win32(in.stream.file, 0, 0);
            in.fill(whole.substr(0, left));
            EXPECT_FALSE(get_reals(in.stream, back.data(), kSharedRun));
        }
        full.stream.file = std::freopen("/dev/full", "wb", full.stream.file);
        EXPECT_FALSE(put_reals(full.stream, reals.data(), kSharedRun));
        for (const int64_t length : {int64_t(9), 5 * kSharedRun}) // shows at the end, or before
        {
            RunWriter behind(full.stream, 8 * 5 * kSharedRun);
            int done = behind.integer(1);
            for (int64_t at = 0; at < length && done; at += kSharedRun)
                done = behind.reals(reals.data(), std::min(length, kSharedRun));
            errno = 0;
            EXPECT_FALSE(done && behind.finish());
            EXPECT_EQ(errno, done ? ENOSPC : 0);
        }
    }
}

TEST(Streams, PortableCharactersAreSignExtendedWords)
{
    OpenStream out(true, true, true), in(true, true, false);
    ASSERT_TRUE(put_text(out.stream, "Z\xe9", 2));
    EXPECT_EQ(out.bytes(), std::string("\0\0\0Z\xff\xff\xff\xe9", 8));
    char back[3] = {};
    in.fill(std::string("\x12\x34\x56Z\0\0\0\xe9", 8)); // the low byte of any word counts
    ASSERT_TRUE(get_text(in.stream, back, 2));
    EXPECT_STREQ(back, "Z\xe9");
}

TEST(Streams, PositionsReachBeyondFourGibibytes)
{
    FILE* file = std::tmpfile();
    const int64_t far = (int64_t(5) << 30) + 3;
    ASSERT_EQ(FileSeek_Win32(file, far, 0), 0);
    ASSERT_EQ(std::fputc('z', file), 'z');
    EXPECT_EQ(FileTell_Win32(file), far + 1);
    EXPECT_EQ(FileSeek_Win32(file, -far, 2), 0);
    EXPECT_EQ(FileTell_Win32(file), 1);
    EXPECT_NE(FileSeek_Win32(file, -2, 1), 0);
    EXPECT_NE(FileSeek_Win32(file, 0, 3), 0);
    EXPECT_NE(FileSeek_Win32(nullptr, 0, 0), 0);
    EXPECT_EQ(FileTell_Win32(nullptr), -1);
    EXPECT_EQ(FileTell_Win32(file), 1);
    std::fclose(file);
}
