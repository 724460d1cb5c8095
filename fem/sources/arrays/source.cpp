// The mesh draws the body; what moves, and how heavy it is, is in the matrices.
#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "fem/model.h"
#include "fem/sources/arrays/arrays.h"
#include "fem/sources/arrays/cell_types.h"
#include "fem/sources/arrays/matrix.h"

namespace zel_fem::arrays
{

using Eigen::Vector3d;

// Of a point: whether cells have it, those of the dimension at hand or of more.
constexpr char kUnused = 0, kUsed = 1, kInMore = 2;

namespace
{
class ArraySource : public Source
{
public:
    explicit ArraySource(Input input) : input_(std::move(input)) {}
    Model read_model(Progress& progress) override;
    void read_solution(Model& model, const std::vector<Interface>& interfaces, Progress& progress) override;

private:
    int64_t point_count() const { return int64_t(input_.points.size() / 3); }
    void add_nodes(Mesh& mesh) const;
    void check_cells() const;
    void add_cells(Model& model, std::vector<char>& used) const;
    void add_block(const Cells& cells, const CellType& type, Mesh& mesh, std::vector<char>& used) const;
    std::vector<Row> rows() const;
    void add_loads(Model& model) const;

    Input input_;
};
} // namespace

[[noreturn]] static void refuse(const std::string& why)
{
    throw InputError({}, why);
}

void ArraySource::add_nodes(Mesh& mesh) const
{
    if (input_.points.empty() || input_.points.size() % 3 != 0)
        refuse("points have three coordinates each, and there is at least one");
    if (point_count() > std::numeric_limits<int>::max() / 8)
        refuse("there are too many points");
    for (size_t i = 0; i < input_.points.size(); ++i)
        if (!std::isfinite(input_.points[i]))
            refuse("point " + std::to_string(i / 3) + " has a coordinate that is no finite number");
    for (int i = 0; i < int(point_count()); ++i)
        mesh.nodes.push_back({i + 1, Vector3d::Map(input_.points.data() + 3 * i)});
}

void ArraySource::check_cells() const
{
    for (const Cells& cells : input_.cells)
    {
        const CellType* type = find_cell_type(cells.type);
        if (cells.nodes_per_cell < 1 || cells.nodes.size() % size_t(cells.nodes_per_cell) != 0 ||
            (type && cells.nodes_per_cell != type->nodes))
            refuse("cells of type " + cells.type + " have " +
                   (type ? std::to_string(type->nodes) : std::string("some")) + " nodes, not " +
                   std::to_string(cells.nodes_per_cell));
        for (int64_t node : cells.nodes)
            if (node < 0 || node >= point_count())
                refuse("a cell of type " + cells.type + " names point " + std::to_string(node) + " of " +
                       std::to_string(point_count()));
    }
}

// Cells whose nodes all belong to cells of more dimensions are their boundary.
void ArraySource::add_block(const Cells& cells, const CellType& type, Mesh& mesh, std::vector<char>& used) const
{
    for (auto at = cells.nodes.begin(); at != cells.nodes.end(); at += type.nodes)
    {
        if (std::all_of(at, at + type.nodes, [&used](int64_t node) { return used[size_t(node)] == kInMore; }))
            continue;
        Element element;
        element.id = int(mesh.elements.size()) + 1;
        element.type = &type.element;
        std::copy_n(at, node_count(type.element.shape), element.nodes.begin());
        mesh.elements.push_back(element);
        for (int i = 0; i < node_count(type.element.shape); ++i)
            if (char& use = used[size_t(element.nodes[size_t(i)])]; use == kUnused)
                use = kUsed;
    }
}

void ArraySource::add_cells(Model& model, std::vector<char>& used) const
{
    std::set<std::string> not_drawn;
    for (int dimension = 3; dimension >= 0; --dimension)
    {
        for (const Cells& cells : input_.cells)
        {
            const CellType* type = find_cell_type(cells.type);
            if (!type && not_drawn.insert(cells.type).second)
                model.notes.push_back("cells of type " + cells.type + " are not drawn");
            if (type && type->dimension == dimension)
                add_block(cells, *type, model.mesh, used);
        }
        std::replace(used.begin(), used.end(), kUsed, kInMore);
    }
}

Model ArraySource::read_model(Progress& progress)
{
    progress.begin("take the mesh");
    Model model;
    model.title = input_.title;
    model.program = input_.program;
    model.mesh_has_mass = false;
    model.mesh.files = {""};
    add_nodes(model.mesh);
    check_cells();
    std::vector<char> used(model.mesh.nodes.size());
    add_cells(model, used);
    for (const auto& [node, component] : rows()) // what moves belongs to the body, drawn or not
        if (node >= 0 && std::exchange(used[size_t(node)], kUsed) == kUnused)
        {
            Element element;
            element.id = int(model.mesh.elements.size()) + 1;
            element.type = &vertex();
            element.nodes[0] = node;
            model.mesh.elements.push_back(element);
        }
    for (const auto& [name, points] : input_.node_sets)
    {
        std::set<int> nodes;
        for (int64_t point : points)
            if (point >= 0 && point < point_count())
                nodes.insert(int(point));
            else
                refuse("the node set " + name + " names point " + std::to_string(point) + " of " +
                       std::to_string(point_count()));
        model.node_sets[name].assign(nodes.begin(), nodes.end());
    }
    return model;
}

std::vector<Row> ArraySource::rows() const
{
    const int64_t order = input_.stiffness.order, points = point_count();
    if (input_.mass.order != order)
        refuse("the stiffness matrix has " + std::to_string(order) + " rows, the mass matrix " +
               std::to_string(input_.mass.order));
    if (input_.dofs.empty() && order != 3 * points && order != 6 * points)
        refuse("the matrices have " + std::to_string(order) + " rows, neither three nor six for each of " +
               std::to_string(points) + " points: say with dofs what each row moves");
    if (!input_.dofs.empty() && int64_t(input_.dofs.size()) != order)
        refuse("dofs has " + std::to_string(input_.dofs.size()) + " rows, the matrices have " + std::to_string(order));
    std::vector<Row> rows;
    std::vector<char> moved(size_t(points) * 6);
    for (int64_t i = 0; i < order; ++i)
    {
        const int64_t each = order / points;
        const std::array<int64_t, 2> dof =
            input_.dofs.empty() ? std::array<int64_t, 2>{i / each, i % each} : input_.dofs[size_t(i)];
        if (dof[0] < -1 || dof[0] >= points || dof[1] < 0 || dof[1] > 5)
            refuse("row " + std::to_string(i) + " of dofs names component " + std::to_string(dof[1]) + " of point " +
                   std::to_string(dof[0]) + ": components are 0 to 5, points 0 to " + std::to_string(points - 1));
        if (dof[0] >= 0 && std::exchange(moved[size_t(6 * dof[0] + dof[1])], 1))
            refuse("two rows move component " + std::to_string(dof[1]) + " of point " + std::to_string(dof[0]));
        rows.push_back({int(dof[0]), int(dof[1])});
    }
    return rows;
}

void ArraySource::add_loads(Model& model) const
{
    for (const auto& [label, forces] : input_.loads)
    {
        if (int64_t(forces.size()) != input_.stiffness.order)
            refuse("load " + label + " has " + std::to_string(forces.size()) + " rows, the matrices have " +
                   std::to_string(input_.stiffness.order));
        if (!std::all_of(forces.begin(), forces.end(), [](double force) { return std::isfinite(force); }))
            refuse("load " + label + " has a force that is no finite number");
        LoadCase load;
        load.label = label;
        load.rows = Eigen::VectorXd::Map(forces.data(), Eigen::Index(forces.size()));
        model.load_cases.push_back(std::move(load));
    }
}

void ArraySource::read_solution(Model& model, const std::vector<Interface>&, Progress& progress)
{
    progress.begin("take the matrices");
    model.matrices = {rows(), upper_triangle(input_.stiffness, "the stiffness matrix"),
                      upper_triangle(input_.mass, "the mass matrix")};
    add_loads(model);
    input_ = {};
}

std::unique_ptr<Source> make_source(Input input)
{
    return std::make_unique<ArraySource>(std::move(input));
}

} // namespace zel_fem::arrays
