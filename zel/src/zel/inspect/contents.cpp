// The contents report: one block of a database in readable form. A report shows what the database holds; mode vectors and
// invariants that are still in the file are fetched from there, nothing is computed.
#include "database/database.h"
#include "format/format.h"
#include "mechanics/mechanics.h"
#include "zel.h"

#include <algorithm>

namespace zel
{

namespace
{

// One block number on its way to the stream.
struct Report
{
    ZELDATA* db;
    int block;
    FILE* to;

    bool exists() const { return ZEL_Exists(db, block - 1) != 0; }
};

} // namespace

static void print_rule(FILE* to, char symbol, int width)
{
    for (int i = 0; i < width; ++i)
        std::fputc(symbol, to);
    std::fputc('\n', to);
}

static void print_banner(const Block& row, FILE* to)
{
    constexpr int kWidth = 74;
    constexpr char kBox[] = "|                                                                        |\n";
    std::fputs("\n\n", to);
    print_rule(to, '-', kWidth);
    std::fputs(kBox, to);
    std::fprintf(to, "|    Block %3d:      %-30s                      |\n", row.number, row.heading);
    std::fputs(kBox, to);
    print_rule(to, '-', kWidth);
    std::fputs("\n\n", to);
}

static const char* yes_or_no(bool yes)
{
    return yes ? "Yes" : "No";
}

static void print_row_of_three(const double v[3], FILE* to)
{
    std::fprintf(to, "   %18.10le%18.10le%18.10le \n", v[0], v[1], v[2]);
}

static void print_matrix_of_three(const double m[9], FILE* to)
{
    for (int row = 0; row < 3; ++row)
        print_row_of_three(m + 3 * row, to);
}

// ---- Blocks 1 to 3: version, header, summary --------------------------------------------------------------------------

static void print_version(const Report& report)
{
    const int code = report.db->version;
    std::fprintf(report.to, "ZEL version:%4.1f\n", format_version(code) * 0.1);
    std::fprintf(report.to, "Precision: %s   \n", code_is_single(code) ? "Single" : "Double");
    std::fprintf(report.to, "Platform independent (XDR encoded): %s \n\n", yes_or_no(code_is_xdr(code)));
}

static void print_header(const Report& report)
{
    const ZELDATA& db = *report.db;
    std::fprintf(report.to, "Title: %s\n", db.title);
    std::fprintf(report.to, "Date: %s\n", db.date);
    std::fprintf(report.to, "Input file name: %s\n", db.input_file_name);
    std::fprintf(report.to, "Input file type: %s\n", db.input_file_type);
    std::fputs("Comments:\n", report.to);
    for (const char* comment : {db.comment1, db.comment2, db.comment3})
        std::fprintf(report.to, "  %s\n", comment);
}

static void print_summary(const Report& report)
{
    std::fputs("Existence:\n", report.to);
    for (const Block& row : kBlocks)
        std::fprintf(report.to, "%30s %s\n", row.label, yes_or_no(ZEL_Exists(report.db, row.number - 1)));
}

// ---- Nodes, masses, faces ---------------------------------------------------------------------------------------------

static void print_nodes(const Report& report)
{
    for (int i = 0; i < report.db->node_count; ++i)
    {
        const ZELNODE& node = report.db->nodes[i];
        std::fprintf(report.to, "%4d%20.10le%20.10le%20.10le\n", node.id, node.x, node.y, node.z);
    }
}

static void print_topology(const Report& report)
{
    std::fputs("Obsolete: Reported as part of face list, block 14\n", report.to);
}

// Printed as stored: asking ZEL_TotalMassInertia would recompute them.
static void print_body(const Report& report)
{
    if (!report.exists())
    {
        std::fputs("No global body property information\n", report.to);
        return;
    }
    const ZELDATA& db = *report.db;
    const double *c = db.center_of_mass, *t = db.inertia_tensor;
    std::fprintf(report.to, "Mass: %lf\n", db.total_mass);
    std::fprintf(report.to, "Center of Mass: %lf %lf %lf\n", c[0], c[1], c[2]);
    std::fprintf(report.to, "Inertia Tensor: %lf %lf %lf\n", t[0], t[1], t[2]);
    for (int row = 1; row < 3; ++row)
        std::fprintf(report.to, "                %lf %lf %lf\n", t[3 * row], t[3 * row + 1], t[3 * row + 2]);
}

static void print_masses(const Report& report)
{
    for (int i = 0; report.exists() && i < report.db->node_count; ++i)
        std::fprintf(report.to, "%4d\t%le\n", report.db->nodes[i].id, report.db->nodes[i].mass);
}

static void print_inertias(const Report& report)
{
    int printed = 0;
    for (int i = 0; i < report.db->node_count; ++i)
    {
        double t[9];
        if (!ZEL_NodalInertia(report.db, i, t))
            continue;
        ++printed;
        std::fprintf(report.to, "Inertia Tensor of Node %5d: %lf %lf %lf\n", report.db->nodes[i].id, t[0], t[1], t[2]);
        for (int row = 1; row < 3; ++row)
            std::fprintf(report.to, "                              %lf %lf %lf\n", t[3 * row], t[3 * row + 1],
                         t[3 * row + 2]);
    }
    if (printed == 0)
        std::fputs("\tNo Nodal Inertia information.\n", report.to);
}

static void print_units(const Report& report)
{
    const ZELUNITS& units = report.db->units;
    const bool labelled = units.mass[0] || units.length[0] || units.time[0] || units.force[0];
    if (!report.exists() || !labelled)
        std::fputs("ZEL Default Units:\n", report.to);
    char mass[16], length[16], time[16], force[16];
    ZEL_Units(report.db, mass, length, time, force);
    std::fprintf(report.to, "Mass Units    %s\n", mass);
    std::fprintf(report.to, "Length Units  %s\n", length);
    std::fprintf(report.to, "Time Units    %s\n", time);
    std::fprintf(report.to, "Force Units   %s\n", force);
}

static void print_faces(const Report& report)
{
    const ZELDATA& db = *report.db;
    std::fprintf(report.to, "number of faces %d\n\n", db.face_count);
    for (int64_t at = 0; db.face_list && at < db.face_list_length;)
    {
        const int64_t vertices = db.face_list[at++] & ZEL_FACE_VERTICES;
        const int64_t end = std::min<int64_t>(at + vertices, db.face_list_length);
        for (; at < end; ++at)
            std::fprintf(report.to, "  %5d", ZEL_NodeID(&db, db.face_list[at]));
        std::fputc('\n', report.to);
    }
}

static void print_interface_nodes(const Report& report)
{
    const ZELDATA& db = *report.db;
    for (int i = 0; i < db.interface_count; ++i)
        std::fprintf(report.to, "%4d %4d \n", i + 1, ZEL_NodeID(&db, db.interface_nodes[i]));
}

// ---- Eigenvalues and mode vectors -------------------------------------------------------------------------------------

static void print_eigenvalues(const Report& report)
{
    const ZELDATA& db = *report.db;
    if (!db.eigenvalues || db.eigenvalue_count < 1)
    {
        std::fputs("No eigenvalue information\n", report.to);
        return;
    }
    constexpr char kHeading[] =
        "  mode   eigenvalue          Hertz            radians           Gen. Mass.       Gen. Stiff.   \n";
    std::fputs(kHeading, report.to);
    print_rule(report.to, '=', int(sizeof kHeading) - 2);
    for (int i = 0; i < db.eigenvalue_count; ++i)
    {
        const double* v = db.eigenvalues[i].value;
        std::fprintf(report.to, "%5d %17.10le %17.10le %17.10le %17.10le %17.10le\n", int(v[0]), v[1], v[2], v[3], v[4],
                     v[5]);
    }
}

namespace
{

// What the reports of the three kinds of mode vectors say.
struct ModeReport
{
    const char *counted, *noun, *heading, *absent, *no_pre_tensors;
};

} // namespace

static constexpr ModeReport kModeReports[] = {
    {"Mode Shapes", "MODE",
     " ID             dx               dy               dz               ax               ay               az\n", "",
     nullptr},
    {"Stress Shapes", "STRESS SHAPE",
     "   ID        sigma_x          sigma_y          sigma_z           tau_xy           tau_xz           tau_yz\n",
     "\tNo Modal Stress Information\n\n", "\tNo Nodal Pre-Stress Information\n\n"},
    {"Strain Shapes", "STRAIN SHAPE",
     "   ID      epsilon_x        epsilon_y        epsilon_z         gamma_xy         gamma_xz         gamma_yz\n",
     "\tNo Modal Strain Information\n\n", "\tNo Nodal Pre-Strain Information\n\n"},
};
static_assert(std::size(kModeReports) == ZEL_MODE_KINDS);
static constexpr int kNodeRowWidth = 5 + 2 * (1 + 3 * 17); // of the lines below the heading

static void print_shape_row(int node_id, const double v[6], FILE* to)
{
    std::fprintf(to, "%5d| % 16.9e % 16.9e % 16.9e| % 16.9e % 16.9e % 16.9e\n", node_id, v[0], v[1], v[2], v[3], v[4],
                 v[5]);
}

static void print_tensor_row(int node_id, const double v[6], FILE* to)
{
    std::fprintf(to, "%5d| %16.9e %16.9e %16.9e| %16.9e %16.9e %16.9e\n", node_id, v[0], v[1], v[2], v[3], v[4], v[5]);
}

static void print_modes(const Report& report)
{
    ZELDATA* db = report.db;
    const int kind = kind_of_block(report.block).kind;
    const ModeReport& text = kModeReports[kind];
    const bool present = ZEL_ModeExist(db, kind) && db->mode_count > 0;
    if (!present && kind != ZEL_MODE_SHAPE)
    {
        std::fputs(text.absent, report.to);
        return;
    }
    const int modes = present ? db->mode_count : 0, nodes = db->mode_node_count[kind];
    std::fprintf(report.to, "Number of %s %d\n", text.counted, modes);
    Scratch<double> vector(6 * int64_t(nodes));
    if (!vector.data)
    {
        no_memory(module_word::contents);
        return;
    }
    for (int mode = 0; mode < modes; ++mode)
    {
        const int mode_number = ZEL_ModeNumber(db, mode);
        std::fprintf(report.to, "\n%s NUMBER %d=================================\n\n", text.noun, mode_number);
        std::fputs(text.heading, report.to);
        print_rule(report.to, '~', kNodeRowWidth);
        if (!read_mode_slice(db, kind, mode, 0, nodes, vector.data))
            return;
        const auto print_row = kind == ZEL_MODE_SHAPE ? print_shape_row : print_tensor_row;
        for (int node = 0; node < nodes; ++node)
            print_row(db->mode_nodes[kind][node]->id, &vector[6 * int64_t(node)], report.to);
    }
}

static void print_statistics(const Report& report)
{
    const ZELDATA& db = *report.db;
    if (!db.modal_statistics || db.modal_statistics_count < 1)
    {
        std::fputs("\tNo Modal Statistic Information\n\n", report.to);
        return;
    }
    constexpr const char* kNames[] = {"Max. Trans. Magnitude:    ", "Max. Small Rot. Magnitude:",
                                      "Max. Von Mises Stress:    ", "Max. Von Mises Strain:    "};
    std::fprintf(report.to, "Number of Modes %d\n", db.modal_statistics_count);
    for (int mode = 0; mode < db.modal_statistics_count; ++mode)
        for (int i = 0; i < 4; ++i)
        {
            const ZELSTATPAIR& pair = db.modal_statistics[mode].pair[i];
            std::fprintf(report.to, "%s  Node ID = %d  Magnitude = %12.6e\n", kNames[i], pair.node_id, pair.value);
        }
}

// Pre-stress or pre-strain, a record a node of the kind's list.
static void print_pre_tensors(const Report& report)
{
    const ZELDATA& db = *report.db;
    const int kind = kind_of_block(report.block).kind;
    const PreTensors tensors = pre_tensors_of(&db, kind);
    if (!report.exists() || !tensors.records)
        std::fputs(kModeReports[kind].no_pre_tensors, report.to);
    for (int i = 0; report.exists() && i < std::min(tensors.count, db.mode_node_count[kind]); ++i)
        print_tensor_row(ZEL_ModeNodeID(&db, kind, i), tensors.at(i), report.to);
}

// ---- Matrices and loads -----------------------------------------------------------------------------------------------

static void print_entries(const ZELMATRIX& matrix, const char* absent, FILE* to)
{
    if (!matrix.entries || matrix.count < 1)
        std::fputs(absent, to);
    for (int i = 0; i < matrix.count; ++i)
    {
        const ZELENTRY& entry = matrix.entries[i];
        std::fprintf(to, "%5d   %5d   %20.10le\n", entry.row + 1, entry.column + 1, entry.value);
    }
}

static void print_stiffness(const Report& report)
{
    print_entries(report.db->stiffness, "No generalized stiffness information.", report.to);
}

static void print_mass(const Report& report)
{
    print_entries(report.db->mass, "No generalized mass information in ZEL\n", report.to);
}

static void print_damping(const Report& report)
{
    constexpr char kProjected[] = "Note:\tThe generalized damping matrix has been projected onto principal\n"
                                  "\tcoordinates.  The first 6 rows and columns correspond KORAL\n"
                                  "\tprincipal rigid body degrees of freedom.  The remaining rows\n"
                                  "\tand columns correspond to flexible modes.\n\n";
    constexpr char kNotProjected[] = "Note:\tThe generalized damping matrix has not been projected onto\n"
                                     "\tprincipal coordinates.  Rows and columns correspond to rigid body\n"
                                     "\tand flexible modes.\n\n";
    if (ZEL_GenDampExist(report.db))
        std::fputs(report.db->damping_projected ? kProjected : kNotProjected, report.to);
    print_entries(report.db->damping, "No generalized damping information in ZEL.\n", report.to);
}

static void print_transformation(const Report& report)
{
    const double* entry = report.db->transformation;
    const int order = report.db->transformation_order;
    if (!entry || order < 1)
    {
        std::fputs("\tNo Mode Shape Transformation, modes used as is.\n\n", report.to);
        return;
    }
    std::fprintf(report.to, "Number of modes: %d\n\n", order);
    for (int row = 0; row < order; ++row)
        for (int column = 0; column < order; ++column)
            std::fprintf(report.to, "%10.5le%c", *entry++, column + 1 < order ? ' ' : '\n');
}

static void print_by_mode(const ZELDATA* db, const double* values, const char* format, FILE* to)
{
    for (int mode = 0; mode < std::min(db->mode_count, db->load_capacity); ++mode)
        std::fprintf(to, format, ZEL_ModeNumber(db, mode), values[mode]);
}

static void print_preload(const Report& report)
{
    if (report.db->modal_preload)
        print_by_mode(report.db, report.db->modal_preload, "\n%d %lf\n", report.to);
    else
        std::fputs("\tNo Preload information.\n\n", report.to);
}

static void print_loads(const Report& report)
{
    const ZELDATA& db = *report.db;
    if (!db.load_cases || db.load_case_count < 1)
        std::fputs("\tNo Modal Load information.\n\n", report.to);
    for (int i = 0; i < db.load_case_count; ++i)
    {
        const ZELLOADCASE& load = db.load_cases[i];
        if (!load.values || db.mode_count < 1)
        {
            std::fprintf(report.to, "\tNo Modal load information for load case %s.\n\n", load.label);
            continue;
        }
        std::fprintf(report.to, "\nCase: %s     (%s projected on principal axes)\n", load.label,
                     load.processed ? "already" : "not yet");
        print_by_mode(&db, load.values, "%d %lf\n", report.to);
    }
}

// ---- Invariants -------------------------------------------------------------------------------------------------------

namespace
{

// An array that an accessor returned, freed with its scope; null unless the database or its file has the block.
struct InvariantCopy
{
    double* values;
    template <typename... Index>
    InvariantCopy(const Report& report, double* (*accessor)(ZELDATA*, Index...), Index... index)
        : values(report.exists() ? accessor(report.db, index...) : nullptr)
    {}
    ~InvariantCopy() { std::free(values); }
    InvariantCopy(const InvariantCopy&) = delete;
    InvariantCopy& operator=(const InvariantCopy&) = delete;
};

} // namespace

// An array of three component rows, one mode a line.
static void print_columns(const double* rows, int modes, FILE* to)
{
    for (int64_t mode = 0; mode < modes; ++mode)
    {
        const double column[3] = {rows[mode], rows[modes + mode], rows[2 * int64_t(modes) + mode]};
        print_row_of_three(column, to);
    }
}

// Modes whose pairs are listed of invariants 5 and 9: all, unless very many pairs have no values.
static int listed_modes(const Report& report, int number)
{
    constexpr int64_t kMostWithoutValues = 10'000;
    const int64_t modes = report.db->mode_count;
    int64_t with_values = 0;
    if (modes > 0 && report.exists())
        with_values = fill_invariant(report.db, number) ? table_modes(report.db, number) : -1;
    if (with_values < 0) // it cannot be read, which was said
        return 0;
    return int(modes * modes - with_values * with_values > kMostWithoutValues ? with_values : modes);
}

static void print_unlisted(const Report& report, int number, int listed)
{
    if (listed == report.db->mode_count)
        return;
    const char* text = report.exists() && invariant_filled(report.db, number)
                           ? "\tInvariant %d is zero for all other modes.\n\n"
                           : "\tNo Invariant %d information for any mode.\n\n";
    std::fprintf(report.to, text, number);
}

static void print_invariant_1(const Report& report)
{
    std::fprintf(report.to, "\t%f \n\n", report.exists() ? ZEL_Invar1(report.db) : 0.0);
}

static void print_invariant_2(const Report& report)
{
    const InvariantCopy moment(report, ZEL_Invar2);
    if (const double* v = moment.values)
        std::fprintf(report.to, "\t%f\t%f\t%f \n\n", v[0], v[1], v[2]);
    else
        std::fputs("\tNo Invariant 2 information\n\n", report.to);
}

static void print_vectors(const InvariantCopy& columns, const char* absent, const Report& report)
{
    if (columns.values)
        print_columns(columns.values, report.db->mode_count, report.to);
    else
        std::fputs(absent, report.to);
}

static void print_invariant_3(const Report& report)
{
    print_vectors({report, ZEL_Invar3}, "\tNo Invariant 3 information\n\n", report);
}

static void print_invariant_4(const Report& report)
{
    print_vectors({report, ZEL_Invar4}, "\tNo Invariant 4 information\n\n", report);
}

static void print_invariant_5(const Report& report)
{
    const int listed = listed_modes(report, 5);
    for (int mode = 0; mode < listed; ++mode)
    {
        const int number = ZEL_ModeNumber(report.db, mode);
        const InvariantCopy columns(report, ZEL_Invar5, mode);
        std::fprintf(report.to, columns.values ? "\nMode: %d \n" : "\tNo Invariant 5 information for mode %d.\n\n",
                     number);
        if (columns.values)
            print_columns(columns.values, report.db->mode_count, report.to);
    }
    print_unlisted(report, 5, listed);
}

static void print_invariant_7(const Report& report)
{
    const InvariantCopy tensor(report, ZEL_Invar7);
    if (tensor.values)
        print_matrix_of_three(tensor.values, report.to);
    else
        std::fputs("\tNo Invariant 7 information.\n\n", report.to);
}

static void print_invariant_8(const Report& report)
{
    for (int mode = 0; mode < report.db->mode_count; ++mode)
    {
        const int number = ZEL_ModeNumber(report.db, mode);
        const InvariantCopy matrix(report, ZEL_Invar8, mode);
        std::fprintf(report.to, matrix.values ? "\nMode: %d\n" : "\tNo Invariant 8 information for mode %d.\n\n",
                     number);
        if (matrix.values)
            print_matrix_of_three(matrix.values, report.to);
    }
}

static void print_invariant_9(const Report& report)
{
    const int listed = listed_modes(report, 9);
    for (int i = 0; i < listed; ++i)
        for (int j = 0; j < listed; ++j)
        {
            const InvariantCopy matrix(report, ZEL_Invar9, i, j);
            std::fprintf(report.to,
                         matrix.values ? "\nModes: %d %d\n"
                                       : "\tNo Invariant 9 information for mode pair (%d, %d).\n\n",
                         ZEL_ModeNumber(report.db, i), ZEL_ModeNumber(report.db, j));
            if (matrix.values)
                print_matrix_of_three(matrix.values, report.to);
        }
    print_unlisted(report, 9, listed);
}

// ---- The report of a block --------------------------------------------------------------------------------------------

static constexpr struct
{
    int block;
    void (*print)(const Report& report);
} kReports[] = {
    {ZEL_BLOCK_VERSION, print_version},
    {ZEL_BLOCK_HEADER, print_header},
    {ZEL_BLOCK_SUMMARY, print_summary},
    {ZEL_BLOCK_NODES, print_nodes},
    {ZEL_BLOCK_TOPOLOGY, print_topology},
    {ZEL_BLOCK_BODY, print_body},
    {ZEL_BLOCK_EIGENVALUES, print_eigenvalues},
    {ZEL_BLOCK_MODES, print_modes},
    {ZEL_BLOCK_MASSES, print_masses},
    {ZEL_BLOCK_INERTIAS, print_inertias},
    {ZEL_BLOCK_UNITS, print_units},
    {ZEL_BLOCK_STIFFNESS, print_stiffness},
    {ZEL_BLOCK_MASS, print_mass},
    {ZEL_BLOCK_FACES, print_faces},
    {ZEL_BLOCK_DAMPING, print_damping},
    {ZEL_BLOCK_TRANSFORMATION, print_transformation},
    {ZEL_BLOCK_INTERFACE, print_interface_nodes},
    {ZEL_BLOCK_STRESS, print_modes},
    {ZEL_BLOCK_INVAR1, print_invariant_1},
    {ZEL_BLOCK_INVAR2, print_invariant_2},
    {ZEL_BLOCK_INVAR3, print_invariant_3},
    {ZEL_BLOCK_INVAR4, print_invariant_4},
    {ZEL_BLOCK_INVAR5, print_invariant_5},
    {ZEL_BLOCK_INVAR7, print_invariant_7},
    {ZEL_BLOCK_INVAR8, print_invariant_8},
    {ZEL_BLOCK_INVAR9, print_invariant_9},
    {ZEL_BLOCK_PRELOAD, print_preload},
    {ZEL_BLOCK_LOADS, print_loads},
    {ZEL_BLOCK_STRAIN, print_modes},
    {ZEL_BLOCK_STATISTICS, print_statistics},
    {ZEL_BLOCK_PRE_STRESS, print_pre_tensors},
    {ZEL_BLOCK_PRE_STRAIN, print_pre_tensors},
};

static_assert(rows_are_complete(kReports, [](const Block&) { return true; }), "each block has a report");

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

void ZEL_Contents(ZELDATA* db, int block, FILE* stream)
{
    if (!CheckZEL(db) || block < 1 || block > ZEL_BLOCKS || !stream)
        return;
    print_banner(block_row(block), stream);
    row_of(kReports, block).print({db, block, stream});
}
