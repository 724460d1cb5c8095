// Eigenvalues and eigenvectors by the QZ stages (Moler and Stewart, SIAM J. Numer. Anal. 10, 1973), which take a singular
// mass matrix and one given in a non-symmetric form.
#include "eigenproblem.h"
#include "base/base.h"
#include "writer.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zel
{

double angular_frequency(double eigenvalue, double consistency)
{
    return std::copysign(std::sqrt(consistency * std::fabs(eigenvalue)), eigenvalue);
}

double consistency_of(const ZELDATA* db)
{
    const double factor = ZEL_UCF(db);
    return factor == 0.0 ? 1.0 : factor;
}

Eigenproblem::Eigenproblem(int modes_of_database, int room)
    : modes(modes_of_database), n(room), kept(room), exponents(room), stiffness(int64_t(room) * room),
      mass(int64_t(room) * room), vectors(int64_t(room) * room), values(modes_of_database)
{}

// ---- The problem of a database ---------------------------------------------------------------------------------------------

namespace
{
// The entries of a generalized matrix, stored or implied, in their order.
struct EntryLists
{
    int count;
    Scratch<int> rows, columns;
    Scratch<double> values;
    explicit EntryLists(int size) : count(size), rows(size), columns(size), values(size) {}
    bool allocated() const { return rows.data && columns.data && values.data; }
};
} // namespace

using SparseQuery = int (*)(ZELDATA*, int*, int*, double*);

// The entries of a matrix inside the modes, to a function of row, column and value. 0, with a message, when memory is short.
template <typename Visit> static int visit_entries(ZELDATA* db, int count, SparseQuery query, Visit visit)
{
    EntryLists lists(count);
    if (!lists.allocated())
        return no_memory(module_word::writing);
    if (count > 0)
        query(db, lists.rows.data, lists.columns.data, lists.values.data);
    const auto inside = [db](int mode) { return mode >= 0 && mode < db->mode_count; };
    for (int i = 0; i < count; ++i)
        if (inside(lists.rows[i]) && inside(lists.columns[i]))
            visit(lists.rows[i], lists.columns[i], lists.values[i]);
    return 1;
}

int mark_modes_with_entries(ZELDATA* db, char* marks)
{
    bool finite = true;
    const auto mark = [&](int row, int column, double value) {
        if (value != 0.0)
            marks[row] = marks[column] = 1;
        finite = finite && std::isfinite(value);
    };
    if (!visit_entries(db, ZEL_NumberOfGenStiff(db), ZEL_GenStiffSparse, mark) ||
        !visit_entries(db, ZEL_NumberOfGenMass(db), ZEL_GenMassSparse, mark))
        return -1;
    if (!finite)
        return fail("The generalized stiffness or mass has entries that are not finite."), -1;
    return int(std::count(marks, marks + db->mode_count, char(1)));
}

// The exponent of the power of two that is nearest to 1 / sqrt(|size|), 0 for a size of zero.
static int exponent_of(double size)
{
    return size == 0.0 ? 0 : int(std::lround(-0.5 * std::log2(std::fabs(size))));
}

int load_eigenproblem(ZELDATA* db, const char* marks, Eigenproblem& problem)
{
    const int n = problem.n;
    Scratch<int> position(problem.modes);
    if (!position.data)
        return no_memory(module_word::writing);
    for (int mode = 0, at = 0; mode < problem.modes; ++mode)
        if (position[mode] = marks[mode] ? at : -1; marks[mode])
            problem.kept[at++] = mode;
    const auto store_in = [&](double* matrix) {
        return [&position, matrix, n](int row, int column, double value) {
            if (position[row] >= 0 && position[column] >= 0) // else it is zero
                matrix[int64_t(position[column]) * n + position[row]] = value;
        };
    };
    if (!visit_entries(db, ZEL_NumberOfGenStiff(db), ZEL_GenStiffSparse, store_in(problem.stiffness.data)) ||
        !visit_entries(db, ZEL_NumberOfGenMass(db), ZEL_GenMassSparse, store_in(problem.mass.data)))
        return 0;
    for (int64_t i = 0; i < n; ++i)
    {
        const double mass = problem.mass[i * n + i];
        problem.exponents[i] = exponent_of(mass != 0.0 ? mass : problem.stiffness[i * n + i]);
    }
    bool finite = true;
    for (double* matrix : {problem.stiffness.data, problem.mass.data})
        for (int64_t j = 0; j < n; ++j)
            for (int64_t i = 0; i < n; ++i)
            {
                double& entry = matrix[j * n + i];
                entry = std::ldexp(entry, problem.exponents[i] + problem.exponents[j]);
                finite = finite && std::isfinite(entry);
            }
    return finite ? 1
                  : int(fail("The generalized stiffness and mass of the modes differ too much to be orthogonalized."));
}

// ---- Dependent modes -------------------------------------------------------------------------------------------------------

// Up to rounding of its entries.
static bool is_symmetric(const double* matrix, int64_t n)
{
    constexpr double kRounding = 1e-10;
    double largest = 0.0, difference = 0.0;
    for (int64_t j = 0; j < n; ++j)
        for (int64_t i = 0; i < j; ++i)
        {
            const double a = matrix[j * n + i], b = matrix[i * n + j];
            largest = std::max(largest, std::fabs(a));
            difference = std::max(difference, std::fabs(a - b));
        }
    return difference <= kRounding * largest;
}

namespace
{
// An orthonormal basis of the null space of the mass, divided into combinations without stiffness, which come first, and
// those whose eigenvalue is infinite.
struct NullSpace
{
    int size = 0, common = 0;
    Scratch<double> vectors; // column by column, n values each
    explicit NullSpace(int n) : vectors(int64_t(n) * n) {}
};
} // namespace

// What rounding leaves of a form of n modes that is zero: sums of n terms, whose factors have errors of sums over many nodes.
static double rounding_of(int n)
{
    return 64.0 * n * std::numeric_limits<double>::epsilon();
}

// Sum of |x_i| |A_ij| |x_j|.
static double terms_of_form(const double* matrix, const double* x, int64_t n)
{
    double terms = 0.0;
    for (int64_t j = 0; j < n; ++j)
    {
        double column = 0.0;
        for (int64_t i = 0; i < n; ++i)
            column += std::fabs(matrix[j * n + i] * x[i]);
        terms += column * std::fabs(x[j]);
    }
    return terms;
}

// The null vectors of the mass, as eigenvectors of eigenvalues that are rounding against the largest one or against 1.
static int null_space_of_mass(Eigenproblem& problem, NullSpace& null)
{
    const int n = problem.n, work_size = 34 * n;
    Scratch<double> values(n), work(work_size);
    if (!values.data || !work.data)
        return no_memory(module_word::writing);
    std::copy_n(problem.mass.data, int64_t(n) * n, null.vectors.data);
    if (!blas::syev(n, null.vectors.data, values.data, work.data, work_size))
        return 1;
    const double largest = std::max({1.0, std::fabs(values[0]), std::fabs(values[n - 1])});
    double smallest = largest;
    for (int64_t i = 0; i < n; ++i)
        if (std::fabs(values[i]) <= rounding_of(n) * largest)
            std::copy_n(null.vectors.data + i * n, n, null.vectors.data + int64_t(null.size++) * n);
        else
            smallest = std::min(smallest, std::fabs(values[i]));
    problem.condition = largest / smallest;
    return 1;
}

// Turns the null vectors of the mass so that their stiffness is diagonal, and puts those that have none in front.
static int divide_by_stiffness(const Eigenproblem& problem, NullSpace& null)
{
    const int n = problem.n, size = null.size, work_size = 34 * size;
    Scratch<double> half(int64_t(n) * size), inner(int64_t(size) * size), values(size), work(work_size);
    if (!half.data || !inner.data || !values.data || !work.data)
        return no_memory(module_word::writing);
    double* vectors = null.vectors.data;
    blas::gemm('N', 'N', n, size, n, 1.0, problem.stiffness.data, n, vectors, n, 0.0, half.data, n);
    blas::gemm('T', 'N', size, size, n, 1.0, vectors, n, half.data, n, 0.0, inner.data, size);
    if (!blas::syev(size, inner.data, values.data, work.data, work_size))
        return 1;
    blas::gemm('N', 'N', n, size, size, 1.0, vectors, n, inner.data, size, 0.0, half.data, n);
    std::copy_n(half.data, int64_t(n) * size, vectors);
    for (int64_t j = 0; j < size; ++j)
    {
        double* x = vectors + j * n;
        if (std::fabs(values[j]) <= rounding_of(n) * terms_of_form(problem.stiffness.data, x, n))
            std::swap_ranges(x, x + n, vectors + int64_t(null.common++) * n);
    }
    return 1;
}

// Chooses a mode to leave out for each common null vector: one that takes a large part in it, since all others are then
// well determined; a rigid-body mode only where no other takes a hundredth of its part; of these the stiffest, and of
// equal ones the last, which is the copy. `out` gets 1 for them.
static int choose_dependent_modes(const Eigenproblem& problem, NullSpace& null, char* out)
{
    constexpr double kLargePart = 0.1, kEqual = 1e-6; // of a squared component; of a quotient of stiffness and mass
    constexpr double kRigid = 1e-9, kRigidWeight = 0.01;
    const int64_t n = problem.n;
    Scratch<double> parts(n), quotients(n), row(null.common);
    if (!parts.data || !quotients.data || !row.data)
        return no_memory(module_word::writing);
    for (int64_t i = 0; i < n; ++i)
    {
        const double mass = std::fabs(problem.mass[i * n + i]);
        quotients[i] = std::fabs(problem.stiffness[i * n + i]) / (mass == 0.0 ? 1.0 : mass);
    }
    const double stiffest = *std::max_element(quotients.data, quotients.data + n);
    double* x = null.vectors.data;
    for (int chosen = 0; chosen < null.common; ++chosen)
    {
        std::fill_n(parts.data, n, 0.0);
        for (int64_t j = 0; j < null.common; ++j)
            for (int64_t i = 0; i < n; ++i)
                parts[i] += x[j * n + i] * x[j * n + i];
        const auto weight = [&](int64_t i) {
            return parts[i] * (quotients[i] <= kRigid * stiffest ? kRigidWeight : 1.0);
        };
        double largest = 0.0;
        for (int64_t i = 0; i < n; ++i)
            largest = std::max(largest, weight(i));
        int64_t best = -1;
        for (int64_t i = 0; i < n; ++i)
            if (parts[i] > 0.0 && weight(i) >= kLargePart * largest &&
                (best < 0 || quotients[i] >= (1.0 - kEqual) * quotients[best]))
                best = i;
        if (best < 0)
            break;
        out[best] = 1;
        for (int64_t j = 0; j < null.common; ++j)
            row[j] = x[j * n + best] / std::sqrt(parts[best]);
        for (int64_t i = 0; i < n; ++i) // what is left of the rows has no part in the one that was chosen
        {
            double along = 0.0;
            for (int64_t j = 0; j < null.common; ++j)
                along += x[j * n + i] * row[j];
            for (int64_t j = 0; j < null.common; ++j)
                x[j * n + i] = i == best ? 0.0 : x[j * n + i] - along * row[j];
        }
    }
    return 1;
}

// Takes the rows and columns of some modes out of the problem.
static void remove_modes(Eigenproblem& problem, const char* out)
{
    const int64_t n = problem.n;
    int64_t left = 0;
    for (int64_t i = 0; i < n; ++i)
        left += !out[i];
    for (double* matrix : {problem.stiffness.data, problem.mass.data})
    {
        double* to = matrix;
        for (int64_t j = 0; j < n; ++j)
            for (int64_t i = 0; i < n; ++i)
                if (!out[i] && !out[j])
                    *to++ = matrix[j * n + i];
    }
    for (int64_t i = 0, to = 0; i < n; ++i)
        if (!out[i])
        {
            problem.kept[to] = problem.kept[i];
            problem.exponents[to++] = problem.exponents[i];
        }
    problem.n = int(left);
}

int leave_out_dependent_modes(const ZELDATA* db, Eigenproblem& problem)
{
    const int n = problem.n;
    if (n == 0 || !is_symmetric(problem.stiffness.data, n) || !is_symmetric(problem.mass.data, n))
        return 1;
    NullSpace null(n);
    Scratch<char> out(n);
    if (!null.vectors.data || !out.data)
        return no_memory(module_word::writing);
    if (!null_space_of_mass(problem, null) || !goes_on() || (null.size > 0 && !divide_by_stiffness(problem, null)))
        return 0;
    problem.infinite = null.size - null.common;
    if (null.common == 0)
        return 1;
    if (!choose_dependent_modes(problem, null, out.data))
        return 0;
    for (int i = 0; i < n; ++i)
        if (out[i])
            ZEL_Warning("Mode %d is a linear combination of other modes.  Ignoring this mode.",
                        ZEL_ModeNumber(db, problem.kept[i]));
    remove_modes(problem, out.data);
    return 1;
}

// ---- Solution --------------------------------------------------------------------------------------------------------------

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

// The four stages, each announced; none after an operation that is ended. Of a mixed basis a singular mass matrix leaves a beta of the order of the tolerance,
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
    if (is_ended())
        return;
    ZEL_Info("  (Calculating Eigenvalues)");
    ZEL_QZVALL(&n, &n, a, b, found.alpha.data, found.alpha_i.data, found.beta.data, &with_vectors,
               problem.vectors.data);
    const bool diagonal = is_diagonal(problem.stiffness.data, n) && is_diagonal(problem.mass.data, n);
    found.negligible_beta = n > 1 && !diagonal ? 4.0 * b[n - 1] : 0.0;
    ZEL_Info("  (Calculating Eigenvectors)");
    ZEL_QZVECC(&n, &n, a, b, found.alpha.data, found.alpha_i.data, found.beta.data, problem.vectors.data);
}

