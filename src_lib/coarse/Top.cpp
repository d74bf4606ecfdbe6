// The stages of the repair, the small repairs at borders, and the completion of cells.

#include "coarse/Top.h"

#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>

namespace MIRT_ZAV
{

Top::Top(CMesh* pCMeshArg, Calc* pCalcArg) : pCMesh(pCMeshArg), pCalc(pCalcArg), rotx(pCMeshArg, true)
{
}

void Top::finalizeReconstructedMesh(Voro* pVoro)
{
    unifyAllDiagonals();
    while (patchPairSolving(true)) // strictly as long as the mesh is raw
        continue;
    cbsComplete(pVoro);
    killDegenerate();
    integrateBorders();
    solveRemainingPatchPairs();
    finish();
}

void Top::finalizeOneMelted(Voro* pVoro)
{
    constexpr size_t maxTiny = 8;
    unifyDiagonals();
    cbsComplete(pVoro);
    cbsComplete(pVoro); // once more: the cells of the first round open borders of their own
    std::vector<CEdge*> vBorders;
    getBordersKillDeg1nn(vBorders);
    for (CEdge* const e : vBorders)
        integrateCCD(e);
    killTinyBorderPatches(maxTiny);
    while (patchPairSolving(true))
        continue;
    killTinyBorderPatches(maxTiny);
    pCMesh->averageBundles();
    pCMesh->treatDegenerateT();
    oneCoordTriplePerCCD();
}

void Top::unifyAllDiagonals()
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("TP_unif", 2);
    unifyDiagonals();
    progress->incProgressByOne();
    killDegenerate();
    progress->incProgressByOne();
    progress->setDone(true);
}

void Top::integrateBorders()
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("TP_itr", 300);
    std::vector<CEdge*> vBorders;
    getBordersKillDeg1nn(vBorders);
    progress->incProgressEvenly(100);
    ProgressPart part(progress, 100, vBorders.size());
    for (CEdge* const e : vBorders)
    {
        integrateCCD(e);
        part.count();
    }
    part.finish();
    killTinyBorderPatches(40);
    progress->incProgressEvenly(100);
    progress->setDone(true);
}

void Top::solveRemainingPatchPairs()
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("TP_pps", 5);
    while (patchPairSolving(false))
        progress->incProgressByOne();
    progress->setDone(true);
}

void Top::finish()
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("TP_fin", 400);
    killTinyBorderPatches(100);
    progress->incProgressEvenly(100);
    pCMesh->destroyPatches(); // nothing asks for patches from here on
    progress->incProgressEvenly(100);
    orientAll();
    progress->incProgressEvenly(100);
    repairDeg3();
    progress->incProgressEvenly(100);
    progress->setDone(true);
}

void Top::orientAll()
{
    struct ThrowAwayPatches
    {
        std::vector<CPatch*> vPatches;
        ~ThrowAwayPatches()
        {
            for (CPatch* const patch : vPatches)
                delete patch;
        }
    } throwAway; // only the orientation is wanted
    createPatchesOrient(pCMesh->vT, throwAway.vPatches);
}

void Top::getBordersKillDeg1nn(std::vector<CEdge*>& out)
{
    std::vector<CEdge*> vBorders;
    pCMesh->getDegN(1, vBorders);
    for (CEdge* const e : vBorders)
    {
        std::vector<CTriangle*> vCT;
        e->getAliveTriangles(vCT);
        ZAV_ASSERT(vCT.size() == 1, "vCT.size()==1");
        CTriangle* const t = vCT.front();
        bool bAttached = false;
        for (int i = 0; i < 3; ++i)
            bAttached |= t->getCEdge(i) != e && t->getCEdge(i)->getDegree() < 3;
        if (bAttached)
            out.push_back(e);
        else
            t->kill(pCMesh);
    }
}

