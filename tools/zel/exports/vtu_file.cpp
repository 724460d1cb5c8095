#include "vtu_file.h"

namespace zel_command
{

VtuFile::VtuFile(Output& out, ZELDATA* db) : out_(out), db_(db), xyz_(zel_checks::coordinates_of(db))
{
    head_.exceptions(std::ios::badbit); // instead of a head that memory did not suffice for
    for (const std::vector<int>& face : zel_checks::faces_of(db))
    {
        connectivity_.insert(connectivity_.end(), face.begin(), face.end());
        offsets_.push_back(int64_t(connectivity_.size()));
        constexpr uint8_t kVertex = 1, kLine = 3, kPolygon = 7;
        types_.push_back(face.size() == 1 ? kVertex : face.size() == 2 ? kLine : kPolygon);
    }
    head_ << "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" "
             "byte_order=\"LittleEndian\" "
             "header_type=\"UInt64\">\n<UnstructuredGrid>\n<FieldData>\n";
}

void VtuFile::declare(const char* type, const std::string& name, int components, size_t bytes,
                      const std::string& attributes)
{
    head_ << "<DataArray type=\"" << type << "\" Name=\"" << name << "\" NumberOfComponents=\"" << components << "\""
          << attributes << " format=\"appended\" offset=\"" << next_offset_ << "\"/>\n";
    next_offset_ += sizeof(uint64_t) + bytes;
}

void VtuFile::begin_nodes()
{
    head_ << "</FieldData>\n<Piece NumberOfPoints=\"" << node_count() << "\" NumberOfCells=\"" << types_.size()
          << "\">\n<PointData>\n";
}

void VtuFile::write_head()
{
    head_ << "</PointData>\n<Points>\n";
    declare("Float64", "Points", 3, xyz_.size() * sizeof(double));
    head_ << "</Points>\n<Cells>\n";
    declare("Int64", "connectivity", 1, connectivity_.size() * sizeof(int64_t));
    declare("Int64", "offsets", 1, offsets_.size() * sizeof(int64_t));
    declare("UInt8", "types", 1, types_.size());
    head_ << "</Cells>\n</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
    out_.write(head_.str());
}

void VtuFile::write_geometry()
{
    append(xyz_);
    append(connectivity_);
    append(offsets_);
    append(types_);
    out_.write("\n</AppendedData>\n</VTKFile>\n");
    out_.finish();
}

} // namespace zel_command
