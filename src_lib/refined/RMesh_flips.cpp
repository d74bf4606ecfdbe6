// Edge flips: which edges gain by one, and the flips by falling gain.
#include "base/Progress.h"
#include "base/StableQueue.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "geometry/exponential.h"
#include "refined/REdgeEnergy.h"
#include "refined/RMesh.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <functional>

namespace MIRT_ZAV
{
namespace
{
using GainEdge = std::pair<double, REdge*>;

constexpr double leastGain = 0.005;
constexpr double impossible = REdgeEnergy::impossible;

/// A gain that isn't a number, as lengths that overflow give it, has no place in an order and counts as impossible.
double getUsable(double gain)
{
    return std::isnan(gain) ? impossible : gain;
}

/// The gain of flipping an edge; impossible where coincident vertices make the evaluation fail.
double computeGain(RMesh* pRMesh, REdge* pRE)
{
    try
    {
        REdgeEnergy energy(pRMesh, pRE);
        energy.compute();
        return getUsable(energy.result);
    }
    catch (const std::exception&)
    {
        return impossible;
    }
}

/// The same, but only if that leaves the mesh as it is; false otherwise.
bool computeGainUnchanged(RMesh* pRMesh, REdge* pRE, double& gain)
{
    try
    {
        REdgeEnergy energy(pRMesh, pRE);
        const bool bComputed = energy.computeUnchanged();
        gain = getUsable(energy.result);
        return bComputed;
    }
    catch (const std::exception&)
    {
        gain = impossible;
        return true;
    }
}

std::string getCandidateStage(double temperature)
{
    return temperature > 0.0 ? "RM_gEfCandMT_" + toString(temperature) : std::string("RM_gEfCandMT");
}

/// Whether a flip that makes the mesh worse is taken all the same at this temperature: the rule of Metropolis.
bool isDrawn(double gain, double temperature)
{
    const double r = std::rand() / 2147483647.0;
    return !(r > exponential(gain / temperature));
}

/// Sorts by rising gain; equal gains keep their order.
void sortByGain(std::vector<GainEdge>& v)
{
    std::vector<std::pair<double, unsigned long>> vGainPosition(v.size());
    for (size_t i = 0; i < v.size(); ++i)
        vGainPosition[i] = {v[i].first, i};
    sortMT(vGainPosition.begin(), vGainPosition.end());
    std::vector<GainEdge> vSorted(v.size());
    for (size_t i = 0; i < v.size(); ++i)
        vSorted[i] = v[vGainPosition[i].second];
    v.swap(vSorted);
}
} // namespace

void RMesh::getEdgeFlipCandidates_MT(const std::vector<REdge*>& vInRE, double minImprovement, double temperature,
                                     std::vector<GainEdge>& vImpRE)
{
    ZAV_ASSERT(vImpRE.empty(), "vImpRE.empty()");
    fillNormals();
    vImpRE.assign(vInRE.size(), {0.0, nullptr});
    struct Chunk
    {
        RMesh* pRMesh;
        const std::vector<REdge*>& vInRE;
        std::vector<GainEdge>& vImpRE;
        size_t from;
        size_t to;
        std::vector<size_t> vPostponed;
        void operator()(int) { pRMesh->getEdgeFlipCandidates_MT_priv(vInRE, from, to, vImpRE, vPostponed); }
    };
    const size_t numWanted = std::max<size_t>(32, 4 * static_cast<size_t>(getGlobalNumCPU())); // many, for progress
    const size_t chunkSize = std::max<size_t>(100, vInRE.size() / numWanted);
    std::vector<Chunk> vChunks;
    for (size_t from = 0; from < vInRE.size(); from += chunkSize)
        vChunks.push_back({this, vInRE, vImpRE, from, std::min(vInRE.size(), from + chunkSize), {}});

    Progress* const progress =
        getThreadProgress()->getChildProgressSetTodo(getCandidateStage(temperature), vChunks.size());
    runTasks(vChunks, [progress] { progress->incProgressByOne(); });
    for (const Chunk& chunk : vChunks)
        for (const size_t i : chunk.vPostponed)
        {
            allChangedAt = ++numFlips; // its evaluation moves vertices or flips a triangle
            if (const double gain = computeGain(this, vInRE[i]); gain != impossible)
                vImpRE[i] = {gain, vInRE[i]};
        }
    keepCandidates(minImprovement, temperature, vImpRE);
    sortByGain(vImpRE);
    progress->endVisit();
}

/// Fills the normals of all triangles, so that threads only read them afterwards.
void RMesh::fillNormals()
{
    forSlicesMT(vRT.size(), 4,
                [this](size_t begin, size_t end)
                {
                    bool ok = false;
                    for (size_t i = begin; i < end; ++i)
                        if (vRT[i]->isAlive())
                            vRT[i]->getNNV(ok);
                });
}

/// Stores the gains of a chunk of edges. Those whose evaluation would change the mesh are put off for the calling
/// thread.
void RMesh::getEdgeFlipCandidates_MT_priv(const std::vector<REdge*>& vInRE, size_t from, size_t to,
                                          std::vector<GainEdge>& vImpRE, std::vector<size_t>& vPostponed)
{
    ZAV_ASSERT(to <= vImpRE.size(), "to<=vImpRE.size()");
    ZAV_ASSERT(to <= vInRE.size(), "to<=vInRE.size()");
    for (size_t i = from; i < to; ++i)
        if (double gain; !computeGainUnchanged(this, vInRE[i], gain))
            vPostponed.push_back(i);
        else if (gain != impossible)
            vImpRE[i] = {gain, vInRE[i]};
}

/// Removes the empty slots and the edges whose gain is too low. The random numbers are drawn in the order of the edges,
/// so that they don't depend on threads.
void RMesh::keepCandidates(double minImprovement, double temperature, std::vector<GainEdge>& vImpRE)
{
    const auto isKept = [=](const GainEdge& candidate)
    {
        const auto& [gain, pRE] = candidate;
        if (pRE == nullptr)
            return false;
        return gain >= minImprovement || gain >= 0.0 || (temperature > 0.0 && isDrawn(gain, temperature));
    };
    size_t numKept = 0;
    for (const GainEdge& candidate : vImpRE)
        if (isKept(candidate))
            vImpRE[numKept++] = candidate;
    vImpRE.resize(numKept);
}

namespace
{
/// An edge in the queue of flips.
struct FlipCandidate
{
    REdge* pRE;
    std::uint32_t evaluatedAt; ///< the mesh's count of flips when the gain was computed
};

/// Notes that a triangle changed, for itself and for those that share an edge with it: the gain of an edge depends on
/// its two triangles and on the ones beside them, and isUpToDate asks only the two.
void noteChange(const RTriangle* pRT, std::uint32_t now)
{
    for (int i = 0; i < 3; ++i)
        for (RTriangle* const pNear : pRT->getRE(i)->vRT)
            pNear->changedAt = now;
}

/// Whether computing the gain again would give the same bits. An edge between the opposite corners that has come since
/// isn't looked for: the flip fails by it, and the candidate is gone in either case.
bool isUpToDate(const FlipCandidate& candidate)
{
    RTriangle *t0, *t1;
    return candidate.pRE->getTwoTriangles(t0, t1, true) &&
           std::max(t0->changedAt, t1->changedAt) <= candidate.evaluatedAt;
}

/// Starts to load what later candidates will need. Each step follows pointers that an earlier call has fetched: first
/// the edge, eight candidates later its triangles, then their edges and corners.
template <class Queue>
void fetchAhead(const Queue& queue)
{
    if (const FlipCandidate* const pLater = queue.lookAhead(24))
        __builtin_prefetch(pLater->pRE);
    if (const FlipCandidate* const pLater = queue.lookAhead(16))
        for (const RTriangle* const pRT : pLater->pRE->vRT)
        {
            __builtin_prefetch(pRT);
            __builtin_prefetch(reinterpret_cast<const char*>(pRT + 1) - 1); // it may reach into the next cache line
        }
    if (const FlipCandidate* const pLater = queue.lookAhead(8))
        for (const RTriangle* const pRT : pLater->pRE->vRT)
            for (int i = 0; i < 3; ++i)
            {
                __builtin_prefetch(pRT->getRE(i));
                __builtin_prefetch(pRT->pVtx[i]);
            }
}
} // namespace

void RMesh::flipEdges()
{
    const std::vector<REdge*> vEdges = vRE; // a copy, as flips add edges
    const std::uint32_t evaluatedAt = numFlips;
    std::vector<GainEdge> vCand;
    getEdgeFlipCandidates_MT(vEdges, leastGain, 0.0, vCand);
    MIRT_TOOLS::StableQueue<double, FlipCandidate, std::greater<double>> queue;
    queue.pushAll(vCand, [evaluatedAt](REdge* pRE) { return FlipCandidate{pRE, evaluatedAt}; });

    // A candidate counts when it is through, flipped or not.
    Progress* const progress =
        getThreadProgress()->getChildProgressSetTodo("efLoop", std::max<size_t>(1, vCand.size()));
    while (!queue.empty())
    {
        const auto [savedImprovement, candidate] = queue.front();
        REdge* const pRE = candidate.pRE;
        queue.pop();
        fetchAhead(queue);
        ZAV_ASSERT(savedImprovement > impossible, "savedImprovement>-DBL_MAX");
        ZAV_ASSERT(pRE != nullptr, "pRE!=__null");
        // Flips nearby may have changed the gain since. An edge that gains less by now goes back into the queue: others
        // may come first.
        double freshImprovement = savedImprovement;
        if (candidate.evaluatedAt < allChangedAt || !isUpToDate(candidate))
        {
            if (!computeGainUnchanged(this, pRE, freshImprovement))
            {
                freshImprovement = computeGain(this, pRE);
                allChangedAt = ++numFlips;
            }
        }
        if (freshImprovement < savedImprovement && freshImprovement > leastGain)
        {
            queue.push(freshImprovement, {pRE, numFlips});
            continue;
        }
        progress->incProgressByOne();
        if (freshImprovement >= savedImprovement)
        {
            ZAV_ASSERT(freshImprovement >= 0, "freshImprovement>=0");
            ZAV_ASSERT(pRE->getDegree() == 2, "pRE->getDegree()==2");
            if (const REdge* const pNew = pRE->tryFlipEdge(this, nullptr, nullptr))
            {
                ++numFlips;
                for (const RTriangle* const pRT : pNew->vRT)
                    noteChange(pRT, numFlips);
            }
        }
    }
    killDegenerate();
    progress->endVisit();
}

void edgeFlipsSimA(RMesh* pRMesh, double temperature)
{
    std::vector<GainEdge> vImpRE;
    pRMesh->getEdgeFlipCandidates_MT(pRMesh->getREdgesRef(), 0.0, temperature, vImpRE);
    for (size_t i = 1; i < vImpRE.size(); ++i)
        if (const size_t j = static_cast<size_t>(std::rand()) % (i + 1); j != i)
            std::swap(vImpRE[i], vImpRE[j]);
    for (const auto& [gain, pRE] : vImpRE)
        if (pRE->getDegree() == 2 && computeGain(pRMesh, pRE) != impossible) // the draw went by the older gain
            pRE->tryFlipEdge(pRMesh, nullptr, nullptr);
}

} // namespace MIRT_ZAV
