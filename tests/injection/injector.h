// Makes calls fail: one of them, or one and all later ones. Allocations and threads ask `injected_failure`; system calls of
// the C library, also those behind its streams, are caught by a filter of the kernel (seccomp, SECCOMP_RET_TRAP), which
// looks at the address of the calling instruction, and handled in this process. Linux on x86-64.
#ifndef INJECTOR_H
#define INJECTOR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum Injection
{
    INJECT_NOTHING,
    INJECT_COUNT, // keep the first call of every distinct stack
    INJECT_ONCE,  // call `at` fails
    INJECT_ON,    // call `at` and all later ones fail
    INJECT_SHORT, // read or write `at` moves half of its bytes
    INJECT_EINTR,
    INJECT_EAGAIN,
    INJECT_KILL,   // the process ends by SIGKILL at call `at`
    INJECT_RECORD, // tells the file `at` what is done to files and names
};

enum
{
    INJECTED_FRAMES = 24,
    INJECTED_STACKS = 1 << 14,
};

// The first call of a stack; addresses from the caller outwards.
struct InjectedStack
{
    int64_t call;
    const char* kind; // "memory", "read" ...
    int frame_count;
    void* frames[INJECTED_FRAMES];
};

// Installs the filter; once a process, inherited by its children. 0 where the kernel has none.
int injection_prepare(void);

// Counts calls from 0 and treats them as told until the next call of this.
void injection_begin(enum Injection injection, int64_t at);

// Whether calls of this thread count, until told otherwise.
void injection_pause(int paused);

// Whether this allocation ("memory") or start of a thread ("thread") fails.
int injected_failure(const char* kind);

// Whether call `at` came about.
int injection_happened(void);

int64_t injection_calls(void);

// Of INJECT_COUNT; the count of stacks. They lie in memory that child processes share.
int injection_stacks(const struct InjectedStack** stacks);

// "library+offset" of each frame, in a line.
void injection_describe(const struct InjectedStack* stack, int file);

#ifdef __cplusplus
}
#endif

#endif
