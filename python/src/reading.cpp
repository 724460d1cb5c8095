// Questions to a database. Arrays are made in the turn that fills them, so that their sizes are those of the moment.
#include "arrays.h"
#include "module.h"

#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <algorithm>
#include <array>
#include <optional>
#include <tuple>

namespace zel_python
{

using Doubles = Array<double>;
using Integers = Array<int>;
template <typename T> using MaybeGiven = std::optional<Given<T>>;

static size_t modes_of(const ZELDATA* db)
{
    return size_t(ZEL_ModeCount(db));
}

static size_t nodes_of(const ZELDATA* db)
{
    return size_t(ZEL_NodeCount(db));
}

// None in place of an array that there is not.
template <typename T> static MaybeGiven<T> give(Array<T> array)
{
    return array ? MaybeGiven<T>(array.give()) : MaybeGiven<T>();
}

static nb::str text(const char* characters)
{
    return nb::steal<nb::str>(PyUnicode_DecodeUTF8(characters, Py_ssize_t(std::strlen(characters)), "replace"));
}

// A question that the library answers by one integer about the database.
template <auto query> static int integer(Database& database)
{
    return call(database, [](ZELDATA* db) { return query(db); });
}

// ---- Header, units, nodes --------------------------------------------------------------------------------------------

static nb::typed<nb::list, nb::str> header(Database& database)
{
    const auto texts = call(database, [](ZELDATA* db) {
        std::array<std::array<char, 128>, 7> t = {};
        ZEL_Header(db, t[0].data(), t[1].data(), t[2].data(), t[3].data(), t[4].data(), t[5].data(), t[6].data());
        return t;
    });
    nb::list list;
    for (const auto& characters : texts)
        list.append(text(characters.data()));
    return list;
}

static std::tuple<std::string, std::string, std::string, std::string> units(Database& database)
{
    return call(database, [](ZELDATA* db) {
        char mass[16], length[16], time[16], force[16];
        ZEL_Units(db, mass, length, time, force);
        return std::tuple<std::string, std::string, std::string, std::string>(mass, length, time, force);
    });
}

static Given<int> node_ids(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    Integers ids({nodes_of(db)});
                    for (size_t i = 0; i < nodes_of(db); ++i)
                        ids[i] = db->nodes[i].id;
                    return ids;
                })
        .give();
}

static Given<double> coordinates(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    Doubles xyz({nodes_of(db), 3});
                    ZEL_NodeCoordinateList(db, xyz.data(), nullptr);
                    return xyz;
                })
        .give();
}

static Given<double> masses(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    Doubles masses({nodes_of(db)});
                    for (size_t i = 0; i < nodes_of(db); ++i)
                        masses[i] = db->nodes[i].mass;
                    return masses;
                })
        .give();
}

// None when no node has an inertia; zero for nodes without one.
static MaybeGiven<double> inertias(Database& database)
{
    return give(call(database, [](ZELDATA* db) {
        const size_t nodes = nodes_of(db);
        if (std::none_of(db->nodes, db->nodes + nodes, [](const ZELNODE& node) { return node.inertia; }))
            return Doubles();
        Doubles inertias({nodes, 3, 3});
        for (size_t i = 0; i < nodes; ++i)
            ZEL_NodalInertia(db, int(i), inertias.data() + 9 * i);
        return inertias;
    }));
}

// Mass, centre and the inertia as stored, with products of inertia off its diagonal.
static std::tuple<double, std::array<double, 3>, std::array<double, 9>> stored_mass(const ZELDATA* db)
{
    std::tuple<double, std::array<double, 3>, std::array<double, 9>> stored;
    std::get<0>(stored) = db->total_mass;
    std::copy_n(db->center_of_mass, 3, std::get<1>(stored).begin());
    std::copy_n(db->inertia_tensor, 9, std::get<2>(stored).begin());
    return stored;
}

static std::tuple<double, Given<double>, Given<double>> global_mass(Database& database)
{
    const auto [mass, center, inertia] = call(database, [](ZELDATA* db) { return stored_mass(db); });
    Doubles at({3}), tensor({3, 3});
    std::copy(center.begin(), center.end(), at.data());
    std::copy(inertia.begin(), inertia.end(), tensor.data());
    for (const size_t off_diagonal : {1, 2, 3, 5, 6, 7})
        tensor[off_diagonal] = 0.0 - tensor[off_diagonal];
    return {mass, at.give(), tensor.give()};
}

