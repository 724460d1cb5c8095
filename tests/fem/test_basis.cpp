// Whether a basis is good enough: effective masses against the solver's own, ranges of frequencies, damping of what is written.
#include "checks/checks.h"
#include "fem/figures.h"
#include "fem/invariants.h"

#include "models.h"

class Basis : public ZelTest
{
protected:
    ReducedBody small(const std::string& modes, bool free = false)
    {
        ReductionOptions options = in_millimetres(0, {"ROOT", "TIP@60,0,0"});
        choose_modes(modes, options);
        options.verify = true;
        options.free = free;
        return reduce_job(kSmall + "small", options);
    }
    TemporaryFolder folder;
};

// The six numbers behind each of 14 modes, one column a mode, below a heading of the solver's .dat.
static MatrixXd table_of(const std::string& heading)
{
    const std::string text = text_of(kSmall + "on_springs.dat");
    std::istringstream table(text.substr(text.find('\n', text.find("MODE NO.", text.find(heading)))));
    MatrixXd rows(7, 14);
    for (double& value : rows.reshaped())
        table >> value;
    EXPECT_TRUE(table && rows.row(0).isApprox(Eigen::RowVectorXd::LinSpaced(14, 1, 14))) << heading;
    return rows.bottomRows(6);
}

// The short beam on nine springs, whose modes carry shares of every mass and inertia. The solver has moments about the origin.
TEST_F(Basis, HasTheEffectiveMassesOfTheSolver)
{
    Model model = read_model(kSmall + "small");
    const double spring[3] = {900.0, 1300.0, 700.0};
    SparseMatrix held = model.matrices->stiffness;
    for (size_t i = 0; i < model.matrices->rows.size(); ++i)
        if (const auto [node, component] = model.matrices->rows[i]; node == 0 || node == 33 || node == 15)
            held.coeffRef(Index(i), Index(i)) += spring[component];
    const MatrixXd none(held.rows(), 0);
    const Eigenmodes modes = lowest_modes({held, model.matrices->mass, none, 0.0}, Cholesky(held), 14, silent);

    Reduction reduction;
    reduction.motion = modes.shapes;
    const auto body = std::make_shared<Body>();
    body->units = parse_units("mm,t,s,N");
    body->mesh = model.mesh;
    body->mass = MatrixXd::Identity(14, 14);
    body->stiffness = modes.values.asDiagonal();
    body->motion = node_motion(model, reduction).displacement;
    const MassMoments moments = matrix_moments(model);
    body->nodes = nodal_masses(model.mesh, mesh_mass(model.mesh), MassMethod::matched, moments);
    take_invariants(model, modes.shapes, moments, *body);
    ZELDATA* db = fill_database({body, {}});

    const auto table = zel_checks::mode_table_of(db).modes;
    const MatrixXd factors = table_of("P A R T I C"), masses = table_of("E F F E C T I V E   M O D A L");
    const zel_checks::MassProperties mass = zel_checks::mass_properties(db);
    const Vector3d center(mass.center.data());
    for (Index k = 0; k < 14; ++k)
    {
        const auto& mode = table[size_t(k)];
        const Vector3d p(mode.participation.data()), h(mode.participation.data() + 3);
        Eigen::Vector<double, 9> own, printed;
        own << p, h + center.cross(p), mass.mass * Vector3d(mode.effective_mass.data());
        printed << factors.col(k), masses.col(k).head(3);
        for (Index c = 0; c < 9; ++c)
            EXPECT_NEAR(std::abs(own[c]), std::abs(printed[c]), 1e-6 * std::abs(printed[c])) << "mode " << k + 1;
    }
}

TEST_F(Basis, HasAllModesOfARangeOfFrequencies)
{
    const Model model = read_model(kSmall + "small");
    const VectorXd values = eigenvalues_of(model).tail(3 * 44 - 6); // without the rigid ones
    const auto count = [&](double lowest, double highest) {
        return (values.array() >= lowest && values.array() < highest).count();
    };
    const double limits[] = {
        0.0, 1e-9 * values[0], 0.5 * values[0], 1.1 * values[0], 0.5 * (values[2] + values[3]), 1.5 * values[14]};
    for (double lowest : limits)
        for (double highest : limits)
        {
            if (lowest >= highest)
                continue;
            const Reduction free = reduce_free(model, {lowest, highest}, silent);
            const int expected = int(count(lowest, highest));
            ASSERT_EQ(free.mode_count, expected) << lowest << " to " << highest;
            EXPECT_EQ(free.complete_to, highest);
            for (int i = 0; i < expected; ++i)
                EXPECT_NEAR(free.stiffness(6 + i, 6 + i), values[count(0.0, lowest) + i], 1e-7 * values[i]);
        }
    for (const char* wrong :
         {"", "-1", "3.5", "100001", "0-2000", "2000Hz-", "200-100Hz", "0-nanHz", "-5-10Hz", "0-1e3Hz "})
        EXPECT_PRED2(contains, complaint([&] { small(wrong); }), "no number of modes");
}

