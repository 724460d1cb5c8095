// Sparse matrices in the text files of other programs, one file a format, under one record.
#ifndef FEM_MATRIX_FILE_H
#define FEM_MATRIX_FILE_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fem/sparse_factor.h"

namespace zel_fem::matrices
{

// What a row moves: a node by its number, and a component: 0 to 2 translations, 3 to 5 rotations.
struct Freedom
{
    int node_id;
    int component;
    auto operator<=>(const Freedom&) const = default;
};

struct MatrixFile
{
    struct Entry
    {
        int32_t row, column; // counted from 0
        double value;
    };

    std::string path, format;      // the format as reports call it
    bool one_triangle = false;     // so its header says: each pair of rows stands once
    bool adds = false;             // entries of one place are added; else they are refused
    bool counted = false;          // its header has the number of entries: nothing can be missing
    int64_t order = 0;             // by its header, or the largest index
    std::vector<Freedom> freedoms; // of the indexes, in the order of the file; empty: indexes are rows
    std::vector<Entry> entries;    // zeros off the diagonal are left out
};

enum class Role
{
    stiffness,
    mass
};

// Of several matrices in a punch file the one whose name begins with K or M is taken, by its role. InputError, naming file and line,
// for what is damaged or cannot be used. No more memory is taken than the entries need.
MatrixFile read_matrix_file(const std::string& path, Role role, const std::function<void(double)>& advance);

// rows[i] is the row of the file's index i. Of two triangles that agree to 1e-8 of the diagonal the mean is taken. InputError for
// matrices that are not symmetric, places that stand twice, and negative entries on the diagonal.
SparseMatrix upper_triangle(const MatrixFile& file, const std::vector<int64_t>& rows, int64_t order);

// "(3, 5)" or "node 12 component 3", for messages.
std::string name_of_index(const MatrixFile& file, int64_t index);

} // namespace zel_fem::matrices

#endif
