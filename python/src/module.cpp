// zel._zel: the C interface in terms of Python, without any comfort. The package's Python code is what users see.
#include "module.h"

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <tuple>

using namespace zel_python;

static Database* create()
{
    ZELDATA* db = ZEL_Create(0, 0);
    if (!db)
        throw std::bad_alloc();
    return new Database(db);
}

// A database of its own for every caller: ZEL_CreateFromZEL would give the second one that of the first.
static Database* open_file(const nb::bytes& path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
    {
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
        throw nb::python_error();
    }
    std::unique_ptr<Database> database(create());
    const int done = long_call(*database, [&](ZELDATA* db) { return ZEL_ReadZEL(db, file, path.c_str()); });
    if (!done)
        raise_error(std::string(path.c_str()) + ": not a ZEL file");
    return database.release();
}

using Rows = std::vector<std::tuple<std::string, double>>;

static Rows rows_of(const ZELUNIT* table)
{
    Rows rows;
    for (; *table->label; ++table)
        rows.emplace_back(table->label, table->factor);
    return rows;
}

// Mass, length, time, force.
static std::vector<Rows> unit_tables()
{
    return {rows_of(ZEL_MassUnits), rows_of(ZEL_LengthUnits), rows_of(ZEL_TimeUnits), rows_of(ZEL_ForceUnits)};
}

// The canonical label of a spelling, empty for none.
static std::string unit_label(const std::string& spelling)
{
    std::array<char, 16> label = {};
    if (spelling.empty() || spelling.size() >= label.size())
        return "";
    spelling.copy(label.data(), label.size() - 1);
    return ZEL_ConvertUnitsLabel(label.data()) ? label.data() : "";
}

NB_MODULE(_zel, module)
{
    module.attr("version") = ZEL_VERSION;
    nb::class_<Database> database(module, "Database", nb::is_weak_referenceable());
    database.def("close", &Database::close).def_prop_ro("closed", &Database::closed);
    add_reading(database);
    add_checking(database);
    add_comparing(module);
    add_reducing(module);
    add_making(module, database);
    module.def("create", &create, "An empty database");
    module.def("open", &open_file, nb::arg("path"), "The database of a file");
    module.def("unit_tables", &unit_tables, "Labels and SI factors of mass, length, time and force");
    module.def("unit_label", &unit_label, nb::arg("spelling"), "The canonical label of a spelling, empty for none");
}
