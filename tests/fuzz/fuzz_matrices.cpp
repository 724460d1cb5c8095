// libFuzzer over the readers of matrices, row maps and meshes (clang, -DZEL_FUZZ=ON); any files of these formats serve as seeds:
//   fuzz_matrices -max_len=4096 -max_total_time=600 corpus seeds
#include <numeric>
#include <sys/mman.h>
#include <unistd.h>

#include "fem/sources/matrices/matrix_file.h"
#include "fem/sources/matrices/row_map.h"
#include "fem/sources/meshes/mesh_file.h"

using namespace zel_fem;

// InputError is all that a file may bring about.
template <typename Read> static void attempt(Read read)
{
    try
    {
        read();
    }
    catch (const InputError&)
    {}
}

static void read_matrix(const std::string& path, matrices::Role role)
{
    constexpr int64_t kMostRows = 10000; // sources compare the order with their rows before they take memory by it
    const matrices::MatrixFile file = matrices::read_matrix_file(path, role, [](double) {});
    std::vector<int64_t> rows(size_t(std::min(file.order, kMostRows)));
    std::iota(rows.begin(), rows.end(), int64_t(0));
    if (file.order <= kMostRows)
        matrices::upper_triangle(file, rows, file.order);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    const int file = memfd_create("input", 0);
    if (file < 0 || write(file, bytes, count) != ssize_t(count))
        std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    Mesh mesh;
    mesh.nodes = {{1, {0, 0, 0}}, {2, {1, 0, 0}}, {7, {0, 1, 0}}};
    Progress silent;
    attempt([&] { read_matrix(path, matrices::Role::stiffness); });
    attempt([&] { read_matrix(path, matrices::Role::mass); });
    attempt([&] { matrices::read_row_map(path, mesh); });
    attempt([&] { meshes::read_mesh_file(path, silent); });
    close(file);
    return 0;
}
