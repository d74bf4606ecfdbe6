// Repair of the coarse mesh's topology: from the raw triangles of the extraction to a mesh that can be refined.
//
// A thick, noisy shell of cells gives two sheets close together, squares that are split both ways, and loose flaps. One
// sheet per place has to remain, with one diagonal per square and with neighbours that are wound alike.
#pragma once

#include "coarse/CMesh.h"
#include "coarse/Rotx.h"
#include "coarse/Voro.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class ProgressPart;

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
    Rotx rotx;     // the order of triangles around an edge; the repairs below do without it

    Top(CMesh* pCMesh, Calc* pCalc);

    /// The whole repair, in the order of its stages.
    /// \param pVoro  the extractor of this mesh; not owned
    void finalizeReconstructedMesh(Voro* pVoro);

    /// The repair of a mesh on the cells of triangles. Its cells lie on the surface as it was given, so that it takes
    /// less apart: lower limits, no permissive patch solving, no orientation, in an order of its own.
    void finalizeOneMelted(Voro* pVoro);

    // Borders and single triangles.
    /// Appends the border edges in key order. Where both other sides of the border triangle are non-manifold, the
    /// triangle is no more than a strut between other sheets and is killed instead.
    void getBordersKillDeg1nn(std::vector<CEdge*>& out);
    /// Kills the triangle of a border edge if it has no neighbour at all, or if it is an ear with its foot on a fork:
    ///
    ///         v
    ///        / \         (b, v) and (v, c) are borders, (b, c) has degree 3 or more. Where that is possible, the
    ///       b---c        neighbours on (b, c) are split at v, so that the point isn't lost with the ear.
    ///
    void integrateCCD(CEdge* e);
    /// Gets rid of degenerate triangles by a kill at the border, a split of neighbours or a move of a corner; warns
    /// where none of these is possible.
    void killDegenerate();
    /// A border or an edge of degree 4 can come from a cell that is missing. Lets the extractor fill the lattice
    /// vertices there that are nearly full, and extract the whole mesh again. All triangles, edges and patches of
    /// before become invalid.
    void cbsComplete(Voro* pVoro);
    /// Of bundles with the same coordinates all but the first move until they differ from each other. A move takes
    /// three numbers from rand().
    void oneCoordTriplePerCCD();

    // Diagonals and edges of degree 3.
    /// Where a square of four cells is split both ways, one diagonal stays:
    ///
    ///     a---d        a---d
    ///     |\ /|        |  /|        (a, b), the first in key order that has exactly two triangles,
    ///     | X |   -->  | / |        goes with them; what is missing of the two on (c, d) is made
    ///     |/ \|        |/  |
    ///     c---b        c---b
    ///
    void unifyDiagonals();
    /// Removes loose flaps. Looking along an edge e of degree 3:
    ///
    ///     ----e----        the flap hangs down; an end of e has exactly one border edge, its free side
    ///         |
    ///
    void repairDeg3();
    /// \param vT  the three triangles of e, in the order in which they are tried
    /// \return whether one was killed
    bool tryRepairEvilDeg3(CEdge* e, const std::vector<CTriangle*>& vT);

    // Patches.
    /// One round over pairs of patches with the same rim and over closed patches.
    /// \param bStrict  leave closed sheets alone that are tied to the rest on both sides
    /// \return whether it is worth going round again
    bool patchPairSolving(bool bStrict);
    /// Sorts patches by their rims, which are set already, and appends pairs with the same rim, patches without a rim,
    /// and the rest.
    void getPatchPairs(std::vector<CPatch*>& vPatches, std::vector<std::pair<CPatch*, CPatch*>>& vPairs,
                       std::vector<CPatch*>& vClosed, std::vector<CPatch*>& vRest);
    /// Kills the smaller of a pair, unless one has more than 20 triangles and both together more than a tenth of the
    /// mesh's area: that is no noise.
    /// \return whether it killed
    bool solveOnePatchPair(CPatch* p, CPatch* q, double meshArea);
    /// Splits closed double sheets, small ones first, and kills tiny bodies that stand alone.
    /// \return whether a split killed something; the bodies don't count
    bool simplifyClosedPatches(std::vector<CPatch*>& vClosed, bool bStrict, ProgressPart& part);
    /// Kills regions of at most maxSize triangles around borders that are long for their size.
    void killTinyBorderPatches(size_t maxSize);
    /// Finds patches and winds the triangles of each alike. The winding spreads first over triangles whose edges all
    /// have degree 2: those at borders and forks are less to be trusted.
    /// \param vPatches  must be empty; the patches belong to the caller
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
