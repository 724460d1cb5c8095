// Entry points for Fortran programs. They unpack their arguments and forward to one operation on the current database; the
// last argument becomes 0 on success and 1 on failure. Each is there under two names: in upper case, with the length of a
// text right behind it, and as gfortran calls it, in lower case with a trailing underscore and the lengths at the end.
#include "database/database.h"
#include "zel.h"

#include <algorithm>
#include <initializer_list>

using namespace zel;

// Defines an entry point without texts: both names take the same arguments.
#define ZEL_FORTRAN_ENTRY(UPPER, lower, ...)                                                                           \
    extern "C" ZEL_API void lower(__VA_ARGS__) __attribute__((alias(#UPPER)));                                         \
    void UPPER(__VA_ARGS__)

// Runs an operation on the current database; a positive result is success.
template <typename Operation> static void on_current(int* ierr, Operation operation)
{
    *ierr = 1;
    if (!current_database)
        fail("No ZELDATA object.  Call ZEL_CREATE first");
    else if (operation(current_database) > 0)
        *ierr = 0;
}

namespace
{

// A terminated copy of a program's text, so that nothing changes the program's own. Null when memory is short.
class Text
{
public:
    enum Padding
    {
        kKept,
        kStripped
    };
    Text(const char* text, int64_t length, Padding padding = kStripped)
        : copy_((length = std::max<int64_t>(length, 0)) + 1)
    {
        if (!copy_.data)
            return;
        std::copy_n(text, length, copy_.data);
        while (padding == kStripped && length > 0 && copy_[length - 1] == ' ')
            copy_[--length] = '\0';
    }
    char* get() const { return copy_.data; }

private:
    Scratch<char> copy_;
};

} // namespace

// Whether all copies could be made; reports when not.
static bool copied(std::initializer_list<const Text*> texts)
{
    for (const Text* text : texts)
        if (!text->get())
            return no_memory(module_word::fortran);
    return true;
}

// A length as gfortran hands it over.
static int length_of(size_t length)
{
    return int(std::min<size_t>(length, INT32_MAX));
}

// ---- Lifetime ---------------------------------------------------------------------------------------------------------

ZEL_FORTRAN_ENTRY(ZEL_CREATE, zel_create_, const int* max_mode_nodes, const int* max_modes, int* ierr)
{
    if (current_database)
        ZEL_Terminate();
    current_database = ZEL_Create(*max_mode_nodes, *max_modes);
    *ierr = current_database ? 0 : 1;
}

void ZEL_CREATE_FROM_ZEL(const char* name, int name_len, int* ierr)
{
    const Text path(name, name_len, Text::kKept);
    current_database = copied({&path}) ? ZEL_CreateFromZEL(path.get()) : nullptr;
    *ierr = current_database ? 0 : 1;
}

extern "C" ZEL_API void zel_create_from_zel_(const char* name, int* ierr, size_t name_len)
{
    ZEL_CREATE_FROM_ZEL(name, length_of(name_len), ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_TERMINATE, zel_terminate_, int* ierr)
{
    ZEL_Terminate();
    *ierr = 0;
}

ZEL_FORTRAN_ENTRY(ZEL_MAKE_ROOM, zel_make_room_, const int* max_mode_nodes, const int* max_modes, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_MakeRoom(db, *max_mode_nodes, *max_modes); });
}

// ---- Header and units -------------------------------------------------------------------------------------------------

void ZEL_SET_HEADER(const char* title, int title_len, const char* file_name, int file_name_len, const char* file_type,
                    int file_type_len, const char* comment1, int comment1_len, const char* comment2, int comment2_len,
                    const char* comment3, int comment3_len, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        const Text heading(title, title_len), name(file_name, file_name_len), type(file_type, file_type_len),
            first(comment1, comment1_len), second(comment2, comment2_len), third(comment3, comment3_len);
        if (!copied({&heading, &name, &type, &first, &second, &third}))
            return 0;
        return ZEL_SetHeader(db, heading.get(), name.get(), type.get(), first.get(), second.get(), third.get());
    });
}

