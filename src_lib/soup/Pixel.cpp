#include "soup/Pixel.h"

#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

namespace MIRT_ZAV
{
namespace
{
constexpr size_t all = ~size_t(0);

/// A face, a range of its strips, or an edge.
struct Piece
{
    size_t item; // index of the face or the edge
    size_t firstStrip = 0;
    size_t lastStrip = all;
};

/// What one task rasterises.
struct Part
{
    struct Uncut
    {
        size_t index; // in the raster
        Plane plane;  // that doesn't cut the cell properly
    };

    std::vector<Piece> pieces;
    double size = 0.0; // expected number of samples
    Raster raster;
    CellPairs vFeatures, vBorders;
    std::vector<Uncut> vUncut;
    RecentCells recent;

    Part() { recent.clear(); }

    void clear()
    {
        recent.clear();
        pieces.clear();
        size = 0.0;
        raster.clear();
        vFeatures.clear();
        vBorders.clear();
        vUncut.clear();
    }
};

/// Rasterises pieces in batches of bounded size: the parts of a batch are filled in parallel, then claim their cells
/// one after the other, in the order in which the pieces were added. So a cell goes to the same piece for any number of
/// threads.
/// \tparam Fill   fill(piece, part) appends to the part, and reads what claims have changed
/// \tparam Claim  claim(part)
template <class Fill, class Claim>
class Batches
{
public:
    Batches(const Fill& fillArg, const Claim& claimArg) : fill(fillArg), claim(claimArg), parts(numParts) {}

    /// \param size  expected number of samples
    void add(const Piece& piece, double size)
    {
        if (parts[current].size >= partSize && ++current == numParts)
            finish();
        parts[current].pieces.push_back(piece);
        parts[current].size += size;
    }

    void finish()
    {
        ParallelLoop()(numParts,
                       [this](size_t i)
                       {
                           for (const Piece& piece : parts[i].pieces)
                               fill(piece, parts[i]);
                       });
        for (Part& part : parts)
        {
            claim(part);
            part.clear();
        }
        current = 0;
    }

private:
    static constexpr size_t numParts = 32;
    static constexpr double partSize = 8192.0; // a batch stays within a near cache

