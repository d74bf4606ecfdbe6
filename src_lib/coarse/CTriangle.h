// A triangle of the coarse mesh.
#pragma once

#include "lattice/Calc.h"
#include "zav/Point3.h"

#include <cstdint>
#include <iosfwd>

namespace MIRT_ZAV
{

class CEdge;
class CMesh;
class CPatch;

/// The corners are codes of cells. Edges are numbered by the corner that they face:
///
///            c2
///           /  \            getCEdge(0) is pCE12,
///       pCE02  pCE12        getCEdge(1) is pCE02,
///         /      \          getCEdge(2) is pCE01
///       c0-pCE01-c1
///
/// Triangles are made by CMesh::createT, and a killed one stays readable.
class CTriangle
{
public:
    CEdge* pCE01;
    CEdge* pCE12;
    CEdge* pCE02;
    CPatch* pPatch; // current patch or null
    VCD c0;         // corners in winding order
    VCD c1;
    VCD c2;
    VCD vcd;             // the lattice vertex at which it was extracted; 0 if a split made it
    int config;          // the pattern of cells around that vertex; 0 if a repair made it
    std::uint32_t place; // in the mesh's vT
    bool bVisited;
    bool bAlive;

    bool isAlive() const { return bAlive; }
    CPatch* getPatch() const { return pPatch; }

    /// The edge opposite corner i. Any i but 0, 1, 2 is a bug, here and in getCorner.
    CEdge* getCEdge(int i) const;
    VCD getCorner(int i) const;
    /// Index of the corner v; a bug if v is none.
    int getICI(VCD v) const;
    /// Index of the corner off the side (a, b); a bug if every corner is a or b.
    int getICI(VCD a, VCD b) const;
    /// That corner itself.
    VCD getThirdCCD(VCD a, VCD b) const;
    /// The corners, ascending; equal corners are a bug.
    void getSortedCorners(VCD& c0_, VCD& c1_, VCD& c2_) const;

    /// How the winding runs along a side: 1 from a to b, 2 from b to a, 0 if this isn't a side.
    int getHEDirection2(VCD a, VCD b) const;
    /// Whether one of two neighbours has to be turned over for both to show the same side of the surface. The shared
    /// edge, with the windings of the triangles above and below it:
    ///
    ///         -->              -->
    ///       a-----b          a-----b
    ///         <--              -->
    ///        false         true: one is the wrong way round
    ///
    /// Triangles without a shared edge are a bug.
    bool needFlip(const CTriangle* other) const;
    /// Reverses the winding: corners 1 and 2 change places.
    void flipNNV();

    /// Whether an edge of this triangle has no other triangle.
    bool hasBorder() const;
    /// Whether each of the three edges has exactly two triangles.
    bool hasOnlyHalfEdges() const;

    /// Flat or with coincident corners, by the positions of the bundles; exact, with no tolerance.
    bool isDegenerate(const CMesh* m) const;
    /// The corner opposite the longest edge; among equals the first of the edges 01, 12, 20 counts.
    int getLargestEdgeICI(const CMesh* m) const;
    /// Unit normal by the positions of the bundles; ok tells whether there is one.
    Vector3 getRealNNV(const CMesh* m, bool& ok) const;
    double getArea(const CMesh* m) const;
    /// How far, in degrees, the normal would turn if corner i stood at p: 360 if there were none, -1 if there is none
    /// now.
    double getDevIfRepl(const CMesh* m, int i, const Point3& p) const;

    /// Takes this alive triangle off its edges and marks it dead. It stays in the mesh's vT and in its patch.
    void kill(CMesh* m);
};

/// The corners, for diagnostics.
std::ostream& operator<<(std::ostream& out, const CTriangle& t);

} // namespace MIRT_ZAV
