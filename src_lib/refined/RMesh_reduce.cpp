// Reduction: half-edge collapses by rising penalty, computed ahead for all edges and again when a collapse comes up.
#include "base/Progress.h"
#include "base/StableQueue.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "geometry/ColorUtils.h"
#include "geometry/freeFunctions.h"
#include "refined/RMesh.h"

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

/// Whether the colours of the ends may become one. diff is their difference, 0 for two ends without colour. Edges that
/// are longer than a cell need colours that are closer, as the change shows over a larger area.
bool areColorsClose(const Point3* p0, const Point3* p1, double ratio, double& diff)
{
    diff = 0.0;
    if (!p0->hasColor() && !p1->hasColor())
        return true;
    diff = getColorDiffCIE76(p0, p1); // an end without colour counts with its bytes: results depend on it
    return !(diff > std::min(1.0, 1.0 / ratio));
}

/// A number not above the cosine of an angle, and close to it up to a right angle: the cosine's Taylor series up to a
/// negative term.
double getCosBelow(double angle)
{
    const double square = angle * angle;
    return 1.0 - square * (1.0 / 2 - square * (1.0 / 24 - square / 720));
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
    const double nLength = n.length();
    const double mLength = m.length();
    if (mLength < 1e-10)
        return false;
    // Refuses what is clearly beyond the limit, which spares the arc cosine. The margin is far above all rounding.
    if (nLength > 1e-100 && n * m < (getCosBelow(maxAngleRad) - 1e-9) * nLength * mLength)
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
    // The link condition. Let u, w be the side of a triangle across from pSrc: the collapse turns (u, w, pSrc) into
    // (u, w, pTrg), which mustn't be there already.
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
    entry = {getPenalty(pRE, which, maxLen2, maxAngleRad, vIncT), {pRE, static_cast<std::int16_t>(which)}};
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
                            std::vector<PenaltyCandidate>& vEntries, ProgressPart* pPart) const
{
    constexpr size_t leastForThreads = 3600;
    vEntries.reserve(vEntries.size() + 2 * vEdges.size()); // touches no memory yet
    if (vEdges.size() < leastForThreads)
    {
        createREC_MT(vEdges, 0, vEdges.size(), maxLen2, maxAngleRad, vEntries);
        return;
    }
    const size_t portion = std::max(leastForThreads, vEdges.size() / 32 + 1);
    for (size_t first = 0; first < vEdges.size(); first += portion)
    {
        const size_t n = std::min(portion, vEdges.size() - first);
        collectMT(n, vEntries,
                  [&, first](size_t from, size_t to, std::vector<PenaltyCandidate>& out)
                  { createREC_MT(vEdges, first + from, first + to, maxLen2, maxAngleRad, out); });
        if (pPart != nullptr)
            pPart->reach(first + n);
    }
}

namespace
{
/// Stands in place of the last change for a vertex that was collapsed away.
constexpr std::uint32_t gone = 0xffffffffu;

/// One run of collapses.
///
/// A generation puts all candidates into the queue: the first one at the start, another with each full refresh, beside
/// the ones that are there. Hardly any of them has changed then, and such repetitions aren't stored: an entry stands
/// for itself and for its copies in all later generations up to the one that evaluates its edge anew.
///
///     generation                  0      1      2      3
///     edge that stays as it is    entry  copy   copy   copy
///     edge that changes after 1   entry  copy   entry  copy
///
/// Candidates of one generation arrive under numbers that follow from their edges, so that the place of a copy among
/// equal penalties is known before it is stored.
class Reduction
{
public:
    Reduction(RMesh& meshArg, double maxLen2Arg, double maxAngleRadArg);

    void findBorder();
    void fillQueue();
    /// Does what the queue allows until it is empty. Returns the number of triangles that went.
    int processQueue();

private:
    struct Generation
    {
        std::uint64_t firstArrival;
        std::uint32_t evaluatedAt;
    };
    enum class Fate
    {
        dropped,
        sinks,
        collapses
    };

    void pushGeneration(const std::vector<REdge*>& vEdges, ProgressPart* pPart = nullptr);
    void pushSome(const std::vector<REdge*>& vEdges);
    std::uint64_t getArrival(const RECandidate& candidate) const;
    bool hasCopy(const RECandidate& candidate) const;
    unsigned countCopies(RECandidate candidate) const;
    void pushCopy(double penalty, RECandidate candidate);
    void setTodo();
    void fetchAhead() const;
    double getFreshPenalty(double saved, const RECandidate& candidate);
    Fate judge(double saved, const RECandidate& candidate, double& fresh);
    bool staysOnBorder(const REdge* pRE, const Point3* pSrc) const;
    void collapse(Point3* pSrc, Point3* pTrg);
    bool isRefreshDue() const;
    void refresh();
    void refreshAll();
    void refreshTouched();

    std::uint32_t& changedAt(const Point3* p) { return vChangedAt[mesh.mmVtxT.indexOf(p)]; }
    std::uint32_t changedAt(const Point3* p) const { return vChangedAt[mesh.mmVtxT.indexOf(p)]; }
    std::uint32_t changedAt(const REdge* pRE) const
    {
        return std::max(changedAt(pRE->getVtx0()), changedAt(pRE->getVtx1()));
    }