extern "C" ZEL_API void zel_set_header_(const char* title, const char* file_name, const char* file_type,
                                        const char* comment1, const char* comment2, const char* comment3, int* ierr,
                                        size_t title_len, size_t file_name_len, size_t file_type_len,
                                        size_t comment1_len, size_t comment2_len, size_t comment3_len)
{
    ZEL_SET_HEADER(title, length_of(title_len), file_name, length_of(file_name_len), file_type,
                   length_of(file_type_len), comment1, length_of(comment1_len), comment2, length_of(comment2_len),
                   comment3, length_of(comment3_len), ierr);
}

void ZEL_SET_UNITS(const char* mass, int mass_len, const char* length, int length_len, const char* time, int time_len,
                   const char* force, int force_len, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        const Text of_mass(mass, mass_len), of_length(length, length_len), of_time(time, time_len),
            of_force(force, force_len);
        if (!copied({&of_mass, &of_length, &of_time, &of_force}))
            return 0;
        return ZEL_SetUnits(db, of_mass.get(), of_length.get(), of_time.get(), of_force.get());
    });
}

extern "C" ZEL_API void zel_set_units_(const char* mass, const char* length, const char* time, const char* force,
                                       int* ierr, size_t mass_len, size_t length_len, size_t time_len, size_t force_len)
{
    ZEL_SET_UNITS(mass, length_of(mass_len), length, length_of(length_len), time, length_of(time_len), force,
                  length_of(force_len), ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_UNITS_SI_MULTIPLIERS, zel_units_si_multipliers_, const double* mass, const double* length,
                  const double* time, const double* force, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetUnitsByMultiplierOnSI(db, *mass, *length, *time, *force); });
}

// ---- Nodes, masses and faces ------------------------------------------------------------------------------------------

ZEL_FORTRAN_ENTRY(ZEL_SET_NODE_COORDINATES, zel_set_node_coordinates_, const int* node_id, const double* x,
                  const double* y, const double* z, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodeCoordinates(db, *node_id, *x, *y, *z); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODE_COORDINATES_VEC, zel_set_node_coordinates_vec_, const int* node_id, const double xyz[3],
                  int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodeCoordinates(db, *node_id, xyz[0], xyz[1], xyz[2]); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODES, zel_set_nodes_, const int* count, const int* node_ids, const double* coordinates,
                  int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodes(db, *count, node_ids, coordinates); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODAL_MASSES, zel_set_nodal_masses_, const int* count, const int* node_ids,
                  const double* masses, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodalMasses(db, *count, node_ids, masses); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODAL_MASS, zel_set_nodal_mass_, const int* node_id, const double* mass, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodalMass(db, *node_id, *mass); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_GLOBAL_MASS, zel_set_global_mass_, const double* mass, const double center[3],
                  const double inertia[9], int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetGlobalMass(db, *mass, center, inertia); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODAL_INERTIA, zel_set_nodal_inertia_, const int* node_id, const double* xx, const double* yy,
                  const double* zz, const double* xy, const double* xz, const double* yz, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodalInertia(db, *node_id, *xx, *yy, *zz, *xy, *xz, *yz); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODAL_INERTIA_VEC, zel_set_nodal_inertia_vec_, const int* node_id, const double values[6],
                  int* ierr)
{
    ZEL_SET_NODAL_INERTIA(node_id, &values[0], &values[1], &values[2], &values[3], &values[4], &values[5], ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODAL_INERTIA_ENTRY, zel_set_nodal_inertia_entry_, const int* node_id, const int* row,
                  const int* column, const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetNodalInertiaEntry(db, *node_id, *row, *column, *value); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_NODAL_INERTIA_MAT, zel_set_nodal_inertia_mat_, const int* node_id, const double matrix[9],
                  int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        if (matrix[1] != matrix[3] || matrix[2] != matrix[6] || matrix[5] != matrix[7])
            ZEL_Warning("Unsymmetric Inertia Tensor supplied to ZEL_SET_NODAL_INERTIA_MAT");
        return ZEL_SetNodalInertia(db, *node_id, matrix[0], matrix[4], matrix[8], matrix[1], matrix[2], matrix[5]);
    });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_INTERFACE_NODE, zel_set_interface_node_, const int* node_id, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetInterfaceNode(db, *node_id); });
}

