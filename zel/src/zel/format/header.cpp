// What the format says of a record: the texts of its header, the widths of its values.
#include "format.h"

namespace zel
{

const HeaderField kHeaderFields[kHeaderFieldCount] = {
    {128, [](ZELDATA* db) { return db->title; }},           {32, [](ZELDATA* db) { return db->date; }},
    {128, [](ZELDATA* db) { return db->input_file_name; }}, {16, [](ZELDATA* db) { return db->input_file_type; }},
    {80, [](ZELDATA* db) { return db->comment1; }},         {80, [](ZELDATA* db) { return db->comment2; }},
    {80, [](ZELDATA* db) { return db->comment3; }},
};

Widths widths_of(const ZELDATA* db)
{
    return {db->zel_file.double_precision ? 8 : 4, db->zel_file.xdr ? 4 : 1,
            format_version(db->version) == kVersion10 ? 0 : 4};
}

} // namespace zel
