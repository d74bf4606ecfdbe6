// The borders of a mesh: each hole, and the rim of each open piece, as a loop of edges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace zavtool
{

/// A walk along edges that have one triangle. It comes back to its start and meets no vertex twice. Only where edges of
/// three and more triangles join in, it can come to an end in between: an open chain.
struct BorderLoop
{
    std::vector<std::uint32_t> vertices; // in the order of the walk; a closed loop's first one isn't repeated
    bool bClosed = true;

    size_t getNumEdges() const { return vertices.size() - (bClosed ? 0 : 1); }
};

/// Takes the border edges apart into loops; each edge is in one. Loops that share a vertex come out separately.
/// \param edges  pairs of vertices, each pair once, without order
std::vector<BorderLoop> findBorderLoops(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& edges);

} // namespace zavtool
