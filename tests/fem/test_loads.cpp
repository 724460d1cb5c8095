// Loads as modal load cases: statics against what CalculiX has computed, resultants against arithmetic.
#include "fem/interfaces.h"
#include "fem/loads.h"
#include "fem/rigid.h"
#include "fem/sources/ccx/element_types.h"
#include "models.h"

// A job of the short beam with more steps, and the matrices that belong to it.
static std::string job_with(const TemporaryFolder& folder, const std::string& steps)
{
    copy_matrices("small", folder.path("job"));
    write_file(folder, "job.inp", "*INCLUDE, INPUT=" + kSmall + "small.inp\n" + steps);
    return folder.path("job");
}

// Loads of one step add up; those of the next replace them one by one, until OP=NEW. Frequency steps change none.
TEST(Loads, OfStaticStepsDeformTheBodyAsTheSolverSays)
{
    TemporaryFolder folder;
    const std::string job = job_with(
        folder, "*STEP, NAME=pull\n*STATIC\n*BOUNDARY\nROOT,1,3\n*CLOAD\n33,1,10\n34,2,5\n*CLOAD\n33,1,2.5\n"
                "*DLOAD\n3,P4,2\nBEAM,GRAV,9810,0,0,-2\n*END STEP\n"
                "*STEP\n*FREQUENCY\n3\n*END STEP\n"
                "*STEP\n*STATIC\n*CLOAD\n34,2,1\n*DLOAD\n3,P4,1\n2,P6,3\nLUMP,GRAV,9810,0,-1,0\nBEAM,GRAV,500,0,0,-1\n"
                "*STEP\n*STATIC\n*CLOAD,OP=NEW\n*DLOAD,OP=NEW\nBEAM,CENTRIF,1e6,5,6,7,1,2,3\n"
                "LUMP,CENTRIF,1e6,5,6,7,1,2,3\n");
    ReductionOptions options = in_millimetres(4, {"ROOT"});
    options.attachment = true;
    const ReducedBody body = reduce_job(job, options);
    ASSERT_EQ(body.body->loads.size(), 3u);
    EXPECT_EQ(body.body->loads[0].label, "Step 2: pull");
    EXPECT_EQ(body.body->loads[2].label, "Step 5");
    EXPECT_PRED2(contains, told(body), "a multibody solver applies gravity and inertia forces itself");
    constexpr double kExpected[3][3][3] = {// ccx 2.20: step, node 13, 33 and 44, component
                                           {{-6.241481e-05, -1.374425e-05, 9.580305e-06},
                                            {-0.0003578129, 0.000404797, 0.0002130563},
                                            {-0.0006560573, 0.0004455865, 0.0002598788}},
                                           {{9.014e-05, 3.223516e-05, -1.373564e-05},
                                            {0.0001578832, 0.0002027296, 0.0003068542},
                                            {-4.91441e-05, 0.0002183028, 0.0002964772}},
                                           {{0.001761491, -0.0003037862, -0.002085755},
                                            {-0.006699742, -0.01279218, -0.05505073},
                                            {0.004875681, -0.01250121, -0.05615165}}};
    for (size_t step = 0; step < 3; ++step)
    {
        const VectorXd u = static_answer(*body.body, 6, step);
        for (size_t n = 0; n < 3; ++n)
            for (Index c = 0; c < 3; ++c)
                EXPECT_NEAR(u[3 * Index(std::array{12, 32, 43}[n]) + c], kExpected[step][n][size_t(c)], // node less 1
                            1e-5 * u.cwiseAbs().maxCoeff())
                    << step << n << c;
    }
}

TEST(Loads, OfStepsThatCannotBeTakenAreTold)
{
    TemporaryFolder folder;
    const std::string force = "*STEP\n*STATIC\n*CLOAD\n33,1,10\n";
    const std::array<std::string, 3> cases[] = {
        // steps, what the report tells, labels
        {force + "*CLOAD, AMPLITUDE=A\n34,1,1\n", "*CLOAD with AMPLITUDE is left out", "Step 2 (in part)"},
        {force + "*DLOAD\n3,P4NU,1\n", "the load \"P4NU\" is left out", "Step 2 (in part)"},
        {force + "*TEMPERATURE\nALL,100\n", "*TEMPERATURE is left out", "Step 2 (in part)"},
        {force + "*BOUNDARY\n1,1,1,0.5\n", "what the step moves by *BOUNDARY is left out", "Step 2 (in part)"},
        {force + "*CLOAD\n34,5,1\n", "node 34 does not turn", "Step 2"},
        {force + "*DLOAD\nBEAM,CENTRIF,1,0,0,0,0,0,1\nBEAM,CENTRIF,1,0,0,0,0,1,0\n", "a second axis",
         "Step 2 (in part)"},
        {"*NODE\n99\n" + force + "*CLOAD\n99,1,1\n", "Step 2 is no load case: node 99 has no freedom", ""},
        {force + "*STEP, PERTURBATION\n*STATIC\n*STEP\n*STATIC\n", "", "Step 2"},
    };
    for (const auto& [steps, expected, label] : cases)
    {
        const ReducedBody body = reduce_job(job_with(folder, steps), in_millimetres(2));
        EXPECT_PRED2(contains, told(body), expected);
        ASSERT_EQ(body.body->loads.size(), label.empty() ? 0u : 1u) << steps;
        EXPECT_EQ(label.empty() ? "" : body.body->loads[0].label, label);
    }
}

