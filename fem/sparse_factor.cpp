// MUMPS does the work (P. R. Amestoy, I. S. Duff, J. Koster and J.-Y. L'Excellent, SIAM J. Matrix Anal. Appl. 23, 2001), in its
// form without MPI. Positive definite matrices are factored without pivoting. By Sylvester's law of inertia the signs of
// the pivots of L D L^T are those of the eigenvalues; such factors are thrown away as they come. The order of elimination is that
// of METIS (G. Karypis and V. Kumar, SIAM J. Sci. Comput. 20, 1998): SCOTCH's, which MUMPS would take, is another each time.
#include "fem/sparse_factor.h"

#include "fem/interrupt.h"

#include <dmumps_c.h>
#include <metis.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;
namespace fs = std::filesystem;

constexpr int kBegin = -1, kEnd = -2, kAnalyse = 1, kFactor = 2, kSolve = 3;             // jobs
constexpr int kPositive = 1, kIndefinite = 2;                                            // symmetry
constexpr int kIntegerRoom = -8, kRealRoom = -9, kSingular = -10, kOutOfCoreFails = -90; // states after a job
constexpr int kMemoryFails[] = {-5, -7, -13, -19, -22};
constexpr int kThisProcess = -987654; // as communicator
constexpr int kMostRoom = 3000;       // percent above the estimate, doubled where pivoting needs it
constexpr double kNoSign = 1e-13;     // of a pivot's row, against the norm of the scaled matrix
constexpr double kSolved = 0.1;       // of the right side left over: a singular matrix, factored by rounding alone

namespace
{
// A folder for temporary files, gone on every way out.
class ScratchFolder
{
public:
    ScratchFolder() : path_(make()), registered_(path_) {}
    ~ScratchFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& path() const { return path_; }

private:
    static std::string make();

    std::string path_;
    zel_fem::RemovedOnInterrupt registered_;
};

// One matrix in MUMPS. Numbers of parameters and results are those of its manual.
class Mumps
{
public:
    Mumps(const SparseMatrix& upper, int symmetry, const Elimination& order);
    ~Mumps() { run(kEnd); }
    Mumps(const Mumps&) = delete;
    Mumps& operator=(const Mumps&) = delete;

    // MUMPS keeps some of its state beside the record: one job at a time in a process.
    int run(int job)
    {
        static std::mutex one_at_a_time;
        const std::lock_guard lock(one_at_a_time);
        all_.job = job;
        dmumps_c(&all_);
        return all_.infog[0];
    }
    int& control(int number) { return all_.icntl[number - 1]; }
    double& real_control(int number) { return all_.cntl[number - 1]; }
    int result(int number) const { return all_.infog[number - 1]; }
    // A number of entries of a factor, in bytes.
    double bytes_of(int number) const
    {
        constexpr double kMillions = 1e6;
        const double entries = result(number); // negative: in millions
        return (entries < 0.0 ? -kMillions * entries : entries) * double(sizeof(double));
    }
    FactorNeeds needs() const
    {
        constexpr double kMegabyte = 1e6;
        return {kMegabyte * result(16), kMegabyte * result(26), bytes_of(3)};
    }

    void analyse();
    int factor();
    void solve(MatrixXd& sides);
    void leave_memory(); // factors go to files

private:
    // Ordered as they have to end: the files before their folder.
    std::unique_ptr<ScratchFolder> folder_;
    DMUMPS_STRUC_C all_{};
    std::vector<int> rows_, columns_, places_;
};
} // namespace

// ---- Order -------------------------------------------------------------------------------------------------------------

namespace
{
// Which rows are one vertex, numbered as they come.
struct Vertices
{
    std::vector<int> of_row;
    std::vector<idx_t> sizes;
};

// Neighbours of each vertex, in the form of METIS.
struct Graph
{
    std::vector<idx_t> starts, neighbours;
};
} // namespace

