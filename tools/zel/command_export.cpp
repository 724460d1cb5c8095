// `zel export`: a body for ParaView (.vtu, .pvd) or for scripts (.json).
#include "body.h"
#include "commands.h"
#include "interrupt.h"
#include "progress.h"
#include "zelfile.h"
#include "zeloutput.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <sstream>

namespace zel_command
{

// A VTK XML file of unstructured cells: the arrays are declared in the head and follow, each behind its size in bytes, as
// raw data at the end (www.vtk.org, VTK file formats).
namespace
{
// A file that takes the place of an older one when it is committed. It never is the file that the body is read from.
class Output
{
public:
    Output(std::string path, const ZELDATA* db) : path_(std::move(path)), unfinished_(path_), file_(path_.c_str())
    {
        if (zel::names_open_file(path_.c_str(), db->zel_file.file))
            throw std::runtime_error(path_ + ": is the file that is read");
        if (!file_.file())
            fail("cannot be written");
    }
    void write(const void* bytes, size_t count)
    {
        if (!file_.write(bytes, count))
            fail("cannot be written completely");
    }
    void write(const std::string& text) { write(text.data(), text.size()); }
    void finish()
    {
        if (!file_.finish())
            fail("cannot be written completely");
    }
    void commit()
    {
        if (!file_.commit())
            fail("cannot be written completely");
    }

private:
    [[noreturn]] void fail(const char* what) const
    {
        const int error = file_.error();
        throw std::runtime_error(path_ + ": " + what + (error ? ", " : "") + (error ? std::strerror(error) : ""));
    }
    std::string path_;
    UnfinishedOutput unfinished_;
    zel::OutputFile file_;
};

// So many equal parts of the work, counted as they are done.
class Steps
{
public:
    Steps(ProgressBar& bar, size_t count) : bar_(bar), count_(double(count)) {}
    void advance() { bar_.advance(++done_ / count_); }

private:
    ProgressBar& bar_;
    double count_, done_ = 0.0;
};

class VtuFile
{
public:
    VtuFile(Output& out, const ZELDATA* db) : out_(out)
    {
        xyz_ = coordinates_of(db);
        for (const std::vector<int>& face : faces_of(db))
        {
            connectivity_.insert(connectivity_.end(), face.begin(), face.end());
            offsets_.push_back(int64_t(connectivity_.size()));
            constexpr uint8_t kVertex = 1, kLine = 3, kPolygon = 7;
            types_.push_back(face.size() == 1 ? kVertex : face.size() == 2 ? kLine : kPolygon);
        }
    }

    // Point data: the displacement of every node in each mode, fetched one mode at a time.
    void write(ZELDATA* db, const std::vector<Mode>& modes, const std::vector<std::string>& names, Steps& steps)
    {
        const size_t vector_bytes = xyz_.size() * sizeof(double);
        head_ << "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" "
                 "byte_order=\"LittleEndian\" "
                 "header_type=\"UInt64\">\n<UnstructuredGrid>\n<Piece NumberOfPoints=\""
              << xyz_.size() / 3 << "\" NumberOfCells=\"" << types_.size() << "\">\n<PointData>\n";
        for (const std::string& name : names)
            declare("Float64", name, 3, vector_bytes);
        head_ << "</PointData>\n<Points>\n";
        declare("Float64", "Points", 3, vector_bytes);
        head_ << "</Points>\n<Cells>\n";
        declare("Int64", "connectivity", 1, connectivity_.size() * sizeof(int64_t));
        declare("Int64", "offsets", 1, offsets_.size() * sizeof(int64_t));
        declare("UInt8", "types", 1, types_.size());
        head_ << "</Cells>\n</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
        out_.write(head_.str());
        std::vector<double> shape(xyz_.size());
        for (const Mode& mode : modes)
        {
            if (!ZEL_Mode(db, mode.number, ZEL_MODE_SHAPE, shape.data(), 0))
                throw std::runtime_error("mode " + std::to_string(mode.number) + " cannot be read");
            append(shape);
            steps.advance();
        }
        append(xyz_);
        append(connectivity_);
        append(offsets_);
        append(types_);
        out_.write("\n</AppendedData>\n</VTKFile>\n");
        out_.finish();
    }

private:
    void declare(const char* type, const std::string& name, int components, size_t bytes)
    {
        head_ << "<DataArray type=\"" << type << "\" Name=\"" << name << "\" NumberOfComponents=\"" << components
              << "\" format=\"appended\" offset=\"" << next_offset_ << "\"/>\n";
        next_offset_ += sizeof(uint64_t) + bytes;
    }
    template <typename T> void append(const std::vector<T>& values)
    {
        const uint64_t bytes = values.size() * sizeof(T);
        out_.write(&bytes, sizeof bytes);
        out_.write(values.data(), bytes);
    }

