#include "injector.h"

#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <inttypes.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

// System calls that may fail, and how.
static const struct Row
{
    long number;
    const char* kind;
    int error;
    int moves_bytes;
} kRows[] = {
    {SYS_open, "open", EMFILE, 0},         {SYS_openat, "open", EMFILE, 0},       {SYS_read, "read", EIO, 1},
    {SYS_pread64, "read", EIO, 1},         {SYS_write, "write", ENOSPC, 1},       {SYS_pwrite64, "write", ENOSPC, 1},
    {SYS_writev, "write", ENOSPC, 0},      {SYS_lseek, "seek", EIO, 0},           {SYS_mmap, "map", ENOMEM, 0},
    {SYS_fallocate, "reserve", ENOSPC, 0}, {SYS_ftruncate, "reserve", ENOSPC, 0}, {SYS_fsync, "sync", EIO, 0},
    {SYS_linkat, "link", EIO, 0},          {SYS_rename, "rename", EIO, 0},        {SYS_renameat, "rename", EIO, 0},
    {SYS_renameat2, "rename", EIO, 0},     {SYS_close, "close", EIO, 0},
};
enum
{
    ROWS = sizeof kRows / sizeof *kRows,
    TABLE = 4 * INJECTED_STACKS,
};

static struct Shared
{
    int count;
    int places[TABLE]; // of hashes; 0: free, else the stack's number from 1
    uint64_t hashes[TABLE];
    struct InjectedStack stacks[INJECTED_STACKS];
} * shared;

static enum Injection injection;
static int64_t wanted, calls;
static int happened;
// Calls of other threads than the one that began are left alone: their order is not the same in every run.
static __thread int counts __attribute__((tls_model("initial-exec")));

static void keep_stack(const char* kind)
{
    void* frames[INJECTED_FRAMES + 4];
    const int skipped = 2; // this and its caller
    const int count = backtrace(frames, INJECTED_FRAMES + 4) - skipped;
    uint64_t hash = (uint64_t)(uintptr_t)kind;
    for (int i = 0; i < count; ++i)
        hash = (hash ^ (uint64_t)(uintptr_t)frames[i + skipped]) * 0x9E3779B97F4A7C15u + 1;
    uint64_t at = hash % TABLE;
    while (shared->places[at] && shared->hashes[at] != hash)
        at = (at + 1) % TABLE;
    if (shared->places[at] || shared->count == INJECTED_STACKS)
        return;
    struct InjectedStack* stack = &shared->stacks[shared->count++];
    shared->places[at] = shared->count;
    shared->hashes[at] = hash;
    stack->call = calls;
    stack->kind = kind;
    stack->frame_count = count < INJECTED_FRAMES ? count : INJECTED_FRAMES;
    memcpy(stack->frames, frames + skipped, (size_t)stack->frame_count * sizeof *frames);
}

// What becomes of the next call.
static enum Injection next_call(const char* kind)
{
    if (injection == INJECT_NOTHING || injection == INJECT_RECORD || !counts)
        return INJECT_NOTHING;
    counts = 0; // what counting itself calls
    if (injection == INJECT_COUNT)
        keep_stack(kind);
    const int64_t call = calls++;
    const int hit = injection != INJECT_COUNT && (call == wanted || (call > wanted && injection == INJECT_ON));
    happened |= hit;
    if (hit && injection == INJECT_KILL)
        kill(getpid(), SIGKILL);
    counts = 1;
    return hit ? injection : INJECT_NOTHING;
}

int injected_failure(const char* kind)
{
    const int error = errno;
    const enum Injection what = next_call(kind);
    const int fails = what == INJECT_ONCE || what == INJECT_ON;
    errno = fails ? ENOMEM : error;
    return fails;
}

// A system call from here, which the filter lets through.
static long pass(const greg_t* registers, long third)
{
    register long r10 __asm__("r10") = registers[REG_R10];
    register long r8 __asm__("r8") = registers[REG_R8];
    register long r9 __asm__("r9") = registers[REG_R9];
    long result;
    __asm__ volatile("syscall"
                     : "=a"(result)
                     : "a"(registers[REG_RAX]), "D"(registers[REG_RDI]), "S"(registers[REG_RSI]), "d"(third), "r"(r10),
                       "r"(r8), "r"(r9)
                     : "rcx", "r11", "memory");
    return result;
}

// Changes the mask that holds after the handler, and never blocks the signal of the filter.
static long change_mask(ucontext_t* context)
{
    const greg_t* registers = context->uc_mcontext.gregs;
    uint64_t old, set;
    memcpy(&old, &context->uc_sigmask, sizeof old);
    if (registers[REG_RSI])
    {
        memcpy(&set, (const void*)registers[REG_RSI], sizeof set);
        const long how = registers[REG_RDI];
        set = how == SIG_BLOCK ? old | set : how == SIG_UNBLOCK ? old & ~set : set;
        set &= ~((uint64_t)1 << (SIGSYS - 1));
        memcpy(&context->uc_sigmask, &set, sizeof set);
    }
    if (registers[REG_RDX])
        memcpy((void*)registers[REG_RDX], &old, sizeof old);
    return 0;
}