static double eigenvalue(const SolverValues& found, int i, bool infinite)
{
    if (found.alpha_i[i] != 0.0)
    {
        ZEL_Warning("Flexible component is not physically meaningful\n"
                    "It contains an eigenvalue with a nonzero imaginary part, %lf\n"
                    "This imaginary part is being ignored.  Please verify that this is acceptable.",
                    found.alpha_i[i] / found.beta[i]);
        return found.alpha[i] / found.beta[i];
    }
    if (infinite || found.beta[i] <= found.negligible_beta)
    {
        ZEL_Warning("Mode %d is not physically meaningful\nIt contains an infinite eigenvalue.  Ignoring this mode.\n",
                    i + 1);
        return kInfiniteEigenvalue;
    }
    return found.alpha[i] / found.beta[i];
}

// Which eigenvalues are equal but for rounding: within a few units of the last place, or below what the solver leaves of a
// zero beside the largest one. Rigid-body modes are.
static bool nearly_equal(double a, double b, double noise)
{
    constexpr double kRelative = 1e-12;
    return std::fabs(a - b) <= kRelative * std::max(std::fabs(a), std::fabs(b)) ||
           (std::fabs(a) <= noise && std::fabs(b) <= noise);
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

// Ascending, for modes that are eigenvectors already: those whose eigenvalues are equal but for rounding keep their order, so
// that a copy of a body has its modes where the body has them. Not-a-number compares with nothing: it stays behind the rest.
static void sort_stably(const double* values, int* order, int n)
{
    constexpr double kHighestNoise = 1e-6;
    double largest = 0.0;
    for (int i = 0; i < n; ++i)
    {
        order[i] = i;
        if (std::isfinite(values[i]) && !is_infinite_eigenvalue(values[i]))
            largest = std::max(largest, std::fabs(values[i]));
    }
    const double noise = std::min(n * std::numeric_limits<double>::epsilon() * largest, kHighestNoise);
    int* const numbers_end =
        std::stable_partition(order, order + n, [values](int i) { return !std::isnan(values[i]); });
    std::stable_sort(order, numbers_end, [values](int a, int b) { return values[a] < values[b]; });
    for (int* first = order; first < numbers_end;)
    {
        int* last = first + 1;
        while (last < numbers_end && nearly_equal(values[last[-1]], values[*last], noise))
            ++last;
        std::sort(first, last);
        first = last;
    }
}

// Marks the `count` pairs whose eigenvalues are largest.
static void mark_largest(const SolverValues& found, int n, int count, int* by_size, char* marks)
{
    const auto inverse = [&found](int i) {
        const double size = std::fabs(found.alpha[i]);
        return size == 0.0 ? std::numeric_limits<double>::infinity() : std::fabs(found.beta[i]) / size;
    };
    for (int i = 0; i < n; ++i)
        by_size[i] = i;
    std::stable_sort(by_size, by_size + n, [inverse](int a, int b) { return inverse(a) < inverse(b); });
    for (int i = 0; i < std::min(count, n); ++i)
        marks[by_size[i]] = 1;
}

int solve_eigenproblem(Eigenproblem& problem, int* order)
{
    const int n = problem.n;
    const int64_t entries = int64_t(n) * n;
    std::fill_n(problem.values.data, problem.modes, kInfiniteEigenvalue);
    if (n == 0)
        return 1;
    SolverValues found(n);
    Scratch<double> a(entries), b(entries), unsorted(n);
    Scratch<char> infinite(n);
    if (!found.allocated() || !a.data || !b.data || !unsorted.data || !infinite.data)
        return no_memory(module_word::writing);
    ZEL_Info("\nSolving Generalized Eigenvalue Problem to orthogonalize mode shapes.");
    std::copy_n(problem.stiffness.data, entries, a.data);
    std::copy_n(problem.mass.data, entries, b.data);
    run_stages(problem, a.data, b.data, found);
    if (is_ended())
        return 0;

    mark_largest(found, n, problem.infinite, order, infinite.data);
    for (int i = 0; i < n; ++i)
        unsorted[i] = eigenvalue(found, i, infinite[i] != 0);
    (problem.settled ? sort_stably : sort_reversed)(unsorted.data, order, n);
    std::copy_n(problem.vectors.data, entries, a.data);
    for (int64_t i = 0; i < n; ++i)
    {
        problem.values[i] = unsorted[order[i]];
        std::copy_n(a.data + int64_t(order[i]) * n, n, problem.vectors.data + i * n);
    }
    return 1;
}

// ---- Report ----------------------------------------------------------------------------------------------------------------

// Small against 1 and, where there are more than six modes, against the first one behind six rigid-body modes.
static bool probably_rigid(const Eigenproblem& problem, double value)
{
    constexpr int kRigidModes = 6;
    constexpr double kSmall = 0.001;
    return std::fabs(value) <= 1.0 &&
           (problem.modes <= kRigidModes || std::fabs(value) <= kSmall * problem.values[kRigidModes]);
}

void print_eigenvalues(const Eigenproblem& problem, double consistency)
{
    ZEL_Info("%49s", "");
    ZEL_Info("  Real Eigenvalues and Natural Frequencies [Hz] :");
    ZEL_Info("  ===============================================");
    for (int i = 0; i < problem.modes; ++i)
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

// ---- Orthonormal vectors ---------------------------------------------------------------------------------------------------

int orthonormalise(Eigenproblem& problem)
{
    const int n = problem.n;
    ZEL_Info("\n  Appling Gram-Schmidt to eigenvectors \n ");
    Scratch<double> weighted(n), products(n);
    if (!weighted.data || !products.data)
        return no_memory(module_word::writing);
    Progress progress(n);
    for (int j = 0; j < n; ++j)
    {
        if (!progress.reach(j))
            return 0;
        double* q = problem.vectors.data + int64_t(j) * n;
        double* w = weighted.data;
        blas::gemv('N', n, n, 1.0, problem.mass.data, n, q, 0.0, w);
        const double norm = blas::dot(n, q, w);
        if (is_rounding(norm, terms_of_form(problem.mass.data, q, n), n))
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

// V' A V of the first `count` vectors, count x count.
static void congruent(const Eigenproblem& problem, const double* matrix, int count, double* half, double* whole)
{
    const int n = problem.n;
    const double* v = problem.vectors.data;
    blas::gemm('N', 'N', n, count, n, 1.0, matrix, n, v, n, 0.0, half, n);
    blas::gemm('T', 'N', count, count, n, 1.0, v, n, half, n, 0.0, whole, count);
}

int check_eigenvectors(const Eigenproblem& problem, int count)
{
    constexpr double kOff = 1e-6, kWorstCondition = 1e4; // beyond it the eigenvalues deserve the warning
    const int64_t n = problem.n, m = count;
    if (count == 0)
        return 1;
    Scratch<double> half(n * m), stiffness(m * m), mass(m * m);
    if (!half.data || !stiffness.data || !mass.data)
        return no_memory(module_word::writing);
    congruent(problem, problem.stiffness.data, count, half.data, stiffness.data);
    if (!goes_on())
        return 0;
    congruent(problem, problem.mass.data, count, half.data, mass.data);
    double largest = 0.0;
    for (int64_t i = 0; i < m; ++i)
        largest = std::max(largest, std::fabs(problem.values[i]));
    const double floor = rounding_of(problem.n) * largest * std::min(problem.condition, kWorstCondition);
    for (int64_t i = 0; i < m; ++i)
        for (int64_t j = 0; j < m; ++j)
        {
            const double value = i == j ? problem.values[i] : 0.0;
            const double limit = std::max(floor, kOff * std::sqrt(std::fabs(problem.values[i] * problem.values[j])));
            const double in_stiffness = std::fabs(stiffness[j * m + i] - value);
            const double in_mass = std::fabs(mass[j * m + i] - (i == j ? 1.0 : 0.0));
            if (in_stiffness <= limit && in_mass <= kOff)
                continue;
            ZEL_Warning("Mode %d is not orthogonal to the accuracy that is asked for: with mode %d the generalized\n"
                        "stiffness is off by %.3e (eigenvalue %.3e), the generalized mass by %.3e.",
                        int(i) + 1, int(j) + 1, in_stiffness, problem.values[i], in_mass);
            break;
        }
    return 1;
}

} // namespace zel
