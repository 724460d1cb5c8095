// The precision of the arithmetic as it is configured, found by trial.
#include "zel.h"

#include <cmath>

double EIGPSN(double* x)
{
    // Volatile, so that the sum is rounded to a double each time and not foreseen by the compiler.
    volatile double half = *x;
    volatile double sum = 1.0 + half;
    while (sum != 1.0 && std::isfinite(half))
    {
        half = half * 0.5;
        sum = 1.0 + half;
    }
    return *x = half;
}

// The name that gfortran looks for.
extern "C" ZEL_API decltype(EIGPSN) eigpsn_ __attribute__((alias("EIGPSN")));
