#include "borderLoops.h"

#include <algorithm>

namespace zavtool
{
namespace
{
constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

/// Walks over edges that weren't walked before, and cuts a loop off wherever the walk meets itself:
///
///          e---d
///          |   |     on the path a b c d e the next vertex is b again: b c d e comes
///      a---b---c     off as a loop, and the walk goes on from b, here to f
///          |
///          f
///
/// So two holes that touch in a vertex come out as two loops, not as one figure of eight.
class Walker
{
public:
    explicit Walker(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& edgesArg)
        : edges(edgesArg), isUsed(edges.size(), false)
    {
        for (std::size_t i = 0; i < edges.size(); ++i)
        {
            ends.emplace_back(edges[i].first, i);
            ends.emplace_back(edges[i].second, i);
        }
        std::sort(ends.begin(), ends.end());
        for (std::size_t i = 0; i < ends.size(); ++i)
            if (i == 0 || ends[i].first != ends[i - 1].first)
                vertices.push_back({ends[i].first, i, i, nowhere});
    }

    std::vector<BorderLoop> findAll()
    {
        for (std::size_t v = 0; v < vertices.size(); ++v) // chains first, from their ends: what is left is closed then
            if (getDegree(v) % 2 == 1)
                walkFrom(v);
        for (std::size_t v = 0; v < vertices.size(); ++v)
            while (walkFrom(v))
                continue;
        return std::move(loops);
    }

private:
    struct Vertex
    {
        std::uint32_t number;
        std::size_t firstEnd;    // in ends
        std::size_t nextEnd;     // the first one that may be unused; only moves on
        std::size_t placeInPath; // nowhere when the walk isn't on it
    };

    std::size_t getDegree(std::size_t v) const
    {
        const std::size_t end = v + 1 < vertices.size() ? vertices[v + 1].firstEnd : ends.size();
        return end - vertices[v].firstEnd;
    }
    std::size_t find(std::uint32_t number) const
    {
        const auto it = std::lower_bound(vertices.begin(), vertices.end(), number,
                                         [](const Vertex& vertex, std::uint32_t n) { return vertex.number < n; });
        return static_cast<std::size_t>(it - vertices.begin());
    }

    /// The vertex at the other end of an unused edge, which counts as used then.
    std::size_t step(std::size_t v)
    {
        Vertex& vertex = vertices[v];
        for (std::size_t& i = vertex.nextEnd; i < ends.size() && ends[i].first == vertex.number; ++i)
            if (const std::size_t edge = ends[i].second; !isUsed[edge])
            {
                isUsed[edge] = true;
                return find(edges[edge].first == vertex.number ? edges[edge].second : edges[edge].first);
            }
        return nowhere;
    }

    /// \return whether there was an edge to walk on
    bool walkFrom(std::size_t v)
    {
        std::vector<std::size_t> path = {v};
        vertices[v].placeInPath = 0;
        bool bWalked = false;
        for (std::size_t next = step(v); next != nowhere; next = step(path.back()))
        {
            bWalked = true;
            if (vertices[next].placeInPath != nowhere)
                cutOff(path, vertices[next].placeInPath, true);
            else
            {
                vertices[next].placeInPath = path.size();
                path.push_back(next);
            }
        }
        if (path.size() > 1)
            cutOff(path, 0, false);
        vertices[v].placeInPath = nowhere;
        return bWalked;
    }

    /// The path from a place on becomes a loop. The vertex at that place stays: the walk goes on from there.
    void cutOff(std::vector<std::size_t>& path, std::size_t place, bool bClosed)
    {
        BorderLoop loop;
        loop.bClosed = bClosed;
        for (std::size_t i = place; i < path.size(); ++i)
        {
            loop.vertices.push_back(vertices[path[i]].number);
            if (i > place)
                vertices[path[i]].placeInPath = nowhere;
        }
        path.resize(place + 1);
        loops.push_back(std::move(loop));
    }

    const std::vector<std::pair<std::uint32_t, std::uint32_t>>& edges;
    std::vector<bool> isUsed;
    std::vector<std::pair<std::uint32_t, std::size_t>> ends; // vertex and edge, sorted
    std::vector<Vertex> vertices;                            // by number
    std::vector<BorderLoop> loops;
};
} // namespace

std::vector<BorderLoop> findBorderLoops(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& edges)
{
    return Walker(edges).findAll();
}

} // namespace zavtool
