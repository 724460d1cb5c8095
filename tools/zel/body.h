// A body that was opened from a file, and what several subcommands ask of it.
#ifndef BODY_H
#define BODY_H

#include <zel.h>

#include <Eigen/Dense>

#include <array>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace zel_command
{

// Short names of the blocks, block 1 first.
extern const std::array<const char*, ZEL_BLOCKS> kBlockNames;

// An open file. Throws std::runtime_error, naming the file, when it cannot be opened or read.
class Body
{
public:
    explicit Body(const std::string& path);
    ~Body();
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;
    operator ZELDATA*() const { return db_; }
    ZELDATA* operator->() const { return db_; }

private:
    ZELDATA* db_;
};

// Labels of mass, length, time and force.
std::array<std::string, 4> units_of(const ZELDATA* db);

struct MassProperties
{
    double mass;
    std::array<double, 3> center;
    std::array<double, 9> tensor; // about the origin
};

// From the nodal masses or the stored global properties, whichever the body has.
MassProperties mass_properties(ZELDATA* db);

// Eigenvalues of a symmetric 3x3 tensor, ascending.
std::array<double, 3> principal_values(std::array<double, 9> tensor);

// The tensor about the centre of mass (Huygens and Steiner).
std::array<double, 9> about_center(const MassProperties& body);

struct Mode
{
    int number;
    double eigenvalue;           // in units of the body
    std::optional<double> hertz; // cycles per second whatever the unit of time; none: the modes are coupled
    double mass, stiffness;      // generalized
    bool rigid;
};
std::vector<Mode> modes_of(ZELDATA* db);

// The motions at which the body vibrates freely, as combinations of its modes.
struct FreeModes
{
    bool coupled;              // by generalized matrices with entries off the diagonals; otherwise each mode is one
    std::vector<double> hertz; // empty: the generalized mass is not positive, so that there are none
    Eigen::MatrixXd vectors;   // of coupled modes, one a column; generalized masses are 1
    int rigid;                 // at the front
};
FreeModes free_modes_of(ZELDATA* db);

// Vertices of every face as node indexes.
std::vector<std::vector<int>> faces_of(const ZELDATA* db);

// Node coordinates, three a node.
std::vector<double> coordinates_of(const ZELDATA* db);

// Indexes of the interface nodes.
std::vector<int> interface_of(const ZELDATA* db);

// Eigenvalues of a symmetric matrix, ascending.
std::vector<double> eigenvalues_of(std::vector<double> matrix, int n);

} // namespace zel_command

#endif
