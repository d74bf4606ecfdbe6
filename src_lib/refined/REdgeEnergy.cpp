#include "refined/REdgeEnergy.h"

#include "base/tools.h"
#include "geometry/ColorUtils.h"
#include "geometry/energyPower.h"
#include "geometry/freeFunctions.h"
#include "refined/REdge.h"
#include "refined/RMesh.h"
#include "refined/RTriangle.h"

#include <algorithm>
#include <iostream>

namespace MIRT_ZAV
{
namespace
{
constexpr double cosWide = -0.6427861415753421;     // of about 130 degrees
constexpr double cosVeryWide = -0.9396918140444841; // of about 160 degrees
constexpr double sharpestFold = 1.984807753;        // bending where the normals are about 170 degrees apart

double clampCos(double x)
{
    return std::clamp(x, -1.0, 1.0);
}

/// Cosine of the largest angle of a triangle from the directions of its sides: from corner 0 to 1, from 0 to 2, and
/// from 1 to 2.
double getMinCos(const Vector3& u, const Vector3& v, const Vector3& w)
{
    if (!u.isNV() || !v.isNV() || !w.isNV())
        return REdgeEnergy::impossible;
    return std::min({clampCos(u * v), clampCos(-(u * w)), clampCos(v * w)});
}

/// 0 for a flat edge, 2 for a fold back onto itself.
double getBending(const Vector3& n0, const Vector3& n1)
{
    const double dot = n0 * n1;
    return dot > 1.0 ? 0.0 : dot < -1.0 ? 2.0 : 1.0 - dot;
}

double getEdgeEnergy(double bending, double length)
{
    return energyPower(bending * length);
}

double getDistance(const Point3* p, const Point3* q)
{
    return (*q - *p).length();
}

/// What a flip gains by taking an edge across a border of colours into one along it. The contrast has to fall by more
/// than 4.6, twice what an eye can just tell apart, so that noise turns no edges. A flip the other way pays nothing.
double getColorBonus(const Point3* a, const Point3* b, const Point3* opp0, const Point3* opp1)
{
    if (!a->hasColor() || !b->hasColor() || !opp0->hasColor() || !opp1->hasColor())
        return 0.0;
    const double d = getColorDiffCIE76(a, b) - getColorDiffCIE76(opp0, opp1) - 4.6;
    if (d <= 0.0)
        return 0.0;
    return d < 10.0 ? 2.0 * d : 20.0;
}
} // namespace

/// The two triangles on an edge, and what the flip makes of them. The windings are the order of the letters: t0 is
/// (opp0, a, b), the new ones are (opp0, a, opp1) and (opp0, opp1, b).
///
///              opp0                          opp0
///        r02 /  t0  \ r01              r02 /  |  \ r01
///           a ------ b         ->         a   |   b
///        r11 \  t1  / r12              r11 \  |  / r12
///              opp1                          opp1
struct REdgeEnergy::Quad
{
    RTriangle* t0;
    RTriangle* t1;
    int i0; ///< the opposite corner's index in t0
    int i1;
    Point3* pOppCorner0;
    Point3* pOppCorner1;
    const Point3* a; ///< ends of the edge, in the order in which t0 comes to them from its opposite corner
    const Point3* b;
    Vector3 vec0; ///< normals of t0 and t1
    Vector3 vec1;
    Vector3 altVec0; ///< normals of the triangles after the flip, at a and at b
    Vector3 altVec1;

    Quad(const REdge* pRE, RTriangle* t0Arg, RTriangle* t1Arg)
        : t0(t0Arg), t1(t1Arg), i0(t0->getICI(pRE->pVtx0, pRE->pVtx1)), i1(t1->getICI(pRE->pVtx0, pRE->pVtx1)),
          pOppCorner0(t0->getCorner(i0)), pOppCorner1(t1->getCorner(i1)), a(t0->pVtx[(i0 + 1) % 3]),
          b(t0->pVtx[(i0 + 2) % 3])
    {
    }

    /// The directions of the new triangles' sides; their angles and their normals both need them.
    Vector3 toA, toB, toOpp1; ///< from opposite corner 0
    Vector3 aToOpp1;
    Vector3 opp1ToB;