    const Fill& fill;
    const Claim& claim;
    std::vector<Part> parts;
    size_t current = 0;
};

/// The samples of a piece of a large face.
constexpr double pieceSize = 4096.0;

/// The first half of a sample sort: puts points into buckets of about equal size, the cells of one before those of the
/// next, in place.
/// \return the ends of the buckets
std::vector<size_t> distribute(std::span<Point3> points, const Calc& calc)
{
    constexpr size_t pointsPerBucket = 32768, samplesPerBucket = 16;
    const size_t numBuckets = std::clamp<size_t>(points.size() / pointsPerBucket, 1, 65536);
    std::vector<RCD> samples, starts; // starts: of all buckets but the first
    for (size_t i = 0; i < numBuckets * samplesPerBucket; ++i)
        samples.push_back(calc.getRCD(&points[i * points.size() / (numBuckets * samplesPerBucket)]));
    std::sort(samples.begin(), samples.end());
    for (size_t i = 1; i < numBuckets; ++i)
        starts.push_back(samples[i * samplesPerBucket]);

    std::vector<std::uint16_t> buckets(points.size());
    forSlicesMT(points.size(), 8,
                [&](size_t begin, size_t end)
                {
                    size_t bucket = 0;
                    for (size_t i = begin; i < end; ++i)
                    {
                        const RCD r = calc.getRCD(&points[i]);
                        const bool bSame = (bucket == 0 || starts[bucket - 1] <= r) &&
                                           (bucket + 1 == numBuckets || r < starts[bucket]);
                        if (!bSame) // rare: points come in the order of neighbouring triangles
                            bucket =
                                static_cast<size_t>(std::upper_bound(starts.begin(), starts.end(), r) - starts.begin());
                        buckets[i] = static_cast<std::uint16_t>(bucket);
                    }
                });

    std::vector<size_t> ends(numBuckets), next(numBuckets);
    for (const std::uint16_t bucket : buckets)
        ++ends[bucket];
    for (size_t bucket = 1; bucket < numBuckets; ++bucket)
    {
        next[bucket] = ends[bucket - 1];
        ends[bucket] += ends[bucket - 1];
    }
    for (size_t bucket = 0; bucket < numBuckets; ++bucket)
        for (; next[bucket] < ends[bucket]; ++next[bucket])
            while (buckets[next[bucket]] != bucket)
            {
                const size_t from = next[bucket], to = next[buckets[from]]++;
                std::swap(points[from], points[to]);
                std::swap(buckets[from], buckets[to]);
            }
    return ends;
}

/// The second half: sorts the points of some buckets by their cells, all of which differ. Nearly in place: the memory of
/// one array of points is most of what rasterisation needs.
void sortBuckets(std::span<Point3> points, const Calc& calc, const std::vector<size_t>& ends, size_t first, size_t last)
{
    ParallelLoop()(last - first,
                   [&](size_t i)
                   {
                       const size_t bucket = first + i;
                       const size_t begin = bucket == 0 ? 0 : ends[bucket - 1];
                       const std::span<Point3> part = points.subspan(begin, ends[bucket] - begin);
                       std::vector<std::pair<RCD, size_t>> order(part.size());
                       for (size_t k = 0; k < part.size(); ++k)
                           order[k] = {calc.getRCD(&part[k]), k};
                       radix::sortByKey(order.data(), order.data() + order.size());
                       const std::vector<Point3> unsorted(part.begin(), part.end());
                       for (size_t k = 0; k < part.size(); ++k)
                           part[k] = unsorted[order[k].second];
                   });
}
} // namespace

Pixel::Pixel(std::vector<Point3*>& vTriangleCorners, Calc* pCalcArg)
    : pCalc(pCalcArg), spacingAbs(pCalc->getSideLen()), xPlanes(pCalc->x0, pCalc->stepX, pCalc->numLevels),
      yPlanes(pCalc->y0, pCalc->stepY, pCalc->numLevels), zPlanes(pCalc->z0, pCalc->stepZ, pCalc->numLevels)
{
    ZAV_ASSERT(!vTriangleCorners.empty(), "!vTriangleCorners.empty()");
    ZAV_ASSERT(vTriangleCorners.size() % 3 == 0, "vTriangleCorners.size()%3==0");
    ZAV_ASSERT(spacingAbs > 0, "spacingAbs>0");
    linkEdge2T(vTriangleCorners);
    if (vTri.empty())
        warning(ZAV_LOCATION, "No non-degenerate triangles");
    else
        bfsSort();
}

void Pixel::linkEdge2T(const std::vector<Point3*>& vCorners)
{
    const size_t numInput = vCorners.size() / 3;
    collectMT(numInput, triangles,
              [&vCorners](size_t begin, size_t end, std::vector<Tri>& out)
              {
                  for (size_t i = begin; i < end; ++i)
                  {
                      Point3* const* const c = &vCorners[3 * i];
                      bool ok = false;
                      // Zero in spite of success where a coordinate isn't finite.
                      if (!getNormalVector(*c[0], *c[1], *c[2], ok).isZero() && ok)
                          out.emplace_back(c[0], c[1], c[2]);
                  }
              });
    vTri.resize(triangles.size());
    vEdge2Tri.resize(3 * triangles.size());
    ParallelLoop()(triangles.size(),
                   [this](size_t i)
                   {
                       Tri* const t = &triangles[i];
                       vTri[i] = t;
                       vEdge2Tri[3 * i] = {t->pVtx0, {t->pVtx1, t}};
                       vEdge2Tri[3 * i + 1] = {t->pVtx1, {t->pVtx2, t}};
                       vEdge2Tri[3 * i + 2] = {t->pVtx0, {t->pVtx2, t}};
                   });
    if (vTri.size() < numInput)
        warning(ZAV_LOCATION, "Degenerate triangles left out: " + toString(numInput - vTri.size()));
    sortMT(vEdge2Tri.begin(), vEdge2Tri.end());
}

/// Whether an entry is the first of its edge. The end of the list counts as one.
bool Pixel::isFirstOfRun(size_t i) const
{
    if (i == 0 || i == vEdge2Tri.size())
        return true;
    const auto &previous = vEdge2Tri[i - 1], &entry = vEdge2Tri[i];
    return previous.first != entry.first || previous.second.first != entry.second.first;
}

/// For the triangles by number: the first entries of the edges (0, 1), (1, 2) and (0, 2).
void Pixel::linkRuns(std::vector<std::array<size_t, 3>>& runs) const
{
    const auto link = [&](size_t i, size_t run)
    {
        const auto& [p1, rest] = vEdge2Tri[i];
        const auto& [p2, t] = rest;
        ZAV_ASSERT(p1 < p2, "p1<p2");
        runs[getNumber(t)][p1 == t->pVtx1 ? 1 : p2 == t->pVtx1 ? 0 : 2] = run;
    };
    ParallelLoop()(vEdge2Tri.size(),
                   [&](size_t run)
                   {
                       if (isFirstOfRun(run))
                           for (size_t i = run; i == run || !isFirstOfRun(i); ++i)
                               link(i, run);
                   });
}

/// Puts the triangles into breadth-first order over shared edges, starting at the last one. Cells that are claimed in a
/// row then share bricks, and what waits for its turn lies near in memory.
void Pixel::bfsSort()
{
    const size_t triSiz = vTri.size();
    std::vector<std::array<size_t, 3>> runs(triSiz); // where the entries of each edge of a triangle begin
    linkRuns(runs);

    std::vector<bool> bVisited(triSiz), bRunDone(vEdge2Tri.size()); // an edge brings nothing new a second time
    std::vector<Tri*> queue;                                        // and the new list
    queue.reserve(triSiz);
    const auto visit = [&](Tri* t)
    {
        const size_t number = getNumber(t);
        if (!bVisited[number])
            queue.push_back(t);
        bVisited[number] = true;
    };
    size_t done = 0;
    for (auto seed = vTri.rbegin(); seed != vTri.rend(); ++seed)
    {
        visit(*seed);
        for (; done < queue.size(); ++done)
            for (const size_t run : runs[getNumber(queue[done])])
            {
                if (bRunDone[run])
                    continue;
                bRunDone[run] = true;
                for (size_t i = run; i == run || !isFirstOfRun(i); ++i)
                    visit(vEdge2Tri[i].second.second);
            }
    }
    vTri.swap(queue);
    ZAV_ASSERT(vTri.size() == triSiz, "vTri.size()==triSiz");
}

void Pixel::pixelTriangles(std::vector<Point3>& vOut, std::vector<std::pair<CCD, CCD>>& vFeatures,
                           std::vector<std::pair<CCD, CCD>>& vBorders, double featureAngle)
{
    if (vTri.empty())
        return;
    checkAreas();
    std::vector<Point3> vPixels; // those of edges, then those of faces
    pixelAllEdges(featureAngle, vPixels, vFeatures, vBorders);
    const size_t numOnEdges = vPixels.size();
    claimFaces(vPixels);

    sortFaces(std::span(vPixels).subspan(numOnEdges), numOnEdges);
    // Cells were claimed as soon as their points were found, so that no cell comes twice.
    if (vOut.empty()) // the usual case, without a second copy
        vOut.swap(vPixels);
    else
        vOut.insert(vOut.end(), vPixels.begin(), vPixels.end());
}

/// Puts the points of faces in the order of their cells. Those of edges stay as they are, and their stage passes.
void Pixel::sortFaces(std::span<Point3> points, size_t numOnEdges) const
{
    const auto enter = [](const char* stage, size_t todo)
    { return getThreadProgress()->getChildProgressSetTodo(stage, todo); };
    Progress* const progress = enter("oifc", 100);
    const std::vector<size_t> ends = points.empty() ? std::vector<size_t>() : distribute(points, *pCalc);
    progress->endVisit();
    enter("mandiffe", numOnEdges)->endVisit();

    Progress* const forFaces = enter("mandiffa", points.size());
    const size_t atOnce = 8 * static_cast<size_t>(getGlobalNumCPU());
    for (size_t first = 0; first < ends.size(); first += atOnce)
    {
        const size_t last = std::min(ends.size(), first + atOnce);
        sortBuckets(points, *pCalc, ends, first, last);
        forFaces->incProgressEvenly(ends[last - 1] - (first == 0 ? 0 : ends[first - 1]));
    }
    forFaces->setDone(true);
}

/// A triangle that touches more cells than an int counts can't become a cloud. The greatest cut through a cell has the
/// area of its side times the root of 2. This bounds the work also for corners outside of the lattice.
void Pixel::checkAreas() const
{
    constexpr double maxCells = std::numeric_limits<int>::max();
    const double maxArea = maxCells * std::sqrt(2.0) * spacingAbs * spacingAbs;
    for (const Tri* const t : vTri)
        ZAV_ASSERT(getArea(t->pVtx0, t->pVtx1, t->pVtx2) < maxArea, "area<maxArea");
}

void Pixel::pixelAllEdges(double featureAngle, std::vector<Point3>& vPixels, CellPairs& vFeatures, CellPairs& vBorders)
{
    std::vector<FeatureRecord> vFE;
    std::vector<size_t> vNonFeat;
    splitEdges(featureAngle, vFE, vNonFeat);
    sortMT(vFE.begin(), vFE.end());
    reorderFeatureEdges(vFE);
    if (featureAngle >= 360.0) // borders alone; which of their points stay depends on this turn of the order
        std::reverse(vFE.begin(), vFE.end());
    claimFeatureEnds(vFE, vPixels);
    claimFeatureEdges(vFE, vPixels, vFeatures, vBorders);
    claimFlatEdges(vNonFeat, vPixels);
}

/// The largest fold between the first triangle at an edge and another one there. The edge is given by its first entry.
double Pixel::getFoldAngle(size_t run) const
{
    if (isFirstOfRun(run + 1))
        return borderAngle;
    const auto ends = getEnds(run);
    const auto getNormal = [&](size_t i) { return vEdge2Tri[i].second.second->getNNV(ends.first, ends.second); };
    const Vector3 n0 = getNormal(run);
    double angle = -1.0;
    for (size_t i = run + 1; !isFirstOfRun(i); ++i)
        angle = std::max(angle, getAngleDegree(n0, -getNormal(i)));
    return angle;
}

/// \param vNonFeat  first entries, in vEdge2Tri, of the edges that are no features
void Pixel::splitEdges(double featureAngle, std::vector<FeatureRecord>& vFE, std::vector<size_t>& vNonFeat)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("dih2e", 4 * vEdge2Tri.size());
    ParallelLoop()(triangles.size(), [this](size_t i) { triangles[i].prepareNormal(); });
    progress->incProgressEvenly(vEdge2Tri.size());
    for (const auto& [pA, rest] : vEdge2Tri) // reports triangles without a normal, on the caller's thread
        if (!rest.second->hasNormal())
            rest.second->getNNV(pA, rest.first);
    progress->incProgressEvenly(vEdge2Tri.size());

