// What tests of reductions share: models of the test data, their matrices, options, what a report says. Eigen's decompositions are their
// second opinion.
#ifndef FEM_MODELS_H
#define FEM_MODELS_H

#include "fem/body.h"
#include "fem/reduction.h"
#include "fem/sources/text_file.h"
#include "fixtures.h"

#include <Eigen/Dense>

using namespace zel_fem;
using Eigen::Index, Eigen::MatrixXd, Eigen::Vector3d, Eigen::VectorXd;

inline const std::string kExamples = ZEL_SOURCE "/examples/ccx/", kSmall = ZEL_SOURCE "/tests/data/ccx/";
inline Progress silent;

inline Model model_of(Source& source)
{
    Model model = source.read_model(silent);
    source.read_solution(model, {}, silent);
    check_equations(model);
    return model;
}

// Of a job of CalculiX by its matrices.
inline Model read_model(const std::string& job)
{
    return model_of(*ccx::make_source({.deck = job, .route = ccx::Route::matrices}));
}

// The body of what the source of some program takes, or of a job of CalculiX.
template <typename Input> ReducedBody reduced(const Input& input, const ReductionOptions& options)
{
    return reduce(*make_source(input), options, silent);
}

inline ReducedBody reduce_job(const std::string& job, const ReductionOptions& options,
                              ccx::Route route = ccx::Route::automatic)
{
    return reduced(ccx::Job{.deck = job, .route = route}, options);
}

// Plain or compressed.
inline std::string text_of(const std::string& path)
{
    std::string text;
    LineReader reader(path);
    for (std::string_view line; reader.next(line);)
        text.append(line).append("\n");
    return text;
}

// The stored matrices of a job of the test data for a job of another name.
inline void copy_matrices(const std::string& job, const std::string& other)
{
    for (const char* suffix : {".sti.gz", ".mas.gz", ".dof.gz"})
        std::filesystem::copy_file(kSmall + job + suffix, other + suffix,
                                   std::filesystem::copy_options::overwrite_existing);
}

// One column a node.
inline Eigen::Matrix3Xd places(const Mesh& mesh)
{
    Eigen::Matrix3Xd at(3, Index(mesh.nodes.size()));
    for (Index i = 0; i < at.cols(); ++i)
        at.col(i) = mesh.nodes[size_t(i)].at;
    return at;
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

inline ReductionOptions in_millimetres(int modes, const std::vector<std::string>& interfaces = {},
                                       const std::vector<std::string>& loads = {})
{
    ReductionOptions options;
    options.units = parse_units("mm,t,s,N");
    options.modes = modes;
    for (const std::string& interface : interfaces)
        options.interfaces.push_back(parse_interface(interface));
    for (const std::string& load : loads)
        options.loads.push_back(parse_load(load));
    return options;
}

inline VectorXd eigenvalues_of(const ReducedBody& body)
{
    return generalized_eigenvalues(body.body->stiffness, body.body->mass);
}

inline VectorXd eigenvalues_of(const Model& model)
{
    return generalized_eigenvalues(dense(model.matrices->stiffness), dense(model.matrices->mass));
}

// Nodes of elements at x, or all nodes there in a mesh without elements, behind a reference node on the axis.
inline Interface end_at(const Mesh& mesh, double x, int id)
{
    const std::vector<char> used = used_nodes(mesh);
    Interface end{id, -1, Vector3d(x, 0, 0), {}};
    for (size_t i = 0; i < used.size(); ++i)
        if ((used[i] || mesh.elements.empty()) && std::abs(mesh.nodes[i].at[0] - x) < 1e-9)
            end.tied.push_back(int(i));
    return end;
}

// The largest difference of two entries by the largest entry.
inline double relative(const MatrixXd& a, const MatrixXd& b)
{
    return a.rows() == b.rows() && a.cols() == b.cols() ? (a - b).cwiseAbs().maxCoeff() / b.cwiseAbs().maxCoeff() : 1.0;
}

// Every fault is refused with the message beside it.
template <typename Faults, typename Act> void expect_refused(const Faults& faults, const Act& act)
{
    for (const auto& [fault, message] : faults)
        EXPECT_PRED2(contains, complaint([&, &fault = fault] { act(fault); }), message);
}

// The displacements of the nodes under load `which` with the first `held` coordinates at rest.
inline VectorXd static_answer(const Body& body, Index held, size_t which)
{
    const Index rest = body.stiffness.rows() - held;
    return body.motion.rightCols(rest) *
           body.stiffness.bottomRightCorner(rest, rest).ldlt().solve(body.loads[which].values.tail(rest));
}

// All rows of the report.
inline std::string told(const ReducedBody& body)
{
    std::string text;
    for (const zel_checks::Row& row : body.report.rows())
        text += row.name + " " + row.text + (row.holds.value_or(true) ? "\n" : " CHECK!\n");
    return text;
}

constexpr int kWhole = Eigen::Upper | Eigen::Lower;

// A matrix, or a triangle of it, in memory as other programs hold it.
inline arrays::Matrix compressed(const MatrixXd& dense, int triangles)
{
    arrays::Matrix matrix{dense.cols(), {0}, {}, {}};
    for (Index column = 0; column < dense.cols(); ++column)
    {
        for (Index row = dense.rows() - 1; row >= 0; --row) // any order will do
            if (dense(row, column) != 0.0 &&
                (row == column || triangles & (row < column ? Eigen::Upper : Eigen::Lower)))
            {
                matrix.indices.push_back(row);
                matrix.values.push_back(dense(row, column));
            }
        matrix.starts.push_back(int64_t(matrix.values.size()));
    }
    return matrix;
}

// A mesh of bricks and its matrices by node in memory, rows from the last to the first.
inline arrays::Input in_memory(const Mesh& mesh, const MatrixXd& stiffness, const MatrixXd& mass, int triangles)
{
    arrays::Input input;
    const Eigen::Matrix3Xd at = places(mesh);
    input.points.assign(at.data(), at.data() + at.size());
    arrays::Cells bricks{"hexahedron20", 20, {}}, ends{"quad8", 8, {}};
    for (const Element& element : mesh.elements)
        if (element.type->shape == Shape::hex20)
        {
            bricks.nodes.insert(bricks.nodes.end(), element.nodes.begin(), element.nodes.end());
            const Face end = element_face(element, 1);
            ends.nodes.insert(ends.nodes.end(), end.begin(), end.end()); // of the boundary: not drawn twice
        }
    input.cells = {ends, bricks};
    input.stiffness = compressed(stiffness.reverse(), triangles);
    input.mass = compressed(mass.reverse(), triangles);
    for (Index row = mass.rows(); row-- > 0;)
        input.dofs.push_back({row / 3, row % 3});
    return input;
}

#endif
