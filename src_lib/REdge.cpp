#include "REdge.h"

#include "tools.h"

#include <algorithm>
#include <iostream>

namespace MIRT_ZAV
{

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
