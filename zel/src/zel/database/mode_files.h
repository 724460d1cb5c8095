// The mode store: the stored vectors of every kind, wherever they lie, and their replacement by others.
//
// A stream holds records, one a mode, of six values a node. Stored values times mode_factor[kind] (of kind 0 only the
// translations) are in current units. A record may have room for fewer or more nodes than the kind has by now.
#ifndef ZEL_DATABASE_MODE_FILES_H
#define ZEL_DATABASE_MODE_FILES_H

#include "base/base.h"
#include "zel.h"

#include <atomic>

namespace zel
{

constexpr int kComponents = 6; // values of one node in one mode

// How often a record, or a part of one, was read from a stream since the process began.
extern std::atomic<int64_t> mode_reads;

// Reads, in current units, the six values of each of `count` nodes at the positions first, first + 1, ... of the stored
// vector of mode index `mode`: from a temporary file, mapped or not, or a ZEL file of either precision and encoding. What
// lies beyond the record reads as zero. 0, silently, when the kind has no stream, the mode is out of range or the record
// cannot be read. The position of a ZEL file changes.
int read_mode_slice(ZELDATA* db, int kind, int mode, int first, int count, double* out);

// The same, but in place where the values lie in memory as they are wanted; else `buffer`, filled. Null when it failed. What
// it points at holds until vectors are set, streams change or the buffer goes.
const double* mode_slice(ZELDATA* db, int kind, int mode, int first, int count, double* buffer);

// All vectors of a kind as the columns of a matrix in memory, `stride` values apart: where they lie there as they are
// wanted, for all nodes of the kind; else null. It holds as long as mode_slice.
const double* mode_columns(const ZELDATA* db, int kind, int64_t& stride);

// Opens the temporary file of a kind, unless it is open. 0, with a message, when it cannot be made or the kind's vectors
// are those of the ZEL file that the database was read from.
int open_mode_file(ZELDATA* db, int kind);

// Writes values in current units, from component `dof` of the node at `position` on, into the temporary file of a kind;
// they end within that node, and the node within the record. 0, silently, when the write failed.
int write_mode_values(ZELDATA* db, int kind, int mode, int position, int dof, int count, const double* values);

// Writes the six values, in current units, of each of `count` nodes from `position` on; those of the next node are `stride`
// doubles away. Otherwise the same.
int write_mode_run(ZELDATA* db, int kind, int mode, int position, int count, const double* values, int64_t stride);

// Writes a record from its front, six values in current units a node. Each part is written as soon as it is known to be finite,
// while the processor has it at hand. Of a run that is not finite zeros are left. The run ends within the record.
enum class NewRun
{
    kWritten,
    kNotFinite,
    kNotWritten
};
NewRun write_finite_run(ZELDATA* db, int kind, int mode, int count, const double* values);

// Whether all of `count` values are finite.
bool run_is_finite(const double* values, int64_t count);

// The stored values of some nodes in one mode, put back at the end of the scope unless keep() was called. Those of several nodes
// are not read where the file is mapped, since writing cannot fail there.
class VectorBefore
{
public:
    VectorBefore(ZELDATA* db, int kind, int mode, int first, int count);
    ~VectorBefore();
    VectorBefore(const VectorBefore&) = delete;
    VectorBefore& operator=(const VectorBefore&) = delete;
    int read(); // 0, with a message, when memory is short or they cannot be read
    void keep() { is_read_ = false; }

private:
    ZELDATA* db_;
    int kind_, mode_;
    int64_t at_, count_;
    double of_one_node_[kComponents];
    Scratch<double> of_several_;
    double* values_;
    bool is_read_ = false;
};

// Makes the temporary files that are open large enough for `modes` records, not fewer than there are, of `nodes` nodes. 0,
// with a message and with all that they hold, when disk or memory is short.
int grow_mode_files(ZELDATA* db, int nodes, int modes);

// Closes a kind's stream: a temporary file is gone with that, a ZEL file only left.
void close_mode_stream(ZELDATA* db, int kind);

// Forgets the vectors in mode_buffer. Whoever changes mode numbers, node lists or streams in place calls it.
void forget_cached_modes(ZELDATA* db);

// A temporary file of records; native doubles, all zero at first.
struct RecordFile
{
    ZELSTREAM stream;
    int64_t* positions; // owned: where each record starts
    int nodes;          // that a record has room for
    double* map;        // the whole file in memory, null when it could not be mapped
    int64_t bytes;
};

// A new temporary file that is to take the place of a kind's mode vectors: opened, filled record by record in any order,
// then installed. Without installation it vanishes at the end of its scope and the database keeps what it had.
class ModeReplacement
{
public:
    enum Result
    {
        kReady,
        kNotOpened, // name() tells the path
        kNoSpace,   // the disk is full; name() tells the path
        kNoMemory,
    };
    ModeReplacement() = default;
    ~ModeReplacement();
    ModeReplacement(const ModeReplacement&) = delete;
    ModeReplacement& operator=(const ModeReplacement&) = delete;

    // Zero records for max(max_modes, modes) modes and max(max_mode_nodes, nodes) nodes. Prints nothing.
    Result open(ZELDATA* db, int kind, int modes, int nodes);

    // Writes the six values, in current units, of `count` nodes from position `first` on. 0 outside the `modes` and
    // `nodes` of open(), or when the write failed; then the file should not be installed.
    int write(int mode, int first, int count, const double* values);

    // Puts the file in the place of the kind's old stream, which is closed; the cached
    // vector is forgotten. Cannot fail. Mode counts and node lists are the caller's to adjust.
    void install();

    const char* name() const { return file_.stream.name; }

private:
    ZELDATA* db_ = nullptr;
    int kind_ = 0, modes_ = 0, nodes_ = 0;
    RecordFile file_ = {};
};

} // namespace zel

#endif
