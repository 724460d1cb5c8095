/*
 * What bench/python/modes.py compares the package with: a mode of many nodes set and read by loops in C. Prints the seconds
 * of the fastest mode for each, as JSON.
 *   python_loops nodes modes file
 */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <zel.h>

static double now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

static double faster(double best, double started)
{
    const double taken = now() - started;
    return taken < best ? taken : best;
}

static double set_modes(ZELDATA* db, int nodes, int modes, const double* shape)
{
    double best = 1e9;
    for (int mode = 1; mode <= modes; ++mode)
    {
        const double started = now();
        for (int i = 0; i < nodes; ++i)
            ZEL_SetModeVec(db, mode, i + 1, ZEL_MODE_SHAPE, shape + 6 * i);
        best = faster(best, started);
    }
    return best;
}

static double read_vectors(ZELDATA* db, int modes, double* shape)
{
    double best = 1e9;
    for (int mode = 1; mode <= modes; ++mode)
    {
        const double started = now();
        ZEL_Read_Mode_Double(db, mode, ZEL_MODE_SHAPE, shape);
        best = faster(best, started);
    }
    return best;
}

static double read_nodes(ZELDATA* db, int nodes, int modes, double* shape)
{
    double best = 1e9;
    for (int mode = 1; mode <= modes; ++mode)
    {
        const double started = now();
        for (int i = 0; i < nodes; ++i)
            for (int part = 0; part < 2; ++part)
                ZEL_ModeByNode(db, mode, ZEL_MODE_SHAPE, i + 1, shape + 6 * i + 3 * part, part);
        best = faster(best, started);
    }
    return best;
}

int main(int argc, char** argv)
{
    const int nodes = argc > 3 ? atoi(argv[1]) : 0, modes = argc > 3 ? atoi(argv[2]) : 0;
    double* shape = (double*)malloc(6 * sizeof(double) * (size_t)(nodes > 0 ? nodes : 1));
    if (nodes < 1 || modes < 1 || !shape)
    {
        fprintf(stderr, "usage: python_loops nodes modes file\n");
        return 2;
    }
    for (int i = 0; i < 6 * nodes; ++i)
        shape[i] = i * 0.001;
    ZELDATA* db = ZEL_Create(nodes, modes);
    for (int i = 0; i < nodes; ++i)
        ZEL_SetNodeCoordinates(db, i + 1, i, 0, 0);
    const double set = set_modes(db, nodes, modes, shape);
    ZEL_UnLink(db);
    db = ZEL_CreateFromZEL(argv[3]);
    const double vectors = read_vectors(db, modes, shape), by_node = read_nodes(db, nodes, modes, shape);
    /* What is not printed here was read for nothing, and a compiler could leave it out. */
    fprintf(stderr, "%g\n", shape[6 * nodes - 1]);
    ZEL_UnLink(db);
    free(shape);
    printf("{\"set\": %.9f, \"read\": %.9f, \"read by node\": %.9f}\n", set, vectors, by_node);
    return 0;
}
