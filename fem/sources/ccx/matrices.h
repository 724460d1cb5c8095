// The stiffness and mass matrix that *FREQUENCY, SOLVER=MATRIXSTORAGE leaves beside a job.
#ifndef FEM_MATRICES_H
#define FEM_MATRICES_H

#include <Eigen/SparseCore>
#include <cstdint>
#include <string>
#include <vector>

#include "fem/report.h"
#include "fem/sources/text_file.h"

namespace zel_fem
{

using SparseMatrix = Eigen::SparseMatrix<double, Eigen::ColMajor, int64_t>;

// What a row of the matrices means: a node of the deck, or one that the solver made, and its component 1 to 3.
struct Freedom
{
    int node_id;
    int component;
};

struct StoredMatrices
{
    std::vector<Freedom> freedoms;
    SparseMatrix stiffness, mass; // upper triangles
};

// Reads JOB.dof, JOB.sti and JOB.mas, or their gzip forms; InputError for files that are damaged or disagree.
StoredMatrices read_matrices(const std::string& job, PhaseLog& log);

} // namespace zel_fem

#endif
