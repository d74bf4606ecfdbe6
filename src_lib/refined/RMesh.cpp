#include "refined/RMesh.h"

#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "coarse/CMesh.h"
#include "refined/RPatch.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <new>
#include <type_traits>

namespace MIRT_ZAV
{
namespace
{
// Pools start tiny, as a program may hold many small meshes, and double up to blocks of 100,000,000 bytes.
constexpr int numFirstBlock = 3;
constexpr int maxVtxPerBlock = 3125000;
constexpr int maxRTPerBlock = 1136363;
constexpr int maxREPerBlock = 2500000;

using CodedVertex = std::pair<CCD, Point3*>;

/// Finds vertices by their cell codes. Neighbouring triangles have neighbouring codes: a galloping search starts at the
/// last result and doubles its step outwards before it bisects.
class VertexFinder
{
public:
    using Iterator = std::vector<CodedVertex>::const_iterator;

    /// The codes must be sorted.
    explicit VertexFinder(const std::vector<CodedVertex>& vCCDVertexArg)
        : vCCDVertex(vCCDVertexArg), itLast(vCCDVertexArg.begin())
    {
    }

    /// The vertex with this code, or the end.
    Iterator find(CCD ccd)
    {
        const Iterator it = lowerBound(ccd);
        if (it == vCCDVertex.end() || it->first != ccd)
            return vCCDVertex.end();
        return itLast = it;
    }

private:
    Iterator lowerBound(CCD ccd) const
    {
        Iterator low = itLast;
        Iterator high = itLast;
        if (low != vCCDVertex.end() && low->first < ccd)
            for (std::ptrdiff_t step = 1; high != vCCDVertex.end() && high->first < ccd; step *= 2)
            {
                low = high;
                high += std::min(step, vCCDVertex.end() - high);
            }
        else
            for (std::ptrdiff_t step = 1; low != vCCDVertex.begin() && !(low->first < ccd); step *= 2)
            {
                high = low;
                low -= std::min(step, low - vCCDVertex.begin());
            }
        const auto isBelow = [](const CodedVertex& vertex, CCD code) { return vertex.first < code; };
        return std::lower_bound(low, high, ccd, isBelow);
    }

