// Dense matrices for tests.
#ifndef DENSE_H
#define DENSE_H

#include "dense/products.h"

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
    return a.size() == 0 ? 0.0 : (a - b).cwiseAbs().maxCoeff();
}

#endif