static void set_face(std::initializer_list<const int*> node_ids, int* ierr)
{
    constexpr int kMostVertices = 8;
    int ids[kMostVertices];
    std::transform(node_ids.begin(), node_ids.end(), ids, [](const int* id) { return *id; });
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetFaceList(db, int(node_ids.size()), ids); });
}

// Another number of vertices is reported, yet counts as success: programs go on without that face.
ZEL_FORTRAN_ENTRY(ZEL_SET_FACE, zel_set_face_, const int* vertex_count, const int* node_ids, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        if (*vertex_count >= 2 && *vertex_count <= 8)
            return ZEL_SetFaceList(db, *vertex_count, node_ids);
        ZEL_Error("Unable to create a face with %d vertices", *vertex_count);
        return 1;
    });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_2, zel_set_face_2_, const int* a, const int* b, int* ierr)
{
    set_face({a, b}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_3, zel_set_face_3_, const int* a, const int* b, const int* c, int* ierr)
{
    set_face({a, b, c}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_4, zel_set_face_4_, const int* a, const int* b, const int* c, const int* d, int* ierr)
{
    set_face({a, b, c, d}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_5, zel_set_face_5_, const int* a, const int* b, const int* c, const int* d, const int* e,
                  int* ierr)
{
    set_face({a, b, c, d, e}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_6, zel_set_face_6_, const int* a, const int* b, const int* c, const int* d, const int* e,
                  const int* f, int* ierr)
{
    set_face({a, b, c, d, e, f}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_7, zel_set_face_7_, const int* a, const int* b, const int* c, const int* d, const int* e,
                  const int* f, const int* g, int* ierr)
{
    set_face({a, b, c, d, e, f, g}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_FACE_8, zel_set_face_8_, const int* a, const int* b, const int* c, const int* d, const int* e,
                  const int* f, const int* g, const int* h, int* ierr)
{
    set_face({a, b, c, d, e, f, g, h}, ierr);
}

// ---- Modes ------------------------------------------------------------------------------------------------------------

static void set_mode(int kind, const int* mode, const int* node_id, std::initializer_list<const double*> values,
                     int* ierr)
{
    double six[6];
    std::transform(values.begin(), values.end(), six, [](const double* value) { return *value; });
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetModeVec(db, *mode, *node_id, kind, six); });
}

static void set_mode_vector(int kind, const int* mode, const int* node_id, const double values[6], int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetModeVec(db, *mode, *node_id, kind, values); });
}

static void get_mode(int kind, const int* mode, const int* node_id, std::initializer_list<double*> values, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        double six[6];
        const int normal = ZEL_ModeByNode(db, *mode, kind, *node_id, six, 0);
        const int shear = ZEL_ModeByNode(db, *mode, kind, *node_id, six + 3, 1);
        const double* next = six;
        for (double* value : values)
            *value = *next++;
        return normal && shear ? 1 : 0;
    });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODE_SHAPE, zel_set_mode_shape_, const int* mode, const int* node_id, const double* tx,
                  const double* ty, const double* tz, const double* rx, const double* ry, const double* rz, int* ierr)
{
    set_mode(ZEL_MODE_SHAPE, mode, node_id, {tx, ty, tz, rx, ry, rz}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODE_SHAPE_VEC, zel_set_mode_shape_vec_, const int* mode, const int* node_id,
                  const double values[6], int* ierr)
{
    set_mode_vector(ZEL_MODE_SHAPE, mode, node_id, values, ierr);
}

// Programs count the freedoms of a node from 1.
ZEL_FORTRAN_ENTRY(ZEL_SET_MODE_SHAPE_ENTRY, zel_set_mode_shape_entry_, const int* mode, const int* node_id,
                  const int* dof, const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        if (*dof < 1 || *dof > 6)
            return 0;
        return ZEL_SetModeEntry(db, *mode, *node_id, ZEL_MODE_SHAPE, *dof - 1, *value);
    });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODE_ARRAY, zel_set_mode_array_, const int* mode, const int* kind, const int* count,
                  const int* node_ids, const double* values, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetModeArray(db, *mode, *kind, *count, node_ids, values, 6); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODAL_STRESS, zel_set_modal_stress_, const int* mode, const int* node_id, const double* xx,
                  const double* yy, const double* zz, const double* xy, const double* xz, const double* yz, int* ierr)
{
    set_mode(ZEL_MODAL_STRESS, mode, node_id, {xx, yy, zz, xy, xz, yz}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODAL_STRESS_VEC, zel_set_modal_stress_vec_, const int* mode, const int* node_id,
                  const double values[6], int* ierr)
{
    set_mode_vector(ZEL_MODAL_STRESS, mode, node_id, values, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODAL_STRAIN, zel_set_modal_strain_, const int* mode, const int* node_id, const double* xx,
                  const double* yy, const double* zz, const double* xy, const double* xz, const double* yz, int* ierr)
{
    set_mode(ZEL_MODAL_STRAIN, mode, node_id, {xx, yy, zz, xy, xz, yz}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODAL_STRAIN_VEC, zel_set_modal_strain_vec_, const int* mode, const int* node_id,
                  const double values[6], int* ierr)
{
    set_mode_vector(ZEL_MODAL_STRAIN, mode, node_id, values, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_GET_MODAL_STRESS, zel_get_modal_stress_, const int* mode, const int* node_id, double* xx,
                  double* yy, double* zz, double* xy, double* xz, double* yz, int* ierr)
{
    get_mode(ZEL_MODAL_STRESS, mode, node_id, {xx, yy, zz, xy, xz, yz}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_GET_MODAL_STRAIN, zel_get_modal_strain_, const int* mode, const int* node_id, double* xx,
                  double* yy, double* zz, double* xy, double* xz, double* yz, int* ierr)
{
    get_mode(ZEL_MODAL_STRAIN, mode, node_id, {xx, yy, zz, xy, xz, yz}, ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_GET_MODE_COUNT, zel_get_mode_count_, int* count, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        *count = ZEL_ModeCount(db);
        return 1;
    });
}

// t(nsel, M): the columns of the full transformation that belong to the selected modes, those of unknown ones zero.
ZEL_FORTRAN_ENTRY(ZEL_GET_TRANSFORM_TO_SELMOD, zel_get_transform_to_selmod_, double* t, const int* mode_numbers,
                  const int* count, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        const int64_t modes = ZEL_ModeCount(db), selected = *count;
        if (!t)
            return int(fail("NULL argument T passed into ZEL_GET_TRANSFORM_TO_SELMOD\n"));
        if (modes < 1)
            return int(fail("Invalid mode count found at line %d in file %s.\n", __LINE__, module_word::fortran));
        if (selected < 1)
            return 1;
        Scratch<double> full(modes * modes);
        if (!full.data)
            return int(no_memory(module_word::fortran));
        if (!ZEL_Transformation(db, full.data))
            return 0;
        int known = 1;
        for (int64_t j = 0; j < selected; ++j)
        {
            const int mode = ZEL_ModeIndex(db, mode_numbers[j]);
            known = mode < 0 ? 0 : known;
            for (int64_t i = 0; i < modes; ++i)
                t[selected * i + j] = mode < 0 ? 0.0 : full[modes * i + mode];
        }
        return known;
    });
}

// ---- Matrices, loads and invariants -----------------------------------------------------------------------------------

ZEL_FORTRAN_ENTRY(ZEL_SET_GENERALIZED_MASS, zel_set_generalized_mass_, const int* row_mode, const int* column_mode,
                  const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetGeneralizedMass(db, *row_mode, *column_mode, *value); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_GENERALIZED_STIFFNESS, zel_set_generalized_stiffness_, const int* row_mode,
                  const int* column_mode, const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetGeneralizedStiffness(db, *row_mode, *column_mode, *value); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_GENERALIZED_DAMPING, zel_set_generalized_damping_, const int* row_mode,
                  const int* column_mode, const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetGeneralizedDamping(db, *row_mode, *column_mode, *value); });
}

