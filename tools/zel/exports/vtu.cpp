// .vtu and .pvd: nodes, faces and modes for ParaView.
#include "vtu_file.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <list>

namespace zel_command
{

using zel_checks::Mode, zel_checks::interface_nodes_of;

namespace
{
// The modes of a body.
class ModesVtu : public VtuFile
{
public:
    using VtuFile::VtuFile;

    // Arrays of all modes, fetched one mode at a time. They are named by their mode where there may be several.
    void write(const Shown& shown, const ModeFields& fields, bool named, Steps& steps)
    {
        const size_t nodes = node_count(), modes = shown.modes.size();
        for (const char* name : {"mode", "frequency_hz", "scale"})
            declare("Float64", name, 1, modes * sizeof(double), " NumberOfTuples=\"" + std::to_string(modes) + "\"");
        begin_nodes();
        declare("Float64", "nodal mass", 1, nodes * sizeof(double));
        declare("UInt8", "interface", 1, nodes);
        for (const Mode& mode : shown.modes)
            for (const Field& field : fields.fields())
                declare("Float64", named ? name_of(mode, field) : field.name, field.components(),
                        nodes * size_t(field.components()) * sizeof(double),
                        field.components() == 6 ? kTensorComponents : "");
        write_head();
        const std::vector<double> scales = append_field_data(shown, fields);
        append_node_data();
        for (size_t i = 0; i < modes; steps.advance(), ++i)
            for (const Field& field : fields.fields())
                append(fields.values(shown.modes[i], field, scales[i]));
        write_geometry();
    }

private:
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
        const double scale = largest > 0.0 ? kShare * ZEL_BodySize(db()) / largest : 1.0;
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
        std::vector<uint8_t> is_interface(node_count());
        for (int node = 0; node < int(is_interface.size()); ++node)
            masses.push_back(ZEL_NodalMass(db(), node));
        for (const int node : interface_nodes_of(db()))
            is_interface[size_t(node)] = 1;
        append(masses);
        append(is_interface);
    }
};
} // namespace

void export_vtu(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    const ModeFields fields(db, shown.modes);
    Steps steps(bar, shown.modes.size());
    Output out(path, db);
    ModesVtu(out, db).write(shown, fields, true, steps);
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
void export_pvd(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar)
{
    namespace fs = std::filesystem;
    const fs::path stem = fs::path(path).replace_extension();
    const ModeFields fields(db, shown.modes);
    Steps steps(bar, shown.modes.size());
    std::string list;
    std::list<Output> files;
    const auto add = [&](const std::string& name, const Shown& part, double time) {
        const std::string file = stem.string() + name + ".vtu";
        ModesVtu(files.emplace_back(file, db), db).write(part, fields, false, steps);
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
} // namespace zel_command
