// Reduction: edge collapses by rising penalty.
#include "ColorUtils.h"
#include "Progress.h"
#include "RMesh.h"
#include "StableQueue.h"
#include "freeFunctions.h"
#include "sortMT.h"
#include "tools.h"
#include "vectorHelpers.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
using PenaltyCandidate = std::pair<double, RECandidate>;

constexpr double refused = DBL_MAX;
constexpr double radPerDegree = 0.01745329251;

/// The triangles that stay at the moving vertex of a collapse.
struct Turns
{
    double angleSum = 0.0; ///< radians
    int angleCount = 0;
};

/// Whether the colours of the ends may become one. diff is their difference, 0 for two ends without colour. The longer
/// the edge, the closer they must be.
bool areColorsClose(const Point3* p0, const Point3* p1, double ratio, double& diff)
{
    diff = 0.0;
    if (!p0->hasColor() && !p1->hasColor())
        return true;
    diff = getColorDiffCIE76(p0, p1); // an end without colour deliberately counts with its bytes
    return !(diff > std::min(1.0, 1.0 / ratio));
}

/// Adds the turn of a triangle when its corner pSrc moves to pTrg; false where that isn't allowed.
bool addTurn(const RTriangle* pRT, int iSrc, const Point3* pTrg, double maxAngleRad, Turns& turns)
{
    const Point3& u = *pRT->pVtx[iSrc < 2 ? iSrc + 1 : 0];
    const Point3& w = *pRT->pVtx[iSrc > 0 ? iSrc - 1 : 2];
    const Vector3 side = u - w;
    const Vector3 n = crossProduct(side, *pRT->pVtx[iSrc] - w);
    if (n.isZero())
    {
        std::cout << "current triangle is degenerate\n";
        return true;
    }
    const Vector3 m = crossProduct(side, *pTrg - w);
    if (m.length() < 1e-10)
        return false;
    const double angle = getAngleRad(normalize(n), normalize(m));
    if (angle > maxAngleRad)
        return false;
    turns.angleSum += angle;
    ++turns.angleCount;
    return true;
}

/// Whether an alive triangle on the edge has p.
bool hasTriangleWith(const REdge* pRE, const Point3* p)
{
    return std::any_of(pRE->vRT.begin(), pRE->vRT.end(),
                       [p](const RTriangle* pRT) { return pRT->isAlive() && pRT->has(p); });
}
} // namespace

double RMesh::getPenalty(const REdge* pRE, int which, double maxLen2, double maxAngleRad,
                         std::vector<RTriangle*>& vIncT) const
{
    const Point3* const p0 = pRE->getVtx0();
    const Point3* const p1 = pRE->getVtx1();
    const double sqLength = (*p1 - *p0).sqLength();
    if (sqLength > maxLen2)
        return refused;
    const double ratio = std::sqrt(std::sqrt(sqLength) / getSideLen());
    double colorDiff;
    if (!areColorsClose(p0, p1, ratio, colorDiff))
        return refused;

    const Point3* const pSrc = which == 0 ? p0 : p1;
    const Point3* const pTrg = which == 0 ? p1 : p0;
    vIncT.clear();
    getIncidentT(pSrc, vIncT);
    Turns turns;
    bool bShared = false;
    for (const RTriangle* const pRT : vIncT)
        if (pRT->has(pTrg))
            bShared = true; // it goes in the collapse
        else if (!addTurn(pRT, pRT->getICI(pSrc), pTrg, maxAngleRad, turns))
            return refused;
    if (!bShared)
        return refused;
    // Where an edge of the ring around pSrc has a triangle at pTrg, the collapse would repeat that triangle.
    for (const RTriangle* const pRT : vIncT)
        if (!pRT->has(pTrg) && hasTriangleWith(pRT->getRE(pRT->getICI(pSrc)), pTrg))
            return refused;
    const double penalty = turns.angleSum * 100.0 / turns.angleCount + ratio + 100.0 * colorDiff;
    return std::isnan(penalty) ? refused : penalty; // 0 / 0 where no triangle stays
}

/// False where the collapse isn't allowed.
bool RMesh::getRECand(REdge* pRE, int which, double maxLen2, double maxAngleRad, std::vector<RTriangle*>& vIncT,
                      PenaltyCandidate& entry) const
{
    entry = {getPenalty(pRE, which, maxLen2, maxAngleRad, vIncT), {pRE, which}};
    return entry.first != refused;
}

