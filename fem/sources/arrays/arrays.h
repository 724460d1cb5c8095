// Matrices and a mesh in memory as a source of models, as finite-element codes in Python have them.
#ifndef FEM_ARRAYS_ARRAYS_H
#define FEM_ARRAYS_ARRAYS_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fem/source.h"

namespace zel_fem::arrays
{

/** Cells of one type. */
struct Cells
{
    std::string type;           ///< as meshio calls it: "tetra10", "hexahedron", "quad", "line", "vertex" ...
    int nodes_per_cell = 0;     ///< as the type has them
    std::vector<int64_t> nodes; ///< points, counted from 0, cell after cell, in meshio's order
};

/**
 * A symmetric matrix by compressed columns or rows: all of it, or one triangle. Entries may stand in any order, and those of one
 * place are added.
 */
struct Matrix
{
    int64_t order = 0;            ///< rows, as many as columns
    std::vector<int64_t> starts;  ///< [order + 1], of each column in the two others
    std::vector<int64_t> indices; ///< rows, counted from 0
    std::vector<double> values;   ///< of each index
};

/** A model in memory. */
struct Input
{
    std::string title;          ///< for the header of the body, at most 127 characters of it; may be empty
    std::string program;        ///< the same, at most 15 characters
    std::vector<double> points; ///< x, y, z of each; the node of a body has the number of its point, counted from 1
    std::vector<Cells> cells;   ///< they draw the body: its mass is that of the matrix alone
    std::map<std::string, std::vector<int64_t>> node_sets; ///< points, counted from 0
    Matrix stiffness;                                      ///< of all rows
    Matrix mass;                                           ///< of the same order
    /**
     * What each row moves: a point, counted from 0, and a component, 0 to 2 translations along and 3 to 5 rotations about x, y,
     * z. {-1, 0}: a freedom inside an element, which rigid motions leave at rest. Empty: three translations, or all six
     * components, of each point in the order of the points.
     */
    std::vector<std::array<int64_t, 2>> dofs;
    std::vector<std::pair<std::string, std::vector<double>>> loads; ///< load cases: a label, and a force for each row
};

/**
 * Points without rows and cells are left out, cells of types that cannot be drawn are told in the notes of the report, and cells
 * that lie within others of more dimensions (the boundary of solids) are passed over.
 * reduce() throws InputError for indexes out of range, entries that are not finite, a matrix that is not symmetric to 1e-8 of the
 * diagonal, and rows that do not fit; and all else that fem/fem.h tells.
 */
std::unique_ptr<Source> make_source(Input input);

} // namespace zel_fem::arrays

#endif
