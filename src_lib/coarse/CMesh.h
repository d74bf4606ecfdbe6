// The triangle mesh on lattice codes.
//
// A vertex is a cell and goes by the cell's code. Its position stands in the cell's bundle and says nothing about who
// is joined with whom: the topology is repaired on integers, where equal means equal.
//
// Killed triangles and edges without triangles stay where they are until the reset, so that pointers stay good. Who
// repairs walks over a copy of a list and asks again whether a thing is alive: an earlier step may have killed it.
#pragma once

#include "base/SimplePool.h"
#include "base/sortMT.h"
#include "coarse/CEdge.h"
#include "coarse/CPatch.h"
#include "coarse/CTriangle.h"
#include "coarse/CVertexTable.h"
#include "intake/Bundle.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class Voro;

/// Used by one thread at a time.
class CMesh
{
public:
    Voro* pVoro;                           // the extractor; not owned
    Calc* pCalc;                           // the lattice; not owned
    std::map<CCD, Bundle*>* pMapCCDBundle; // all bundles; not owned, but addBundle inserts into it
    std::vector<CCD> vZeroCCD;             // cells that hole control added, sorted
    CVertexTable vertices;
    std::vector<CTriangle*> vT;              // alive or dead; in order of creation until killDups sorts them
    std::vector<CEdge*> vCE;                 // every edge ever created since the last reset, in order of creation
    size_t numAliveT = 0;                    // triangles
    std::set<Point3*> sAdditionalVtx;        // points of the additional bundles
    std::vector<Bundle*> vAdditionalBundles; // made by addBundle; owned, with their points
    std::vector<CPatch*> vPatches;           // of the last search; they lie in poolPatch
    MIRT_TOOLS::SimplePool<CTriangle> poolT;
    MIRT_TOOLS::SimplePool<CEdge> poolCE;
    MIRT_TOOLS::SimplePool<CPatch> poolPatch;

    CMesh(Voro* pVoro, Calc* pCalc, std::map<CCD, Bundle*>* pMap, const std::vector<CCD>& vFill);
    ~CMesh();
    CMesh(const CMesh&) = delete;
    CMesh& operator=(const CMesh&) = delete;

    /// Makes a triangle; the order of the corners is the winding. Equal corners are a bug. Whether the same triangle
    /// exists isn't checked: callers ask hasAdjT first or run killDups afterwards.
    CTriangle* createT(VCD a, VCD b, VCD c, VCD vcd, int config);
    /// Of triangles on the same three codes only the first in order of creation survives. Sorts vT by the sorted
    /// corners.
    /// \return the number of triangles killed
    int killDups();
    /// Empties the mesh for another extraction; bundles stay. Pointers to triangles, edges and patches go bad: the next
    /// ones get the same memory.
    void reset();
    /// Makes an empty mesh ready for triangles between these cells, sorted; others remain possible.
    void expectVertices(const std::vector<CCD>& sortedCells);

    /// The edge of two codes in either order, alive or not, or null.
    CEdge* getEdge(VCD a, VCD b) const;
    // All of these append to out.
    /// The alive triangles at v, in order of creation.
    void getIncidentT(VCD v, std::vector<CTriangle*>& out) const;
    /// The edges at v of alive triangles, in order of creation.
    void getIncidentCE(VCD v, std::vector<CEdge*>& out) const;
    void getAliveTriangles(std::vector<CTriangle*>& out) const;
    /// All edges in the order of their ends, lower end first: the key order. Dead ones too.
    void getCEdges(std::vector<CEdge*>& out) const;
    /// Those for which isWanted(const CEdge*) holds, in key order. Several threads ask at the same time.
    template <class Predicate>
    void getCEdgesIf(const Predicate& isWanted, std::vector<CEdge*>& out) const;
    /// Edges in key order by degree: n > 0 exactly n, -1 three or more, -5 one or three or more, -99 at least one. Any
    /// other n gives none, with a warning if the mesh has edges.
    void getDegN(int n, std::vector<CEdge*>& out) const;
    /// Sum over the alive triangles, in square input units.
    double getArea() const;

