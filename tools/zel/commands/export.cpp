// `zel export`: a body for ParaView (.vtu, .pvd) or for scripts (.json).
#include "base/files.h"
#include "base/output.h"
#include "checks/checks.h"
#include "commands.h"
#include "fem/fem.h"
#include "tools/zel/body.h"
#include "tools/zel/console.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <list>
#include <memory>
#include <set>
#include <sstream>

namespace zel_command
{

using zel_checks::Mode, zel_checks::coordinates_of, zel_checks::faces_of, zel_checks::interface_nodes_of;
using zel_fem::UnfinishedOutput;

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

// What is exported: some of the modes, each multiplied by a number of its own.
struct Shown
{
    std::vector<Mode> modes;
    double scale; // of all modes; 0: each mode's own, by which its largest displacement is a tenth of the body's size
};

// One part of the modes' vectors.
struct Field
{
    const char* name;
    int kind, part; // part 2: all six components
    int components() const { return part == 2 ? 6 : 3; }
};

// The vectors of modes as arrays over all nodes.
class ModeFields
{
public:
    ModeFields(ZELDATA* db, const std::vector<Mode>& modes) : db_(db)
    {
        double turned = 0.0;
        for (const Mode& mode : modes)
        {
            double angle = 0.0;
            ZEL_GetMaxModeRotation(db, mode.number, nullptr, &angle);
            turned = std::max(turned, angle);
        }
        constexpr Field kFields[] = {{"displacement", ZEL_MODE_SHAPE, 0},
                                     {"rotation", ZEL_MODE_SHAPE, 1},
                                     {"stress", ZEL_MODAL_STRESS, 2},
                                     {"strain", ZEL_MODAL_STRAIN, 2}};
        for (const Field& field : kFields)
            if (ZEL_ModeExist(db, field.kind) && (field.part != 1 || turned > 0.0))
                fields_.push_back(field);
        for (int kind = 0; kind < ZEL_MODE_KINDS; ++kind)
            for (int i = 0; ZEL_ModeExist(db, kind) && i < ZEL_ModeNodeCount(db, kind); ++i)
                nodes_[size_t(kind)].push_back(ZEL_NodeIndex(db, ZEL_ModeNodeID(db, kind, i)));
    }
    const std::vector<Field>& fields() const { return fields_; }
    const std::vector<int>& nodes(int kind) const { return nodes_[size_t(kind)]; }

    // As stored, for the nodes of the kind: x, y, z, and behind them xy, xz, yz of a tensor.
    std::vector<double> stored(const Mode& mode, const Field& field) const
    {
        const size_t count = nodes(field.kind).size();
        std::vector<double> half(3 * count), values(size_t(field.components()) * count);
        for (int part = field.part == 2 ? 0 : field.part; part < (field.part == 2 ? 2 : field.part + 1); ++part)
        {
            if (!ZEL_Mode(db_, mode.number, field.kind, half.data(), part))
                throw std::runtime_error("mode " + std::to_string(mode.number) + " cannot be read");
            const size_t offset = field.part == 2 ? 3 * size_t(part) : 0;
            for (size_t i = 0; i < half.size(); ++i)
                values[i / 3 * size_t(field.components()) + offset + i % 3] = half[i];
        }
        return values;
    }

    // For all nodes, as VTK has it: xx, yy, zz, xy, yz, xz. Nodes without mode shapes stand still, those without stress or
    // strain have none.
    std::vector<double> values(const Mode& mode, const Field& field, double factor) const
    {
        constexpr std::array<size_t, 6> kOrder = {0, 1, 2, 3, 5, 4};
        const size_t components = size_t(field.components());
        const double missing = field.part == 2 ? std::numeric_limits<double>::quiet_NaN() : 0.0;
        const std::vector<double> from = stored(mode, field);
        std::vector<double> all(components * size_t(ZEL_NodeCount(db_)), missing);
        for (size_t i = 0; i < nodes(field.kind).size(); ++i)
            for (size_t c = 0; c < components; ++c)
                all[components * size_t(nodes(field.kind)[i]) + kOrder[c]] = factor * from[components * i + c];
        return all;
    }

private:
    ZELDATA* db_;
    std::vector<Field> fields_;
    std::array<std::vector<int>, ZEL_MODE_KINDS> nodes_;
};

class VtuFile
{
public:
    VtuFile(Output& out, ZELDATA* db) : out_(out), db_(db)
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

