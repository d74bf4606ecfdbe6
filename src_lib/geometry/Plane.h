// An oriented plane in space.
#pragma once

#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// A point p lies on the plane when normal * p == d. The default plane has a zero normal and d 0, and so has a plane
/// through three points that don't span one.
class Plane
{
public:
    Vector3 normal;
    double d = 0.0;

    Plane() = default;
    Plane(const Point3& p, const Vector3& n);
    /// Reports "Degenerate plane" on standard output when the points span no plane.
    Plane(const Point3& a, const Point3& b, const Point3& c);
    /// ok is false when the points span no plane; nothing is printed.
    Plane(const Point3& a, const Point3& b, const Point3& c, bool& ok);

    double signedDistance(const Point3& p) const { return normal * toVector(p) - d; }
    bool hasOnPositiveSide(const Point3& p) const { return signedDistance(p) > 0.0; }
    bool hasOnNegativeSide(const Point3& p) const { return signedDistance(p) < 0.0; }

    /// Where the infinite line through p0 and p1 meets the plane. A line along the plane gives ok false and p0 with its
    /// colour; otherwise the result has no colour.
    Point3 intersectLine(const Point3& p0, const Point3& p1, bool& ok) const;

    /// The foot of the perpendicular, without colour.
    Point3 projection(const Point3& p) const;

private:
    bool setThrough(const Point3& a, const Point3& b, const Point3& c);
};

} // namespace MIRT_ZAV