TEST(Loads, HaveTheResultantsThatWereAskedFor)
{
    const ReductionOptions options = in_millimetres(4, {}, {"T=TIP:1,2,3,40,50,60", "G=gravity:1,2,3", "P=all:7"});
    const Model model = read_model(kSmall + "small");
    const MassMoments mass = matrix_moments(model);
    const FullLoads full = full_loads(model, {}, options.loads, mass);
    Eigen::Matrix<double, 6, 3> expected;
    const Vector3d force(1, 2, 3), weight = mass.mass * force;
    expected << force, weight, Vector3d::Zero(), Vector3d(60, 0, 0).cross(force) + Vector3d(40, 50, 60),
        mass.center().cross(weight), Vector3d::Zero();
    EXPECT_LT((full.resultants - expected).norm(), 1e-9 * expected.norm());
    // a uniform traction on a serendipity face: corners -1/12, mid-sides 1/3
    const FullLoads pull = full_loads(model, {}, in_millimetres(0, {}, {"X=TIP:12,0,0"}).loads, mass);
    EXPECT_NEAR(pull.forces.maxCoeff(), 4.0, 1e-12);
    EXPECT_NEAR(pull.forces.minCoeff(), -1.0, 1e-12);
    // both routes and both kinds of basis have the weight, as its work on a motion of one metre says
    for (const std::string& job : {kSmall + "small", kExamples + "tied_beam", kExamples + "free_beam"})
    {
        const ReducedBody body = reduce_job(job, in_millimetres(4, {}, {"G=gravity:1,2,3"}));
        const MatrixXd rigid = fit_rigid_motions(body.body->mesh, Vector3d::Zero(), body.body->motion).coefficients;
        const Vector3d work = rigid.leftCols<3>().transpose() * body.body->loads[0].values;
        EXPECT_LT((work - moments_of(body.body->mesh, body.body->nodes).mass * force).norm(), 1e-6 * work.norm())
            << job;
    }
}

// Edges bulge and faces are warped: the integrals are exact all the same.
TEST(Loads, OfPressureOnAClosedSurfaceHaveNoResultant)
{
    for (const char* name : {"C3D4", "C3D10", "C3D6", "C3D15", "C3D8", "C3D20"})
    {
        Mesh mesh;
        Element element{.id = 1, .type = ccx::find_element_type(name)};
        const auto& at = node_positions(element.type->shape);
        for (Index i = 0; i < at.cols(); ++i)
        {
            mesh.nodes.push_back({int(i) + 1, at.col(i) + 0.1 * Vector3d(at(1, i) * at(2, i), at(0, i) * at(0, i),
                                                                         at(0, i) * at(1, i))});
            element.nodes[size_t(i)] = int(i);
        }
        mesh.elements = {element};
        Vector3d force = Vector3d::Zero(), moment = force;
        double area = 0.0;
        for (const Face& face : skin(mesh))
        {
            const FaceIntegrals integrals = face_integrals(mesh, face);
            area += integrals.area.sum();
            force += integrals.normal.rowwise().sum();
            for (size_t i = 0; i < face.size(); ++i)
                moment += mesh.nodes[size_t(face[i])].at.cross(Vector3d(integrals.normal.col(Index(i))));
        }
        EXPECT_GT(area, 1.0);
        EXPECT_LT(force.norm() + moment.norm(), 1e-12 * area) << name;
    }
}

TEST(Loads, ThatNothingCanCarryAreRefused)
{
    const std::pair<const char*, const char*> faults[] = {
        {"TIP:1,2,3", "a load reads NAME=SET:fx,fy,fz"},
        {"A=TIP:1,2", "three or six components"},
        {"A=gravity:9.81", "three components"},
        {"A=TIP:1,x,3", "\"x\" is not a number"},
        {"A=ids=13:0,0,0,1,0,0", "no rotation of its own"},
        {"A=ids=33,34,38:0,0,0,0,1,0", "lie on one line"},
        {"A=ids=13,14:5", "holds no whole face"},
        {"A=NOWHERE:1,2,3", "NOWHERE"},
    };
    expect_refused(faults, [](const char* load) { reduce_job(kSmall + "small", in_millimetres(2, {}, {load})); });
}
