// Eigenvalues and eigenvectors by the QZ stages (Moler and Stewart, SIAM J. Numer. Anal. 10, 1973), which take a singular
// mass matrix and one given in a non-symmetric form.
#include "zelwrite_eigen.h"
#include "zelblas.h"

#include <algorithm>
#include <cmath>

namespace zel
{

static const char kModule[] = "zelwrite";

double angular_frequency(double eigenvalue, double consistency)
{
    return std::copysign(std::sqrt(consistency * std::fabs(eigenvalue)), eigenvalue);
}

double consistency_of(const ZELDATA* db)
{
    const double factor = ZEL_UCF(db);
    return factor == 0.0 ? 1.0 : factor;
}

Eigenproblem::Eigenproblem(int order)
    : n(order), stiffness(int64_t(order) * order), mass(int64_t(order) * order), vectors(int64_t(order) * order),
      values(order)
{}

static void transpose(double* matrix, int n)
{
    for (int64_t i = 0; i < n; ++i)
        for (int64_t j = i + 1; j < n; ++j)
            std::swap(matrix[i * n + j], matrix[j * n + i]);
}

static bool is_diagonal(const double* matrix, int n)
{
    for (int64_t i = 0; i < n; ++i)
        for (int64_t j = 0; j < n; ++j)
            if (i != j && matrix[i * n + j] != 0.0)
                return false;
    return true;
}

namespace
{
// The solver's eigenvalues (alpha + i alpha_i) / beta, and the size below which it cannot tell beta from zero.
struct SolverValues
{
    Scratch<double> alpha, alpha_i, beta;
    double negligible_beta;

