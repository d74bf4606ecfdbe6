// Clean-up of the refined mesh: repeated triangles, one winding per patch, degenerate triangles.
#include "base/Progress.h"
#include "base/tools.h"
#include "geometry/freeFunctions.h"
#include "refined/RMesh.h"
#include "refined/RPatch.h"

#include <algorithm>
#include <set>

namespace MIRT_ZAV
{
namespace
{
using KeyedTriangle = std::pair<RMesh::VertexPair, RTriangle*>;

/// Appends, under the key of the edge, the triangles that repeat an earlier one of its list.
void getRepeatedTriangles(const REdge* pRE, std::vector<KeyedTriangle>& out)
{
    const auto getThird = [pRE](const RTriangle* pRT) { return pRT->getThirdPoint(pRE->pVtx0, pRE->pVtx1); };
    const REdge::TriangleList& vT = pRE->vRT;
    if (vT.size() == 2 && vT[0]->isAlive() && vT[1]->isAlive() && getThird(vT[0]) != getThird(vT[1]))
        return; // nearly every edge
    std::set<const Point3*> sThird;
    for (RTriangle* const pRT : vT)
        if (pRT->isAlive() && !sThird.insert(getThird(pRT)).second)
            out.push_back({{pRE->pVtx0, pRE->pVtx1}, pRT});
}

/// Whether the triangle is flat at corner 0. The angles at corners 1 and 2 don't count: a needle goes if its point is
/// corner 0, and stays otherwise. The bytes of every result depend on that.
bool isDegenerate(const RTriangle* pRT)
{
    const Vector3 u = *pRT->pVtx[1] - *pRT->pVtx[0];
    const Vector3 v = *pRT->pVtx[2] - *pRT->pVtx[0];
    if (u.isZero() || v.isZero())
        return true;
    const Vector3 uNormalized = normalize(u);
    const Vector3 vNormalized = normalize(v);
    if (std::fabs(uNormalized * vNormalized) < 0.99) // far from both limits, which spares the arc cosine
        return false;
    const double angle = getAngleDegree(uNormalized, vNormalized);
    return angle < 0.01 || angle > 179.99;
}

/// An edge collapse: pSrc moves onto the other end of pRE.
struct Collapse
{
    Point3* pSrc = nullptr;
    REdge* pRE = nullptr;
    double worst = 361.0; ///< the largest turn of a triangle around pSrc in degrees; as it stands above any turn
};

/// Replaces best if a collapse of c along one of its edges turns its triangles by less.
void improveCollapse(const RMesh& mesh, Point3* c, Collapse& best)
{
    std::vector<RTriangle*> vIncT;
    mesh.getIncidentT(c, vIncT);
    ZAV_ASSERT(!vIncT.empty(), "!vIncT.empty()");
    std::vector<REdge*> vIncRE;
    mesh.getIncidentRE(c, vIncRE);
    ZAV_ASSERT(!vIncRE.empty(), "!vIncRE.empty()");
    for (REdge* const pRE : vIncRE)
    {
        const Point3* const pOther = pRE->getOtherPoint(c);
        double worst = 0.0;
        for (const RTriangle* const pRT : vIncT)
            worst = std::max(worst, pRT->getDevIfRepl(pRT->getICI(c), *pOther, true));
        if (best.worst > worst)
            best = {c, pRE, worst};
    }
}
} // namespace

unsigned long RMesh::removeDups()
{
    std::vector<KeyedTriangle> vKill;
    collectMT(vRE.size(), vKill,
              [this](size_t begin, size_t end, std::vector<KeyedTriangle>& out)
              {
                  for (size_t i = begin; i < end; ++i)
                      getRepeatedTriangles(vRE[i], out);
              });
    // In the order of mRE. Each edge judges for itself: if one lists T before U, and another one U before T, the first
    // finds U and the second finds T. Both go then, and the bytes of every result depend on it.
    std::stable_sort(vKill.begin(), vKill.end(),
                     [](const KeyedTriangle& x, const KeyedTriangle& y) { return x.first < y.first; });
    for (const auto& [key, pRT] : vKill)
        if (pRT->isAlive())
            pRT->kill(this);
    return vKill.size();
}

unsigned long RMesh::createPatchesOrient()
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("RM_cpo", vRT.size());
    for (RPatch* const pPatch : vPatches)
        delete pPatch;
    vPatches.clear();
    for (RTriangle* const pRT : vRT)
        if (pRT->isAlive())
        {
            pRT->setPatch(nullptr);
            pRT->bVisited = false;
        }