static Vertices vertices_of(Index rows, const std::vector<int>& groups)
{
    Vertices vertices;
    std::unordered_map<int, int> known;
    for (Index row = 0; row < rows; ++row)
    {
        int vertex = int(vertices.sizes.size());
        if (!groups.empty() && groups[size_t(row)] >= 0)
            vertex = known.try_emplace(groups[size_t(row)], vertex).first->second;
        vertices.of_row.push_back(vertex);
        vertices.sizes.resize(std::max(vertices.sizes.size(), size_t(vertex) + 1));
        ++vertices.sizes[size_t(vertex)];
    }
    return vertices;
}

// Nothing for a graph too large for METIS. A pair of vertices is met by several entries, mostly in turn: the last vertex that
// met each keeps nearly all of them from being stored.
static std::optional<Graph> graph_of(const SparseMatrix& upper, const Vertices& vertices)
{
    const size_t count = vertices.sizes.size();
    std::vector<std::vector<idx_t>> met(count);
    std::vector<int> last(count, -1);
    for (size_t column = 0; column < vertices.of_row.size(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, Index(column)); entry; ++entry)
        {
            const int from = vertices.of_row[column], to = vertices.of_row[size_t(entry.row())];
            if (from == to || std::exchange(last[size_t(to)], from) == from)
                continue;
            met[size_t(from)].push_back(to);
            met[size_t(to)].push_back(from);
        }
    Graph graph{{0}, {}};
    for (std::vector<idx_t>& own : met)
    {
        std::sort(own.begin(), own.end());
        own.erase(std::unique(own.begin(), own.end()), own.end());
        if (graph.neighbours.size() + own.size() > size_t(std::numeric_limits<idx_t>::max()))
            return {};
        graph.neighbours.insert(graph.neighbours.end(), own.begin(), own.end());
        graph.starts.push_back(idx_t(graph.neighbours.size()));
        own = {};
    }
    return graph;
}

Elimination Elimination::by_dissection(const SparseMatrix& upper, const std::vector<int>& groups, Index dense)
{
    Vertices vertices = vertices_of(upper.cols() - dense, groups);
    std::optional<Graph> graph = graph_of(upper, vertices);
    idx_t count = idx_t(vertices.sizes.size());
    std::vector<idx_t> order(vertices.sizes.size()), place(order);
    if (!graph || graph->neighbours.empty() ||
        METIS_NodeND(&count, graph->starts.data(), graph->neighbours.data(), vertices.sizes.data(), nullptr,
                     order.data(), place.data()) != METIS_OK)
        return {};
    std::vector<int> first(order.size()); // place of the first row of each vertex
    for (int at = 1; const idx_t vertex : order)
    {
        first[size_t(vertex)] = at;
        at += int(vertices.sizes[size_t(vertex)]);
    }
    Elimination elimination;
    for (const int vertex : vertices.of_row)
        elimination.places.push_back(first[size_t(vertex)]++);
    return elimination.followed_by(dense);
}

Elimination Elimination::followed_by(Index rows) const
{
    Elimination longer = *this;
    for (Index i = 0; i < rows && !places.empty(); ++i)
        longer.places.push_back(int(longer.places.size()) + 1);
    return longer;
}

// ---- Out of core -------------------------------------------------------------------------------------------------------

static std::string temporary_folder()
{
    for (const char* name : {"TMP", "TMPDIR"})
        if (const char* folder = std::getenv(name); folder && *folder)
            return folder;
    return "/tmp";
}

std::string ScratchFolder::make()
{
    std::string path = temporary_folder() + "/zel-factor-XXXXXX";
    if (path.size() >= sizeof(DMUMPS_STRUC_C::ooc_tmpdir))
        throw std::runtime_error("the name of the folder for temporary files is too long: " + temporary_folder());
    if (!mkdtemp(path.data()))
        throw std::runtime_error("cannot put the factor of the stiffness matrix into " + temporary_folder() + ": " +
                                 std::strerror(errno));
    return path;
}

