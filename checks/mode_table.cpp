// What helps to judge a basis: how each mode takes part in motions of the body and of its interfaces.
#include "checks/parts.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zel_checks
{

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

template <size_t Size> static std::array<double, Size> nothing()
{
    std::array<double, Size> values;
    values.fill(kNone);
    return values;
}

// c / (2 sqrt(k m)) with critical damping written as 2 k / omega, which holds in units that do not belong together as well.
static void take_damping(ZELDATA* db, ModeTable& table)
{
    const size_t count = size_t(ZEL_NumberOfGenDamp(db));
    std::vector<int> rows(count), columns(count);
    std::vector<double> values(count), diagonal(table.modes.size());
    table.damping_couples = false;
    if (count == 0 || !ZEL_GenDampSparse(db, rows.data(), columns.data(), values.data()))
        return;
    for (size_t i = 0; i < count; ++i)
        if (rows[i] == columns[i] && size_t(rows[i]) < diagonal.size())
            diagonal[size_t(rows[i])] = values[i]; // of several at one place the last one holds
        else if (values[i] != 0.0 && size_t(std::max(rows[i], columns[i])) < diagonal.size())
            table.damping_couples =
                table.damping_couples || (rows[i] >= 0 && columns[i] >= 0 && !table.modes[size_t(rows[i])].mode.rigid &&
                                          !table.modes[size_t(columns[i])].mode.rigid);
    for (size_t k = 0; k < diagonal.size(); ++k)
    {
        ModeFacts& facts = table.modes[k];
        double radians = 0.0;
        ZEL_Eigenvalue(db, facts.mode.number, nullptr, nullptr, &radians, nullptr, nullptr);
        if (!facts.mode.rigid && facts.mode.stiffness > 0.0)
            facts.damping_ratio = diagonal[k] * radians / (2 * facts.mode.stiffness);
    }
}

static void take_participations(ZELDATA* db, const std::vector<Mode>& modes, ModeTable& table)
{
    const std::vector<Participation> all = participations_of(db, modes);
    std::array<double, 6> sum = {};
    for (size_t k = 0; k < all.size(); ++k)
    {
        table.modes[k].participation = all[k].factors;
        table.modes[k].effective_mass = all[k].share;
        for (size_t c = 0; c < 6; ++c)
            table.modes[k].effective_sum[c] = sum[c] += all[k].share[c];
    }
}

// Invariant 9 of a mode with itself is the sum of m phi phi' less its trace on the diagonal: the trace is -2 sum of m phi.phi.
static void take_energies(ZELDATA* db, ModeTable& table)
{
    const size_t count = table.modes.size();
    const int64_t whole = 4 + int64_t(9) * int64_t(count * count) * (ZEL_Double_Prec(db) ? 8 : 4);
    if (!(ZEL_Exists(db, ZEL_BLOCK_INVAR9 - 1) && ZEL_size_of_block(db, ZEL_BLOCK_INVAR9 - 1) >= whole) &&
        !nodes_tell_all(db))
        return;
    for (size_t k = 0; k < count; ++k)
    {
        const Values invariant(ZEL_Invar9(db, int(k), int(k)), std::free);
        if (!invariant)
            return;
        const double* v = invariant.get();
        const double all = -0.5 * (v[0] + v[4] + v[8]);
        for (size_t c = 0; all > 0.0 && c < 3; ++c)
            table.modes[k].kinetic_energy[c] = (v[4 * c] + all) / all;
    }
}

static double square(const double* vector)
{
    return vector[0] * vector[0] + vector[1] * vector[1] + vector[2] * vector[2];
}

static void take_flexibilities(ModeTable& table, size_t interface, const std::vector<double>& moved)
{
    double total = 0.0, so_far = 0.0;
    const auto flexibility = [&](size_t k) {
        const Mode& mode = table.modes[k].mode;
        return mode.rigid || !(mode.stiffness > 0.0) ? 0.0 : moved[k] / mode.stiffness;
    };
    for (size_t k = 0; k < moved.size(); ++k)
        total += flexibility(k);
    for (size_t k = 0; k < moved.size() && total > 0.0; ++k)
    {
        so_far += flexibility(k);
        table.modes[k].interfaces[interface].flexibility = flexibility(k) / total;
        table.modes[k].interfaces[interface].flexibility_sum = so_far / total;
    }
}

static void take_interfaces(ZELDATA* db, ModeTable& table)
{
    constexpr size_t kComponents = 6;
    const std::vector<int> nodes = interface_nodes_of(db);
    for (const int node : nodes)
        table.interface_ids.push_back(ZEL_NodeID(db, node));
    const size_t count = nodes.size(), modes = table.modes.size();
    for (ModeFacts& facts : table.modes)
        facts.interfaces.assign(count, {kNone, kNone, kNone, kNone});
    std::vector<double> shapes(kComponents * count * modes);
    if (shapes.empty() || !ZEL_ModesOfNodes(db, ZEL_MODE_SHAPE, int(count), table.interface_ids.data(), int(modes),
                                            nullptr, shapes.data()))
        return;
    const MassProperties body = mass_properties(db);
    const std::array<double, 9> tensor = tensor_about(body, body.center);
    const double turning = 0.5 * (tensor[0] + tensor[4] + tensor[8]);
    std::vector<double> moved(modes);
    for (size_t j = 0; j < count; ++j)
    {
        for (size_t k = 0; k < modes; ++k)
        {
            const double* shape = &shapes[kComponents * (k * count + j)];
            const double mass = table.modes[k].mode.mass;
            moved[k] = square(shape);
            if (body.mass > 0.0 && mass > 0.0)
                table.modes[k].interfaces[j] = {std::sqrt(moved[k] * body.mass / mass),
                                                std::sqrt(square(shape + 3) * turning / mass), kNone, kNone};
        }
        take_flexibilities(table, j, moved);
    }
}

ModeTable mode_table_of(ZELDATA* db)
{
    ModeTable table = {};
    const std::vector<Mode> modes = modes_of(db);
    for (const Mode& mode : modes)
    {
        if (!mode.hertz)
            throw std::runtime_error(
                "generalized matrices couple the modes: write the body without no_ortho, which makes "
                "them orthogonal");
        table.modes.push_back({mode, {}, nothing<6>(), nothing<6>(), nothing<6>(), nothing<3>(), {}});
    }
    take_damping(db, table);
    take_participations(db, modes, table);
    take_energies(db, table);
    take_interfaces(db, table);
    return table;
}

} // namespace zel_checks