    std::vector<RTriangle*> queue; // first in, first out
    for (RTriangle* const pSeed : vRT)
    {
        if (!pSeed->isAlive() || pSeed->bVisited)
            continue;
        vPatches.push_back(new RPatch(this));
        // The seed isn't marked, so that a neighbour queues it once more. That is one more step of progress and nothing
        // else: its neighbours are marked, and wound like it, by then.
        queue.assign(1, pSeed);
        for (size_t i = 0; i < queue.size(); ++i)
        {
            progress->incProgressByOne();
            vPatches.back()->add(queue[i]);
            queueUnvisitedNeighbours(queue[i], queue);
        }
    }
    progress->setDone(true);
    return vPatches.size();
}

/// Appends the neighbours across regular edges that weren't reached yet, wound like the triangle.
void RMesh::queueUnvisitedNeighbours(RTriangle* pRT, std::vector<RTriangle*>& queue)
{
    for (int i = 0; i < 3; ++i)
    {
        const REdge* const pRE = pRT->getRE(i);
        if (pRE->getDegree() != 2)
            continue;
        RTriangle* const pNeighbour = pRE->getUniqueOtherTriangle(pRT);
        if (pNeighbour == nullptr || pNeighbour->bVisited)
            continue;
        queue.push_back(pNeighbour);
        if (pRT->needFlip(pNeighbour))
            pNeighbour->flipNNV();
        pNeighbour->bVisited = true;
    }
}

void RMesh::killDegenerate()
{
    try
    {
        collapseDegenerate();
    }
    catch (...)
    {
        removeDups(); // the collapses until then, before a subscriber cancelled, have made some, too
        throw;
    }
    removeDups();
}

void RMesh::collapseDegenerate()
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("RM_kdeg", vRT.size());
    // Sound triangles needn't be queued: they stay sound unless a collapse changes them, which queues them then.
    std::vector<RTriangle*> stack;
    const size_t portion = std::max<size_t>(4096, vRT.size() / 32 + 1);
    for (size_t first = 0; first < vRT.size(); first += portion)
    {
        const size_t numBefore = stack.size(), n = std::min(portion, vRT.size() - first);
        collectMT(n, stack,
                  [this, first](size_t begin, size_t end, std::vector<RTriangle*>& out)
                  {
                      for (size_t i = first + begin; i < first + end; ++i)
                          if (vRT[i]->isAlive() && isDegenerate(vRT[i]))
                              out.push_back(vRT[i]);
                  });
        progress->incProgressBy(n - (stack.size() - numBefore));
    }
    while (!stack.empty())
    {
        RTriangle* const pRT = stack.back();
        stack.pop_back();
        progress->incProgressByOne();
        if (pRT->isAlive() && isDegenerate(pRT))
            getIncidentT(collapseBest(pRT), stack);
    }
    progress->endVisit();
}

/// Collapses an edge at one of the triangle's corners: the one that turns the triangles around the corner least, of
/// equals the first. It needn't be a side of the triangle.
/// \return the vertex that the corner moved to
Point3* RMesh::collapseBest(const RTriangle* pRT)
{
    Collapse best;
    for (Point3* const c : pRT->pVtx)
        improveCollapse(*this, c, best);
    ZAV_ASSERT(best.pRE != nullptr, "pBestRE!=__null");
    ZAV_ASSERT(best.pSrc != nullptr, "pBestSrc!=__null");
    Point3* const pTrg = best.pRE->getOtherPoint(best.pSrc);
    exchangeCorner(best.pSrc, pTrg);
    return pTrg;
}

} // namespace MIRT_ZAV
