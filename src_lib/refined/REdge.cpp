#include "refined/REdge.h"

#include "base/tools.h"
#include "geometry/freeFunctions.h"
#include "refined/RMesh.h"

#include <algorithm>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
/// Whether p and q lie on one line with the corner, to within 0.01 degrees: a triangle of the three has next to no
/// area.
bool isFlatAt(const Point3* corner, const Point3* p, const Point3* q)
{
    const Vector3 u = *p - *corner;
    const Vector3 v = *q - *corner;
    if (u.isZero() || v.isZero())
        return true;
    const double angle = getAngleDegree(normalize(u), normalize(v));
    return angle < 0.01 || angle > 179.99;
}

void printTriangle(const RTriangle* pRT)
{
    std::cout << *pRT->pVtx[0] << '\n' << *pRT->pVtx[1] << '\n' << *pRT->pVtx[2] << '\n';
}
} // namespace

REdge::REdge(Point3* p0_, Point3* p1_) : pVtx0(p0_), pVtx1(p1_)
{
    ZAV_ASSERT(p0_ < p1_, "p0_<p1_");
}

Point3* REdge::getVertex(int i) const
{
    ZAV_ASSERT(i == 0 || i == 1, "false");
    return i == 0 ? pVtx0 : pVtx1;
}

Point3* REdge::getOtherPoint(const Point3* p) const
{
    ZAV_ASSERT(has(p), "false");
    return pVtx0 == p ? pVtx1 : pVtx0;
}

void REdge::getAliveTriangles(std::vector<RTriangle*>& out) const
{
    for (RTriangle* const pRT : vRT)
        if (pRT->bAlive)
            out.push_back(pRT);
}

bool REdge::getTwoTriangles(RTriangle*& t0, RTriangle*& t1, bool bExact) const
{
    t0 = nullptr;
    t1 = nullptr;
    int count = 0;
    for (RTriangle* const pRT : vRT)
    {
        if (!pRT->bAlive)
            continue;
        if (count == 0)
            t0 = pRT;
        else if (count == 1)
            t1 = pRT;
        ++count;
    }
    return bExact ? count == 2 : count > 1;
}

RTriangle* REdge::getUniqueOtherTriangle(const RTriangle* pRT) const
{
    RTriangle* pOther = nullptr;
    for (RTriangle* const pListed : vRT)
    {
        if (pListed == pRT || !pListed->bAlive)
            continue;
        if (pOther != nullptr)
            return nullptr;
        pOther = pListed;
    }
    return pOther;
}

REdge* REdge::tryFlipEdge(RMesh* pMesh, RTriangle* pT0, RTriangle* pT1)
{
    ZAV_ASSERT((pT0 == nullptr) == (pT1 == nullptr), "false");
    if (pT0 == nullptr && !getTwoTriangles(pT0, pT1, true))
        return nullptr;
    if (!pT0->isAlive() || !pT1->isAlive())
        return nullptr;
    const int i = pT0->getICI(pVtx0, pVtx1);
    Point3* const c0 = pT0->getCorner(i);
    Point3* const c1 = pT1->getThirdPoint(pVtx0, pVtx1);
    if (c1 == c0)
    {
        std::cout << "-----------------------------\nREdge::flipEdge(), BUG:\n";
        printTriangle(pT0);
        printTriangle(pT1);
        std::cout << "v0=" << *pVtx0 << "\nv1=" << *pVtx1 << std::endl;
        ZAV_BUG("false");
    }
    if (pMesh->hasAliveEdge(c0, c1) || isFlatAt(c0, c1, pVtx0) || isFlatAt(c0, c1, pVtx1))
        return nullptr;

    Point3* const pNext = pT0->getCorner((i + 1) % 3);
    ZAV_ASSERT(has(pNext), "false");
    // The rim edges: the first digit is the end of this edge where they start, the second the corner where they end.
    //
    //            c0                             c0
    //    pRE00 / T0 \ pRE10             pRE00 / | \ pRE10
    //      pVtx0 --- pVtx1      ->        pVtx0 | pVtx1
    //    pRE01 \ T1 / pRE11             pRE01 \ | / pRE11
    //            c1                             c1
    REdge* const pRE00 = pT0->getRE(pT0->getICI(pVtx1));
    REdge* const pRE10 = pT0->getRE(pT0->getICI(pVtx0));
    REdge* const pRE01 = pT1->getRE(pT1->getICI(pVtx1));
    REdge* const pRE11 = pT1->getRE(pT1->getICI(pVtx0));
    pT0->kill(pMesh);
    pT1->kill(pMesh);
    if (pNext == pVtx0)
    {
        REdge* const pNew = pMesh->createT(c0, pVtx0, c1, pRE00, pRE01)->getRE(1);
        pMesh->createT(c1, pVtx1, c0, pRE11, pRE10, pNew);
        return pNew;
    }
    REdge* const pNew = pMesh->createT(c1, pVtx0, c0, pRE01, pRE00)->getRE(1);
    pMesh->createT(c0, pVtx1, c1, pRE10, pRE11, pNew);
    return pNew;
}

void REdge::checkOut(RTriangle* pRT)
{
    RTriangle** const it = std::find(vRT.begin(), vRT.end(), pRT);
    if (it == vRT.end())
    {
        std::cout << "REdge::checkOut, triangle live state: " << pRT->bAlive << std::endl;
        ZAV_BUG("false");
    }
    *it = vRT.back();
    vRT.pop_back();
}

} // namespace MIRT_ZAV
