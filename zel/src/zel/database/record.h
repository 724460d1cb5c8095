// The database from the inside: guards, block flags, lookups, and what a change makes stale.
#ifndef ZEL_DATABASE_RECORD_H
#define ZEL_DATABASE_RECORD_H

#include "base/base.h"
#include "format/format.h"
#include "kinds.h"
#include "zel.h"

namespace zel
{

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
inline bool list_nonzeros(const double* full, int n, ZELMATRIX& fresh)
{
    fresh = {};
    for (int row = 0; row < n; ++row)
        for (int column = 0; column < n; ++column)
            if (const double value = full[int64_t(row) * n + column];
                value != 0.0 && !append_entry(fresh, row, column, value))
            {
                discard(fresh.entries);
                return false;
            }
    return true;
}

// Puts a finished list in the place of an old one, which is freed.
inline void install_matrix(ZELMATRIX& matrix, ZELMATRIX& fresh)
{
    discard(matrix.entries);
    matrix = std::exchange(fresh, {});
}

// Stores the entries that a generalized stiffness or mass without any has by implication: the generalized values of the
// eigenvalue records, else a mass of 1. 0, with a message and the matrix as it was, when memory is short.
int store_implied_stiffness(ZELDATA* db);
int store_implied_mass(ZELDATA* db);

// Generalized mass of a mode without entry or record, in current units: 1 in those that the database began with.
double assumed_mass(const ZELDATA* db);
void set_assumed_mass(ZELDATA* db, double mass);

// Frequencies in cycles per unit of time of all modes of a body without eigenvalue records, by index: what ZEL_Eigenvalue looks for
// in the whole matrices for each mode. False, silently, when memory is short.
bool list_frequencies(const ZELDATA* db, double* cycles);

// ---- Loads (database/loads.cpp) ----------------------------------------------------------------------------------------

// How many components of the preload, or of a load case, are forces since it was projected: 3, or 0 when nothing was.
int preload_forces(const ZELDATA* db);
int load_forces(const ZELDATA* db, int load_case);
void set_preload_forces(ZELDATA* db, int forces);
void set_load_forces(ZELDATA* db, int load_case, int forces);

// Room for `count` load cases in a database that has none, all of them without values. On false nothing has changed.
bool reserve_loads(ZELDATA* db, int count);

// Room for so many modes in all load vectors and the preload. 0, with a message and with these as before, when memory is short.
int reserve_load_components(ZELDATA* db, int room);

// Frees all loads and the preload.
void free_loads(ZELDATA* db);

// ---- Node table (database/node_table.cpp) ----------------------------------------------------------------------------------

// Room for `count` nodes in the node table and in every array that follows it. 0, silently and with the table as it was,
// when memory is short.
int reserve_nodes(ZELDATA* db, int64_t count);

// Appends a node with zero coordinates and no mass, whether or not its id is new; its index, or -1 with a message.
int append_node(ZELDATA* db, int node_id);

// Enters records [first, first + count) of the node table, which are filled and for which reserve_nodes() has made room, into
// its lookups. Several threads may enter a part each.
void enter_nodes(ZELDATA* db, int first, int count);

// Makes the first `count` records, all of which have been entered, the nodes of a database that had none. False when an id
// occurs twice.
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

// Whether a node is in interface_nodes.
bool is_interface_node(const ZELDATA* db, int node);

// Frees the lookups of a database that goes.
void free_node_lookups(ZELDATA* db);

// ---- Mode table (database/mode_table.cpp) ------------------------------------------------------------------------

// Mode numbers were changed in place, or modes were taken back: forgets what was found of them.
void forget_mode_lookups(ZELDATA* db);

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
    bool is_new() const { return fresh_; }
    void keep();

private:
    ZELDATA* db_;
    int index_;
    bool fresh_, made_table_;
};

// ---- What a change makes stale ---------------------------------------------------------------------------------------

// Nodes, coordinates or interface nodes have changed: forgets the search structures for nearest nodes.
void nodes_changed(ZELDATA* db);

// The search trees for nearest nodes, over all nodes and over the interface nodes. geometry/nearest.cpp makes and frees them.
struct NearestNodes;
struct NearestCache
{
    NearestNodes* trees[2];                // owned, null: none yet
    int scans_before_tree[2];              // queries that are answered by scanning before a tree is built
    void (*forget)(NearestCache& nearest); // frees the trees; null: there has been none
};
NearestCache& nearest_cache(const ZELDATA* db);

// Nodal masses, inertias, coordinates or mode vectors have changed: drops the invariants that were computed from them.
void mass_or_modes_changed(ZELDATA* db);

// A block of the file no longer describes the body, whose modes or origin have changed since.
void block_changed(ZELDATA* db, int number);
bool is_stale_block(const ZELDATA* db, int number);

// Whether the file of the database holds a block that still describes the body.
bool file_describes(const ZELDATA* db, int number);

// Faces or interface nodes have changed: drops geometry_nodes.
void faces_changed(ZELDATA* db);

// ---- Live databases (database/live.cpp) --------------------------------------------------------------------------------

// The end of the list, in order of creation; and taking a database out of it, null when it is not there.
void add_live(ZELDATA* db);
ZELDATA* take_live(const ZELDATA* db);
ZELDATA* take_first_live();

// Makes a file, and a copy of its name unless that is null, those that a database was read from: from here on it is the
// database that closes it. 0, silently, when memory is short for the name.
int adopt_file(ZELDATA* db, FILE* file, const char* name);

// The live database that was read from a file of that name, null: none.
ZELDATA* database_of_file(const char* path);

// Whether a path leads to a file that a live database holds open.
bool held_open(const char* path);

// Frees the array that the record keeps for a block, and sets its length to 0.
void drop_held(ZELDATA* db, const Block& row);

// Sets all factors of units to 1.
void start_scales(ZELDATA* db);

// The same, and forgets loads and matrices: for a database without nodes and modes that is about to be read.
void start_empty(ZELDATA* db);

// The database that the Fortran entry points work on; null when it is freed.
extern ZELDATA* current_database;

} // namespace zel

#endif