// Programs count load cases from 1.
static int load_case_index(int load_case)
{
    return load_case > INT32_MIN ? load_case - 1 : load_case;
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODAL_LOAD, zel_set_modal_load_, const int* load_case, const int* mode, const double* value,
                  int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetModalLoad(db, load_case_index(*load_case), *mode, *value); });
}

void ZEL_SET_LOADCASE_LABEL(const int* load_case, const char* label, int label_len, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        const Text text(label, label_len);
        return copied({&text}) ? ZEL_SetModalLoadLabel(db, load_case_index(*load_case), text.get()) : 0;
    });
}

extern "C" ZEL_API void zel_set_loadcase_label_(const int* load_case, const char* label, int* ierr, size_t label_len)
{
    ZEL_SET_LOADCASE_LABEL(load_case, label, length_of(label_len), ierr);
}

ZEL_FORTRAN_ENTRY(ZEL_SET_MODAL_PRELOAD, zel_set_modal_preload_, const int* mode, const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetModalPreload(db, *mode, *value); });
}

ZEL_FORTRAN_ENTRY(ZEL_SET_INVAR1, zel_set_invar1_, const double* value, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) { return ZEL_SetInvar1(db, *value); });
}

// Defines the entry point of an invariant that is an array. Programs declare arrays of more than one dimension so that
// they lie in memory as the C interface has them.
#define ZEL_INVARIANT_ENTRY(UPPER, lower, operation)                                                                   \
    ZEL_FORTRAN_ENTRY(UPPER, lower, const double* values, int* ierr)                                                   \
    {                                                                                                                  \
        on_current(ierr, [&](ZELDATA* db) { return operation(db, values); });                                          \
    }

ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR2, zel_set_invar2_, ZEL_SetInvar2)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR3, zel_set_invar3_, ZEL_SetInvar3)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR4, zel_set_invar4_, ZEL_SetInvar4)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR5, zel_set_invar5_, ZEL_SetInvar5)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR6, zel_set_invar6_, ZEL_SetInvar6)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR7, zel_set_invar7_, ZEL_SetInvar7)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR8, zel_set_invar8_, ZEL_SetInvar8)
ZEL_INVARIANT_ENTRY(ZEL_SET_INVAR9, zel_set_invar9_, ZEL_SetInvar9)