    RMesh& mesh;
    const double maxLen2;
    const double maxAngleRad;
    std::vector<Point3*> vBorderVtx; // sorted; as it is before the first collapse
    MIRT_TOOLS::StableQueue<double, RECandidate> queue;
    std::vector<Generation> vGenerations;                // at most 5
    MIRT_TOOLS::PoolIndex<REdge, std::uint8_t> vRenewed; // bit i: generation i evaluates the edge anew
    Progress* progress = nullptr;
    std::vector<Point3*> vTouched; // the targets of the collapses since the last refresh
    int numRefreshes = 0;
    std::uint32_t numCollapses = 0;
    std::vector<std::uint32_t> vChangedAt; // per vertex, the last collapse that changed its triangles
    std::vector<RTriangle*> vIncT;         // scratch
};

Reduction::Reduction(RMesh& meshArg, double maxLen2Arg, double maxAngleRadArg)
    : mesh(meshArg), maxLen2(maxLen2Arg), maxAngleRad(maxAngleRadArg), vChangedAt(meshArg.mmVtxT.getNumObjects())
{
    vRenewed.reserve(mesh.vRE.size());
    for (const REdge* const pRE : mesh.vRE)
        vRenewed.add(pRE);
}

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
    Progress* const stage = getThreadProgress()->getChildProgressSetTodo("RM_redprioq", 200);
    ProgressPart part(stage, 150, mesh.vRE.size());
    pushGeneration(mesh.vRE, &part);
    stage->endVisit();
}

/// Begins a generation that evaluates these edges, in the order of creation; all others have copies in it.
void Reduction::pushGeneration(const std::vector<REdge*>& vEdges, ProgressPart* pPart)
{
    const auto generation = static_cast<std::int16_t>(vGenerations.size());
    vGenerations.push_back({queue.takeArrivals(2 * mesh.vRE.size()), numCollapses});
    std::vector<PenaltyCandidate> vEntries;
    mesh.getPrioqEntries(maxAngleRad, maxLen2, vEdges, vEntries, pPart);
    for (auto& [penalty, candidate] : vEntries)
    {
        candidate.generation = generation;
        candidate.evaluatedAt = numCollapses;
    }
    queue.pushAllAt(
        vEntries, [](const RECandidate& candidate) { return candidate; },
        [this](const RECandidate& candidate) { return getArrival(candidate); });
}

void Reduction::pushSome(const std::vector<REdge*>& vEdges)
{
    std::vector<PenaltyCandidate> vEntries;
    mesh.getPrioqEntries(maxAngleRad, maxLen2, vEdges, vEntries);
    queue.pushAll(vEntries,
                  [this](RECandidate candidate)
                  {
                      candidate.evaluatedAt = numCollapses;
                      return candidate;
                  });
}

std::uint64_t Reduction::getArrival(const RECandidate& candidate) const
{
    return vGenerations[static_cast<size_t>(candidate.generation)].firstArrival + 2 * vRenewed.indexOf(candidate.pRE) +
           static_cast<std::uint64_t>(candidate.which);
}

/// Whether the next generation repeats the candidate.
bool Reduction::hasCopy(const RECandidate& candidate) const
{
    const int next = candidate.generation + 1;
    return next > 0 && next < static_cast<int>(vGenerations.size()) && (*vRenewed.find(candidate.pRE) >> next & 1) == 0;
}

unsigned Reduction::countCopies(RECandidate candidate) const
{
    unsigned n = 0;
    for (; hasCopy(candidate); ++candidate.generation)
        ++n;
    return n;
}

/// Puts the copy of the next generation into the queue, if there is one.
void Reduction::pushCopy(double penalty, RECandidate candidate)
{
    if (!hasCopy(candidate))
        return;
    ++candidate.generation;
    queue.pushAt(penalty, getArrival(candidate), candidate);
}

/// Copies that aren't stored don't count: only the fraction shown differs by them.
void Reduction::setTodo()
{
    const double todo = 1.5 * static_cast<double>(queue.size());
    progress = getThreadProgress()->getChildProgressSetTodo("RM_redprocprioq", static_cast<std::uint64_t>(todo));
}

/// Starts to load what later candidates will need. Each step follows pointers that an earlier call has fetched: the
/// edge, then when its ends last changed, then the ends and where their lists of triangles begin, then the list.
void Reduction::fetchAhead() const
{
    if (const RECandidate* const pLater = queue.lookAhead(48))
        __builtin_prefetch(pLater->pRE);
    if (const RECandidate* const pLater = queue.lookAhead(32))
        for (const Point3* const p : {pLater->pRE->getVtx0(), pLater->pRE->getVtx1()})
            __builtin_prefetch(&vChangedAt[mesh.mmVtxT.indexOf(p)]);
    if (const RECandidate* const pLater = queue.lookAhead(16); pLater != nullptr && changedAt(pLater->pRE) != gone)
        for (const Point3* const p : {pLater->pRE->getVtx0(), pLater->pRE->getVtx1()})
        {
            __builtin_prefetch(p);
            mesh.mmVtxT.prefetchHead(p);
        }
    if (const RECandidate* const pLater = queue.lookAhead(8); pLater != nullptr && changedAt(pLater->pRE) != gone)
        mesh.mmVtxT.prefetchFirst(pLater->pRE->getVertex(pLater->which));
}

