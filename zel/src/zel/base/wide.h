// Loops in the widest registers of the processor at hand.
#ifndef ZEL_BASE_WIDE_H
#define ZEL_BASE_WIDE_H

namespace zel
{

#if defined(__x86_64__)
#define ZEL_ALWAYS_INLINE __attribute__((always_inline))

template <typename Loop> [[gnu::target("avx2")]] void run_with_avx2(const Loop& loop)
{
    loop();
}

// Runs a loop, a lambda that is ZEL_ALWAYS_INLINE, in the widest registers that the processor has. The values are the same
// in all of them, as nothing is contracted and no sum is reordered.
template <typename Loop> void run_wide(const Loop& loop)
{
    static const bool has_avx2 = __builtin_cpu_supports("avx2");
    if (has_avx2)
        run_with_avx2(loop);
    else
        loop();
}
#else
#define ZEL_ALWAYS_INLINE
template <typename Loop> void run_wide(const Loop& loop)
{
    loop();
}
#endif

} // namespace zel

#endif
