// A model whose interfaces are held: what is left to move, how interfaces move it, and what solves with it.
#ifndef FEM_INTERIOR_H
#define FEM_INTERIOR_H

#include "dense/products.h"

#include <vector>

#include "dense/dense.h"
#include "fem/model.h"

namespace zel_fem
{

// Unknowns are the rows that follow no rigid interface, in their order, and behind them the freedoms of reference nodes that do not
// join. The boundary are the freedoms that join, interface by interface. Freedoms of an average move nothing by themselves: they
// are what the constraints C^T x are equal to.
class Interior
{
public:
    Interior(const Model& model, const std::vector<Interface>& interfaces);

    struct Part
    {
        SparseMatrix inside; // upper triangle
        Eigen::MatrixXd coupling, boundary;
    };
    Part stiffness, mass;
    Eigen::MatrixXd constraints; // one column a freedom of an average
    Eigen::MatrixXd given;       // what they are equal to under unit motions of the boundary, a column each
    Eigen::MatrixXd rigid;       // M-orthonormal rigid motions that no interface feels
    Eigen::MatrixXd loose;       // and all that rigid interfaces alone do not hold
    Elimination order;           // of the unknowns

    Eigen::Index boundary_count() const { return boundary_.cols(); }

    // Of some modes, `x` at the unknowns and `q` at the boundary: six rows an interface, what its reference node does.
    Eigen::MatrixXd reference_motion(const Eigen::MatrixXd& x, const Eigen::MatrixXd& q) const;
    // And what the rows of the matrices do.
    Eigen::MatrixXd motion(const Eigen::MatrixXd& x, const Eigen::MatrixXd& reference) const;

    // What forces at the rows of the matrices and at reference nodes, six rows an interface, are at the unknowns.
    Eigen::MatrixXd forces(const Eigen::MatrixXd& rows, const Eigen::MatrixXd& references) const;

private:
    // A row that the reference node of a rigid interface moves: its six motions times the coefficients.
    struct Follower
    {
        int interface;
        Eigen::Matrix<double, 6, 1> coefficients;
    };

    void split_rows(const Model& model);
    Part partition(const SparseMatrix& upper) const;
    void add_reference(const Model& model, const std::vector<int>& moved, size_t j);
    void add_mean(const Model& model, const std::vector<int>& moved, size_t j);
    void find_rigid(const Model& model);

    const std::vector<Interface>& interfaces_;
    Eigen::Index row_count_ = 0;         // unknowns that are rows; the others, freedoms of reference nodes, come last
    std::vector<int> node_;              // by unknown that is a row
    std::vector<Eigen::Index> position_; // by row of the matrices: unknown, or -1 - index into followers
    std::vector<Follower> followers_;
    Eigen::MatrixXd boundary_; // six rows an interface: motions of rigid ones under unit motions of the boundary
    Eigen::MatrixXd inner_, inner_dual_; // likewise under the last unknowns, and what these are for given motions
    std::vector<Eigen::MatrixXd> means_; // by interface: B^T of an average, six columns; else empty
};

// Solves K x = f for unknowns that obey the constraints, are M-orthogonal to the rigid motions and have any constraint forces. A
// sparse factor of K alone serves it, so that sets of many nodes fill nothing: springs to the ground hold what is loose, and with the
// constraints a small matrix takes them out again (Woodbury).
class HeldSolver : public LinearSolver
{
public:
    HeldSolver(const Interior& interior, Progress& progress);
    Eigen::MatrixXd solve(const Eigen::MatrixXd& right) const override;
    // The same where the constraints are not zero but `given`.
    Eigen::MatrixXd solve(const Eigen::MatrixXd& right, const Eigen::MatrixXd& given) const;
    bool reads_disk() const override { return factor_.reads_disk(); }
    double factor_bytes() const { return factor_.factor_bytes(); }

private:
    std::vector<Eigen::Index> ground_; // unknowns that have a spring
    Cholesky factor_;
    Eigen::MatrixXd sides_, answers_; // constraints and springs, and what the factor makes of them
    Eigen::VectorXd scale_;
    zel_dense::Equations small_; // scaled from both sides
};

// What the reference node at `at` does in six rigid motions about `center`.
Eigen::Matrix<double, 6, 6> rigid_reference(const Eigen::Vector3d& at, const Eigen::Vector3d& center);

} // namespace zel_fem

#endif