    explicit SolverValues(int n) : alpha(n), alpha_i(n), beta(n), negligible_beta(0.0) {}
    bool allocated() const { return alpha.data && alpha_i.data && beta.data; }
};
} // namespace

// The four stages, each announced. Of a mixed basis a singular mass matrix leaves a beta of the order of the tolerance,
// which the iteration keeps in b(n, 1), where an exact solution has zero.
static void run_stages(Eigenproblem& problem, double* a, double* b, SolverValues& found)
{
    const int n = problem.n, with_vectors = 1;
    const double default_tolerance = 0.0;
    int not_converged = 0;
    ZEL_Info("  (Finding upper Hessenberg and upper triangular forms)");
    ZEL_QZHESS(&n, &n, a, b, &with_vectors, problem.vectors.data);
    ZEL_Info("  (Converting upper Hessenberg form to quasi-upper triangular)");
    ZEL_QZITT(&n, &n, a, b, &default_tolerance, &with_vectors, problem.vectors.data, &not_converged);
    ZEL_Info("  (Calculating Eigenvalues)");
    ZEL_QZVALL(&n, &n, a, b, found.alpha.data, found.alpha_i.data, found.beta.data, &with_vectors,
               problem.vectors.data);
    const bool diagonal = is_diagonal(problem.stiffness.data, n) && is_diagonal(problem.mass.data, n);
    found.negligible_beta = n > 1 && !diagonal ? 4.0 * b[n - 1] : 0.0;
    ZEL_Info("  (Calculating Eigenvectors)");
    ZEL_QZVECC(&n, &n, a, b, found.alpha.data, found.alpha_i.data, found.beta.data, problem.vectors.data);
}

static double eigenvalue(const SolverValues& found, int i)
{
    if (found.alpha_i[i] != 0.0)
    {
        ZEL_Warning("Flexible component is not physically meaningful\n"
                    "It contains an eigenvalue with a nonzero imaginary part, %lf\n"
                    "This imaginary part is being ignored.  Please verify that this is acceptable.",
                    found.alpha_i[i] / found.beta[i]);
        return found.alpha[i] / found.beta[i];
    }
    if (found.beta[i] <= found.negligible_beta)
    {
        ZEL_Warning("Mode %d is not physically meaningful\nIt contains an infinite eigenvalue.  Ignoring this mode.\n",
                    i + 1);
        return kInfiniteEigenvalue;
    }
    return found.alpha[i] / found.beta[i];
}

// The order that results from reversing the list and then swapping neighbours, when the earlier one is strictly greater,
// until none is. Not-a-number compares with nothing, so that the passes themselves are run, no more than n of them.
static void sort_reversed(const double* values, int* order, int n)
{
    bool comparable = true;
    for (int i = 0; i < n; ++i)
    {
        order[i] = n - 1 - i;
        comparable = comparable && !std::isnan(values[i]);
    }
    if (comparable)
    {
        std::stable_sort(order, order + n, [values](int a, int b) { return values[a] < values[b]; });
        return;
    }
    bool swapped = true;
    for (int pass = 0; swapped && pass < n; ++pass)
    {
        swapped = false;
        for (int i = 0; i + 1 < n; ++i)
            if (values[order[i]] > values[order[i + 1]])
            {
                std::swap(order[i], order[i + 1]);
                swapped = true;
            }
    }
}

int solve_eigenproblem(ZELDATA* db, Eigenproblem& problem, int* order)
{
    const int n = problem.n;
    const int64_t entries = int64_t(n) * n;
    SolverValues found(n);
    Scratch<double> a(entries), b(entries), unsorted(n);
    Scratch<int> own_order(n);
    if (!found.allocated() || !a.data || !b.data || !unsorted.data || !own_order.data)
        return no_memory(kModule);
    ZEL_Info("\nSolving Generalized Eigenvalue Problem to orthogonalize mode shapes.");
    if (!ZEL_GenStiffFull(db, problem.stiffness.data, n) || !ZEL_GenMassFull(db, problem.mass.data, n))
        return 0;
    transpose(problem.stiffness.data, n);
    transpose(problem.mass.data, n);
    std::copy_n(problem.stiffness.data, entries, a.data);
    std::copy_n(problem.mass.data, entries, b.data);
    run_stages(problem, a.data, b.data, found);

    for (int i = 0; i < n; ++i)
        unsorted[i] = eigenvalue(found, i);
    sort_reversed(unsorted.data, own_order.data, n);
    std::copy_n(problem.vectors.data, entries, a.data);
    for (int64_t i = 0; i < n; ++i)
    {
        const int64_t from = own_order[i];
        problem.values[i] = unsorted[from];
        std::copy_n(a.data + from * n, n, problem.vectors.data + i * n);
    }
    if (order)
        std::copy_n(own_order.data, n, order);
    return 1;
}

// Small against 1 and, where there are more than six modes, against the first one behind six rigid-body modes.
static bool probably_rigid(const Eigenproblem& problem, double value)
{
    constexpr int kRigidModes = 6;
    constexpr double kSmall = 0.001;
    return std::fabs(value) <= 1.0 &&
           (problem.n <= kRigidModes || std::fabs(value) <= kSmall * problem.values[kRigidModes]);
}

void print_eigenvalues(const Eigenproblem& problem, double consistency)
{
    ZEL_Info("%49s", "");
    ZEL_Info("  Real Eigenvalues and Natural Frequencies [Hz] :");
    ZEL_Info("  ===============================================");
    for (int i = 0; i < problem.n; ++i)
    {
        const double value = problem.values[i];
        const bool rigid = probably_rigid(problem, value);
        if (is_infinite_eigenvalue(value))
            ZEL_Info(" %3d : Infinity.  Possible mass singularity.  Ignored.", i + 1);
        else if (value >= 0.0)
            ZEL_Info(" %3d : %20.14e  %20.14e%s", i + 1, value, angular_frequency(value, consistency) * kPerTurn,
                     rigid ? " (probable rigid body mode)" : "");
        else if (rigid)
            ZEL_Info(" %3d : %20.14e  Sqrt undefined.     (probable rigid body mode)", i + 1, value);
        else
            ZEL_Info(" %3d : %20.14e  Sqrt undefined.  Possible problem with input data.", i + 1, value);
    }
}

int orthonormalise(Eigenproblem& problem)
{
    const int n = problem.n;
    ZEL_Info("\n  Appling Gram-Schmidt to eigenvectors \n ");
    Scratch<double> weighted(n), products(n);
    if (!weighted.data || !products.data)
        return no_memory(kModule);
    for (int j = 0; j < n; ++j)
    {
        double* q = problem.vectors.data + int64_t(j) * n;
        double* w = weighted.data;
        blas::gemv('N', n, n, 1.0, problem.mass.data, n, q, 0.0, w);
        const double norm = blas::dot(n, q, w);
        if (!(norm > 0.0))
            continue;
        const double scale = 1.0 / std::sqrt(norm);
        for (int k = 0; k < n; ++k)
        {
            q[k] *= scale;
            w[k] *= scale;
        }
        const int later = n - 1 - j;
        if (later == 0)
            continue;
        double* rest = q + n;
        blas::gemv('T', n, later, 1.0, rest, n, w, 0.0, products.data);
        blas::ger(n, later, -1.0, q, products.data, rest, n);
    }
    return 1;
}

} // namespace zel
