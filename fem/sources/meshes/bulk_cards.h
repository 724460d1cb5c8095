// Cards of Nastran bulk data in its three forms: small fields of eight columns, large ones of sixteen, and free ones.
#ifndef FEM_MESH_BULK_CARDS_H
#define FEM_MESH_BULK_CARDS_H

#include <string>
#include <string_view>
#include <vector>

#include "fem/sources/text_file.h"

namespace zel_fem::meshes
{

struct BulkCard
{
    std::string name; // in capitals, without the * of large fields; of a line outside of the bulk data its first word
    std::string text; // the first line, without a comment
    std::vector<std::string> fields; // eight a line, without marks of continuation
    Place place;
    int file = 0;

    [[noreturn]] void fail(const std::string& what) const { throw InputError(place, what); }
    bool is_blank(size_t field) const { return field >= fields.size() || fields[field].empty(); }
    // A blank field is an error unless there is a value for it.
    int integer(size_t field) const;
    std::string word(size_t field) const; // in capitals; empty when the card has no such field
    int integer(size_t field, int blank) const { return is_blank(field) ? blank : integer(field); }
    double real(size_t field, double blank) const;
};

// The cards of a file and those that it includes, in their order.
class BulkReader
{
public:
    explicit BulkReader(const std::string& path) : files_(path) {}

    // False at the end of the data. `wanted` tells by the name whether the fields are of interest; they stay empty
    // otherwise.
    template <typename Wanted> bool next(BulkCard& card, Wanted wanted)
    {
        if (!start(card))
            return false;
        finish(card, wanted(card.name));
        return true;
    }
    const std::vector<std::string>& files() const { return files_.files(); }
    double share_read() const { return files_.share_read(); }

private:
    bool next_line();
    void include(const BulkCard& card);
    bool start(BulkCard& card);
    void finish(BulkCard& card, bool wanted);
    std::string add_fields(BulkCard& card) const;

    NestedFiles files_;
    std::string line_; // without a comment and blanks behind; tabs are blanks
    bool waits_ = false;
};

} // namespace zel_fem::meshes

#endif
