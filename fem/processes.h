// Several processes that work on one import, by MPI. The first does what the command does and asks the others for their part in
// what the sparse solver does. A build without MPI, and a command that is started alone, has the first one only.
#ifndef FEM_PROCESSES_H
#define FEM_PROCESSES_H

namespace zel_fem
{

/** Lives as long as main: its beginning joins the processes, its end lets them go. */
class Processes
{
public:
    /** MPI takes its own arguments off. Without what MPI needs it ends the program itself. */
    Processes(int& argc, char**& argv);
    ~Processes();
    Processes(const Processes&) = delete;
    Processes& operator=(const Processes&) = delete;

    /** Whether this is the process that does the work and asks the others. */
    static bool is_first();
    /** How many there are. */
    static int count();
    /** How many of them share the memory of this machine. */
    static int count_here();
    /** Gives the bytes of the first process to all others; every process has to call it. */
    static void broadcast(void* data, int bytes);
    /** What all but the first do until that ends. Returns the status of the process. */
    static int serve();
};

} // namespace zel_fem

#endif