// ---- Writing ----------------------------------------------------------------------------------------------------------

// Names are cut after 1023 characters and lose the blanks at their end.
void ZEL_WRITE_ZEL(const char* name, int name_len, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        constexpr int kLongestName = 1023;
        const Text path(name, std::min(name_len, kLongestName));
        return copied({&path}) ? ZEL_write_ZEL(db, path.get()) : 0;
    });
}

extern "C" ZEL_API void zel_write_zel_(const char* name, int* ierr, size_t name_len)
{
    ZEL_WRITE_ZEL(name, length_of(name_len), ierr);
}

void ZEL_WRITE_WITH_OPTIONS(const char* name, int name_len, const char* options, int options_len, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        const Text path(name, name_len), how(options, options_len);
        return copied({&path, &how}) ? ZEL_WriteWithOptions(db, path.get(), how.get()) : 0;
    });
}

extern "C" ZEL_API void zel_write_with_options_(const char* name, const char* options, int* ierr, size_t name_len,
                                                size_t options_len)
{
    ZEL_WRITE_WITH_OPTIONS(name, length_of(name_len), options, length_of(options_len), ierr);
}

// Coupling masses that cannot be had do not keep the body from being written.
void ZEL_WRITE_ANSYS_ZEL(const char* name, int name_len, const int* count1, const int* count2, int* ierr)
{
    on_current(ierr, [&](ZELDATA* db) {
        ZEL_AnsysAddGenMass(db, *count1, *count2);
        const Text path(name, name_len, Text::kKept);
        return copied({&path}) ? ZEL_write_ZEL(db, path.get()) : 0;
    });
}

extern "C" ZEL_API void zel_write_ansys_zel_(const char* name, const int* count1, const int* count2, int* ierr,
                                             size_t name_len)
{
    ZEL_WRITE_ANSYS_ZEL(name, length_of(name_len), count1, count2, ierr);
}

const char* zel_fortran_VersionId(void)
{
    return "zel_fortran " ZEL_VERSION;
}
