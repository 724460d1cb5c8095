// A change of basis of the modes: everything in a database that is expressed in modes, expressed in new ones.
#ifndef ZEL_WRITE_BASIS_H
#define ZEL_WRITE_BASIS_H

#include "database/database.h"

namespace zel
{

// New mode i of [0, new_count) is the sum over old modes k of vectors[i * old_count + k] times mode k. Not owned.
struct Basis
{
    const double* vectors;
    int old_count, new_count;
};

// What a change of basis replaces at once when all of it could be made.
struct BasisChange
{
    Scratch<ZELEIGEN> eigenvalues;  // new_count records and a zero one
    Scratch<double> transformation; // new_count x new_count
};

// Makes and installs everything. The mode count becomes new_count. 0, after a message, when memory or disk is short; then
// the database is as it was.
int change_basis(ZELDATA* db, const Basis& basis, BasisChange& change);

} // namespace zel

#endif