    const size_t n = vEdge2Tri.size();
    std::vector<double> angles(n); // of the edges, at their first entries
    ParallelLoop()(n, [&](size_t i) { angles[i] = isFirstOfRun(i) ? getFoldAngle(i) : 0.0; });
    progress->incProgressEvenly(n);
    for (size_t i = 0; i < n; ++i)
    {
        if (!isFirstOfRun(i))
            continue;
        if (isFirstOfRun(i + 1) || angles[i] > featureAngle)
            vFE.emplace_back(angles[i], getEnds(i));
        else
            vNonFeat.push_back(i);
    }
    progress->setDone(true);
}

void Pixel::reorderFeatureEdges(std::vector<FeatureRecord>& vFE) const
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("reo", 1);
    std::vector<FeatureRecord> vOrdered;
    FeatureMgr(vFE).getOrderedPairs(vOrdered);
    vFE.swap(vOrdered);
    progress->setDone(true);
}

/// The true corners come first, those of the sharpest edges before others.
void Pixel::claimFeatureEnds(const std::vector<FeatureRecord>& vFE, std::vector<Point3>& vPixels)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("rFins", vFE.size());
    for (auto it = vFE.rbegin(); it != vFE.rend(); ++it)
    {
        for (const Point3* const pEnd : {it->second.first, it->second.second})
            if (sClaimed.insert(pCalc->getRCD(pEnd)))
                vPixels.push_back(*pEnd);
        progress->incProgressByOne();
    }
    progress->setDone(true);
}

