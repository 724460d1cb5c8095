// What one call of the writer is told by its option string.
#ifndef ZEL_WRITE_OPTIONS_H
#define ZEL_WRITE_OPTIONS_H

namespace zel
{

enum class InvariantOption
{
    none,
    fast,
    all,
    illegal, // asked for, but neither of the two
};

// The argument of a keyword; empty: none was given.
struct OptionArgument
{
    static constexpr int kRoom = 1024;
    char text[kRoom];
    bool given() const { return text[0] != '\0'; }
};

// A plain record; nothing in it outlives the text.
struct WriteOptions
{
    const char* text; // the whole string, the caller's

    // changes of the geometry, made before anything is written
    bool shift_origin; // to the centre of mass, twice: before and after the faces are replaced and stripped
    OptionArgument sketch;
    bool strip_faces;
    OptionArgument coarsen;

    // format of the file
    int version; // version code with its flag bits
    bool sparse_stress;

    // modes
    bool keep_modes; // as they are, not orthogonalised
    bool range_given;
    double lowest_hz, highest_hz; // exported: frequencies above the first, up to the second

    // content
    InvariantOption invariants;
    bool no_modal_content;
    bool si_units;
};

// A keyword counts wherever it stands in the text, inside another keyword or an argument too.
WriteOptions read_write_options(const char* text);

// Reports each pair of options that exclude one another; 1 when there is none.
int check_conflicts(const WriteOptions& options);

} // namespace zel

#endif