// Offsets of the faces into the node ids behind them.
static std::pair<Given<int64_t>, Given<int>> faces(Database& database)
{
    auto [offsets, ids] = call(database, [](ZELDATA* db) {
        int count = 0, length = 0;
        ZEL_FaceListSize(db, &count, &length);
        Array<int64_t> starts({size_t(count) + 1});
        Integers list({size_t(length)}), vertices({size_t(length - count)});
        if (count > 0)
            ZEL_ElementFaces(db, list.data());
        const int* word = list.data();
        for (size_t face = 0; face < size_t(count); ++face)
        {
            const int vertex_count = *word++ & ZEL_FACE_VERTICES;
            int64_t at = starts[face];
            for (int i = 0; i < vertex_count; ++i)
                vertices[size_t(at++)] = ZEL_NodeID(db, *word++);
            starts[face + 1] = at;
        }
        return std::pair(std::move(starts), std::move(vertices));
    });
    return {offsets.give(), ids.give()};
}

static Given<int> interface_nodes(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    int count = 0;
                    int* ids = ZEL_InterfaceNodeIDs(db, &count);
                    return ids ? Integers({size_t(count)}, ids) : Integers({0});
                })
        .give();
}

// ---- Modes -----------------------------------------------------------------------------------------------------------

static Given<int> mode_numbers(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    Integers numbers({modes_of(db)});
                    for (size_t i = 0; i < modes_of(db); ++i)
                        numbers[i] = ZEL_ModeNumber(db, int(i));
                    return numbers;
                })
        .give();
}

// A row a mode: eigenvalue, cycles and radians per unit of time, generalized mass and stiffness.
static Given<double> eigenvalues(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    Doubles rows({modes_of(db), 5});
                    for (size_t i = 0; i < modes_of(db); ++i)
                    {
                        double* row = rows.data() + 5 * i;
                        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, int(i)), row, row + 1, row + 2, row + 3, row + 4);
                    }
                    return rows;
                })
        .give();
}

static Given<int> mode_node_ids(Database& database, int kind)
{
    return call(database,
                [kind](ZELDATA* db) {
                    Integers ids({size_t(ZEL_ModeNodeCount(db, kind))});
                    for (size_t i = 0; i < ids.size(); ++i)
                        ids[i] = ZEL_ModeNodeID(db, kind, int(i));
                    return ids;
                })
        .give();
}

// Six values a node; none when there is no such vector. Files of single precision give their values in that alone.
static Doubles read_vector(ZELDATA* db, int mode_number, int kind)
{
    const size_t nodes = size_t(ZEL_ModeNodeCount(db, kind));
    Doubles vector({nodes, 6});
    if (ZEL_Read_Mode_Double(db, mode_number, kind, vector.data()))
        return vector;
    Array<float> single({nodes, 6});
    if (!ZEL_Read_Mode_Single(db, mode_number, kind, single.data()))
        return {};
    std::copy_n(single.data(), 6 * nodes, vector.data());
    return vector;
}

static MaybeGiven<double> mode_vector(Database& database, int mode_number, int kind)
{
    return give(long_call(database, [=](ZELDATA* db) { return read_vector(db, mode_number, kind); }));
}

// All are known to the caller, and at least one of each.
static Given<double> modes_of_nodes(Database& database, int kind, Taken<int> node_ids, Taken<int> mode_numbers)
{
    auto values = long_call(database, [&](ZELDATA* db) {
        Doubles out({mode_numbers.size(), node_ids.size(), 6});
        return ZEL_ModesOfNodes(db, kind, int(node_ids.size()), node_ids.data(), int(mode_numbers.size()),
                                mode_numbers.data(), out.data())
                   ? std::move(out)
                   : Doubles();
    });
    if (!values)
        raise_error("the modes cannot be read at these nodes");
    return values.give();
}

