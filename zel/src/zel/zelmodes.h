// The mode store: the stored vectors of every kind, wherever they lie, and their replacement by others.
//
// A stream holds records, one a mode, of six values a node. Stored values times mode_factor[kind] (of kind 0 only the
// translations) are in current units. A record may have room for fewer or more nodes than the kind has by now.
#ifndef ZELMODES_H
#define ZELMODES_H

#include "zel.h"

namespace zel
{

// Reads, in current units, the six values of each of `count` nodes at the positions first, first + 1, ... of the stored
// vector of mode index `mode`: from a temporary file, mapped or not, or a ZEL file of either precision and encoding. What
// lies beyond the record reads as zero. 0, silently, when the kind has no stream, the mode is out of range or the record
// cannot be read. The position of a ZEL file changes.
int read_mode_slice(ZELDATA* db, int kind, int mode, int first, int count, double* out);

// How often records were read from a stream since the process began.
extern int64_t mode_reads;

// Forgets the vectors in mode_buffer. Whoever changes mode_count, node lists or streams calls it.
void forget_cached_modes(ZELDATA* db);

// A new temporary file that is to take the place of a kind's mode vectors: opened, filled record by record in any order,
// then installed. Without installation it vanishes at the end of its scope and the database keeps what it had.
class ModeReplacement
{
public:
    enum Result
    {
        kReady,
        kNotOpened, // the file could not be opened; name() tells its path
        kNoSpace,   // the disk is full
        kNoMemory,
    };
    ModeReplacement() = default;
    ~ModeReplacement();
    ModeReplacement(const ModeReplacement&) = delete;
    ModeReplacement& operator=(const ModeReplacement&) = delete;

    // Zero records for max(max_modes, modes) modes and max(max_mode_nodes, nodes) nodes. Prints nothing.
    Result open(ZELDATA* db, int kind, int modes, int nodes);

    // Writes the six values, in current units, of `count` nodes from position `first` on. 0 outside the record or when
    // the write failed.
    int write(int mode, int first, int count, const double* values);

    // Whether all that was written is in the file.
    bool complete() const;

    // Puts the file in the place of the kind's old stream, which is closed, and removed when it was temporary; the cached
    // vector is forgotten. Cannot fail. Mode counts and node lists are the caller's to adjust.
    void install();

    const char* name() const { return stream_.name; }

private:
    ZELDATA* db_ = nullptr;
    int kind_ = 0, modes_ = 0, nodes_ = 0;
    ZELSTREAM stream_ = {};
    int64_t* positions_ = nullptr;
    double* map_ = nullptr;
    int64_t map_bytes_ = 0;
    bool failed_ = false;
};

} // namespace zel

#endif