static double number_of(const ReducedBody& body, const std::string& row_name, size_t number)
{
    for (const zel_checks::Row& row : body.report.rows())
        if (row.name == row_name)
            return row.numbers.at(number).value;
    return std::nan("");
}

// Shares of the first modes in the flexibility at each end, and of fixed-interface ones in mass and inertia, by dense algebra.
TEST_F(Basis, TellsHowCompleteItIs)
{
    const Model model = read_model(kSmall + "small");
    const MatrixXd k = dense(model.matrices->stiffness), m = dense(model.matrices->mass);
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> all(k, m);
    MatrixXd pulls = MatrixXd::Zero(k.rows(), 3); // at the root, of eight nodes
    std::vector<Index> inner;
    for (Index i = 0; i < k.rows(); ++i)
    {
        const auto [node, component] = model.matrices->rows[size_t(i)];
        const double x = model.mesh.nodes[size_t(node)].at[0];
        pulls(i, component) = x == 0.0 ? 1.0 / 8 : 0.0;
        if (x > 0.0 && x < 60.0)
            inner.push_back(i);
    }
    const VectorXd flexibility =
        (all.eigenvectors().transpose() * pulls).rowwise().squaredNorm().cwiseQuotient(all.eigenvalues());
    for (int modes : {0, 1, 7})
        EXPECT_NEAR(number_of(small(std::to_string(modes), true), "static completeness", 0),
                    flexibility.segment(6, modes).sum() / flexibility.tail(flexibility.size() - 6).sum(), 1e-8)
            << modes;

    const MassMoments moments = matrix_moments(model);
    const MatrixXd excited = m * rigid_motions(model, moments.center());
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> fixed(k(inner, inner), m(inner, inner));
    const MatrixXd carried = fixed.eigenvectors().leftCols(9).transpose() * excited(inner, Eigen::all);
    const ReducedBody body = small("9");
    for (Index c = 0; c < 6; ++c)
    {
        const double whole = c < 3 ? moments.mass : moments.inertia(moments.center())(c - 3, c - 3);
        EXPECT_NEAR(number_of(body, "fixed-interface modes have", size_t(c)), carried.col(c).squaredNorm() / whole,
                    1e-8);
    }
}

// The full model is that of the solver, which has tied the ends itself.
TEST_F(Basis, IsVerifiedByTheModesOfTheFullModel)
{
    const VectorXd full = eigenvalues_of(read_model(kSmall + "small_tied"));
    for (const char* modes : {"0", "12", "30"})
    {
        const ReducedBody body = small(modes);
        const VectorXd values = eigenvalues_of(body);
        Index agreeing = 0;
        while (agreeing + 6 < values.size() && std::sqrt(values[6 + agreeing] / full[6 + agreeing]) <= 1.01)
            ++agreeing;
        const double up_to = agreeing > 0 ? hertz(full[5 + agreeing], body.body->units) : 0.0;
        EXPECT_EQ(number_of(body, "verified", 0), double(agreeing)) << modes;
        EXPECT_NEAR(number_of(body, "verified", 2), up_to, 1e-6 * up_to) << modes;
    }
}

// By c, k and m alone, which is right in units that belong together. Of rigid modes c itself.
static double ratio_of(ZELDATA* db, int mode)
{
    const int n = ZEL_ModeCount(db);
    MatrixXd c = MatrixXd::Zero(n, n);
    ZEL_GenDampFull(db, c.data(), n);
    double k = 0.0, m = 0.0;
    ZEL_Eigenvalue(db, mode, nullptr, nullptr, nullptr, &m, &k);
    return c.row(mode - 1).sum() / (mode <= 6 ? 1.0 : 2 * std::sqrt(k * m));
}

