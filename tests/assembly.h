// Bodies of point masses for the tests of mechanics, and their inertia invariants summed in long double straight from the
// definitions.
#ifndef ASSEMBLY_H
#define ASSEMBLY_H

#include "zel.h"

#include <array>
#include <vector>

using Vec = std::array<double, 3>;

struct Point
{
    double mass;
    Vec s;
    std::vector<double> inertia; // xx yy zz xy xz yz, or none
};

struct Assembly
{
    std::vector<Point> points;
    std::vector<std::vector<std::array<double, 6>>> modes; // of every point: translations, rotations

    int mode_count() const { return int(modes.size()); }
    void add_mode() { modes.emplace_back(points.size()); }
    void add_combination(const Assembly& other, const double* factors); // of the modes of another body of these points
    void add_rigid_modes(); // translations along, then rotations about x, y, z
};

// Of no symmetry. One mass in eight is zero and one negative; `inertias`: every third point has one.
Assembly random_assembly(int points, int modes, unsigned seed, bool inertias);

// A database of it; node ids count from 1, mode numbers from 101.
ZELDATA* database_of(const Assembly& body);

// All values of an invariant (1 to 9, not 6) in the order of its block in a file, by definition and from the library.
std::vector<double> defined_invariant(const Assembly& body, int number);
std::vector<double> library_invariant(ZELDATA* db, int number);

// All invariants of a database are those that its points define, or some of them.
inline const std::vector<int> kInvariantNumbers = {1, 2, 3, 4, 5, 7, 8, 9};
void expect_invariants(ZELDATA* db, const Assembly& body, double tolerance,
                       const std::vector<int>& numbers = kInvariantNumbers);

// Sets an invariant (not 1 and 6).
int set_invariant(ZELDATA* db, int number, const double* values);

double largest(const std::vector<double>& values);

// Each value within `tolerance` of the other, relative to the largest one.
void expect_near(const std::vector<double>& values, const std::vector<double>& expected, double tolerance);

#endif