    const std::vector<CodedVertex>& vCCDVertex;
    Iterator itLast;
};
} // namespace

RMesh::RMesh(CMesh* pCMesh) : RMesh(pCMesh->getSideLen())
{
    std::vector<CTriangle*> vCT;
    pCMesh->getAliveTriangles(vCT);
    reserve(pCMesh->getRefToBundleMap().size(), vCT.size());

    std::vector<CodedVertex> vCCDVertex;
    createVerticesOf(pCMesh, vCCDVertex);
    const auto makeTriangles = [&]
    {
        VertexFinder finder(vCCDVertex);
        for (const CTriangle* const pCT : vCT)
        {
            const auto it0 = finder.find(pCT->c0);
            const auto it1 = finder.find(pCT->c1);
            const auto it2 = finder.find(pCT->c2);
            ZAV_ASSERT(it0 != vCCDVertex.end() && it1 != vCCDVertex.end() && it2 != vCCDVertex.end(),
                       "it0!=vCCDVertex.end() && it1!=vCCDVertex.end() && it2!=vCCDVertex.end()");
            takeTriangle(it0->second, it1->second, it2->second);
        }
    };
    const auto listVertices = [&]
    {
        for (const CodedVertex& vertex : vCCDVertex)
            listVertex(vertex.second);
    };
    // Neither task of a pair touches what the other one fills: triangles beside mVtx, then edges beside mmVtxT.
    runBothMT(makeTriangles, listVertices);
    runBothMT([this] { std::for_each(vRT.begin(), vRT.end(), [this](RTriangle* pRT) { attachEdges(pRT); }); },
              [this] { std::for_each(vRT.begin(), vRT.end(), [this](RTriangle* pRT) { listAtCorners(pRT); }); });
}

/// Makes the vertices in the order of codes, which thereby becomes their order in the result. They aren't listed by
/// coordinates yet.
void RMesh::createVerticesOf(CMesh* pCMesh, std::vector<CodedVertex>& vCCDVertex)
{
    const std::map<CCD, Bundle*>& mCCDBundle = pCMesh->getRefToBundleMap();
    const std::vector<CCD>& vZeroCCD = pCMesh->getZeroCCD();
    vZeroVtx.reserve(vZeroCCD.size());
    vCCDVertex.reserve(mCCDBundle.size());
    auto itZero = vZeroCCD.begin();
    for (const auto& [ccd, pBundle] : mCCDBundle)
    {
        Point3* const pVtx = new (poolVtx.take()) Point3(*pBundle->pVtx);
        mmVtxT.addObject(pVtx);
        vCCDVertex.emplace_back(ccd, pVtx);
        while (itZero != vZeroCCD.end() && *itZero < ccd)
            ++itZero;
        if (itZero != vZeroCCD.end() && *itZero == ccd)
            vZeroVtx.push_back(pVtx);
    }
    sortMT(vZeroVtx.begin(), vZeroVtx.end());
}

RMesh::RMesh(double sideLenArg, size_t numExpectedVertices, size_t numExpectedTriangles) : sideLen(sideLenArg)
{
    poolVtx.init(numFirstBlock, -1, maxVtxPerBlock);
    poolRT.init(numFirstBlock, -1, maxRTPerBlock);
    poolRE.init(numFirstBlock, -1, maxREPerBlock);
    reserve(numExpectedVertices, numExpectedTriangles);
}

RMesh::~RMesh()
{
    for (RPatch* const pPatch : vPatches)
        delete pPatch;
    for (REdge* const pRE : vRE)
        pRE->~REdge();
    static_assert(std::is_trivially_destructible_v<RTriangle>, "the triangles go with their pool");
}

void RMesh::reserve(size_t numVertices, size_t numTriangles)
{
    const size_t numEdges = numTriangles + numTriangles * 3 / 5; // a closed mesh has 1.5 per triangle
    mVtx.reserve(numVertices);
    vRT.reserve(numTriangles);
    vRE.reserve(numEdges);
    mRE.reserve(numEdges);
    mmVtxT.reserve(numVertices, 3 * numTriangles);
}

Point3* RMesh::createVertex(const Point3& p)
{
    Point3* const pVtx = new (poolVtx.take()) Point3(p);
    mmVtxT.addObject(pVtx);
    listVertex(pVtx);
    return pVtx;
}

void RMesh::listVertex(Point3* pVtx)
{
    const auto [ppListed, bNew] = mVtx.insertOrFind(*pVtx, pVtx);
    if (!bNew && pVtx < *ppListed)
        *ppListed = pVtx;
}

RTriangle* RMesh::createT(Point3* p0, Point3* p1, Point3* p2, REdge* pRE01, REdge* pRE12, REdge* pRE02)
{
    RTriangle* const pRT = takeTriangle(p0, p1, p2);
    listAtCorners(pRT);
    attachEdges(pRT, pRE01, pRE12, pRE02);
    return pRT;
}

/// A triangle that no vertex and no edge knows yet.
RTriangle* RMesh::takeTriangle(Point3* p0, Point3* p1, Point3* p2)
{
    RTriangle* const pRT = new (poolRT.take()) RTriangle(p0, p1, p2);
    vRT.push_back(pRT);
    return pRT;
}

void RMesh::listAtCorners(RTriangle* pRT)
{
    for (const Point3* const pVtx : pRT->pVtx)
        mmVtxT.insert(pVtx, pRT);
}

/// The edges that aren't null needn't be looked for.
void RMesh::attachEdges(RTriangle* pRT, REdge* pRE01, REdge* pRE12, REdge* pRE02)
{
    const auto [p0, p1, p2] = pRT->pVtx;
    const VertexPair pair2 = makeKey(p0, p1);
    const VertexPair pair0 = makeKey(p1, p2);
    const VertexPair pair1 = makeKey(p0, p2);
    ZAV_ASSERT(pair2.first < pair2.second, "pair2.first<pair2.second");
    ZAV_ASSERT(pair0.first < pair0.second, "pair0.first<pair0.second");
    ZAV_ASSERT(pair1.first < pair1.second, "pair1.first<pair1.second");
    pRT->pRE01 = attachToEdge(pRE01, pair2, pRT);
    pRT->pRE12 = attachToEdge(pRE12, pair0, pRT);
    pRT->pRE02 = attachToEdge(pRE02, pair1, pRT);
}

/// Adds the triangle to the edge with this key: to the one given, else to the listed one, dead or alive, else to a new
/// one.
REdge* RMesh::attachToEdge(REdge* pKnownRE, const VertexPair& key, RTriangle* pRT)
{
    REdge* pRE = pKnownRE;
    if (pRE == nullptr)
    {
        const auto [ppRE, bNew] = mRE.insertOrFind(key, nullptr);
        if (bNew)
        {
            *ppRE = new (poolRE.take()) REdge(key.first, key.second);
            vRE.push_back(*ppRE);
        }
        pRE = *ppRE;
    }
    pRE->checkIn(pRT);
    return pRE;
}

size_t RMesh::getNumT() const
{
    return static_cast<size_t>(
        std::count_if(vRT.begin(), vRT.end(), [](const RTriangle* pRT) { return pRT->isAlive(); }));
}

double RMesh::getAvgLen() const
{
    double sum = 0.0;
    size_t numAlive = 0;
    for (const REdge* const pRE : vRE)
    {
        if (!pRE->isAlive())
            continue;
        sum += (*pRE->pVtx1 - *pRE->pVtx0).length();
        ++numAlive;
    }
    return numAlive == 0 ? -1.0 : sum / static_cast<double>(numAlive);
}

void RMesh::getREdges(std::vector<REdge*>& out) const
{
    out.reserve(out.size() + vRE.size());
    out.insert(out.end(), vRE.begin(), vRE.end());
}

REdge* RMesh::getEdge(Point3* a, Point3* b) const
{
    REdge* const* const ppRE = mRE.find(makeKey(a, b));
    return ppRE == nullptr ? nullptr : *ppRE;
}

bool RMesh::hasAliveEdge(Point3* a, Point3* b) const
{
    const REdge* const pRE = getEdge(a, b);
    return pRE != nullptr && pRE->isAlive();
}

bool RMesh::hasColors() const
{
    return std::any_of(vRT.begin(), vRT.end(),
                       [](const RTriangle* pRT) {
                           return pRT->isAlive() &&
                                  (pRT->pVtx[0]->hasColor() || pRT->pVtx[1]->hasColor() || pRT->pVtx[2]->hasColor());
                       });
}

void RMesh::getIncidentT(const Point3* p, std::vector<RTriangle*>& out) const
{
    forEachIncidentT(p, [&out](RTriangle* pRT) { out.push_back(pRT); });
}

void RMesh::getIncidentRE(const Point3* p, std::vector<REdge*>& out) const
{
    forEachIncidentT(p,
                     [&out, p](const RTriangle* pRT)
                     {
                         const int iOpposite = pRT->getICI(p);
                         for (int i = 0; i < 3; ++i)
                             if (i != iOpposite)
                                 out.push_back(pRT->getRE(i));
                     });
    oneInstance(out);
}

void RMesh::getRingRE(const Point3* p, std::vector<REdge*>& out) const
{
    forEachIncidentT(p, [&out, p](const RTriangle* pRT) { out.push_back(pRT->getRE(pRT->getICI(p))); });
}

void RMesh::getAliveTriangles(std::vector<RTriangle*>& out) const
{
    out.reserve(out.size() + vRT.size());
    std::copy_if(vRT.begin(), vRT.end(), std::back_inserter(out), [](const RTriangle* pRT) { return pRT->isAlive(); });
}

void RMesh::getTriangleCorners(std::vector<Point3*>& out) const
{
    out.reserve(out.size() + 3 * vRT.size());
    for (const RTriangle* const pRT : vRT)
        if (pRT->isAlive())
            out.insert(out.end(), std::begin(pRT->pVtx), std::end(pRT->pVtx));
}

void RMesh::getPoints(std::vector<Point3*>& out) const
{
    ZAV_ASSERT(out.empty(), "out.empty()");
    getTriangleCorners(out);
    oneInstance(out);
}

void RMesh::getDegN(int n, std::vector<REdge*>& out) const
{
    if (n < 0 && n != -1 && n != -99)
    {
        warning(ZAV_LOCATION, "deg=" + toString(n));
        ZAV_BUG("false");
    }
    if (n == 0) // both kinds are dead: only mRE tells edges that may come alive again from merged ones
    {
        for (const auto& [key, pRE] : mRE)
            if (!pRE->isAlive())
                out.push_back(pRE);
        return;
    }
    const auto isWanted = [n](const REdge* pRE)
    {
        const int degree = pRE->getDegree();
        return n == -1 ? degree >= 3 : n == -99 ? degree >= 1 : degree == n;
    };
    // An alive edge stands in mRE under its ends: sorting the few wanted spares putting all of mRE in order.
    const auto numBefore = static_cast<std::ptrdiff_t>(out.size());
    std::copy_if(vRE.begin(), vRE.end(), std::back_inserter(out), isWanted);
    sortMT(out.begin() + numBefore, out.end(),
           [](const REdge* pRE0, const REdge* pRE1)
           { return VertexPair(pRE0->pVtx0, pRE0->pVtx1) < VertexPair(pRE1->pVtx0, pRE1->pVtx1); });
}

void RMesh::printStatistics(const std::string& text) const
{
    std::vector<Point3*> vPoints;
    getPoints(vPoints);
    std::map<int, size_t> mDegreeToNumRE;
    for (const REdge* const pRE : vRE)
        if (pRE->isAlive())
            ++mDegreeToNumRE[pRE->getDegree()];
    const auto numColored =
        std::count_if(vPoints.begin(), vPoints.end(), [](const Point3* p) { return p->hasColor(); });

    std::cout << text << "\nvertices: " << vPoints.size() << ", with colour: " << numColored
              << "\ntriangles: " << getNumT() << '\n';
    for (const auto& [degree, numRE] : mDegreeToNumRE)
        std::cout << "edges of degree " << degree << ": " << numRE << '\n';
    std::cout << "mean edge length: " << getAvgLen() << std::endl;
}

void RMesh::unregisterTriangle(RTriangle* pRT)
{
    int numDelete = 0;
    for (const Point3* const pVtx : pRT->pVtx)
        numDelete += mmVtxT.erase(pVtx, pRT);
    ZAV_ASSERT(numDelete == 3, "numDelete==3");
}

void RMesh::updateVertex(Point3* pVtx, const Point3& newPoint)
{
    ZAV_ASSERT(*pVtx != newPoint, "*pVtx!=newPoint");
    const size_t numErased = mVtx.erase(*pVtx);
    ZAV_ASSERT(numErased == 1, "numErased==1");
    pVtx->set(newPoint.x(), newPoint.y(), newPoint.z());
    const bool bOK = mVtx.insert(newPoint, pVtx);
    ZAV_ASSERT(bOK, "bOK");
}

void RMesh::exchangeCorner(Point3* pSrc, Point3* pTrg)
{
    const REdge* const pKillEdge = getEdge(pSrc, pTrg);
    ZAV_ASSERT(pKillEdge == nullptr || pKillEdge->isAlive(), "pKillEdge==__null || pKillEdge->isAlive()");
    if (pKillEdge != nullptr)
        killTrianglesOn(pKillEdge);

    std::vector<RTriangle*> vT;
    getIncidentT(pSrc, vT);
    for (RTriangle* const pRT : vT)
        pRT->resetNNV();

    std::vector<REdge*> vMove;
    getEdgesToMove(vT, pSrc, pTrg, vMove);
    for (const REdge* const pRE : vMove)
    {
        mRE.prefetch({pRE->pVtx0, pRE->pVtx1});
        mRE.prefetch(makeKey(pRE->getOtherPoint(pSrc), pTrg));
    }
    for (REdge* const pRE : vMove)
        moveEdge(pRE, pSrc, pTrg);

    mmVtxT.erase(pSrc);
    for (RTriangle* const pRT : vT)
    {
        ZAV_ASSERT(pRT->isAlive(), "pRT->isAlive()");
        pRT->setCorner(pRT->getICI(pSrc), pTrg);
        mmVtxT.insert(pTrg, pRT);
    }
}

/// Kills the triangles that a collapse of the edge would flatten.
void RMesh::killTrianglesOn(const REdge* pKillEdge)
{
    const REdge::TriangleList vCopy = pKillEdge->vRT; // each kill takes one out of the edge's own list
    for (RTriangle* const pRT : vCopy)
        if (pRT->isAlive())
            pRT->kill(this);
}

/// The edges at pSrc of its triangles, sorted by address.
void RMesh::getEdgesToMove(const std::vector<RTriangle*>& vT, Point3* pSrc, Point3* pTrg,
                           std::vector<REdge*>& out) const
{
    for (const RTriangle* const pRT : vT)
    {
        const int iSrc = pRT->getICI(pSrc);
        for (int k = 0; k < 3; ++k)
        {
            if (k == iSrc)
                continue;
            REdge* const pRE = pRT->getRE(k);
            ZAV_ASSERT(pRE->has(pSrc), "pRE->has(pSrc)");
            ZAV_ASSERT(pRE->isAlive(), "pRE->isAlive()");
            ZAV_ASSERT(!pRE->has(pTrg), "!pRE->has(pTrg)");
            out.push_back(pRE);
        }
    }
    oneInstance(out);
}

/// Puts an edge of pSrc under the ends it gets at pTrg, or merges it into the edge that has them already.
void RMesh::moveEdge(REdge* pRE, Point3* pSrc, Point3* pTrg)
{
    const VertexPair key(pRE->pVtx0, pRE->pVtx1);
    ZAV_ASSERT(key.first < key.second, "key.first<key.second");
    mRE.erase(key);
    Point3* const pRingVtx = pRE->getOtherPoint(pSrc);
    ZAV_ASSERT(pRingVtx != pTrg, "pRingVtx!=pTrg");
    const VertexPair newKey = makeKey(pRingVtx, pTrg);
    const auto [ppListed, bNew] = mRE.insertOrFind(newKey, pRE);
    if (bNew)
    {
        pRE->pVtx0 = newKey.first;
        pRE->pVtx1 = newKey.second;
        return;
    }
    REdge* const pExistingRE = *ppListed;
    for (RTriangle* const pRT : pRE->vRT)
    {
        if (!pRT->isAlive())
            continue;
        pExistingRE->checkIn(pRT);
        pRT->replaceRE(pRE, pExistingRE);
    }
    pRE->vRT.clear();
    ZAV_ASSERT(!pRE->isAlive(), "!pRE->isAlive()");
    ZAV_ASSERT(pExistingRE->isAlive(), "pExistingRE->isAlive()");
}

} // namespace MIRT_ZAV
