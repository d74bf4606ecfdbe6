// The choice between competing surfaces, tiny pieces at borders, and the orientation of the mesh.

#include "coarse/Top.h"

#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "base/vectorHelpers.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <set>

namespace MIRT_ZAV
{

bool Func_CPatchSort::operator()(const CPatch* a, const CPatch* b) const
{
    const auto &x = a->vOuterBoundary, &y = b->vOuterBoundary;
    const auto [itX, itY] = std::mismatch(x.begin(), x.end(), y.begin(), y.end());
    if (itX != x.end() && itY != y.end())
        return std::less<CEdge*>()(*itX, *itY);
    return x.size() != y.size() ? x.size() < y.size() : a->seqNum < b->seqNum;
}

bool Top::patchPairSolving(bool bStrict)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("TP_pps", 100);
    pCMesh->findPatches(nullptr);
    progress->incProgressEvenly(40);

    std::vector<CPatch*> vPatches = pCMesh->vPatches, vClosed, vRest;
    std::vector<std::pair<CPatch*, CPatch*>> vPairs;
    getPatchPairs(vPatches, vPairs, vClosed, vRest);
    listMembers(vPairs, vClosed);
    progress->incProgressEvenly(20);

    int numSolved = 0;
    const double meshArea = getAreaFor(vPairs);
    ProgressPart part(progress, 10, vPairs.size());
    for (const auto& [p, q] : vPairs)
    {
        if (solveOnePatchPair(p, q, meshArea))
            ++numSolved;
        part.count();
    }
    part.finish();

    ProgressPart partOfClosed(progress, 30, vClosed.size());
    if (simplifyClosedPatches(vClosed, bStrict, partOfClosed))
        ++numSolved;
    partOfClosed.finish();
    progress->setDone(true);
    return numSolved >= 1;
}

namespace
{
bool hasSameRim(const CPatch* p, const CPatch* q)
{
    const auto &x = p->vOuterBoundary, &y = q->vOuterBoundary;
    return x.size() == y.size() && std::memcmp(x.data(), y.data(), x.size() * sizeof(x[0])) == 0;
}

void killSmaller(CPatch* p, CPatch* q)
{
    (q->getSize() <= p->getSize() ? q : p)->killPatchAndMembers();
}
} // namespace

void Top::getPatchPairs(std::vector<CPatch*>& vPatches, std::vector<std::pair<CPatch*, CPatch*>>& vPairs,
                        std::vector<CPatch*>& vClosed, std::vector<CPatch*>& vRest)
{
    for (CPatch* const p : vPatches)
        if (p->vOuterBoundary.empty() && !p->vT.empty()) // put together by hand; the mesh finds rims without members
            p->setOuterBoundary();
    sortMT(vPatches.begin(), vPatches.end(), Func_CPatchSort());
    // The second patch of a pair gets a turn of its own, as a third one can have the same rim: which sheets die depends
    // on it.
    for (size_t i = 0; i < vPatches.size(); ++i)
    {
        CPatch* const p = vPatches[i];
        CPatch* const q = i + 1 < vPatches.size() ? vPatches[i + 1] : nullptr;
        if (!p->isAlive())
            continue;
        if (p->vOuterBoundary.empty())
            vClosed.push_back(p);
        else if (q == nullptr || !hasSameRim(p, q))
            vRest.push_back(p);
        else if (q->isAlive())
            vPairs.emplace_back(p, q);
    }
}

/// Lists the members of the patches that a decision is about: few, while most triangles are in the others.
void Top::listMembers(const std::vector<std::pair<CPatch*, CPatch*>>& vPairs, const std::vector<CPatch*>& vClosed) const
{
    const auto list = [this](CPatch* patch)
    {
        if (patch->vT.empty()) // the second of a pair can be the first of the next
            pCMesh->listMembers(patch, nullptr);
    };
    for (const auto& [p, q] : vPairs)
    {
        list(p);
        list(q);
    }
    std::for_each(vClosed.begin(), vClosed.end(), list);
}

namespace
{
bool areBothSmall(const CPatch* p, const CPatch* q)
{
    return p->getSize() < 21 && q->getSize() < 21;
}
} // namespace

/// The area of the mesh if a decision on the pairs needs it, else 0, which saves the sum.
double Top::getAreaFor(const std::vector<std::pair<CPatch*, CPatch*>>& vPairs) const
{
    const auto isSmall = [](const auto& pair) { return areBothSmall(pair.first, pair.second); };
    return std::all_of(vPairs.begin(), vPairs.end(), isSmall) ? 0.0 : pCMesh->getArea();
}

bool Top::solveOnePatchPair(CPatch* p, CPatch* q, double meshArea)
{
    if (!areBothSmall(p, q) && (p->getArea() + q->getArea()) / meshArea > 0.1)
        return false;
    killSmaller(p, q);
    return true;
}

namespace
{
bool isFreeStanding(const CPatch* patch)
{
    std::vector<CEdge*> vCE;
    patch->getAllCE(vCE);
    return std::all_of(vCE.begin(), vCE.end(), [](const CEdge* e) { return e->getDegree() == 2; });
}
} // namespace

