// The stiffness and mass matrix that *FREQUENCY, SOLVER=MATRIXSTORAGE leaves beside a job.
#ifndef FEM_STORED_MATRICES_H
#define FEM_STORED_MATRICES_H

#include <string>
#include <vector>

#include "fem/progress.h"
#include "fem/sources/text_file.h"
#include "fem/sparse_factor.h"

namespace zel_fem::ccx
{

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
StoredMatrices read_matrices(const std::string& job, Progress& progress);

} // namespace zel_fem::ccx

#endif
