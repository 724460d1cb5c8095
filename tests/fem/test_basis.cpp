// Whether a basis is good enough: effective masses against the solver's own, ranges of frequencies, damping of what is written.
#include "checks/checks.h"
#include "fem/figures.h"
#include "fem/invariants.h"
#include "fem/sources/text_file.h"
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
        return reduce(*ccx::make_source({.deck = kSmall + "small"}), options, silent);
    }
    TemporaryFolder folder;
};

// Rows of six numbers behind a mode's number, below a heading of the solver's .dat.
static std::vector<std::array<double, 6>> table_of(const std::string& heading)
{
    std::vector<std::array<double, 6>> rows;
    LineReader lines(kSmall + "on_springs.dat");
    bool inside = false;
    for (std::string_view line; lines.next(line);)
    {
        std::istringstream fields{std::string(line)};
        int mode = 0;
        std::array<double, 6> row;
        if (inside && fields >> mode >> row[0] >> row[1] >> row[2] >> row[3] >> row[4] >> row[5])
            rows.push_back(row);
        else if (!line.empty() && line.find("MODE NO.") == std::string::npos)
            inside = line.find(heading) != std::string::npos;
    }
    return rows;
}

// The short beam on nine springs, whose modes carry shares of every mass and inertia. The solver takes moments about the origin.
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
    const auto factors = table_of("P A R T I C"), masses = table_of("E F F E C T I V E   M O D A L");
    const zel_checks::MassProperties mass = zel_checks::mass_properties(db);
    const Vector3d center(mass.center.data());
    ASSERT_EQ(masses.size(), 14u);
    const auto expect_digits = [](double value, double printed, size_t mode) {
        EXPECT_NEAR(std::abs(value), std::abs(printed), 1e-6 * std::abs(printed)) << "mode " << mode + 1;
    };
    for (size_t k = 0; k < 14; ++k)
    {
        const Vector3d p(table[k].participation.data()), h(table[k].participation.data() + 3);
        const Vector3d about_origin = h + center.cross(p);
        for (size_t c = 0; c < 3; ++c)
        {
            expect_digits(p[Index(c)], factors[k][c], k);
            expect_digits(about_origin[Index(c)], factors[k][3 + c], k);
            expect_digits(table[k].effective_mass[c] * mass.mass, masses[k][c], k);
        }
    }
}

TEST_F(Basis, HasAllModesOfARangeOfFrequencies)
{
    const Model model = read_model(kSmall + "small");
    const VectorXd values = generalized_eigenvalues(dense(model.matrices->stiffness), dense(model.matrices->mass));
    const auto count = [&](double lowest, double highest) {
        return (values.tail(values.size() - 6).array() >= lowest && values.tail(values.size() - 6).array() < highest)
            .count();
    };
    const double limits[] = {
        0.0, 1e-9 * values[6], 0.5 * values[6], 1.1 * values[6], 0.5 * (values[8] + values[9]), 1.5 * values[20]};
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
                EXPECT_NEAR(free.stiffness(6 + i, 6 + i), values[6 + count(0.0, lowest) + i], 1e-7 * values[6 + i]);
        }
    for (const char* wrong :
         {"", "-1", "3.5", "100001", "0-2000", "2000Hz-", "200-100Hz", "0-nanHz", "-5-10Hz", "0-1e3Hz "})
        EXPECT_NE(complaint([&] { small(wrong); }).find("no number of modes"), std::string::npos) << wrong;
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
    const std::vector<int>& root = model.node_sets.at("ROOT");
    const std::vector<int>& tip = model.node_sets.at("TIP");
    MatrixXd pulls = MatrixXd::Zero(k.rows(), 3);
    std::vector<Index> inner;
    for (Index i = 0; i < k.rows(); ++i)
    {
        const auto [node, component] = model.matrices->rows[size_t(i)];
        const bool at_root = std::count(root.begin(), root.end(), node) > 0;
        if (at_root)
            pulls(i, component) = 1.0 / double(root.size());
        if (!at_root && std::count(tip.begin(), tip.end(), node) == 0)
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
    const Model tied = read_model(kSmall + "small_tied");
    const VectorXd full = generalized_eigenvalues(dense(tied.matrices->stiffness), dense(tied.matrices->mass));
    for (const char* modes : {"0", "12", "30"})
    {
        const ReducedBody reduced = small(modes);
        const Body& body = *reduced.body;
        const VectorXd values = eigenvalues_of(reduced);
        Index agreeing = 0;
        while (agreeing + 6 < values.size() && std::sqrt(values[6 + agreeing] / full[6 + agreeing]) <= 1.01)
            ++agreeing;
        const double up_to = agreeing > 0 ? hertz(full[5 + agreeing], body.units) : 0.0;
        EXPECT_EQ(number_of(reduced, "verified", 0), double(agreeing)) << modes;
        EXPECT_NEAR(number_of(reduced, "verified", 2), up_to, 1e-6 * up_to) << modes;
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
    for (const auto& [text, message] : texts)
        EXPECT_NE(complaint([text = text] { parse_damping(text); }).find(message), std::string::npos) << text;
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
        std::string said;
        quietly([&, text = text, options = options] {
            said = complaint([&] { write_body(body, path, options, silent, parse_damping(text)); });
        });
        EXPECT_NE(said.find(message), std::string::npos) << text << ": " << said;
        EXPECT_TRUE(folder.files().empty());
    }
}
