// Colours of the refined mesh.
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "refined/RMesh.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace MIRT_ZAV
{
namespace
{
using Color = std::array<unsigned char, 4>;

/// The corners of the vertex's triangles, each once; the vertex itself among them.
std::vector<Point3*> getCornersAround(const RMesh& mesh, const Point3* pVtx)
{
    std::vector<Point3*> vCorners;
    mesh.forEachIncidentT(pVtx, [&vCorners](const RTriangle* pRT)
                          { vCorners.insert(vCorners.end(), std::begin(pRT->pVtx), std::end(pRT->pVtx)); });
    oneInstance(vCorners);
    return vCorners;
}

unsigned char toByte(double value)
{
    return value > 255.0 ? 255 : static_cast<unsigned char>(value);
}

/// The mean colour of the coloured corners around a vertex; false when there is none. Sums and quotient are in single
/// precision, on which the last bit of a colour may depend.
bool getColorFromNeighbours(const RMesh& mesh, const Point3* pVtx, Color& color)
{
    ZAV_ASSERT(!pVtx->hasColor(), "!pVtx->hasColor()");
    std::array<float, 4> sum{};
    float numColored = 0.0f;
    for (const Point3* const p : getCornersAround(mesh, pVtx))
    {
        if (!p->hasColor())
            continue;
        const Color neighbour = {p->r, p->g, p->b, p->a};
        for (size_t i = 0; i < 4; ++i)
            sum[i] += static_cast<float>(neighbour[i]);
        numColored += 1.0f;
    }
    if (numColored == 0.0f)
        return false;
    for (size_t i = 0; i < 4; ++i)
        color[i] = toByte(static_cast<double>(sum[i] / numColored) + 0.5);
    return true;
}

/// The vertices without colour that have a triangle with one of the given ones, as a set sorted by address.
std::vector<Point3*> getUncoloredNeighbours(const RMesh& mesh, const std::vector<Point3*>& vVertices)
{
    std::vector<Point3*> vNeighbours;
    for (const Point3* const pVtx : vVertices)
        for (Point3* const p : getCornersAround(mesh, pVtx))
            if (!p->hasColor())
                vNeighbours.push_back(p);
    oneInstance(vNeighbours);
    return vNeighbours;
}

constexpr size_t numLevels = 256;

/// How often each byte occurs over the three channels of the coloured vertices, and in which range.
struct ColorHistogram
{
    std::array<std::uint32_t, numLevels> counts{};
    int minVal = 255;
    int maxVal = 0;

    explicit ColorHistogram(const std::vector<Point3*>& vPoints)
    {
        for (const Point3* const p : vPoints)
            if (p->hasColor())
                for (const int value : {p->r, p->g, p->b})
                {
                    ++counts[static_cast<size_t>(value)];
                    minVal = std::min(minVal, value);
                    maxVal = std::max(maxVal, value);
                }
    }

    /// The highest level that, with all below, holds fewer than target values; 0 when there is none.
    int getLowCut(std::int64_t target) const
    {
        std::int64_t sum = 0;
        int cut = 0;
        for (size_t i = 0; i < numLevels && (sum += counts[i]) < target; ++i)
            cut = static_cast<int>(i);
        return cut;
    }

    /// One above the highest level that, with all above, holds at least target values; 255 at most; 0 when there is
    /// none.
    int getHighCut(std::int64_t target) const
    {
        std::int64_t sum = 0;
        for (size_t i = numLevels; i-- > 0;)
            if ((sum += counts[i]) >= target)
                return std::min(static_cast<int>(i) + 1, 255);
        return 0;
    }
};

/// Truncates; values out of range, and what isn't a number, become the nearest limit or 0.
std::int64_t toCount(double value)
{
    constexpr double limit = 9.0e18;
    return std::isnan(value) ? 0 : static_cast<std::int64_t>(std::clamp(value, -limit, limit));
}

/// The new value of every level: a straight line from 0 at minVal to 255 at minVal + range.
std::array<unsigned char, numLevels> getStretchTable(double minVal, double range)
{
    std::array<unsigned char, numLevels> table{};
    const double scale = 255.0 / range;
    for (size_t i = 0; i < numLevels; ++i)
    {
        const double value = (static_cast<double>(i) - minVal) * scale + 0.5;
        if (value > 0.0) // a range of 0 gives no number at minVal, which becomes 0 as well
            table[i] = toByte(value);
    }
    return table;
}
} // namespace

void RMesh::colorizeFilledHoles()
{
    if (!hasColors())
        return;
    std::vector<Point3*> vPoints;
    getPoints(vPoints);
    std::vector<Point3*> vUncolored;
    std::copy_if(vPoints.begin(), vPoints.end(), std::back_inserter(vUncolored),
                 [](const Point3* p) { return !p->hasColor(); });

    // After the first round only those can be coloured next that lie beside what the last round coloured.
    while (!vUncolored.empty())
    {
        std::vector<std::pair<Point3*, Color>> vNew; // written at the end of the round, which sees one state
        for (Point3* const pVtx : vUncolored)
            if (Color color; getColorFromNeighbours(*this, pVtx, color))
                vNew.emplace_back(pVtx, color);
        std::vector<Point3*> vColored;
        for (const auto& [pVtx, color] : vNew)
        {
            pVtx->setColor(color[0], color[1], color[2], color[3]);
            vColored.push_back(pVtx);
        }
        vUncolored = getUncoloredNeighbours(*this, vColored);
    }
}

void RMesh::contrastSpread(double lowFraction, double highFraction)
{
    std::vector<Point3*> vPoints;
    getPoints(vPoints);
    const ColorHistogram histogram(vPoints);
    double minVal = histogram.minVal;
    double range = histogram.maxVal - minVal;
    if (range > 20.0) // colours that hardly differ are stretched without a cut
    {
        // Vertices without colour count: callers give fractions of all vertices.
        const double nVals = 3.0 * static_cast<double>(vPoints.size());
        minVal = histogram.getLowCut(toCount(lowFraction * nVals));
        range = histogram.getHighCut(toCount(nVals * highFraction)) - minVal;
    }
    const auto table = getStretchTable(minVal, range);
    for (Point3* const p : vPoints)
        if (p->hasColor())
            p->setColor(table[p->r], table[p->g], table[p->b], p->a);
}

} // namespace MIRT_ZAV
