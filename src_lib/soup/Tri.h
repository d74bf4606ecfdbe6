// A triangle of a soup as rasterisation sees it.
#pragma once

#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// Corners ascend by address, whatever the winding of the soup: the normal belongs to that order.
class Tri
{
public:
    Tri() = default;
    /// Takes the corners in any order.
    Tri(Point3* a, Point3* b, Point3* c);

    /// The unit normal seen along the edge from pA to pB: negated where that runs against the order of the corners.
    /// Triangles without a normal end in ZavBugException.
    Vector3 getNNV(const Point3* pA, const Point3* pB);

    /// Computes the normal where it is possible, without a message where it isn't.
    void prepareNormal();
    bool hasNormal() const { return !nnv.isZero(); }

    Point3* pVtx0 = nullptr;
    Point3* pVtx1 = nullptr;
    Point3* pVtx2 = nullptr;

private:
    Vector3 nnv; // zero until computed
};

} // namespace MIRT_ZAV
