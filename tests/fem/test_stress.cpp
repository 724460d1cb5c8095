// Stress of modes from matrices, held against that of the solver, and what bodies under load make of it.
#include "checks/stress.h"
#include "fem/layers.h"
#include "fem/sources/ccx/frd.h"
#include "fem/stress.h"
#include "models.h"

static constexpr double kSolver = 1e-4; // the solver extrapolates by factors of three decimals

static Model deck_of(const std::string& job)
{
    return ccx::make_source({.deck = job})->read_model(silent);
}

// Two elements of each type, of two materials, whose nodes are moved as the solver was told.
TEST(NodalStress, IsThatOfTheSolverWhereItIsGiven)
{
    const Model model = deck_of(kSmall + "patches");
    const ccx::FrdFile frd = ccx::read_frd(kSmall + "patches.frd");
    const NodalStress nodal(model.mesh, model.elasticities);
    const MatrixXd stress = nodal.of(frd.solutions.at(0).displacement).stress;
    std::map<std::string_view, std::pair<double, double>> worst; // by type: difference and largest stress
    for (const Element& element : model.mesh.elements)
        for (int i = 0; i < node_count(element.type->shape) && element.id != 999; ++i)
        {
            const Index row = 6 * element.nodes[size_t(i)];
            const bool known = nodal.known()[size_t(element.nodes[size_t(i)])];
            ASSERT_EQ(known, element.type->name != "C3D6") << element.id;
            const Eigen::Vector<double, 6> expected = frd.solutions[0].stress.segment<6>(row);
            auto& [difference, largest] = worst[element.type->name];
            difference = std::max(difference, known ? (stress.middleRows<6>(row) - expected).cwiseAbs().maxCoeff() : 0);
            largest = std::max(largest, expected.cwiseAbs().maxCoeff());
        }
    EXPECT_EQ(worst.size(), 8u);
    for (const auto& [type, found] : worst)
        EXPECT_LT(found.first, kSolver * found.second) << type;
    EXPECT_EQ(nodal.reasons(), std::vector<std::string>{"4 elements have no modal stress, nor have their nodes: the "
                                                        "stress of elements of type C3D6 is not computed"});
}

TEST(NodalStress, IsNotMadeUpOfMaterialsThatAreNotUnderstood)
{
    const std::string elastic = "*MATERIAL, NAME=M\n*DENSITY\n1\n*ELASTIC\n2e5, .3\n", constants = "1e5,5e4,3e4,";
    const std::string ortho = "*MATERIAL, NAME=M\n*DENSITY\n1\n*ELASTIC, TYPE=ENGINEERING CONSTANTS\n";
    const std::string good = constants + ".25,.2,.3,2e4,1e4,\n1e4\n";
    const std::vector<std::array<std::string, 2>> cases = {
        {"*MATERIAL, NAME=M\n*DENSITY\n1\n", "no *ELASTIC"},
        {elastic + "3e5, .3, 100.\n", "depends on temperature"},
        {elastic + "*PLASTIC\n300., 0.\n", "*PLASTIC"},
        {elastic + "*ELASTIC\n1e5, .3\n", "several *ELASTIC"},
        {"*MATERIAL, NAME=M\n*DENSITY\n1\n*ELASTIC\n2e5\n", "two constants"},
        {"*MATERIAL, NAME=M\n*DENSITY\n1\n*ELASTIC\n2e5, .5\n", "stable"},
        {"*MATERIAL, NAME=M\n*DENSITY\n1\n*ELASTIC\n2e5, x\n", "\"x\""},
        {"*MATERIAL, NAME=M\n*DENSITY\n1\n*ELASTIC, TYPE=ORTHO\n1,2,3,4,5,6,7,8,\n9\n", "of type ORTHO"},
        {ortho + constants + ".25,.2,.3,2e4,1e4,1e4\n*ORIENTATION, NAME=O\n1,0,0,0,1,0\n", "eight constants"},
        {ortho + good, "no *ORIENTATION named O"},
        {ortho + good + "*ORIENTATION, NAME=O, SYSTEM=CYLINDRICAL\n0,0,0,0,0,1\n", "not rectangular"},
        {ortho + good + "*ORIENTATION, NAME=O\n1,0,0,2,0,0\n", "one line"},
        {elastic + "*STEP\n*STATIC\n*END STEP\n*STEP, PERTURBATION\n*FREQUENCY\n", "loaded state"},
        {elastic, ""},
        {ortho + good + "*ORIENTATION, NAME=O\n1,0,0,0,1,0\n", ""}};
    const std::string deck = "*NODE\n1\n2,1\n3,0,1\n4,0,0,1\n*ELEMENT, TYPE=C3D4, ELSET=E\n1,1,2,3,4\n"
                             "*SOLID SECTION, ELSET=E, MATERIAL=M, ORIENTATION=O\n";
    TemporaryFolder folder;
    for (const auto& [cards, reason] : cases)
    {
        const Model model = deck_of(write_file(folder, "d.inp", deck + cards));
        const NodalStress nodal(model.mesh, model.elasticities);
        EXPECT_EQ(nodal.known(), std::vector<char>(4, reason.empty())) << reason;
        EXPECT_PRED2(contains, reason.empty() ? "" : nodal.reasons().at(0), reason);
    }
    const Model sprung = deck_of(write_file(
        folder, "d.inp", deck + elastic + "*ELEMENT, TYPE=SPRINGA, ELSET=S\n9,1,2\n*SPRING, ELSET=S\n\n10.\n"));
    const NodalStress beside(sprung.mesh, sprung.elasticities); // the solver counts springs at their nodes
    EXPECT_EQ(beside.known(), (std::vector<char>{0, 0, 1, 1}));
}

