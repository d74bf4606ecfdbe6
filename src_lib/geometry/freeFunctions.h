// Areas, angles, normals and volumes. There are no tolerances: whether input is degenerate is decided by exact
// comparison, and what is gives zero or ok == false. The order of operations decides the last bits, and the bytes of
// every result depend on these.
#pragma once

#include "zav/Point3.h"

#include <vector>

namespace MIRT_ZAV
{

/// v scaled to length 1. The zero vector where that makes no sense: for a length of 0 or NaN.
inline Vector3 normalize(const Vector3& v)
{
    const double len = v.length();
    return len > 0.0 ? v / len : Vector3();
}

/// Unit normal of two unit vectors by the right-hand rule.
/// \param ok  false when they are parallel; the result is zero then
inline Vector3 getNormalOfDirections(const Vector3& u, const Vector3& v, bool& ok)
{
    const Vector3 cross = crossProduct(u, v);
    const double len = cross.length();
    ok = len != 0.0;
    return len > 0.0 ? cross / len : Vector3();
}

/// Unit normal on the side from which a, b, c run counter-clockwise. Edges are scaled to length 1 before the cross
/// product, or that of a tiny triangle would underflow.
/// \param ok  false when the corners lie on a line; the result is zero then
Vector3 getNormalVector(const Point3& a, const Point3& b, const Point3& c, bool& ok);
Vector3 getNormalVector(const Point3& a, const Point3& b, const Point3& c);

/// Area of a triangle, half the length of the cross product of two edges.
double getArea(const Point3* a, const Point3* b, const Point3* c);

/// Area of a triangle from its side lengths by Heron's formula; 0 where no triangle has such sides.
/// \throws ZavBugException, after a warning on standard output, when a side is NaN or infinite
double computeArea(double l0, double l1, double l2);

/// The same from the corners. For slivers it is less exact than getArea; computeVolume takes it, and which patches
/// count as thin depends on its bits.
double getArea25D(const Point3* a, const Point3* b, const Point3* c);

/// Volume inside a closed surface: the sum over its triangles of the signed volume of the tetrahedron between the
/// triangle and the first corner of all. Positive when the triangles are wound outwards.
/// \param t  three corners for each triangle; one or two too many at the end don't count
/// \throws ZavBugException as computeArea
double computeVolume(std::vector<Point3*>& t);
double computeVolume(std::vector<Point3>& t);

/// Angle between two unit vectors in degrees, 0 to 180, even where rounding takes their dot product beyond -1 and 1.
double getAngleDegree(const Vector3& u, const Vector3& v);

/// Angle between two unit vectors in radians, 0 to pi, with the same bits on every machine. A dot product that rounds
/// below -1 gives 6.283185307, twice the true angle: reductions with a limit beyond 180 degrees depend on it.
double getAngleRad(const Vector3& u, const Vector3& v);

} // namespace MIRT_ZAV