    // Arrays of all modes, fetched one mode at a time. They are named by their mode where there may be several.
    void write(const Shown& shown, const ModeFields& fields, bool named, Steps& steps)
    {
        const size_t nodes = xyz_.size() / 3, modes = shown.modes.size();
        head_ << "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" "
                 "byte_order=\"LittleEndian\" "
                 "header_type=\"UInt64\">\n<UnstructuredGrid>\n<FieldData>\n";
        for (const char* name : {"mode", "frequency_hz", "scale"})
            declare("Float64", name, 1, modes * sizeof(double), " NumberOfTuples=\"" + std::to_string(modes) + "\"");
        head_ << "</FieldData>\n<Piece NumberOfPoints=\"" << nodes << "\" NumberOfCells=\"" << types_.size()
              << "\">\n<PointData>\n";
        declare("Float64", "nodal mass", 1, nodes * sizeof(double));
        declare("UInt8", "interface", 1, nodes);
        for (const Mode& mode : shown.modes)
            for (const Field& field : fields.fields())
                declare("Float64", named ? name_of(mode, field) : field.name, field.components(),
                        nodes * size_t(field.components()) * sizeof(double),
                        field.components() == 6 ? kTensorComponents : "");
        head_ << "</PointData>\n<Points>\n";
        declare("Float64", "Points", 3, xyz_.size() * sizeof(double));
        head_ << "</Points>\n<Cells>\n";
        declare("Int64", "connectivity", 1, connectivity_.size() * sizeof(int64_t));
        declare("Int64", "offsets", 1, offsets_.size() * sizeof(int64_t));
        declare("UInt8", "types", 1, types_.size());
        head_ << "</Cells>\n</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
        out_.write(head_.str());
        const std::vector<double> scales = append_field_data(shown, fields);
        append_node_data();
        for (size_t i = 0; i < modes; steps.advance(), ++i)
            for (const Field& field : fields.fields())
                append(fields.values(shown.modes[i], field, scales[i]));
        append(xyz_);
        append(connectivity_);
        append(offsets_);
        append(types_);
        out_.write("\n</AppendedData>\n</VTKFile>\n");
        out_.finish();
    }

private:
    static constexpr const char* kTensorComponents =
        " ComponentName0=\"XX\" ComponentName1=\"YY\" ComponentName2=\"ZZ\" ComponentName3=\"XY\" "
        "ComponentName4=\"YZ\" ComponentName5=\"XZ\"";

    // The displacement goes by the mode alone: it is what most want to see.
    static std::string name_of(const Mode& mode, const Field& field)
    {
        std::array<char, 80> hertz = {};
        if (mode.hertz && !mode.rigid)
            std::snprintf(hertz.data(), hertz.size(), ", %.6g Hz", *mode.hertz);
        const bool motion = field.kind == ZEL_MODE_SHAPE && field.part == 0;
        return "mode " + std::to_string(mode.number) + (mode.rigid ? ", rigid body" : hertz.data()) +
               (motion ? "" : std::string(", ") + field.name);
    }
    double scale_of(const Shown& shown, const ModeFields& fields, const Mode& mode) const
    {
        if (shown.scale > 0.0 || fields.nodes(ZEL_MODE_SHAPE).empty())
            return shown.scale > 0.0 ? shown.scale : 1.0;
        constexpr double kShare = 0.1;
        double largest = 0.0;
        const std::vector<double> shape = fields.stored(mode, {"", ZEL_MODE_SHAPE, 0});
        for (size_t i = 0; i + 2 < shape.size(); i += 3)
            largest = std::max(largest, std::hypot(shape[i], shape[i + 1], shape[i + 2]));
        const double scale = largest > 0.0 ? kShare * ZEL_BodySize(db_) / largest : 1.0;
        return scale > 0.0 && std::isfinite(scale) ? scale : 1.0;
    }
    // Gives the scales of the modes.
    std::vector<double> append_field_data(const Shown& shown, const ModeFields& fields)
    {
        std::vector<double> numbers, hertz, scales;
        for (const Mode& mode : shown.modes)
        {
            numbers.push_back(mode.number);
            hertz.push_back(mode.hertz.value_or(std::numeric_limits<double>::quiet_NaN()));
            scales.push_back(scale_of(shown, fields, mode));
        }
        append(numbers);
        append(hertz);
        append(scales);
        return scales;
    }
    void append_node_data()
    {
        std::vector<double> masses;
        std::vector<uint8_t> is_interface(xyz_.size() / 3);
        for (int node = 0; node < int(is_interface.size()); ++node)
            masses.push_back(ZEL_NodalMass(db_, node));
        for (const int node : interface_nodes_of(db_))
            is_interface[size_t(node)] = 1;
        append(masses);
        append(is_interface);
    }
    void declare(const char* type, const std::string& name, int components, size_t bytes,
                 const std::string& attributes = "")
    {
        head_ << "<DataArray type=\"" << type << "\" Name=\"" << name << "\" NumberOfComponents=\"" << components
              << "\"" << attributes << " format=\"appended\" offset=\"" << next_offset_ << "\"/>\n";
        next_offset_ += sizeof(uint64_t) + bytes;
    }
    template <typename T> void append(const std::vector<T>& values)
    {
        const uint64_t bytes = values.size() * sizeof(T);
        out_.write(&bytes, sizeof bytes);
        out_.write(values.data(), bytes);
    }

