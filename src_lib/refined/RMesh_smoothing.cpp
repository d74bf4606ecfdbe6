// Smoothing of the refined mesh.
#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "refined/RMesh.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
/// A vertex and, behind it, the vertices that it has edges with; empty for a vertex that stays where it is.
using Neighbourhood = std::vector<Point3*>;

Neighbourhood getNeighbourhood(const RMesh& mesh, Point3* z)
{
    std::vector<REdge*> vRE;
    mesh.getIncidentRE(z, vRE);
    Neighbourhood neighbourhood(1, z);
    neighbourhood.reserve(vRE.size() + 1);
    for (const REdge* const pRE : vRE)
    {
        if (pRE->getDegree() == 1) // on a border
            return {};
        neighbourhood.push_back(pRE->getOtherPoint(z));
    }
    return neighbourhood;
}

Point3 getMean(Point3* const* first, Point3* const* last)
{
    Vector3 sum;
    for (Point3* const* it = first; it != last; ++it)
        sum += toVector(**it);
    const Vector3 mean = sum / static_cast<double>(last - first);
    return {mean.x(), mean.y(), mean.z()};
}

using VertexNeighbour = std::pair<Point3*, Point3*>;

/// The ends of border edges, as a set sorted by address.
std::vector<Point3*> getBorderVertices(const std::vector<REdge*>& vEdges)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("border", vEdges.size());
    std::vector<Point3*> vBorder;
    for (const REdge* const pRE : vEdges)
    {
        if (pRE->getDegree() == 1)
            vBorder.insert(vBorder.end(), {pRE->getVtx0(), pRE->getVtx1()});
        progress->incProgressByOne();
    }
    oneInstance(vBorder);
    progress->setDone(true);
    return vBorder;
}

/// Every vertex that isn't on a border with every vertex at the other end of its edges, sorted. Dead edges count, too:
/// one that a flip left behind goes on pulling its ends together. The positions in every smoothed mesh depend on that.
std::vector<VertexNeighbour> getNeighbours(const std::vector<REdge*>& vEdges, const std::vector<Point3*>& vBorder)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("list", vEdges.size());
    const auto isFree = [&vBorder](Point3* p) { return !std::binary_search(vBorder.begin(), vBorder.end(), p); };
    std::vector<VertexNeighbour> vPairs;
    vPairs.reserve(2 * vEdges.size());
    for (const REdge* const pRE : vEdges)
    {
        Point3* const v0 = pRE->getVtx0();
        Point3* const v1 = pRE->getVtx1();
        if (isFree(v0))
            vPairs.emplace_back(v0, v1);
        if (isFree(v1))
            vPairs.emplace_back(v1, v0);
        progress->incProgressByOne();
    }
    sortMT(vPairs.begin(), vPairs.end());
    progress->setDone(true);
    return vPairs;
}

using MovedVertex = std::pair<Point3*, Point3>;

/// The mean of every vertex's neighbours at the present positions.
void getMeans(const std::vector<VertexNeighbour>& vPairs, Progress* progress, std::vector<MovedVertex>& out)
{
    for (auto group = vPairs.begin(); group != vPairs.end();)
    {
        Vector3 sum;
        auto it = group;
        for (; it != vPairs.end() && it->first == group->first; ++it)
            sum += toVector(*it->second);
        const Vector3 mean = sum / static_cast<double>(it - group);
        out.emplace_back(group->first, Point3(mean.x(), mean.y(), mean.z()));
        progress->incProgressBy(static_cast<std::uint64_t>(it - group));
        group = it;
    }
}
} // namespace

void RMesh::smoothZeros(int nIter)
{
    std::vector<Neighbourhood> vRecords(vZeroVtx.size());
    forSlicesMT(vZeroVtx.size(), 2,
                [&](size_t begin, size_t end)
                {
                    for (size_t i = begin; i < end; ++i)
                        vRecords[i] = getNeighbourhood(*this, vZeroVtx[i]);
                });
    if (vRecords.size() <= 3) // so few stay where they are; the bytes of results depend on it
        return;
    for (int iter = 0; iter < nIter; ++iter)
        for (const Neighbourhood& record : vRecords)
        {
            if (record.empty())
                continue;
            // Moved at once, so that a later vertex of the round sees it. The vertex itself takes part in its mean.
            const Point3 mean = getMean(record.data(), record.data() + record.size());
            if (mean.isFinite() && !hasVertex(mean))
                updateVertex(record.front(), mean);
        }
}

void RMesh::smoothAll(int nIter)
{
    std::vector<REdge*> vEdges;
    getREdges(vEdges);
    const std::vector<Point3*> vBorder = getBorderVertices(vEdges);
    const std::vector<VertexNeighbour> vPairs = getNeighbours(vEdges, vBorder);
    std::vector<MovedVertex> vMoved;
    for (int iter = 0; iter < nIter; ++iter)
    {
        Progress* const progress = getThreadProgress()->getChildProgressSetTodo("it%" + toString(iter), vPairs.size());
        vMoved.clear();
        getMeans(vPairs, progress, vMoved);
        for (const auto& [pVtx, mean] : vMoved)
            if (mean.isFinite() && !hasVertex(mean) && *pVtx != mean)
                updateVertex(pVtx, mean);
        progress->stopClock();
    }
}

bool RMesh::laplacianForOne(Point3* p)
{
    std::vector<REdge*> vIncRE;
    getIncidentRE(p, vIncRE);
    if (vIncRE.empty())
        return false;
    Vector3 sum;
    for (const REdge* const pRE : vIncRE)
        sum += toVector(*pRE->getOtherPoint(p));
    const Vector3 mean = sum / static_cast<double>(vIncRE.size());
    Point3 target(mean.x(), mean.y(), mean.z());
    const double limit = 0.1 * getSideLen();
    if (const Vector3 way = target - *p; way.length() > limit)
        target = *p + way * (limit / way.length());
    if (!leaveOtherVertices(target, limit))
        return false;

    std::vector<RTriangle*> vIncT;
    getIncidentT(p, vIncT);
    for (const RTriangle* const pRT : vIncT)
    {
        const double angle = pRT->getDevIfRepl(pRT->getICI(p), target, false);
        std::cout << "devAngle would be " << angle << std::endl;
        if (angle > 170.0)
            return false;
    }
    if (target == *p)
        return true;
    std::cout << "updateVertex" << std::endl;
    updateVertex(p, target);
    return true;
}

/// Shifts a point at random until no vertex is listed there. False after many tries: far from the origin the shifts can
/// be too small to change the coordinates.
bool RMesh::leaveOtherVertices(Point3& p, double limit) const
{
    const auto getShift = [limit] { return std::rand() * limit / 2147483647.0; };
    for (int numTries = 0; hasVertex(p); ++numTries)
    {
        if (numTries == 1000)
            return false;
        const double x = p.x() + getShift();
        const double y = p.y() + getShift();
        const double z = p.z() + getShift();
        p.set(x, y, z);
    }
    return true;
}

} // namespace MIRT_ZAV