void Top::integrateCCD(CEdge* e)
{
    if (e->getDegree() != 1) // the list that it comes from may be out of date
        return;
    CTriangle* const t = e->getTriangle(true, true);
    int numBorder = 0;
    int iNonManifold = -1;
    for (int i = 0; i < 3; ++i)
    {
        const int degree = t->getCEdge(i)->getDegree();
        ZAV_ASSERT(degree != 0, "false");
        if (degree == 2)
            return; // properly attached
        if (degree == 1)
            ++numBorder;
        else
            iNonManifold = i;
    }
    if (numBorder == 3)
    {
        t->kill(pCMesh);
        return;
    }
    if (iNonManifold < 0 || numBorder < 2)
        return;
    ZAV_ASSERT(numBorder == 2, "numBorder==2");
    std::vector<CTriangle*> vNew;
    t->getCEdge(iNonManifold)->trySplitNeigsKillT(pCMesh, t, iNonManifold, vNew);
    if (t->isAlive())
        t->kill(pCMesh);
}

void Top::killDegenerate()
{
    const size_t numT = pCMesh->vT.size(); // without the triangles that are made meanwhile
    const auto isToKill = [this](const CTriangle* t) { return t->isAlive() && t->isDegenerate(pCMesh); };
    std::vector<CTriangle*> vFound;
    collectMT(numT, vFound,
              [&](size_t begin, size_t end, std::vector<CTriangle*>& found)
              {
                  const auto first = pCMesh->vT.begin();
                  std::copy_if(first + static_cast<std::ptrdiff_t>(begin), first + static_cast<std::ptrdiff_t>(end),
                               std::back_inserter(found), isToKill);
              });
    for (CTriangle* const t : vFound)
    {
        if (!t->isAlive() || !killOrMove(t))
            continue;
        // A corner that moved can make any later triangle degenerate or sound.
        for (size_t i = t->place + 1; i < numT; ++i)
            if (isToKill(pCMesh->vT[i]))
                killOrMove(pCMesh->vT[i]);
        return;
    }
}

/// Gets rid of a degenerate triangle.
/// \return whether a corner was moved for that
bool Top::killOrMove(CTriangle* t)
{
    const int i = t->getLargestEdgeICI(pCMesh);
    CEdge* const e = t->getCEdge(i);
    std::vector<CTriangle*> vNew;
    if (e->getDegree() == 1)
        t->kill(pCMesh);
    else if (!e->trySplitNeigsKillT(pCMesh, t, i, vNew))
    {
        if (moveOneCorner(t, i))
            return true;
        warning(ZAV_LOCATION, "No success of trySplitNeigsKillT() and laplacianForOne()");
    }
    return false;
}

/// Tries the corners in turn, starting with firstCorner.
bool Top::moveOneCorner(const CTriangle* t, int firstCorner)
{
    for (int k = 0; k < 3; ++k)
        if (pCMesh->laplacianForOne(t->getCorner((firstCorner + k) % 3)))
            return true;
    return false;
}

void Top::cbsComplete(Voro* pVoro)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("TP_cbcpl", 700);
    std::vector<CEdge*> vBorders, vDeg4;
    std::vector<CCD> vCells;
    getBordersKillDeg1nn(vBorders);
    progress->incProgressEvenly(50);
    collectBorderCells(vBorders, vCells);
    progress->incProgressEvenly(50);
    pCMesh->getDegN(4, vDeg4);
    progress->incProgressEvenly(50);
    collectDeg4Cells(vDeg4, vCells);
    progress->incProgressEvenly(50);

    oneInstance(vCells);
    pCMesh = pVoro->meshAgain(vCells, progress, 300);
    pCMesh->averageBundles();
    progress->incProgressEvenly(100);
    unifyDiagonals();
    progress->endVisit();
}

namespace
{
/// Appends the eight lattice vertices of the cell c.
void appendBlock(const Calc* pCalc, CCD c, std::vector<CCD>& out)
{
    std::array<CCD, 8> block;
    block[0] = c;
    pCalc->completeArrayPlus(block.data());
    out.insert(out.end(), block.begin(), block.end());
}

/// Sorts codes and appends each one that occurs exactly n times.
void appendRunsOf(std::ptrdiff_t n, std::vector<CCD>& codes, std::vector<CCD>& out)
{
    std::sort(codes.begin(), codes.end());
    for (auto it = codes.begin(); it != codes.end();)
    {
        const auto runEnd = std::upper_bound(it, codes.end(), *it);
        if (runEnd - it == n)
            out.push_back(*it);
        it = runEnd;
    }
}
} // namespace

