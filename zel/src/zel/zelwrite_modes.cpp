// Orthogonalisation: the modes become the eigenvectors of their own generalized stiffness and mass.
#include "zelblas.h"
#include "zelmodes.h"
#include "zelwrite.h"
#include "zelwrite_basis.h"
#include "zelwrite_eigen.h"

#include <algorithm>
#include <cmath>

namespace zel
{

static const char kModule[] = "zelwrite";

// Exchanges the entries of the table of exported modes as the eigenvalues were.
static int reorder_selected(ZELDATA* db, const int* order, int n)
{
    if (!db->selected_modes || db->selected_count != n)
        return 1;
    Scratch<ZELIDPAIR> before(n);
    if (!before.data)
        return no_memory(kModule);
    std::copy_n(db->selected_modes, n, before.data);
    for (int i = 0; i < n; ++i)
        db->selected_modes[i] = before[order[i]];
    return 1;
}

// z' A z of every eigenvector z, through one matrix product.
static int quadratic_forms(const Eigenproblem& problem, const double* matrix, double* forms)
{
    const int n = problem.n;
    Scratch<double> product(int64_t(n) * n);
    if (!product.data)
        return no_memory(kModule);
    blas::gemm('N', 'N', n, n, n, 1.0, matrix, n, problem.vectors.data, n, 0.0, product.data, n);
    for (int64_t i = 0; i < n; ++i)
        forms[i] = blas::dot(n, problem.vectors.data + i * n, product.data + i * n);
    return 1;
}

// Records of orthonormal modes: generalized mass 1, generalized stiffness and eigenvalue z' K z.
static int make_records(const Eigenproblem& problem, double consistency, ZELEIGEN* records)
{
    Scratch<double> stiffness(problem.n);
    if (!stiffness.data)
        return no_memory(kModule);
    if (!quadratic_forms(problem, problem.stiffness.data, stiffness.data))
        return 0;
    for (int i = 0; i < problem.n; ++i)
    {
        const double value = is_infinite_eigenvalue(problem.values[i]) ? kInfiniteEigenvalue : stiffness[i];
        const double radians = angular_frequency(value, consistency);
        records[i] = {{double(i + 1), value, radians * kPerTurn, radians, 1.0, stiffness[i]}};
    }
    return 1;
}

// Divides every eigenvector by its norm in the mass inner product, which is 1 but for what rounding has left and for
// vectors without a positive norm: these stay as they are.
static int normalise_masses(Eigenproblem& problem)
{
    constexpr double kRounding = 1e-10;
    const int n = problem.n;
    Scratch<double> norms(n);
    if (!norms.data)
        return no_memory(kModule);
    if (!quadratic_forms(problem, problem.mass.data, norms.data))
        return 0;
    for (int64_t i = 0; i < n; ++i)
    {
        if (!std::isfinite(norms[i]))
            return fail("Failed to mass normalize the eigen vectors\n");
        const double factor = norms[i] > 0.0 ? std::sqrt(norms[i]) : 1.0;
        if (std::fabs(factor - 1.0) > kRounding)
            for (int64_t k = 0; k < n; ++k)
                problem.vectors[i * n + k] /= factor;
    }
    return 1;
}

// Modes before the first infinite eigenvalue.
static int usable_modes(const Eigenproblem& problem)
{
    int count = 0;
    while (count < problem.n && !is_infinite_eigenvalue(problem.values[count]))
        ++count;
    return count;
}

static void set_identity(double* matrix, int n)
{
    std::fill_n(matrix, int64_t(n) * n, 0.0);
    for (int64_t i = 0; i < n; ++i)
        matrix[i * n + i] = 1.0;
}

// Whether the database has a transformation that describes its present modes.
static bool has_transformation(const ZELDATA* db, int n)
{
    return db->transformation && db->transformation_order == n && !own(db).transformation_unused;
}

// The leading part of the new modes' components on the caller's modes: those on the present modes, times what describes
// these.
static int compose_transformation(const ZELDATA* db, const Eigenproblem& problem, int count, double* transformation)
{
    const int n = problem.n;
    const double* components = problem.vectors.data;
    Scratch<double> product(int64_t(n) * n);
    if (!product.data)
        return no_memory(kModule);
    if (has_transformation(db, n))
    {
        blas::gemm('N', 'N', n, n, n, 1.0, db->transformation, n, components, n, 0.0, product.data, n);
        components = product.data;
    }
    for (int64_t i = 0; i < count; ++i)
        std::copy_n(components + i * n, count, transformation + i * count);
    return 1;
}

// The eigenvectors as the transformation of a database that had none, when the modes themselves cannot follow. It is
// marked, so that a later call does not build on it.
static void keep_eigenvectors(ZELDATA* db, const Eigenproblem& problem)
{
    if (has_transformation(db, problem.n))
        return;
    const int64_t entries = int64_t(problem.n) * problem.n;
    Scratch<double> kept(entries);
    if (!kept.data)
        return;
    std::copy_n(problem.vectors.data, entries, kept.data);
    replace(db->transformation, kept);
    db->transformation_order = problem.n;
    own(db).transformation_unused = 1;
}

// From the orthonormal eigenvectors to a database in the new modes.
static int install_modes(ZELDATA* db, Eigenproblem& problem)
{
    const int n = problem.n, count = usable_modes(problem);
    BasisChange change = {Scratch<ZELEIGEN>(int64_t(n) + 1), Scratch<double>(int64_t(n) * n)};
    if (!change.eigenvalues.data || !change.transformation.data)
        return no_memory(kModule);
    if (!make_records(problem, consistency_of(db), change.eigenvalues.data))
        return 0;
    const bool only_cut = !has_flag(db->content_flags, kBlockModes) && count != n;
    if (only_cut)
        set_identity(problem.vectors.data, n);
    else if (!normalise_masses(problem))
        return 0;
    if (!compose_transformation(db, problem, count, change.transformation.data))
        return 0;
    if (only_cut)
        set_identity(change.transformation.data, count);
    change.eigenvalues[count] = {};
    if (!change_basis(db, {problem.vectors.data, n, count}, change))
        return 0;
    own(db).transformation_unused = 0;
    raise_flag(db, kBlockEigenvalues);
    raise_flag(db, kBlockTransformation);
    return check_eigenvalues(db);
}

int orthogonalise_modes(ZELDATA* db)
{
    const int n = ZEL_ModeCount(db);
    if (!CheckZEL(db) || n == 0)
        return 0;
    Eigenproblem problem(n);
    Scratch<int> order(n);
    if (!problem.allocated() || !order.data)
        return no_memory(kModule);
    if (!solve_eigenproblem(db, problem, order.data) || !reorder_selected(db, order.data, n))
        return 0;
    print_eigenvalues(problem, consistency_of(db));
    if (!orthonormalise(problem))
        return 0;
    if (install_modes(db, problem))
        return 1;
    keep_eigenvectors(db, problem);
    return 0;
}

// Records from the diagonals, for a body that has none.
static int records_of_diagonals(ZELDATA* db)
{
    const int n = db->mode_count;
    Scratch<ZELEIGEN> records(int64_t(n) + 1);
    if (!records.data)
        return no_memory(kModule);
    for (int i = 0; i < n; ++i)
    {
        double* v = records[i].value;
        v[0] = double(i + 1);
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, i), &v[1], &v[2], &v[3], &v[4], &v[5]);
    }
    replace(db->eigenvalues, records);
    db->eigenvalue_count = n;
    return 1;
}

int check_eigenvalues(ZELDATA* db)
{
    if (!db->eigenvalues && db->non_diagonal)
        return fail("Attempting to look at eigenvalues of non-orthogonal data");
    if (!db->eigenvalues && !records_of_diagonals(db))
        return 0;
    int usable = 1;
    for (int i = 0; i < db->eigenvalue_count; ++i)
        if (db->eigenvalues[i].value[4] == 0.0)
            usable = fail("Mode %d is not physically meaningful.\nIt is associated with a zero generalized mass\n",
                          int(db->eigenvalues[i].value[0]));
    return usable;
}

} // namespace zel
