// Dense matrices for tests: Eigen's. To be included only where they are needed: they take their time to compile.
#ifndef DENSE_H
#define DENSE_H

#include <Eigen/Dense>

#include <random>

using Eigen::MatrixXd;
using Eigen::VectorXd;

inline MatrixXd random_matrix(int rows, int columns, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    return MatrixXd::NullaryExpr(rows, columns, [&] { return normal(random); });
}

// The largest difference of two entries; infinite when one is no number or the sizes differ.
inline double distance(const MatrixXd& a, const MatrixXd& b)
{
    if (a.rows() != b.rows() || a.cols() != b.cols() || !(a - b).allFinite())
        return HUGE_VAL;
    return (a - b).cwiseAbs().maxCoeff();
}

#endif