// The node where a mode is largest, and how large.
static std::pair<int, double> largest(Database& database, int mode_number, int measure)
{
    constexpr std::array kQueries = {ZEL_GetMaxModeDisplacement, ZEL_GetMaxModeRotation, ZEL_GetMaxVonMisesStress,
                                     ZEL_GetMaxVonMisesStrain};
    return long_call(database, [=](ZELDATA* db) {
        std::pair<int, double> node(0, 0.0);
        kQueries.at(size_t(measure))(db, mode_number, &node.first, &node.second);
        return node;
    });
}

// ---- Matrices and loads ------------------------------------------------------------------------------------------------

namespace
{
struct MatrixQueries
{
    int (*full)(ZELDATA*, double*, int);
    int (*count)(const ZELDATA*);
    int (*sparse)(ZELDATA*, int*, int*, double*);
};
} // namespace

static constexpr std::array<MatrixQueries, 3> kMatrices = {{
    {ZEL_GenMassFull, ZEL_NumberOfGenMass, ZEL_GenMassSparse},
    {ZEL_GenStiffFull, ZEL_NumberOfGenStiff, ZEL_GenStiffSparse},
    {ZEL_GenDampFull, ZEL_NumberOfGenDamp, ZEL_GenDampSparse},
}};

// Mass (0), stiffness (1) or damping (2); None for damping that there is not.
static MaybeGiven<double> matrix(Database& database, int which)
{
    return give(call(database, [which](ZELDATA* db) {
        Doubles full({modes_of(db), modes_of(db)});
        const bool known = kMatrices.at(size_t(which)).full(db, full.data(), ZEL_ModeCount(db)) || modes_of(db) == 0;
        return known ? std::move(full) : Doubles();
    }));
}

static std::tuple<Given<int>, Given<int>, Given<double>> matrix_entries(Database& database, int which)
{
    auto [rows, columns, values] = call(database, [which](ZELDATA* db) {
        const MatrixQueries& queries = kMatrices.at(size_t(which));
        const size_t count = size_t(queries.count(db));
        std::tuple<Integers, Integers, Doubles> entries(Integers({count}), Integers({count}), Doubles({count}));
        queries.sparse(db, std::get<0>(entries).data(), std::get<1>(entries).data(), std::get<2>(entries).data());
        return entries;
    });
    return {rows.give(), columns.give(), values.give()};
}

static MaybeGiven<double> projected_damping(Database& database, Taken<int> mode_numbers)
{
    return give(call(database, [&](ZELDATA* db) {
        Doubles damping({6 + mode_numbers.size(), 6 + mode_numbers.size()});
        return ZEL_GenDampPrincipalAndSelected(db, damping.data(), mode_numbers.data(), int(mode_numbers.size()))
                   ? std::move(damping)
                   : Doubles();
    }));
}

static MaybeGiven<double> transformation(Database& database)
{
    return give(call(database, [](ZELDATA* db) {
        Doubles matrix({modes_of(db), modes_of(db)});
        return ZEL_Transformation(db, matrix.data()) ? std::move(matrix) : Doubles();
    }));
}

static MaybeGiven<double> preload(Database& database)
{
    return give(call(database, [](ZELDATA* db) {
        int count = 0;
        double* values = ZEL_GetModalPreload(db, &count);
        return Doubles({size_t(count)}, values);
    }));
}

// Labels, a row of values a load case, and which are projected on the principal axes.
static std::tuple<nb::typed<nb::list, nb::str>, Given<double>, Given<bool>> loads(Database& database)
{
    std::vector<std::array<char, 256>> labels;
    auto [values, projected] = call(database, [&labels](ZELDATA* db) {
        const size_t cases = size_t(ZEL_GetModalLoadCaseCount(db));
        Doubles rows({cases, modes_of(db)});
        Array<bool> processed({cases});
        labels.resize(cases);
        for (size_t i = 0; i < cases; ++i)
        {
            ZEL_GetModalLoadCaseLabel(db, int(i), labels[i].data());
            int count = 0;
            const Doubles row({modes_of(db)}, ZEL_GetModalLoad(db, int(i), &count));
            if (row)
                std::copy_n(const_cast<Doubles&>(row).data(), std::min(size_t(count), modes_of(db)),
                            rows.data() + i * modes_of(db));
            processed[i] = ZEL_ModalLoadProcessed(db, int(i)) == 1;
        }
        return std::pair(std::move(rows), std::move(processed));
    });
    nb::list names;
    for (const auto& label : labels)
        names.append(text(label.data()));
    return {names, values.give(), projected.give()};
}

