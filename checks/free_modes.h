// The motions at which a body vibrates freely, as combinations of its modes.
#ifndef CHECKS_FREE_MODES_H
#define CHECKS_FREE_MODES_H

#include <zel.h>

#include "dense/products.h"

#include <Eigen/SparseCore>

#include <vector>

namespace zel_checks
{

struct FreeModes
{
    bool coupled;              // by generalized matrices with entries off the diagonals; otherwise each mode is one
    std::vector<double> hertz; // empty: the generalized mass is not positive, so that there are none
    Eigen::SparseMatrix<double> vectors; // of coupled modes, one a column; generalized masses are 1
    int rigid;                           // at the front
};
FreeModes free_modes_of(ZELDATA* db);

} // namespace zel_checks

#endif