/// Appends the candidates of a range of edges.
void RMesh::createREC_MT(const std::vector<REdge*>& vEdges, size_t from, size_t to, double maxLen2, double maxAngleRad,
                         std::vector<PenaltyCandidate>& vEntries) const
{
    std::vector<RTriangle*> vIncT;
    PenaltyCandidate entry;
    for (size_t i = from; i < to; ++i)
        for (const int which : {0, 1})
            if (getRECand(vEdges[i], which, maxLen2, maxAngleRad, vIncT, entry))
                vEntries.push_back(entry);
}

void RMesh::getPrioqEntries(double maxAngleRad, double maxLen2, const std::vector<REdge*>& vEdges,
                            std::vector<PenaltyCandidate>& vEntries) const
{
    constexpr size_t leastForThreads = 3600;
    const auto evaluate = [&](size_t from, size_t to, std::vector<PenaltyCandidate>& out)
    { createREC_MT(vEdges, from, to, maxLen2, maxAngleRad, out); };
    if (vEdges.size() < leastForThreads)
        evaluate(0, vEdges.size(), vEntries);
    else
        collectMT(vEdges.size(), vEntries, evaluate);
}

namespace
{
/// One run of collapses.
class Reduction
{
public:
    Reduction(RMesh& meshArg, double maxLen2Arg, double maxAngleRadArg)
        : mesh(meshArg), maxLen2(maxLen2Arg), maxAngleRad(maxAngleRadArg), vChangedAt(meshArg.mmVtxT.getNumObjects())
    {
    }

    void findBorder();
    void fillQueue();
    /// Does what the queue allows until it is empty. Returns the number of triangles that went.
    int processQueue();

private:
    void pushCandidates(const std::vector<REdge*>& vEdges);
    void setTodo();
    void fetchAhead() const;
    bool isUpToDate(const RECandidate& candidate) const;
    double getFreshPenalty(double saved, const RECandidate& candidate);
    bool staysOnBorder(const REdge* pRE, const Point3* pSrc) const;
    void collapse(Point3* pSrc, Point3* pTrg);
    bool isRefreshDue() const;
    void refresh();
    void getEdgesOfTouched(std::vector<REdge*>& out) const;

    std::uint32_t& changedAt(const Point3* p) { return vChangedAt[mesh.mmVtxT.indexOf(p)]; }
    std::uint32_t changedAt(const Point3* p) const { return vChangedAt[mesh.mmVtxT.indexOf(p)]; }

