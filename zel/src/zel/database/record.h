// The database from the inside: guards, block flags, lookups, and what a change makes stale.
#ifndef ZEL_DATABASE_RECORD_H
#define ZEL_DATABASE_RECORD_H

#include "base/base.h"
#include "format/format.h"
#include "kinds.h"
#include "zel.h"

namespace zel
{

struct NearestNodes; // geometry/nearest.cpp

// The library's own caches of one database. Those that follow the node table have room for node_capacity nodes.
struct Private
{
    // Blocks of the file (by block number) that no longer describe the body: its modes or its origin have changed since.
    char stale_block[ZEL_BLOCKS + 1];

    ZELIDPAIR* node_slots; // owned hash table of (node id, node index + 1), 0: free slot; 1 << node_slot_bits slots
    int node_slot_bits;
    int hashed_nodes; // so many nodes, from the first, are in node_slots
    int highest_node_id;
    int last_node;                      // that a lookup has found; it or the next one is the likely answer
    int sorted_pairs[ZEL_MODE_KINDS];   // so many pairs at the front of each id index are in order
    int* mode_position[ZEL_MODE_KINDS]; // owned, kinds 1 and 2: a node's position in mode_nodes + 1, 0: not in there
    char* is_interface;                 // owned: 1 for a node of interface_nodes
    int marked_interface_nodes;         // so many entries of interface_nodes are in is_interface

    // Of invariants 5 and 9: their slots have values for the pairs of so many modes from the first on, the others are zero.
    int table_modes[10];

    NearestNodes* nearest[2]; // owned: search trees over all nodes and over the interface nodes, null: none yet
    void (*forget_nearest)(Private& caches); // frees them; null: there has been none
    int scans_before_tree[2];                // queries that are answered by scanning before a tree is built

    int last_mode;     // that a lookup has found
    int repeated_mode; // 1: a mode number occurs twice
    int checked_modes; // so many modes, from the first, were looked at for that

    double
        assumed_mass; // generalized mass of a mode without entry or record, in current units; 1 in those it began with
    int preload_forces; // so many components of the projected preload are forces: 3, or 0 when nothing was projected
    int* load_forces;   // owned: the same for each load case

