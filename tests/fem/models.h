// What tests of reductions share: models of the test data, their matrices, options, what a report says.
#ifndef FEM_MODELS_H
#define FEM_MODELS_H

#include "fem/body.h"
#include "fem/reduction.h"
#include "fixtures.h"

using namespace zel_fem;
using Eigen::Index, Eigen::MatrixXd, Eigen::Vector3d, Eigen::VectorXd;

inline const std::string kExamples = ZEL_SOURCE "/examples/ccx/", kSmall = ZEL_SOURCE "/tests/data/ccx/";
inline Progress silent;

// Of a job of CalculiX by its matrices.
inline Model read_model(const std::string& job)
{
    const auto source = ccx::make_source({.deck = job, .route = ccx::Route::matrices});
    Model model = source->read_model(silent);
    source->read_solution(model, {}, silent);
    check_equations(model);
    return model;
}

inline MatrixXd dense(const SparseMatrix& upper)
{
    return MatrixXd(upper).selfadjointView<Eigen::Upper>();
}

// Row and column of node and component, whatever the order of the rows.
inline MatrixXd by_node(const Matrices& matrices, const SparseMatrix& upper)
{
    std::vector<int> place;
    for (const Row& row : matrices.rows)
        place.push_back(3 * row.node + row.component);
    MatrixXd sorted(upper.rows(), upper.cols());
    sorted(place, place) = dense(upper);
    return sorted;
}

inline ReductionOptions in_millimetres(int modes, const std::vector<std::string>& interfaces = {})
{
    ReductionOptions options;
    options.units = parse_units("mm,t,s,N");
    options.modes = modes;
    for (const std::string& interface : interfaces)
        options.interfaces.push_back(parse_interface(interface));
    return options;
}

inline VectorXd eigenvalues_of(const ReducedBody& body)
{
    return generalized_eigenvalues(body.body->stiffness, body.body->mass);
}

// All rows of the report.
inline std::string told(const ReducedBody& body)
{
    std::string text;
    for (const zel_checks::Row& row : body.report.rows())
        text += row.name + " " + row.text + (row.holds.value_or(true) ? "\n" : " CHECK!\n");
    return text;
}

// A matrix, or a triangle of it, in memory as other programs hold it.
enum class Part
{
    whole,
    upper,
    lower
};

inline arrays::Matrix compressed(const MatrixXd& dense, Part part)
{
    arrays::Matrix matrix{dense.cols(), {0}, {}, {}};
    for (Index column = 0; column < dense.cols(); ++column)
    {
        for (Index row = dense.rows() - 1; row >= 0; --row) // any order will do
            if (dense(row, column) != 0.0 &&
                (part == Part::whole || (part == Part::upper) == (row < column) || row == column))
            {
                matrix.indices.push_back(row);
                matrix.values.push_back(dense(row, column));
            }
        matrix.starts.push_back(int64_t(matrix.values.size()));
    }
    return matrix;
}

#endif
