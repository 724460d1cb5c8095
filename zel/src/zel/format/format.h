// The table of blocks: what the directory, the reader, the writer, the contents report and the comparison must agree on
// is said once, in the row of a block.
#ifndef ZEL_FORMAT_FORMAT_H
#define ZEL_FORMAT_FORMAT_H

#include "zel.h"

#include <cstdint>

namespace zel
{

// Position of a block's flag in the content summary, -1 for blocks 1 to 3, which always exist.
constexpr int flag_position(int block)
{
    return block < 4 ? -1 : block < 11 ? block - 4 : block < 14 ? block - 3 : block - 2;
}
inline bool has_flag(const char flags[100], int block)
{
    return flags[flag_position(block)] != 0;
}
inline void raise_flag(ZELDATA* db, int block)
{
    db->content_flags[flag_position(block)] = 1;
}
inline void clear_flag(ZELDATA* db, int block)
{
    db->content_flags[flag_position(block)] = 0;
}

// Low byte of a version code.
constexpr int kVersion10 = 10;        // mode records carry no mode number
constexpr int kFirstFlagVersion = 60; // from here on two bits of the code tell encoding and precision
constexpr int kXdrBit = 0x100, kSingleBit = 0x200;
constexpr int format_version(int code)
{
    return code & 0xFF;
}
// Encoding and precision that a version code stands for.
constexpr bool code_is_xdr(int code)
{
    const int version = format_version(code);
    return version >= kFirstFlagVersion ? (code & kXdrBit) != 0 : version == 31 || version == 41 || version == 51;
}
constexpr bool code_is_single(int code)
{
    const int version = format_version(code);
    return version >= kFirstFlagVersion ? (code & kSingleBit) != 0 : version == 50 || version == 51;
}

// Bytes that items take in one file.
struct Widths
{
    int real;        // 8 or 4
    int character;   // 4 or 1
    int mode_number; // in front of each mode record: 4, or 0 in a file of version 10
};
Widths widths_of(const ZELDATA* db);

// Counts have 31 bits and some blocks grow with their square: sizes are computed without overflow.
__extension__ typedef __int128 Wide;

struct Block
{
    int number;          // 1 to 32
    const char* name;    // short name
    const char* heading; // its title in the contents report
    const char* label;   // its line in the report's list of blocks
    int counts;          // how many integers at its start tell its size: 0, 1 or 2
    // Size in bytes from these counts, none of which is negative. Of the old element block, which is a chain of groups
    // that tell their own sizes, only the head; of the faces, which tell theirs in bytes, what they say. -1: impossible.
    Wide (*bytes)(Wide n, Wide m, const Widths& w);
    // Messages: its size cannot be told or exceeds the file; a read failed or makes no sense; memory is short; its count
    // is not that of modes or nodes (null where it need not be).
    const char *damaged, *unreadable, *no_room, *mismatch;
    const char* unwritten; // message when writing it fails
};

// Row i describes block i + 1.
extern const Block kBlocks[ZEL_BLOCKS];
inline const Block& block_row(int number)
{
    return kBlocks[number - 1];
}

// Texts of the header in the order of the file, and where the record keeps them.
struct HeaderField
{
    int width; // characters in the file; the last one of a full field is lost on reading
    char* (*text)(ZELDATA* db);
};
constexpr int kHeaderFieldCount = 7, kHeaderCharacters = 544, kSummaryFlags = 100;
extern const HeaderField kHeaderFields[kHeaderFieldCount];

// Where the content summary starts.
inline int64_t summary_position(const Widths& w)
{
    return 4 + int64_t(kHeaderCharacters) * w.character;
}

// Whether the file that the database was read from holds a block, whatever setters have added in memory since.
inline bool block_in_file(const ZELDATA* db, int number)
{
    return db->zel_file.file && number >= 1 && number <= ZEL_BLOCKS && (number < 4 || has_flag(db->file_flags, number));
}

// Size of a block of the file, from the counts at its known offset; the file is left anywhere. Absent blocks have 0.
// kDamaged, after the block's message, when the counts cannot be read, are negative or lead beyond the end of the file.
constexpr int64_t kDamaged = -1;
int64_t block_bytes(ZELDATA* db, const Block& row);

} // namespace zel

#endif
