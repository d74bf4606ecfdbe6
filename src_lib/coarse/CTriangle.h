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

/// The corners are codes of cells. A corner and its opposite edge have the same index. Triangles are made by
/// CMesh::createT, and a killed one stays readable.
class CTriangle
{
public:
    CEdge* pCE01; // edge of corners 0 and 1
    CEdge* pCE12;
    CEdge* pCE02;
    CPatch* pPatch; // current patch or null
    VCD c0;         // corners in winding order
    VCD c1;
    VCD c2;
    VCD vcd;             // lattice vertex whose configuration made this triangle; 0 after most repairs
    int config;          // that configuration; 0 after repairs
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
    /// Index of the corner that is neither a nor b; a bug if there is none.
    int getICI(VCD a, VCD b) const;
    /// That corner itself.
    VCD getThirdCCD(VCD a, VCD b) const;
    /// The corners, ascending; equal corners are a bug.
    void getSortedCorners(VCD& c0_, VCD& c1_, VCD& c2_) const;

    /// 1 if a then b is a half-edge in winding order, 2 if b then a is, 0 if a and b aren't both corners.
    int getHEDirection2(VCD a, VCD b) const;
    /// Whether this and a neighbour run through their shared edge in the same direction, which a consistent orientation
    /// forbids. Without a shared edge it is a bug.
    bool needFlip(const CTriangle* other) const;
    /// Reverses the winding.
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

    /// Takes this alive triangle out of the mesh's edges and vertices.
    void kill(CMesh* m);
};

/// The corners, for diagnostics.
std::ostream& operator<<(std::ostream& out, const CTriangle& t);

} // namespace MIRT_ZAV
