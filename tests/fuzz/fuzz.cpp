// libFuzzer over all that reads files of strangers (clang, -DZEL_FUZZ=ON):
//   fuzz_seeds seeds && fuzz --target=read -close_fd_mask=3 -max_len=262144 -max_total_time=600 corpus seeds/read
// An input may take 5 s of processor time, and memory of 64 MiB and 20 times its length at once.
#include "fuzz.h"

#include "fixtures.h"

#include <sys/time.h>

#include <atomic>
#include <cstdio>

extern "C" size_t LLVMFuzzerMutate(uint8_t* bytes, size_t count, size_t room);

// Of AddressSanitizer; without it memory is not bounded.
extern "C" [[gnu::weak]] size_t __sanitizer_get_allocated_size(const volatile void* start);
extern "C" [[gnu::weak]] int __sanitizer_install_malloc_and_free_hooks(void (*take)(const volatile void*, size_t),
                                                                       void (*give_back)(const volatile void*));

namespace fuzz
{

constexpr int kSeconds = 5;
constexpr int64_t kLeastMemory = 64 << 20, kMemoryOfByte = 20;

static constexpr struct Target
{
    const char* name;
    const char* kinds; // of its files, one letter each: z ZEL, t text; what is behind the last is text
    void (*run)(const Files& files);
} kTargets[] = {
    {"read", "z", run_read},        {"check", "z", run_check},   {"compare", "zz", run_compare},
    {"write", "zt", run_write},     {"deck", "t", run_deck},     {"results", "ttt", run_results},
    {"stored", "tttt", run_stored}, {"meshes", "t", run_meshes}, {"matrices", "ttt", run_matrices},
    {"options", "t", run_options},
};

static const Target* target;
static std::atomic<int64_t> memory{0}, memory_bound{INT64_MAX};

void found(const char* what)
{
    memory_bound = INT64_MAX;
    dprintf(STDERR_FILENO, "==FOUND: %s\n", what);
    std::abort(); // libFuzzer keeps the input
}

static void take(const volatile void*, size_t size)
{
    if ((memory += int64_t(size)) > memory_bound)
        found("more memory than 64 MiB and 20 times the file");
}

static void give_back(const volatile void* start)
{
    memory -= start ? int64_t(__sanitizer_get_allocated_size(start)) : 0;
}

static void begin_seconds(int seconds)
{
    const itimerval time = {{0, 0}, {seconds, 0}};
    setitimer(ITIMER_PROF, &time, nullptr);
}

const std::string& folder()
{
    static const Environment kPlace("TMPDIR", access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    static const TemporaryFolder kFolder;
    return kFolder.folder();
}

static bool is_zel(size_t file)
{
    return file < std::strlen(target->kinds) && target->kinds[file] == 'z';
}

static std::string changed_bytes(std::string bytes)
{
    const size_t count = bytes.size();
    bytes.resize(count + 64);
    bytes.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(bytes.data()), count, bytes.size()));
    return bytes;
}

static size_t handed_out(const std::string& input, uint8_t* bytes, size_t room)
{
    const size_t count = std::min(input.size(), room);
    std::copy_n(input.begin(), count, bytes);
    return count;
}

} // namespace fuzz

using namespace fuzz;

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments)
{
    for (int i = 1; i < *count; ++i)
        for (const Target& one : kTargets)
            if (std::string("--target=") + one.name == (*arguments)[i])
                target = &one;
    if (!target)
    {
        std::fputs("fuzz: no --target=NAME of those in fuzz.cpp\n", stderr);
        return std::exit(2), 1;
    }
    ZEL_SetMessageHandler([](void*, int, const char*) {}, nullptr);
    if (&__sanitizer_install_malloc_and_free_hooks)
        __sanitizer_install_malloc_and_free_hooks(take, give_back);
    std::signal(SIGPROF, [](int) { found("more than 5 s"); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    const Files files = split(std::string(reinterpret_cast<const char*>(bytes), count));
    memory = 0;
    memory_bound = kLeastMemory + kMemoryOfByte * int64_t(count);
    begin_seconds(kSeconds);
    target->run(files);
    begin_seconds(0);
    memory_bound = INT64_MAX;
    return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* bytes, size_t count, size_t room, unsigned seed)
{
    std::mt19937 random(seed);
    Files files = split(std::string(reinterpret_cast<const char*>(bytes), count));
    const size_t at = random() % files.size();
    if (random() % 4 == 0)
        files[at] = changed_bytes(files[at]);
    else
        files[at] = is_zel(at) ? changed_zel(files[at], random) : changed_text(files[at], random);
    return handed_out(joined(files), bytes, room);
}

extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* a, size_t a_count, const uint8_t* b, size_t b_count,
                                            uint8_t* out, size_t room, unsigned seed)
{
    std::mt19937 random(seed);
    Files files = split(std::string(reinterpret_cast<const char*>(a), a_count));
    const Files others = split(std::string(reinterpret_cast<const char*>(b), b_count));
    const size_t at = random() % files.size(), from = std::min(at, others.size() - 1);
    if (random() % 4 == 0)
        files[at] = others[from];
    else
        files[at] =
            is_zel(at) ? spliced_zel(files[at], others[from], random) : spliced_text(files[at], others[from], random);
    return handed_out(joined(files), out, room);
}
