#include "coarse/CPatch.h"

#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "coarse/CEdge.h"
#include "coarse/CMesh.h"
#include "coarse/ConEdge.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <atomic>
#include <set>

namespace MIRT_ZAV
{
namespace
{
std::uint32_t nextSeqNum()
{
    static std::atomic<std::uint32_t> lastSeqNum{0};
    return ++lastSeqNum;
}
} // namespace

CPatch::CPatch(CMesh* pCMeshArg, Calc* pCalcArg, CTriangle* pSeedArg)
    : seqNum(nextSeqNum()), pSeed(pSeedArg), pCMesh(pCMeshArg), pCalc(pCalcArg)
{
}

CPatch::~CPatch()
{
    untieMembers();
}

void CPatch::untieMembers()
{
    for (CTriangle* const t : vT)
        if (t->pPatch == this)
            t->pPatch = nullptr;
    vT.clear();
}

void CPatch::add(CTriangle* t)
{
    vT.push_back(t);
    t->pPatch = this;
}

void CPatch::setOuterBoundary()
{
    vOuterBoundary.clear();
    getEdgesWithDegree(1, vT, vOuterBoundary);
}

void CPatch::killPatchAndMembers()
{
    bAlive = false;
    for (CTriangle* const t : vT)
        if (t->isAlive())
            t->kill(pCMesh);
    untieMembers();
    vOuterBoundary.clear();
    cached = -1.0;
}

double CPatch::getArea() const
{
    double area = 0.0;
    for (const CTriangle* const t : vT)
        if (t->isAlive())
            area += t->getArea(pCMesh);
    return area;
}

void CPatch::getAllCE(std::vector<CEdge*>& out) const
{
    for (const CTriangle* const t : vT)
        if (t->isAlive())
            out.insert(out.end(), {t->pCE01, t->pCE12, t->pCE02});
    oneInstance(out);
}

void CPatch::getAllVCD(std::vector<VCD>& out) const
{
    for (const CTriangle* const t : vT)
        out.insert(out.end(), {t->c0, t->c1, t->c2});
    oneInstance(out);
}

namespace
{
int countMembers(const CPatch& patch, const CEdge* e)
{
    return static_cast<int>(std::count_if(e->vT.begin(), e->vT.end(),
                                          [&patch](const CTriangle* t) { return t->isAlive() && patch.isMember(t); }));
}
} // namespace

bool CPatch::isClosed() const
{
    if (vT.size() < 4)
        return false;
    for (const CTriangle* const t : vT)
        if (t->isAlive())
            for (int i = 0; i < 3; ++i)
                if (countMembers(*this, t->getCEdge(i)) < 2)
                    return false;
    return true;
}

double CPatch::computeOrientedVolume() const
{
    std::vector<Point3*> vCornerPoints;
    vCornerPoints.reserve(3 * vT.size());
    for (const CTriangle* const t : vT)
        if (t->isAlive())
            for (int i = 0; i < 3; ++i)
                vCornerPoints.push_back(pCMesh->getVtx(t->getCorner(i)));
    return computeVolume(vCornerPoints);
}

VCD CPatch::getMaxZCCD() const
{
    VCD highest = ~VCD(0);
    // Spread bits compare as z does. Starting from 0, a patch that lies wholly at z index 0 gets no corner, and
    // orientPatch leaves it as it is: results depend on it.
    u64 maxZ = 0;
    for (const CTriangle* const t : vT)
        for (const VCD v : {t->c0, t->c1, t->c2})
        {
            const u64 z = v & ccd::zMask;
            if (z > maxZ || (z == maxZ && z > 0 && v < highest))
            {
                highest = v;
                maxZ = z;
            }
        }
    return highest;
}

void CPatch::orientPatch()
{
    std::vector<CTriangle*> vIncT; // those of other patches, too
    pCMesh->getIncidentT(getMaxZCCD(), vIncT);
    if (vIncT.empty())
    {
        warning(ZAV_LOCATION, "reorientation failed");
        return;
    }
    Vector3 sum;
    for (const CTriangle* const t : vIncT)
    {
        // The cells' own corners: the points of bundles may have been smoothed away from the true height.
        bool ok = false;
        const Vector3 n =
            getNormalVector(pCalc->getRefPoint(t->c0), pCalc->getRefPoint(t->c1), pCalc->getRefPoint(t->c2), ok);
        if (ok)
            sum += n;
    }
    if (sum.z() >= 0.0)
        return;
    for (CTriangle* const t : vT)
        if (t->isAlive())
            t->flipNNV();
}

void CPatch::clearVisited()
{
    for (CTriangle* const t : vT)
        t->bVisited = false;
}

void CPatch::intraOrientation()
{
    clearVisited();
    std::vector<CTriangle*> stack;
    const auto visit = [&stack](CTriangle* t)
    {
        t->bVisited = true;
        stack.push_back(t);
    };
    for (CTriangle* const seed : vT)
    {
        if (!seed->isAlive() || seed->bVisited)
            continue;
        visit(seed);
        while (!stack.empty())
        {
            const CTriangle* const t = stack.back();
            stack.pop_back();
            turnUnvisitedNeighbours(t, visit);
        }
    }
    clearVisited();
    orientPatch();
}

/// The two sheets of a closed patch.
struct CPatch::Sheets
{
    std::set<CTriangle*> sPosT;
    std::set<CTriangle*> sNegT;
};

bool CPatch::splitClosedPatchKill(bool bStrict)
{
    intraOrientation();
    if (!isThin())
        return false;

    clearVisited();
    CTriangle *pCT0 = nullptr, *pCT1 = nullptr;
    CEdge* const pStartME = findRimEdge(pCT0, pCT1);
    if (pStartME == nullptr)
        return false;
    Sheets sheets;
    growSheets(pStartME, pCT0, pCT1, sheets);

    const std::vector<CTriangle*> vPos(sheets.sPosT.begin(), sheets.sPosT.end());
    const std::vector<CTriangle*> vNeg(sheets.sNegT.begin(), sheets.sNegT.end());
    const bool bPosTied = isTiedToRest(vPos), bNegTied = isTiedToRest(vNeg);
    if (bStrict && bPosTied && bNegTied)
        return false;
    const bool bKillNeg = bPosTied != bNegTied ? bPosTied : vNeg.size() <= vPos.size();
    for (CTriangle* const t : bKillNeg ? vNeg : vPos)
        t->kill(pCMesh);
    return true;
}

/// A flat closed body is as thick as its volume over the area of one side. Small patches always count as thin.
bool CPatch::isThin() const
{
    const size_t size = getSize();
    if (size <= 19)
        return true;
    const double thickness = computeOrientedVolume() / (getArea() * 0.5) / pCMesh->getSideLen(); // in cells
    return (size <= 99 && thickness < 1.0) || thickness < 0.4;
}

/// The first non-manifold edge with exactly two members on it, which are returned as well; null if there is none.
CEdge* CPatch::findRimEdge(CTriangle*& pCT0, CTriangle*& pCT1) const
{
    for (const CTriangle* const t : vT)
        for (int i = 0; i < 3; ++i)
        {
            CEdge* const pStartME = t->getCEdge(i);
            if (pStartME->getDegree() <= 2 || countMembers(*this, pStartME) != 2)
                continue;
            for (CTriangle* const u : pStartME->vT)
                if (u->isAlive() && isMember(u))
                    (pCT0 == nullptr ? pCT0 : pCT1) = u;
            ZAV_ASSERT(pStartME != nullptr && pCT0 != nullptr && pCT1 != nullptr,
                       "pStartME!=__null && pCT0!=__null && pCT1!=__null");
            return pStartME;
        }
    return nullptr;
}

/// Grows both sheets from the rim edge e at once, along the flattest connection first. A closed body becomes two layers
/// that both face as the first one does. In a cut, with the normals:
///
///                ^ ^ ^                       ^ ^ ^
///               .------.                    .------.
///     rest ----e        |         rest ----e  ^ ^   |
///               `------'                    `------'
///                v v v
///
void CPatch::growSheets(CEdge* pStartME, CTriangle* pCT0, CTriangle* pCT1, Sheets& sheets)
{
    // Unique by the angle alone: of two waiting steps with the same angle the later one is lost. Its triangle is
    // reached over another edge or stays in neither sheet. The bytes of every result depend on that.
    std::set<ConEdge> queue;
    const auto enter = [&](CTriangle* t, std::set<CTriangle*>& sheet)
    {
        t->bVisited = true;
        sheet.insert(t);
    };
    const auto insertSteps = [&](const CTriangle* t)
    {
        for (int i = 0; i < 3; ++i)
            if (t->getCEdge(i) != pStartME)
                queue.insert(ConEdge(pCMesh, t->getCEdge(i), *this));
    };

    if (!pCT0->needFlip(pCT1))
        pCT1->flipNNV();
    enter(pCT0, sheets.sPosT);
    enter(pCT1, sheets.sNegT);
    insertSteps(pCT0);
    insertSteps(pCT1);
    while (!queue.empty())
    {
        const ConEdge step = std::move(queue.extract(queue.begin()).value());
        if (step.vMemT.size() != 2)
            continue;
        CTriangle *pSrcT = step.vMemT[0], *pTrgT = step.vMemT[1];
        if (!pSrcT->bVisited)
            std::swap(pSrcT, pTrgT);
        ZAV_ASSERT(pSrcT->bVisited, "pSrcT->bVisited");
        if (pTrgT->bVisited)
            continue;
        const bool bSrcNeg = sheets.sNegT.find(pSrcT) != sheets.sNegT.end();
        if (bSrcNeg)
            ZAV_ASSERT(sheets.sPosT.find(pSrcT) == sheets.sPosT.end(), "sPosT.find(pSrcT)==sPosT.end()");
        else
            ZAV_ASSERT(sheets.sPosT.find(pSrcT) != sheets.sPosT.end(), "sPosT.find(pSrcT)!=sPosT.end()");
        enter(pTrgT, bSrcNeg == step.bSameSide ? sheets.sNegT : sheets.sPosT);
        if (pSrcT->needFlip(pTrgT) == step.bSameSide)
            pTrgT->flipNNV();
        insertSteps(pTrgT);
    }
}

/// Whether the rest of the mesh hangs on an edge of the sheet. Only edges with three or more triangles of the sheet
/// itself are asked: what splits kill depends on it.
bool CPatch::isTiedToRest(const std::vector<CTriangle*>& vSheet) const
{
    std::vector<CEdge*> vManyCE;
    getEdgesWithDegree(-3, vSheet, vManyCE);
    return std::any_of(vManyCE.begin(), vManyCE.end(),
                       [this](const CEdge* e) { return e->getDegree() > countMembers(*this, e); });
}

void getEdgesWithDegree(int mode, const std::vector<CTriangle*>& vT, std::vector<CEdge*>& out)
{
    std::vector<CEdge*> vSorted;
    vSorted.reserve(3 * vT.size());
    for (const CTriangle* const t : vT)
        if (t->isAlive())
            vSorted.insert(vSorted.end(), {t->pCE01, t->pCE12, t->pCE02});
    sortMT(vSorted.begin(), vSorted.end());

    const auto isWanted = [mode](std::ptrdiff_t m)
    {
        switch (mode)
        {
        case -1:
            return m % 2 == 1;
        case -2:
            return m % 2 == 0;
        case -3:
            return m > 2;
        case -4:
            return m % 2 == 0 && m >= 3;
        default:
            return m == mode;
        }
    };
    for (auto it = vSorted.begin(); it != vSorted.end();)
    {
        const auto runEnd = std::find_if(it, vSorted.end(), [it](const CEdge* e) { return e != *it; });
        if (isWanted(runEnd - it))
            out.push_back(*it);
        it = runEnd;
    }
}

} // namespace MIRT_ZAV
