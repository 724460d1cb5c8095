// The order of elimination is that of METIS (G. Karypis and V. Kumar, SIAM J. Sci. Comput. 20, 1998): SCOTCH's, which MUMPS would
// take, is another each time. The graph is that of nodes, a ninth of that of freedoms.
#include "fem/sparse_factor.h"

#include <metis.h>

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <utility>

namespace zel_fem
{

using Eigen::Index;

namespace
{
// Which rows are one vertex, numbered as they come.
struct Vertices
{
    std::vector<int> of_row;
    std::vector<idx_t> sizes;
};

// Neighbours of each vertex, in the form of METIS.
struct Graph
{
    std::vector<idx_t> starts, neighbours;
};
} // namespace

static Vertices vertices_of(Index rows, const std::vector<int>& groups)
{
    Vertices vertices;
    std::unordered_map<int, int> known;
    for (Index row = 0; row < rows; ++row)
    {
        int vertex = int(vertices.sizes.size());
        if (!groups.empty() && groups[size_t(row)] >= 0)
            vertex = known.try_emplace(groups[size_t(row)], vertex).first->second;
        vertices.of_row.push_back(vertex);
        vertices.sizes.resize(std::max(vertices.sizes.size(), size_t(vertex) + 1));
        ++vertices.sizes[size_t(vertex)];
    }
    return vertices;
}

// Nothing for a graph too large for METIS. A pair of vertices is met by several entries, mostly in turn: the last vertex that
// met each keeps nearly all of them from being stored.
static std::optional<Graph> graph_of(const SparseMatrix& upper, const Vertices& vertices)
{
    const size_t count = vertices.sizes.size();
    std::vector<std::vector<idx_t>> met(count);
    std::vector<int> last(count, -1);
    for (size_t column = 0; column < vertices.of_row.size(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, Index(column)); entry; ++entry)
        {
            const int from = vertices.of_row[column], to = vertices.of_row[size_t(entry.row())];
            if (from == to || std::exchange(last[size_t(to)], from) == from)
                continue;
            met[size_t(from)].push_back(to);
            met[size_t(to)].push_back(from);
        }
    Graph graph{{0}, {}};
    for (std::vector<idx_t>& own : met)
    {
        std::sort(own.begin(), own.end());
        own.erase(std::unique(own.begin(), own.end()), own.end());
        if (graph.neighbours.size() + own.size() > size_t(std::numeric_limits<idx_t>::max()))
            return {};
        graph.neighbours.insert(graph.neighbours.end(), own.begin(), own.end());
        graph.starts.push_back(idx_t(graph.neighbours.size()));
        own = {};
    }
    return graph;
}

Elimination Elimination::by_dissection(const SparseMatrix& upper, const std::vector<int>& groups, Index dense)
{
    Vertices vertices = vertices_of(upper.cols() - dense, groups);
    std::optional<Graph> graph = graph_of(upper, vertices);
    idx_t count = idx_t(vertices.sizes.size());
    std::vector<idx_t> order(vertices.sizes.size()), place(order);
    if (!graph || graph->neighbours.empty() ||
        METIS_NodeND(&count, graph->starts.data(), graph->neighbours.data(), vertices.sizes.data(), nullptr,
                     order.data(), place.data()) != METIS_OK)
        return {};
    std::vector<int> first(order.size()); // place of the first row of each vertex
    for (int at = 1; const idx_t vertex : order)
    {
        first[size_t(vertex)] = at;
        at += int(vertices.sizes[size_t(vertex)]);
    }
    Elimination elimination;
    for (const int vertex : vertices.of_row)
        elimination.places.push_back(first[size_t(vertex)]++);
    return elimination.followed_by(dense);
}

Elimination Elimination::followed_by(Index rows) const
{
    Elimination longer = *this;
    for (Index i = 0; i < rows && !places.empty(); ++i)
        longer.places.push_back(int(longer.places.size()) + 1);
    return longer;
}

} // namespace zel_fem
