// Matrices of Eigen, the products of which are BLAS's. Eigen writes a kernel for each pair of factors, half of what the compiler does
// in a source full of products; here a product passes addresses to one function. Whoever uses Eigen includes this header for it, so
// that a product is the same everywhere.
#ifndef DENSE_PRODUCTS_H
#define DENSE_PRODUCTS_H

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <Eigen/LU>
#include <type_traits>

namespace zel_dense
{

// Element (i, j) is `data[i * down + j * right]`; one of the strides is 1, or the matrix is a vector.
template <typename Number> struct Strided
{
    Number* data;
    Eigen::Index down, right;
};

template <typename Number, typename Matrix> Strided<Number> strided(Matrix& matrix)
{
    return {matrix.data(), matrix.rowStride(), matrix.colStride()};
}

// c = factor a b + kept c, where c is rows x columns and a has `depth` columns. What `kept` 0 drops is not read.
void set_product(Eigen::Index rows, Eigen::Index columns, Eigen::Index depth, double factor, Strided<const double> a,
                 Strided<const double> b, double kept, Strided<double> c);

// What Eigen asks of a product: transposes and numeric factors of its sides are looked through, other expressions computed first.
template <typename Left, typename Right> struct Product
{
    template <typename To> static void evalTo(To& to, const Left& a, const Right& b) { set(to, a, b, 1.0, 0.0); }
    template <typename To> static void addTo(To& to, const Left& a, const Right& b) { set(to, a, b, 1.0, 1.0); }
    template <typename To> static void subTo(To& to, const Left& a, const Right& b) { set(to, a, b, -1.0, 1.0); }
    template <typename To> static void scaleAndAddTo(To& to, const Left& a, const Right& b, double factor)
    {
        set(to, a, b, factor, 1.0);
    }

private:
    template <typename To> static void set(To& to, const Left& a, const Right& b, double factor, double kept)
    {
        using A = Eigen::internal::blas_traits<Left>;
        using B = Eigen::internal::blas_traits<Right>;
        const typename A::DirectLinearAccessType left = A::extract(a);
        const typename B::DirectLinearAccessType right = B::extract(b);
        set_product(to.rows(), to.cols(), a.cols(), factor * A::extractScalarFactor(a) * B::extractScalarFactor(b),
                    strided<const double>(left), strided<const double>(right), kept, strided<double>(to));
    }
};

template <typename Left, typename Right>
concept OfDoubles = std::is_same_v<typename Left::Scalar, double> && std::is_same_v<typename Right::Scalar, double>;

} // namespace zel_dense

namespace Eigen::internal
{

template <typename Left, typename Right>
requires zel_dense::OfDoubles<Left, Right>
struct generic_product_impl<Left, Right, DenseShape, DenseShape, GemmProduct> : zel_dense::Product<Left, Right>
{};

template <typename Left, typename Right>
requires zel_dense::OfDoubles<Left, Right>
struct generic_product_impl<Left, Right, DenseShape, DenseShape, GemvProduct> : zel_dense::Product<Left, Right>
{};

} // namespace Eigen::internal

#endif
