// Setters and operations. The package has checked and converted what comes in; arrays of a call have the same length.
#include "arrays.h"
#include "module.h"
#include "reports.h"

#include "fem/fem.h"
#include "tools/zel/write_options.h"

#include <nanobind/stl/array.h>
#include <nanobind/stl/string.h>

#include <algorithm>
#include <array>
#include <string>

namespace zel_python
{

// For failures that the library keeps silent about.
static void require(int done, const char* otherwise)
{
    if (!done)
        raise_error(otherwise);
}

// ---- Header and units --------------------------------------------------------------------------------------------------

static void set_header(Database& database, std::array<std::string, 6> t)
{
    const int done = call(database, [&t](ZELDATA* db) {
        return ZEL_SetHeader(db, t[0].data(), t[1].data(), t[2].data(), t[3].data(), t[4].data(), t[5].data());
    });
    require(done, "the header cannot be set");
}

static void set_units(Database& database, const std::string& mass, const std::string& length, const std::string& time,
                      const std::string& force)
{
    const int done = long_call(database, [&](ZELDATA* db) {
        return ZEL_SetUnits(db, mass.c_str(), length.c_str(), time.c_str(), force.c_str());
    });
    require(done, "the units cannot be changed: a value would become infinite, or one of the units is unknown");
}

// ---- Nodes and faces ---------------------------------------------------------------------------------------------------

static void set_nodes(Database& database, Taken<int> ids, Taken<double> coordinates)
{
    const int done = long_call(
        database, [&](ZELDATA* db) { return ZEL_SetNodes(db, int(ids.size()), ids.data(), coordinates.data()); });
    require(done, "the nodes cannot be set");
}

static void set_nodal_masses(Database& database, Taken<int> ids, Taken<double> masses)
{
    const int done = long_call(
        database, [&](ZELDATA* db) { return ZEL_SetNodalMasses(db, int(ids.size()), ids.data(), masses.data()); });
    require(done, "the nodal masses cannot be set");
}

// Of each node xx, yy, zz, xy, xz, yz.
static void set_nodal_inertias(Database& database, Taken<int> ids, Taken<double> inertias)
{
    const int done = long_call(
        database, [&](ZELDATA* db) { return ZEL_SetNodalInertias(db, int(ids.size()), ids.data(), inertias.data()); });
    require(done, "the nodal inertias cannot be set");
}

// Beside those that are there.
static void add_faces(Database& database, Taken<int> vertex_counts, Taken<int> ids)
{
    const int done = long_call(database, [&](ZELDATA* db) {
        return ZEL_SetFaces(db, int(vertex_counts.size()), vertex_counts.data(), ids.data());
    });
    require(done, "the faces cannot be added");
}

static void set_interface_nodes(Database& database, Taken<int> ids)
{
    const int done = call(database, [&](ZELDATA* db) {
        for (size_t i = 0; i < ids.size(); ++i)
            if (!ZEL_SetInterfaceNode(db, ids.data()[i]))
                return 0;
        return 1;
    });
    require(done, "the interface nodes cannot be set");
}

static void swap_nodes(Database& database, int first, int second)
{
    call(database, [=](ZELDATA* db) {
        ZEL_SwapNodesByID(db, first, second);
        return 1;
    });
}

static void strip_common_faces(Database& database)
{
    long_call(database, [](ZELDATA* db) {
        ZEL_StripCommonFaces(db);
        return 1;
    });
}

static void sketch_faces(Database& database, const nb::bytes& path)
{
    long_call(database, [file = path.c_str()](ZELDATA* db) {
        ZEL_SketchGrid(db, file);
        return 1;
    });
}

static void coarsen_faces(Database& database, const std::string& text)
{
    require(long_call(database, [&](ZELDATA* db) { return ZEL_TrimGeometry(db, text.c_str()); }),
            "the faces cannot be coarsened");
}

// ---- Modes, matrices, loads --------------------------------------------------------------------------------------------

// A body grows as its modes come: by halves, as each step may copy what there is.
static int make_room(ZELDATA* db, int new_modes)
{
    const int modes = ZEL_ModeCount(db) + new_modes, nodes = ZEL_NodeCount(db);
    if (modes <= db->max_modes && nodes <= db->max_mode_nodes)
        return 1;
    constexpr int kFirstModes = 8;
    const int more = db->max_modes + std::max(kFirstModes, db->max_modes / 2);
    return ZEL_MakeRoom(db, nodes, modes > db->max_modes ? std::max(modes, more) : modes);
}

static void set_mode(Database& database, int number, int kind, Taken<int> ids, Taken<double> values)
{
    constexpr int64_t kStride = 6;
    const int done = long_call(database, [&](ZELDATA* db) {
        const bool pre_tensor = number == 0 && kind != ZEL_MODE_SHAPE;
        return make_room(db, !pre_tensor && ZEL_ModeIndex(db, number) < 0 ? 1 : 0) &&
               ZEL_SetModeArray(db, number, kind, int(ids.size()), ids.data(), values.data(), kStride);
    });
    require(done, "the mode cannot be set");
}

static void add_modes(Database& database, Taken<int> numbers)
{
    const int done = call(database, [&](ZELDATA* db) {
        if (!make_room(db, int(numbers.size())))
            return 0;
        for (size_t i = 0; i < numbers.size(); ++i)
            if (ZEL_LookupOrAddMode(db, numbers.data()[i]) < 0)
                return 0;
        return 1;
    });
    require(done, "the modes cannot be added");
}

// Entries of the mass (0), the stiffness (1) or the damping (2), behind those that are there.
static void add_entries(Database& database, int which, Taken<int> rows, Taken<int> columns, Taken<double> values)
{
    constexpr std::array kSetters = {ZEL_SetGeneralizedMass, ZEL_SetGeneralizedStiffness, ZEL_SetGeneralizedDamping};
    const int done = long_call(database, [&](ZELDATA* db) {
        for (size_t i = 0; i < values.size(); ++i)
            if (!kSetters.at(size_t(which))(db, rows.data()[i], columns.data()[i], values.data()[i]))
                return 0;
        return 1;
    });
    require(done, "the matrix cannot be set");
}

static void set_load(Database& database, int load_case, const std::string& label, Taken<int> modes,
                     Taken<double> values)
{
    const int done = call(database, [&](ZELDATA* db) {
        for (size_t i = 0; i < values.size(); ++i)
            if (!ZEL_SetModalLoad(db, load_case, modes.data()[i], values.data()[i]))
                return 0;
        return ZEL_SetModalLoadLabel(db, load_case, label.c_str());
    });
    require(done, "the load cannot be set");
}

static void set_preload(Database& database, Taken<int> modes, Taken<double> values)
{
    const int done = call(database, [&](ZELDATA* db) {
        for (size_t i = 0; i < values.size(); ++i)
            if (!ZEL_SetModalPreload(db, modes.data()[i], values.data()[i]))
                return 0;
        return 1;
    });
    require(done, "the preload cannot be set");
}

static void add_coupling_masses(Database& database, int first, int second)
{
    require(long_call(database, [=](ZELDATA* db) { return ZEL_AnsysAddGenMass(db, first, second); }),
            "a mode of the first group cannot be read");
}

// ---- Mass and invariants -----------------------------------------------------------------------------------------------

// `inertia`: the tensor, whose off-diagonal signs are those of the library's record on return
static void set_global_mass(Database& database, double mass, Taken<double> center, Taken<double> inertia)
{
    std::array<double, 9> stored;
    for (size_t i = 0; i < stored.size(); ++i)
        stored[i] = i % 4 == 0 ? inertia.data()[i] : 0.0 - inertia.data()[i];
    require(call(database, [&](ZELDATA* db) { return ZEL_SetGlobalMass(db, mass, center.data(), stored.data()); }),
            "the global mass cannot be set");
}

static int given_invariant(ZELDATA* db, int number, const double* values)
{
    switch (number)
    {
    case 1: return ZEL_SetInvar1(db, *values);
    case 2: return ZEL_SetInvar2(db, values);
    case 3: return ZEL_SetInvar3(db, values);
    case 4: return ZEL_SetInvar4(db, values);
    case 5: return ZEL_SetInvar5(db, values);
    case 6: return ZEL_SetInvar6(db, values);
    case 7: return ZEL_SetInvar7(db, values);
    case 8: return ZEL_SetInvar8(db, values);
    case 9: return ZEL_SetInvar9(db, values);
    default: return 0;
    }
}

static void set_invariant(Database& database, int number, Taken<double> values)
{
    require(long_call(database, [&](ZELDATA* db) { return given_invariant(db, number, values.data()); }),
            "the invariant cannot be set");
}

static void project_on_principal_axes(Database& database)
{
    require(long_call(database, [](ZELDATA* db) { return ZEL_RigidModes2KORAL(db); }), "the loads cannot be projected");
}

// ---- Files -------------------------------------------------------------------------------------------------------------

// `damping` and `rayleigh`: texts as the command takes them, at most one of them not empty.
static void write(Database& database, const nb::bytes& path, const std::string& options, const std::string& damping,
                  const std::string& rayleigh, nb::handle progress)
{
    const auto outcome = long_call(
        database,
        [&, name = path.c_str()](ZELDATA* db) {
            return outcome_of([&] {
                if (!damping.empty())
                    zel_fem::set_damping(db, zel_fem::parse_damping(damping), options);
                if (!rayleigh.empty())
                    zel_fem::set_damping(db, zel_fem::parse_rayleigh(rayleigh), options);
                return ZEL_WriteWithOptions(db, name, options.c_str());
            });
        },
        progress);
    require(result_of(outcome), "the body cannot be written");
}

void add_making(nb::module_& module, nb::class_<Database>& database)
{
    using nb::arg;
    module.def("problem_of_options", &zel_command::problem_of_write_options, arg("options"),
               "What is wrong with write options, empty: nothing");
    database.def("set_header", &set_header, arg("texts"))
        .def("set_units", &set_units, arg("mass"), arg("length"), arg("time"), arg("force"))
        .def("set_nodes", &set_nodes, arg("ids"), arg("coordinates"))
        .def("set_nodal_masses", &set_nodal_masses, arg("ids"), arg("masses"))
        .def("set_nodal_inertias", &set_nodal_inertias, arg("ids"), arg("inertias"))
        .def("add_faces", &add_faces, arg("vertex_counts"), arg("ids"))
        .def("set_interface_nodes", &set_interface_nodes, arg("ids"))
        .def("swap_nodes", &swap_nodes, arg("first"), arg("second"))
        .def("strip_common_faces", &strip_common_faces)
        .def("sketch_faces", &sketch_faces, arg("path"))
        .def("coarsen_faces", &coarsen_faces, arg("text"))
        .def("set_mode", &set_mode, arg("number"), arg("kind"), arg("ids"), arg("values"))
        .def("add_modes", &add_modes, arg("numbers"))
        .def("add_entries", &add_entries, arg("which"), arg("rows"), arg("columns"), arg("values"))
        .def("set_load", &set_load, arg("load_case"), arg("label"), arg("modes"), arg("values"))
        .def("set_preload", &set_preload, arg("modes"), arg("values"))
        .def("add_coupling_masses", &add_coupling_masses, arg("first"), arg("second"))
        .def("set_global_mass", &set_global_mass, arg("mass"), arg("center"), arg("inertia"))
        .def("set_invariant", &set_invariant, arg("number"), arg("values"))
        .def("project_on_principal_axes", &project_on_principal_axes)
        .def("write", &write, arg("path"), arg("options"), arg("damping"), arg("rayleigh"), arg("progress").none());
}

} // namespace zel_python
