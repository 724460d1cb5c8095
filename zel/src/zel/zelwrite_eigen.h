// The generalized eigenproblem K z = lambda M z of the modes: solution, order, report and orthonormalisation.
#ifndef ZELWRITE_EIGEN_H
#define ZELWRITE_EIGEN_H

#include "zeldb.h"

namespace zel
{

constexpr double kPerTurn = 0.15915494309188485; // 1 / (2 pi)

// Angular frequency of an eigenvalue, negative for a negative one; `consistency` is the unit consistency factor.
double angular_frequency(double eigenvalue, double consistency);

// The unit consistency factor, 1 when the database's units give none.
double consistency_of(const ZELDATA* db);

// Matrices are n x n in column order.
struct Eigenproblem
{
    int n;
    Scratch<double> stiffness, mass; // as the database has them
    Scratch<double> vectors;         // column i, which is [i*n] to [i*n + n - 1], is eigenvector i
    Scratch<double> values;          // ascending; kInfiniteEigenvalue for an infinite one

    explicit Eigenproblem(int order);
    bool allocated() const { return stiffness.data && mass.data && vectors.data && values.data; }
};

// Solves for all eigenpairs and sorts them; equal eigenvalues end in the reverse of the solver's order. Complex and
// infinite eigenvalues draw warnings. `order`, when not null, receives n entries: the solver's index of each sorted pair.
int solve_eigenproblem(ZELDATA* db, Eigenproblem& problem, int* order);

// Prints the table of eigenvalues and natural frequencies.
void print_eigenvalues(const Eigenproblem& problem, double consistency);

// Makes the eigenvectors orthonormal in the mass inner product x' M y by modified Gram-Schmidt. A vector whose norm is not
// positive is left as it is, and nothing is projected out with it.
int orthonormalise(Eigenproblem& problem);

} // namespace zel

#endif
