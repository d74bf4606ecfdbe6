// A triangle of a soup as rasterisation sees it.
#pragma once

#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// Corners ascend by address, whatever the winding in the soup, and the normal belongs to that order: a soup needs no
/// common winding.
class Tri
{
public:
    Tri() = default;
    /// Takes the corners in any order.
    Tri(Point3* a, Point3* b, Point3* c);

    /// The unit normal for a winding in which the edge runs from pA to pB. Two triangles that lie flat on both sides of
    /// an edge get opposite ones.
    /// \throws ZavBugException  for a triangle without a normal, after a message
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
