#include "body.h"
#include "messages.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

extern "C" void dsyev_(const char* vectors, const char* triangle, const int* n, double* a, const int* lda,
                       double* values, double* work, const int* work_size, int* failed);

namespace zel_command
{

const std::array<const char*, ZEL_BLOCKS> kBlockNames = {
    "version_code",
    "header",
    "content_summary",
    "nodal_coords",
    "element_topology",
    "global_body_props",
    "eigenvalues",
    "mode_shapes",
    "nodal_masses",
    "nodal_inertias",
    "units",
    "generalized_stiff",
    "generalized_mass",
    "element_faces",
    "generalized_damping",
    "mode_shape_transformation",
    "interface_nodes",
    "modal_stress",
    "invar1",
    "invar2",
    "invar3",
    "invar4",
    "invar5",
    "invar7",
    "invar8",
    "invar9",
    "preload",
    "modal_loads",
    "modal_strain",
    "modal_statistics",
    "pre_stress",
    "pre_strain",
};

Body::Body(const std::string& path)
{
    const MessagesAside aside;
    if (access(path.c_str(), R_OK) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    db_ = ZEL_CreateFromZEL(path.c_str());
    if (!db_)
        throw std::runtime_error(path + ": not a readable ZEL file");
}

Body::~Body()
{
    ZEL_UnLink(db_);
}

std::array<std::string, 4> units_of(const ZELDATA* db)
{
    char mass[16], length[16], time[16], force[16];
    ZEL_Units(db, mass, length, time, force);
    return {mass, length, time, force};
}

MassProperties mass_properties(ZELDATA* db)
{
    MassProperties body = {};
    ZEL_TotalMassInertia(db, &body.mass, body.tensor.data(), body.center.data());
    for (const size_t off_diagonal : {1u, 2u, 3u, 5u, 6u, 7u}) // products of inertia
        body.tensor[off_diagonal] *= -1.0;
    return body;
}

std::vector<double> eigenvalues_of(std::vector<double> matrix, int n)
{
    std::vector<double> values(static_cast<size_t>(n)), work(static_cast<size_t>(8 * n + 1));
    const int work_size = int(work.size());
    int failed = 0;
    if (n > 0)
        dsyev_("N", "U", &n, matrix.data(), &n, values.data(), work.data(), &work_size, &failed);
    if (failed)
        throw std::runtime_error("the eigenvalues of a matrix do not converge");
    return values;
}

std::array<double, 3> principal_values(std::array<double, 9> tensor)
{
    const std::vector<double> values = eigenvalues_of({tensor.begin(), tensor.end()}, 3);
    return {values[0], values[1], values[2]};
}

std::array<double, 9> about_center(const MassProperties& body)
{
    const auto& c = body.center;
    const double square = c[0] * c[0] + c[1] * c[1] + c[2] * c[2];
    std::array<double, 9> tensor = body.tensor;
    for (size_t i = 0; i < 3; ++i)
        for (size_t j = 0; j < 3; ++j)
            tensor[3 * i + j] -= body.mass * ((i == j ? square : 0.0) - c[i] * c[j]);
    return tensor;
}

// Hertz of what the library gives in cycles per unit of time.
static double hertz_of(const ZELDATA* db, double cycles)
{
    const double seconds = ZEL_Time2Second(db, 1.0);
    return seconds > 0.0 ? cycles / seconds : cycles;
}

static std::optional<Eigen::MatrixXd> full_matrix(ZELDATA* db, int (*query)(ZELDATA*, double*, int))
{
    const int n = ZEL_ModeCount(db);
    Eigen::MatrixXd matrix(n, n);
    if (!query(db, matrix.data(), n))
        return std::nullopt;
    return matrix;
}

// Whether a matrix has anything off its diagonal. It is not laid out: a file may count more modes than it has entries. Of
// several entries of one place the last one holds.
static bool has_coupling(ZELDATA* db, int count, int (*query)(ZELDATA*, int*, int*, double*))
{
    const size_t size = size_t(count);
    const int modes = ZEL_ModeCount(db);
    std::vector<int> rows(size), columns(size);
    std::vector<double> values(size);
    if (!query(db, rows.data(), columns.data(), values.data()))
        return false;
    std::map<std::pair<int, int>, double> coupling;
    for (size_t i = 0; i < size; ++i)
        if (rows[i] != columns[i] && std::min(rows[i], columns[i]) >= 0 && std::max(rows[i], columns[i]) < modes)
            coupling[{rows[i], columns[i]}] = values[i];
    return std::any_of(coupling.begin(), coupling.end(), [](const auto& entry) { return entry.second != 0.0; });
}

// Without records, the library takes a body's eigenvalues from the diagonals.
static bool is_coupled(ZELDATA* db)
{
    if (db->eigenvalues)
        return false;
    return has_coupling(db, ZEL_NumberOfGenStiff(db), ZEL_GenStiffSparse) ||
           has_coupling(db, ZEL_NumberOfGenMass(db), ZEL_GenMassSparse);
}

std::vector<Mode> modes_of(ZELDATA* db)
{
    const bool coupled = is_coupled(db);
    const int rigid = coupled ? 0 : ZEL_RigidBodyModeCount(db);
    std::vector<Mode> modes;
    for (int i = 0; i < ZEL_ModeCount(db); ++i)
    {
        Mode mode = {ZEL_ModeNumber(db, i), 0.0, {}, 0.0, 0.0, i < rigid};
        double cycles = 0.0;
        ZEL_Eigenvalue(db, mode.number, &mode.eigenvalue, &cycles, nullptr, &mode.mass, &mode.stiffness);
        if (!coupled)
            mode.hertz = hertz_of(db, cycles);
        modes.push_back(mode);
    }
    return modes;
}

// The frequencies of the small dense pair.
static FreeModes solve_pair(ZELDATA* db)
{
    FreeModes free = {true, {}, {}, 0};
    const auto stiffness = full_matrix(db, ZEL_GenStiffFull), mass = full_matrix(db, ZEL_GenMassFull);
    if (!stiffness || !mass || !(Eigen::LLT<Eigen::MatrixXd>(*mass).info() == Eigen::Success))
        return free;
    const Eigen::GeneralizedSelfAdjointEigenSolver<Eigen::MatrixXd> solver(*stiffness, *mass);
    if (solver.info() != Eigen::Success)
        return free;
    constexpr double kRounding = 1e-12; // eigenvalues of rigid-body motions against the largest
    const Eigen::VectorXd& values = solver.eigenvalues();
    const double noise = kRounding * values.cwiseAbs().maxCoeff(), factor = ZEL_UCF(db);
    free.vectors = solver.eigenvectors();
    for (const double value : values)
    {
        const double square = (factor > 0.0 ? factor : 1.0) * value;
        free.rigid += std::fabs(value) <= noise;
        free.hertz.push_back(hertz_of(db, std::copysign(std::sqrt(std::fabs(square)), square) * 0.5 * M_1_PI));
    }
    return free;
}

FreeModes free_modes_of(ZELDATA* db)
{
    if (is_coupled(db))
        return solve_pair(db);
    FreeModes free = {false, {}, {}, ZEL_RigidBodyModeCount(db)};
    for (const Mode& mode : modes_of(db))
        free.hertz.push_back(*mode.hertz);
    return free;
}

std::vector<std::vector<int>> faces_of(const ZELDATA* db)
{
    int count = 0, length = 0;
    ZEL_FaceListSize(db, &count, &length);
    std::vector<int> list(static_cast<size_t>(length));
    std::vector<std::vector<int>> faces;
    if (length == 0 || !ZEL_ElementFaces(db, list.data()))
        return faces;
    for (auto word = list.begin(); word != list.end();)
    {
        const int vertices = *word++ & ZEL_FACE_VERTICES;
        faces.emplace_back(word, word + vertices);
        word += vertices;
    }
    return faces;
}

std::vector<double> coordinates_of(const ZELDATA* db)
{
    int count = 0;
    std::vector<double> xyz(3 * static_cast<size_t>(ZEL_NodeCount(db)));
    ZEL_NodeCoordinateList(db, xyz.data(), &count);
    return xyz;
}

std::vector<int> interface_of(const ZELDATA* db)
{
    int count = 0;
    const std::unique_ptr<int, void (*)(void*)> nodes(ZEL_InterfaceNodes(db, &count), std::free);
    return {nodes.get(), nodes.get() + count};
}

} // namespace zel_command