    Output& out_;
    ZELDATA* db_;
    std::ostringstream head_;
    std::vector<double> xyz_;
    std::vector<int64_t> connectivity_, offsets_;
    std::vector<uint8_t> types_;
    uint64_t next_offset_ = 0;
};
} // namespace

static void export_vtu(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    const ModeFields fields(db, shown.modes);
    Steps steps(bar, shown.modes.size());
    Output out(path, db);
    VtuFile(out, db).write(shown, fields, true, steps);
    out.commit();
}

// Readers take data of equal time for parts of one: the times increase strictly. They are the frequencies, raised where
// these do not increase; without frequencies they count the modes.
static std::vector<double> times_of(const std::vector<Mode>& modes)
{
    constexpr double kStep = 1e-6; // of the highest frequency
    double highest = 0.0;
    for (const Mode& mode : modes)
        highest = std::max(highest, mode.hertz.value_or(0.0));
    const double step = highest > 0.0 && std::isfinite(highest) ? kStep * highest : 1.0;
    std::vector<double> times;
    for (const Mode& mode : modes)
    {
        const double least = times.empty() ? 0.0 : times.back() + step;
        times.push_back(std::max(mode.rigid ? 0.0 : mode.hertz.value_or(0.0), least));
    }
    return times;
}

// A collection of one .vtu file a mode, or of one without modes. All are complete before the first takes its place.
static void export_pvd(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    namespace fs = std::filesystem;
    const fs::path stem = fs::path(path).replace_extension();
    const ModeFields fields(db, shown.modes);
    Steps steps(bar, shown.modes.size());
    std::string list;
    std::list<Output> files;
    const auto add = [&](const std::string& name, const Shown& part, double time) {
        const std::string file = stem.string() + name + ".vtu";
        VtuFile(files.emplace_back(file, db), db).write(part, fields, false, steps);
        std::array<char, 64> text;
        std::snprintf(text.data(), text.size(), "%.10g", time);
        list += "<DataSet timestep=\"" + std::string(text.data()) + "\" file=\"" + fs::path(file).filename().string() +
                "\"/>\n";
    };
    const std::vector<double> times = times_of(shown.modes);
    for (size_t i = 0; i < times.size(); ++i)
        add("_mode" + std::to_string(shown.modes[i].number), {{shown.modes[i]}, shown.scale}, times[i]);
    if (times.empty())
        add("_geometry", shown, 0.0);
    Output& collection = files.emplace_back(path, db);
    collection.write("<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"1.0\">\n<Collection>\n" + list +
                     "</Collection>\n</VTKFile>\n");
    collection.finish();
    for (Output& file : files)
        file.commit();
}

static nlohmann::ordered_json json_of(const Mode& mode, const ModeFields& fields, const size_t values)
{
    nlohmann::ordered_json one = {{"number", mode.number},
                                  {"eigenvalue", mode.eigenvalue},
                                  {"frequency_hz", nullptr},
                                  {"generalized_mass", mode.mass},
                                  {"generalized_stiffness", mode.stiffness},
                                  {"rigid", mode.rigid},
                                  {"translations", std::vector<double>(values)},
                                  {"rotations", std::vector<double>(values)}};
    if (mode.hertz)
        one["frequency_hz"] = *mode.hertz;
    for (const Field& field : fields.fields())
        one[field.part == 2 ? field.name : field.part == 1 ? "rotations" : "translations"] = fields.stored(mode, field);
    return one;
}

