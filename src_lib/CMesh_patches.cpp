// Patches of the coarse mesh: a flood over edges of degree 2.

#include "CMesh.h"

#include "sortMT.h"
#include "vectorHelpers.h"

#include <new>

namespace MIRT_ZAV
{
namespace
{
/// What the floods of one run share.
struct PatchFlood
{
    const std::set<CEdge*>* pBlocked;
    std::vector<CTriangle*> stack;
    std::vector<std::pair<CCD, CPatch*>> vCornerPatch; // third corner of a triangle to a non-manifold edge, its patch
    std::vector<CEdge*>& vNonManifold;

    void grow(CTriangle* seed, CPatch* patch)
    {
        push(seed);
        // The seed deliberately stays on the stack meanwhile: it becomes the patch's last member.
        checkEdges(seed, patch);
        while (!stack.empty())
        {
            CTriangle* const t = stack.back();
            stack.pop_back();
            patch->add(t);
            checkEdges(t, patch);
        }
    }

private:
    void push(CTriangle* t)
    {
        t->bVisited = true;
        stack.push_back(t);
    }

    void checkEdges(const CTriangle* t, CPatch* patch)
    {
        for (int i = 0; i < 3; ++i)
        {
            CEdge* const e = t->getCEdge(i);
            const int degree = e->getDegree();
            if (degree > 2)
            {
                vNonManifold.push_back(e);
                vCornerPatch.emplace_back(t->getCorner(i), patch);
            }
            else if (degree == 2 && (pBlocked == nullptr || pBlocked->find(e) == pBlocked->end()))
            {
                for (CTriangle* const u : e->vT)
                    if (u->isAlive() && !u->bVisited)
                        push(u);
            }
        }
    }
};
} // namespace

void CMesh::createPatches(std::set<CEdge*>* pBlocked, std::vector<CPatch*>& vOut, std::map<CCD, CPatch*>& mOut,
                          std::vector<CEdge*>& vNonManifold)
{
    destroyPatches();
    vPatches.reserve(vT.size() / 10);
    vNonManifold.reserve(vT.size() / 7);
    forSlicesMT(vT.size(), 2,
                [this](size_t begin, size_t end)
                {
                    for (size_t i = begin; i < end; ++i)
                    {
                        vT[i]->pPatch = nullptr;
                        vT[i]->bVisited = false;
                    }
                });

    PatchFlood flood{pBlocked, {}, {}, vNonManifold};
    for (CTriangle* const seed : vT)
        if (seed->isAlive() && !seed->bVisited)
        {
            vPatches.push_back(new (poolPatch.take()) CPatch(this, pCalc));
            flood.grow(seed, vPatches.back());
        }

    // Of several patches at one corner the first stays.
    sortMT(flood.vCornerPatch.begin(), flood.vCornerPatch.end());
    for (const auto& cornerPatch : flood.vCornerPatch)
        mOut.insert(mOut.end(), cornerPatch);
    if (&vOut != &vPatches)
        vOut = vPatches;
    oneInstance(vNonManifold);
}

void CMesh::destroyPatches()
{
    for (CPatch* const patch : vPatches)
        patch->~CPatch();
    vPatches.clear();
    poolPatch.backToFirstContainer();
}

} // namespace MIRT_ZAV