static ReducedBody with_stress(const std::string& job, ReductionOptions options)
{
    options.stress = options.strain = true;
    return reduce_job(job, options, ccx::Route::matrices);
}

// Of the modes themselves: free ones, unit motions of interfaces, and through the layers of shells.
TEST(ModalStress, IsThatOfTheSolversResults)
{
    const auto results_of = [](const std::string& job, int modes) {
        return reduce_job(job, in_millimetres(modes), ccx::Route::results);
    };
    const std::vector<std::string> ends = {"ROOT@0,0,0", "TIP@1000,0,0"};
    const std::tuple<ReducedBody, ReducedBody, Index, Index, double> cases[] = {
        {with_stress(kExamples + "cantilever", in_millimetres(8)), results_of(kExamples + "free_beam", 8), 6, 4, 0},
        {with_stress(kExamples + "cantilever", in_millimetres(4, ends)), results_of(kExamples + "tied_beam", 4), 0, 12,
         1},
        {with_stress(kSmall + "strip", in_millimetres(6)), results_of(kSmall + "strip_layers", 6), 6, 4, 0}};
    for (const auto& [own, given, first, count, scale] : cases)
    {
        const Index rows = own.body->motion.rows();
        const ModalStress modal(*own.body);
        const MatrixXd stress = modal.of(first, count).stress;
        for (Index k = 0; k < count; ++k)
        {
            const double sign = own.body->motion.col(first + k).dot(given.body->motion.col(first + k).head(rows));
            const MatrixXd expected = std::copysign(1.0, sign) * given.body->stress.col(first + k).head(2 * rows);
            EXPECT_LT(relative(stress.col(k), expected), kSolver) << own.body->file << " " << k;
        }
        EXPECT_TRUE(scale == 1.0 || modal.of(0, 6).stress.isZero(0.0)); // rigid
    }
    const ModalStress bar(*std::get<0>(cases[0]).body);
    const MatrixXd strain = bar.of(6, 1).strain, stress = bar.of(6, 1).stress; // Hooke's law for steel, at every node
    for (Index i = 0; i < stress.rows(); i += 6)
    {
        EXPECT_NEAR(strain(i, 0), (stress(i, 0) - 0.3 * (stress(i + 1, 0) + stress(i + 2, 0))) / 210000, 1e-9);
        EXPECT_NEAR(strain(i + 4, 0), 2.6 * stress(i + 4, 0) / 210000, 1e-9);
    }
    EXPECT_PRED2(contains, told(std::get<0>(cases[2])), "no bending");
    ReductionOptions options = in_millimetres(4);
    options.stress = true;
    EXPECT_PRED2(contains, complaint([&] { with_stress(kSmall + "incompatible", options); }), "C3D8I");
    EXPECT_PRED2(contains, complaint([&] { reduce_job(kSmall + "plate", options); }), "*EL FILE");
}

