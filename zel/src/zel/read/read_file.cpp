// Reading a ZEL file: its encoding, its directory, then its blocks turn by turn. Small blocks go into memory; of mode
// vectors only the positions are kept, and the invariants are left in the file.
#include "database/database.h"
#include "mechanics/mechanics.h"
#include "reader.h"
#include "zel.h"

#include <algorithm>
#include <initializer_list>

namespace zel
{

// ---- Encoding, summary and directory --------------------------------------------------------------------------------

// Codes that were ever written; beyond them lie other files, such as a text that begins with the letter of a version.
static bool known_code(int code, std::initializer_list<int> old_versions, bool xdr)
{
    constexpr int kAllBits = 0xFF | kXdrBit | kSingleBit;
    if (code & ~kAllBits)
        return false;
    const int version = format_version(code);
    return version >= kFirstFlagVersion
               ? code_is_xdr(code) == xdr
               : std::find(old_versions.begin(), old_versions.end(), version) != old_versions.end();
}

// Settles encoding and precision by the version code, read natively and, if that is no native code, as XDR.
static int read_version(ZELDATA* db)
{
    ZELSTREAM& in = db->zel_file;
    in.xdr = 0;
    in.double_precision = 1;
    int code = 0;
    if (!seek_to(in, 0) || !get_int(in, code) || !known_code(code, {10, 20, 30, 40, 50}, false))
    {
        if (!open_xdr_reader(in))
            return no_memory(module_word::reading);
        if (!seek_to(in, 0) || !get_int(in, code) || !known_code(code, {31, 41, 51}, true))
            return fail("Not a valid ZEL format.");
    }
    in.double_precision = code_is_single(code) ? 0 : 1;
    db->version = code;
    for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
    {
        ZELSTREAM& borrowed = mode_stream(db, kind);
        borrowed = in;
        borrowed.name = nullptr;
    }
    return 1;
}

static int read_summary(ZELDATA* db)
{
    constexpr int kFlagsOfFirstVersions = 17; // blocks 4 to 18
    char flags[kSummaryFlags];
    if (!seek_to(db->zel_file, summary_position(widths_of(db))) || !get_text(db->zel_file, flags, kSummaryFlags))
        return fail("Problem reading ZEL table of contents.");
    const int version = format_version(db->version);
    const bool first_versions = version == 10 || version == 20 || version == 30 || version == 31;
    std::memset(db->content_flags, 0, sizeof db->content_flags);
    for (const Block& row : kBlocks)
    {
        const int position = flag_position(row.number);
        if (position >= 0 && flags[position] && !(first_versions && position >= kFlagsOfFirstVersions))
            raise_flag(db, row.number);
    }
    std::memcpy(db->file_flags, db->content_flags, sizeof db->file_flags);
    return 1;
}

// Each block starts where the one before it ends.
static int read_directory(ZELDATA* db)
{
    db->block_offset[0] = 0;
    for (const Block& row : kBlocks)
    {
        const int64_t bytes = block_bytes(db, row);
        if (bytes == kDamaged)
            return 0;
        db->block_offset[row.number] = db->block_offset[row.number - 1] + bytes;
    }
    return 1;
}

// ---- Number of modes ------------------------------------------------------------------------------------------------

// The count that a block states in front (or, of a matrix, second), -1 when the block is not there or does not read.
static int stated_count(ZELDATA* db, int block, int position)
{
    int32_t head[2];
    const bool read = block_in_file(db, block) && seek_to(db->zel_file, block_start(db, block_row(block))) &&
                      get_ints(db->zel_file, head, position + 1);
    return read ? head[position] : -1;
}

// Not every file has eigenvalues: the mode count is that of the first block that tells it. Modes are numbered from 1 as
// long as no block numbers them.
static int find_mode_count(ZELDATA* db)
{
    constexpr struct
    {
        int block, position;
    } kSources[] = {{ZEL_BLOCK_EIGENVALUES, 0}, {ZEL_BLOCK_MODES, 0},  {ZEL_BLOCK_STIFFNESS, 1},
                    {ZEL_BLOCK_MASS, 1},        {ZEL_BLOCK_STRESS, 0}, {ZEL_BLOCK_STRAIN, 0}};
    const int64_t most = db->file_size / kIntBytes; // a file with more modes has no room for their numbers
    int modes = 0;
    for (const auto& [block, position] : kSources)
    {
        const int count = stated_count(db, block, position);
        const bool usable = position == 0 ? count >= 0 : count >= 1 && count <= most;
        if (!usable)
            continue;
        if (count > most)
            return fail("%s", block_row(block).damaged);
        modes = count;
        break;
    }
    Scratch<int> numbers(modes);
    if (!numbers.data)
        return no_memory(module_word::reading);
    for (int mode = 0; mode < modes; ++mode)
        numbers[mode] = mode + 1;
    replace(db->mode_ids, numbers);
    db->mode_count = db->max_modes = modes;
    return 1;
}

// ---- Blocks ------------------------------------------------------------------------------------------------------------

static int read_blocks(ZELDATA* db)
{
    Reader in(db);
    for (const Turn turn : {Turn::units, Turn::early, Turn::late})
        for (const Block& row : kBlocks)
            if (row.turn == turn && block_in_file(db, row.number) &&
                !((hangs_on_modes(row) ? read_modal_block(in, row) : read_body_block(in, row)) && goes_on()))
                return 0;
    return 1;
}

// A projected vector was projected from the rigid-body modes that the file has: without any it has modal forces alone.
static void note_projected_forces(ZELDATA* db)
{
    const int forces = rigid_modes_by_hertz(db) > 0 ? 3 : 0;
    set_preload_forces(db, db->principal_axes_done ? forces : 0);
    for (int i = 0; i < db->load_case_count; ++i)
        set_load_forces(db, i, db->load_cases[i].processed ? forces : 0);
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_ReadZEL(ZELDATA* db, FILE* file, const char* name)
{
    if (!CheckZEL(db))
        return no_database();
    if (!file || db->zel_file.file || db->node_count > 0 || db->mode_count > 0)
        return 0;
    const LongOperation operation;
    start_empty(db);
    if (!adopt_file(db, file, name))
        return no_memory(module_word::reading);
    if (!read_version(db))
        return 0;
    if (FileSeek_Win32(file, 0, 2) != 0 || (db->file_size = FileTell_Win32(file)) < 0)
        return fail("Not a valid ZEL format.");
    if (!read_summary(db) || !read_directory(db) || !find_mode_count(db))
        return 0;
    db->units = {1.0, 1.0, 1.0, 1.0, "KILOGRAM", "METER", "SECOND", "NEWTON"}; // unless the file tells them
    if (!read_blocks(db))
        return 0;
    note_projected_forces(db);
    db->max_mode_nodes = block_in_file(db, ZEL_BLOCK_MODES) ? db->mode_node_count[ZEL_MODE_SHAPE] : db->node_count;
    return 1;
}

ZELDATA* ZEL_CreateFromZEL(const char* path)
{
    if (!path)
        return nullptr;
    if (ZELDATA* known = database_of_file(path))
        return known;
    FILE* file = std::fopen(path, "rb");
    if (!file)
        return nullptr;
    ZELDATA* db = ZEL_Create(0, 0);
    if (!db)
    {
        std::fclose(file);
        return nullptr;
    }
    if (ZEL_ReadZEL(db, file, path))
        return db;
    ZEL_UnLink(db); // with the file
    return nullptr;
}

const char* zelread_VersionId(void)
{
    return "zelread " ZEL_VERSION;
}
