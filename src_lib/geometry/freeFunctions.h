// Areas, angles, normals and volumes. Exact comparisons, no tolerances; degenerate input gives zero or ok == false.
#pragma once

#include "zav/Point3.h"

#include <vector>

namespace MIRT_ZAV
{

/// v divided by its length; the zero vector when the length is not above 0.
inline Vector3 normalize(const Vector3& v)
{
    const double len = v.length();
    return len > 0.0 ? v / len : Vector3();
}

/// Unit normal of two unit vectors by the right hand rule. ok is false, and the result zero, when they are parallel.
inline Vector3 getNormalOfDirections(const Vector3& u, const Vector3& v, bool& ok)
{
    const Vector3 cross = crossProduct(u, v);
    const double len = cross.length();
    ok = len != 0.0;
    return len > 0.0 ? cross / len : Vector3();
}

/// Unit normal of the triangle a, b, c by the right hand rule. The edges are normalised before the cross product, which
/// keeps needles of very unequal edges away from underflow. ok is false, and the result zero, when there is none.
Vector3 getNormalVector(const Point3& a, const Point3& b, const Point3& c, bool& ok);
Vector3 getNormalVector(const Point3& a, const Point3& b, const Point3& c);

/// Triangle area as half the length of the cross product: the fast one.
double getArea(const Point3* a, const Point3* b, const Point3* c);

/// Triangle area from three side lengths by Heron's formula; 0 where rounding makes the radicand negative. A side that
/// is not a number warns and ends in ZavBugException.
double computeArea(double l0, double l1, double l2);

/// Triangle area by Heron's formula over the three side lengths: the robust one for slivers.
double getArea25D(const Point3* a, const Point3* b, const Point3* c);

/// Signed volume of a triangle soup of consecutive corner triples, summed over the cones from its first corner.
double computeVolume(std::vector<Point3*>& t);
double computeVolume(std::vector<Point3>& t);

/// Angle between two unit vectors in degrees, 0 to 180.
double getAngleDegree(const Vector3& u, const Vector3& v);

/// Angle between two unit vectors in radians. A dot product that rounds below -1 deliberately gives 6.283185307, twice
/// what acos would: callers use this form only to test for large angles.
double getAngleRad(const Vector3& u, const Vector3& v);

} // namespace MIRT_ZAV
