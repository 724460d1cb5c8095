// Mode vectors on disk. While a body is built they go to a temporary file for each kind, which is reserved at full size,
// so that a full disk shows at once, and then mapped: setting a vector is a copy into the page cache, in any order of
// modes and nodes, and the heap holds none of it. Where a file cannot be mapped, values are written and read at their
// positions; so are those of a replacement, which comes and goes in long runs that cost less than the page faults of a map. The vectors of a body that was read stay in its ZEL file.
#include "mode_files.h"
#include "base/base.h"
#include "caches.h"
#include "record.h"
#include "stream/stream.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace zel
{

namespace
{
constexpr int64_t kNodeBytes = kComponents * int64_t(sizeof(double));

struct FileTexts
{
    const char *variable, *opened, *gap; // gap: before the path in the message of a full disk
};
} // namespace

static constexpr FileTexts kFileTexts[] = {
    {"VXR_TMP_MOD", "modeshape", "  "},
    {"VXR_TMP_STR", "modal stress", " "},
    {"VXR_TMP_STN", "modal strain", " "},
};
static_assert(std::size(kFileTexts) == ZEL_MODE_KINDS);

// ---- Record files ------------------------------------------------------------------------------------------------------

static bool write_zeros(int file, int64_t from, int64_t bytes)
{
    static const char zeros[64 * 1024] = {};
    for (int64_t at = from; at < bytes; at += int64_t(sizeof zeros))
        if (!move_all(pwrite, file, zeros, std::min(bytes - at, int64_t(sizeof zeros)), at))
            return false;
    return true;
}

// Whether the disk is so large at all: an impossible request would fill it first and then be given back.
static bool may_have_room(int file, int64_t bytes)
{
    struct statvfs disk;
    return fstatvfs(file, &disk) != 0 || disk.f_blocks == 0 ||
           uint64_t(bytes) / disk.f_frsize <= uint64_t(disk.f_bfree);
}

static int reserve_in_one_call(int file, int64_t from, int64_t bytes)
{
    int error = EINTR;
    while (error == EINTR)
        error = posix_fallocate(file, from, bytes - from);
    return error;
}

// Lengthens a file of `from` bytes by zeros, with disk space behind every byte; false when there is none.
static bool reserve_bytes(int file, int64_t from, int64_t bytes)
{
    if (bytes <= from)
        return true;
    if (!may_have_room(file, bytes - from))
        return false;
    const HoldFileSizeSignal hold;
    const int error = reserve_in_one_call(file, from, bytes);
    const bool unsupported = error == EOPNOTSUPP || error == ENOSYS || error == EINVAL;
    return error == 0 || (unsupported && write_zeros(file, from, bytes));
}

static double* map_file(int file, int64_t bytes)
{
    if (bytes == 0)
        return nullptr;
    void* map = mmap(nullptr, size_t(bytes), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return map == MAP_FAILED ? nullptr : static_cast<double*>(map);
}

// Makes an open, empty file one of zero records.
static ModeReplacement::Result make_records(RecordFile& records, NamedFile opened, int modes, int nodes)
{
    records.stream.file = opened.file;
    records.stream.name = opened.name;
    records.stream.double_precision = 1;
    records.stream.temporary = 1;
    if (!opened.name)
        return ModeReplacement::kNoMemory;
    if (!opened.file)
        return ModeReplacement::kNotOpened;
    records.nodes = std::max(nodes, 0);
    const int64_t record_bytes = kNodeBytes * records.nodes;
    if (__builtin_mul_overflow(record_bytes, int64_t(modes), &records.bytes))
        return ModeReplacement::kNoSpace;
    const int file = fileno(opened.file);
    if (!reserve_bytes(file, 0, records.bytes))
        return ModeReplacement::kNoSpace;
    records.positions = allocate<int64_t>(modes);
    if (!records.positions)
        return ModeReplacement::kNoMemory;
    for (int mode = 0; mode < modes; ++mode)
        records.positions[mode] = record_bytes * mode;
    return ModeReplacement::kReady;
}

// Unmaps and closes; with that the file is gone.
static void discard_records(RecordFile& records)
{
    if (records.map)
        munmap(records.map, size_t(records.bytes));
    if (records.stream.file)
        std::fclose(records.stream.file);
    discard(records.stream.name);
    discard(records.positions);
    records = {};
}

// A long run costs less through the file than through page faults of the map, but only the file can fail.
static int write_values(FILE* file, double* map, int64_t at, const double* values, int64_t count)
{
    constexpr int64_t kLongRun = 8192;
    const auto* bytes = reinterpret_cast<const char*>(values);
    if ((!map || count >= kLongRun) && move_all(pwrite, fileno(file), bytes, count * int64_t(sizeof(double)), at))
        return 1;
    if (!map)
        return 0;
    std::memcpy(map + at / int64_t(sizeof(double)), values, size_t(count) * sizeof(double));
    return 1;
}

// ---- Streams of a database ---------------------------------------------------------------------------------------------

static ModeMaps& maps_of(const ZELDATA* db)
{
    return caches(db).mode_maps;
}

// The records become the kind's stream.
static void adopt(ZELDATA* db, int kind, RecordFile& records)
{
    ModeMaps& maps = maps_of(db);
    mode_stream(db, kind) = records.stream;
    std::free(db->mode_positions[kind]);
    db->mode_positions[kind] = records.positions;
    db->mode_record_nodes[kind] = records.nodes;
    db->mode_factor[kind] = 1.0;
    db->cached_mode[kind] = -1;
    maps.map[kind] = records.map;
    maps.bytes[kind] = records.bytes;
    records = {};
}

static NamedFile open_for_kind(int kind)
{
    const char* path = std::getenv(kFileTexts[kind].variable);
    return path && *path ? create_temporary_file(path) : create_temporary_file();
}

static Failed report(ModeReplacement::Result result, int kind, const char* path)
{
    const FileTexts& text = kFileTexts[kind];
    const char* subject = kKinds[kind].name;
    constexpr const char* kElsewhere = "To write elsewhere, specify directory name in environment variable";
    constexpr const char* kOrPath = ",\nor specify path name (file name) in environment variable";
    const char* folder = temporary_folder_variable();
    switch (result)
    {
    case ModeReplacement::kNotOpened:
        return fail("Unable to open temporary %s file %s.\n%s %s%s %s.", subject, path, kElsewhere, folder, kOrPath,
                    text.variable);
    case ModeReplacement::kNoSpace:
        return fail("Insufficient disk space for temporary %s file%s%s.\n%s %s%s %s.", subject, text.gap, path,
                    kElsewhere, folder, kOrPath, text.variable);
    default: return no_memory(module_word::setting);
    }
}

std::atomic<int64_t> mode_reads = 0;

int open_mode_file(ZELDATA* db, int kind)
{
    const ZELSTREAM& stream = mode_stream(db, kind);
    if (stream.file && stream.temporary)
        return 1;
    if (stream.file && db->mode_positions[kind])
        return fail("The %s data of a ZEL file cannot be changed.", kKinds[kind].name);
    const bool was_read = db->zel_file.file != nullptr;
    const NamedFile opened = open_for_kind(kind);
    if (opened.file)
        ZEL_Info("Temp %s file: %s", kFileTexts[kind].opened, opened.name);
    RecordFile records = {};
    const ModeReplacement::Result result =
        make_records(records, opened, std::max(db->max_modes, db->mode_count),
                     was_read ? std::max(db->max_mode_nodes, db->node_count) : db->max_mode_nodes);
    if (result != ModeReplacement::kReady)
    {
        report(result, kind, records.stream.name);
        discard_records(records);
        return 0;
    }
    records.map = map_file(fileno(records.stream.file), records.bytes);
    adopt(db, kind, records);
    if (kind == ZEL_MODE_SHAPE)
        db->mode_node_count[kind] = db->node_count;
    return 1;
}

// Whole nodes of a record as they are stored.
static bool read_stored(ZELDATA* db, int kind, int mode, int first, int count, double* out)
{
    ZELSTREAM& stream = mode_stream(db, kind);
    const int64_t values = kComponents * int64_t(count), skipped = kComponents * int64_t(first);
    const int64_t at = db->mode_positions[kind][mode] + skipped * real_bytes(stream);
    ++mode_reads;
    if (const double* map = maps_of(db).map[kind])
    {
        std::memcpy(out, map + at / int64_t(sizeof(double)), size_t(values) * sizeof(double));
        return true;
    }
    if (stream.temporary)
        return move_all(pread, fileno(stream.file), reinterpret_cast<char*>(out), values * int64_t(sizeof(double)), at);
    return get_reals_at(stream, at, out, values);
}

// ---- Room --------------------------------------------------------------------------------------------------------------

// Adds records for modes at the end of a kind's file. What was there stays, also on a failure.
static ModeReplacement::Result lengthen(ZELDATA* db, int kind, int modes)
{
    const int64_t record_bytes = kNodeBytes * db->mode_record_nodes[kind];
    ModeMaps& maps = maps_of(db);
    int64_t bytes = 0;
    if (__builtin_mul_overflow(record_bytes, int64_t(modes), &bytes))
        return ModeReplacement::kNoSpace;
    const int file = fileno(mode_stream(db, kind).file);
    if (bytes > maps.bytes[kind])
    {
        if (!reserve_bytes(file, maps.bytes[kind], bytes))
        {
            [[maybe_unused]] const int given_back = ftruncate(file, maps.bytes[kind]);
            return ModeReplacement::kNoSpace;
        }
        if (maps.map[kind])
            munmap(maps.map[kind], size_t(maps.bytes[kind]));
        maps.map[kind] = map_file(file, bytes); // null: values are written and read at their positions from now on
        maps.bytes[kind] = bytes;
    }
    int64_t* positions = reallocate(db->mode_positions[kind], modes);
    if (!positions)
        return ModeReplacement::kNoMemory;
    db->mode_positions[kind] = positions;
    for (int mode = 0; mode < modes; ++mode)
        positions[mode] = record_bytes * mode;
    return ModeReplacement::kReady;
}

// A new file for a kind, with longer records, that begin with what the records have had so far.
static ModeReplacement::Result widen(ZELDATA* db, int kind, int nodes, int modes, RecordFile& records)
{
    const NamedFile opened = open_for_kind(kind);
    if (opened.file)
        ZEL_Info("Temp %s file: %s", kFileTexts[kind].opened, opened.name);
    const ModeReplacement::Result result = make_records(records, opened, modes, nodes);
    if (result != ModeReplacement::kReady)
        return result;
    records.map = map_file(fileno(records.stream.file), records.bytes);
    const int64_t values = kComponents * int64_t(db->mode_record_nodes[kind]);
    Scratch<double> record(values);
    if (!record.data)
        return ModeReplacement::kNoMemory;
    for (int mode = 0; mode < db->mode_count; ++mode)
        if (!read_stored(db, kind, mode, 0, db->mode_record_nodes[kind], record.data) ||
            !write_values(records.stream.file, records.map, records.positions[mode], record.data, values))
            return ModeReplacement::kNoSpace;
    return ModeReplacement::kReady;
}

int grow_mode_files(ZELDATA* db, int nodes, int modes)
{
    RecordFile wider[ZEL_MODE_KINDS] = {};
    bool complete = true;
    for (int kind = 0; kind < ZEL_MODE_KINDS && complete; ++kind)
    {
        if (!mode_stream(db, kind).temporary)
            continue;
        const bool is_wider = nodes > db->mode_record_nodes[kind];
        const ModeReplacement::Result result =
            is_wider ? widen(db, kind, nodes, modes, wider[kind]) : lengthen(db, kind, modes);
        complete = result == ModeReplacement::kReady;
        if (!complete)
            report(result, kind, is_wider ? wider[kind].stream.name : mode_stream(db, kind).name);
    }
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
        if (wider[kind].stream.file && complete)
        {
            const double factor = db->mode_factor[kind];
            close_mode_stream(db, kind);
            adopt(db, kind, wider[kind]);
            db->mode_factor[kind] = factor;
        }
        else
            discard_records(wider[kind]);
    return complete;
}

// Multiplies (or, to store, divides) the values of whole nodes by the kind's unit factor, from component `dof` on.
static void convert(const ZELDATA* db, int kind, double* values, int64_t count, int dof, bool to_store)
{
    const double factor = db->mode_factor[kind];
    if (factor == 1.0)
        return;
    for (int64_t i = 0; i < count; ++i)
        if (kind != ZEL_MODE_SHAPE || (dof + i) % kComponents < 3) // rotations have no unit
            values[i] = to_store ? values[i] / factor : values[i] * factor;
}

int write_mode_values(ZELDATA* db, int kind, int mode, int position, int dof, int count, const double* values)
{
    double stored[kComponents];
    std::copy_n(values, count, stored);
    convert(db, kind, stored, count, dof, true);
    const int64_t at =
        db->mode_positions[kind][mode] + (kComponents * int64_t(position) + dof) * int64_t(sizeof(double));
    return write_values(mode_stream(db, kind).file, maps_of(db).map[kind], at, stored, count);
}

int read_mode_slice(ZELDATA* db, int kind, int mode, int first, int count, double* out)
{
    if (!valid_kind(kind) || !mode_stream(db, kind).file || !db->mode_positions[kind])
        return 0;
    if (mode < 0 || mode >= db->mode_count || first < 0 || count < 0)
        return 0;
    const int held = std::clamp(db->mode_record_nodes[kind] - first, 0, count);
    if (held > 0 && !read_stored(db, kind, mode, first, held, out))
        return not_read("The %s of mode %d cannot be read.", kKinds[kind].name, ZEL_ModeNumber(db, mode));
    std::fill_n(out + kComponents * int64_t(held), kComponents * int64_t(count - held), 0.0);
    convert(db, kind, out, kComponents * int64_t(held), 0, false);
    return 1;
}

int write_mode_run(ZELDATA* db, int kind, int mode, int position, int count, const double* values, int64_t stride)
{
    constexpr int kNodesAtOnce = 256;
    double* const map = maps_of(db).map[kind];
    const bool stored_as_given = db->mode_factor[kind] == 1.0;
    const int64_t at = db->mode_positions[kind][mode] + kNodeBytes * position;
    FILE* const file = mode_stream(db, kind).file;
    if (stride == kComponents && stored_as_given)
        return write_values(file, map, at, values, kComponents * int64_t(count));
    for (int first = 0; first < count; first += kNodesAtOnce)
    {
        double part[kNodesAtOnce * kComponents];
        const int nodes = std::min(count - first, kNodesAtOnce);
        for (int i = 0; i < nodes; ++i)
            std::copy_n(values + stride * (first + i), kComponents, part + kComponents * i);
        convert(db, kind, part, kComponents * int64_t(nodes), 0, true);
        if (!write_values(file, map, at + kNodeBytes * first, part, kComponents * int64_t(nodes)))
            return 0;
    }
    return 1;
}

// Without a branch for each value: several sums that are not numbers where some value is not finite.
bool run_is_finite(const double* values, int64_t count)
{
    constexpr int kSums = 2 * kComponents; // values are six a node
    double sums[kSums] = {};
    for (; count >= kSums; values += kSums, count -= kSums)
        for (int k = 0; k < kSums; ++k)
            sums[k] += values[k] * 0.0;
    for (int k = 0; k < count; ++k)
        sums[k] += values[k] * 0.0;
    return std::none_of(sums, sums + kSums, [](double sum) { return std::isnan(sum); });
}

// A run of zeros. False when it cannot be written.
static bool erase_run(ZELDATA* db, int kind, int mode, int count)
{
    constexpr int kNodesAtOnce = 256;
    const double zeros[kNodesAtOnce * kComponents] = {};
    for (int first = 0; first < count; first += kNodesAtOnce)
        if (!write_mode_run(db, kind, mode, first, std::min(count - first, kNodesAtOnce), zeros, kComponents))
            return false;
    return true;
}

NewRun write_finite_run(ZELDATA* db, int kind, int mode, int count, const double* values)
{
    constexpr int kNodesAtOnce = 16 * 1024;
    for (int first = 0; first < count; first += kNodesAtOnce)
    {
        const int nodes = std::min(count - first, kNodesAtOnce);
        const double* const part = values + kComponents * int64_t(first);
        if (!run_is_finite(part, kComponents * int64_t(nodes)))
            return erase_run(db, kind, mode, first) ? NewRun::kNotFinite : NewRun::kNotWritten;
        if (!write_mode_run(db, kind, mode, first, nodes, part, kComponents))
            return NewRun::kNotWritten;
    }
    return NewRun::kWritten;
}

VectorBefore::VectorBefore(ZELDATA* db, int kind, int mode, int first, int count)
    : db_(db), kind_(kind), mode_(mode), at_(db->mode_positions[kind][mode] + kNodeBytes * first),
      count_(count > 1 && maps_of(db).map[kind] ? 0 : kComponents * int64_t(count)),
      of_several_(count_ > kComponents ? count_ : 0), values_(count_ > kComponents ? of_several_.data : of_one_node_)
{}

int VectorBefore::read()
{
    if (!values_)
        return no_memory(module_word::setting);
    FILE* const file = mode_stream(db_, kind_).file;
    const double* const map = maps_of(db_).map[kind_];
    const int64_t bytes = count_ * int64_t(sizeof(double));
    if (map)
        std::memcpy(values_, map + at_ / int64_t(sizeof(double)), size_t(bytes));
    else if (!move_all(pread, fileno(file), reinterpret_cast<char*>(values_), bytes, at_))
        return not_read("The %s of mode %d cannot be read.", kKinds[kind_].name, ZEL_ModeNumber(db_, mode_));
    is_read_ = true;
    return 1;
}

VectorBefore::~VectorBefore()
{
    if (is_read_)
        write_values(mode_stream(db_, kind_).file, maps_of(db_).map[kind_], at_, values_, count_);
}

// Whether vectors can be used where they are mapped.
static bool usable_in_place(const ZELDATA* db, int kind)
{
    return maps_of(db).map[kind] && db->mode_factor[kind] == 1.0;
}

const double* mode_slice(ZELDATA* db, int kind, int mode, int first, int count, double* buffer)
{
    const bool in_range = valid_kind(kind) && mode >= 0 && mode < db->mode_count && first >= 0 && count >= 0;
    if (in_range && usable_in_place(db, kind) && count <= db->mode_record_nodes[kind] - first)
    {
        ++mode_reads;
        return maps_of(db).map[kind] + db->mode_positions[kind][mode] / int64_t(sizeof(double)) +
               kComponents * int64_t(first);
    }
    return read_mode_slice(db, kind, mode, first, count, buffer) ? buffer : nullptr;
}

const double* mode_columns(const ZELDATA* db, int kind, int64_t& stride)
{
    stride = kComponents * int64_t(db->mode_record_nodes[kind]);
    if (!usable_in_place(db, kind) || db->mode_record_nodes[kind] < db->mode_node_count[kind])
        return nullptr;
    mode_reads += db->mode_count;
    return maps_of(db).map[kind]; // whose records follow each other
}

void close_mode_stream(ZELDATA* db, int kind)
{
    ModeMaps& maps = maps_of(db);
    ZELSTREAM& stream = mode_stream(db, kind);
    if (stream.temporary)
    {
        RecordFile records = {stream, db->mode_positions[kind], 0, maps.map[kind], maps.bytes[kind]};
        discard_records(records);
    }
    else
        discard(db->mode_positions[kind]);
    stream = {};
    stream.double_precision = 1;
    db->mode_positions[kind] = nullptr;
    maps.map[kind] = nullptr;
}

void forget_cached_modes(ZELDATA* db)
{
    for (int& mode : db->cached_mode)
        mode = -1;
    forget_mode_lookups(db);
}

// ---- Replacement -------------------------------------------------------------------------------------------------------

ModeReplacement::~ModeReplacement()
{
    discard_records(file_);
}

ModeReplacement::Result ModeReplacement::open(ZELDATA* db, int kind, int modes, int nodes)
{
    discard_records(file_);
    db_ = db;
    kind_ = kind;
    modes_ = modes;
    nodes_ = nodes;
    return make_records(file_, create_temporary_file(), std::max(db->max_modes, modes),
                        std::max(db->max_mode_nodes, nodes));
}

int ModeReplacement::write(int mode, int first, int count, const double* values)
{
    if (!file_.positions || mode < 0 || mode >= modes_ || first < 0 || count < 0 || count > nodes_ - first)
        return 0;
    return write_values(file_.stream.file, nullptr, file_.positions[mode] + kNodeBytes * first, values,
                        kComponents * int64_t(count));
}

void ModeReplacement::install()
{
    close_mode_stream(db_, kind_);
    adopt(db_, kind_, file_);
}

} // namespace zel
