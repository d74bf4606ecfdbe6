#include "geometry/freeFunctions.h"

#include "geometry/arcCosine.h"

#include "base/tools.h"

#include <cmath>
#include <iostream>

namespace MIRT_ZAV
{

Vector3 getNormalVector(const Point3& a, const Point3& b, const Point3& c, bool& ok)
{
    const Vector3 u = b - a;
    const Vector3 v = c - a;
    ok = false;
    if (u.isZero() || v.isZero())
        return Vector3();
    return getNormalOfDirections(normalize(u), normalize(v), ok);
}

Vector3 getNormalVector(const Point3& a, const Point3& b, const Point3& c)
{
    bool ok = false;
    return getNormalVector(a, b, c, ok);
}

double getArea(const Point3* a, const Point3* b, const Point3* c)
{
    return 0.5 * crossProduct(*b - *a, *c - *a).length();
}

double computeArea(double l0, double l1, double l2)
{
    const double s = (l0 + l1 + l2) * 0.5;
    const double q = (s - l0) * s * (s - l1) * (s - l2);
    if (std::isnan(q))
    {
        warning("computeArea()", "invalid value, no area for this triangle");
        std::cout << "ownHalfCircf=" << s << "\nlen0=" << l0 << "\nlen1=" << l1 << "\nlen2=" << l2 << '\n';
        ZAV_BUG("false");
    }
    return q <= 0.0 ? 0.0 : std::sqrt(q);
}

double getArea25D(const Point3* a, const Point3* b, const Point3* c)
{
    return computeArea((*b - *a).length(), (*c - *b).length(), (*a - *c).length());
}

double computeVolume(std::vector<Point3*>& t)
{
    double sum = 0.0;
    for (size_t i = 0; i + 2 < t.size(); i += 3)
    {
        const Vector3 n = getNormalVector(*t[i], *t[i + 1], *t[i + 2]);
        sum += getArea25D(t[i], t[i + 1], t[i + 2]) * ((*t[i] - *t[0]) * n) / 3.0;
    }
    return sum;
}

double computeVolume(std::vector<Point3>& t)
{
    std::vector<Point3*> pointers;
    pointers.reserve(t.size());
    for (Point3& p : t)
        pointers.push_back(&p);
    return computeVolume(pointers);
}

double getAngleDegree(const Vector3& u, const Vector3& v)
{
    const double x = u * v;
    if (x > 1.0)
        return 0.0;
    if (x < -1.0)
        return 180.0;
    return 57.295779513 * arcCosineRounded(x); // 180 / pi, cut off: the bytes of every result depend on it
}

double getAngleRad(const Vector3& u, const Vector3& v)
{
    const double x = u * v;
    if (x > 1.0)
        return 0.0;
    if (x < -1.0)
        return 6.283185307;
    return arcCosine(x);
}

} // namespace MIRT_ZAV
