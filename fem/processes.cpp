// Whoever ends without a word to the others, as by a signal, takes them along: mpirun ends them.
#include "fem/processes.h"

#include "fem/mumps.h"

#include <cstdio>
#include <exception>

#ifdef ZEL_MPI
#include <mpi.h>
#endif

namespace zel_fem
{

static struct
{
    int rank = 0, count = 1, here = 1;
} self;

#ifdef ZEL_MPI
Processes::Processes(int& argc, char**& argv)
{
    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &self.rank);
    MPI_Comm_size(MPI_COMM_WORLD, &self.count);
    MPI_Comm machine;
    MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, 0, MPI_INFO_NULL, &machine);
    MPI_Comm_size(machine, &self.here);
    MPI_Comm_free(&machine);
}

Processes::~Processes()
{
    if (is_first())
        Mumps::end_service();
    MPI_Finalize();
}

void Processes::broadcast(void* data, int bytes)
{
    MPI_Bcast(data, bytes, MPI_BYTE, 0, MPI_COMM_WORLD);
}
#else
Processes::Processes(int&, char**&) {}
Processes::~Processes() = default;
void Processes::broadcast(void*, int) {}
#endif

bool Processes::is_first()
{
    return self.rank == 0;
}

int Processes::count()
{
    return self.count;
}

int Processes::count_here()
{
    return self.here;
}

int Processes::serve()
{
    try
    {
        watch_for_interrupts();
        Mumps::serve();
        return 0;
    }
    catch (const std::exception& problem) // the first would wait for ever
    {
        std::fprintf(stderr, "zel: process %d: %s\n", self.rank, problem.what());
#ifdef ZEL_MPI
        MPI_Abort(MPI_COMM_WORLD, 2);
#endif
        return 2;
    }
}

} // namespace zel_fem