    Output& out_;
    std::ostringstream head_;
    std::vector<double> xyz_;
    std::vector<int64_t> connectivity_, offsets_;
    std::vector<uint8_t> types_;
    uint64_t next_offset_ = 0;
};
} // namespace

static std::string mode_name(const Mode& mode)
{
    std::array<char, 80> name;
    std::snprintf(name.data(), name.size(), "mode %d, %.6g Hz", mode.number, mode.hertz.value_or(0.0));
    return name.data();
}

static void export_vtu(ZELDATA* db, const std::string& path, ProgressBar& bar)
{
    const std::vector<Mode> modes = ZEL_ModeExist(db, ZEL_MODE_SHAPE) ? modes_of(db) : std::vector<Mode>();
    std::vector<std::string> names;
    for (const Mode& mode : modes)
        names.push_back(mode_name(mode));
    Steps steps(bar, modes.size());
    Output out(path, db);
    VtuFile(out, db).write(db, modes, names, steps);
    out.commit();
}

// A collection of one .vtu file a mode, whose time is the frequency. All are complete before the first takes its place.
static void export_pvd(ZELDATA* db, const std::string& path, ProgressBar& bar)
{
    namespace fs = std::filesystem;
    const fs::path stem = fs::path(path).replace_extension();
    const std::vector<Mode> modes = ZEL_ModeExist(db, ZEL_MODE_SHAPE) ? modes_of(db) : std::vector<Mode>();
    Steps steps(bar, modes.size());
    std::string list;
    std::list<Output> files;
    for (const Mode& mode : modes)
    {
        const std::string file = stem.string() + "_mode" + std::to_string(mode.number) + ".vtu";
        VtuFile(files.emplace_back(file, db), db).write(db, {mode}, {"displacement"}, steps);
        std::array<char, 64> time;
        std::snprintf(time.data(), time.size(), "%.10g", mode.hertz.value_or(0.0));
        list += "<DataSet timestep=\"" + std::string(time.data()) + "\" file=\"" + fs::path(file).filename().string() +
                "\"/>\n";
    }
    Output& collection = files.emplace_back(path, db);
    collection.write("<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"1.0\">\n<Collection>\n" + list +
                     "</Collection>\n</VTKFile>\n");
    collection.finish();
    for (Output& file : files)
        file.commit();
}

static void export_json(ZELDATA* db, const std::string& path, ProgressBar& bar)
{
    const auto units = units_of(db);
    nlohmann::ordered_json body = {{"units", {units[0], units[1], units[2], units[3]}},
                                   {"nodes", nlohmann::ordered_json::array()},
                                   {"faces", nlohmann::ordered_json::array()},
                                   {"interface_nodes", nlohmann::ordered_json::array()},
                                   {"modes", nlohmann::ordered_json::array()}};
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double mass, xyz[3];
        ZEL_NodalMassAndGeometry(db, node, &mass, xyz);
        body["nodes"].push_back({{"id", ZEL_NodeID(db, node)}, {"xyz", {xyz[0], xyz[1], xyz[2]}}, {"mass", mass}});
    }
    const auto ids = [db](const std::vector<int>& nodes) {
        std::vector<int> list;
        for (const int node : nodes)
            list.push_back(ZEL_NodeID(db, node));
        return list;
    };
    for (const std::vector<int>& face : faces_of(db))
        body["faces"].push_back(ids(face));
    body["interface_nodes"] = ids(interface_of(db));
    const size_t values = 3 * size_t(ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE));
    const std::vector<Mode> modes = modes_of(db);
    Steps steps(bar, modes.size());
    for (const Mode& mode : modes)
    {
        std::vector<double> translations(values), rotations(values);
        if (values > 0 && ZEL_Mode(db, mode.number, ZEL_MODE_SHAPE, translations.data(), 0))
            ZEL_Mode(db, mode.number, ZEL_MODE_SHAPE, rotations.data(), 1);
        body["modes"].push_back({{"number", mode.number},
                                 {"eigenvalue", mode.eigenvalue},
                                 {"frequency_hz", mode.hertz.value_or(0.0)},
                                 {"generalized_mass", mode.mass},
                                 {"generalized_stiffness", mode.stiffness},
                                 {"rigid", mode.rigid},
                                 {"translations", translations},
                                 {"rotations", rotations}});
        steps.advance();
    }
    Output out(path, db);
    out.write(body.dump() + "\n");
    out.commit();
}

} // namespace zel_command

using namespace zel_command;

void add_export_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file, out;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("export", "Write nodes, faces and mode shapes for ParaView or for scripts");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_option("-o,--output", options->out, "OUT.vtu, OUT.pvd or OUT.json")->required();
    command->callback([options, &status] {
        const std::string kind = std::filesystem::path(options->out).extension().string();
        const auto write = kind == ".vtu"    ? export_vtu
                           : kind == ".pvd"  ? export_pvd
                           : kind == ".json" ? export_json
                                             : nullptr;
        if (!write)
            throw std::runtime_error("-o takes a file name that ends in .vtu, .pvd or .json");
        ProgressBar bar("open the file");
        const Body body(options->file);
        bar.begin("write the file");
        write(body, options->out, bar);
        status = kFine;
    });
}
