// The operations of the coarse mesh that use or change positions in space: additional bundles, collapses, vertex moves.

#include "coarse/CMesh.h"

#include "base/tools.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <cfloat>
#include <cstdlib>
#include <iostream>
#include <memory>

namespace MIRT_ZAV
{

void CMesh::addBundle(CCD c, double x, double y, double z)
{
    const bool bMiddle = x == DBL_MAX && y == DBL_MAX && z == DBL_MAX;
    const Point3 position = bMiddle ? pCalc->getMidPoint(c) : Point3(x, y, z);
    ZAV_ASSERT(pCalc->getCCD(&position) == c, "pCalc->getCCD(pVtx)==ccd");
    auto pVtx = std::make_unique<Point3>(position);
    auto pBundle = std::make_unique<Bundle>(Bundle{pVtx.get(), c, nullptr, position});
    vAdditionalBundles.push_back(pBundle.get());
    pVtx.release(); // from here on the list owns both
    Bundle* const b = pBundle.release();
    sAdditionalVtx.insert(b->pVtx);
    (*pMapCCDBundle)[c] = b;
    vertices.findOrAdd(c).pVtx = b->pVtx;
    averageBundle(b);
}

namespace
{
/// Sum and number of the neighbours' positions.
struct RingSum
{
    Vector3 sum;
    int count = 0;

