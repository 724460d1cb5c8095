// Stress of combined modes, for ParaView or as JSON.
#include "vtu_file.h"

#include "checks/stress.h"

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <limits>
#include <list>

namespace zel_command
{

constexpr size_t kComponents = 6;

static std::vector<double> mises_of(const std::vector<double>& stress)
{
    std::vector<double> mises;
    for (size_t i = 0; i < stress.size(); i += kComponents)
        mises.push_back(zel_checks::von_mises(stress.data() + i));
    return mises;
}

namespace
{
// Stress and von Mises stress of one state; nodes without stress have no number.
class StateVtu : public VtuFile
{
public:
    using VtuFile::VtuFile;
    void write(double time, const std::vector<double>& stress, const std::vector<int>& nodes)
    {
        declare("Float64", "time", 1, sizeof(double), " NumberOfTuples=\"1\"");
        begin_nodes();
        declare("Float64", "stress", int(kComponents), node_count() * kComponents * sizeof(double), kTensorComponents);
        declare("Float64", "von Mises stress", 1, node_count() * sizeof(double));
        write_head();
        append(std::vector<double>{time});
        constexpr size_t kOrder[kComponents] = {0, 1, 2, 3, 5, 4};
        constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
        std::vector<double> tensors(kComponents * node_count(), kNone), mises(node_count(), kNone);
        for (size_t i = 0; i < nodes.size(); ++i)
        {
            for (size_t c = 0; c < kComponents; ++c)
                tensors[kComponents * size_t(nodes[i]) + kOrder[c]] = stress[kComponents * i + c];
            mises[size_t(nodes[i])] = zel_checks::von_mises(stress.data() + kComponents * i);
        }
        append(tensors);
        append(mises);
        write_geometry();
    }
};

class VtuOutput : public StressOutput
{
public:
    VtuOutput(ZELDATA* db, const std::string& path, bool collection) : db_(db), path_(path), collection_(collection)
    {
        for (int id : zel_checks::nodes_with_stress(db))
            nodes_.push_back(ZEL_NodeIndex(db, id));
    }
    void add(double time, const std::vector<double>& stress) override
    {
        namespace fs = std::filesystem;
        std::string file = path_;
        if (collection_)
        {
            file = fs::path(path_).replace_extension().string() + "_" + std::to_string(files_.size() + 1) + ".vtu";
            list_ += "<DataSet timestep=\"" + zel_checks::format("%.17g", time) + "\" file=\"" +
                     fs::path(file).filename().string() + "\"/>\n";
        }
        StateVtu(files_.emplace_back(file, db_), db_).write(time, stress, nodes_);
    }
    void commit() override
    {
        if (collection_)
        {
            Output& collection = files_.emplace_back(path_, db_);
            collection.write("<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"1.0\">\n<Collection>\n" +
                             list_ + "</Collection>\n</VTKFile>\n");
            collection.finish();
        }
        for (Output& file : files_)
            file.commit();
    }

private:
    ZELDATA* db_;
    std::string path_, list_;
    bool collection_;
    std::vector<int> nodes_; // indexes
    std::list<Output> files_;
};

class JsonOutput : public StressOutput
{
public:
    JsonOutput(ZELDATA* db, const std::string& path, const std::string& solution) : out_(path, db)
    {
        const auto units = zel_checks::units_of(db);
        const nlohmann::ordered_json head = {{"units", {units[0], units[1], units[2], units[3]}},
                                             {"solution", solution},
                                             {"stress_nodes", zel_checks::nodes_with_stress(db)}};
        const std::string text = head.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        out_.write(text.substr(0, text.size() - 1) + ",\"states\":[");
    }
    void add(double time, const std::vector<double>& stress) override
    {
        const nlohmann::ordered_json state = {{"time", time}, {"stress", stress}, {"von_mises", mises_of(stress)}};
        out_.write((first_ ? "\n" : ",\n") + state.dump());
        first_ = false;
    }
    void commit() override
    {
        out_.write("]}\n");
        out_.commit();
    }

private:
    Output out_;
    bool first_ = true;
};
} // namespace

std::unique_ptr<StressOutput> stress_output(ZELDATA* db, const std::string& path, size_t states,
                                            const std::string& solution)
{
    const std::string ending = CLI::detail::to_lower(std::filesystem::path(path).extension().string());
    if (ending == ".json")
        return std::make_unique<JsonOutput>(db, path, solution);
    if (ending != ".vtu" && ending != ".pvd")
        throw std::runtime_error("-o takes a file name that ends in .vtu, .pvd or .json");
    if (ending == ".vtu" && states != 1)
        throw std::runtime_error("a .vtu has one state, and there are " + std::to_string(states) +
                                 ": write a .pvd, which has a .vtu for each, or a .json");
    return std::make_unique<VtuOutput>(db, path, ending == ".pvd");
}

} // namespace zel_command
