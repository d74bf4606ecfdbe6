// A piece of the coarse mesh: triangles that can reach each other over edges of degree 2.
#pragma once

#include "coarse/CEdge.h"
#include "coarse/CTriangle.h"
#include "lattice/Calc.h"

#include <cstdint>
#include <vector>

namespace MIRT_ZAV
{

class CMesh;

/// A patch ends at non-manifold edges and at the border. The two sheets of a thick shell meet in non-manifold edges:
/// patches are the unit in which the repair sees them. Members are not owned; a triangle belongs to the patch that
/// added it last. The destructor unties the members that still belong to this patch.
class CPatch
{
public:
    std::uint32_t seqNum;               // rises by one per patch of the process
    CTriangle* pSeed;                   // of a patch that the mesh has found, its first member in the mesh's order
    std::vector<CTriangle*> vT;         // members; killed ones stay
    std::vector<CEdge*> vOuterBoundary; // the rim, sorted by address: the edges with exactly one alive member
    bool bAlive = true;
    CMesh* pCMesh;
    Calc* pCalc;
    double cached = -1.0;

    explicit CPatch(CMesh* pCMesh, Calc* pCalc, CTriangle* pSeed = nullptr);
    ~CPatch();
    CPatch(const CPatch&) = delete;
    CPatch& operator=(const CPatch&) = delete;

    void add(CTriangle* t);
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
    /// No border of its own, and four members at least. A closed patch may still hang on non-manifold edges.
    bool isClosed() const;

    /// Signed volume by the winding, in cubic input units.
    double computeOrientedVolume() const;
    /// The corner with the greatest z, the first in order of codes among several; all bits set if every z index is 0.
    VCD getMaxZCCD() const;
    /// Flips all members if the normals at the highest corner point down. Warns if nothing alive touches that corner.
    void orientPatch();
    /// Makes neighbours run alike, then orients the whole. In a patch that can't be oriented the first visit decides.
    void intraOrientation();

    /// Resolves a closed patch that is a thin double sheet: one of its sheets dies.
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

/// The edges of the alive triangles of vT, chosen by the number m of triangles among these that have them: mode n > 0
/// takes m == n, -1 odd m, -2 even m, -3 m > 2, -4 even m of 3 or more; any other mode takes none. Appended to out,
/// ascending by address.
void getEdgesWithDegree(int mode, const std::vector<CTriangle*>& vT, std::vector<CEdge*>& out);

/// Gives the alive, unvisited triangles across the degree-2 edges of t the winding of t, and calls f, which marks them
/// as visited, on each.
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
