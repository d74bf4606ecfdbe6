#include "CMesh.h"

#include "freeFunctions.h"
#include "tools.h"

#include <algorithm>
#include <new>

namespace MIRT_ZAV
{
namespace
{
std::pair<VCD, VCD> keyOf(VCD a, VCD b)
{
    return a < b ? std::make_pair(a, b) : std::make_pair(b, a);
}

/// A triangle with its sorted corners beside it. The pool's addresses rise, so that among equal corners the order is
/// that of creation.
struct Func_sortT
{
    VCD c1;
    VCD c2;
    CTriangle* t;

    auto operator<=>(const Func_sortT&) const = default;
};
} // namespace

CMesh::CMesh(Voro* pVoroArg, Calc* pCalcArg, std::map<CCD, Bundle*>* pMap, const std::vector<CCD>& vFill)
    : pVoro(pVoroArg), pCalc(pCalcArg), pMapCCDBundle(pMap), vZeroCCD(vFill)
{
    poolT.init(1000, -1, 1250000);
    poolCE.init(1000, -1, 2083333);
    poolPatch.init(100, -1, 595238);
    bundleIndex.reserve(pMap->size());
    for (auto& [c, bundle] : *pMap)
        bundleIndex.insert(c, &bundle);
}

CMesh::~CMesh()
{
    reset();
    for (Bundle* const b : vAdditionalBundles)
        deleteBundle(b);
}

CTriangle* CMesh::createT(VCD a, VCD b, VCD c, VCD vcd, int config)
{
    ZAV_ASSERT(a != b && b != c && a != c, "v0!=v1 && v1!=v2 && v0!=v2");
    CTriangle* const t =
        new (poolT.take()) CTriangle{nullptr, nullptr, nullptr, nullptr, a, b, c, vcd, config, false, true};
    mmVtxT.insert(a, t);
    mmVtxT.insert(b, t);
    mmVtxT.insert(c, t);
    vT.push_back(t);
    t->pCE01 = attachEdge(a, b, t);
    t->pCE12 = attachEdge(b, c, t);
    t->pCE02 = attachEdge(a, c, t);
    return t;
}

CEdge* CMesh::attachEdge(VCD a, VCD b, CTriangle* t)
{
    const auto key = keyOf(a, b);
    const auto [ppEdge, bNew] = mEdges.insertOrFind(key, nullptr);
    if (bNew)
    {
        *ppEdge = new (poolCE.take()) CEdge(key.first, key.second);
        vCE.push_back(*ppEdge);
    }
    (*ppEdge)->vT.push_back(t);
    return *ppEdge;
}

void CMesh::unregisterTriangle(CTriangle* t)
{
    const int numDelete = mmVtxT.erase(t->c0, t) + mmVtxT.erase(t->c1, t) + mmVtxT.erase(t->c2, t);
    ZAV_ASSERT(numDelete == 3, "numDelete==3");
}

int CMesh::killDups()
{
    std::vector<std::pair<VCD, Func_sortT>> sorted;
    sorted.reserve(vT.size());
    for (CTriangle* const t : vT)
    {
        VCD corner0 = 0, corner1 = 0, corner2 = 0;
        t->getSortedCorners(corner0, corner1, corner2);
        sorted.push_back({corner0, {corner1, corner2, t}});
    }
    sortMT(sorted.begin(), sorted.end());
    std::transform(sorted.begin(), sorted.end(), vT.begin(), [](const auto& entry) { return entry.second.t; });

    const auto sameCorners = [](const auto& x, const auto& y)
    { return x.first == y.first && x.second.c1 == y.second.c1 && x.second.c2 == y.second.c2; };
    int numKilled = 0;
    for (size_t i = 0; i < sorted.size();)
    {
        size_t next = i + 1;
        if (vT[i]->isAlive())
            for (; next < sorted.size() && sameCorners(sorted[i], sorted[next]); ++next)
                if (vT[next]->isAlive())
                {
                    vT[next]->kill(this);
                    ++numKilled;
                }
        i = next;
    }
    return numKilled;
}

void CMesh::reset()
{
    destroyPatches();
    mEdges.clear();
    vT.clear();
    for (CEdge* const e : vCE)
        e->~CEdge();
    vCE.clear();
    mmVtxT.clear();
    poolT.backToFirstContainer();
    poolCE.backToFirstContainer();
}

void CMesh::reserve(size_t numT)
{
    vT.reserve(numT);
    vCE.reserve(numT + numT / 2);
    mEdges.reserve(numT + numT / 2);
}

CEdge* CMesh::getEdge(VCD a, VCD b) const
{
    CEdge* const* const found = mEdges.find(keyOf(a, b));
    return found == nullptr ? nullptr : *found;
}

void CMesh::getIncidentT(VCD v, std::vector<CTriangle*>& out) const
{
    mmVtxT.forEach(v,
                   [&out](CTriangle* t)
                   {
                       if (t->isAlive())
                           out.push_back(t);
                   });
}

void CMesh::getIncidentCE(VCD v, std::vector<CEdge*>& out) const
{
    std::vector<CEdge*> edges;
    mmVtxT.forEach(v,
                   [&edges, v](const CTriangle* t)
                   {
                       for (int i = 0; i < 3; ++i)
                           if (t->getCorner(i) != v)
                               edges.push_back(t->getCEdge(i));
                   });
    oneInstance(edges);
    out.insert(out.end(), edges.begin(), edges.end());
}

void CMesh::getAliveTriangles(std::vector<CTriangle*>& out) const
{
    out.reserve(out.size() + vT.size());
    std::copy_if(vT.begin(), vT.end(), std::back_inserter(out), [](const CTriangle* t) { return t->isAlive(); });
}

void CMesh::getCEdges(std::vector<CEdge*>& out) const
{
    out.reserve(out.size() + mEdges.size());
    for (const auto& [key, e] : mEdges)
        out.push_back(e);
}

void CMesh::getDegN(int n, std::vector<CEdge*>& out) const
{
    for (const auto& [key, e] : mEdges)
    {
        const int degree = e->getDegree();
        bool bWanted = false;
        if (n > 0)
            bWanted = degree == n;
        else if (n == -1)
            bWanted = degree >= 3;
        else if (n == -5)
            bWanted = degree == 1 || degree >= 3;
        else if (n == -99)
            bWanted = degree > 0;
        else
        {
            warning(ZAV_LOCATION, "deg=" + toString(n));
            return;
        }
        if (bWanted)
            out.push_back(e);
    }
}

double CMesh::getArea() const
{
    double area = 0.0;
    for (const CTriangle* const t : vT)
        if (t->isAlive())
            area += t->getArea(this);
    return area;
}

Point3* CMesh::getVtx(VCD v) const
{
    if (Bundle* const* const* const found = bundleIndex.find(v))
        return (**found)->pVtx;
    const auto q_it = pMapCCDBundle->find(v); // entered by someone else after the mesh was made
    ZAV_ASSERT(q_it != pMapCCDBundle->end(), "q_it!=mCCDBundle.end()");
    return q_it->second->pVtx;
}

} // namespace MIRT_ZAV