// Everything as stored: --scale is for pictures.
static void export_json(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    const auto units = zel_checks::units_of(db);
    nlohmann::ordered_json body = {{"units", {units[0], units[1], units[2], units[3]}},
                                   {"nodes", nlohmann::ordered_json::array()},
                                   {"faces", nlohmann::ordered_json::array()},
                                   {"interface_nodes", nlohmann::ordered_json::array()}};
    std::vector<bool> is_interface(size_t(ZEL_NodeCount(db)));
    for (const int node : interface_nodes_of(db))
        is_interface[size_t(node)] = true;
    for (int node = 0; node < ZEL_NodeCount(db); ++node)
    {
        double mass, xyz[3];
        ZEL_NodalMassAndGeometry(db, node, &mass, xyz);
        body["nodes"].push_back({{"id", ZEL_NodeID(db, node)},
                                 {"xyz", {xyz[0], xyz[1], xyz[2]}},
                                 {"mass", mass},
                                 {"interface", bool(is_interface[size_t(node)])}});
    }
    const auto ids = [db](const std::vector<int>& nodes) {
        std::vector<int> list;
        for (const int node : nodes)
            list.push_back(ZEL_NodeID(db, node));
        return list;
    };
    for (const std::vector<int>& face : faces_of(db))
        body["faces"].push_back(ids(face));
    body["interface_nodes"] = ids(interface_nodes_of(db));
    const ModeFields fields(db, shown.modes);
    for (const Field& field : fields.fields())
        if (field.part == 2)
            body[std::string(field.name) + "_nodes"] = ids(fields.nodes(field.kind));
    body["modes"] = nlohmann::ordered_json::array();
    Steps steps(bar, shown.modes.size());
    for (const Mode& mode : shown.modes)
    {
        body["modes"].push_back(json_of(mode, fields, 3 * fields.nodes(ZEL_MODE_SHAPE).size()));
        steps.advance();
    }
    Output out(path, db);
    out.write(body.dump() + "\n");
    out.commit();
}

// The modes that a text such as "7-12,15" names, in the order of the body; all of them for an empty text.
static std::vector<Mode> chosen_modes(ZELDATA* db, const std::string& text)
{
    std::vector<Mode> all = zel_checks::modes_of(db);
    if (!ZEL_ModeExist(db, ZEL_MODE_SHAPE) && !ZEL_ModeExist(db, ZEL_MODAL_STRESS) &&
        !ZEL_ModeExist(db, ZEL_MODAL_STRAIN))
        all.clear(); // numbers alone
    if (text.empty())
        return all;
    std::set<int> numbers;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ',');)
    {
        int first = 0, last = 0, used = 0;
        const int given = std::sscanf(part.c_str(), " %9d %n- %9d %n", &first, &used, &last, &used);
        last = given == 1 ? first : last;
        if (given < 1 || size_t(used) != part.size() || first > last || last - first >= 1000000)
            throw std::runtime_error("--modes takes mode numbers, as in 7-12,15, and not " + text);
        for (int number = first; number <= last; ++number)
            if (ZEL_ModeIndex(db, number) < 0)
                throw std::runtime_error("the body has no mode " + std::to_string(number));
            else
                numbers.insert(number);
    }
    std::erase_if(all, [&](const Mode& mode) { return !numbers.contains(mode.number); });
    return all;
}

} // namespace zel_command

using namespace zel_command;

void add_export_command(CLI::App& app, int& status)
{
    struct Options
    {
        std::string file, out, modes;
        double scale = 0.0;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("export", "Write nodes, faces and mode shapes for ParaView or for scripts");
    command->add_option("FILE", options->file, "ZEL file")->required();
    command->add_option("-o,--output", options->out, "OUT.vtu, OUT.pvd or OUT.json")->required();
    command->add_option("--modes", options->modes, "numbers of the modes, as in 7-12,15; all unless given")
        ->option_text("LIST");
    command
        ->add_option("--scale", options->scale,
                     "what modes in .vtu and .pvd are multiplied by; unless given, the largest displacement of each "
                     "becomes a tenth of the body's size")
        ->option_text("NUMBER")
        ->check(CLI::Validator(
            [](const std::string& text) {
                double value = 0.0;
                const bool okay = CLI::detail::lexical_cast(text, value) && value > 0.0 && std::isfinite(value);
                return okay ? std::string() : "\"" + text + "\" is no positive number";
            },
            ""));
    command->callback([options, &status] {
        const std::string kind = CLI::detail::to_lower(std::filesystem::path(options->out).extension().string());
        const auto write = kind == ".vtu"    ? export_vtu
                           : kind == ".pvd"  ? export_pvd
                           : kind == ".json" ? export_json
                                             : nullptr;
        if (!write)
            throw std::runtime_error("-o takes a file name that ends in .vtu, .pvd or .json");
        ProgressBar bar("open the file");
        const Body body(options->file);
        const Shown shown = {chosen_modes(body, options->modes), options->scale};
        bar.begin("write the file");
        write(body, options->out, shown, bar);
        status = kFine;
    });
}