void Pixel::claimFeatureEdges(const std::vector<FeatureRecord>& vFE, std::vector<Point3>& vPixels, CellPairs& vFeatures,
                              CellPairs& vBorders)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("feate", vFE.size());
    const auto fill = [&](const Piece& piece, Part& part)
    {
        const auto& [angle, ends] = vFE[piece.item];
        const size_t first = part.raster.size();
        rasterizeEdge(*ends.first, *ends.second, part.raster);
        for (size_t i = first + 1; i < part.raster.size(); ++i)
        {
            const CCD ccd0 = pCalc->getCCD(&part.raster[i].second);
            const CCD ccd1 = pCalc->getCCD(&part.raster[i - 1].second);
            ZAV_ASSERT(ccd0 != ccd1, "ccd0!=ccd1");
            part.vFeatures.push_back(std::minmax(ccd0, ccd1));
            if (angle == borderAngle)
                part.vBorders.push_back(std::minmax(ccd0, ccd1));
        }
    };
    const auto claim = [&](const Part& part)
    {
        for (const auto& [r, point] : part.raster)
            if (sClaimed.insert(r))
                vPixels.push_back(point);
        vFeatures.insert(vFeatures.end(), part.vFeatures.begin(), part.vFeatures.end());
        vBorders.insert(vBorders.end(), part.vBorders.begin(), part.vBorders.end());
    };
    Batches batches(fill, claim);
    for (size_t i = vFE.size(); i-- > 0;)
    {
        batches.add({i}, static_cast<double>(countSteps(*vFE[i].second.first, *vFE[i].second.second) + 1));
        progress->incProgressByOne();
    }
    batches.finish();
    progress->setDone(true);
}

