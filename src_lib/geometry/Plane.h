// An oriented plane in space.
#pragma once

#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// The points p with normal * p == d, where normal has length 1. Three points that span no plane give a zero normal and
/// d 0, like the default: every point then lies on it, and projection() moves none.
class Plane
{
public:
    Vector3 normal;
    double d = 0.0;

    Plane() = default;
    /// Through p; n may have any length.
    Plane(const Point3& p, const Vector3& n);
    /// Through three points, counter-clockwise as seen from the positive side. Prints a message when they span none.
    Plane(const Point3& a, const Point3& b, const Point3& c);
    /// The same without a message: ok is false when the points span no plane.
    Plane(const Point3& a, const Point3& b, const Point3& c, bool& ok);

    double signedDistance(const Point3& p) const { return normal * toVector(p) - d; }
    bool hasOnPositiveSide(const Point3& p) const { return signedDistance(p) > 0.0; }
    bool hasOnNegativeSide(const Point3& p) const { return signedDistance(p) < 0.0; }

    /// Where the line through p0 and p1, which goes on beyond both, meets the plane. The result has no colour.
    /// \param ok  false when the line never meets the plane or lies in it; the result is p0 then, with its colour
    Point3 intersectLine(const Point3& p0, const Point3& p1, bool& ok) const;

    /// The foot of the perpendicular, without colour.
    Point3 projection(const Point3& p) const;

private:
    bool setThrough(const Point3& a, const Point3& b, const Point3& c);
};

} // namespace MIRT_ZAV