// ---- Invariants --------------------------------------------------------------------------------------------------------

static double invariant1(Database& database)
{
    return long_call(database, [](ZELDATA* db) { return ZEL_Invar1(db); });
}

// One array for all indexes: `one(i)` is a new array of the library with as many elements as a row of `shape` has.
template <typename One> static Doubles stacked(std::vector<size_t> shape, size_t count, One one)
{
    Doubles all(std::move(shape));
    const size_t each = count > 0 ? all.size() / count : 0;
    for (size_t i = 0; i < count; ++i)
    {
        const std::unique_ptr<double, Free> values(one(int(i)));
        if (!values)
            return {};
        std::copy_n(values.get(), each, all.data() + i * each);
    }
    return all;
}

static Doubles compute_invariant(ZELDATA* db, int number)
{
    const size_t modes = modes_of(db);
    const auto whole = [](std::vector<size_t> shape, double* values) { return Doubles(std::move(shape), values); };
    switch (number)
    {
    case 2: return whole({3}, ZEL_Invar2(db));
    case 3: return whole({3, modes}, ZEL_Invar3(db));
    case 4: return whole({3, modes}, ZEL_Invar4(db));
    case 5: return stacked({modes, 3, modes}, modes, [db](int i) { return ZEL_Invar5(db, i); });
    case 6: return whole({modes, modes}, ZEL_Invar6(db));
    case 7: return whole({3, 3}, ZEL_Invar7(db));
    case 8: return stacked({modes, 3, 3}, modes, [db](int i) { return ZEL_Invar8(db, i); });
    case 9:
        return stacked({modes, modes, 3, 3}, modes * modes,
                       [db, modes](int i) { return ZEL_Invar9(db, i / int(modes), i % int(modes)); });
    default: return {};
    }
}

static MaybeGiven<double> invariant(Database& database, int number)
{
    return give(long_call(database, [number](ZELDATA* db) { return compute_invariant(db, number); }));
}

// 0 none, 1 computed, 2 set by the caller, 3 read.
static int invariant_origin(Database& database, int number)
{
    return call(database,
                [number](ZELDATA* db) { return number >= 1 && number <= 9 ? int(db->invar_origin[number]) : 0; });
}

// ---- Nodes by place ----------------------------------------------------------------------------------------------------

// Indexes as the library made them, as node ids.
static Integers as_ids(const ZELDATA* db, int* indexes, int count)
{
    Integers ids({size_t(indexes ? count : 0)}, indexes ? indexes : static_cast<int*>(std::calloc(1, sizeof(int))));
    for (size_t i = 0; i < ids.size(); ++i)
        ids[i] = ZEL_NodeID(db, ids[i]);
    return ids;
}

static Given<int> geometry_nodes(Database& database)
{
    return call(database,
                [](ZELDATA* db) {
                    int count = 0;
                    int* indexes = ZEL_GeometryNodes(db, &count);
                    return as_ids(db, indexes, count);
                })
        .give();
}

using Point = std::tuple<double, double, double>;

static std::array<double, 3> coordinates_of(const Point& point)
{
    return {std::get<0>(point), std::get<1>(point), std::get<2>(point)};
}

static Given<int> closest_nodes(Database& database, const Point& point, int count, bool interface_only)
{
    return call(database,
                [&](ZELDATA* db) {
                    int found = 0;
                    int* indexes = ZEL_ClosestNodes(db, coordinates_of(point).data(), count, interface_only, &found);
                    return as_ids(db, indexes, found);
                })
        .give();
}

