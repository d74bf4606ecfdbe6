// An edge of the coarse mesh.
#pragma once

#include "base/SmallVec.h"
#include "lattice/Calc.h"

#include <vector>

namespace MIRT_ZAV
{

class CMesh;
class CTriangle;

enum EdgeDir
{
    ED_NONE = 0
};

/// How many alive triangles hang on an edge is its degree. Looking along edges e:
///
///       e          e----        ----e----        ----e----
///                                                    |
///     0 dead     1 border     2 regular     3, 4, ... non-manifold
///
/// A dead edge stays in the mesh and comes alive again when a triangle is made on it.
class CEdge
{
public:
    MIRT_TOOLS::SmallVec<CTriangle*, 2> vT; // the alive ones; results depend on their order
    VCD v0;                                 // the ends, v0 < v1
    VCD v1;
    EdgeDir edgeDir = ED_NONE; // always this: edges have no direction
    CEdge* nextOfLower;        // in the mesh's list of the edges that have v0 as lower end
    CEdge* nextOfUpper;        // in that of the edges that have v1 as upper end

    CEdge(VCD lower, VCD upper, CEdge* nextOfLowerArg, CEdge* nextOfUpperArg)
        : v0(lower), v1(upper), nextOfLower(nextOfLowerArg), nextOfUpper(nextOfUpperArg)
    {
    }

    /// The size of the list will do: a kill takes the triangle off its edges before it marks it dead.
    int getDegree() const { return static_cast<int>(vT.size()); }
    /// Appends the alive triangles.
    void getAliveTriangles(std::vector<CTriangle*>& out) const;
    /// The first two alive triangles or null; true if there are exactly two (bExact) or at least two.
    bool getTwoTriangles(CTriangle*& a, CTriangle*& b, bool bExact) const;
    /// The first alive triangle or null. A second one with bUnique, or none with bMustExist, is a bug.
    CTriangle* getTriangle(bool bMustExist, bool bUnique) const;
    /// The neighbour of t across this edge, alive; null where nothing or more than one lies there.
    CTriangle* getUniqueOtherTriangle(const CTriangle* t) const;
    /// The other end; a vertex that is no end is a bug.
    VCD getOtherVCD(VCD v) const;
    /// Whether the triangle a, b, c, of which this is a side, exists already, wound either way.
    bool hasAdjT(VCD a, VCD b, VCD c) const;
    /// Takes a triangle off the list; one that isn't listed is a bug. The last one moves to its place.
    void checkOut(CTriangle* t);

    /// Gets rid of a flat triangle (b, v, c), whose corner v lies on this edge (b, c), without leaving a gap:
    ///
    ///          a                 a
    ///         / \               /|\        the neighbours across (b, c) are split at v;
    ///        b---c     -->     b-v-c       only (b, v) and (v, c) are left of the flat triangle
    ///         `v'
    ///
    /// \param pKillCT  the flat triangle, alive
    /// \param i        the index of v in it
    /// \param vNew     the halves are appended; they join the patches of the neighbours that they come from
    /// \return false, with nothing changed, where a neighbour or one of its halves has no normal or a half would turn
    ///         by more than 90 degrees
    bool trySplitNeigsKillT(CMesh* m, CTriangle* pKillCT, int i, std::vector<CTriangle*>& vNew);
};

} // namespace MIRT_ZAV