    /// Finds the patches of the alive triangles and their rims. The first triangle of a patch in vT is its seed, and
    /// patches stand in the order of their seeds. Members aren't listed, as most patches are only asked for their rims.
    /// The patches of before are destroyed.
    /// \param pBlocked  edges that patches don't grow across either; null for none
    void findPatches(const std::set<CEdge*>* pBlocked);
    /// Lists the members of a patch that was just found, in the order of a flood fill from its seed, which comes last.
    /// \param pBlocked  as the patch was found with
    void listMembers(CPatch* patch, const std::set<CEdge*>* pBlocked) const;
    /// Finds the patches and lists all members.
    /// \param pBlocked      edges that patches don't grow across either; null for none
    /// \param vOut          becomes the list of patches; they belong to the mesh
    /// \param mOut          the patches by corners that face non-manifold edges. Of several patches at a corner the
    ///                      oldest counts; entries that are there stay
    /// \param vNonManifold  the non-manifold edges are added; all of it becomes a sorted set
    void createPatches(std::set<CEdge*>* pBlocked, std::vector<CPatch*>& vOut, std::map<CCD, CPatch*>& mOut,
                       std::vector<CEdge*>& vNonManifold);

    /// Triangles belong to no patch of the mesh afterwards.
    void destroyPatches();

    bool hasBundle(CCD c) const { return findVtx(c) != nullptr; }
    std::map<CCD, Bundle*>& getRefToBundleMap() const { return *pMapCCDBundle; }
    const std::vector<CCD>& getZeroCCD() const { return vZeroCCD; }
    Calc* getCalc() const { return pCalc; }
    double getSideLen() const { return pCalc->getSideLen(); }

    // Where a vertex lies. A vertex without a bundle is a bug.
    Point3 getAvgPoint(VCD v) const { return *getVtx(v); }
    Point3* getVtx(VCD v) const;

    /// Adds a bundle for a cell, at (x, y, z) or, if all three are the largest double, at the cell's middle; then
    /// averages it. A point outside of the cell is a bug. An old entry of the cell is replaced in the map.
    void addBundle(CCD c, double x, double y, double z);
    /// Puts an additional vertex, which no point of the cloud has placed, between its neighbours: on their mean and
    /// 0.3 percent beyond, seen from the last of them, plus at most 1e-5 input units in x by rand(). Neighbours that
    /// are additional themselves count only where others are fewer than three. If none has a bundle, the cell's middle
    /// is taken and no random number; with fewer than two edges nothing moves.
    void averageBundle(Bundle* b);
    void averageBundles();
    /// Collapses an additional vertex along the first edge that allows it; true if one did.
    bool integrateBundle(Bundle* b);
    /// The same for all additional bundles; those that have gone into a neighbour are deleted.
    void integrateAdditionalBundles();

    /// Whether both have triangles and no side that faces src is a side of a triangle at trg. Two ends of an edge with
    /// a triangle never pass.
    bool canCollapseWithoutDups(VCD src, VCD trg) const;
    /// Edge collapse: moves the triangles at src to trg if canCollapseWithoutDups agrees.
    /// \return whether it did
    bool collapseEdgeToEndpoint(CEdge* e, VCD src, VCD trg);
    /// Laplacian smoothing of one vertex: a move towards the mean of its neighbours, at most a tenth of a cell. False,
    /// with nothing moved, when a triangle would turn by more than 90 degrees or there is no neighbour.
    bool laplacianForOne(VCD v);
    /// Gets rid of degenerate triangles by splits or, failing that, by moving a corner. The triangles that splits make
    /// aren't looked at.
    void treatDegenerateT();

private:
    class TriangleSets;

    void uniteTriangles(const std::set<CEdge*>* pBlocked, TriangleSets& sets, std::vector<CEdge*>& vOuter) const;
    CEdge* attachEdge(VCD a, VCD b, CTriangle* t);
    std::vector<size_t> sortByLowestCorner();
    template <class F>
    void forEachEdgeAt(VCD v, const F& f) const;
    Point3* findVtx(VCD v) const;
    void enterPoints();
    void deleteBundle(Bundle* b);
};

template <class Predicate>
void CMesh::getCEdgesIf(const Predicate& isWanted, std::vector<CEdge*>& out) const
{
    std::vector<std::pair<VCD, CEdge*>> vFound; // with the lower end
    collectMT(vCE.size(), vFound,
              [&](size_t begin, size_t end, std::vector<std::pair<VCD, CEdge*>>& found)
              {
                  for (size_t i = begin; i < end; ++i)
                      if (isWanted(vCE[i]))
                          found.emplace_back(vCE[i]->v0, vCE[i]);
              });
    sortByFirstMT(vFound.begin(), vFound.end());
    out.reserve(out.size() + vFound.size());
    for (auto it = vFound.begin(); it != vFound.end();)
    {
        const auto numBefore = static_cast<std::ptrdiff_t>(out.size());
        for (const VCD lower = it->first; it != vFound.end() && it->first == lower; ++it)
            out.push_back(it->second);
        std::sort(out.begin() + numBefore, out.end(), [](const CEdge* x, const CEdge* y) { return x->v1 < y->v1; });
    }
}

} // namespace MIRT_ZAV