void Mumps::leave_memory()
{
    folder_ = std::make_unique<ScratchFolder>();
    std::strcpy(all_.ooc_tmpdir, folder_->path().c_str());
    std::strcpy(all_.ooc_prefix, "factor");
    control(22) = 1;
}

// What the kernel can give without swapping; without its word, what is unused.
static double free_memory()
{
    std::ifstream table("/proc/meminfo");
    std::string name;
    double kibibytes = 0.0;
    while (table >> name >> kibibytes)
    {
        if (name == "MemAvailable:")
            return 1024.0 * kibibytes;
        table.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return double(sysconf(_SC_AVPHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
}

FactorRoom FactorRoom::now()
{
    std::error_code none;
    const fs::space_info disk = fs::space(temporary_folder(), none);
    return {free_memory(), none ? 0.0 : double(disk.available)};
}

static std::string gibibytes(double bytes)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f GiB", bytes / double(1 << 30));
    return text;
}

bool goes_to_file(const FactorNeeds& needs, const FactorRoom& room, double most_bytes)
{
    constexpr double kReserve = 1.1; // estimates are not exact
    const bool file_fits = kReserve * needs.file <= room.file && needs.memory_beside <= room.memory;
    if (needs.memory <= most_bytes)
        return false;
    if (!file_fits && needs.memory > room.memory)
        throw std::runtime_error("the factor of the stiffness matrix takes " + gibibytes(needs.memory) +
                                 " of memory, or " + gibibytes(needs.memory_beside) + " and " +
                                 gibibytes(kReserve * needs.file) + " in " + temporary_folder() + "; free are " +
                                 gibibytes(room.memory) + " and " + gibibytes(room.file));
    return file_fits;
}

// ---- MUMPS -------------------------------------------------------------------------------------------------------------

[[noreturn]] static void refuse(int state, int detail)
{
    for (int memory : kMemoryFails)
        if (state == memory)
            throw std::runtime_error("out of memory while factoring the stiffness matrix");
    if (state == kOutOfCoreFails)
        throw std::runtime_error("cannot put the factor of the stiffness matrix into " + temporary_folder() +
                                 ": it needs room there, or more memory");
    throw std::runtime_error("the stiffness matrix cannot be factored (MUMPS says " + std::to_string(state) + ", " +
                             std::to_string(detail) + ")");
}

Mumps::Mumps(const SparseMatrix& upper, int symmetry, const Elimination& order)
    : places_(order.places.empty() ? Elimination::by_dissection(upper).places : order.places)
{
    rows_.reserve(size_t(upper.nonZeros()));
    columns_.reserve(size_t(upper.nonZeros()));
    for (Index column = 0; column < upper.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
        {
            rows_.push_back(int(entry.row()) + 1);
            columns_.push_back(int(column) + 1);
        }
    all_.sym = symmetry;
    all_.par = 1;
    all_.comm_fortran = kThisProcess;
    if (run(kBegin) < 0)
        refuse(result(1), result(2));
    for (int stream : {1, 2, 3})
        control(stream) = -1;
    control(4) = 0;
    if (!places_.empty())
    {
        control(7) = 1; // the given order
        all_.perm_in = places_.data();
    }
    all_.n = int(upper.cols());
    all_.nnz = upper.nonZeros();
    all_.irn = rows_.data();
    all_.jcn = columns_.data();
    all_.a = const_cast<double*>(upper.valuePtr());
}

void Mumps::analyse()
{
    if (run(kAnalyse) < 0)
        refuse(result(1), result(2));
}

// Pivoting may need more room than the analysis could know.
int Mumps::factor()
{
    int state = run(kFactor);
    while ((state == kIntegerRoom || state == kRealRoom) && control(14) < kMostRoom)
    {
        control(14) *= 2;
        state = run(kFactor);
    }
    all_.irn = all_.jcn = nullptr; // only the factor is used from here on
    all_.a = nullptr;
    rows_ = columns_ = {};
    return state;
}

void Mumps::solve(MatrixXd& sides)
{
    all_.rhs = sides.data();
    all_.nrhs = int(sides.cols());
    all_.lrhs = int(sides.rows());
    const int state = run(kSolve);
    all_.rhs = nullptr;
    if (state == kOutOfCoreFails)
        throw std::runtime_error("cannot read the factor of the stiffness matrix back from " + temporary_folder());
    if (state < 0)
        throw std::runtime_error("out of memory while solving with the stiffness matrix");
}

// ---- Cholesky ----------------------------------------------------------------------------------------------------------

struct Cholesky::State
{
    Mumps mumps;
};

// Whether the factor answers a right side. Where a part of the body is not held, the last of its pivots are rounding alone.
static bool solves(const Cholesky& factor, const SparseMatrix& upper)
{
    const VectorXd side = VectorXd::NullaryExpr(upper.rows(), [](Index i) { return i % 2 == 0 ? 1.0 : -0.7; });
    const VectorXd answer = factor.solve(side);
    return (upper.selfadjointView<Eigen::Upper>() * answer - side).norm() < kSolved * side.norm();
}

Cholesky::Cholesky(const SparseMatrix& upper, double most_bytes, const Elimination& order)
    : state_(new State{{upper, kPositive, order}})
{
    Mumps& mumps = state_->mumps;
    mumps.analyse();
    if (goes_to_file(mumps.needs(), FactorRoom::now(), most_bytes))
        mumps.leave_memory();
    const int state = mumps.factor();
    if (state < 0 && state != kSingular)
        refuse(state, mumps.result(2));
    if (state == kSingular || mumps.result(12) > 0 || !solves(*this, upper))
        throw std::runtime_error("the stiffness matrix is not positive definite: a part of the body is not held");
}

Cholesky::~Cholesky() = default;

double Cholesky::factor_bytes() const
{
    return state_->mumps.bytes_of(9);
}

MatrixXd Cholesky::solve(const MatrixXd& right) const
{
    MatrixXd sides = right;
    if (sides.size() > 0)
        state_->mumps.solve(sides);
    return sides;
}

// ---- Inertia -----------------------------------------------------------------------------------------------------------

std::optional<Index> count_negative(const SparseMatrix& upper, const Elimination& order)
{
    Mumps mumps(upper, kIndefinite, order);
    mumps.control(13) = 1; // all pivots are counted
    mumps.control(24) = 1; // those without a sign are told
    mumps.real_control(3) = kNoSign;
    mumps.control(31) = 1; // no factor is kept
    mumps.analyse();
    const int state = mumps.factor();
    if (state < 0 && state != kSingular)
        refuse(state, mumps.result(2));
    if (state == kSingular || mumps.result(28) > 0)
        return {};
    return mumps.result(12);
}

// ---- Borders -----------------------------------------------------------------------------------------------------------

SparseMatrix bordered(const SparseMatrix& upper, const MatrixXd& columns, const MatrixXd& corner)
{
    const Index order = upper.cols(), added = columns.cols();
    SparseMatrix whole(order + added, order + added);
    whole.reserve(upper.nonZeros() + (columns.array() != 0.0).count() + added * added);
    for (Index column = 0; column < order; ++column)
    {
        whole.startVec(column);
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
            whole.insertBack(entry.row(), column) = entry.value();
    }
    for (Index c = 0; c < added; ++c)
    {
        whole.startVec(order + c);
        for (Index r = 0; r < order; ++r)
            if (columns(r, c) != 0.0)
                whole.insertBack(r, order + c) = columns(r, c);
        for (Index r = 0; r <= c; ++r)
            whole.insertBack(order + r, order + c) = corner(r, c);
    }
    whole.finalize();
    return whole;
}

} // namespace zel_fem
