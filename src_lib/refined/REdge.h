// An edge of the refined mesh.
#pragma once

#include "base/SmallVec.h"
#include "refined/RTriangle.h"
#include "zav/Point3.h"

#include <vector>

namespace MIRT_ZAV
{

class RMesh;

/// Joins two vertices and knows its triangles. How many of these are alive, its degree, is all the state it has: none
/// makes it dead, one a border, two regular, more non-manifold. Lives in the pool of its RMesh and is never removed; a
/// dead edge comes alive again with the next triangle on it.
class REdge
{
public:
    using TriangleList = MIRT_TOOLS::SmallVec<RTriangle*, 2>;

    Point3* pVtx0; ///< the end at the lower address
    Point3* pVtx1;
    TriangleList vRT; ///< the triangles in order of arrival, until checkOut moves the last one forward

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
    /// Sets t0 and t1 to the first two alive triangles, null where there is none.
    /// \return whether there are exactly two or, without bExact, two or more
    bool getTwoTriangles(RTriangle*& t0, RTriangle*& t1, bool bExact) const;
    /// The neighbour of pRT across this edge: the only other triangle that is alive. Null at a border, and where there
    /// are several.
    RTriangle* getUniqueOtherTriangle(const RTriangle* pRT) const;

    /// Replaces the two triangles by those on the other diagonal, in the winding of the first one. This edge stays
    /// behind dead.
    /// \param pT0, pT1  the triangles; both null: they are looked up
    /// \return the new edge, or null, and nothing changed, when there aren't exactly two alive triangles, their
    ///         opposite corners have an edge already, or a new triangle would be flat at the first of these corners.
    ///         Needles that are sharp elsewhere pass: the bytes of every result depend on it
    /// \throws ZavBugException  when only one triangle is given, or both have the same opposite corner
    REdge* tryFlipEdge(RMesh* pMesh, RTriangle* pT0, RTriangle* pT1);

    /// Adds a triangle that has this edge.
    void checkIn(RTriangle* pRT) { vRT.push_back(pRT); }
    /// Removes a triangle; the last one of the list takes its place, and later passes depend on that order. A bug when
    /// it isn't there.
    void checkOut(RTriangle* pRT);
};

} // namespace MIRT_ZAV