    RMesh& mesh;
    const double maxLen2;
    const double maxAngleRad;
    std::vector<Point3*> vBorderVtx; // sorted; judged once, before the first collapse
    MIRT_TOOLS::StableQueue<double, RECandidate> queue;
    Progress* progress = nullptr;
    std::vector<Point3*> vTouched; // where collapses went since the last refresh
    int numRefreshes = 0;
    std::uint32_t numCollapses = 0;
    std::vector<std::uint32_t> vChangedAt; // per vertex, the last collapse that changed its triangles
    std::vector<RTriangle*> vIncT;         // scratch
};

void Reduction::findBorder()
{
    Progress* const stage = getThreadProgress()->getChildProgressSetTodo("RM_redborder", 2);
    std::vector<REdge*> vBorderRE;
    mesh.getDegN(1, vBorderRE);
    stage->incProgressByOne();
    vBorderVtx.reserve(2 * vBorderRE.size());
    for (const REdge* const pRE : vBorderRE)
        vBorderVtx.insert(vBorderVtx.end(), {pRE->getVtx0(), pRE->getVtx1()});
    oneInstanceMT(vBorderVtx);
    stage->incProgressByOne();
    stage->stopClock();
}

void Reduction::fillQueue()
{
    Progress* const stage = getThreadProgress()->getChildProgressSetTodo("RM_redprioq", 2);
    pushCandidates(mesh.vRE);
    stage->incProgressBy(2);
    stage->stopClock();
}

void Reduction::pushCandidates(const std::vector<REdge*>& vEdges)
{
    std::vector<PenaltyCandidate> vEntries;
    mesh.getPrioqEntries(maxAngleRad, maxLen2, vEdges, vEntries);
    queue.pushAll(vEntries,
                  [this](const RECandidate& candidate) {
                      return RECandidate{candidate.pRE, candidate.which, numCollapses};
                  });
}

void Reduction::setTodo()
{
    const double todo = 1.5 * static_cast<double>(queue.size());
    progress = getThreadProgress()->getChildProgressSetTodo("RM_redprocprioq", static_cast<std::uint64_t>(todo));
}

/// Nothing that the penalty depends on has changed since it was computed. Every change of an edge's ends counts.
bool Reduction::isUpToDate(const RECandidate& candidate) const
{
    return std::max(changedAt(candidate.pRE->getVtx0()), changedAt(candidate.pRE->getVtx1())) <= candidate.evaluatedAt;
}

double Reduction::getFreshPenalty(double saved, const RECandidate& candidate)
{
    return isUpToDate(candidate) ? saved : mesh.getPenalty(candidate.pRE, candidate.which, maxLen2, maxAngleRad, vIncT);
}

/// False where the collapse would take a border vertex off the border, or a corner out of it.
bool Reduction::staysOnBorder(const REdge* pRE, const Point3* pSrc) const
{
    if (!std::binary_search(vBorderVtx.begin(), vBorderVtx.end(), pSrc))
        return true;
    if (pRE->getDegree() != 1)
        return false;
    std::vector<REdge*> vIncRE;
    mesh.getIncidentRE(pSrc, vIncRE);
    vIncRE.erase(
        std::remove_if(vIncRE.begin(), vIncRE.end(), [](const REdge* pIncRE) { return pIncRE->getDegree() != 1; }),
        vIncRE.end());
    if (vIncRE.size() != 2)
        return false;
    std::vector<Vector3> vVecs;
    for (const REdge* const pIncRE : vIncRE)
        vVecs.push_back(normalize(*pIncRE->getOtherPoint(pSrc) - *pSrc));
    ZAV_ASSERT(vVecs.size() == 2, "vVecs.size()==2");
    return getAngleDegree(vVecs[0], vVecs[1]) >= 170.0;
}

void Reduction::collapse(Point3* pSrc, Point3* pTrg)
{
    ++numCollapses;
    mesh.forEachIncidentT(pSrc,
                          [this](const RTriangle* pRT)
                          {
                              for (const Point3* const p : pRT->pVtx)
                                  changedAt(p) = numCollapses;
                          });
    mesh.exchangeCorner(pSrc, pTrg);
    vTouched.push_back(pTrg);
}

bool Reduction::isRefreshDue() const
{
    const size_t n = vTouched.size();
    return queue.empty() || n > 5000 || (queue.front().first > 6.0 && n > 50);
}

/// Adds collapses that have become possible. Those that are in the queue stay beside the new ones: each is evaluated
/// again when its turn comes.
void Reduction::refresh()
{
    const size_t n = vTouched.size();
    if (n >= 3 && n <= 999 && ++numRefreshes < 5)
        pushCandidates(mesh.vRE);
    else
    {
        std::vector<REdge*> vEdges;
        oneInstanceMT(vTouched);
        getEdgesOfTouched(vEdges);
        pushCandidates(vEdges);
    }
    vTouched.clear();
    setTodo();
}

/// The edges at the touched vertices, sorted by address, each once.
void Reduction::getEdgesOfTouched(std::vector<REdge*>& out) const
{
    for (const Point3* const p : vTouched)
        mesh.forEachIncidentT(p,
                              [&out, p](const RTriangle* pRT)
                              {
                                  const int i = pRT->getICI(p);
                                  out.insert(out.end(), {pRT->getRE((i + 1) % 3), pRT->getRE((i + 2) % 3)});
                              });
    oneInstanceMT(out);
}

int Reduction::processQueue()
{
    setTodo();
    int numKilled = 0;
    while (!queue.empty())
    {
        const auto [saved, candidate] = queue.front();
        queue.pop();
        const double fresh = getFreshPenalty(saved, candidate);
        if (fresh != refused && fresh > 2.0 && fresh > saved + 3.0)
        {
            queue.push(fresh, {candidate.pRE, candidate.which, numCollapses});
            continue;
        }
        progress->incProgressByOne();
        const REdge* const pRE = candidate.pRE;
        Point3* const pSrc = pRE->getVertex(candidate.which);
        if (fresh == refused || !staysOnBorder(pRE, pSrc))
            continue;
        Point3* const pTrg = pRE->getOtherPoint(pSrc);
        numKilled += pRE->getDegree();
        collapse(pSrc, pTrg);
        if (isRefreshDue())
            refresh();
    }
    progress->setDone(true);
    return numKilled;
}
} // namespace

int RMesh::reduce(double maxLen2, double maxAngleDeg)
{
    Reduction reduction(*this, maxLen2, maxAngleDeg * radPerDegree);
    reduction.findBorder();
    reduction.fillQueue();
    return reduction.processQueue();
}

} // namespace MIRT_ZAV
