// VTK's XML files of nodes and faces, for ParaView.
#ifndef EXPORTS_VTU_FILE_H
#define EXPORTS_VTU_FILE_H

#include "exports.h"

#include <cstdint>
#include <sstream>

namespace zel_command
{

// Unstructured cells: the arrays are declared in the head and follow, each behind its size in bytes, as raw data at the end
// (www.vtk.org, VTK file formats). Declared and appended in one order: field data, begin_nodes(), node data; then write_head(), all
// of them again with their values, and write_geometry().
class VtuFile
{
public:
    VtuFile(Output& out, ZELDATA* db);

protected:
    static constexpr const char* kTensorComponents =
        " ComponentName0=\"XX\" ComponentName1=\"YY\" ComponentName2=\"ZZ\" ComponentName3=\"XY\" "
        "ComponentName4=\"YZ\" ComponentName5=\"XZ\"";

    ZELDATA* db() const { return db_; }
    size_t node_count() const { return xyz_.size() / 3; }
    void declare(const char* type, const std::string& name, int components, size_t bytes,
                 const std::string& attributes = "");
    void begin_nodes();
    void write_head();
    void write_geometry();
    template <typename T> void append(const std::vector<T>& values)
    {
        const uint64_t bytes = values.size() * sizeof(T);
        out_.write(&bytes, sizeof bytes);
        out_.write(values.data(), bytes);
    }

private:
    Output& out_;
    ZELDATA* db_;
    std::ostringstream head_;
    std::vector<double> xyz_;
    std::vector<int64_t> connectivity_, offsets_;
    std::vector<uint8_t> types_;
    uint64_t next_offset_ = 0;
};

} // namespace zel_command

#endif
