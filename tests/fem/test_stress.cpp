// Stress of modes from matrices, held against that of the solver, and what bodies under load make of it.
#include "checks/stress.h"
#include "fem/layers.h"
#include "fem/sources/ccx/frd.h"
#include "fem/stress.h"
#include "models.h"

#include "zel.h"

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
        const std::string told = reason.empty() ? "" : nodal.reasons().at(0);
        EXPECT_NE(told.find(reason), std::string::npos) << reason << " in " << told;
    }
    const Model sprung = deck_of(write_file(
        folder, "d.inp", deck + elastic + "*ELEMENT, TYPE=SPRINGA, ELSET=S\n9,1,2\n*SPRING, ELSET=S\n\n10.\n"));
    const NodalStress beside(sprung.mesh, sprung.elasticities); // the solver counts springs at their nodes
    EXPECT_EQ(beside.known(), (std::vector<char>{0, 0, 1, 1}));
}

static ReducedBody with_stress(const std::string& job, ReductionOptions options)
{
    options.stress = options.strain = true;
    return reduce(*ccx::make_source({.deck = job, .route = ccx::Route::matrices}), options, silent);
}

// Of the modes themselves: free ones, unit motions of interfaces, and through the layers of shells.
TEST(ModalStress, IsThatOfTheSolversResults)
{
    const auto results_of = [](const std::string& job, int modes) {
        return reduce(*ccx::make_source({.deck = job, .route = ccx::Route::results}), in_millimetres(modes), silent);
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
            const VectorXd expected = given.body->stress.col(first + k).head(2 * rows);
            const double sign = own.body->motion.col(first + k).dot(given.body->motion.col(first + k).head(rows));
            EXPECT_LT((std::copysign(1.0, sign) * stress.col(k) - expected).cwiseAbs().maxCoeff(),
                      kSolver * expected.cwiseAbs().maxCoeff())
                << own.body->file << " " << k;
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
    EXPECT_PRED2(contains, complaint([&] { reduce(*ccx::make_source({.deck = kSmall + "plate"}), options, silent); }),
                 "*EL FILE");
}

namespace
{
// A body in a file, as users have it: its modes are orthogonal, and its loads are projected.
class Written
{
public:
    Written(const std::string& job, ReductionOptions options, const std::vector<std::string>& loads, const char* how)
    {
        for (const std::string& load : loads)
            options.loads.push_back(parse_load(load));
        options.attachment = true;
        body_ = with_stress(job, options);
        quietly([&] { write_body(body_, folder_.path("b.zel"), how, silent); });
        quietly([&] { db_ = ZEL_CreateFromZEL(folder_.path("b.zel").c_str()); });
    }
    ~Written() { ZEL_UnLink(db_); }
    Written(const Written&) = delete;
    Written& operator=(const Written&) = delete;
    operator ZELDATA*() const { return db_; }
    const Body& body() const { return *body_.body; }

    // One column a node with stress.
    MatrixXd under(const std::string& load, const std::vector<int>& held) const
    {
        const std::vector<double> stress =
            zel_checks::combined_stress(db_, zel_checks::static_answer(db_, load, held).amplitudes);
        return Eigen::Map<const MatrixXd>(stress.data(), 6, Index(stress.size() / 6));
    }
    Vector3d place(Index i) const
    {
        Vector3d at;
        double mass;
        ZEL_NodalMassAndGeometry(db_, ZEL_NodeIndex(db_, zel_checks::nodes_with_stress(db_)[size_t(i)]), &mass,
                                 at.data());
        return at;
    }

private:
    TemporaryFolder folder_;
    ReducedBody body_;
    ZELDATA* db_ = nullptr;
};
} // namespace

// The bar of 1000 x 40 x 20: what bars do under axial and lateral forces.
TEST(StaticAnswer, IsThatOfBarsAndBeams)
{
    for (const char* how : {"full_invar", "no_ortho"})
    {
        const Written free(kExamples + "cantilever", in_millimetres(4), {"PULL=TIP:-10", "PUSH=ROOT:-10"}, how);
        const MatrixXd pulled = free.under("PULL", {}), both_ends = pulled + free.under("PUSH", {});
        for (Index i = 0; i < pulled.cols(); ++i)
        {
            Eigen::Vector<double, 6> expected = Eigen::Vector<double, 6>::Zero();
            expected[0] = free.place(i)[0] / 100; // the end that is pulled draws all mass behind it
            EXPECT_LT((pulled.col(i) - expected).cwiseAbs().maxCoeff(), 1e-5) << how << free.place(i);
            expected[0] = 10; // in balance without inertia
            EXPECT_LT((both_ends.col(i) - expected).cwiseAbs().maxCoeff(), 1e-5) << how;
        }
        const Written held(kExamples + "cantilever", in_millimetres(4, {"ROOT@0,0,0", "TIP@1000,0,0"}),
                           {"LIFT=TIP:0,0,100"}, how);
        const std::vector<int> root = {held.body().interfaces[0].reference_id};
        const MatrixXd bent = held.under("LIFT", root);
        for (Index i = 0; i < bent.cols(); ++i)
        {
            const Vector3d at = held.place(i);
            if (at[0] > 250 && at[0] < 750) // far from the ends: M z / I, I = 40 20^3 / 12
            {
                EXPECT_NEAR(bent(0, i), -100 * (1000 - at[0]) * at[2] / (40 * 20 * 20 * 20 / 12.), 0.02) << at;
            }
        }
        for (const auto& [count, message] : {std::pair(2, "2 amplitudes"), {ZEL_ModeCount(held), "not finite"}})
        {
            const std::vector<double> amplitudes(size_t(count), NAN);
            const auto combine = [&] { zel_checks::combined_stress(held, amplitudes); };
            EXPECT_PRED2(contains, complaint(combine), message);
        }
    }
}
