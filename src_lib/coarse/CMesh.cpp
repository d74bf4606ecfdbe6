#include "coarse/CMesh.h"

#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <new>
#include <numeric>

namespace MIRT_ZAV
{
namespace
{
/// The two upper corners of a triangle, sorted. Among equal ones the address decides: addresses in the pool rise, so
/// that the oldest comes first.
struct Func_sortT
{
    VCD c1;
    VCD c2;
    CTriangle* t;

    auto operator<=>(const Func_sortT&) const = default;
};

void sortByOtherCorners(CTriangle* const* first, CTriangle* const* last, std::vector<Func_sortT>& out)
{
    out.clear();
    for (; first != last; ++first)
    {
        VCD corner0 = 0, corner1 = 0, corner2 = 0;
        (*first)->getSortedCorners(corner0, corner1, corner2);
        out.push_back({corner1, corner2, *first});
    }
    std::sort(out.begin(), out.end());
}

std::vector<CCD> getKeys(const std::map<CCD, Bundle*>& bundles)
{
    std::vector<CCD> keys;
    keys.reserve(bundles.size());
    for (const auto& [c, bundle] : bundles)
        keys.push_back(c);
    return keys;
}
} // namespace

CMesh::CMesh(Voro* pVoroArg, Calc* pCalcArg, std::map<CCD, Bundle*>* pMap, const std::vector<CCD>& vFill)
    : pVoro(pVoroArg), pCalc(pCalcArg), pMapCCDBundle(pMap), vZeroCCD(vFill), vertices(getKeys(*pMap))
{
    poolT.init(1000, -1, 1250000);
    poolCE.init(1000, -1, 2083333);
    poolPatch.init(100, -1, 595238);
    enterPoints();
}

CMesh::~CMesh()
{
    reset();
    for (Bundle* const b : vAdditionalBundles)
        deleteBundle(b);
}

CTriangle* CMesh::createT(VCD a, VCD b, VCD c, VCD vcd, int config)
{
    ZAV_ASSERT(a != b && b != c && a != c, "v0!=v1 && v1!=v2 && v0!=v2");
    const auto place = static_cast<std::uint32_t>(vT.size());
    CTriangle* const t =
        new (poolT.take()) CTriangle{nullptr, nullptr, nullptr, nullptr, a, b, c, vcd, config, place, false, true};
    ++numAliveT;
    vT.push_back(t);
    t->pCE01 = attachEdge(a, b, t);
    t->pCE12 = attachEdge(b, c, t);
    t->pCE02 = attachEdge(a, c, t);
    return t;
}

CEdge* CMesh::attachEdge(VCD a, VCD b, CTriangle* t)
{
    CEdge* e = getEdge(a, b);
    if (e == nullptr)
    {
        const auto [lower, upper] = std::minmax(a, b);
        CEdge*& firstUpward = vertices.findOrAdd(lower).firstUpward;
        e = new (poolCE.take()) CEdge(lower, upper, firstUpward, nullptr);
        firstUpward = e;
        CEdge*& firstDownward = vertices.findOrAdd(upper).firstDownward;
        e->nextOfUpper = firstDownward;
        firstDownward = e;
        vCE.push_back(e);
    }
    e->vT.push_back(t);
    return e;
}

/// A stable counting sort of vT by the lowest corners.
/// \return for each corner, in order of codes, where its triangles end in vT
std::vector<size_t> CMesh::sortByLowestCorner()
{
    std::vector<std::uint32_t> lowest(vT.size()); // the corner's place in the vertex table
    forSlicesMT(vT.size(), 8,
                [&](size_t begin, size_t end)
                {
                    for (size_t i = begin; i < end; ++i)
                        lowest[i] = vertices.getPlace(std::min({vT[i]->c0, vT[i]->c1, vT[i]->c2}));
                });
    const std::vector<std::uint32_t> places = vertices.getPlacesInOrder();
    std::vector<size_t> position(places.size(), 0); // by place: a count, then where the next one goes
    for (const std::uint32_t place : lowest)
        ++position[place];
    size_t numBefore = 0;
    for (const std::uint32_t place : places)
        numBefore += std::exchange(position[place], numBefore);
    std::vector<CTriangle*> sorted(vT.size());
    for (size_t i = 0; i < vT.size(); ++i)
        sorted[position[lowest[i]]++] = vT[i];
    std::copy(sorted.begin(), sorted.end(), vT.begin());
    std::vector<size_t> ends;
    ends.reserve(places.size());
    for (const std::uint32_t place : places)
        ends.push_back(position[place]);
    return ends;
}

int CMesh::killDups()
{
    const std::vector<size_t> ends = sortByLowestCorner();
    std::vector<CTriangle*> vDups;
    collectMT(ends.size(), vDups,
              [&](size_t beginCorner, size_t endCorner, std::vector<CTriangle*>& dups)
              {
                  std::vector<Func_sortT> sorted;
                  for (size_t i = beginCorner; i < endCorner; ++i)
                  {
                      const size_t begin = i == 0 ? 0 : ends[i - 1];
                      sortByOtherCorners(vT.data() + begin, vT.data() + ends[i], sorted);
                      const Func_sortT* survivor = nullptr;
                      for (size_t k = 0; k < sorted.size(); ++k)
                      {
                          vT[begin + k] = sorted[k].t;
                          vT[begin + k]->place = static_cast<std::uint32_t>(begin + k);
                          if (!sorted[k].t->isAlive())
                              continue;
                          if (survivor != nullptr && survivor->c1 == sorted[k].c1 && survivor->c2 == sorted[k].c2)
                              dups.push_back(sorted[k].t);
                          else
                              survivor = &sorted[k];
                      }
                  }
              });
    for (CTriangle* const t : vDups)
        t->kill(this);
    return static_cast<int>(vDups.size());
}

void CMesh::reset()
{
    destroyPatches();
    vT.clear();
    for (CEdge* const e : vCE)
        e->~CEdge();
    vCE.clear();
    vertices.dropEdges();
    numAliveT = 0;
    poolT.backToFirstContainer();
    poolCE.backToFirstContainer();
}

void CMesh::expectVertices(const std::vector<CCD>& sortedCells)
{
    ZAV_ASSERT(vT.empty(), "vT.empty()");
    vertices = CVertexTable(sortedCells);
    enterPoints();
    // More than a shell of cells has: what isn't touched costs address space alone.
    vT.reserve(3 * sortedCells.size());
    vCE.reserve(4 * sortedCells.size());
}

/// Gives the vertices the points of their bundles.
void CMesh::enterPoints()
{
    for (const auto& [c, bundle] : *pMapCCDBundle)
        if (CVertex* const vertex = vertices.find(c))
            vertex->pVtx = bundle->pVtx;
}

CEdge* CMesh::getEdge(VCD a, VCD b) const
{
    const auto [lower, upper] = std::minmax(a, b);
    const CVertex* const vertex = vertices.find(lower);
    CEdge* e = vertex == nullptr ? nullptr : vertex->firstUpward;
    while (e != nullptr && e->v1 != upper)
        e = e->nextOfLower;
    return e;
}

/// Calls f for the edges at v, dead ones included.
template <class F>
void CMesh::forEachEdgeAt(VCD v, const F& f) const
{
    const CVertex* const vertex = vertices.find(v);
    if (vertex == nullptr)
        return;
    for (CEdge* e = vertex->firstUpward; e != nullptr; e = e->nextOfLower)
        f(e);
    for (CEdge* e = vertex->firstDownward; e != nullptr; e = e->nextOfUpper)
        f(e);
}

void CMesh::getIncidentT(VCD v, std::vector<CTriangle*>& out) const
{
    std::vector<CTriangle*> triangles; // each comes twice, as two of its edges end here
    forEachEdgeAt(v, [&triangles](const CEdge* e) { e->getAliveTriangles(triangles); });
    oneInstance(triangles);
    out.insert(out.end(), triangles.begin(), triangles.end());
}

void CMesh::getIncidentCE(VCD v, std::vector<CEdge*>& out) const
{
    const auto numBefore = static_cast<std::ptrdiff_t>(out.size());
    forEachEdgeAt(v,
                  [&out](CEdge* e)
                  {
                      if (e->getDegree() > 0)
                          out.push_back(e);
                  });
    std::sort(out.begin() + numBefore, out.end());
}

void CMesh::getAliveTriangles(std::vector<CTriangle*>& out) const
{
    out.reserve(out.size() + vT.size());
    std::copy_if(vT.begin(), vT.end(), std::back_inserter(out), [](const CTriangle* t) { return t->isAlive(); });
}

void CMesh::getCEdges(std::vector<CEdge*>& out) const
{
    getCEdgesIf([](const CEdge*) { return true; }, out);
}

void CMesh::getDegN(int n, std::vector<CEdge*>& out) const
{
    if (n <= 0 && n != -1 && n != -5 && n != -99)
    {
        if (!vCE.empty())
            warning(ZAV_LOCATION, "deg=" + toString(n));
        return;
    }
    getCEdgesIf(
        [n](const CEdge* e)
        {
            const int degree = e->getDegree();
            switch (n)
            {
            case -1:
                return degree >= 3;
            case -5:
                return degree == 1 || degree >= 3;
            case -99:
                return degree > 0;
            default:
                return degree == n;
            }
        },
        out);
}

double CMesh::getArea() const
{
    std::vector<double> areas(vT.size(), 0.0);
    forSlicesMT(vT.size(), 8,
                [&](size_t begin, size_t end)
                {
                    for (size_t i = begin; i < end; ++i)
                        if (vT[i]->isAlive())
                            areas[i] = vT[i]->getArea(this);
                });
    // Summed in order, on one thread: the last bits depend on it.
    return std::accumulate(areas.begin(), areas.end(), 0.0);
}

Point3* CMesh::getVtx(VCD v) const
{
    Point3* const pVtx = findVtx(v);
    ZAV_ASSERT(pVtx != nullptr, "q_it!=mCCDBundle.end()");
    return pVtx;
}

/// The vertex of a cell, or null if the cell has no bundle.
Point3* CMesh::findVtx(VCD v) const
{
    const CVertex* const vertex = vertices.find(v);
    if (vertex != nullptr && vertex->pVtx != nullptr)
        return vertex->pVtx;
    const auto it = pMapCCDBundle->find(v); // no vertex as yet, or a bundle that came later: the map is shared
    return it == pMapCCDBundle->end() ? nullptr : it->second->pVtx;
}

} // namespace MIRT_ZAV
