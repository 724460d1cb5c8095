// Spans of modes of nearly equal frequencies, and which of them belong together.
#include "checks/mode_groups.h"

#include "checks/subspaces.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>

namespace zel_checks
{

using Eigen::Index;
using Eigen::MatrixXd;

std::vector<bool> rigid_modes_among(const ModeSet& set, const MatrixXd& rigid_motions, Index dimensions,
                                    const std::vector<bool>& by_number)
{
    constexpr double kElastic = 1e-4, kFarBelow = 1e-2; // squared sine of the angle to rigid motions; of frequencies
    if (dimensions <= rigid_motions.cols())
        return by_number; // at so few nodes all shapes look rigid
    std::vector<bool> rigid(size_t(set.columns.cols()));
    double lowest = std::numeric_limits<double>::infinity(); // of those that deform the body
    for (Index k = 0; k < set.columns.cols(); ++k)
    {
        const auto column = set.columns.col(k);
        const double deforming = (column - rigid_motions * (rigid_motions.transpose() * column)).squaredNorm();
        rigid[size_t(k)] = column.squaredNorm() > 0.0 && deforming <= kElastic * column.squaredNorm();
        if (!rigid[size_t(k)] && std::isfinite(set.hertz[size_t(k)]))
            lowest = std::min(lowest, std::fabs(set.hertz[size_t(k)]));
    }
    for (size_t k = 0; k < rigid.size(); ++k)
        rigid[k] = rigid[k] && !(std::fabs(set.hertz[k]) > kFarBelow * lowest);
    return rigid;
}

// Lowest first, those without frequencies behind, in their order.
static std::vector<Index> by_frequency(const ModeSet& set, std::vector<Index> modes)
{
    std::stable_sort(modes.begin(), modes.end(), [&](Index i, Index j) {
        const double f = set.hertz[size_t(i)], g = set.hertz[size_t(j)];
        return std::isnan(g) ? !std::isnan(f) : f < g;
    });
    return modes;
}

namespace
{
struct Span
{
    std::vector<Index> modes;
    bool rigid;
    MatrixXd basis; // orthonormal
};

struct Link
{
    double likeness, distance; // mean squared cosine; of the frequencies
    size_t a, b;
};
} // namespace

// The rigid-body modes first. Modes that are zero belong to no span.
static std::vector<Span> spans_of(const ModeSet& set, double cluster)
{
    std::vector<Index> all(size_t(set.columns.cols()));
    std::iota(all.begin(), all.end(), Index(0));
    std::vector<Span> spans;
    for (const bool rigid : {true, false})
    {
        double before = std::nan("");
        for (const Index k : by_frequency(set, all))
        {
            if (set.rigid[size_t(k)] != rigid || set.columns.col(k).isZero(0.0))
                continue;
            const double hertz = set.hertz[size_t(k)];
            const bool joins = rigid || hertz - before <= cluster * std::fabs(hertz); // false where one has none
            if (spans.empty() || spans.back().rigid != rigid || !joins)
                spans.push_back({{}, rigid, {}});
            spans.back().modes.push_back(k);
            before = hertz;
        }
    }
    for (Span& span : spans)
        span.basis = orthonormal(set.columns(Eigen::all, span.modes));
    return spans;
}

static double mean_hertz(const ModeSet& set, const Span& span)
{
    double sum = 0.0;
    for (const Index k : span.modes)
        sum += set.hertz[size_t(k)];
    return sum / double(span.modes.size());
}

static MatrixXd stacked(const std::vector<Span>& spans, Index rows)
{
    Index columns = 0;
    for (const Span& span : spans)
        columns += span.basis.cols();
    MatrixXd all(rows, columns);
    columns = 0;
    for (const Span& span : spans)
    {
        all.middleCols(columns, span.basis.cols()) = span.basis;
        columns += span.basis.cols();
    }
    return all;
}

// All that could belong together, the most alike first and, of those, the nearest in frequency.
static std::vector<Link> links_between(const ModeSet& a, const std::vector<Span>& spans_a, const ModeSet& b,
                                       const std::vector<Span>& spans_b)
{
    constexpr double kAlike = 0.25, kSteps = 1e6; // digits of likeness that count
    const MatrixXd cosines = stacked(spans_a, a.columns.rows()).transpose() * stacked(spans_b, b.columns.rows());
    std::vector<Link> links;
    Index row = 0;
    for (size_t i = 0; i < spans_a.size(); row += spans_a[i++].basis.cols())
    {
        const double hertz = mean_hertz(a, spans_a[i]);
        Index column = 0;
        for (size_t j = 0; j < spans_b.size(); column += spans_b[j++].basis.cols())
        {
            const Index rows = spans_a[i].basis.cols(), columns = spans_b[j].basis.cols();
            const double likeness = cosines.block(row, column, rows, columns).squaredNorm() /
                                    double(std::max<Index>(1, std::min(rows, columns)));
            const double distance = std::fabs(mean_hertz(b, spans_b[j]) - hertz);
            if (spans_a[i].rigid == spans_b[j].rigid && (likeness >= kAlike || spans_a[i].rigid))
                links.push_back({std::round(kSteps * likeness), std::isnan(distance) ? 0.0 : distance, i, j});
        }
    }
    std::stable_sort(links.begin(), links.end(), [](const Link& one, const Link& other) {
        return one.likeness != other.likeness ? one.likeness > other.likeness : one.distance < other.distance;
    });
    return links;
}

// Root of the set that a member belongs to.
static size_t root_of(std::vector<size_t>& parents, size_t member)
{
    while (parents[member] != member)
        member = parents[member] = parents[parents[member]];
    return member;
}

// Spans of both that hang together; those of b count behind those of a. A span takes partners until each of its modes has one.
static std::vector<size_t> joined_spans(const std::vector<Span>& a, const std::vector<Span>& b,
                                        const std::vector<Link>& links)
{
    std::vector<size_t> parents(a.size() + b.size()), free(parents.size());
    std::iota(parents.begin(), parents.end(), size_t(0));
    for (size_t i = 0; i < free.size(); ++i)
        free[i] = (i < a.size() ? a[i] : b[i - a.size()]).modes.size();
    for (const Link& link : links)
    {
        const size_t i = link.a, j = a.size() + link.b, taken = std::min(free[i], free[j]);
        free[i] -= taken;
        free[j] -= taken;
        if (taken > 0)
            parents[root_of(parents, j)] = root_of(parents, i);
    }
    for (size_t i = 0; i < parents.size(); ++i)
        parents[i] = root_of(parents, i);
    return parents;
}

// Moves those that have least in common with the other side out, until `count` are left.
static void keep_most_alike(const ModeSet& set, std::vector<Index>& modes, const MatrixXd& others, size_t count,
                            std::vector<Index>& left_out)
{
    if (modes.size() <= count)
        return;
    const MatrixXd basis = orthonormal(others);
    const auto likeness = [&](Index k) {
        return (basis.transpose() * set.columns.col(k)).squaredNorm() / set.columns.col(k).squaredNorm();
    };
    std::stable_sort(modes.begin(), modes.end(), [&](Index i, Index j) { return likeness(i) > likeness(j); });
    left_out.insert(left_out.end(), modes.begin() + std::ptrdiff_t(count), modes.end());
    modes.resize(count);
}

static void add_group(const ModeSet& a, std::vector<Index> modes_a, const ModeSet& b, std::vector<Index> modes_b,
                      bool rigid, Matching& matching)
{
    const MatrixXd columns_a = a.columns(Eigen::all, modes_a), columns_b = b.columns(Eigen::all, modes_b);
    const size_t count = std::min(modes_a.size(), modes_b.size());
    keep_most_alike(a, modes_a, columns_b, count, matching.a_only);
    keep_most_alike(b, modes_b, columns_a, count, matching.b_only);
    if (count == 0)
        return;
    std::sort(modes_a.begin(), modes_a.end());
    std::sort(modes_b.begin(), modes_b.end());
    if (!rigid) // whose frequencies are rounding
    {
        modes_a = by_frequency(a, std::move(modes_a));
        modes_b = by_frequency(b, std::move(modes_b));
    }
    matching.groups.push_back({std::move(modes_a), std::move(modes_b), rigid});
}

static void add_zero_modes(const ModeSet& set, std::vector<Index>& only)
{
    for (Index k = 0; k < set.columns.cols(); ++k)
        if (set.columns.col(k).isZero(0.0))
            only.push_back(k);
    std::sort(only.begin(), only.end());
}

Matching match_modes(const ModeSet& a, const ModeSet& b, double cluster)
{
    const std::vector<Span> spans_a = spans_of(a, cluster), spans_b = spans_of(b, cluster);
    const std::vector<size_t> joined = joined_spans(spans_a, spans_b, links_between(a, spans_a, b, spans_b));
    Matching matching;
    for (size_t root = 0; root < joined.size(); ++root)
    {
        std::vector<Index> modes_a, modes_b;
        bool rigid = false;
        for (size_t i = 0; i < joined.size(); ++i)
            if (joined[i] == root)
            {
                const bool of_a = i < spans_a.size();
                const Span& span = of_a ? spans_a[i] : spans_b[i - spans_a.size()];
                std::vector<Index>& modes = of_a ? modes_a : modes_b;
                modes.insert(modes.end(), span.modes.begin(), span.modes.end());
                rigid = span.rigid;
            }
        if (!modes_a.empty() || !modes_b.empty())
            add_group(a, std::move(modes_a), b, std::move(modes_b), rigid, matching);
    }
    add_zero_modes(a, matching.a_only);
    add_zero_modes(b, matching.b_only);
    const auto first_hertz = [&](const MatchedModes& group) {
        const double hertz = a.hertz[size_t(group.a.front())];
        return std::isnan(hertz) ? std::numeric_limits<double>::infinity() : hertz;
    };
    std::stable_sort(matching.groups.begin(), matching.groups.end(), [&](const auto& one, const auto& other) {
        return one.rigid != other.rigid ? one.rigid : first_hertz(one) < first_hertz(other);
    });
    return matching;
}

} // namespace zel_checks
