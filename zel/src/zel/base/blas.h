// The few operations of BLAS and LAPACK that the library uses, by value and in column order: element (i, j) of an array with leading
// dimension ld stands at [i + j * ld]. Vectors are contiguous.
#ifndef ZEL_BASE_BLAS_H
#define ZEL_BASE_BLAS_H

namespace zel::blas
{

extern "C" {
void dgemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
            const int* ldc);
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha, const double* a,
            const int* lda, const double* beta, double* c, const int* ldc);
void dgemv_(const char* trans, const int* m, const int* n, const double* alpha, const double* a, const int* lda,
            const double* x, const int* incx, const double* beta, double* y, const int* incy);
void dger_(const int* m, const int* n, const double* alpha, const double* x, const int* incx, const double* y,
           const int* incy, double* a, const int* lda);
double ddot_(const int* n, const double* x, const int* incx, const double* y, const int* incy);
void dsyev_(const char* job, const char* uplo, const int* n, double* a, const int* lda, double* values, double* work,
            const int* size, int* info);
}

// c (m x n) = alpha op(a) op(b) + beta c, where op(a) is m x k and op(b) k x n; 'N' as it is, 'T' transposed
inline void gemm(char ta, char tb, int m, int n, int k, double alpha, const double* a, int lda, const double* b,
                 int ldb, double beta, double* c, int ldc)
{
    dgemm_(&ta, &tb, &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

// The triangle `uplo` ('U' or 'L') of c (n x n) = alpha op(a) op(a)' + beta c, where op(a) is n x k
inline void syrk(char uplo, char trans, int n, int k, double alpha, const double* a, int lda, double beta, double* c,
                 int ldc)
{
    dsyrk_(&uplo, &trans, &n, &k, &alpha, a, &lda, &beta, c, &ldc);
}

// y = alpha op(a) x + beta y, where a is m x n
inline void gemv(char trans, int m, int n, double alpha, const double* a, int lda, const double* x, double beta,
                 double* y)
{
    const int one = 1;
    dgemv_(&trans, &m, &n, &alpha, a, &lda, x, &one, &beta, y, &one);
}

// a (m x n) += alpha x y'
inline void ger(int m, int n, double alpha, const double* x, const double* y, double* a, int lda)
{
    const int one = 1;
    dger_(&m, &n, &alpha, x, &one, y, &one, a, &lda);
}

inline double dot(int n, const double* x, const double* y)
{
    const int one = 1;
    return ddot_(&n, x, &one, y, &one);
}

// Eigenvalues of the symmetric a (n x n, upper triangle), ascending, and eigenvectors in its place, column by column. Wants
// room for `size` >= 3 n values of work. False when the iteration does not converge, which no finite matrix has shown.
inline bool syev(int n, double* a, double* values, double* work, int size)
{
    int info = 0;
    dsyev_("V", "U", &n, a, &n, values, work, &size, &info);
    return info == 0;
}

} // namespace zel::blas

#endif
