// The generalized eigenproblem K z = lambda M z of the modes: solution, order, report and orthonormalisation.
#ifndef ZEL_WRITE_EIGENPROBLEM_H
#define ZEL_WRITE_EIGENPROBLEM_H

#include "database/database.h"

#include <limits>

namespace zel
{

constexpr double kPerTurn = 0.15915494309188485; // 1 / (2 pi)

// Angular frequency of an eigenvalue, negative for a negative one; `consistency` is the unit consistency factor.
double angular_frequency(double eigenvalue, double consistency);

// The unit consistency factor, 1 when the database's units give none.
double consistency_of(const ZELDATA* db);

// Matrices are n x n in column order. They are about the modes `kept`, each of which is multiplied by the power of two that
// brings its generalized mass near 1: a binary exponent of that kind changes no digit, and modes of very different size
// then weigh alike in the solver. `vectors` are components on the multiplied modes.
struct Eigenproblem
{
    int modes;                       // of the database
    int n;                           // kept modes
    int infinite = 0;                // so many eigenvalues are infinite, as far as the rank of the mass tells
    bool settled = false;            // the modes have eigenvalue records: they come out of an orthogonalisation
    double condition = 1.0;          // of the mass of the multiplied modes, null space apart
    Scratch<int> kept;               // [n] indexes of modes, ascending
    Scratch<int> exponents;          // [n] of the powers of two
    Scratch<double> stiffness, mass; // of the multiplied modes
    Scratch<double> vectors;         // column i, which is [i*n] to [i*n + n - 1], is eigenvector i
    Scratch<double> values;          // [modes] ascending; kInfiniteEigenvalue for an infinite one and behind the n-th

    Eigenproblem(int modes_of_database, int room);
    bool allocated() const
    {
        return kept.data && exponents.data && stiffness.data && mass.data && vectors.data && values.data;
    }
};

// The modes that have an entry in the generalized stiffness or mass, stored or implied. marks[i] becomes 1 for them. Their
// number; -1, with a message, when memory is short or an entry is not finite.
int mark_modes_with_entries(ZELDATA* db, char* marks);

// Fills kept, exponents, stiffness and mass with the `room` marked modes. 0, with a message, when memory is short or a
// value leaves the range of numbers.
int load_eigenproblem(ZELDATA* db, const char* marks, Eigenproblem& problem);

// Leaves out of a loaded problem as many modes as the common null space of stiffness and mass has dimensions: a combination
// of modes without stiffness and mass is no motion, and the solver would make any eigenvalue of it. Warns of each by
// name. Also finds how many eigenvalues are infinite, and the condition of the mass. Pairs that are not symmetric stay as they are. 0, with a message,
// when memory is short.
int leave_out_dependent_modes(const ZELDATA* db, Eigenproblem& problem);

// Solves for all eigenpairs and sorts them; equal eigenvalues end in the reverse of the solver's order, or, of settled modes,
// in the order of the modes. Complex and infinite eigenvalues draw warnings. `order` receives n entries: the solver's index
// of each sorted pair.
int solve_eigenproblem(Eigenproblem& problem, int* order);

// Prints the table of eigenvalues and natural frequencies.
void print_eigenvalues(const Eigenproblem& problem, double consistency);

// Whether x' A x is no more than rounding leaves of its terms, whose magnitudes add up to `terms`.
inline bool is_rounding(double form, double terms, int n)
{
    return !(form > n * std::numeric_limits<double>::epsilon() * terms);
}

// Makes the eigenvectors orthonormal in the mass inner product x' M y by modified Gram-Schmidt. A vector whose norm is not
// positive, or rounding only, is left as it is, and nothing is projected out with it.
int orthonormalise(Eigenproblem& problem);

// Compares V' K V with the eigenvalues and V' M V with the identity for the first `count` vectors. Warns of each mode that
// is off by more than 1e-6, relative to sqrt(|lambda_i lambda_j|) for the stiffness, and by more than what rounding leaves
// of the largest eigenvalue, given the condition of the mass. 0, with a message, when memory is short.
int check_eigenvectors(const Eigenproblem& problem, int count);

} // namespace zel

#endif