void Pixel::claimFlatEdges(const std::vector<size_t>& vNonFeat, std::vector<Point3>& vPixels)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("nfeate", vNonFeat.size());
    const auto fill = [&](const Piece& piece, Part& part)
    {
        const size_t run = vNonFeat[piece.item];
        const auto ends = getEnds(run);
        const Plane plane(*ends.first, vEdge2Tri[run].second.second->getNNV(ends.first, ends.second));
        size_t to = part.raster.size();
        rasterizeEdge(*ends.first, *ends.second, part.raster);
        for (size_t i = to; i < part.raster.size(); ++i)
        {
            auto [r, point] = part.raster[i];
            if (sClaimed.contains(r))
                continue;
            if (!moveOntoPlane(r, plane, point))
                part.vUncut.push_back({to, plane});
            part.raster[to++] = {r, point};
        }
        part.raster.resize(to);
    };
    const auto claim = [&](const Part& part)
    {
        auto uncut = part.vUncut.begin();
        for (size_t i = 0; i < part.raster.size(); ++i)
        {
            const auto& [r, point] = part.raster[i];
            const bool bUncut = uncut != part.vUncut.end() && uncut->index == i;
            if (sClaimed.insert(r))
            {
                vPixels.push_back(point);
                bool ok = true;
                if (bUncut)
                    getMidOfCutPlane(r, uncut->plane, ok); // for its warning
            }
            if (bUncut)
                ++uncut;
        }
    };
    Batches batches(fill, claim);
    for (size_t i = 0; i < vNonFeat.size(); ++i)
    {
        const auto ends = getEnds(vNonFeat[i]);
        batches.add({i}, static_cast<double>(countSteps(*ends.first, *ends.second) + 1));
        progress->incProgressByOne();
    }
    batches.finish();
    progress->setDone(true);
}

/// Appends the points of the cells that faces touch and no edge, in the order in which they were found.
void Pixel::claimFaces(std::vector<Point3>& vPixels)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("ar4", vTri.size());
    const auto makeStrips = [this](const Tri* t) { return Strips(*t->pVtx0, *t->pVtx1, *t->pVtx2, spacingAbs); };
    const auto fill = [&](const Piece& piece, Part& part)
    { rasterizeStrips(makeStrips(vTri[piece.item]), piece.firstStrip, piece.lastStrip, part.raster, &part.recent); };
    const auto claim = [&](const Part& part)
    {
        for (const auto& [r, point] : part.raster)
            if (sClaimed.insert(r))
                vPixels.push_back(point);
    };
    Batches batches(fill, claim);
    for (size_t i = 0; i < vTri.size(); ++i)
    {
        const Tri* const t = vTri[i];
        const double size = 1.0 + 3.0 * getArea(t->pVtx0, t->pVtx1, t->pVtx2) / (spacingAbs * spacingAbs);
        if (size <= pieceSize)
            batches.add({i}, size);
        else
        {
            const size_t numStrips = makeStrips(t).numStrips;
            const double stripSize = size / static_cast<double>(numStrips + 1);
            const size_t numTogether = 1 + static_cast<size_t>(pieceSize / stripSize);
            for (size_t k = 0; k < numStrips; k += numTogether)
                batches.add({i, k, k + numTogether}, stripSize * static_cast<double>(numTogether));
        }
        progress->incProgressByOne();
    }
    batches.finish();
    progress->setDone(true);
}

} // namespace MIRT_ZAV
