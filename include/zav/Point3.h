// The one point type, from the points that an application hands in to the vertices that it gets back.
#pragma once

#include "Vector3.h"
#include "zav_export.h"

#include <ostream>

namespace MIRT_ZAV
{

/// A point with an optional colour, freely copied. A point made from coordinates has no colour; computed points never
/// inherit one. Equality and order look at the coordinates alone and are exact.
class Point3
{
public:
    Point3() = default;
    Point3(double x, double y, double z) : x_(x), y_(y), z_(z) {}

    double x() const { return x_; }
    double y() const { return y_; }
    double z() const { return z_; }

    /// Sets the coordinates; the colour stays.
    void set(double x, double y, double z)
    {
        x_ = x;
        y_ = y;
        z_ = z;
    }

    bool hasColor() const { return hasColor_; }
    void setHasColor(bool hasColor) { hasColor_ = hasColor; }

    void setColor(unsigned char red, unsigned char green, unsigned char blue, unsigned char alpha)
    {
        r = red;
        g = green;
        b = blue;
        a = alpha;
        hasColor_ = true;
    }

    /// The four bytes become 0, the flag false.
    void clearColor()
    {
        r = g = b = a = 0;
        hasColor_ = false;
    }

    bool isFinite() const { return std::isfinite(x_) && std::isfinite(y_) && std::isfinite(z_); }

private:
    double x_ = 0.0;
    double y_ = 0.0;
    double z_ = 0.0;

public:
    // Meaningful only while hasColor() is true.
    unsigned char r = 0;
    unsigned char g = 0;
    unsigned char b = 0;
    unsigned char a = 0;

private:
    bool hasColor_ = false;
};

inline bool operator==(const Point3& p, const Point3& q)
{
    return p.x() == q.x() && p.y() == q.y() && p.z() == q.z();
}

inline bool operator!=(const Point3& p, const Point3& q)
{
    return !(p == q);
}

/// Lexicographic on x, y, z. Not a number is neither below nor above anything: the next coordinate decides. Lists with
/// such points can't be sorted by it.
inline bool operator<(const Point3& p, const Point3& q)
{
    if (p.x() < q.x())
        return true;
    if (p.x() > q.x())
        return false;
    if (p.y() < q.y())
        return true;
    if (p.y() > q.y())
        return false;
    return p.z() < q.z();
}

inline Vector3 operator-(const Point3& p, const Point3& q)
{
    return {p.x() - q.x(), p.y() - q.y(), p.z() - q.z()};
}

inline Point3 operator+(const Point3& p, const Vector3& v)
{
    return {p.x() + v.x(), p.y() + v.y(), p.z() + v.z()};
}

inline Point3 operator-(const Point3& p, const Vector3& v)
{
    return {p.x() - v.x(), p.y() - v.y(), p.z() - v.z()};
}

/// The vector from the origin to a point.
inline Vector3 toVector(const Point3& p)
{
    return {p.x(), p.y(), p.z()};
}

/// "Point3 (address): x, y, z, no color" or with the four colour bytes, for diagnostics.
ZAV_API std::ostream& operator<<(std::ostream& out, const Point3& p);

} // namespace MIRT_ZAV
