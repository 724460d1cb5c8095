// The door of this folder: the table of blocks, their flags, the codes of versions, and the directory of a file.
#ifndef ZEL_FORMAT_FORMAT_H
#define ZEL_FORMAT_FORMAT_H

#include "blocks.h"
#include "zel.h"

#include <cassert>
#include <cstdint>

namespace zel
{

// Position of a block's flag in the content summary, -1 for blocks 1 to 3, which always exist.
constexpr int flag_position(int block)
{
    return block_row(block).flag;
}
inline bool has_flag(const char flags[100], int block)
{
    assert(flag_position(block) >= 0 && "a block that may be missing");
    return flags[flag_position(block)] != 0;
}
inline void raise_flag(ZELDATA* db, int block)
{
    assert(flag_position(block) >= 0);
    db->content_flags[flag_position(block)] = 1;
}
inline void clear_flag(ZELDATA* db, int block)
{
    assert(flag_position(block) >= 0);
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

Widths widths_of(const ZELDATA* db);

// Texts of the header in the order of the file, and where the record keeps them.
struct HeaderField
{
    int width; // characters in the file; the last one of a full field is lost on reading
    char* (*text)(ZELDATA* db);
};
constexpr int kHeaderFieldCount = 7;
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
