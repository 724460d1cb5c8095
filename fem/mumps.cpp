// MUMPS does the work (P. R. Amestoy, I. S. Duff, J. Koster and J.-Y. L'Excellent, SIAM J. Matrix Anal. Appl. 23, 2001).
#include "fem/mumps.h"

#include "fem/processes.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <mutex>
#include <stdexcept>

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
namespace fs = std::filesystem;

constexpr int kBegin = -1, kEnd = -2, kAnalyse = 1, kFactor = 2, kSolve = 3, kNoMore = 0; // jobs
constexpr int kIntegerRoom = -8, kRealRoom = -9, kOutOfCoreFails = -90;                   // states after a job
constexpr int kMemoryFails[] = {-5, -7, -13, -19, -22};
constexpr int kAllProcesses = -987654; // as communicator
constexpr int kMostRoom = 3000;        // percent above the estimate, doubled where pivoting needs it

// ---- Out of core -------------------------------------------------------------------------------------------------------

std::string temporary_folder()
{
    for (const char* name : {"TMP", "TMPDIR"})
        if (const char* folder = std::getenv(name); folder && *folder)
            return folder;
    return "/tmp";
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
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

// ---- Jobs --------------------------------------------------------------------------------------------------------------

[[noreturn]] void Mumps::refuse(int state) const
{
    for (int memory : kMemoryFails)
        if (state == memory)
            throw std::runtime_error("out of memory while factoring the stiffness matrix");
    if (state == kOutOfCoreFails)
        throw std::runtime_error("cannot put the factor of the stiffness matrix into " + temporary_folder() +
                                 ": it needs room there, or more memory");
    throw std::runtime_error("the stiffness matrix cannot be factored (MUMPS says " + std::to_string(state) + ", " +
                             std::to_string(result(2)) + ")");
}

Mumps::Mumps(int symmetry, int serial) : serial_(serial)
{
    all_.sym = symmetry;
    all_.par = 1;
    all_.comm_fortran = kAllProcesses;
    if (run(kBegin) < 0)
        refuse(result(1));
    for (int stream : {1, 2, 3}) // nothing is printed: without memory Fortran cannot, and ends up in itself
        control(stream) = -1;
    control(4) = 0;
}

static std::vector<int> places_by(const Elimination& order, const SparseMatrix& upper)
{
    return order.places.empty() ? Elimination::by_dissection(upper).places : order.places;
}

static int next_serial()
{
    static std::atomic<int> last = 0;
    return ++last;
}

Mumps::Mumps(const SparseMatrix& upper, Symmetry symmetry, const Elimination& order) : Mumps(symmetry, next_serial())
{
    places_ = places_by(order, upper);
    rows_.reserve(size_t(upper.nonZeros()));
    columns_.reserve(size_t(upper.nonZeros()));
    for (Index column = 0; column < upper.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
        {
            rows_.push_back(int(entry.row()) + 1);
            columns_.push_back(int(column) + 1);
        }
    control(28) = 1; // the first process analyses
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

Mumps::~Mumps()
{
    run(kEnd);
}

// MUMPS keeps some of its state beside the record: one job at a time in a process.
int Mumps::run(int job)
{
    static std::mutex one_at_a_time;
    const std::lock_guard lock(one_at_a_time);
    all_.job = job;
    if (Processes::is_first())
        tell_others();
    dmumps_c(&all_);
    return all_.infog[0];
}

double Mumps::bytes_of(int number) const
{
    constexpr double kMillions = 1e6;
    const double entries = result(number); // negative: in millions
    return (entries < 0.0 ? -kMillions * entries : entries) * double(sizeof(double));
}

FactorNeeds Mumps::needs() const
{
    const double most = 1e6 * Processes::count_here(); // a megabyte in the process that needs most
    return {most * result(16), most * result(26), bytes_of(3)};
}

void Mumps::analyse()
{
    if (run(kAnalyse) < 0)
        refuse(result(1));
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
    for (std::vector<int>* places : {&rows_, &columns_})
        std::vector<int>().swap(*places);
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

// ---- Several processes -------------------------------------------------------------------------------------------------

namespace
{
// What the first process tells the others before each job.
struct Task
{
    int job, serial, symmetry;
    decltype(DMUMPS_STRUC_C::icntl) controls;
    decltype(DMUMPS_STRUC_C::cntl) real_controls;
};
} // namespace

void Mumps::tell_others() const
{
    if (Processes::count() == 1)
        return;
    Task task{all_.job, serial_, all_.sym, {}, {}};
    std::copy(std::begin(all_.icntl), std::end(all_.icntl), task.controls);
    std::copy(std::begin(all_.cntl), std::end(all_.cntl), task.real_controls);
    Processes::broadcast(&task, sizeof task);
}

void Mumps::end_service()
{
    Task task{kNoMore, 0, 0, {}, {}};
    Processes::broadcast(&task, sizeof task);
}

void Mumps::serve()
{
    std::map<int, std::unique_ptr<Mumps>> matrices; // by number of the first process
    for (;;)
    {
        Task task{};
        Processes::broadcast(&task, sizeof task);
        if (task.job == kNoMore)
            return;
        std::unique_ptr<Mumps>& matrix = matrices[task.serial];
        if (task.job == kBegin)
            matrix.reset(new Mumps(task.symmetry, task.serial));
        else if (task.job == kEnd)
            matrices.erase(task.serial);
        else
            matrix->take_part(task.job, task.controls, task.real_controls);
    }
}

void Mumps::take_part(int job, const int* controls, const double* real_controls)
{
    std::copy_n(controls, std::size(all_.icntl), all_.icntl);
    std::copy_n(real_controls, std::size(all_.cntl), all_.cntl);
    if (control(22) == 1 && !folder_)
        leave_memory();
    run(job);
}

} // namespace zel_fem
