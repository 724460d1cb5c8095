// One sparse symmetric matrix in MUMPS.
#ifndef FEM_MUMPS_H
#define FEM_MUMPS_H

#include <dmumps_c.h>

#include <memory>
#include <string>
#include <vector>

#include "fem/interrupt.h"
#include "fem/sparse_factor.h"

namespace zel_fem
{

// Where temporary files go.
std::string temporary_folder();

// A folder for temporary files, gone on every way out.
class ScratchFolder
{
public:
    ScratchFolder() : path_(make()), registered_(path_) {}
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& path() const { return path_; }

private:
    static std::string make();

    std::string path_;
    RemovedOnInterrupt registered_;
};

// Numbers of parameters and results are those of MUMPS's manual.
class Mumps
{
public:
    enum Symmetry
    {
        positive = 1,
        indefinite = 2
    };
    static constexpr int kSingular = -10; // state after a factorisation

    Mumps(const SparseMatrix& upper, Symmetry symmetry, const Elimination& order);
    ~Mumps();
    Mumps(const Mumps&) = delete;
    Mumps& operator=(const Mumps&) = delete;

    int& control(int number) { return all_.icntl[number - 1]; }
    double& real_control(int number) { return all_.cntl[number - 1]; }
    int result(int number) const { return all_.infog[number - 1]; }
    // A number of entries of a factor, in bytes.
    double bytes_of(int number) const;
    // On this machine.
    FactorNeeds needs() const;

    void analyse();
    int factor();
    // As any job of MUMPS, std::runtime_error when it fails.
    void solve(Eigen::MatrixXd& sides);
    void leave_memory(); // factors go to files
    [[noreturn]] void refuse(int state) const;

    // What other processes than the first one do: their part of its jobs, until it says that there are no more.
    static void serve();
    static void end_service();

private:
    Mumps(int symmetry, int serial);
    int run(int job);
    void tell_others() const;
    void take_part(int job, const int* controls, const double* real_controls);

    // Ordered as they have to end: the files before their folder.
    std::unique_ptr<ScratchFolder> folder_;
    DMUMPS_STRUC_C all_{};
    std::vector<int> rows_, columns_, places_;
    int serial_; // of the matrix, in the first process
};

} // namespace zel_fem

#endif
