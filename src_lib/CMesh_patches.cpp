// Patches of the coarse mesh: what hangs together over edges of degree 2.

#include "CMesh.h"

#include "sortMT.h"
#include "vectorHelpers.h"

#include <cstdint>
#include <new>
#include <numeric>

namespace MIRT_ZAV
{
namespace
{
/// Disjoint sets of triangles by their places in vT. The first place of a set stands for it.
class TriangleSets
{
public:
    explicit TriangleSets(size_t numT) : parents(numT) { std::iota(parents.begin(), parents.end(), 0u); }

    void unite(std::uint32_t i, std::uint32_t j)
    {
        i = findFirst(i);
        j = findFirst(j);
        parents[std::max(i, j)] = std::min(i, j);
    }

    /// Calls getNumber(first) for each set in order and gives the answers to all members, by place. Ends the object's
    /// use.
    template <class F>
    std::vector<std::uint32_t> number(const F& getNumber)
    {
        for (std::uint32_t i = 0; i < parents.size(); ++i)
            parents[i] =
                parents[i] == i ? getNumber(i) : parents[parents[i]]; // a parent comes first: it has its answer
        return std::move(parents);
    }

private:
    std::uint32_t findFirst(std::uint32_t i)
    {
        while (parents[i] != i)
            i = parents[i] = parents[parents[i]];
        return i;
    }

    std::vector<std::uint32_t> parents;
};

bool isGrownAcross(CEdge* e, const std::set<CEdge*>* pBlocked)
{
    return e->getDegree() == 2 && (pBlocked == nullptr || pBlocked->find(e) == pBlocked->end());
}
} // namespace

void CMesh::findPatches(const std::set<CEdge*>* pBlocked)
{
    destroyPatches();
    TriangleSets sets(vT.size());
    std::vector<CEdge*> vOuter; // by address, as the rims are to be
    for (CEdge* const e : vCE)
        if (isGrownAcross(e, pBlocked))
            sets.unite(e->vT[0]->place, e->vT[1]->place);
        else if (e->getDegree() > 0)
            vOuter.push_back(e);

    const std::vector<std::uint32_t> numbers = sets.number(
        [this](std::uint32_t first)
        {
            if (vT[first]->isAlive())
                vPatches.push_back(new (poolPatch.take()) CPatch(this, pCalc, vT[first]));
            return static_cast<std::uint32_t>(vPatches.size() - 1);
        });
    for (CEdge* const e : vOuter)
        for (const CTriangle* const t : e->vT)
        {
            const std::uint32_t number = numbers[t->place];
            const auto isOfPatch = [&](const CTriangle* u) { return numbers[u->place] == number; };
            if (std::count_if(e->vT.begin(), e->vT.end(), isOfPatch) == 1)
                vPatches[number]->vOuterBoundary.push_back(e);
        }
}

void CMesh::listMembers(CPatch* patch, const std::set<CEdge*>* pBlocked) const
{
    std::vector<CTriangle*> stack;
    const auto pushNeighbours = [&](const CTriangle* t)
    {
        for (int i = 0; i < 3; ++i)
            if (CEdge* const e = t->getCEdge(i); isGrownAcross(e, pBlocked))
                for (CTriangle* const u : e->vT)
                    if (u->pPatch != patch)
                    {
                        u->pPatch = patch;
                        stack.push_back(u);
                    }
    };
    // The seed deliberately stays on the stack meanwhile: it becomes the patch's last member.
    patch->pSeed->pPatch = patch;
    stack.push_back(patch->pSeed);
    pushNeighbours(patch->pSeed);
    while (!stack.empty())
    {
        CTriangle* const t = stack.back();
        stack.pop_back();
        patch->vT.push_back(t);
        pushNeighbours(t);
    }
}

void CMesh::createPatches(std::set<CEdge*>* pBlocked, std::vector<CPatch*>& vOut, std::map<CCD, CPatch*>& mOut,
                          std::vector<CEdge*>& vNonManifold)
{
    findPatches(pBlocked);
    std::vector<std::pair<CCD, CPatch*>> vCornerPatch;
    for (CPatch* const patch : vPatches)
    {
        listMembers(patch, pBlocked);
        for (const CTriangle* const t : patch->vT)
            for (int i = 0; i < 3; ++i)
                if (t->getCEdge(i)->getDegree() > 2)
                {
                    vNonManifold.push_back(t->getCEdge(i));
                    vCornerPatch.emplace_back(t->getCorner(i), patch);
                }
    }
    // Of several patches at one corner the first stays.
    sortMT(vCornerPatch.begin(), vCornerPatch.end());
    mOut.insert(vCornerPatch.begin(), vCornerPatch.end());
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
