// What the library is made to do while calls fail: lists of calls of its C interface.
#ifndef SCENARIOS_H
#define SCENARIOS_H

#include "fixtures.h"

constexpr double kUntouched = 12345.678;

// What the calls of a scenario work with. Calls take no memory of their own.
struct Stage
{
    ZELDATA *db = nullptr, *other = nullptr;
    std::vector<double> found = std::vector<double>(700000, kUntouched);
    size_t used = 0;
    FILE* report = nullptr;
    bool spoke = false, erred = false; // a warning or an error, an error
    std::string in, copy, faces, out;

    double* room(size_t count)
    {
        std::fill_n(&found[used], count, kUntouched);
        used += count;
        return &found[used - count];
    }
    template <typename T> long keep(T* array, int count)
    {
        for (int i = 0; array && i < count; ++i)
            *room(1) = double(array[i]);
        std::free(array);
        return array != nullptr;
    }
    long value(double value)
    {
        *room(1) = value;
        return value != 0.0;
    }
};

using Act = std::function<long(Stage&)>;

struct Call
{
    const char* name;
    Act act;
    long failure = 0;
    bool silent = false;
    std::vector<const char*> milestones = {}; // options of writes that end, or are refused, at a step of this one
};

struct Scenario
{
    const char* name;
    std::vector<Call> calls;
    bool is_small = true; // all of it can be looked at after each call
};

extern const std::vector<Scenario> kScenarios;

// Orthogonal modes instead, for the options of this very text.
extern const char* const kOrthogonal;
long write(Stage& s, const char* options);

#endif
