// An edge of the refined mesh.
#pragma once

#include "base/SmallVec.h"
#include "refined/RTriangle.h"
#include "zav/Point3.h"

#include <vector>

namespace MIRT_ZAV
{

class RMesh;

/// Joins two vertices and knows its triangles. It has no state of its own: its degree, the number of alive triangles,
/// says whether it is dead (0), a border (1), regular (2) or non-manifold (3 and more). Lives in the pool of its RMesh
/// and is never removed; a dead edge comes alive again with the next triangle on it.
class REdge
{
public:
    using TriangleList = MIRT_TOOLS::SmallVec<RTriangle*, 2>;

    Point3* pVtx0; ///< the end at the lower address
    Point3* pVtx1;
    TriangleList vRT; ///< the triangles in order of arrival, up to checkOut; a dead one stays only transiently

    /// p0_ must be the lower address.
    REdge(Point3* p0_, Point3* p1_);

    Point3* getVtx0() const { return pVtx0; }
    Point3* getVtx1() const { return pVtx1; }
    /// End 0 or 1; any other number is a bug.
    Point3* getVertex(int i) const;
    bool has(const Point3* p) const { return pVtx0 == p || pVtx1 == p; }
    /// The other end; a bug when p is no end.
    Point3* getOtherPoint(const Point3* p) const;

    /// Number of alive triangles.
    int getDegree() const
    {
        int degree = 0;
        for (const RTriangle* const pRT : vRT)
            degree += pRT->bAlive ? 1 : 0;
        return degree;
    }
    bool isAlive() const
    {
        for (const RTriangle* const pRT : vRT)
            if (pRT->bAlive)
                return true;
        return false;
    }
    /// Appends the alive triangles.
    void getAliveTriangles(std::vector<RTriangle*>& out) const;
    /// The first two alive triangles, null where there is none. The result is whether there are exactly two or, without
    /// bExact, two or more.
    bool getTwoTriangles(RTriangle*& t0, RTriangle*& t1, bool bExact) const;
    /// The one alive triangle that isn't pRT; null when there is none or more than one.
    RTriangle* getUniqueOtherTriangle(const RTriangle* pRT) const;

    /// Replaces the two triangles by those on the other diagonal, in the winding of the first one. This edge stays
    /// behind dead.
    /// \param pT0, pT1  the triangles; both null: they are looked up
    /// \return the new edge, or null, and nothing changed, when there aren't exactly two alive triangles, their opposite
    ///         corners have an edge already, or a new triangle would have no area at the first of these corners
    REdge* tryFlipEdge(RMesh* pMesh, RTriangle* pT0, RTriangle* pT1);

    /// Adds a triangle that has this edge.
    void checkIn(RTriangle* pRT) { vRT.push_back(pRT); }
    /// Removes a triangle; the last one of the list takes its place. A bug when it isn't there.
    void checkOut(RTriangle* pRT);
};

} // namespace MIRT_ZAV
