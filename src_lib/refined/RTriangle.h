// A triangle of the refined mesh.
#pragma once

#include "zav/Point3.h"
#include "zav/Vector3.h"

#include <cstdint>

namespace MIRT_ZAV
{

class REdge;
class RMesh;
class RPatch;

/// Lives in the pool of its RMesh and is never removed: kill() leaves a tombstone that stays readable. A corner and the
/// edge opposite to it have the same index, 0 to 2.
class RTriangle
{
public:
    Vector3 nnv;              ///< cached unit normal; all zero: not computed
    Point3* pVtx[3];          ///< corners in winding order, owned by the mesh
    REdge* pRE01 = nullptr;   ///< edge of corners 0 and 1, opposite corner 2
    REdge* pRE12 = nullptr;   ///< opposite corner 0
    REdge* pRE02 = nullptr;   ///< opposite corner 1
    RPatch* pPatch = nullptr; ///< patch of the last orientation of the mesh, or null
    bool bVisited = false;    ///< scratch mark of RMesh::createPatchesOrient
    bool bAlive = true;       ///< goes to false once and never back
    /// The count of the mesh's flips when this triangle, or one that shares an edge with it, last changed.
    std::uint32_t changedAt = 0;

    RTriangle(Point3* p0, Point3* p1, Point3* p2) : pVtx{p0, p1, p2} {}

    bool isAlive() const { return bAlive; }
    RPatch* getPatch() const { return pPatch; }
    void setPatch(RPatch* pPatchArg) { pPatch = pPatchArg; }

    /// Takes the triangle out of its edges and out of the mesh's lists. It must be alive.
    void kill(RMesh* pRMesh);

    /// Corner i. Any i but 0, 1, 2 ends the process.
    Point3* getCorner(int i) const
    {
        if (i < 0 || i >= 3)
            endForBadCorner("RTriangle::getCorner", i);
        return pVtx[i];
    }
    /// Sets a corner and drops the cached normal. The lists of the mesh are the caller's business.
    void setCorner(int i, Point3* p);
    bool has(const Point3* p) const { return pVtx[0] == p || pVtx[1] == p || pVtx[2] == p; }
    /// Whether two corners are the same vertex.
    bool isCombinatoriallyDegenerate() const { return pVtx[0] == pVtx[1] || pVtx[1] == pVtx[2] || pVtx[0] == pVtx[2]; }

    /// Index of a corner; a bug when p is none.
    int getICI(const Point3* p) const;
    /// Index of the first corner that is neither a nor b; 3, which getCorner refuses, when there is none.
    int getICI(const Point3* a, const Point3* b) const;
    /// The corner besides a and b; having none ends the process.
    Point3* getThirdPoint(const Point3* a, const Point3* b) const { return getCorner(getICI(a, b)); }

    /// The edge opposite corner i; any other i is a bug.
    REdge* getRE(int i) const;
    /// Puts another edge in the place of one of the triangle's edges; a bug when pOld is none of them.
    void replaceRE(const REdge* pOld, REdge* pNew);

    /// Unit normal, from the cache if it is filled. ok is false, and the result zero, for a degenerate triangle. Fills
    /// the cache: threads may call it at once only after that. A vertex that moves doesn't drop the normals around it.
    Vector3 getNNV(bool& ok);
    void resetNNV() { nnv = Vector3(); }

    /// 1 if the winding goes from a to b, 2 if it goes from b to a, 0 if one of them is no corner.
    int getRTriOri(const Point3* a, const Point3* b) const;
    /// Whether a neighbour has to be flipped so that both are wound alike.
    ///
    ///     wound alike:  a --this--> b      to be flipped:  a --this--> b
    ///                   a <-other-- b                      a --other-> b
    ///
    /// With several common edges the first in the order 01, 12, 20 counts; having none is a bug.
    bool needFlip(const RTriangle* pOther) const;
    /// Reverses the winding, by exchanging corners 0 and 1, and the cached normal.
    void flipNNV();

    /// How far the normal would turn if corner i moved to newPoint, in degrees, 0 to 180. Two values stand outside:
    /// 360.0, worse than any turn, when the new triangle has no normal; -1.0, better than any, when only the present
    /// one has none. Any i but 0, 1, 2 ends the process.
    /// \param bTreatCoincidence  whether a newPoint that coincides with any of the three corners gives 0.0: a collapse
    ///                           onto a corner leaves no triangle that could turn
    double getDevIfRepl(int i, const Point3& newPoint, bool bTreatCoincidence) const;

private:
    [[noreturn]] static void endForBadCorner(const char* function, int i);
};

} // namespace MIRT_ZAV
