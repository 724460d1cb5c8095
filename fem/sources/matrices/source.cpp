// Two matrices, a mesh, and what joins them: rows that the matrices name themselves, those of a map, or those of all nodes in their
// order.
#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "checks/report.h"
#include "fem/body.h"
#include "fem/model.h"
#include "fem/sources/matrices/matrices.h"
#include "fem/sources/matrices/row_map.h"
#include "fem/sources/meshes/mesh_file.h"
#include "fem/sources/text_file.h"

namespace zel_fem::matrices
{

using zel_checks::format;

constexpr ElementType kPoint = {"point", Shape::point, 0, 0};

namespace
{
class MatrixSource : public Source
{
public:
    explicit MatrixSource(Input input) : input_(std::move(input)) {}
    Model read_model(Progress& progress) override;
    void read_solution(Model& model, const std::vector<Interface>& interfaces, Progress& progress) override;

private:
    RowMap rows_of(const Mesh& mesh, MatrixFile& stiffness, MatrixFile& mass) const;

    Input input_;
    std::optional<RowMap> map_;
};
} // namespace

Model MatrixSource::read_model(Progress& progress)
{
    for (const std::string* path : {&input_.stiffness, &input_.mass})
        if (!path->empty() && !input_exists(*path)) // without names the mesh alone is wanted
            throw InputError({*path, 0}, "no such file");
    meshes::MeshFile file = meshes::read_mesh_file(input_.mesh, progress);
    Model model;
    model.job = input_.stiffness;
    model.program = "matrices";
    model.title = std::move(file.title);
    model.file = std::filesystem::path(input_.stiffness).filename().string();
    model.inputs = file.mesh.files;
    for (const std::string* path : {&input_.stiffness, &input_.mass, &input_.mesh, &input_.dofs})
        for (const char* packed : {"", ".gz"})
            model.inputs.push_back(*path + packed);
    model.notes.push_back("the mesh is read as " + file.format);
    model.notes.insert(model.notes.end(), file.notes.begin(), file.notes.end());
    model.mesh = std::move(file.mesh);
    model.mesh_has_mass = file.has_density;
    model.mass_rule_is_known = false;
    model.node_sets = std::move(file.node_sets);
    if (!input_.dofs.empty())
        map_ = read_row_map(input_.dofs, model.mesh);
    return model;
}

static std::vector<int64_t> in_order(int64_t count)
{
    std::vector<int64_t> rows(static_cast<size_t>(count));
    for (size_t i = 0; i < rows.size(); ++i)
        rows[i] = int64_t(i);
    return rows;
}

// The freedoms of both files, ascending by node and component.
static std::vector<Freedom> all_freedoms(const MatrixFile& stiffness, const MatrixFile& mass)
{
    std::vector<Freedom> all(stiffness.freedoms);
    all.insert(all.end(), mass.freedoms.begin(), mass.freedoms.end());
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

static RowMap labelled_rows(const Mesh& mesh, const std::vector<Freedom>& freedoms, const MatrixFile& stiffness)
{
    RowMap map;
    map.told = "what they say";
    for (const auto& [id, component] : freedoms)
    {
        map.rows.push_back({find_node(mesh, id), component});
        if (map.rows.back().node < 0)
            throw InputError({stiffness.path, 0},
                             "the matrices move node " + std::to_string(id) + ", which the mesh does not have");
    }
    return map;
}

RowMap MatrixSource::rows_of(const Mesh& mesh, MatrixFile& stiffness, MatrixFile& mass) const
{
    const bool labelled = !stiffness.freedoms.empty();
    if (labelled != !mass.freedoms.empty())
        throw InputError({mass.path, 0},
                         "one of the matrices names the nodes of its rows, the other does not: take both in "
                         "one format");
    if (labelled && map_)
        throw InputError({input_.dofs, 0}, "the matrices say themselves what their rows move: leave the map out");
    if (labelled)
        return labelled_rows(mesh, all_freedoms(stiffness, mass), stiffness);
    for (const auto& [one, other] : {std::pair{&stiffness, &mass}, {&mass, &stiffness}})
        if (one->order > other->order && other->counted)
            throw InputError({other->path, 0},
                             format("has %lld rows, and %s has %lld", static_cast<long long>(other->order),
                                    one->path.c_str(), static_cast<long long>(one->order)));
    const int64_t order = std::max(stiffness.order, mass.order);
    if (!map_)
        return default_rows(mesh, order);
    const auto named = int64_t(map_->rows.size());
    if (named != order && map_->three_a_node)
        throw InputError(
            {input_.dofs, 0},
            format("names %lld nodes, and the matrices have %lld rows, not three for each: rows of constrained "
                   "and coupled freedoms are dropped from matrices, and the vector does not say which: the "
                   "model must be free of both",
                   static_cast<long long>(named / 3), static_cast<long long>(order)));
    if (named != order)
        throw InputError({input_.dofs, 0}, format("has %lld rows, and the matrices have %lld",
                                                  static_cast<long long>(named), static_cast<long long>(order)));
    return *map_;
}

// By index of the file.
static std::vector<int64_t> row_numbers(const MatrixFile& file, const std::vector<Freedom>& all)
{
    if (file.freedoms.empty())
        return in_order(file.order);
    std::vector<int64_t> rows;
    for (const Freedom& freedom : file.freedoms)
        rows.push_back(std::lower_bound(all.begin(), all.end(), freedom) - all.begin());
    return rows;
}

static SparseMatrix take_triangle(MatrixFile& file, const std::vector<Freedom>& all, int64_t order)
{
    SparseMatrix upper = upper_triangle(file, row_numbers(file, all), order);
    file.entries = {};
    return upper;
}

// Rows without an entry. Programs give all nodes rotations, and solids nothing that turns.
static std::vector<char> empty_rows(const SparseMatrix& a, const SparseMatrix& b)
{
    std::vector<char> empty(size_t(a.cols()), 1);
    for (const SparseMatrix* upper : {&a, &b})
        for (int64_t column = 0; column < upper->cols(); ++column)
            for (SparseMatrix::InnerIterator entry(*upper, column); entry; ++entry)
                if (entry.value() != 0.0)
                    empty[size_t(entry.row())] = empty[size_t(column)] = 0;
    return empty;
}

static SparseMatrix without(const SparseMatrix& upper, const std::vector<int64_t>& kept)
{
    std::vector<int64_t> position(size_t(upper.cols()), -1);
    for (size_t i = 0; i < kept.size(); ++i)
        position[size_t(kept[i])] = int64_t(i);
    SparseMatrix rest(int64_t(kept.size()), int64_t(kept.size()));
    rest.reserve(upper.nonZeros());
    for (size_t i = 0; i < kept.size(); ++i)
    {
        rest.startVec(int64_t(i));
        for (SparseMatrix::InnerIterator entry(upper, kept[i]); entry; ++entry)
            if (position[size_t(entry.row())] >= 0)
                rest.insertBack(position[size_t(entry.row())], int64_t(i)) = entry.value();
    }
    rest.finalize();
    return rest;
}

static void leave_out_rotations(Matrices& matrices, std::vector<std::string>& notes)
{
    const std::vector<char> empty = empty_rows(matrices.stiffness, matrices.mass);
    std::vector<int64_t> kept;
    std::vector<Row> rows;
    for (size_t i = 0; i < empty.size(); ++i)
        if (!empty[i] || matrices.rows[i].component < 3)
        {
            kept.push_back(int64_t(i));
            rows.push_back(matrices.rows[i]);
        }
    if (rows.size() == empty.size())
        return;
    notes.push_back(format("%zu rotations without stiffness and mass are left out", empty.size() - rows.size()));
    matrices.stiffness = without(matrices.stiffness, kept);
    matrices.mass = without(matrices.mass, kept);
    matrices.rows = std::move(rows);
}

// Every translation has stiffness; and mass, where the format has no count that would show what is missing.
static void check_diagonal(const MatrixFile& file, const SparseMatrix& upper, const Model& model, Role role)
{
    for (int64_t i = 0; i < upper.cols(); ++i)
        if (const auto [node, component] = model.matrices->rows[size_t(i)];
            component < 3 && !(upper.coeff(i, i) > 0.0) && !(role == Role::mass && file.counted))
            throw InputError(
                {file.path, 0},
                format("has no entry on the diagonal for component %d of node %d: the file is cut off, or the "
                       "node has no %s",
                       component + 1, model.mesh.nodes[size_t(node)].id, role == Role::mass ? "mass" : "stiffness"));
}

// What moves belongs to the body, in an element or not.
static void add_points(Model& model)
{
    std::vector<char> used = used_nodes(model.mesh);
    int id = 0;
    for (const Element& element : model.mesh.elements)
        id = std::max(id, element.id);
    for (const auto& [node, component] : model.matrices->rows)
        if (std::exchange(used[size_t(node)], char(1)) == 0)
        {
            Element point;
            point.id = ++id;
            point.type = &kPoint;
            point.nodes[0] = node;
            model.mesh.elements.push_back(point);
        }
}

void MatrixSource::read_solution(Model& model, const std::vector<Interface>&, Progress& progress)
{
    progress.begin("read the matrices");
    MatrixFile stiffness =
        read_matrix_file(input_.stiffness, Role::stiffness, [&](double share) { progress.advance(0.5 * share); });
    MatrixFile mass =
        read_matrix_file(input_.mass, Role::mass, [&](double share) { progress.advance(0.5 + 0.5 * share); });
    RowMap map = rows_of(model.mesh, stiffness, mass);
    model.notes.insert(model.notes.begin(), "the matrices are read as " + stiffness.format +
                                                (mass.format == stiffness.format ? "" : " and " + mass.format) +
                                                ", their rows move " + map.told);
    const std::vector<Freedom> all = all_freedoms(stiffness, mass);
    const auto order = int64_t(map.rows.size());
    model.matrices = {std::move(map.rows), take_triangle(stiffness, all, order), take_triangle(mass, all, order)};
    leave_out_rotations(*model.matrices, model.notes);
    check_diagonal(stiffness, model.matrices->stiffness, model, Role::stiffness);
    check_diagonal(mass, model.matrices->mass, model, Role::mass);
    add_points(model);
}

std::unique_ptr<Source> make_source(Input input)
{
    return std::make_unique<MatrixSource>(std::move(input));
}

} // namespace zel_fem::matrices