static std::pair<Given<int>, Given<double>> nodes_within(Database& database, const Point& point, double radius)
{
    auto [ids, distances] = call(database, [&](ZELDATA* db) {
        int found = 0;
        double* lengths = nullptr;
        int* indexes = ZEL_ClosestNodesInNeighborhood(db, coordinates_of(point).data(), radius, &found, &lengths);
        Doubles owned = lengths ? Doubles({size_t(found)}, lengths) : Doubles({0});
        return std::pair(as_ids(db, indexes, found), std::move(owned));
    });
    return {ids.give(), distances.give()};
}

// ---- Blocks ------------------------------------------------------------------------------------------------------------

// Whether the database has a block, by its number from 1, and its bytes in the file that was read.
static std::pair<bool, int64_t> block(Database& database, int number)
{
    return call(database, [number](ZELDATA* db) {
        return std::pair(ZEL_Exists(db, number - 1) == 1, ZEL_size_of_block(db, number - 1));
    });
}

// What the contents report prints of a block.
static nb::str contents(Database& database, int number)
{
    char* printed = nullptr;
    size_t size = 0;
    std::FILE* stream = open_memstream(&printed, &size);
    if (!stream)
        throw std::bad_alloc();
    long_call(database, [=](ZELDATA* db) {
        ZEL_Contents(db, number, stream);
        return std::fclose(stream);
    });
    const std::unique_ptr<char, Free> owner(printed);
    return nb::steal<nb::str>(PyUnicode_DecodeUTF8(printed, Py_ssize_t(size), "replace"));
}

void add_reading(nb::class_<Database>& database)
{
    database.def("header", &header)
        .def("units", &units)
        .def("version", &integer<ZEL_Version>)
        .def("double_precision", &integer<ZEL_Double_Prec>)
        .def("portable", [](Database& d) { return call(d, [](ZELDATA* db) { return db->zel_file.xdr == 1; }); })
        .def("consistency", [](Database& d) { return call(d, [](ZELDATA* db) { return ZEL_UCF(db); }); })
        .def("size", [](Database& d) { return call(d, [](ZELDATA* db) { return ZEL_BodySize(db); }); })
        .def("seconds", [](Database& d) { return call(d, [](ZELDATA* db) { return ZEL_Time2Second(db, 1.0); }); })
        .def("node_count", &integer<ZEL_NodeCount>)
        .def("node_ids", &node_ids)
        .def("coordinates", &coordinates)
        .def("masses", &masses)
        .def("inertias", &inertias)
        .def("global_mass", &global_mass)
        .def("faces", &faces)
        .def("interface_nodes", &interface_nodes)
        .def("mode_count", &integer<ZEL_ModeCount>)
        .def("mode_numbers", &mode_numbers)
        .def("eigenvalues", &eigenvalues)
        .def("rigid_mode_count", &integer<ZEL_RigidBodyModeCount>)
        .def("mode_node_ids", &mode_node_ids, nb::arg("kind"))
        .def("mode_vector", &mode_vector, nb::arg("mode_number"), nb::arg("kind"))
        .def("modes_of_nodes", &modes_of_nodes, nb::arg("kind"), nb::arg("node_ids"), nb::arg("mode_numbers"))
        .def("largest", &largest, nb::arg("mode_number"), nb::arg("measure"))
        .def("matrix", &matrix, nb::arg("which"))
        .def("matrix_entries", &matrix_entries, nb::arg("which"))
        .def("damping_projected",
             [](Database& d) { return call(d, [](ZELDATA* db) { return db->damping_projected == 1; }); })
        .def("projected_damping", &projected_damping, nb::arg("mode_numbers"))
        .def("transformation", &transformation)
        .def("preload", &preload)
        .def("preload_projected",
             [](Database& d) { return call(d, [](ZELDATA* db) { return db->principal_axes_done == 1; }); })
        .def("loads", &loads)
        .def("invariant1", &invariant1)
        .def("invariant", &invariant, nb::arg("number"))
        .def("invariant_origin", &invariant_origin, nb::arg("number"))
        .def("geometry_nodes", &geometry_nodes)
        .def("closest_nodes", &closest_nodes, nb::arg("point"), nb::arg("count"), nb::arg("interface_only"))
        .def("nodes_within", &nodes_within, nb::arg("point"), nb::arg("radius"))
        .def("block", &block, nb::arg("number"))
        .def("contents", &contents, nb::arg("number"));
}

} // namespace zel_python