/// The penalty as it is now. It depends on the triangles of both ends alone: where those haven't changed, neither has
/// the penalty. An edge that a collapse gave a new end is covered, as collapse() marks the ends of all such edges.
double Reduction::getFreshPenalty(double saved, const RECandidate& candidate)
{
    const std::uint32_t lastChange = changedAt(candidate.pRE);
    if (lastChange == gone)
        return refused;
    if (lastChange <= candidate.evaluatedAt)
        return saved;
    return mesh.getPenalty(candidate.pRE, candidate.which, maxLen2, maxAngleRad, vIncT);
}

/// What becomes of the first entry of the queue.
Reduction::Fate Reduction::judge(double saved, const RECandidate& candidate, double& fresh)
{
    fresh = getFreshPenalty(saved, candidate);
    if (fresh == refused)
        return Fate::dropped;
    if (fresh > 2.0 && fresh > saved + 3.0) // a smaller rise isn't worth another turn in the queue
        return Fate::sinks;
    if (staysOnBorder(candidate.pRE, candidate.pRE->getVertex(candidate.which)))
        return Fate::collapses;
    // Its penalty allows it, so that the next generation will hold it once more; but no entry is left to copy.
    *vRenewed.find(candidate.pRE) |= static_cast<std::uint8_t>(1u << vGenerations.size());
    return Fate::dropped;
}

/// False where the collapse would take a border vertex off the border, or a corner out of it. A border vertex may only
/// slide along a border edge, and only where the border is nearly straight:
///
///     ---- o ---- pSrc ---- o ----     170 degrees or more at pSrc
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
    changedAt(pSrc) = gone;
    mesh.exchangeCorner(pSrc, pTrg);
    vTouched.push_back(pTrg);
}

bool Reduction::isRefreshDue() const
{
    const size_t n = vTouched.size();
    return queue.empty() || n > 5000 || (queue.front().first > 6.0 && n > 50);
}

/// Adds collapses that have become possible: of all edges up to four times in a run, of those near the last collapses
/// otherwise. Candidates that are in the queue stay there beside the new ones: each is evaluated again when its turn
/// comes.
void Reduction::refresh()
{
    const size_t n = vTouched.size();
    if (n >= 3 && n <= 999 && ++numRefreshes < 5)
        refreshAll();
    else
        refreshTouched();
    vTouched.clear();
    setTodo();
}

void Reduction::refreshAll()
{
    const std::uint32_t lastEvaluatedAt = vGenerations.back().evaluatedAt;
    const auto mark = static_cast<std::uint8_t>(1u << vGenerations.size());
    std::vector<REdge*> vEdges;
    for (REdge* const pRE : mesh.vRE)
    {
        std::uint8_t& renewed = *vRenewed.find(pRE);
        if (changedAt(pRE) > lastEvaluatedAt)
            renewed |= mark;
        if ((renewed & mark) != 0)
            vEdges.push_back(pRE);
    }
    pushGeneration(vEdges);
}

/// For the edges at the touched vertices, sorted by address, each once.
void Reduction::refreshTouched()
{
    std::vector<REdge*> vEdges;
    oneInstanceMT(vTouched);
    for (const Point3* const p : vTouched)
        mesh.forEachIncidentT(p,
                              [&vEdges, p](const RTriangle* pRT)
                              {
                                  const int i = pRT->getICI(p);
                                  vEdges.insert(vEdges.end(), {pRT->getRE((i + 1) % 3), pRT->getRE((i + 2) % 3)});
                              });
    oneInstanceMT(vEdges);
    pushSome(vEdges);
}

int Reduction::processQueue()
{
    setTodo();
    int numKilled = 0;
    while (!queue.empty())
    {
        const auto [saved, candidate] = queue.front();
        queue.pop();
        fetchAhead();
        double fresh;
        const Fate fate = judge(saved, candidate, fresh);
        // Copies come up under the same key. With no other entry of that key left, they come one right after the other,
        // and nothing happens between them: they all fare like this one.
        const bool bWithCopies = fate != Fate::collapses && (queue.empty() || queue.front().first > saved);
        const unsigned numAlike = bWithCopies ? 1 + countCopies(candidate) : 1;
        if (!bWithCopies)
            pushCopy(saved, candidate);
        if (fate == Fate::sinks)
        {
            for (unsigned i = 0; i < numAlike; ++i)
                queue.push(fresh, {candidate.pRE, candidate.which, -1, numCollapses});
            continue;
        }
        progress->incProgressBy(numAlike);
        if (fate == Fate::dropped)
            continue;
        Point3* const pSrc = candidate.pRE->getVertex(candidate.which);
        numKilled += candidate.pRE->getDegree();
        collapse(pSrc, candidate.pRE->getOtherPoint(pSrc));
        if (isRefreshDue())
            refresh();
    }
    progress->endVisit();
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