using StaticAnswer = ZelTest;

// A bar in a file, as users have it: its modes are orthogonal, and its loads are projected.
static ZELDATA* bar(const TemporaryFolder& folder, ReductionOptions options, const char* how)
{
    options.attachment = true;
    const ReducedBody body = with_stress(kExamples + "cantilever", options);
    ZELDATA* db = nullptr;
    quietly([&] {
        write_body(body, folder.path("b.zel"), how, silent);
        db = ZEL_CreateFromZEL(folder.path("b.zel").c_str());
    });
    return db;
}

// One column a node with stress.
static MatrixXd stress_under(ZELDATA* db, const std::string& load, const std::vector<int>& held)
{
    const std::vector<double> stress =
        zel_checks::combined_stress(db, zel_checks::static_answer(db, load, held).amplitudes);
    return Eigen::Map<const MatrixXd>(stress.data(), 6, Index(stress.size() / 6));
}

// Of its i-th node.
static Vector3d place(ZELDATA* db, Index i)
{
    Vector3d at;
    double mass;
    ZEL_NodalMassAndGeometry(db, ZEL_NodeIndex(db, zel_checks::nodes_with_stress(db)[size_t(i)]), &mass, at.data());
    return at;
}

// Of 1000 x 40 x 20: what bars do under axial and lateral forces.
TEST_F(StaticAnswer, IsThatOfBarsAndBeams)
{
    const TemporaryFolder of_free, of_held;
    for (const char* how : {"full_invar", "no_ortho"})
    {
        ZEL_Terminate();
        ZELDATA* free = bar(of_free, in_millimetres(4, {}, {"PULL=TIP:-10", "PUSH=ROOT:-10"}), how);
        const MatrixXd pulled = stress_under(free, "PULL", {}), both_ends = pulled + stress_under(free, "PUSH", {});
        for (Index i = 0; i < pulled.cols(); ++i)
        {
            Eigen::Vector<double, 6> expected = Eigen::Vector<double, 6>::Zero();
            expected[0] = place(free, i)[0] / 100; // the end that is pulled draws all mass behind it
            EXPECT_LT((pulled.col(i) - expected).cwiseAbs().maxCoeff(), 1e-5) << how << place(free, i);
            expected[0] = 10; // in balance without inertia
            EXPECT_LT((both_ends.col(i) - expected).cwiseAbs().maxCoeff(), 1e-5) << how;
        }
        ZELDATA* held = bar(of_held, in_millimetres(4, {"ROOT@0,0,0", "TIP@1000,0,0"}, {"LIFT=TIP:0,0,100"}), how);
        int count = 0;
        const std::unique_ptr<int, void (*)(void*)> ends(ZEL_InterfaceNodeIDs(held, &count), std::free);
        ASSERT_EQ(count, 2);
        const MatrixXd bent = stress_under(held, "LIFT", {*ends});
        for (Index i = 0; i < bent.cols(); ++i)
        {
            const Vector3d at = place(held, i);
            const double expected = -100 * (1000 - at[0]) * at[2] / (40 * 20 * 20 * 20 / 12.); // M z / I
            EXPECT_TRUE(at[0] < 250 || at[0] > 750 || std::abs(bent(0, i) - expected) < 0.02) << at;
        }
        const std::pair<int, const char*> faults[] = {{2, "2 amplitudes"}, {ZEL_ModeCount(held), "not finite"}};
        expect_refused(faults,
                       [&](int given) { zel_checks::combined_stress(held, std::vector<double>(size_t(given), NAN)); });
    }
}
