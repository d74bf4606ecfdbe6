#include "coarse/CEdge.h"

#include "base/tools.h"
#include "coarse/CMesh.h"
#include "coarse/CPatch.h"
#include "coarse/CTriangle.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <iostream>

namespace MIRT_ZAV
{

void CEdge::getAliveTriangles(std::vector<CTriangle*>& out) const
{
    std::copy_if(vT.begin(), vT.end(), std::back_inserter(out), [](const CTriangle* t) { return t->isAlive(); });
}

bool CEdge::getTwoTriangles(CTriangle*& a, CTriangle*& b, bool bExact) const
{
    a = b = nullptr;
    int count = 0;
    for (CTriangle* const t : vT)
    {
        if (!t->isAlive())
            continue;
        if (count == 0)
            a = t;
        else if (count == 1)
            b = t;
        ++count;
    }
    return bExact ? count == 2 : count > 1;
}

CTriangle* CEdge::getTriangle(bool bMustExist, bool bUnique) const
{
    CTriangle* pRet = nullptr;
    for (CTriangle* const t : vT)
    {
        if (!t->isAlive())
            continue;
        if (!bUnique)
            return t;
        ZAV_ASSERT(pRet == nullptr, "pRet==__null");
        pRet = t;
    }
    ZAV_ASSERT(!bMustExist || pRet != nullptr, "pRet!=__null");
    return pRet;
}

CTriangle* CEdge::getUniqueOtherTriangle(const CTriangle* t) const
{
    CTriangle* other = nullptr;
    for (CTriangle* const candidate : vT)
    {
        if (candidate == t || !candidate->isAlive())
            continue;
        if (other != nullptr)
            return nullptr;
        other = candidate;
    }
    return other;
}

VCD CEdge::getOtherVCD(VCD v) const
{
    if (v == v0)
        return v1;
    if (v == v1)
        return v0;
    std::cout << "getOtherVCD bug, "
              << "CEdge " << v0 << " - " << v1 << ", degree=" << getDegree() << '\n';
    ZAV_BUG("false");
}

bool CEdge::hasAdjT(VCD a, VCD b, VCD c) const
{
    const auto isOneOf = [a, b, c](VCD v) { return v == a || v == b || v == c; };
    return std::any_of(vT.begin(), vT.end(),
                       [&](const CTriangle* t) { return isOneOf(t->c0) && isOneOf(t->c1) && isOneOf(t->c2); });
}

void CEdge::checkOut(CTriangle* t)
{
    CTriangle** const it = std::find(vT.begin(), vT.end(), t);
    if (it == vT.end())
    {
        std::cout << "CEdge::checkOut, triangle live state: " << t->isAlive() << ' ' << t->c0 << ' ' << t->c1 << ' '
                  << t->c2 << '\n';
        ZAV_BUG("false");
    }
    *it = vT.back(); // results depend on the order in which an edge lists its triangles
    vT.pop_back();
}

bool CEdge::trySplitNeigsKillT(CMesh* m, CTriangle* pKillCT, int i, std::vector<CTriangle*>& vNew)
{
    ZAV_ASSERT(pKillCT->isAlive(), "pKillCT->isAlive()");
    const VCD v = pKillCT->getCorner(i);
    const Point3 p = m->getAvgPoint(v);

    std::vector<CTriangle*> vNeigT;
    for (CTriangle* const pNeigT : vT)
    {
        if (pNeigT == pKillCT || !pNeigT->isAlive())
            continue;
        bool ok = false;
        const Vector3 n = pNeigT->getRealNNV(m, ok);
        if (!ok)
            return false;
        const int j = pNeigT->getICI(v0, v1);
        const Point3 a = m->getAvgPoint(pNeigT->getCorner(j));
        const Point3 b = m->getAvgPoint(pNeigT->getCorner((j + 1) % 3));
        const Point3 c = m->getAvgPoint(pNeigT->getCorner((j + 2) % 3));
        bool ok1 = false, ok2 = false;
        const Vector3 n1 = getNormalVector(a, b, p, ok1);
        const Vector3 n2 = getNormalVector(a, p, c, ok2);
        if (!ok1 || !ok2 || getAngleDegree(n, n1) > 90.0 || getAngleDegree(n, n2) > 90.0)
            return false;
        vNeigT.push_back(pNeigT);
    }

    pKillCT->kill(m);
    for (CTriangle* const pNeigT : vNeigT)
    {
        ZAV_ASSERT(pNeigT->isAlive(), "pNeigT->isAlive()");
        CPatch* const patch = pNeigT->getPatch();
        const int j = pNeigT->getICI(v0, v1);
        const VCD a = pNeigT->getCorner(j), b = pNeigT->getCorner((j + 1) % 3), c = pNeigT->getCorner((j + 2) % 3);
        pNeigT->kill(m);
        for (CTriangle* const pNew : {m->createT(a, b, v, 0, 0), m->createT(a, v, c, 0, 0)})
        {
            if (patch != nullptr)
                patch->add(pNew);
            vNew.push_back(pNew);
        }
    }
    return true;
}

} // namespace MIRT_ZAV
