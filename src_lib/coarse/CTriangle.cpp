#include "coarse/CTriangle.h"

#include "base/tools.h"
#include "coarse/CEdge.h"
#include "coarse/CMesh.h"
#include "geometry/freeFunctions.h"

#include <ostream>
#include <utility>

namespace MIRT_ZAV
{

CEdge* CTriangle::getCEdge(int i) const
{
    switch (i)
    {
    case 0:
        return pCE12;
    case 1:
        return pCE02;
    case 2:
        return pCE01;
    default:
        ZAV_BUG("false");
    }
}

VCD CTriangle::getCorner(int i) const
{
    switch (i)
    {
    case 0:
        return c0;
    case 1:
        return c1;
    case 2:
        return c2;
    default:
        ZAV_BUG("false");
    }
}

int CTriangle::getICI(VCD v) const
{
    for (int i = 0; i < 3; ++i)
        if (getCorner(i) == v)
            return i;
    ZAV_BUG("false");
}

int CTriangle::getICI(VCD a, VCD b) const
{
    for (int i = 0; i < 3; ++i)
        if (getCorner(i) != a && getCorner(i) != b)
            return i;
    ZAV_BUG("false");
}

VCD CTriangle::getThirdCCD(VCD a, VCD b) const
{
    return getCorner(getICI(a, b));
}

void CTriangle::getSortedCorners(VCD& c0_, VCD& c1_, VCD& c2_) const
{
    c0_ = c0;
    c1_ = c1;
    c2_ = c2;
    if (c1_ < c0_)
        std::swap(c0_, c1_);
    if (c2_ < c1_)
        std::swap(c1_, c2_);
    if (c1_ < c0_)
        std::swap(c0_, c1_);
    ZAV_ASSERT(c0_ < c1_ && c1_ < c2_, "c0_<c1_ && c1_<c2_");
}

int CTriangle::getHEDirection2(VCD a, VCD b) const
{
    if ((a == c0 && b == c1) || (a == c1 && b == c2) || (a == c2 && b == c0))
        return 1;
    if ((b == c0 && a == c1) || (b == c1 && a == c2) || (b == c2 && a == c0))
        return 2;
    return 0;
}

bool CTriangle::needFlip(const CTriangle* other) const
{
    const std::pair<VCD, VCD> halfEdges[] = {{c0, c1}, {c1, c2}, {c2, c0}};
    for (const auto& [a, b] : halfEdges)
        if (const int direction = other->getHEDirection2(a, b); direction != 0)
            return direction == 1;
    ZAV_BUG("false");
}

void CTriangle::flipNNV()
{
    std::swap(c1, c2);
    std::swap(pCE01, pCE02);
}

bool CTriangle::hasBorder() const
{
    return pCE01->vT.size() == 1 || pCE12->vT.size() == 1 || pCE02->vT.size() == 1;
}

bool CTriangle::hasOnlyHalfEdges() const
{
    return pCE01->vT.size() == 2 && pCE12->vT.size() == 2 && pCE02->vT.size() == 2;
}

bool CTriangle::isDegenerate(const CMesh* m) const
{
    const Point3 p0 = m->getAvgPoint(c0), p1 = m->getAvgPoint(c1), p2 = m->getAvgPoint(c2);
    if (p0 == p1 || p1 == p2 || p2 == p0)
        return true;
    const Vector3 u = p1 - p0, v = p2 - p0;
    return u.isZero() || v.isZero() || crossProduct(u, v).sqLength() == 0.0;
}

int CTriangle::getLargestEdgeICI(const CMesh* m) const
{
    const Point3 p0 = m->getAvgPoint(c0), p1 = m->getAvgPoint(c1), p2 = m->getAvgPoint(c2);
    const double d01 = (p1 - p0).sqLength(), d12 = (p2 - p1).sqLength(), d20 = (p0 - p2).sqLength();
    if (d01 >= d12 && d01 >= d20)
        return 2;
    return d12 >= d20 ? 0 : 1;
}

Vector3 CTriangle::getRealNNV(const CMesh* m, bool& ok) const
{
    return getNormalVector(m->getAvgPoint(c0), m->getAvgPoint(c1), m->getAvgPoint(c2), ok);
}

double CTriangle::getArea(const CMesh* m) const
{
    return MIRT_ZAV::getArea(m->getVtx(c0), m->getVtx(c1), m->getVtx(c2));
}

double CTriangle::getDevIfRepl(const CMesh* m, int i, const Point3& p) const
{
    const Point3 a = m->getAvgPoint(getCorner((i + 1) % 3)), b = m->getAvgPoint(getCorner((i + 2) % 3));
    bool okOld = false, okNew = false;
    const Vector3 nOld = getNormalVector(m->getAvgPoint(getCorner(i)), a, b, okOld);
    const Vector3 nNew = getNormalVector(p, a, b, okNew);
    if (!okNew)
        return 360.0;
    return okOld ? getAngleDegree(nOld, nNew) : -1.0;
}

void CTriangle::kill(CMesh* m)
{
    ZAV_ASSERT(isAlive(), "isAlive()");
    pCE12->checkOut(this);
    pCE02->checkOut(this);
    pCE01->checkOut(this);
    --m->numAliveT;
    bAlive = false;
}

std::ostream& operator<<(std::ostream& out, const CTriangle& t)
{
    return out << "CTriangle " << t.c0 << ", " << t.c1 << ", " << t.c2;
}

} // namespace MIRT_ZAV