bool Top::simplifyClosedPatches(std::vector<CPatch*>& vClosed, bool bStrict, ProgressPart& part)
{
    sortMT(vClosed.begin(), vClosed.end(),
           [](const CPatch* a, const CPatch* b)
           { return a->getSize() != b->getSize() ? a->getSize() < b->getSize() : a->seqNum < b->seqNum; });
    bool bKilled = false;
    for (CPatch* const patch : vClosed)
    {
        part.count();
        if (!patch->isAlive() || !patch->isClosed())
            continue;
        if (patch->getSize() <= 6 && isFreeStanding(patch))
            patch->killPatchAndMembers(); // gives no reason for another round
        else if (patch->splitClosedPatchKill(bStrict))
            bKilled = true;
    }
    return bKilled;
}

void createCC(std::vector<CEdge*> vEdges, std::vector<std::vector<CEdge*>>& vOut)
{
    std::vector<std::pair<VCD, size_t>> vEndEdge; // with the place in vEdges
    vEndEdge.reserve(2 * vEdges.size());
    for (size_t i = 0; i < vEdges.size(); ++i)
        for (const VCD end : {vEdges[i]->v0, vEdges[i]->v1})
            vEndEdge.emplace_back(end, i);
    sortMT(vEndEdge.begin(), vEndEdge.end());

    std::vector<char> taken(vEdges.size(), 0);
    std::vector<size_t> stack;
    const auto take = [&](size_t i)
    {
        taken[i] = 1;
        stack.push_back(i);
    };
    for (size_t first = 0; first < vEdges.size(); ++first)
    {
        if (taken[first] != 0)
            continue;
        std::vector<CEdge*>& component = vOut.emplace_back();
        take(first);
        while (!stack.empty())
        {
            CEdge* const e = vEdges[stack.back()];
            stack.pop_back();
            component.push_back(e);
            for (const VCD end : {e->v0, e->v1})
                for (auto it = std::lower_bound(vEndEdge.begin(), vEndEdge.end(), std::pair<VCD, size_t>(end, 0));
                     it != vEndEdge.end() && it->first == end; ++it)
                    if (taken[it->second] == 0)
                        take(it->second);
        }
        oneInstance(component);
    }
}

void Top::killTinyBorderPatches(size_t maxSize)
{
    std::vector<CEdge*> vBorders;
    pCMesh->getDegN(1, vBorders);
    std::vector<std::vector<CEdge*>> vComponents;
    createCC(vBorders, vComponents);
    std::vector<CTriangle*> vRegion;
    for (const std::vector<CEdge*>& component : vComponents)
    {
        CTriangle* seed = nullptr; // the first that earlier kills have left
        for (auto it = component.begin(); it != component.end() && seed == nullptr; ++it)
            seed = (*it)->getTriangle(false, true);
        if (seed == nullptr || !getTinyRegion(seed, maxSize, vRegion))
            continue;
        const size_t b = component.size(), r = vRegion.size();
        // An integer division, so that this is b >= r: which pieces die depends on it.
        const bool bLongBorder = static_cast<float>(b / r) > 0.2f;
        if (bLongBorder || r <= 6 || (r <= 24 && b >= 2))
            for (CTriangle* const t : vRegion)
                t->kill(pCMesh);
    }
}

/// The triangles that the seed reaches over edges of degree 2, itself included; false if they are more than maxSize.
bool Top::getTinyRegion(CTriangle* seed, size_t maxSize, std::vector<CTriangle*>& vRegion) const
{
    vRegion.clear();
    std::vector<CTriangle*> stack = {seed};
    std::set<CTriangle*> sSeen = {seed};
    while (!stack.empty())
    {
        CTriangle* const t = stack.back();
        stack.pop_back();
        vRegion.push_back(t);
        if (vRegion.size() > maxSize)
            return false;
        for (const CEdge* const e : {t->pCE12, t->pCE02, t->pCE01})
            if (e->getDegree() == 2)
                if (CTriangle* const u = e->getUniqueOtherTriangle(t); sSeen.insert(u).second)
                    stack.push_back(u);
    }
    return true;
}

void Top::createPatchesOrient(std::vector<CTriangle*>& vT, std::vector<CPatch*>& vPatches)
{
    ZAV_ASSERT(vPatches.empty(), "vPatches.empty()");
    for (CTriangle* const t : vT)
        t->bVisited = false;
    std::deque<CTriangle*> queue;
    std::vector<CTriangle*> vSide; // with a border or non-manifold edge: their neighbours wait for the clean ones
    for (CTriangle* const seed : vT)
    {
        if (!seed->isAlive() || seed->bVisited)
            continue;
        CPatch* const patch = vPatches.emplace_back(new CPatch(pCMesh, pCalc));
        seed->bVisited = true;
        queue.push_back(seed);
        while (!queue.empty())
        {
            CTriangle* const t = queue.front();
            queue.pop_front();
            patch->add(t);
            turnUnvisitedNeighbours(t,
                                    [&](CTriangle* u)
                                    {
                                        if (u->hasOnlyHalfEdges())
                                            queue.push_back(u);
                                        else
                                            vSide.push_back(u);
                                        u->bVisited = true;
                                    });
            if (queue.empty())
            {
                queue.assign(vSide.begin(), vSide.end());
                vSide.clear();
            }
        }
    }
}

} // namespace MIRT_ZAV
