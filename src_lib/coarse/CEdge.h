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

/// The degree of an edge is the number of its alive triangles: 0 dead, 1 border, 2 regular, 3 or more non-manifold. A
/// dead edge stays in the mesh and comes alive again when a triangle is made on it.
class CEdge
{
public:
    MIRT_TOOLS::SmallVec<CTriangle*, 2> vT; // alive, except during a kill
    VCD v0;                                 // the ends, v0 < v1
    VCD v1;
    EdgeDir edgeDir = ED_NONE; // set by no stage of the pipeline
    CEdge* nextOfLower;        // in the mesh's list of the edges that have v0 as lower end
    CEdge* nextOfUpper;        // in that of the edges that have v1 as upper end

    CEdge(VCD lower, VCD upper, CEdge* nextOfLowerArg, CEdge* nextOfUpperArg)
        : v0(lower), v1(upper), nextOfLower(nextOfLowerArg), nextOfUpper(nextOfUpperArg)
    {
    }

    /// A kill takes the triangle off its edges before it is marked dead: those that are listed are alive.
    int getDegree() const { return static_cast<int>(vT.size()); }
    /// Appends the alive triangles.
    void getAliveTriangles(std::vector<CTriangle*>& out) const;
    /// The first two alive triangles or null; true if there are exactly two (bExact) or at least two.
    bool getTwoTriangles(CTriangle*& a, CTriangle*& b, bool bExact) const;
    /// The first alive triangle or null. A second one with bUnique, or none with bMustExist, is a bug.
    CTriangle* getTriangle(bool bMustExist, bool bUnique) const;
    /// The one alive triangle other than t; null if there is none or more than one.
    CTriangle* getUniqueOtherTriangle(const CTriangle* t) const;
    /// The other end; a vertex that is no end is a bug.
    VCD getOtherVCD(VCD v) const;
    /// Whether a triangle on this edge has all of its corners among a, b, c.
    bool hasAdjT(VCD a, VCD b, VCD c) const;
    /// Takes a triangle off: the last one moves to its place.
    void checkOut(CTriangle* t);

    /// Removes a flat triangle of which corner i lies on this, its opposite edge: the triangle goes, and every
    /// neighbour on the edge is split at that corner. \param vNew  the triangles made are appended \return false, with
    /// nothing changed, when a neighbour would be turned by more than 90 degrees
    bool trySplitNeigsKillT(CMesh* m, CTriangle* pKillCT, int i, std::vector<CTriangle*>& vNew);
};

} // namespace MIRT_ZAV
