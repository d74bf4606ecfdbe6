// A vector in space, double precision.
#pragma once

#include "zav_export.h"

#include <algorithm>
#include <cmath>
#include <ostream>

namespace MIRT_ZAV
{

/// Three doubles; the default is the zero vector. Operators work component by component unless said.
class Vector3
{
public:
    Vector3() = default;
    Vector3(double x, double y, double z) : x_(x), y_(y), z_(z) {}

    double x() const { return x_; }
    double y() const { return y_; }
    double z() const { return z_; }

    void set(double x, double y, double z)
    {
        x_ = x;
        y_ = y;
        z_ = z;
    }

    double sqLength() const { return x_ * x_ + y_ * y_ + z_ * z_; }
    double length() const { return std::sqrt(sqLength()); }
    double getMaxAbsComponent() const { return std::max({std::fabs(x_), std::fabs(y_), std::fabs(z_)}); }

    /// Whether the length is 1, give or take 1.5 %: what the library accepts as a normal vector.
    bool isNV() const { return std::fabs(1.0 - sqLength()) < 0.03; }

    bool isZero() const { return x_ == 0.0 && y_ == 0.0 && z_ == 0.0; }

    /// Dot product. x first, then y, then z: the last bit of every angle depends on that order.
    double operator*(const Vector3& v) const { return x_ * v.x_ + y_ * v.y_ + z_ * v.z_; }
    Vector3 operator*(double f) const { return {x_ * f, y_ * f, z_ * f}; }
    Vector3 operator/(double f) const { return {x_ / f, y_ / f, z_ / f}; }
    Vector3 operator+(const Vector3& v) const { return {x_ + v.x_, y_ + v.y_, z_ + v.z_}; }
    Vector3 operator-(const Vector3& v) const { return {x_ - v.x_, y_ - v.y_, z_ - v.z_}; }
    Vector3 operator-() const { return {-x_, -y_, -z_}; }
    Vector3& operator*=(double f) { return *this = *this * f; }
    Vector3& operator/=(double f) { return *this = *this / f; }
    Vector3& operator+=(const Vector3& v) { return *this = *this + v; }
    Vector3& operator-=(const Vector3& v) { return *this = *this - v; }

private:
    double x_ = 0.0;
    double y_ = 0.0;
    double z_ = 0.0;
};

inline Vector3 crossProduct(const Vector3& u, const Vector3& v)
{
    return {u.y() * v.z() - u.z() * v.y(), u.z() * v.x() - u.x() * v.z(), u.x() * v.y() - u.y() * v.x()};
}

/// The three components, for diagnostics.
ZAV_API std::ostream& operator<<(std::ostream& out, const Vector3& v);

} // namespace MIRT_ZAV
