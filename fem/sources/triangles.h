// Upper triangles of symmetric matrices from entries in any order, for sources.
#ifndef FEM_TRIANGLES_H
#define FEM_TRIANGLES_H

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fem/sparse_factor.h"

namespace zel_fem
{

// Columns in order by a counting sort, with all of the diagonal. each(act) calls act(row, column, value) for every entry, all of
// them in the upper triangle, and is called twice. Entries of one place are added, after twice(row, column). Zeros off the
// diagonal are left out.
template <typename Each, typename Twice>
SparseMatrix sorted_triangle(int64_t order, const Each& each, const Twice& twice)
{
    if (order > kMostEntries)
        throw std::runtime_error("a matrix of " + std::to_string(order) + " rows is too large");
    std::vector<int64_t> next(size_t(order) + 1, 0);
    each([&next](int64_t, int64_t column, double) { ++next[size_t(column) + 1]; });
    for (size_t column = 1; column < next.size(); ++column)
        next[column] += next[column - 1];
    if (next.back() > kMostEntries - order)
        throw std::runtime_error("a matrix of " + std::to_string(next.back()) + " entries is too large");
    std::vector<std::pair<int, double>> entries(static_cast<size_t>(next.back()));
    std::vector<int64_t> ends(next.begin(), next.end() - 1);
    each([&](int64_t row, int64_t column, double value) {
        entries[size_t(ends[size_t(column)]++)] = {int(row), value};
    });

    SparseMatrix sorted(order, order);
    sorted.reserve(int64_t(entries.size()) + order);
    for (int64_t column = 0; column < order; ++column)
    {
        const auto begin = entries.begin() + next[size_t(column)], end = entries.begin() + ends[size_t(column)];
        std::stable_sort(begin, end, [](const auto& a, const auto& b) { return a.first < b.first; });
        sorted.startVec(column);
        double diagonal = 0.0;
        for (auto entry = begin; entry != end;)
        {
            const int row = entry->first;
            double sum = (entry++)->second;
            for (; entry != end && entry->first == row; ++entry)
            {
                twice(row, column);
                sum += entry->second;
            }
            if (row == column)
                diagonal = sum;
            else if (sum != 0.0)
                sorted.insertBack(row, column) = sum;
        }
        sorted.insertBack(column, column) = diagonal;
    }
    sorted.finalize();
    return sorted;
}

struct Asymmetry
{
    int64_t row, column; // row < column
    double difference;
};

// The first place where two triangles, the lower one transposed, differ by more than 1e-8 of the diagonal: of the geometric mean of
// its entries, or of the largest entry where they are zero.
std::optional<Asymmetry> find_asymmetry(const SparseMatrix& upper, const SparseMatrix& lower);

} // namespace zel_fem

#endif