TEST_F(Basis, IsDampedAsAskedModeByModeAndInAllUnits)
{
    const ReducedBody body = small("4"); // 12 constraint modes and 4 others: 6 rigid and 10 flexible ones in the file
    const std::string plain = folder.path("plain.zel");
    quietly([&] { write_body(body, plain, "full_invar", silent); });
    std::vector<double> hertz;
    for (const zel_checks::Mode& mode : zel_checks::modes_of(ZEL_CreateFromZEL(plain.c_str())))
        hertz.push_back(*mode.hertz);
    const std::string middle = std::to_string(0.5 * (hertz[8] + hertz[9])) + "Hz",
                      range = "0.01:0-" + middle + ",0.05:" + middle + "-";
    using Ratio = std::function<double(size_t)>;
    const auto rayleigh = [&](size_t i) { return 0.5 * (400.0 / (2 * M_PI * hertz[i]) + 1e-8 * 2 * M_PI * hertz[i]); };
    const std::tuple<Damping, Ratio, const char*> cases[] = {
        {parse_damping("0.02"), [](size_t) { return 0.02; }, "single MKS"},
        {parse_damping("7:1e-2,16:0.3"), [](size_t i) { return 0.01 * double(i == 6) + 0.3 * double(i == 15); },
         "full_invar MKS lbrf2cm"},
        {parse_damping(range), [](size_t i) { return i < 9 ? 0.01 : 0.05; }, "full_invar lowpass(1e7)"},
        {parse_rayleigh("400,1e-8"), rayleigh, "full_invar"}};
    for (const auto& [damping, expected, options] : cases)
    {
        const std::string path = folder.path("damped.zel"), ms = folder.path("ms.zel");
        quietly([&, damping = damping, options = options] {
            write_body(body, path, options, silent, damping);
            ZELDATA* db = ZEL_CreateFromZEL(path.c_str()); // damped anew on its way into other units
            ZEL_SetUnits(db, "gram", "mm", "millisecond", "N");
            set_damping(db, damping, "");
            EXPECT_TRUE(ZEL_WriteWithOptions(db, ms.c_str(), ""));
        });
        ZEL_Terminate();
        for (ZELDATA* db : {ZEL_CreateFromZEL(path.c_str()), ZEL_CreateFromZEL(ms.c_str())})
            for (int mode = 1; mode <= 16; ++mode)
            {
                const double ratio = mode <= 6 ? 0.0 : expected(size_t(mode) - 1);
                EXPECT_NEAR(ratio_of(db, mode), ratio, 1e-6 * ratio) << options << ", mode " << mode;
            }
        ZEL_Terminate();
    }
}

TEST_F(Basis, RefusesDampingThatCannotBeMeant)
{
    const std::pair<const char*, const char*> texts[] = {{"", "\"\" is not a number"},
                                                         {"2", "2 is no damping ratio"},
                                                         {"-0.01", "-0.01 is no damping ratio"},
                                                         {"0.01,7:0.02", "0.01 and 7:0.02 give one mode two ratios"},
                                                         {"0.01:0-500Hz,0.02:499Hz-", "give one mode two ratios"},
                                                         {"0.01:0-500Hzz", "is no range of frequencies"}};
    expect_refused(texts, parse_damping);
    for (const char* text : {"1", "1,2,3", "-1,0", "1,"})
        EXPECT_NE(complaint([&] { parse_rayleigh(text); }), "") << text;
    const ReducedBody body = small("4");
    const std::string path = folder.path("damped.zel");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"17:0.01", "", "no mode 17 is there to be damped: the body has 16"},
        {"6:0.01", "", "mode 6 is a rigid-body mode, which stays undamped"},
        {"7:0.01,0.02:0-1e9Hz", "", "two damping ratios"},
        {"7:0.01", "lowpass(1e6)", "lowpass and highpass change which modes there are"},
        {"0.01", "no_ortho", "generalized matrices couple the modes"},
        {"0.01", "empty", "has no damping"}};
    for (const auto& [text, options, message] : cases)
    {
        quietly([&, text = text, options = options, message = message] {
            const auto write = [&] { write_body(body, path, options, silent, parse_damping(text)); };
            EXPECT_PRED2(contains, complaint(write), message);
        });
        EXPECT_TRUE(folder.files().empty());
    }
}