    void add(const RingSum& other)
    {
        sum += other.sum;
        count += other.count;
    }
};
} // namespace

void CMesh::averageBundle(Bundle* b)
{
    std::vector<CEdge*> vIncidentCE;
    getIncidentCE(b->ccd, vIncidentCE);
    if (vIncidentCE.size() < 2)
        return;

    RingSum regular, additional;
    const Point3* pAnyRingVtx = nullptr; // in the end the last one of the ring: results depend on which
    for (const CEdge* const pCE : vIncidentCE)
    {
        ZAV_ASSERT(pCE->getDegree() > 0, "pCE->getDegree()>0");
        Point3* const pRingVtx = findVtx(pCE->getOtherVCD(b->ccd));
        if (pRingVtx == nullptr)
            continue;
        pAnyRingVtx = pRingVtx;
        const bool bAdditional = sAdditionalVtx.find(pRingVtx) != sAdditionalVtx.end();
        (bAdditional ? additional : regular).add({toVector(*pAnyRingVtx), 1});
    }
    if (regular.count < 3)
        regular.add(additional);
    if (regular.count == 0)
    {
        *b->pVtx = pCalc->getMidPoint(b->ccd);
        return;
    }
    ZAV_ASSERT(pAnyRingVtx != nullptr, "pAnyRingVtx!=__null");
    const Vector3 avg = regular.sum / static_cast<double>(regular.count);
    const int r = std::rand();
    const Point3 moved = *pAnyRingVtx + (avg - toVector(*pAnyRingVtx)) * 1.003;
    // Results depend on this formula, and on keeping the point even where it leaves the bundle's cell. The last term
    // sets vertices with the same ring apart.
    *b->pVtx = Point3(moved.x() + r * 1e-5 / 2147483647.0, moved.y(), moved.z());
}

void CMesh::averageBundles()
{
    for (Bundle* const b : vAdditionalBundles)
        averageBundle(b);
}

bool CMesh::integrateBundle(Bundle* b)
{
    std::vector<CEdge*> vIncidentCE;
    getIncidentCE(b->ccd, vIncidentCE);
    return std::any_of(vIncidentCE.begin(), vIncidentCE.end(),
                       [&](CEdge* e) { return collapseEdgeToEndpoint(e, b->ccd, e->getOtherVCD(b->ccd)); });
}

void CMesh::integrateAdditionalBundles()
{
    // Both keep the order of creation: the bundles lie on the heap, where the order of addresses is accidental, and the
    // order in which they are averaged shows in the result.
    std::vector<Bundle*> vRemaining;
    std::vector<Bundle*> vIntegrated;
    for (Bundle* const b : vAdditionalBundles)
        (integrateBundle(b) ? vIntegrated : vRemaining).push_back(b);
    vAdditionalBundles.swap(vRemaining);
    for (Bundle* const b : vIntegrated)
    {
        sAdditionalVtx.erase(b->pVtx);
        deleteBundle(b); // leaves a dangling entry in the map, but isn't reached: see canCollapseWithoutDups
    }
}

void CMesh::deleteBundle(Bundle* b)
{
    delete b->pVtx;
    delete b->pOwned;
    delete b;
}

bool CMesh::canCollapseWithoutDups(VCD src, VCD trg) const
{
    std::vector<CTriangle*> vSrcT, vTrgT;
    getIncidentT(src, vSrcT);
    getIncidentT(trg, vTrgT);
    if (vSrcT.empty() || vTrgT.empty())
        return false;
    // A triangle on the edge itself is at src and at trg, and forbids the collapse by its own side (p, q): no edge with
    // a triangle passes, and additional bundles stay. The bytes of every result depend on that.
    for (const CTriangle* const t : vSrcT)
    {
        const int i = t->getICI(src);
        const VCD p = t->getCorner((i + 1) % 3), q = t->getCorner((i + 2) % 3);
        for (const CTriangle* const u : vTrgT)
            if (u->getHEDirection2(p, q) != 0)
                return false;
    }
    return true;
}

bool CMesh::collapseEdgeToEndpoint(CEdge* e, VCD src, VCD trg)
{
    ZAV_ASSERT((src == e->v0 && trg == e->v1) || (src == e->v1 && trg == e->v0),
               "(src==pCE->v0 && trg==pCE->v1) || (src==pCE->v1 && trg==pCE->v0)");
    if (e->getDegree() == 0 || !canCollapseWithoutDups(src, trg))
        return false;
    std::vector<CTriangle*> vIncT;
    getIncidentT(src, vIncT);
    ZAV_ASSERT(!vIncT.empty(), "!vIncT.empty()");
    for (CTriangle* const t : vIncT)
    {
        const int i = t->getICI(src);
        const VCD next = t->getCorner((i + 1) % 3), previous = t->getCorner((i + 2) % 3);
        t->kill(this);
        if (next != trg && previous != trg)
            createT(trg, next, previous, t->vcd, 0);
    }
    return true;
}

bool CMesh::laplacianForOne(VCD v)
{
    std::vector<CEdge*> vIncidentCE;
    getIncidentCE(v, vIncidentCE);
    if (vIncidentCE.empty())
        return false;
    Vector3 sum;
    for (const CEdge* const pCE : vIncidentCE)
        sum += toVector(getAvgPoint(pCE->getOtherVCD(v)));
    const Vector3 mean = sum / static_cast<double>(vIncidentCE.size());
    Point3 avg(mean.x(), mean.y(), mean.z());

    Point3* const pVtx = getVtx(v);
    const double maxMove = getSideLen() * 0.1;
    const Vector3 d = avg - *pVtx;
    if (d.length() > maxMove)
        avg = *pVtx + d * (maxMove / d.length());

    std::vector<CTriangle*> vIncT;
    getIncidentT(v, vIncT);
    for (const CTriangle* const t : vIncT)
    {
        const double dev = t->getDevIfRepl(this, t->getICI(v), avg);
        std::cout << "devAngle would be " << dev << '\n';
        if (dev > 90.0)
            return false;
    }
    pVtx->set(avg.x(), avg.y(), avg.z());
    return true;
}

void CMesh::treatDegenerateT()
{
    const std::vector<CTriangle*> snapshot = vT;
    std::vector<CTriangle*> vNew; // only because the split asks for it
    for (auto it = snapshot.rbegin(); it != snapshot.rend(); ++it)
    {
        CTriangle* const t = *it;
        if (!t->isAlive() || !t->isDegenerate(this))
            continue;
        const int i = t->getLargestEdgeICI(this);
        if (t->getCEdge(i)->trySplitNeigsKillT(this, t, i, vNew))
            continue;
        std::cout << "\n Not able to split: " << *t << '\n';
        for (int k = 0; k < 3; ++k)
            if (laplacianForOne(t->getCorner((i + k) % 3)))
                break;
    }
}

} // namespace MIRT_ZAV
