// Everything rests on sorting: equal corners come to stand side by side and are one vertex, equal pairs of vertices are
// one edge.
#include "meshStatistics.h"

#include "borderLoops.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace zavtool
{
namespace
{
using MIRT_ZAV::Point3;
using MIRT_ZAV::Vector3;

/// \return the number of triangles removed
size_t removeNotFinite(std::vector<Point3>& corners)
{
    size_t kept = 0;
    for (size_t i = 0; i + 2 < corners.size(); i += 3)
        if (corners[i].isFinite() && corners[i + 1].isFinite() && corners[i + 2].isFinite())
        {
            std::copy_n(corners.begin() + static_cast<std::ptrdiff_t>(i), 3,
                        corners.begin() + static_cast<std::ptrdiff_t>(kept));
            kept += 3;
        }
    const size_t numRemoved = (corners.size() - kept) / 3;
    corners.resize(kept);
    return numRemoved;
}

/// A number for each corner; equal coordinates get the same number.
std::vector<std::uint32_t> weld(const std::vector<Point3>& corners)
{
    struct Entry
    {
        double x, y, z;
        std::uint32_t corner;
        bool operator<(const Entry& e) const { return x != e.x ? x < e.x : y != e.y ? y < e.y : z < e.z; }
    };
    std::vector<Entry> entries(corners.size());
    for (size_t i = 0; i < corners.size(); ++i)
        entries[i] = {corners[i].x(), corners[i].y(), corners[i].z(), static_cast<std::uint32_t>(i)};
    std::sort(entries.begin(), entries.end());

    std::vector<std::uint32_t> vertexOf(corners.size());
    std::uint32_t vertex = 0;
    for (size_t i = 0; i < entries.size(); ++i)
    {
        if (i > 0 && entries[i - 1] < entries[i])
            ++vertex;
        vertexOf[entries[i].corner] = vertex;
    }
    return vertexOf;
}

/// Sets of vertices that hang together (union-find). The smallest vertex of a set stands for it.
class Components
{
public:
    explicit Components(size_t numVertices) : parent(numVertices) { std::iota(parent.begin(), parent.end(), 0u); }

    std::uint32_t find(std::uint32_t vertex)
    {
        while (parent[vertex] != vertex)
            vertex = parent[vertex] = parent[parent[vertex]];
        return vertex;
    }
    void join(std::uint32_t a, std::uint32_t b)
    {
        a = find(a);
        b = find(b);
        parent[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<std::uint32_t> parent;
};

double getSmallestAngle(const Point3& a, const Point3& b, const Point3& c)
{
    const auto angle = [](const Vector3& u, const Vector3& v)
    {
        // The arc tangent stays exact for angles near 0, unlike the arc cosine.
        return std::atan2(MIRT_ZAV::crossProduct(u, v).length(), u * v) * (180.0 / 3.14159265358979323846);
    };
    return std::min({angle(b - a, c - a), angle(a - b, c - b), angle(a - c, b - c)});
}

struct Edge
{
    std::uint64_t vertices; // the smaller number in the upper half
    std::uint32_t corner;   // the first of its ends in one of its triangles
    bool bUpwards;          // that one is the smaller number
};

/// \param borderEdges  the edges with one triangle are appended
void countEdges(const std::vector<Point3>& corners, std::vector<Edge>& edges, MeshStatistics& result,
                std::vector<std::pair<std::uint32_t, std::uint32_t>>& borderEdges)
{
    std::sort(edges.begin(), edges.end(), [](const Edge& e, const Edge& f) { return e.vertices < f.vertices; });
    double sumOfLengths = 0.0;
    for (size_t begin = 0, end = 0; begin < edges.size(); begin = end)
    {
        while (end < edges.size() && edges[end].vertices == edges[begin].vertices)
            ++end;
        const size_t degree = end - begin;
        ++(degree == 1 ? result.numBorderEdges : degree == 2 ? result.numRegularEdges : result.numMultipleEdges);
        result.numTurnedEdges += degree == 2 && edges[begin].bUpwards == edges[begin + 1].bUpwards;
        ++result.numEdges;
        if (degree == 1)
            borderEdges.emplace_back(edges[begin].vertices >> 32, edges[begin].vertices & 0xffffffff);
        const size_t from = edges[begin].corner;
        const size_t to = from % 3 == 2 ? from - 2 : from + 1;
        sumOfLengths += (corners[to] - corners[from]).length();
    }
    result.meanEdgeLength = edges.empty() ? 0.0 : sumOfLengths / static_cast<double>(result.numEdges);
}

std::vector<BorderSize> measureBorders(const std::vector<Point3>& corners, const std::vector<std::uint32_t>& vertexOf,
                                       const std::vector<std::pair<std::uint32_t, std::uint32_t>>& borderEdges)
{
    std::vector<Point3> places(borderEdges.empty() ? 0 : corners.size()); // of the vertices
    for (size_t i = 0; i < places.size(); ++i)
        places[vertexOf[i]] = corners[i];
    std::vector<BorderSize> borders;
    for (const BorderLoop& loop : findBorderLoops(borderEdges))
    {
        std::vector<Point3> points;
        for (const std::uint32_t vertex : loop.vertices)
            points.push_back(places[vertex]);
        BorderSize border{loop.getNumEdges(), 0.0, getBoundingBox(points), loop.bClosed};
        for (size_t i = 0; i < border.numEdges; ++i)
            border.length += (points[(i + 1) % points.size()] - points[i]).length();
        borders.push_back(border);
    }
    std::stable_sort(borders.begin(), borders.end(),
                     [](const BorderSize& a, const BorderSize& b) { return a.length > b.length; });
    return borders;
}

size_t countRepeated(std::vector<std::array<std::uint32_t, 3>>& triangles)
{
    for (auto& vertices : triangles)
        std::sort(vertices.begin(), vertices.end());
    std::sort(triangles.begin(), triangles.end());
    size_t numRepeated = 0;
    for (size_t i = 1; i < triangles.size(); ++i)
        numRepeated += triangles[i - 1] == triangles[i];
    return numRepeated;
}

void describeAngles(std::vector<double>& angles, MeshStatistics& result)
{
    if (angles.empty())
        return;
    const auto share = [&](double limit)
    {
        const auto numBelow = std::count_if(angles.begin(), angles.end(), [&](double a) { return a < limit; });
        return static_cast<double>(numBelow) / static_cast<double>(angles.size());
    };
    result.shareBelow5 = share(5.0);
    result.shareBelow10 = share(10.0);
    result.shareBelow30 = share(30.0);
    result.leastAngle = *std::min_element(angles.begin(), angles.end());
    const auto middle = angles.begin() + static_cast<std::ptrdiff_t>(angles.size() / 2);
    std::nth_element(angles.begin(), middle, angles.end());
    result.medianAngle = *middle;
}
} // namespace

BoundingBox getBoundingBox(const std::vector<Point3>& points)
{
    BoundingBox box{points.front(), points.front()};
    for (const Point3& p : points)
    {
        box.min.set(std::min(box.min.x(), p.x()), std::min(box.min.y(), p.y()), std::min(box.min.z(), p.z()));
        box.max.set(std::max(box.max.x(), p.x()), std::max(box.max.y(), p.y()), std::max(box.max.z(), p.z()));
    }
    return box;
}

MeshStatistics getMeshStatistics(std::vector<Point3>& corners)
{
    MeshStatistics result;
    result.numNotFinite = removeNotFinite(corners);
    const std::vector<std::uint32_t> vertexOf = weld(corners);

    Components components(corners.size());
    std::vector<bool> isUsed(corners.size());
    std::vector<Edge> edges;
    std::vector<double> angles;
    std::vector<std::array<std::uint32_t, 3>> triangles;
    edges.reserve(corners.size());
    angles.reserve(corners.size() / 3);
    for (size_t i = 0; i + 2 < corners.size(); i += 3)
    {
        const std::uint32_t v[3] = {vertexOf[i], vertexOf[i + 1], vertexOf[i + 2]};
        if (v[0] == v[1] || v[1] == v[2] || v[2] == v[0])
        {
            ++result.numCollapsed;
            continue;
        }
        ++result.numTriangles;
        triangles.push_back({v[0], v[1], v[2]});
        angles.push_back(getSmallestAngle(corners[i], corners[i + 1], corners[i + 2]));
        for (size_t k = 0; k < 3; ++k)
        {
            const std::uint32_t from = v[k];
            const std::uint32_t to = v[(k + 1) % 3];
            isUsed[from] = true;
            components.join(from, to);
            edges.push_back({static_cast<std::uint64_t>(std::min(from, to)) << 32 | std::max(from, to),
                             static_cast<std::uint32_t>(i + k), from < to});
        }
    }
    for (std::uint32_t vertex = 0; vertex < isUsed.size(); ++vertex)
        if (isUsed[vertex])
        {
            ++result.numVertices;
            result.numComponents += components.find(vertex) == vertex;
        }
    std::vector<std::pair<std::uint32_t, std::uint32_t>> borderEdges;
    countEdges(corners, edges, result, borderEdges);
    result.borders = measureBorders(corners, vertexOf, borderEdges);
    describeAngles(angles, result);
    result.numRepeated = countRepeated(triangles);
    return result;
}

} // namespace zavtool
