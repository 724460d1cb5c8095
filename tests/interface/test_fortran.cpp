// The Fortran entry points: programs with and without the module build the body that the C interface builds, and what the
// entry points themselves promise.
#include "database/record.h"
#include "fixtures.h"
#include "sample_file.h"

extern "C" void fixed_eigen_(double* lambda, int* ierr);

namespace
{

class Fortran : public FileTest
{
protected:
    // What an entry point makes of its last argument; what it prints is in `errors`.
    template <typename... F, typename... A> int call(void (*entry)(F...), A... arguments)
    {
        int ierr = -1;
        errors = errors_of([&] { entry(arguments..., &ierr); });
        return ierr;
    }
    void create(int nodes, int modes) { ASSERT_EQ(call(ZEL_CREATE, &nodes, &modes), 0); }
    static ZELDATA* current() { return zel::current_database; }
};

ZELDATA* body_in_c()
{
    double latest = 0;
    const auto next = [&latest](size_t count) { // of the series that the Fortran programs draw their values from
        std::vector<double> values(count);
        for (double& value : values)
            value = latest += 0.125;
        return values;
    };
    ZELDATA* db = ZEL_Create(8, 3);
    char title[] = "Cube of eight nodes", name[] = "cube.f", type[] = "FORTRAN", comment[] = "built by Fortran",
         none[] = "", last[] = "last";
    ZEL_SetHeader(db, title, name, type, comment, none, last);
    ZEL_SetUnits(db, "kg", "mm", "s", "N");
    for (int node = 11; node <= 18; ++node)
    {
        const auto xyz = next(3);
        ZEL_SetNodeCoordinates(db, node, xyz[0], xyz[1], xyz[2]);
        ZEL_SetNodalMass(db, node, next(1)[0]);
    }
    for (int node : {11, 12})
        ZEL_SetNodalInertias(db, 1, &node, next(6).data());
    ZEL_SetNodalInertiaEntry(db, 13, 1, 3, next(1)[0]);
    const auto m = next(9);
    ZEL_SetNodalInertia(db, 14, m[0], m[4], m[8], m[1], m[2], m[5]);
    ZEL_SetInterfaceNode(db, 18);
    const int ids[] = {11, 12, 13, 14, 15, 16, 17, 18};
    ZEL_SetFaceList(db, 4, ids);
    ZEL_SetFace(db, 2, 11, 15);
    ZEL_SetFace(db, 3, 11, 12, 16);
    ZEL_SetFace(db, 4, 12, 13, 17, 16);
    for (int vertices = 5; vertices <= 8; ++vertices)
        ZEL_SetFaceList(db, vertices, ids);
    for (int mode = 1; mode <= 3; ++mode)
    {
        for (int node = 11; node <= 18; ++node)
            ZEL_SetModeVec(db, mode, node, ZEL_MODE_SHAPE, next(6).data());
        ZEL_SetModeEntry(db, mode, 18, ZEL_MODE_SHAPE, 5, next(1)[0]);
        for (int node : {17, 12})
            ZEL_SetModeVec(db, mode, node, ZEL_MODAL_STRESS, next(6).data());
        for (int node : {13, 14})
            ZEL_SetModeVec(db, mode, node, ZEL_MODAL_STRAIN, next(6).data());
    }
    ZEL_SetModeVec(db, 0, 17, ZEL_MODAL_STRESS, next(6).data());
    ZEL_SetModeVec(db, 0, 14, ZEL_MODAL_STRAIN, next(6).data());
    for (int mode = 1; mode <= 3; ++mode)
    {
        const auto v = next(5);
        ZEL_SetGeneralizedStiffness(db, mode, mode, v[0]);
        ZEL_SetGeneralizedDamping(db, mode, 1, v[1]);
        ZEL_SetModalPreload(db, mode, v[2]);
        ZEL_SetModalLoad(db, 0, mode, v[3]);
        ZEL_SetModalLoad(db, 2, mode, v[4]);
    }
    ZEL_SetModalLoadLabel(db, 0, "Cube of eight nodes");
    ZEL_SetModalLoadLabel(db, 1, "");
    ZEL_SetInvar1(db, next(1)[0]);
    ZEL_SetInvar2(db, next(3).data());
    const auto columns = next(9);
    ZEL_SetInvar3(db, columns.data());
    ZEL_SetInvar4(db, columns.data());
    ZEL_SetInvar5(db, next(27).data());
    ZEL_SetInvar6(db, std::vector<double>(3, 1.0).data());
    ZEL_SetInvar7(db, next(9).data());
    ZEL_SetInvar8(db, next(27).data());
    ZEL_SetInvar9(db, next(81).data());
    ZEL_SetGeneralizedMass(db, 1, 1, 1.0);
    const auto global = next(4);
    ZEL_SetGlobalMass(db, global[0], &global[1], next(9).data());
    return db;
}

// Runs a program with a file name as its argument, its output unseen.
int run(const char* program, const std::string& file)
{
    return std::system((std::string("'") + program + "' '" + file + "' > /dev/null 2>&1").c_str());
}

// A file with its date of creation blotted out.
std::string without_date(const std::string& file)
{
    constexpr size_t kDate = 4 + 128 * 4, kDateBytes = 32 * 4; // behind the version code and the title
    std::string bytes = bytes_of(file);
    return bytes.size() < kDate + kDateBytes ? "" : bytes.replace(kDate, kDateBytes, kDateBytes, '\0');
}

} // namespace

