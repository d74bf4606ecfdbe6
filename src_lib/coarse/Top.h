// Repair of the coarse mesh's topology: from the raw triangles of the extraction to a mesh that can be refined.
//
// A thick, noisy shell of cells gives two sheets close together, squares that are split both ways, and loose flaps. One
// sheet per place has to remain, with one diagonal per square and with neighbours that run alike.
#pragma once

#include "coarse/CMesh.h"
#include "coarse/Rotx.h"
#include "coarse/Voro.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// The edges that hang together over common ends form one component, sorted by address. Components are appended in the
/// order of their first edges.
void createCC(std::vector<CEdge*> vEdges, std::vector<std::vector<CEdge*>>& vOut);

/// Order of patches by their rims: numerically by the addresses, element by element, a shorter rim first at a common
/// prefix. Among equal rims the older patch is first, so that the order is the same in every run.
struct Func_CPatchSort
{
    bool operator()(const CPatch* a, const CPatch* b) const;
};

/// Lives for one repair of one mesh, on one thread.
class Top
{
public:
    CMesh* pCMesh; // not owned
    Calc* pCalc;   // not owned
    Rotx rotx;     // the order of triangles around an edge, for those who need it: the repairs below don't

    Top(CMesh* pCMesh, Calc* pCalc);

    /// The whole repair, in the order of its stages. \param pVoro  the extractor of this mesh
    void finalizeReconstructedMesh(Voro* pVoro);

    /// The repair of a mesh on the cells of triangles. Its cells lie on the surface as it was given, so that it takes
    /// less apart: lower limits, no permissive patch solving, no orientation, in an order of its own.
    void finalizeOneMelted(Voro* pVoro);

    // Borders and single triangles.
    /// Appends the border edges in key order. A triangle that hangs between non-manifold edges is killed instead.
    void getBordersKillDeg1nn(std::vector<CEdge*>& out);
    /// Kills the triangle of a border edge if it is isolated, or an ear on a non-manifold edge, whose apex goes into
    /// the neighbours where it can.
    void integrateCCD(CEdge* e);
    /// Gets rid of degenerate triangles by a kill at the border, a split of neighbours or a move of a corner; warns
    /// where none of these is possible.
    void killDegenerate();
    /// Finds the cells at borders and at edges of degree 4 that would let the extraction make a proper surface, and
    /// lets the whole mesh be extracted again with them. All triangles, edges and patches of before become invalid.
    void cbsComplete(Voro* pVoro);
    /// Moves points apart until no two bundles have the same coordinates. A move takes three numbers from rand().
    void oneCoordTriplePerCCD();

    // Diagonals and edges of degree 3.
    /// Where a square of four cells is split both ways, one diagonal stays.
    void unifyDiagonals();
    /// Removes the flaps at edges of degree 3 of which an end has exactly one border edge.
    void repairDeg3();
    /// \param vT  the three triangles of e, in the order in which they are tried \return whether one was killed
    bool tryRepairEvilDeg3(CEdge* e, const std::vector<CTriangle*>& vT);

    // Patches.
    /// One round over pairs of patches with the same rim and over closed patches.
    /// \param bStrict  leave closed sheets alone that are tied to the rest on both sides
    /// \return whether it is worth going round again
    bool patchPairSolving(bool bStrict);
    /// Sorts patches by their rims, which are set already, and tells pairs, patches without rim, and others apart; all
    /// are appended.
    void getPatchPairs(std::vector<CPatch*>& vPatches, std::vector<std::pair<CPatch*, CPatch*>>& vPairs,
                       std::vector<CPatch*>& vClosed, std::vector<CPatch*>& vRest);
    /// Kills the smaller of a pair unless the pair is too large to be noise. \return whether it killed
    bool solveOnePatchPair(CPatch* p, CPatch* q, double meshArea);
    /// Splits closed double sheets, small ones first, and kills tiny bodies that stand alone.
    /// \return whether a split killed something; the bodies don't count
    bool simplifyClosedPatches(std::vector<CPatch*>& vClosed, bool bStrict);
    /// Kills regions of at most maxSize triangles around borders that are long for their size.
    void killTinyBorderPatches(size_t maxSize);
    /// Patches of triangles that run alike. Orientation spreads over triangles without border and non-manifold edge
    /// first. \param vPatches  must be empty; the patches belong to the caller
    void createPatchesOrient(std::vector<CTriangle*>& vT, std::vector<CPatch*>& vPatches);

private:
    void unifyAllDiagonals();
    void integrateBorders();
    void solveRemainingPatchPairs();
    void finish();
    void orientAll();

    void collectBorderCells(const std::vector<CEdge*>& vBorders, std::vector<CCD>& vCells);
    void collectDeg4Cells(const std::vector<CEdge*>& vDeg4, std::vector<CCD>& vCells);

    void listMembers(const std::vector<std::pair<CPatch*, CPatch*>>& vPairs, const std::vector<CPatch*>& vClosed) const;
    double getAreaFor(const std::vector<std::pair<CPatch*, CPatch*>>& vPairs) const;

    CEdge* getCrossingDiagonal(const CEdge* e, const CTriangle* pT0, const CTriangle* pT1, VCD& c, VCD& d) const;
    void completeSquare(const CEdge* e, CEdge* e2, VCD c, VCD d, VCD vcd);
    bool killOrMove(CTriangle* t);
    bool moveOneCorner(const CTriangle* t, int firstCorner);
    bool isEvilDeg3(const CEdge* e) const;
    bool getTinyRegion(CTriangle* seed, size_t maxSize, std::vector<CTriangle*>& vRegion) const;
};

} // namespace MIRT_ZAV
