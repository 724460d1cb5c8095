// One body of a page: what is drawn of it, as arrays, and what is told of it, as JSON.
#ifndef PAGES_PAGE_BODY_H
#define PAGES_PAGE_BODY_H

#include "checks/checks.h"
#include "pages.h"
#include "tools/zel/exports/exports.h"

#include <nlohmann/json.hpp>

#include <optional>

namespace zel_command
{

// Lengths are drawn as shares of the radius, from the origin on, so that pages know no units too small or large for them.
struct Frame
{
    std::array<double, 3> origin = {};
    double radius = 1.0;
};
Frame frame_of(const std::vector<NamedBody>& bodies);

class PageBody
{
public:
    // prefix: of the names that its arrays have on the page.
    PageBody(const NamedBody& body, std::string prefix, const PageOptions& options, ProgressBar& bar);

    // Leaves out modes, then coarsens faces, until the page of this body needs at most so many bytes. Throws where no mode fits.
    void fit(double bytes);

    // Writes the arrays, one mode at a time. After it json() tells how to read them.
    void write_arrays(Output& out, const Frame& frame, Steps& steps);

    nlohmann::ordered_json json() const;
    const std::vector<zel_checks::Mode>& modes() const { return modes_; }
    const std::vector<std::string>& left_out() const { return left_out_; }
    ZELDATA* db() const { return db_; }

private:
    // A kind of vectors, as the page has it.
    struct Kind
    {
        int kind;
        const char* name;
        double share;               // of the shear components in the von Mises value
        double factor;              // of that value
        std::vector<int> positions; // of the nodes shown in the stored vectors, -1: not there
    };
    void choose_nodes();
    void find_turning_nodes();
    double bytes() const;
    bool thin_out();
    void write_geometry(Output& out, const Frame& frame) const;
    void write_mode(Output& out, size_t index);
    void write_motion(Output& out, size_t index, nlohmann::ordered_json& told);
    void write_tensor(Output& out, size_t index, const Kind& kind, nlohmann::ordered_json& told);
    std::string array_name(size_t index, const std::string& what) const;
    nlohmann::ordered_json facts() const;

    ZELDATA* db_;
    std::string name_, prefix_;
    const PageOptions& options_;
    zel_checks::Facts facts_;
    zel_checks::Report report_;
    std::vector<zel_checks::Mode> modes_;
    std::vector<std::array<double, 6>> effective_masses_;
    std::optional<ModeFields> fields_;
    std::vector<std::vector<int>> faces_; // vertices as node indexes
    std::vector<int> shown_;              // node indexes, ascending
    std::vector<int> turning_;            // positions in shown_ of the nodes that turn in some mode
    std::vector<Kind> tensors_;
    std::vector<int> motion_positions_; // as in Kind
    size_t coarsening_ = 0;             // steps so far
    size_t nodes_before_ = 0;           // that were shown if there were no limit
    size_t stride_ = 1;                 // of a body without faces every so-manieth node is shown
    nlohmann::ordered_json told_modes_ = nlohmann::ordered_json::array();
    std::vector<std::string> left_out_;
};

} // namespace zel_command

#endif