TEST_F(Fortran, ProgramsWriteTheBytesThatTheCInterfaceWrites)
{
    const std::string in_c = folder.path("c.zel"), ansys = folder.path("ansys.zel"), by_name = folder.path("by name");
    quietly([&] { EXPECT_EQ(ZEL_write_ZEL(body_in_c(), in_c.c_str()), 1); });
    for (const char* program : {FIXED_PROGRAM, FREE_PROGRAM})
    {
        const std::string file = folder.path("fortran.zel");
        ASSERT_EQ(run(program, file), 0) << program;
        EXPECT_TRUE(without_date(file) == without_date(in_c)) << program;
    }

    // The names in upper case strip padding from the one name and not from the other.
    const std::string padded = by_name + std::string(2000, ' '), odd = ansys + " ";
    const int one = 1, two = 2, length = int(by_name.size());
    const auto written = [&](auto... arguments) {
        int result = -1;
        output_of([&] {
            errors_of([] { zel::current_database = body_in_c(); });
            result = call(arguments...);
        });
        return result;
    };
    EXPECT_EQ(written(ZEL_WRITE_ZEL, padded.c_str(), length + 60), 0);
    EXPECT_EQ(written(ZEL_WRITE_ANSYS_ZEL, odd.c_str(), int(odd.size()), &one, &two), 0);
    EXPECT_EQ(written(ZEL_WRITE_WITH_OPTIONS, padded.c_str(), length + 1, "no_xdr  ", 8), 0);
    EXPECT_EQ(bytes_of(by_name)[0], 60); // native, in one byte order and the other
    EXPECT_EQ(written(ZEL_WRITE_WITH_OPTIONS, by_name.c_str(), length, "", 0), 0);
    quietly([&] {
        ZELDATA* body = body_in_c();
        EXPECT_EQ(ZEL_AnsysAddGenMass(body, 1, 2), 1);
        EXPECT_EQ(ZEL_write_ZEL(body, ansys.c_str()), 1);
    });
    EXPECT_TRUE(without_date(by_name) == without_date(in_c));
    EXPECT_TRUE(without_date(ansys) == without_date(odd));
    EXPECT_FALSE(without_date(ansys) == without_date(in_c)) << "the coupling masses are in it";
    EXPECT_EQ(call(ZEL_WRITE_ZEL, "/no/such/folder/file", 20), 1);
}

TEST_F(Fortran, ProgramsCallTheEigenSolver)
{
    double lambda[2];
    EXPECT_EQ(call(fixed_eigen_, lambda), 0);
    std::sort(lambda, lambda + 2);
    EXPECT_NEAR(lambda[0], 1, 1e-14);
    EXPECT_NEAR(lambda[1], 3, 1e-14);
}

