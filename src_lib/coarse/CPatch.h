// A patch of the coarse mesh: as far as one can walk over triangles without crossing a border or a fork.
#pragma once

#include "coarse/CEdge.h"
#include "coarse/CTriangle.h"
#include "lattice/Calc.h"

#include <cstdint>
#include <vector>

namespace MIRT_ZAV
{

class CMesh;

/// Patches hang together over edges of degree 2 and end everywhere else. Where a shell of cells is too thick, the
/// surface splits into two sheets for a while. In a cut, with edges e and f of degree 3:
///
///              .---- A ----.
///     --- C --e             f-- D ---        A and B are patches with the same rim: one of them is too many
///              `---- B ----'
///
/// If the sheets also hang together somewhere over an edge of degree 2, A and B are one closed patch.
///
/// Members are not owned; a triangle belongs to the patch that added it last. The destructor unties the members that
/// still belong to this patch.
class CPatch
{
public:
    std::uint32_t seqNum;               // rises by one per patch of the process: the age, where nothing else decides
    CTriangle* pSeed;                   // of a patch that the mesh has found, its first member in the mesh's order
    std::vector<CTriangle*> vT;         // members; killed ones stay
    std::vector<CEdge*> vOuterBoundary; // the rim as it was found, sorted by address: the edges with exactly one member
    bool bAlive = true;
    CMesh* pCMesh; // not owned
    Calc* pCalc;   // not owned
    double cached = -1.0;

    explicit CPatch(CMesh* pCMesh, Calc* pCalc, CTriangle* pSeed = nullptr);
    ~CPatch();
    CPatch(const CPatch&) = delete;
    CPatch& operator=(const CPatch&) = delete;

    void add(CTriangle* t);
    /// Finds the rim of the listed members.
    void setOuterBoundary();
    /// Number of members, dead ones included.
    size_t getSize() const { return vT.size(); }
    bool isAlive() const { return bAlive; }
    bool isMember(const CTriangle* t) const { return t->getPatch() == this; }
    /// Kills the patch, kills its alive members and forgets all of them.
    void killPatchAndMembers();

    /// Sum over the alive members, in square input units.
    double getArea() const;
    /// Adds the edges of the alive members to out and makes all of out a sorted set.
    void getAllCE(std::vector<CEdge*>& out) const;
    /// The same with the corners of every member, dead ones too.
    void getAllVCD(std::vector<VCD>& out) const;
    /// Whether every edge of an alive member has at least two members on it; never with fewer than four members. The
    /// rest of the mesh may hang on these edges, too.
    bool isClosed() const;

    /// Signed volume by the winding, in cubic input units.
    double computeOrientedVolume() const;
    /// The corner with the greatest z, the first in order of codes among several; all bits set if every z index is 0.
    VCD getMaxZCCD() const;
    /// Flips all members if the normals at the highest corner point down: there, outside is up. Warns if nothing alive
    /// touches that corner.
    void orientPatch();
    /// Winds neighbours alike, then orients the whole. In a patch with one side only, a Moebius strip for one, the
    /// first visit decides.
    void intraOrientation();

    /// Resolves a closed patch that is a thin double sheet: one of its sheets dies. The sheet that the rest of the mesh
    /// hangs on stays, otherwise the larger one. The winding of members may change in any case.
    /// \param bStrict  leave the patch alone if both sheets are tied to the rest of the mesh
    /// \return whether triangles were killed; they stay listed in vT
    bool splitClosedPatchKill(bool bStrict);

private:
    struct Sheets;

    void untieMembers();
    bool isThin() const;
    CEdge* findRimEdge(CTriangle*& pCT0, CTriangle*& pCT1) const;
    void growSheets(CEdge* pStartME, CTriangle* pCT0, CTriangle* pCT1, Sheets& sheets);
    bool isTiedToRest(const std::vector<CTriangle*>& vSheet) const;
    void clearVisited();
};

/// The edges of the alive triangles of vT, chosen by how many of these triangles have them, m: mode n > 0 takes m == n,
/// -1 odd m, -2 even m, -3 m > 2, -4 even m > 2; any other mode takes none. Appended to out, ascending by address.
void getEdgesWithDegree(int mode, const std::vector<CTriangle*>& vT, std::vector<CEdge*>& out);

/// Gives the alive, unvisited triangles across the degree-2 edges of t the winding of t, and calls f on each. It is f
/// that has to mark them as visited.
template <class F>
void turnUnvisitedNeighbours(const CTriangle* t, const F& f)
{
    for (const CEdge* const e : {t->pCE12, t->pCE02, t->pCE01})
    {
        if (e->getDegree() != 2)
            continue;
        for (CTriangle* const u : e->vT)
        {
            if (!u->isAlive() || u->bVisited)
                continue;
            if (u->needFlip(t))
                u->flipNNV();
            f(u);
        }
    }
}

} // namespace MIRT_ZAV
