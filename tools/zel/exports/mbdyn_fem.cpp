// The .fem file: groups of numbers behind lines of comment.
#include "mbdyn.h"

#include "checks/report.h"

#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace zel_command
{

using Eigen::MatrixXd;
using zel_checks::format;

std::string text_of(double value)
{
    if (!std::isfinite(value))
        throw std::runtime_error("the body has values that are not finite");
    std::array<char, 32> text;
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

namespace
{
// Lines of at most six values, gathered before they are written.
class FemFile
{
public:
    explicit FemFile(Output& out) : out_(out) {}
    void line(const std::string& text)
    {
        end_line();
        text_ += text + "\n";
        if (text_.size() > kGathered)
            flush();
    }
    void group(int number, const char* title)
    {
        line("**");
        line("** RECORD GROUP " + std::to_string(number) + "," + title);
    }
    void value(const std::string& text)
    {
        text_ += (on_line_ ? " " : "") + text;
        if (++on_line_ == kPerLine)
            line_ends();
    }
    void value(double number) { value(text_of(number)); }
    void end_line()
    {
        if (on_line_)
            line_ends();
    }
    void flush()
    {
        out_.write(text_);
        text_.clear();
    }

private:
    static constexpr int kPerLine = 6;
    static constexpr size_t kGathered = 1u << 16;
    void line_ends()
    {
        text_ += '\n';
        on_line_ = 0;
        if (text_.size() > kGathered)
            flush();
    }

    Output& out_;
    std::string text_;
    int on_line_ = 0;
};
} // namespace

static void write_matrix(FemFile& file, int number, const char* title, const MatrixXd& matrix)
{
    file.group(number, title);
    for (const auto& column : matrix.colwise())
    {
        for (const double value : column)
            file.value(value);
        file.end_line();
    }
}

static std::string account_of(const NodeMasses& nodes)
{
    return std::string("nodal masses ") + (nodes.fitted ? "fitted" : "as in the body") +
           format(": sums over groups 8 and 11 have its invariants 1, 2, 7, 3 and 4 within %.1e", nodes.residual);
}

static void write_head(FemFile& file, const ModalData& data)
{
    file.line("** MBDyn modal data" + (data.title.empty() ? "" : ": " + data.title));
    file.line("** units " + data.units);
    file.line("** " + account_of(data.nodes));
    file.group(1, "HEADER");
    file.line("** REVISION, NODES, NORMAL, ATTACHMENT, CONSTRAINT AND REJECTED MODES");
    file.line(format("REV0 %zu %zu 0 0 0", data.node_ids.size(), data.mode_numbers.size()));
    file.group(2, "NODE LABELS");
    for (const int id : data.node_ids)
        file.value(std::to_string(id));
    for (const auto& [number, title] :
         {std::pair(3, "INITIAL MODAL DISPLACEMENTS"), std::pair(4, "INITIAL MODAL VELOCITIES")})
    {
        file.group(number, title);
        for (size_t i = 0; i < data.mode_numbers.size(); ++i)
            file.value(0.0);
    }
}

static void write_coordinates(FemFile& file, ZELDATA* db, const ModalData& data)
{
    constexpr const char* kTitles[] = {"NODE X COORDINATES", "NODE Y COORDINATES", "NODE Z COORDINATES"};
    for (int axis = 0; axis < 3; ++axis)
    {
        file.group(5 + axis, kTitles[axis]);
        for (const int id : data.node_ids)
        {
            double xyz[3];
            ZEL_NodeCoordinates(db, ZEL_NodeIndex(db, id), xyz);
            file.value(xyz[axis]);
        }
    }
}

static void write_shapes(FemFile& file, ZELDATA* db, const ModalData& data, Steps& steps)
{
    const size_t stored = 3 * size_t(ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE));
    std::vector<size_t> places;
    for (const int id : data.node_ids)
        places.push_back(3 * size_t(ZEL_ModeNodeIndex(db, ZEL_MODE_SHAPE, id)));
    std::vector<double> moved(stored), turned(stored);
    file.group(8, "MODE SHAPES");
    for (const int mode : data.mode_numbers)
    {
        if (!ZEL_Mode(db, mode, ZEL_MODE_SHAPE, moved.data(), 0) ||
            !ZEL_Mode(db, mode, ZEL_MODE_SHAPE, turned.data(), 1))
            throw std::runtime_error("mode " + std::to_string(mode) + " cannot be read");
        file.line("** MODE " + std::to_string(mode));
        for (const size_t place : places)
            for (const std::vector<double>* part : {&moved, &turned})
                for (size_t c = 0; c < 3; ++c)
                    file.value((*part)[place + c]);
        steps.advance();
    }
}

static void write_masses(FemFile& file, const NodeMasses& nodes)
{
    file.group(11, "DIAGONAL OF LUMPED MASS MATRIX");
    for (size_t i = 0; i < nodes.masses.size(); ++i)
    {
        for (int c = 0; c < 3; ++c)
            file.value(nodes.masses[i]);
        for (const double inertia : nodes.inertias[i])
            file.value(inertia);
    }
    file.group(12, "MASS, CENTRE OF MASS, INERTIA ABOUT IT");
    file.value(nodes.rigid.mass);
    file.end_line();
    for (const double coordinate : nodes.rigid.center)
        file.value(coordinate);
    const auto tensor = tensor_about(nodes.rigid, nodes.rigid.center);
    for (size_t i = 0; i < tensor.size(); ++i)
    {
        if (i % 3 == 0)
            file.end_line();
        file.value(tensor[i]);
    }
}

void write_fem(Output& out, ZELDATA* db, const ModalData& data, Steps& steps)
{
    FemFile file(out);
    write_head(file, data);
    write_coordinates(file, db, data);
    write_shapes(file, db, data, steps);
    write_matrix(file, 9, "MODAL MASS MATRIX", data.mass);
    write_matrix(file, 10, "MODAL STIFFNESS MATRIX", data.stiffness);
    write_masses(file, data.nodes);
    if (data.damping)
        write_matrix(file, 13, "MODAL DAMPING MATRIX", *data.damping);
    file.line("** END OF FILE");
    file.flush();
}

} // namespace zel_command