// The steel tube of the example, free: closed form of a uniform beam in bending, torsion and extension. The two last are
// approximated by linear elements and converge from above with (pi / elements)^2 / 24.
TEST_F(Fortran, SpaceFrameVibratesAsTheoryHasIt)
{
    const std::string file = folder.path("frame.zel");
    ASSERT_EQ(run(SPACE_FRAME, file), 0);
    ZELDATA* db = ZEL_CreateFromZEL(file.c_str());
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(ZEL_RigidBodyModeCount(db), 6);

    const double pi = std::acos(-1.0), young = 210e9, density = 7850, outer = 0.02, inner = 0.018;
    const double area = pi * (outer * outer - inner * inner),
                 second_moment = pi / 4 * (std::pow(outer, 4) - std::pow(inner, 4));
    const auto bending = [&](double root) // of cosh x cos x = 1, for a length of 1
    { return root * root / (2 * pi) * std::sqrt(young * second_moment / (density * area)); };
    const double torsion = std::sqrt(young / 2.6 / density) / 2, extension = std::sqrt(young / density) / 2;
    int mode = 6;
    for (const auto& [hertz, tolerance, times] : {std::tuple(bending(4.730040744862704), 1e-4, 2),
                                                  {bending(7.853204624095838), 1e-4, 2},
                                                  {bending(10.995607838001671), 3e-4, 2},
                                                  {torsion, 1e-3, 1},
                                                  {bending(14.137165491257464), 3e-4, 2},
                                                  {extension, 1e-3, 1}})
        for (int i = 0; i < times; ++i)
        {
            double found = 0;
            EXPECT_EQ(ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode++), nullptr, &found, nullptr, nullptr, nullptr), 1);
            EXPECT_NEAR(found / hertz, 1, tolerance) << "mode " << mode;
        }
}

TEST_F(Fortran, NeedsACurrentDatabase)
{
    ZEL_Create(1, 1); // is not the current one
    const int one = 1;
    const double value = 1, vector[81] = {};
    int count = 7;
    const auto expect_refused = [&](auto... arguments) {
        EXPECT_EQ(call(arguments...), 1);
        EXPECT_EQ(errors, "ERROR:  No ZELDATA object.  Call ZEL_CREATE first\n");
    };
    expect_refused(ZEL_SET_NODAL_MASS, &one, &value);
    expect_refused(ZEL_SET_INVAR9, vector);
    expect_refused(ZEL_GET_MODE_COUNT, &count);
    EXPECT_EQ(count, 7);
}

TEST_F(Fortran, CurrentDatabaseComesAndGoes)
{
    create(1, 1);
    ZELDATA* const first = current();
    ZELDATA* const other = ZEL_Create(1, 1);
    create(1, 1);
    EXPECT_EQ(ZEL_NodeCount(current()), 0);
    EXPECT_TRUE(!CheckZEL(other) || other == current()) << "creating anew frees every database";
    EXPECT_TRUE(!CheckZEL(first) || first == current());

    ZEL_UnLink(current());
    EXPECT_EQ(current(), nullptr) << "also when it is freed from C";
    create(1, 1);
    for (const char* freed : {"a database", "nothing"})
    {
        EXPECT_EQ(call(ZEL_TERMINATE), 0) << freed;
        EXPECT_EQ(current(), nullptr) << freed;
    }
}

TEST_F(Fortran, ReadsAFileUnderItsExactName)
{
    const std::string path = open(sample_file(format_of_version(60)))->zel_file.name, padded = path + "  ";
    ZEL_Terminate();
    create(1, 1);
    ZELDATA* const before = current();
    EXPECT_EQ(call(ZEL_CREATE_FROM_ZEL, padded.c_str(), int(path.size())), 0);
    int modes = 0;
    EXPECT_EQ(call(ZEL_GET_MODE_COUNT, &modes), 0);
    EXPECT_EQ(modes, sample::modes);
    EXPECT_TRUE(CheckZEL(before)) << "the one before stays in the list";
    EXPECT_EQ(call(ZEL_CREATE_FROM_ZEL, padded.c_str(), int(padded.size())), 1) << "blanks are part of the name";
    EXPECT_EQ(current(), nullptr);
    EXPECT_EQ(call(ZEL_CREATE_FROM_ZEL, path.c_str(), -1), 1);
}

TEST_F(Fortran, FacesOfAnOddNumberOfVerticesCountAsDone)
{
    create(9, 1);
    const int ids[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9}, same[2] = {1, 1}, two = 2, eight = 8;
    for (const int vertices : {9, 1, 0, -3})
    {
        EXPECT_EQ(call(ZEL_SET_FACE, &vertices, ids), 0);
        EXPECT_EQ(errors, "ERROR:  Unable to create a face with " + std::to_string(vertices) + " vertices\n");
    }
    EXPECT_EQ(call(ZEL_SET_FACE, &two, same), 1) << "a face of one node fails";
    EXPECT_NE(errors, "");
    EXPECT_EQ(call(ZEL_SET_FACE_2, &same[0], &same[1]), 1);
    EXPECT_NE(errors, "");
    EXPECT_EQ(call(ZEL_SET_FACE, &eight, ids), 0);
    int faces = 0, length = 0;
    ZEL_FaceListSize(current(), &faces, &length);
    EXPECT_EQ(faces, 1);
    EXPECT_EQ(length, 9);
}

