#include "coarse/Rotx.h"

#include "base/tools.h"
#include "base/vectorHelpers.h"
#include "coarse/CMesh.h"
#include "geometry/Plane.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

namespace MIRT_ZAV
{
namespace
{
constexpr int HE_SAME = 1; // what CTriangle::getHEDirection2 answers
constexpr int HE_OPPOSITE = 2;
constexpr double sameDirection = 1.0; // degrees; directions of cells that differ at all differ by more

/// Cell coordinates and differences of such, so with a sign.
using Coordinates = std::array<long long, 3>;

Coordinates getCoordinates(RCD r)
{
    return {static_cast<long long>(rcd::getX(r)), static_cast<long long>(rcd::getY(r)),
            static_cast<long long>(rcd::getZ(r))};
}

/// Packs nine coordinates of 3 bits. What doesn't fit gets a code that isn't in the table.
unsigned long long encode(const std::array<RCD, 3>& cells)
{
    constexpr unsigned long long noCode = ~0ull;
    unsigned long long code = 0;
    for (const RCD cell : cells)
        for (const long long coordinate : getCoordinates(cell))
        {
            if (coordinate > 7)
                return noCode;
            code = code << 3 | static_cast<unsigned long long>(coordinate);
        }
    return code;
}

/// Above 0 where t lies on the positive side of the plane through a, b and r, exactly.
long long getSide(RCD a, RCD b, RCD r, RCD t)
{
    const Coordinates origin = getCoordinates(a);
    std::array<Coordinates, 3> d = {getCoordinates(b), getCoordinates(r), getCoordinates(t)};
    for (Coordinates& direction : d)
        for (size_t axis = 0; axis < 3; ++axis)
            direction[axis] -= origin[axis];
    return d[2][0] * (d[0][1] * d[1][2] - d[0][2] * d[1][1]) + d[2][1] * (d[0][2] * d[1][0] - d[0][0] * d[1][2]) +
           d[2][2] * (d[0][0] * d[1][1] - d[0][1] * d[1][0]);
}
} // namespace

Rotx::Rotx(CMesh* pCMeshArg, bool bDevArg) : pCMesh(pCMeshArg), bDev(bDevArg), pCalc(pCMeshArg->getCalc())
{
    if (bDev)
        initDev();
    else
        initNormal();
}

void Rotx::initDev()
{
    dev_createEdges();
    for (const auto& [a, b] : sEdges)
    {
        std::vector<RCD> v;
        createThirdRCDs(a, b, v);
        sortThirdRCDs(a, b, v);
    }
}

void Rotx::dev_createEdges()
{
    std::vector<RCD> block;
    getSortedRCDCorners(rcd::fromXYZ(1, 1, 1), block);
    for (const RCD a : block)
        for (const RCD b : block)
            if (a != b)
                sEdges.emplace(a, b);
}

void Rotx::getSortedRCDCorners(RCD rcd, std::vector<RCD>& out)
{
    const auto numBefore = static_cast<std::ptrdiff_t>(out.size());
    for (const RCD dx : {RCD(0), rcd::xUnit})
        for (const RCD dy : {RCD(0), rcd::yUnit})
            for (const RCD dz : {RCD(0), rcd::zUnit})
                out.push_back(rcd + dx + dy + dz);
    std::sort(out.begin() + numBefore, out.end());
}

/// Appends the third cells for the edge (a, b). Triangles join cells around one lattice vertex, so some vertex has to
/// touch all three.
void Rotx::createThirdRCDs(RCD a, RCD b, std::vector<RCD>& out) const
{
    std::vector<RCD> verticesA, verticesB, common;
    getSortedRCDCorners(a, verticesA);
    getSortedRCDCorners(b, verticesB);
    std::set_intersection(verticesA.begin(), verticesA.end(), verticesB.begin(), verticesB.end(),
                          std::back_inserter(common));

    std::vector<RCD> candidates(2 * 26);
    Calc::completeArray26_RCD(a, candidates.data());
    Calc::completeArray26_RCD(b, candidates.data() + 26);
    oneInstance(candidates);
    for (const RCD candidate : candidates)
    {
        if (candidate == a || candidate == b)
            continue;
        std::vector<RCD> vertices;
        getSortedRCDCorners(candidate, vertices);
        if (std::any_of(vertices.begin(), vertices.end(),
                        [&](RCD vertex) { return std::binary_search(common.begin(), common.end(), vertex); }))
            out.push_back(candidate);
    }
}

/// Sorts third cells by the angles of their half planes at the edge, starting from the first cell's, and enters them.
void Rotx::sortThirdRCDs(RCD a, RCD b, std::vector<RCD>& v)
{
    const RCD r = v[0];
    const Point3 pointA = getMidPoint(a);
    const Point3 pointB = getMidPoint(b);
    const Vector3 reference = Plane(pointA, pointB, getMidPoint(r)).normal;
    std::vector<std::pair<double, RCD>> byAngle = {{0.0, r}};
    for (size_t i = 1; i < v.size(); ++i)
    {
        bool bOK = false;
        const Vector3 normal = getNormalVector(pointA, pointB, getMidPoint(v[i]), bOK);
        ZAV_ASSERT(bOK, "bOK");
        const double angle = getAngleDegree(reference, normal);
        // On integers: rounding must not put a cell that lies in the plane on its negative side, where 0 becomes 360.
        byAngle.emplace_back(getSide(a, b, r, v[i]) < 0 ? 360.0 - angle : angle, v[i]);
    }
    std::sort(byAngle.begin(), byAngle.end());

    v.clear();
    int index = 0;
    double last = 0.0;
    for (const auto& [angle, t] : byAngle)
    {
        if (std::fabs(last - angle) > sameDirection)
        {
            ++index;
            last = angle;
        }
        v.push_back(t);
        mEncoded2Index[encode({a, b, t})] = index;
    }
}

Point3 Rotx::getMidPoint(RCD rcd) const
{
    return pCalc->getMidPoint(pCalc->rcd2ccd(rcd));
}

int Rotx::getIdx(RCD a, RCD b, RCD c) const
{
    const auto q_it = mEncoded2Index.find(encode({a, b, c}));
    ZAV_ASSERT(q_it != mEncoded2Index.end(), "q_it!=mEncoded2Index.end()");
    return q_it->second;
}

bool Rotx::sortStar(CTriangle* pRefCT, CEdge* pEdge) const
{
    ZAV_ASSERT(pRefCT->isAlive(), "pRefCT->isAlive()");
    VCD vcd0 = pEdge->v0;
    VCD vcd1 = pEdge->v1;
    if (pRefCT->getHEDirection2(vcd0, vcd1) == HE_OPPOSITE)
        std::swap(vcd0, vcd1);
    ZAV_ASSERT(pRefCT->getHEDirection2(vcd0, vcd1) == HE_SAME, "pRefCT->getHEDirection2(vcd0,vcd1)==HE_SAME");

    // Shifts that bring the edge into the standard block.
    Coordinates shift;
    const Coordinates c0 = getCoordinates(pCalc->ccd2rcd(vcd0));
    const Coordinates c1 = getCoordinates(pCalc->ccd2rcd(vcd1));
    for (size_t axis = 0; axis < 3; ++axis)
        shift[axis] = 1 - std::min(c0[axis], c1[axis]);
    const auto toBlock = [&](VCD vcd)
    {
        const Coordinates c = getCoordinates(pCalc->ccd2rcd(vcd));
        const auto moved = [&](size_t axis) { return static_cast<u64>(c[axis] + shift[axis]) & 0x1fffff; };
        return rcd::fromXYZ(moved(0), moved(1), moved(2));
    };

    std::vector<std::pair<int, CTriangle*>> star;
    for (CTriangle* const pCT : pEdge->vT)
        if (pCT->isAlive())
            star.emplace_back(getIdx(toBlock(vcd0), toBlock(vcd1), toBlock(pCT->getThirdCCD(vcd0, vcd1))), pCT);
    pEdge->vT.clear();
    std::sort(star.begin(), star.end());

    const bool bAllApart =
        std::adjacent_find(star.begin(), star.end(), [](const auto& e, const auto& f) { return e.first == f.first; }) ==
        star.end();

    const auto ref = std::find_if(star.begin(), star.end(), [&](const auto& entry) { return entry.second == pRefCT; });
    const bool bHasRef = ref != star.end();
    ZAV_ASSERT(bHasRef, "bHasRef");
    std::rotate(star.begin(), ref, star.end());
    for (const auto& [index, pCT] : star)
        pEdge->vT.push_back(pCT);
    return bAllApart;
}

} // namespace MIRT_ZAV
