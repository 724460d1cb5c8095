// The checks in their order, and the arithmetic that they share.
#include "checks/parts.h"

#include <algorithm>
#include <cmath>

extern "C" void dsyev_(const char* vectors, const char* triangle, const int* n, double* a, const int* lda,
                       double* values, double* work, const int* work_size, int* failed);

namespace zel_checks
{

double rounding(const ZELDATA* db)
{
    return ZEL_Double_Prec(db) ? 1e-8 : 1e-4;
}

double largest(const double* values, size_t count)
{
    double size = 0.0;
    for (size_t i = 0; i < count; ++i)
        size = std::max(size, std::fabs(values[i]));
    return size;
}

double relative_difference(const double* a, const double* b, size_t count, double scale)
{
    double difference = 0.0;
    for (size_t i = 0; i < count; ++i)
        difference = std::max(difference, std::fabs(a[i] - b[i]));
    return scale > 0.0 ? difference / scale : difference;
}

std::vector<double> eigenvalues_of(std::vector<double> matrix, int n)
{
    std::vector<double> values(static_cast<size_t>(n)), work(static_cast<size_t>(8 * n + 1));
    const int work_size = int(work.size());
    int failed = 0;
    if (n > 0)
        dsyev_("N", "U", &n, matrix.data(), &n, values.data(), work.data(), &work_size, &failed);
    if (failed)
        throw std::runtime_error("the eigenvalues of a matrix do not converge");
    return values;
}

Report check_body(ZELDATA* db, const Progress& progress)
{
    Phases phases(progress);
    Report report;
    for (Check* const check : {check_file, check_counts, check_mass, check_rigid_modes, check_matrices,
                               check_invariants, check_nodes, check_units})
        check(db, phases, report);
    return report;
}

} // namespace zel_checks