    double* mode_map[ZEL_MODE_KINDS]; // temporary mode files in memory, null: not mapped
    int64_t mode_map_bytes[ZEL_MODE_KINDS];
};

inline Private& own(const ZELDATA* db)
{
    return *static_cast<Private*>(db->private_data);
}

// Eigenvalue that stands for infinity. Compared by bit pattern only: a computed value of this size is no sentinel.
constexpr double kInfiniteEigenvalue = 1.2345e20;
inline bool is_infinite_eigenvalue(double value)
{
    return std::memcmp(&value, &kInfiniteEigenvalue, sizeof value) == 0;
}

inline bool valid_kind(int kind)
{
    return kind >= 0 && kind < ZEL_MODE_KINDS;
}

// Appends an entry to a sparse matrix; false, with the matrix as it was, when memory is short.
inline bool append_entry(ZELMATRIX& matrix, int row, int column, double value)
{
    constexpr int kGrowth = 100;
    if (!grow(matrix.entries, matrix.capacity, int64_t(matrix.count) + 1, kGrowth))
        return false;
    matrix.entries[matrix.count++] = {row, column, value};
    return true;
}

// The nonzero entries of a full n x n matrix, row by row, as a list. False, with nothing made, when memory is short.
inline bool list_nonzeros(const double* full, int n, ZELMATRIX& made)
{
    made = {};
    for (int row = 0; row < n; ++row)
        for (int column = 0; column < n; ++column)
            if (const double value = full[int64_t(row) * n + column];
                value != 0.0 && !append_entry(made, row, column, value))
            {
                discard(made.entries);
                return false;
            }
    return true;
}

// Puts a finished list in the place of an old one, which is freed.
inline void install_matrix(ZELMATRIX& matrix, ZELMATRIX& made)
{
    discard(matrix.entries);
    matrix = std::exchange(made, {});
}

// Stores the entries that a generalized stiffness or mass without any has by implication: the generalized values of the
// eigenvalue records, else a mass of 1. 0, with a message and the matrix as it was, when memory is short.
int store_implied_stiffness(ZELDATA* db);
int store_implied_mass(ZELDATA* db);

// ---- Node table (database/node_table.cpp) ----------------------------------------------------------------------------------

// Room for `count` nodes in the node table and in every array that follows it. 0, silently and with the table as it was,
// when memory is short.
int reserve_nodes(ZELDATA* db, int64_t count);

// Appends a node with zero coordinates and no mass, whether or not its id is new; its index, or -1 with a message.
int append_node(ZELDATA* db, int node_id);

// Makes the first `count` records of the node table, which are filled and for which reserve_nodes() has made room, the
// nodes of a database that had none. False, with some of them taken, when an id occurs twice.
bool adopt_nodes(ZELDATA* db, int count);

// Index of a node id, -1 for an unknown one; silent. Takes constant time in every order of calls.
int find_node(const ZELDATA* db, int node_id);

// Appends a node to the node list of kind 1 or 2, whether or not it is there; its position, -1 when all places are taken.
int append_mode_node(ZELDATA* db, int kind, int node);

// Position of a node in the node list of a kind, -1 when it is not there.
int mode_node_position(const ZELDATA* db, int kind, int node);

// Puts a vertex behind the `kept` ones of a face, unless it repeats the one before or, as the last one given, closes the
// polygon by repeating the first. Returns how many are kept now.
inline int keep_vertex(int* vertices, int kept, int node, bool last)
{
    const bool repeats = kept > 0 && (node == vertices[kept - 1] || (last && node == vertices[0]));
    if (!repeats)
        vertices[kept++] = node;
    return kept;
}

// Rebuilds all lookups after nodes, mode_nodes or their counts were rewritten in place (node_count <= node_capacity):
// the id indexes, and everything that depends on them. Invariants stay: a new order of the nodes does not change them.
void node_table_rewritten(ZELDATA* db);

// Nodes a and b, given by index, trade places in the table; everything that names them follows, but for mode shapes, which
// keep their places.
void swap_nodes(ZELDATA* db, int a, int b);

// Frees the arrays of the caches.
void discard_caches(Private& caches);

// ---- Mode table (database/mode_vectors.cpp) ------------------------------------------------------------------------------------

// The mode that a setter names. One that is new is there from now on, but goes again at the end of the scope unless keep()
// was called: a setter that fails leaves none behind.
class ModeToSet
{
public:
    ModeToSet(ZELDATA* db, int mode_number);
    ~ModeToSet();
    ModeToSet(const ModeToSet&) = delete;
    ModeToSet& operator=(const ModeToSet&) = delete;
    int index() const { return index_; } // -1, after a message: there is no room for it
    void keep();

private:
    ZELDATA* db_;
    int index_;
    bool fresh_, made_table_;
};

// Leading rigid-body modes as ZEL_RigidBodyModeCount tells them, but by frequencies in hertz whatever the unit of time.
int rigid_modes_by_hertz(ZELDATA* db);

// ---- What a change makes stale ---------------------------------------------------------------------------------------

// Nodes, coordinates or interface nodes have changed: forgets the search structures for nearest nodes.
void nodes_changed(ZELDATA* db);

// Nodal masses, inertias, coordinates or mode vectors have changed: drops the invariants that were computed from them.
void mass_or_modes_changed(ZELDATA* db);

// Faces or interface nodes have changed: drops geometry_nodes.
void faces_changed(ZELDATA* db);

// ---- Invariants --------------------------------------------------------------------------------------------------------

// Where the values in an invariant's slot come from (invar_origin).
enum : char
{
    kNoValues = 0,
    kComputed,
    kGiven,
    kRead
};

// What invariants 1, 2 and 7 yield (from a filled slot, the file or the nodes), without filling a slot.
struct RigidInvariants
{
    double mass, moment[3], tensor[9];
};
int rigid_invariants(ZELDATA* db, RigidInvariants& out); // 0 when the file cannot be read

// Makes a file, and a copy of its name unless that is null, those that a database was read from: from here on it is the
// database that closes it. 0, silently, when memory is short for the name.
int adopt_file(ZELDATA* db, FILE* file, const char* name);

// The live database that was read from a file of that name, null: none.
ZELDATA* database_of_file(const char* path);

// Whether a path leads to a file that a live database holds open.
bool held_open(const char* path);

// Sets all factors of units to 1.
void start_scales(ZELDATA* db);

// The same, and forgets loads and matrices: for a database without nodes and modes that is about to be read.
void start_empty(ZELDATA* db);

// The database that the Fortran entry points work on; null when it is freed.
extern ZELDATA* current_database;

// Frees invariant n (1 to 9, not 6) and marks it empty. Invariants 3, 4, 5, 8 and 9 are freed by the sizes in invar_modes.
void drop_invariant(ZELDATA* db, int number);

} // namespace zel

#endif
