// The injector for a program as it is installed: a library for LD_PRELOAD, told by the environment what to do.
//   ZEL_INJECT="count 0 LOG" writes a line for every distinct stack into LOG: the call, its kind and the stack.
//   ZEL_INJECT="once 17", "on 17", "short 17", "eintr 17", "eagain 17" and "kill 17" treat call 17.
//   ZEL_INJECT="record 0 LOG" writes a line for every call that changes files or names. Without the variable only time stands still.
#include "injector.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

// Time stands still, so that dates and durations are the same in every run.
int clock_gettime(clockid_t clock, struct timespec* now)
{
    (void)clock;
    *now = (struct timespec){1700000000, 0};
    return 0;
}

time_t time(time_t* now)
{
    return now ? (*now = 1700000000) : 1700000000;
}

static const char* const kWays[] = {"nothing", "count", "once", "on", "short", "eintr", "eagain", "kill", "record"};
static char log_path[4096];
static int (*program)(int, char**, char**);

static void write_log(void)
{
    const int64_t calls = injection_calls();
    injection_begin(INJECT_NOTHING, 0);
    const int file = open(log_path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const struct InjectedStack* stacks;
    const int count = injection_stacks(&stacks);
    dprintf(file, "%ld calls\n", (long)calls);
    for (int i = 0; i < count; ++i)
    {
        dprintf(file, "%ld %s", (long)stacks[i].call, stacks[i].kind);
        injection_describe(&stacks[i], file);
    }
    close(file);
}

static int begin_and_run(int argc, char** argv, char** environment)
{
    const char* told = getenv("ZEL_INJECT");
    char way[16];
    long at = 0;
    enum Injection what = INJECT_NOTHING;
    if (told && sscanf(told, "%15s %ld %4095s", way, &at, log_path) >= 2)
        for (int i = 0; i < (int)(sizeof kWays / sizeof *kWays); ++i)
            what = strcmp(way, kWays[i]) == 0 ? (enum Injection)i : what;
    if (what != INJECT_NOTHING && !injection_prepare())
    {
        fprintf(stderr, "no filter for system calls\n");
        return 99;
    }
    if (what == INJECT_COUNT)
        atexit(write_log);
    injection_begin(what, what == INJECT_RECORD ? open(log_path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666) : at);
    return program(argc, argv, environment);
}

// Takes the place of the start routine, so that calls count from main() on.
int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(void), void (*fini)(void),
                      void (*unload)(void), void* stack_end)
{
    typedef int Start(int (*)(int, char**, char**), int, char**, void (*)(void), void (*)(void), void (*)(void), void*);
    Start* start;
    *(void**)&start = dlsym(RTLD_NEXT, "__libc_start_main");
    program = main;
    return start(begin_and_run, argc, argv, init, fini, unload, stack_end);
}
