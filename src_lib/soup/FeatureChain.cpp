#include "soup/FeatureChain.h"

#include "base/sortMT.h"
#include "base/tools.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <array>

namespace MIRT_ZAV
{
namespace
{
/// Corners with fewer entries are searched one by one, others in a k-d tree of directions. Without it the hub of a
/// great fan would cost the square of the number of its edges.
constexpr size_t leastTreeSize = 64;
constexpr size_t leafSize = 8;

double coordinate(const Vector3& v, unsigned axis)
{
    return axis == 0 ? v.x() : axis == 1 ? v.y() : v.z();
}

/// Turns an edge around so that one of its ends is the given corner.
void orient(FeatureEdge* pEdge, Point3* FeatureEdge::*end, Point3* pCorner)
{
    if (pEdge->*end != pCorner)
        std::swap(pEdge->pSrc, pEdge->pTrg);
}
} // namespace

/// The best continuation found so far.
struct FeatureEdgeMap::Search
{
    static constexpr double maxTurn = 60.0; // degrees

    const FeatureEdge* pEdge; // which is continued
    Vector3 direction;
    size_t entry = ~size_t(0);
    double turn = 361.0;
    double leastCosine = 0.5 - tolerance; // directions below it turn by more for certain, and need no arc cosine
    double radius = 1.0 + tolerance;      // how far apart the tips of such unit vectors are at most

    static constexpr double tolerance = 1e-6; // far above what rounding does to either