// A line: the kind of call, its first argument and its result, and paths that it has.
static void record(const struct Row* row, const greg_t* registers, long result)
{
    const int by_path = row->number == SYS_open || row->number == SYS_rename;
    const int has_path = row->error == EMFILE || row->number == SYS_linkat || row->number == SYS_rename;
    const char* path = has_path ? (const char*)(by_path ? registers[REG_RDI] : registers[REG_RSI]) : "";
    const char* to = row->number == SYS_linkat   ? (const char*)registers[REG_R10]
                     : row->number == SYS_rename ? (const char*)registers[REG_RSI]
                                                 : "";
    counts = 0;
    dprintf((int)wanted, "%s\t%d\t%ld\t%s\t%s\n", row->kind, by_path ? -1 : (int)registers[REG_RDI], result, path, to);
    counts = 1;
}

static long system_call(const greg_t* registers, long number)
{
    const struct Row* row = kRows;
    while (row->number != number)
        ++row;
    const int file = (int)registers[REG_RDI];
    const long third = registers[REG_RDX];
    const int aside = (number == SYS_mmap && (int)registers[REG_R8] < 0) || (row->moves_bytes && file == STDERR_FILENO);
    if (injection == INJECT_RECORD && counts && !aside)
    {
        const long result = pass(registers, third);
        record(row, registers, result);
        return result;
    }
    switch (aside ? INJECT_NOTHING : next_call(row->kind))
    {
    case INJECT_ONCE:
    case INJECT_ON:
        if (number == SYS_close)
            pass(registers, third); // it is closed all the same
        return -row->error;
    case INJECT_EINTR: return number == SYS_close || number == SYS_lseek ? pass(registers, third) : -EINTR;
    case INJECT_EAGAIN: return row->moves_bytes ? -EAGAIN : pass(registers, third);
    case INJECT_SHORT: return pass(registers, row->moves_bytes ? (third + 1) / 2 : third);
    default: return pass(registers, third);
    }
}

static void handle(int signal, siginfo_t* info, void* opaque)
{
    (void)signal;
    const int error = errno;
    ucontext_t* context = opaque;
    greg_t* registers = context->uc_mcontext.gregs;
    registers[REG_RAX] = info->si_syscall;
    registers[REG_RAX] =
        info->si_syscall == SYS_rt_sigprocmask ? change_mask(context) : system_call(registers, info->si_syscall);
    errno = error;
}

// The addresses of the C library's code.
static int find_library(uint64_t* start, uint64_t* end)
{
    char line[512], rights[8];
    FILE* maps = fopen("/proc/self/maps", "r");
    int found = 0;
    while (maps && !found && fgets(line, sizeof line, maps))
        found = sscanf(line, "%" SCNx64 "-%" SCNx64 " %7s", start, end, rights) == 3 && rights[2] == 'x' &&
                strstr(line, "/libc.so.6");
    if (maps)
        fclose(maps);
    return found && *start >> 32 == *end >> 32;
}

static int install_filter(uint64_t start, uint64_t end)
{
    enum
    {
        FIRST = 6,
        ALLOW = FIRST + ROWS + 1,
        TRAP,
        LENGTH
    };
    const size_t low = offsetof(struct seccomp_data, instruction_pointer);
    struct sock_filter filter[LENGTH] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, low + 4),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (uint32_t)(start >> 32), 0, ALLOW - 2),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, low),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, (uint32_t)start, 0, ALLOW - 4),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, (uint32_t)end, ALLOW - 5, 0),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
    };
    for (int i = 0; i <= ROWS; ++i)
    {
        const uint32_t number = (uint32_t)(i < ROWS ? kRows[i].number : SYS_rt_sigprocmask);
        const int at = FIRST + i;
        filter[at] = (struct sock_filter)BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, (uint8_t)(TRAP - at - 1), 0);
    }
    filter[ALLOW] = (struct sock_filter)BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    filter[TRAP] = (struct sock_filter)BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP);
    const struct sock_fprog program = {LENGTH, filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

int injection_prepare(void)
{
    uint64_t start, end;
    void* frames[4];
    backtrace(frames, 4); // loads what it needs
    shared = mmap(NULL, sizeof *shared, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    struct sigaction action = {0};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    return shared != MAP_FAILED && find_library(&start, &end) && sigaction(SIGSYS, &action, NULL) == 0 &&
           install_filter(start, end);
}

void injection_begin(enum Injection what, int64_t at)
{
    injection = INJECT_NOTHING;
    wanted = at;
    calls = 0;
    happened = 0;
    counts = 1;
    if (what == INJECT_COUNT)
        memset(shared, 0, offsetof(struct Shared, stacks));
    injection = what;
}

void injection_pause(int paused)
{
    counts = !paused;
}

int injection_happened(void)
{
    return happened;
}

int64_t injection_calls(void)
{
    return calls;
}

int injection_stacks(const struct InjectedStack** stacks)
{
    *stacks = shared->stacks;
    return shared->count;
}

void injection_describe(const struct InjectedStack* stack, int file)
{
    for (int i = 0; i < stack->frame_count; ++i)
    {
        Dl_info library = {"?", stack->frames[i], NULL, NULL};
        dladdr(stack->frames[i], &library);
        const char* slash = strrchr(library.dli_fname, '/');
        dprintf(file, " %s+0x%lx", slash ? slash + 1 : library.dli_fname,
                (unsigned long)((uintptr_t)stack->frames[i] - (uintptr_t)library.dli_fbase));
    }
    dprintf(file, "\n");
}
