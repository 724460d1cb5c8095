// Allocations and threads that can be made to fail, those of other libraries too. In a program of the sanitizers these stand
// before the sanitizers' own functions, which do the work.
#include "injector.h"

#include <errno.h>
#include <pthread.h>
#include <stddef.h>

#ifdef ZEL_SANITIZED
#define REAL(name) __interceptor_##name
extern int __interceptor_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                                        void* argument);
#else
#include <dlfcn.h>
#define REAL(name) __libc_##name
#endif
extern void* REAL(malloc)(size_t size);
extern void* REAL(calloc)(size_t count, size_t size);
extern void* REAL(realloc)(void* memory, size_t size);
extern void* REAL(memalign)(size_t alignment, size_t size);

void* malloc(size_t size)
{
    return injected_failure("memory") ? NULL : REAL(malloc)(size);
}

void* calloc(size_t count, size_t size)
{
    return injected_failure("memory") ? NULL : REAL(calloc)(count, size);
}

void* realloc(void* memory, size_t size)
{
    return injected_failure("memory") ? NULL : REAL(realloc)(memory, size);
}

void* aligned_alloc(size_t alignment, size_t size)
{
    return injected_failure("memory") ? NULL : REAL(memalign)(alignment, size);
}

void* memalign(size_t alignment, size_t size)
{
    return injected_failure("memory") ? NULL : REAL(memalign)(alignment, size);
}

int posix_memalign(void** memory, size_t alignment, size_t size)
{
    void* got = injected_failure("memory") ? NULL : REAL(memalign)(alignment, size);
    if (got)
        *memory = got;
    return got ? 0 : ENOMEM;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument)
{
    int (*create)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
#ifdef ZEL_SANITIZED
    create = __interceptor_pthread_create;
#else
    *(void**)&create = dlsym(RTLD_NEXT, "pthread_create");
#endif
    return injected_failure("thread") ? EAGAIN : create(thread, attributes, run, argument);
}
