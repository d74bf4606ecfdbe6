// The angular order of the triangles around an edge of the coarse mesh, from a table.
//
// Cells lie on a lattice, so only few spatial situations exist: the third cells of an edge are sorted once by real
// angles, for every pair of cells of a block of eight. At run time three cells are shifted to that block and looked up.
//
// For an edge from a to b and an eye at b that looks back at a, the order is counter-clockwise:
//
//           t1
//           |
//     t2 ---e--- t0        t0, t1, t2, t3: the third corners of the triangles around the edge
//           |
//           t3
#pragma once

#include "lattice/Calc.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class CEdge;
class CMesh;
class CTriangle;

/// Read-only after construction.
class Rotx
{
public:
    CMesh* pCMesh; // not owned
    bool bDev;
    Calc* pCalc; // not owned

    /// \param pCMesh  not owned; its lattice needs at least 2 levels if the table is to be built
    /// \param bDev    build the table; without it every getIdx is a bug
    Rotx(CMesh* pCMesh, bool bDev);

    /// Appends the eight vertices of a cell, sorted. The same codes as cells are the block of eight that starts there.
    static void getSortedRCDCorners(RCD rcd, std::vector<RCD>& out);

    /// The rotation index of cell c around the directed edge from a to b, two cells of the standard block, whose
    /// coordinates are 1 or 2. Cells in one half plane at the edge share an index.
    /// \throws ZavBugException  where c can't be joined with the edge by a triangle, and for coordinates above 7
    int getIdx(RCD a, RCD b, RCD c) const;

    /// Puts the alive triangles of an edge in their order of rotation, from the reference triangle on. The winding of
    /// this triangle gives the edge its direction: with the other winding the order is the reverse. Dead triangles
    /// fall off.
    /// \return false when two of them lie in one half plane at the edge; these stand in order of creation
    bool sortStar(CTriangle* pRefCT, CEdge* pEdge) const;

private:
    void initDev();
    void initNormal() {}
    void dev_createEdges();
    void createThirdRCDs(RCD a, RCD b, std::vector<RCD>& out) const;
    void sortThirdRCDs(RCD a, RCD b, std::vector<RCD>& v);
    Point3 getMidPoint(RCD rcd) const;

    std::set<std::pair<RCD, RCD>> sEdges;             ///< the 56 directed edges of the standard block
    std::map<unsigned long long, int> mEncoded2Index; ///< rotation index by three cells
};

} // namespace MIRT_ZAV
