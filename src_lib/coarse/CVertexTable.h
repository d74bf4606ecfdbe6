// The vertices of the coarse mesh, found by their codes.
#pragma once

#include "base/OrderedIndex.h"
#include "lattice/Calc.h"
#include "lattice/CellIndex.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class CEdge;
class Point3;

/// What the mesh keeps per vertex. Every edge is a link in two chains, one for each of its ends; at vertex 7 with the
/// edges (7, 9), (7, 20), (3, 7), (5, 7), made in this order:
///
///     firstUpward   -> (7, 20) -> (7, 9)        linked by nextOfLower
///     firstDownward -> (5, 7)  -> (3, 7)        linked by nextOfUpper
struct CVertex
{
    Point3* pVtx = nullptr;         // where it lies, or null while its cell has no bundle
    CEdge* firstUpward = nullptr;   // the edges to greater codes, the newest first
    CEdge* firstDownward = nullptr; // those to lower codes
};

/// Nearly all vertices are known before the first triangle is made: a sorted list of cells, which a CellIndex finds
/// within a few cache lines. Others are added one by one and go through a hash table.
class CVertexTable
{
public:
    explicit CVertexTable(std::vector<VCD> sorted)
        : codes(std::move(sorted)), vertices(codes.size()), listed(codes), numListed(codes.size())
    {
    }

    /// The vertex, or null. The pointer holds until the next vertex is added.
    CVertex* find(VCD v)
    {
        if (const size_t place = listed.find(v); place != CellIndex::notFound)
            return &vertices[place];
        const std::uint32_t* const place = others.empty() ? nullptr : others.find(v);
        return place == nullptr ? nullptr : &vertices[*place];
    }
    const CVertex* find(VCD v) const { return const_cast<CVertexTable*>(this)->find(v); }

    CVertex& findOrAdd(VCD v)
    {
        if (CVertex* const found = find(v))
            return *found;
        others.insert(v, static_cast<std::uint32_t>(vertices.size()));
        codes.push_back(v);
        return vertices.emplace_back();
    }

    /// Forgets all edges.
    void dropEdges()
    {
        for (CVertex& vertex : vertices)
            vertex.firstUpward = vertex.firstDownward = nullptr;
    }

    /// The place of a vertex that is there.
    std::uint32_t getPlace(VCD v) const { return static_cast<std::uint32_t>(find(v) - vertices.data()); }
    /// The places of all vertices by ascending code.
    std::vector<std::uint32_t> getPlacesInOrder() const
    {
        std::vector<std::uint32_t> order(codes.size());
        std::iota(order.begin(), order.end(), 0u);
        const auto byCode = [this](std::uint32_t a, std::uint32_t b) { return codes[a] < codes[b]; };
        const auto middle = order.begin() + static_cast<std::ptrdiff_t>(numListed);
        std::sort(middle, order.end(), byCode);
        if (middle != order.end())
            std::inplace_merge(order.begin(), middle, order.end(), byCode);
        return order;
    }

private:
    std::vector<VCD> codes; // the listed ones, sorted, then the others
    std::vector<CVertex> vertices;
    CellIndex listed;
    size_t numListed;
    MIRT_TOOLS::OrderedIndex<VCD, std::uint32_t> others;
};

} // namespace MIRT_ZAV
