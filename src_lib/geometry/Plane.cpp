#include "geometry/Plane.h"

#include "base/tools.h"
#include "geometry/freeFunctions.h"

namespace MIRT_ZAV
{

Plane::Plane(const Point3& p, const Vector3& n) : normal(normalize(n)), d(normal * toVector(p))
{
}

Plane::Plane(const Point3& a, const Point3& b, const Point3& c)
{
    if (!setThrough(a, b, c))
        errorMsg(ZAV_LOCATION, "Degenerate plane");
}

Plane::Plane(const Point3& a, const Point3& b, const Point3& c, bool& ok)
{
    ok = setThrough(a, b, c);
}

bool Plane::setThrough(const Point3& a, const Point3& b, const Point3& c)
{
    const Vector3 cross = crossProduct(normalize(b - a), normalize(c - a));
    const double crossLen = cross.length();
    if (crossLen == 0.0)
        return false;
    normal = cross / crossLen;
    const double vecLen = normal.length();
    ZAV_ASSERT(vecLen > .99 && vecLen < 1.01, "vecLen>.99 && vecLen<1.01");
    d = normal * toVector(a);
    return true;
}

Point3 Plane::intersectLine(const Point3& p0, const Point3& p1, bool& ok) const
{
    const Vector3 dir = p1 - p0;
    const double slope = normal * dir;
    ok = slope != 0.0;
    if (!ok)
        return p0;
    return p0 + dir * ((d - normal * toVector(p0)) / slope);
}

Point3 Plane::projection(const Point3& p) const
{
    return p - normal * signedDistance(p);
}

} // namespace MIRT_ZAV