TEST_F(Fortran, AnUnsymmetricInertiaIsUsedByItsUpperTriangle)
{
    create(1, 1);
    const double matrix[9] = {1, 4, 5, -4, 2, 6, 5, -6, 3};
    const int node = 3;
    EXPECT_EQ(call(ZEL_SET_NODAL_INERTIA_MAT, &node, matrix), 0);
    EXPECT_EQ(errors, "WARNING:  Unsymmetric Inertia Tensor supplied to ZEL_SET_NODAL_INERTIA_MAT\n");
    double stored[9];
    EXPECT_EQ(ZEL_NodalInertia(current(), 0, stored), 1);
    EXPECT_EQ(std::vector<double>(stored, stored + 9), (std::vector<double>{1, 4, 5, 4, 2, 6, 5, 6, 3}));
}

TEST_F(Fortran, CountsFromOneAndStripsPadding)
{
    create(1, 1);
    const int one = 1, two = 2;
    const double value = 2;
    for (const int dof : {0, 7, -1})
        EXPECT_EQ(call(ZEL_SET_MODE_SHAPE_ENTRY, &one, &one, &dof, &value), 1);
    for (const int load_case : {0, INT32_MIN})
    {
        EXPECT_EQ(call(ZEL_SET_MODAL_LOAD, &load_case, &one, &value), 1);
        EXPECT_NE(errors, "");
    }
    const std::string blanks(500, ' ');
    for (const std::string text : {"second", ""}) // without a text it is the number
    {
        char label[256];
        EXPECT_EQ(call(ZEL_SET_LOADCASE_LABEL, &two, (text + blanks).c_str(), int((text + blanks).size())), 0);
        EXPECT_EQ(errors, "");
        ZEL_GetModalLoadCaseLabel(current(), 1, label);
        EXPECT_EQ(label, text.empty() ? "2" : text);
    }
    char newline[] = "two\nlines ";
    output_of([&] { EXPECT_EQ(call(ZEL_SET_HEADER, newline, 10, "", 0, "", -1, "", 0, "", 0, "", 0), 0); });
    EXPECT_STREQ(newline, "two\nlines ") << "the program's text stays";
    EXPECT_STREQ(current()->title, "two lines");
}

TEST_F(Fortran, TransformationToSelectedModesKeepsTheRowsOfNewModes)
{
    create(1, 3);
    const int selected[3] = {30, 99, 10}, three = 3, two = 2, none = 0;
    double t[9];
    std::fill_n(t, 9, -1.0);
    double* const nowhere = nullptr;
    EXPECT_EQ(call(ZEL_GET_TRANSFORM_TO_SELMOD, nowhere, selected, &two), 1);
    EXPECT_EQ(errors, "ERROR:  NULL argument T passed into ZEL_GET_TRANSFORM_TO_SELMOD\nERROR:  \n");
    EXPECT_EQ(call(ZEL_GET_TRANSFORM_TO_SELMOD, t, selected, &two), 1);
    EXPECT_TRUE(reported("Invalid mode count found at line ")) << errors;
    for (int number : {10, 20, 30})
        ZEL_AddMode(current(), number);
    EXPECT_EQ(call(ZEL_GET_TRANSFORM_TO_SELMOD, t, selected, &two), 1) << "no transformation";
    EXPECT_EQ(std::vector<double>(t, t + 9), std::vector<double>(9, -1.0));

    current()->transformation = zel::allocate<double>(9);
    current()->transformation_order = 3;
    std::iota(current()->transformation, current()->transformation + 9, 0.0);
    EXPECT_EQ(call(ZEL_GET_TRANSFORM_TO_SELMOD, t, selected, &three), 1) << "99 is unknown";
    EXPECT_EQ(std::vector<double>(t, t + 9), (std::vector<double>{2, 0, 0, 5, 0, 3, 8, 0, 6}));
    EXPECT_EQ(call(ZEL_GET_TRANSFORM_TO_SELMOD, t, selected, &none), 0);
}