    void test(const Entry& candidate, size_t i)
    {
        const FeatureEdge* const c = candidate.pEdge;
        const double cosine = direction * candidate.direction;
        if (c == pEdge || cosine < leastCosine)
            return;
        const double a = getAngleDegree(direction, candidate.direction);
        if (a > maxTurn || (c->angle > 360.0 && pEdge->angle < 360.0) || (c->angle < 360.0 && pEdge->angle > 360.0))
            return;
        if (!(a < turn || (a == turn && i < entry)))
            return;
        turn = a;
        entry = i;
        leastCosine = cosine - tolerance;
        radius = std::sqrt(std::max(0.0, 2.0 - 2.0 * cosine)) + tolerance;
    }
};

FeatureEdgeMap::FeatureEdgeMap(const std::vector<FeatureEdge*>& vFE)
{
    std::vector<std::pair<Point3*, FeatureEdge*>> vSorted;
    vSorted.reserve(2 * vFE.size());
    for (FeatureEdge* const c : vFE)
        vSorted.insert(vSorted.end(), {{c->pSrc, c}, {c->pTrg, c}});
    sortMT(vSorted.begin(), vSorted.end()); // entries of one corner by the address of the edge, that is by its number

    vEntries.resize(vSorted.size());
    for (size_t i = 0; i < vSorted.size(); ++i)
    {
        const auto [pCorner, c] = vSorted[i];
        const Point3* const pFar = c->pSrc == pCorner ? c->pTrg : c->pSrc;
        const Vector3 direction = normalize(*pFar - *pCorner);
        vEntries[i] = {c, direction.isNV() ? direction : Vector3()}; // zero has cosine 0, too little for any turn
        if (i == 0 || vSorted[i - 1].first != pCorner)
            vCorners.emplace_back(pCorner, i);
    }
    vTree.resize(vEntries.size());
    vAxis.resize(vEntries.size());
    for (size_t i = 0; i < vCorners.size(); ++i)
    {
        const size_t first = vCorners[i].second;
        const size_t last = i + 1 < vCorners.size() ? vCorners[i + 1].second : vEntries.size();
        for (size_t entry = first; entry < last; ++entry)
            vTree[entry] = entry;
        if (last - first >= leastTreeSize)
            buildTree(first, last);
    }
}

/// Cuts a range along the axis of its greatest extent: the middle becomes the root, none before it has a greater
/// coordinate and none behind it a lesser one.
void FeatureEdgeMap::buildTree(size_t first, size_t last)
{
    if (last - first <= leafSize)
        return;
    const auto valueOf = [this](size_t entry, unsigned axis) { return coordinate(vEntries[entry].direction, axis); };
    unsigned bestAxis = 0;
    double bestExtent = -1.0;
    for (unsigned axis = 0; axis < 3; ++axis)
    {
        double low = 1.0, high = -1.0;
        for (size_t i = first; i < last; ++i)
        {
            low = std::min(low, valueOf(vTree[i], axis));
            high = std::max(high, valueOf(vTree[i], axis));
        }
        if (high - low > bestExtent)
        {
            bestExtent = high - low;
            bestAxis = axis;
        }
    }
    const size_t middle = first + (last - first) / 2;
    const auto at = [this](size_t i) { return vTree.begin() + static_cast<std::ptrdiff_t>(i); };
    std::nth_element(at(first), at(middle), at(last),
                     [&](size_t x, size_t y) { return valueOf(x, bestAxis) < valueOf(y, bestAxis); });
    vAxis[middle] = static_cast<unsigned char>(bestAxis);
    buildTree(first, middle);
    buildTree(middle + 1, last);
}

void FeatureEdgeMap::searchTree(size_t first, size_t last, Search& search) const
{
    if (last - first <= leafSize)
    {
        for (size_t i = first; i < last; ++i)
            search.test(vEntries[vTree[i]], vTree[i]);
        return;
    }
    const size_t middle = first + (last - first) / 2;
    const Entry& root = vEntries[vTree[middle]];
    search.test(root, vTree[middle]);
    const double ahead = coordinate(search.direction, vAxis[middle]) - coordinate(root.direction, vAxis[middle]);
    for (const bool bLower : {ahead < 0.0, !(ahead < 0.0)}) // the nearer half first
        if (bLower ? ahead <= search.radius : ahead >= -search.radius)
            bLower ? searchTree(first, middle, search) : searchTree(middle + 1, last, search);
}

std::span<const FeatureEdgeMap::Entry> FeatureEdgeMap::getEntries(Point3* pCorner) const
{
    const auto it = std::lower_bound(vCorners.begin(), vCorners.end(), std::pair(pCorner, size_t(0)));
    if (it == vCorners.end() || it->first != pCorner)
        return {};
    const size_t last = it + 1 != vCorners.end() ? it[1].second : vEntries.size();
    return {vEntries.data() + it->second, last - it->second};
}

FeatureEdge* FeatureEdgeMap::findStraightest(const FeatureEdge* pEdge, Point3* pEnd, const Vector3& direction) const
{
    const auto entries = getEntries(pEnd);
    if (entries.empty())
        return nullptr;
    const size_t first = static_cast<size_t>(entries.data() - vEntries.data());
    Search search{pEdge, direction};
    if (entries.size() >= leastTreeSize)
        searchTree(first, first + entries.size(), search);
    else
        for (size_t i = 0; i < entries.size(); ++i)
            search.test(entries[i], first + i);
    return search.turn < 361.0 ? vEntries[search.entry].pEdge : nullptr;
}

FeatureChain::FeatureChain(FeatureEdge* pSeed, const FeatureEdgeMap& mmVtxFE) : lEdges(1, pSeed)
{
    while (growBack(mmVtxFE))
    {
    }
    while (growFront(mmVtxFE))
    {
    }
    for (const FeatureEdge* const pFE : lEdges)
        angle += pFE->angle;
    angle /= static_cast<double>(lEdges.size());
}

bool FeatureChain::growBack(const FeatureEdgeMap& mmVtxFE)
{
    const FeatureEdge* const b = lEdges.back();
    Point3* const q = b->pTrg;
    FeatureEdge* const pNextFE = mmVtxFE.findStraightest(b, q, normalize(*b->pTrg - *b->pSrc));
    if (pNextFE == nullptr || pNextFE->pChain != nullptr)
        return false; // a free second best isn't tried: where chains end depends on it
    orient(pNextFE, &FeatureEdge::pSrc, q);
    ZAV_ASSERT(pNextFE->pSrc == q, "pNextFE->pSrc==q");
    lEdges.push_back(pNextFE);
    pNextFE->pChain = this;
    return lEdges.front()->pSrc != pNextFE->pTrg;
}

bool FeatureChain::growFront(const FeatureEdgeMap& mmVtxFE)
{
    const FeatureEdge* const f = lEdges.front();
    Point3* const q = f->pSrc;
    FeatureEdge* const pPrevFE = mmVtxFE.findStraightest(f, q, normalize(*f->pSrc - *f->pTrg));
    if (pPrevFE == nullptr || pPrevFE->pChain != nullptr)
        return false;
    orient(pPrevFE, &FeatureEdge::pTrg, q);
    ZAV_ASSERT(pPrevFE->pTrg == q, "pPrevFE->pTrg==q");
    lEdges.push_front(pPrevFE);
    pPrevFE->pChain = this;
    return lEdges.back()->pTrg != pPrevFE->pSrc;
}

} // namespace MIRT_ZAV
