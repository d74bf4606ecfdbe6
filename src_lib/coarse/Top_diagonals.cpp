// Squares that are split by both of their diagonals, and flaps at edges of degree 3.

#include "coarse/Top.h"

#include "base/sortMT.h"
#include "base/tools.h"

#include <algorithm>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
/// All bits of one axis; axes count x 0, y 1, z 2.
u64 getMask(int axis)
{
    switch (axis)
    {
    case 0:
        return ccd::xMask;
    case 1:
        return ccd::yMask;
    case 2:
        return ccd::zMask;
    default:
        ZAV_BUG("false");
    }
}

bool hasTriangleAt(const CEdge* e, VCD v)
{
    return std::any_of(e->vT.begin(), e->vT.end(),
                       [v](const CTriangle* t) { return t->isAlive() && (t->c0 == v || t->c1 == v || t->c2 == v); });
}

int countEdges(const CTriangle* t, const CEdge* without, int degree)
{
    int n = 0;
    for (int i = 0; i < 3; ++i)
        if (t->getCEdge(i) != without && t->getCEdge(i)->getDegree() == degree)
            ++n;
    return n;
}
} // namespace

void Top::unifyDiagonals()
{
    std::vector<CEdge*> vDiagonals;
    pCMesh->getCEdgesIf([](const CEdge* e) { return Calc::getUniqueSameComponent(e->v0, e->v1) >= 0; }, vDiagonals);
    for (const CEdge* const e : vDiagonals)
    {
        CTriangle *pT0 = nullptr, *pT1 = nullptr;
        if (!e->getTwoTriangles(pT0, pT1, true))
            continue;
        VCD c = 0, d = 0;
        CEdge* const e2 = getCrossingDiagonal(e, pT0, pT1, c, d);
        if (e2 == nullptr)
            continue;
        // Of two diagonals with two triangles each the first in key order loses.
        const VCD vcd = pT0->vcd;
        pT0->kill(pCMesh);
        pT1->kill(pCMesh);
        completeSquare(e, e2, c, d, vcd);
    }
}

/// The other diagonal (c, d) of the square that e and its two triangles split, if an alive edge; else null.
CEdge* Top::getCrossingDiagonal(const CEdge* e, const CTriangle* pT0, const CTriangle* pT1, VCD& c, VCD& d) const
{
    const VCD a = e->v0, b = e->v1;
    const int axis = Calc::getUniqueSameComponent(a, b);
    c = pT0->getThirdCCD(a, b);
    d = pT1->getThirdCCD(a, b);
    if (c == d || Calc::getUniqueSameComponent(c, d) != axis)
        return nullptr;
    const u64 mask = getMask(axis);
    ZAV_ASSERT((a & mask) == (b & mask), "a==b");
    ZAV_ASSERT((c & mask) == (d & mask), "c==d");
    const bool bSamePlane = (b & mask) == (c & mask);
    if (!bSamePlane)
        return nullptr;
    // A dead edge is no diagonal: a square that has just lost it would flip back.
    CEdge* const e2 = pCMesh->getEdge(c, d);
    return e2 == nullptr || e2->getDegree() == 0 ? nullptr : e2;
}

/// Makes what is missing of the two triangles on the diagonal (c, d).
void Top::completeSquare(const CEdge* e, CEdge* e2, VCD c, VCD d, VCD vcd)
{
    const VCD a = e->v0, b = e->v1;
    const bool bHasA = hasTriangleAt(e2, a), bHasB = hasTriangleAt(e2, b);
    std::vector<CTriangle*> vNew, vSplit;
    if (!bHasA)
        vNew.push_back(pCMesh->createT(c, d, a, vcd, 0));
    if (!bHasB)
        vNew.push_back(pCMesh->createT(d, c, b, vcd, 0));
    for (CTriangle* const t : vNew)
    {
        if (!t->isAlive() || !t->isDegenerate(pCMesh)) // splitting the first can take the second with it
            continue;
        CEdge* const pCE = t->pCE01;
        if (pCE->getDegree() < 2)
            std::cout << redString("\n pCE->getDegree()=" + toString(pCE->getDegree()), 0) << '\n';
        if (!pCE->trySplitNeigsKillT(pCMesh, t, 2, vSplit) && !moveOneCorner(t, 2))
            warning(ZAV_LOCATION, "trySplitNeigsKillT() and laplacianForOne() did not succeed");
    }
}

void Top::repairDeg3()
{
    std::vector<CEdge*> vDeg3, vEvil;
    pCMesh->getDegN(3, vDeg3);
    std::copy_if(vDeg3.begin(), vDeg3.end(), std::back_inserter(vEvil),
                 [this](const CEdge* e) { return isEvilDeg3(e); });
    for (CEdge* const e : vEvil)
    {
        if (e->getDegree() != 3)
            continue;
        std::vector<std::pair<double, CTriangle*>> vAreaT;
        for (CTriangle* const t : e->vT)
            if (t->isAlive())
                vAreaT.emplace_back(t->getArea(pCMesh), t);
        sortMT(vAreaT.begin(), vAreaT.end());
        std::vector<CTriangle*> vSorted;
        for (const auto& [area, t] : vAreaT)
            vSorted.push_back(t);
        tryRepairEvilDeg3(e, vSorted);
    }
}

/// Whether a sheet ends at e in a loose flap: one of the ends has exactly one border edge.
bool Top::isEvilDeg3(const CEdge* e) const
{
    std::vector<CEdge*> vIncidentCE;
    for (const VCD end : {e->v0, e->v1})
    {
        vIncidentCE.clear();
        pCMesh->getIncidentCE(end, vIncidentCE);
        if (std::count_if(vIncidentCE.begin(), vIncidentCE.end(),
                          [](const CEdge* incident) { return incident->getDegree() == 1; }) == 1)
            return true;
    }
    return false;
}

bool Top::tryRepairEvilDeg3(CEdge* e, const std::vector<CTriangle*>& vT)
{
    // The surface goes on over both other sides of its triangles. One that ends or forks there is the flap.
    for (CTriangle* const t : vT)
        if (countEdges(t, e, 2) < 2)
        {
            t->kill(pCMesh);
            return true;
        }
    // Otherwise the flap has a second triangle, an ear with two border sides:
    //
    //     ----e----
    //         |   t
    //         +
    //         |   pEarT
    for (CTriangle* const t : vT)
    {
        CTriangle* pEarT = nullptr;
        int numGood = 0;
        for (int i = 0; i < 3; ++i)
        {
            const CEdge* const f = t->getCEdge(i);
            if (f == e || f->getDegree() != 2)
                continue;
            CTriangle* const u = f->getUniqueOtherTriangle(t);
            if (countEdges(u, nullptr, 1) == 2)
                pEarT = u;
            else
                ++numGood;
        }
        if (numGood >= 2)
            continue;
        t->kill(pCMesh);
        if (pEarT != nullptr)
            pEarT->kill(pCMesh);
        return true;
    }
    return false;
}

} // namespace MIRT_ZAV
