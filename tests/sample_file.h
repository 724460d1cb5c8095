// ZEL files laid out item by item, independent of the library's writer, in every encoding, precision and version; and one
// body with all 32 blocks whose values can be told from where they stand.
#ifndef SAMPLE_FILE_H
#define SAMPLE_FILE_H

#include "zel.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct FileFormat
{
    int version; // low byte of the code; below 60 it settles the other two
    bool xdr, single;
    int code() const { return version >= 60 ? version | (xdr ? 0x100 : 0) | (single ? 0x200 : 0) : version; }
    std::string name() const;
};

FileFormat format_of_version(int version); // 10 to 51; 60: XDR, double
std::vector<FileFormat> all_formats();     // every old version, and 60 in all four combinations

// Appends items to a run of bytes.
class FileBuilder
{
public:
    explicit FileBuilder(FileFormat format) : format_(format) {}
    FileBuilder& integer(int64_t value); // the low 32 bits
    FileBuilder& integers(const std::vector<int>& values);
    FileBuilder& real(double value);
    FileBuilder& reals(const std::vector<double>& values);
    FileBuilder& character(int value);
    FileBuilder& text(const std::string& text, size_t width); // filled with NULs
    std::string bytes;

private:
    FileBuilder& item(const void* value, size_t width);
    FileFormat format_;
};

int flag_of(int block); // position in the summary

// A file as the bytes of its blocks. Flags follow from the blocks that are there, plus those that a test forces.
struct SampleFile
{
    FileFormat format;
    std::map<int, std::string> blocks; // by number, from 2 on
    std::map<int, int> forced_flags;   // position in the summary, character
    std::string bytes() const;
    int64_t offset(int block) const; // of a block that is there
    FileBuilder build() const { return FileBuilder(format); }
};

// The body with all blocks that the version can hold (10, 20, 30 and 31: up to 18), both kinds of faces among them.
SampleFile sample_file(FileFormat format);

// What the contents report says of it in the newest format: data/report.txt by block, each from its banner on.
std::map<int, std::string> kept_reports();

// This body in every format, whole and reduced to the blocks that other paths of the reader need: without eigenvalues and faces;
// with stress modes first; with matrices to tell the number of modes; without modes.
std::vector<SampleFile> reduced_samples();

// Blocks of the body for the nodes of a list. What a node lacks is zero.
std::string nodes_block(const SampleFile& file, const std::vector<int>& ids);
std::string masses_block(const SampleFile& file, const std::vector<int>& ids);
std::string vectors_block(const SampleFile& file, int kind, const std::vector<int>& ids,
                          const std::vector<int>& numbers);
std::string tensors_block(const SampleFile& file, int kind, const std::vector<int>& ids);
// Behind each entry of a matrix there is an integer that nobody reads.
std::string matrix_block(const SampleFile& file, int block, int filler);
struct InertiaEntry
{
    int id, row, column; // 4 to 6
    double value;
};
std::string inertias_block(const SampleFile& file, const std::vector<InertiaEntry>& entries);

// What the body has. Every value is exact in single precision.
namespace sample
{
inline const std::vector<int> file_node_ids = {30, 10, 50, 20, 40, 70, 60}; // order of block 4
inline const std::vector<int> shape_node_ids = {10, 30, 20, 50, 40, 70};    // order of block 8
inline const std::vector<int> node_ids = {10, 30, 20, 50, 40, 70, 60};      // the node table that follows from both
inline const std::vector<int> stress_node_ids = {70, 20, 10};
inline const std::vector<int> strain_node_ids = {30, 60};
inline const std::vector<int> mode_numbers = {7, 3, 12};
constexpr int modes = 3;
inline const std::vector<int>& ids_of_kind(int kind)
{
    return kind == 0 ? shape_node_ids : kind == 1 ? stress_node_ids : strain_node_ids;
}
inline double coordinate(int node_id, int axis)
{
    return node_id + axis / 8.0;
}
inline double mass(int node_id)
{
    return node_id / 4.0;
}
inline double stored_mass(int node_id)
{
    return node_id == 10 || node_id == 30 || node_id == 60 ? mass(node_id) : 0.0;
}
inline double mode_value(int kind, int mode_number, int node_id, int component)
{
    return 1000.0 * (kind + 1) + 64.0 * mode_number + node_id + component / 8.0;
}
// The k-th real of any block that is not a table of nodes or mode vectors.
inline double real(int block, int k)
{
    return 16.0 * block + k / 8.0;
}
inline std::vector<double> reals(int block, int first, int count)
{
    std::vector<double> values;
    for (int k = 0; k < count; ++k)
        values.push_back(real(block, first + k));
    return values;
}
inline const std::vector<std::vector<int>> matrix_entries = {{1, 1}, {2, 2}, {3, 3}, {1, 3}}; // rows, columns from 1
inline const std::vector<std::string> load_labels = {"gravity", "thrust"};
} // namespace sample

#endif
