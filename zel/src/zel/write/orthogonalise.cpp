// Orthogonalisation: the modes become the eigenvectors of their own generalized stiffness and mass.
#include "base/base.h"
#include "basis.h"
#include "database/database.h"
#include "eigenproblem.h"
#include "writer.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// Exchanges the entries of the table of exported modes as the eigenvalues were.
static int reorder_selected(ZELDATA* db, const int* order, int n)
{
    if (!db->selected_modes || db->selected_count != n)
        return 1;
    Scratch<ZELIDPAIR> before(n);
    if (!before.data)
        return no_memory(module_word::writing);
    std::copy_n(db->selected_modes, n, before.data);
    for (int i = 0; i < n; ++i)
        db->selected_modes[i] = before[order[i]];
    return 1;
}

// z' A z of the first `count` eigenvectors z, through one matrix product.
static int quadratic_forms(const Eigenproblem& problem, const double* matrix, int count, double* forms)
{
    const int n = problem.n;
    if (count == 0)
        return 1;
    Scratch<double> product(int64_t(n) * count);
    if (!product.data)
        return no_memory(module_word::writing);
    blas::gemm('N', 'N', n, count, n, 1.0, matrix, n, problem.vectors.data, n, 0.0, product.data, n);
    for (int64_t i = 0; i < count; ++i)
        forms[i] = blas::dot(n, problem.vectors.data + i * n, product.data + i * n);
    return 1;
}

// Records of orthonormal modes: generalized mass 1, generalized stiffness and eigenvalue z' K z.
static int make_records(const Eigenproblem& problem, double consistency, int count, ZELEIGEN* records)
{
    Scratch<double> stiffness(count);
    if (!stiffness.data)
        return no_memory(module_word::writing);
    if (!quadratic_forms(problem, problem.stiffness.data, count, stiffness.data))
        return 0;
    for (int i = 0; i < count; ++i)
    {
        const double radians = angular_frequency(stiffness[i], consistency);
        records[i] = {{double(i + 1), stiffness[i], radians * kPerTurn, radians, 1.0, stiffness[i]}};
    }
    return 1;
}

// Divides every eigenvector by its norm in the mass inner product, which is 1 but for what rounding has left and for
// vectors without a positive norm: these stay as they are.
static int normalise_masses(Eigenproblem& problem, int count)
{
    constexpr double kRounding = 1e-10;
    const int n = problem.n;
    Scratch<double> norms(count);
    if (!norms.data)
        return no_memory(module_word::writing);
    if (!quadratic_forms(problem, problem.mass.data, count, norms.data))
        return 0;
    for (int64_t i = 0; i < count; ++i)
    {
        if (!std::isfinite(norms[i]))
            return fail("Failed to mass normalize the eigen vectors");
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

// The first `count` new modes by their components on all modes of the database, one column each.
static void spread_vectors(const Eigenproblem& problem, int count, double* components)
{
    const int64_t n = problem.n, modes = problem.modes;
    for (int64_t i = 0; i < count; ++i)
        for (int64_t k = 0; k < n; ++k)
            components[i * modes + problem.kept[k]] = std::ldexp(problem.vectors[i * n + k], problem.exponents[k]);
}

static void set_identity(double* columns, int64_t rows, int count)
{
    std::fill_n(columns, rows * count, 0.0);
    for (int64_t i = 0; i < count; ++i)
        columns[i * rows + i] = 1.0;
}

// The leading part of the new modes' components on the caller's modes: those on the present modes, times what describes
// these. `components` has `modes` rows.
static int compose_transformation(const ZELDATA* db, const double* components, int modes, int count,
                                  double* transformation)
{
    Scratch<double> product(int64_t(modes) * count);
    if (!product.data)
        return no_memory(module_word::writing);
    if (db->transformation && db->transformation_order == modes)
    {
        blas::gemm('N', 'N', modes, count, modes, 1.0, db->transformation, modes, components, modes, 0.0, product.data,
                   modes);
        components = product.data;
    }
    for (int64_t i = 0; i < count; ++i)
        std::copy_n(components + i * modes, count, transformation + i * count);
    return 1;
}

// From the orthonormal eigenvectors to a database in the new modes.
static int install_modes(ZELDATA* db, Eigenproblem& problem)
{
    const int modes = problem.modes, count = usable_modes(problem);
    BasisChange change = {Scratch<ZELEIGEN>(int64_t(count) + 1), Scratch<double>(int64_t(count) * count)};
    Scratch<double> components(int64_t(modes) * count);
    if (!change.eigenvalues.data || !change.transformation.data || !components.data)
        return no_memory(module_word::writing);
    if (!make_records(problem, consistency_of(db), count, change.eigenvalues.data))
        return 0;
    const bool only_cut = !has_flag(db->content_flags, ZEL_BLOCK_MODES) && count != modes;
    if (only_cut)
    {
        set_identity(components.data, modes, count);
        set_identity(change.transformation.data, count, count);
    }
    else
    {
        if (!normalise_masses(problem, count) || !check_eigenvectors(problem, count))
            return 0;
        spread_vectors(problem, count, components.data);
        if (!compose_transformation(db, components.data, modes, count, change.transformation.data))
            return 0;
    }
    if (!change_basis(db, {components.data, modes, count}, change))
        return 0;
    raise_flag(db, ZEL_BLOCK_EIGENVALUES);
    raise_flag(db, ZEL_BLOCK_TRANSFORMATION);
    return 1;
}

// The order of all modes: the kept ones by eigenvalue, then those that were left out.
static int complete_order(const Eigenproblem& problem, int* order)
{
    Scratch<char> in_order(problem.modes);
    if (!in_order.data)
        return no_memory(module_word::writing);
    int count = problem.n;
    for (int i = 0; i < count; ++i)
        in_order[order[i] = problem.kept[order[i]]] = 1;
    for (int mode = 0; mode < problem.modes; ++mode)
        if (!in_order[mode])
            order[count++] = mode;
    return 1;
}

// Modes with neither stiffness nor mass count as massless ones.
static void warn_of_empty_modes(const char* with_entries, int modes)
{
    for (int mode = 0; mode < modes; ++mode)
        if (!with_entries[mode])
            ZEL_Warning("Mode %d is not physically meaningful\n"
                        "It contains an infinite eigenvalue.  Ignoring this mode.\n",
                        mode + 1);
}

int orthogonalise_modes(ZELDATA* db)
{
    const int modes = ZEL_ModeCount(db);
    if (!CheckZEL(db) || modes == 0)
        return 0;
    Scratch<int> order(modes);
    Scratch<char> with_entries(modes);
    if (!order.data || !with_entries.data)
        return no_memory(module_word::writing);
    const int room = mark_modes_with_entries(db, with_entries.data);
    if (room < 0)
        return 0;
    Eigenproblem problem(modes, room);
    if (!problem.allocated())
        return no_memory(module_word::writing);
    problem.settled = db->eigenvalues && db->eigenvalue_count >= modes;
    warn_of_empty_modes(with_entries.data, modes);
    if (!load_eigenproblem(db, with_entries.data, problem) || !leave_out_dependent_modes(db, problem) ||
        !solve_eigenproblem(problem, order.data) || !complete_order(problem, order.data) ||
        !reorder_selected(db, order.data, modes))
        return 0;
    print_eigenvalues(problem, consistency_of(db));
    return orthonormalise(problem) && install_modes(db, problem) ? 1 : 0;
}

} // namespace zel
