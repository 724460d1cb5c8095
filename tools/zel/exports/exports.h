// The door of exports/: one file a format, and what they share.
#ifndef EXPORTS_EXPORTS_H
#define EXPORTS_EXPORTS_H

#include "base/output.h"
#include "checks/checks.h"
#include "fem/fem.h"
#include "tools/zel/console.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace zel_command
{

// Which nodes an export takes.
enum class Nodes
{
    all,      // with mode shapes
    faces,    // and the interface
    interface // alone
};

// What is exported: some of the modes, each multiplied by a number of its own where it is for pictures.
struct Shown
{
    std::vector<zel_checks::Mode> modes;
    double scale =
        0.0; // of all modes; 0: each mode's own, by which its largest displacement is a tenth of the body's size
    Nodes nodes = Nodes::all; // of .fem; the others have all
};

// Each writes files whole or, throwing std::runtime_error, not at all: the older ones stand then.
void export_vtu(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar);
void export_pvd(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar);
void export_json(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar);
// Prints a report on standard output.
void export_mbdyn(ZELDATA* db, const std::string& path, const Shown& shown, ProgressBar& bar);

// Takes the stress of states one after the other, and writes it whole in the end.
class StressOutput
{
public:
    virtual ~StressOutput() = default;
    // Six components (x, y, z, xy, xz, yz) a node of zel_checks::nodes_with_stress().
    virtual void add(double time, const std::vector<double>& stress) = 0;
    virtual void commit() = 0;
};

// For .vtu, which has one state, .pvd with a .vtu beside it for each, or .json. `solution`: what the states are.
std::unique_ptr<StressOutput> stress_output(ZELDATA* db, const std::string& path, size_t states,
                                            const std::string& solution);

// ---- What they share --------------------------------------------------------------------------------------------------

// A file that takes the place of an older one when it is committed. It never is the file that the body is read from.
class Output
{
public:
    Output(std::string path, const ZELDATA* db);
    void write(const void* bytes, size_t count);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Of several files all are finished before the first is committed.
    void finish();
    void commit();

private:
    [[noreturn]] void fail(const char* what) const;
    std::string path_;
    zel_fem::UnfinishedOutput unfinished_;
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
    ModeFields(ZELDATA* db, const std::vector<zel_checks::Mode>& modes);
    const std::vector<Field>& fields() const { return fields_; }
    const std::vector<int>& nodes(int kind) const { return nodes_[size_t(kind)]; }

    // As stored, for the nodes of the kind: x, y, z, and behind them xy, xz, yz of a tensor.
    std::vector<double> stored(const zel_checks::Mode& mode, const Field& field) const;

    // For all nodes, as VTK has it: xx, yy, zz, xy, yz, xz. Nodes without mode shapes stand still, those without stress or
    // strain have none.
    std::vector<double> values(const zel_checks::Mode& mode, const Field& field, double factor) const;

private:
    ZELDATA* db_;
    std::vector<Field> fields_;
    std::array<std::vector<int>, ZEL_MODE_KINDS> nodes_;
};

} // namespace zel_command

#endif
