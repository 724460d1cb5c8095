// The four QZ stages against LAPACK's dgeqrf and dormqr, which make B triangular, dgghrd, dhgeqz and dtgevc (with the vectors
// taken back to the original coordinates) on dense symmetric-definite pairs. One thread each: OPENBLAS_NUM_THREADS=1.
//   build/.../bench/qz [orders]   by default those that take a second or less
#include "harness.h"
#include "zel.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

extern "C" {
void dgeqrf_(const int* m, const int* n, double* a, const int* lda, double* tau, double* work, const int* lwork,
             int* info);
void dormqr_(const char* side, const char* trans, const int* m, const int* n, const int* k, const double* a,
             const int* lda, const double* tau, double* c, const int* ldc, double* work, const int* lwork, int* info);
void dgghrd_(const char* compq, const char* compz, const int* n, const int* ilo, const int* ihi, double* a,
             const int* lda, double* b, const int* ldb, double* q, const int* ldq, double* z, const int* ldz,
             int* info);
void dhgeqz_(const char* job, const char* compq, const char* compz, const int* n, const int* ilo, const int* ihi,
             double* h, const int* ldh, double* t, const int* ldt, double* alphar, double* alphai, double* beta,
             double* q, const int* ldq, double* z, const int* ldz, double* work, const int* lwork, int* info);
void dtgevc_(const char* side, const char* howmny, const int* select, const int* n, const double* s, const int* lds,
             const double* p, const int* ldp, double* vl, const int* ldvl, double* vr, const int* ldvr, const int* mm,
             int* m, double* work, int* info);
}

namespace
{

using Values = std::vector<double>;

// X·X' + n I / 10, X normally distributed.
Values positive_definite(int n, unsigned seed)
{
    std::mt19937_64 random(seed);
    std::normal_distribution<double> normal;
    const size_t order = size_t(n);
    Values x(order * order), m(order * order);
    for (double& value : x)
        value = normal(random);
    for (size_t j = 0; j < order; ++j)
    {
        for (size_t k = 0; k < order; ++k)
            for (size_t i = 0; i < order; ++i)
                m[i + j * order] += x[i + k * order] * x[j + k * order];
        m[j + j * order] += 0.1 * n;
    }
    return m;
}

void run_qz(benchmark::State& state, int n, Values a, Values b)
{
    const int accumulate = 1;
    const double eps1 = 0.0;
    int ierr = 0;
    Values z(a.size()), real(size_t(n), 0.0), imaginary = real, beta = real;
    for (auto _ : state)
    {
        ZEL_QZHESS(&n, &n, a.data(), b.data(), &accumulate, z.data());
        ZEL_QZITT(&n, &n, a.data(), b.data(), &eps1, &accumulate, z.data(), &ierr);
        ZEL_QZVALL(&n, &n, a.data(), b.data(), real.data(), imaginary.data(), beta.data(), &accumulate, z.data());
        ZEL_QZVECC(&n, &n, a.data(), b.data(), real.data(), imaginary.data(), beta.data(), z.data());
    }
    if (ierr != 0)
        state.SkipWithError("An eigenvalue does not converge");
}

void run_lapack(benchmark::State& state, int n, Values a, Values b)
{
    const int first = 1, one = 1, work_size = 64 * n;
    int info = 0, found = 0;
    Values z(a.size()), real(size_t(n), 0.0), imaginary = real, beta = real, tau = real, work(size_t(work_size), 0.0);
    for (auto _ : state)
    {
        dgeqrf_(&n, &n, b.data(), &n, tau.data(), work.data(), &work_size, &info);
        dormqr_("L", "T", &n, &n, &n, b.data(), &n, tau.data(), a.data(), &n, work.data(), &work_size, &info);
        for (int j = 0; j < n; ++j)
            std::fill(b.begin() + j * n + j + 1, b.begin() + j * n + n, 0.0);
        dgghrd_("N", "I", &n, &first, &n, a.data(), &n, b.data(), &n, nullptr, &one, z.data(), &n, &info);
        dhgeqz_("S", "N", "V", &n, &first, &n, a.data(), &n, b.data(), &n, real.data(), imaginary.data(), beta.data(),
                nullptr, &one, z.data(), &n, work.data(), &work_size, &info);
        dtgevc_("R", "B", nullptr, &n, a.data(), &n, b.data(), &n, nullptr, &one, z.data(), &n, &n, &found, work.data(),
                &info);
    }
    if (info != 0)
        state.SkipWithError("LAPACK fails");
}

} // namespace

int main(int argc, char** argv)
{
    bench::start(argc, argv);
    std::vector<int> orders{50, 100, 200, 500, 512};
    if (argc > 1)
        orders.clear();
    for (int i = 1; i < argc; ++i)
        orders.push_back(bench::argument(argc, argv, i, 0));
    for (const int n : orders)
    {
        const Values a = positive_definite(n, 1), b = positive_definite(n, 2);
        const int passes = n < 300 ? 9 : n < 800 ? 3 : 1;
        const std::string order = "order " + std::to_string(n);
        bench::add(order, passes, [=](benchmark::State& state) { run_qz(state, n, a, b); });
        bench::add(order + ", LAPACK", passes, [=](benchmark::State& state) { run_lapack(state, n, a, b); });
        bench::at_most(order + ", time over LAPACK", 1.0, bench::ratio(order, order + ", LAPACK"));
    }
    return bench::run();
}
