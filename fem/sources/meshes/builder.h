// Gathers nodes, elements and sets by the ids of a file, in the file's order, and makes one mesh of them.
#ifndef FEM_MESH_BUILDER_H
#define FEM_MESH_BUILDER_H

#include <map>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "fem/sources/meshes/mesh_file.h"

namespace zel_fem::meshes
{

class MeshBuilder
{
public:
    explicit MeshBuilder(std::string format) { result_.format = std::move(format); }

    // The index of the file, for the elements that stand in it.
    int add_file(const std::string& path);
    size_t files() const { return result_.mesh.files.size(); }
    void set_title(const std::string& title) { result_.title = title; }

    // InputError for an id that is not positive or comes twice.
    void add_node(int id, const Eigen::Vector3d& at, const Place& place);
    // `nodes` are ids, which may be defined later. Density and thickness are to be set by the caller; until then there
    // is none. The reference is valid until the next element.
    Element& add_element(int id, const ElementType& type, std::span<const int> nodes, int file, int64_t line);
    // Ids of nodes; those that are never defined are left out with a note.
    void add_to_set(const std::string& name, std::span<const int> nodes);
    // All that are defined from first to last.
    void add_range_to_set(const std::string& name, int first, int last) { sets_[name].push_back({first, last}); }

    // In the order in which they were added.
    std::vector<Element>& elements() { return result_.mesh.elements; }

    // Counts what was passed over, for the notes.
    void skip(const std::string& what, int64_t count = 1) { skipped_[what] += count; }
    void note(const std::string& text) { result_.notes.push_back(text); }
    // The elements do not have all mass of the body, for this reason.
    void leave_density(const std::string& reason);

    // Nodes in order, elements and sets by indexes. InputError for elements with undefined nodes and a mesh without
    // nodes.
    MeshFile finish();

private:
    int find_node(int id) const; // -1 if it is not defined
    void sort_nodes();
    void resolve_elements();
    void drop_collapsed();
    void drop_faces();
    void judge_density();
    void resolve_sets();
    void tell_skipped();

    MeshFile result_;
    std::unordered_map<int, int> node_index_;
    std::unordered_set<int> element_ids_;
    std::map<std::string, std::vector<std::pair<int, int>>> sets_; // ids, first and last
    std::map<std::string, int64_t> skipped_;
    bool density_left_ = false;
};

} // namespace zel_fem::meshes

#endif
