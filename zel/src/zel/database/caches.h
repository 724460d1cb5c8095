// What the library remembers of one database beside its record. Each part belongs to one file: that file alone names it, and
// all others call its functions. `.ci/check-layers` holds the sources to the owners that stand behind the parts of Caches.
#ifndef ZEL_DATABASE_CACHES_H
#define ZEL_DATABASE_CACHES_H

#include "record.h"

namespace zel
{

// Lookups of nodes. The arrays have room for node_capacity nodes.
struct NodeCache
{
    ZELIDPAIR* slots; // owned hash table of (node id, node index + 1), 0: free slot; null: no lookup so far
    int slot_bits;    // 1 << slot_bits slots
    int hashed;       // so many nodes, from the first, are in slots
    int searches;     // of ids in the sorted index, before they were worth a hash table
    int highest_id;
    int last;                           // that a lookup has found; it or the next one is the likely answer
    int sorted_pairs[ZEL_MODE_KINDS];   // so many pairs at the front of each id index are in order
    int* mode_position[ZEL_MODE_KINDS]; // owned, kinds 1 and 2: a node's position in mode_nodes + 1, 0: not in there
    char* is_interface;                 // owned: 1 for a node of interface_nodes
    int marked_interface_nodes;         // so many entries of interface_nodes are in is_interface
};

struct ModeNumberCache
{
    int last;     // index that a lookup has found
    int repeated; // 1: a mode number occurs twice
    int checked;  // so many modes, from the first, were looked at for that
};

// Temporary mode files in memory.
struct ModeMaps
{
    double* map[ZEL_MODE_KINDS]; // null: not mapped
    int64_t bytes[ZEL_MODE_KINDS];
};

// How many components of a projected vector are forces: 3, or 0 when nothing was projected.
struct ProjectedForces
{
    int of_preload;
    int* of_case; // owned: for each load case
};

struct Caches
{
    NodeCache nodes;                  // node_table.cpp
    NearestCache nearest;             // node_table.cpp, for geometry/nearest.cpp
    ModeNumberCache mode_numbers;     // mode_table.cpp
    ModeMaps mode_maps;               // mode_files.cpp
    ProjectedForces forces;           // loads.cpp
    double assumed_mass;              // matrix_queries.cpp
    int table_modes[10];              // invariant_slots.cpp, by number
    char stale_block[ZEL_BLOCKS + 1]; // file_blocks.cpp, by number
};

inline Caches& caches(const ZELDATA* db)
{
    return *static_cast<Caches*>(db->private_data);
}

} // namespace zel

#endif
