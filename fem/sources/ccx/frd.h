// Displacements and stresses from the result file JOB.frd of CalculiX, in text or binary form.
#ifndef FEM_FRD_H
#define FEM_FRD_H

#include "dense/products.h"

#include <string>
#include <vector>

#include "fem/sources/text_file.h"

namespace zel_fem::ccx
{

// One solution: a static step or a mode. Rows follow the nodes of the file.
struct FrdSolution
{
    int step = 0;
    int mode = 0;                 // from 1; 0: a static step
    double value = 0.0;           // time, or frequency in cycles per time unit; 0 for a negative eigenvalue
    Eigen::VectorXd displacement; // 3 a node; NaN at a node without a result
    Eigen::VectorXd stress;       // 6 a node: x, y, z, xy, xz, yz; NaN likewise; empty when the file has none
};

struct FrdFile
{
    std::vector<int> node_ids;
    Eigen::Matrix3Xd coordinates;
    std::vector<FrdSolution> solutions; // in the order of the file; the last increment of a static step
};

// Reads JOB.frd or its gzip form; InputError, naming the line, for a damaged file.
FrdFile read_frd(const std::string& path);

} // namespace zel_fem::ccx

#endif