    void getAltDirections()
    {
        toA = normalize(*a - *pOppCorner0);
        toB = normalize(*b - *pOppCorner0);
        toOpp1 = normalize(*pOppCorner1 - *pOppCorner0);
        aToOpp1 = normalize(*pOppCorner1 - *a);
        opp1ToB = normalize(*b - *pOppCorner1);
    }

    bool getAltNormals()
    {
        bool ok0 = false, ok1 = false;
        altVec0 = getNormalOfDirections(toA, toOpp1, ok0);
        altVec1 = getNormalOfDirections(toOpp1, toB, ok1);
        if (!ok0 || !ok1)
            return false;
        ZAV_ASSERT(altVec0.isNV() && altVec1.isNV(), "altVec0.isNV() && altVec1.isNV()");
        return true;
    }

    bool getNormals()
    {
        bool ok0 = false, ok1 = false;
        vec0 = t0->getNNV(ok0);
        vec1 = t1->getNNV(ok1);
        return ok0 && ok1;
    }
};

/// The energies of one of the four rim edges before and after the flip; 0 where the edge is a border or not manifold,
/// as it then has no single neighbour to bend against.
struct REdgeEnergy::RimTerm
{
    double cur = 0.0;
    double alt = 0.0;

    /// \param iRim         the rim edge, by its index in the triangle
    /// \param curNormal    of the triangle inside of the rim edge before the flip
    /// \param altNormal    of the one that will lie there
    /// \param text         the condition that a bug report names
    /// \param exclamation  if given, is printed with the normals before the report
    RimTerm(RTriangle* pRT, int iRim, const Vector3& curNormal, const Vector3& altNormal, const char* text,
            const char* exclamation = nullptr)
    {
        const REdge* const pRim = pRT->getRE(iRim);
        RTriangle* const pOuter = pRim->getUniqueOtherTriangle(pRT);
        if (pOuter == nullptr)
            return;
        bool ok = false;
        Vector3 vecN = pOuter->getNNV(ok);
        if (!ok)
            return;
        if (pRT->needFlip(pOuter))
            vecN = -vecN;
        const bool bNormals = vecN.isNV() && curNormal.isNV() && altNormal.isNV();
        if (!bNormals && exclamation != nullptr)
            std::cout << exclamation << vecN << ", " << curNormal << ", " << altNormal << std::endl;
        ZAV_ASSERT(bNormals, text);
        const double len = getDistance(pRim->pVtx0, pRim->pVtx1);
        cur = getEdgeEnergy(getBending(vecN, curNormal), len);
        alt = getEdgeEnergy(getBending(vecN, altNormal), len);
    }
};

REdgeEnergy::REdgeEnergy(RMesh* pRMeshArg, REdge* pREArg) : pRMesh(pRMeshArg), pRE(pREArg), result(impossible)
{
    ZAV_ASSERT(pRMesh != nullptr, "pRMesh!=__null");
}

void REdgeEnergy::compute()
{
    computeAs(true);
}

bool REdgeEnergy::computeUnchanged()
{
    return computeAs(false);
}

bool REdgeEnergy::computeAs(bool bMayChange)
{
    result = impossible;
    RTriangle *t0, *t1;
    if (!pRE->getTwoTriangles(t0, t1, true))
        return true;
    if (t0->needFlip(t1))
    {
        if (!bMayChange)
            return false;
        t1->flipNNV();
    }
    Quad quad(pRE, t0, t1);
    if (pRMesh->hasAliveEdge(quad.pOppCorner0, quad.pOppCorner1))
        return true;
    ZAV_ASSERT(quad.pOppCorner0 != quad.pOppCorner1, "pOppCorner0!=pOppCorner1");
    if (*quad.pOppCorner0 == *quad.pOppCorner1)
    {
        if (!bMayChange)
            return false;
        separateCorners(quad);
    }
    result = getGain(quad);
    return true;
}

/// The gain of a flip whose new edge isn't there yet, or impossible. A wide angle is paid eleven times where the flip
/// gains next to nothing.
double REdgeEnergy::getGain(Quad& quad) const
{
    quad.getAltDirections();
    double penalty = 0.0;
    if (!getAnglePenalty(quad, penalty) || !quad.getAltNormals())
        return impossible;
    const double altDih = getBending(quad.altVec0, quad.altVec1);
    if (!quad.getNormals())
        return impossible;
    const double curDih = getBending(quad.vec0, quad.vec1);
    if (altDih > sharpestFold && altDih > curDih)
        return impossible;

    double gain = getEnergyDrop(quad, curDih, altDih) - penalty;
    gain += getColorBonus(quad.a, quad.b, quad.pOppCorner0, quad.pOppCorner1);
    if (gain < 0.1)
        gain -= 10.0 * penalty;
    return gain;
}

/// Moves the opposite corners, which coincide, towards their neighbours or, where that doesn't help, the first one off
/// the surface. mVtx lists only one of the two. If the first one moves it takes that listing along, so that a move of
/// the second one ends in a bug; callers take that for an impossible flip, and by then the two are apart.
void REdgeEnergy::separateCorners(Quad& quad)
{
    pRMesh->laplacianForOne(quad.pOppCorner0);
    pRMesh->laplacianForOne(quad.pOppCorner1);
    Point3& p0 = *quad.pOppCorner0;
    const Point3 px = *quad.pOppCorner1;
    if (p0 == px)
    {
        // Not by updateVertex, which would unlist the old place, where the other corner still is. The price: this one
        // isn't listed at its new place, so that a later updateVertex of it ends in a bug.
        const double shift = 0.1 * pRMesh->getSideLen();
        bool ok = false;
        const Vector3 n = quad.t0->getNNV(ok);
        const Vector3 way = ok ? n * shift : Vector3(shift, 0.0, 0.0);
        p0.set(p0.x() + way.x(), p0.y() + way.y(), p0.z() + way.z());
    }
    ZAV_ASSERT(p0 != px, "p0!=px");
}

double REdgeEnergy::getMinCosPhi(const Point3* p0, const Point3* p1, const Point3* p2) const
{
    return getMinCos(normalize(*p1 - *p0), normalize(*p2 - *p0), normalize(*p2 - *p1));
}

/// What a flip pays that makes the largest angle wide and wider than it was; the energy alone doesn't mind slivers.
/// False when a new triangle has no angles.
bool REdgeEnergy::getAnglePenalty(const Quad& q, double& penalty) const
{
    const double newCos = std::min(getMinCos(q.toOpp1, q.toB, q.opp1ToB), getMinCos(q.toA, q.toOpp1, q.aToOpp1));
    if (newCos == impossible)
        return false;
    penalty = 0.0;
    if (newCos >= cosWide)
        return true;
    const double curInteriorCosPhi =
        std::min(getMinCosPhi(q.b, q.a, q.pOppCorner1), getMinCosPhi(q.pOppCorner0, q.a, q.b));
    ZAV_ASSERT(curInteriorCosPhi > impossible, "curInteriorCosPhi>-DBL_MAX");
    if (curInteriorCosPhi > newCos)
        penalty = newCos < cosVeryWide ? 1.0 : 0.1;
    return true;
}

/// How far the energy of the five edges falls. The rims are named as in the sketch of Quad.
double REdgeEnergy::getEnergyDrop(const Quad& q, double curDih, double altDih) const
{
    const auto after = [](int i) { return (i + 1) % 3; };
    const auto before = [](int i) { return (i + 2) % 3; };
    const RimTerm r01(q.t0, after(q.i0), q.vec0, q.altVec1, "vecN01.isNV() && vec0.isNV() && altVec1.isNV()");
    const RimTerm r02(q.t0, before(q.i0), q.vec0, q.altVec0, "vecN02.isNV() && vec0.isNV() && altVec0.isNV()", "OH, ");
    const RimTerm r11(q.t1, after(q.i1), q.vec1, q.altVec0, "vecN11.isNV() && vec1.isNV() && altVec0.isNV()");
    const RimTerm r12(q.t1, before(q.i1), q.vec1, q.altVec1, "vecN12.isNV() && vec1.isNV() && altVec1.isNV()");
    const double cur = getEdgeEnergy(curDih, getDistance(q.a, q.b)) + r01.cur + r02.cur + r11.cur + r12.cur;
    const double alt =
        getEdgeEnergy(altDih, getDistance(q.pOppCorner0, q.pOppCorner1)) + r01.alt + r02.alt + r11.alt + r12.alt;
    return cur - alt;
}

} // namespace MIRT_ZAV