/// Appends the lattice vertices that all three cells of a border triangle touch. In two dimensions:
///
///     +---+---+
///     | a | b |        o is the vertex of a, b and c. If its fourth cell were there, too,
///     +---o---+        the surface could go on.
///     | c |
///     +---+
void Top::collectBorderCells(const std::vector<CEdge*>& vBorders, std::vector<CCD>& vCells)
{
    std::vector<CTriangle*> vT;
    std::vector<CCD> vVCD24;
    for (const CEdge* const e : vBorders)
    {
        vT.clear();
        e->getAliveTriangles(vT);
        ZAV_ASSERT(vT.size() == 1, "vT.size()==1");
        vVCD24.clear();
        for (int i = 0; i < 3; ++i)
            appendBlock(pCalc, vT.front()->getCorner(i), vVCD24);
        ZAV_ASSERT(vVCD24.size() == 24, "vVCD24.size()==24");
        appendRunsOf(3, vVCD24, vCells);
    }
}

/// Appends the lattice vertices that both ends of an edge touch.
void Top::collectDeg4Cells(const std::vector<CEdge*>& vDeg4, std::vector<CCD>& vCells)
{
    std::vector<CCD> vVCD16;
    for (const CEdge* const e : vDeg4)
    {
        vVCD16.clear();
        appendBlock(pCalc, e->v0, vVCD16);
        appendBlock(pCalc, e->v1, vVCD16);
        appendRunsOf(2, vVCD16, vCells);
    }
}

namespace
{
/// A bundle as the search for equal points sorts it. The bundles of the cloud lie in a pool, and their addresses are
/// their order of creation. Those that the mesh added lie on the heap, where addresses are accidental: a rank orders
/// them.
struct PlacedBundle
{
    Point3 point;
    size_t rank; // 0 for a bundle of the cloud
    Bundle* bundle;

    bool operator<(const PlacedBundle& other) const
    {
        if (point < other.point || other.point < point)
            return point < other.point;
        return rank != other.rank ? rank < other.rank : bundle < other.bundle;
    }
};

double randomMove(double sideLen)
{
    return (std::rand() % 1000) / 100000.0 * sideLen;
}

void moveAway(Point3& p, double sideLen)
{
    const double dx = randomMove(sideLen), dy = randomMove(sideLen), dz = randomMove(sideLen);
    p.set(p.x() + dx, p.y() + dy, p.z() + dz);
    p.clearColor();
}
} // namespace

void Top::oneCoordTriplePerCCD()
{
    std::map<const Bundle*, size_t> mRank;
    for (const Bundle* const b : pCMesh->vAdditionalBundles)
        mRank.emplace(b, mRank.size() + 1);
    std::vector<PlacedBundle> vPlaced;
    vPlaced.reserve(pCMesh->getRefToBundleMap().size());
    for (const auto& [c, bundle] : pCMesh->getRefToBundleMap())
    {
        const auto it = mRank.find(bundle);
        vPlaced.push_back({*bundle->pVtx, it == mRank.end() ? 0 : it->second, bundle});
    }
    sortMT(vPlaced.begin(), vPlaced.end());

    for (auto it = vPlaced.begin(); it != vPlaced.end();)
    {
        const auto runEnd =
            std::find_if(it, vPlaced.end(), [it](const PlacedBundle& placed) { return placed.point != it->point; });
        std::set<Point3> sTaken;
        if (runEnd - it > 1)
            for (auto itRun = it; itRun != runEnd; ++itRun)
            {
                Point3& p = *itRun->bundle->pVtx;
                while (sTaken.find(p) != sTaken.end())
                    moveAway(p, pCMesh->getSideLen());
                sTaken.insert(p);
            }
        it = runEnd;
    }
}

} // namespace MIRT_ZAV
