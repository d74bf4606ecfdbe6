// Patches of the coarse mesh: what hangs together over edges of degree 2.

#include "coarse/CMesh.h"

#include "base/sortMT.h"
#include "base/vectorHelpers.h"

#include <cstdint>
#include <new>
#include <numeric>

namespace MIRT_ZAV
{

/// Disjoint sets (union-find) of triangles by their places in vT. The lowest place of a set stands for it, and every
/// parent is lower than its children.
class CMesh::TriangleSets
{
public:
    explicit TriangleSets(size_t numT) : parents(numT) { std::iota(parents.begin(), parents.end(), 0u); }

    void unite(std::uint32_t i, std::uint32_t j)
    {
        i = findFirst(i);
        j = findFirst(j);
        parents[std::max(i, j)] = std::min(i, j);
    }

    /// Calls getNumber(first) for each set in order.
    /// \return the answer of its set for each triangle, by place. The object is used up
    template <class F>
    std::vector<std::uint32_t> number(const F& getNumber)
    {
        for (std::uint32_t i = 0; i < parents.size(); ++i)
            parents[i] =
                parents[i] == i ? getNumber(i) : parents[parents[i]]; // a parent is lower: it holds its answer by now
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

namespace
{
bool isGrownAcross(CEdge* e, const std::set<CEdge*>* pBlocked)
{
    return e->getDegree() == 2 && (pBlocked == nullptr || pBlocked->find(e) == pBlocked->end());
}
} // namespace

/// Unites triangles over the edges that patches grow across, and appends the other alive edges in order of creation.
///
/// Edges and triangles of one region are made and sorted near each other. Each slice of edges unites within the same
/// slice of triangles, which no other touches; the edges that lead out of it are left for the end.
void CMesh::uniteTriangles(const std::set<CEdge*>* pBlocked, TriangleSets& sets, std::vector<CEdge*>& vOuter) const
{
    struct Slice
    {
        std::vector<CEdge*> vOuter, vLater;
    };
    std::vector<Slice> slices(getGlobalNumCPU() < 2 ? 1 : 8 * static_cast<size_t>(getGlobalNumCPU()));
    const auto fillSlice = [&](size_t i)
    {
        const auto cut = [&slices](size_t n, size_t k) { return n * k / slices.size(); };
        const size_t firstT = cut(vT.size(), i), endT = cut(vT.size(), i + 1);
        const auto isInside = [&](const CTriangle* t) { return t->place >= firstT && t->place < endT; };
        for (size_t k = cut(vCE.size(), i); k < cut(vCE.size(), i + 1); ++k)
        {
            CEdge* const e = vCE[k];
            if (!isGrownAcross(e, pBlocked))
            {
                if (e->getDegree() > 0)
                    slices[i].vOuter.push_back(e);
            }
            else if (isInside(e->vT[0]) && isInside(e->vT[1]))
                sets.unite(e->vT[0]->place, e->vT[1]->place);
            else
                slices[i].vLater.push_back(e);
        }
    };
    ParallelLoop()(slices.size(), fillSlice);
    for (const Slice& slice : slices)
    {
        for (const CEdge* const e : slice.vLater)
            sets.unite(e->vT[0]->place, e->vT[1]->place);
        vOuter.insert(vOuter.end(), slice.vOuter.begin(), slice.vOuter.end());
    }
}

void CMesh::findPatches(const std::set<CEdge*>* pBlocked)
{
    destroyPatches();
    TriangleSets sets(vT.size());
    std::vector<CEdge*> vOuter; // in order of creation, that is, by address: so the rims come out sorted
    uniteTriangles(pBlocked, sets, vOuter);

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
    // The seed waits at the bottom of the stack and becomes the last member. Areas and volumes are summed in the order
    // of members: their last bits depend on it.
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
    // Patches lie in a pool: among equal corners the oldest patch comes first and stays.
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
