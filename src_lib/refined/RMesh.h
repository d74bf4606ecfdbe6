// The refined mesh: triangles in real coordinates, on which all quality operations and all writers work.
//
// A pointer mesh with tombstones. The address of a Point3 says which vertex it is, the ordered pair of two addresses
// which edge. Vertices, triangles and edges come from pools whose addresses rise with creation, so that every order by
// address is an order of creation, the same in every run. Nothing is removed: killed triangles and edges without
// triangles stay in their lists, so that a pass may iterate over a copy while it changes the mesh.
#pragma once

#include "base/OrderedIndex.h"
#include "base/PooledLists.h"
#include "base/SimplePool.h"
#include "geometry/PointHash.h"
#include "lattice/Calc.h"
#include "refined/REdge.h"
#include "refined/RTriangle.h"
#include "zav/Point3.h"

#include <bit>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class CMesh;
class ProgressPart;
class RPatch;
class Visualizer3;

/// Hash of vertices and of pairs of them. Work on the topology goes from place to place, and vertices of neighbouring
/// cells have neighbouring addresses: 16 vertices in a row take 16 slots in a row, and the edges of 8 lower ends in a
/// row share 32 slots. Such groups stay in the cache; the table scatters one from the other.
struct VertexHash
{
    std::uint64_t operator()(const Point3* p) const
    {
        const std::uint64_t index = reinterpret_cast<std::uintptr_t>(p) / sizeof(Point3);
        return MIRT_TOOLS::mixBits(index >> 4) + (index & 15) * 0x100000001u;
    }
    std::uint64_t operator()(const std::pair<Point3*, Point3*>& key) const
    {
        const std::uint64_t index = reinterpret_cast<std::uintptr_t>(key.first) / sizeof(Point3);
        const std::uint64_t place = MIRT_TOOLS::mixBits(index >> 3) + (index & 7) * 4;
        const std::uint64_t all = MIRT_TOOLS::WordHash()(key);
        return (all >> 32 << 32) | static_cast<std::uint32_t>(place + (all & 3));
    }
};

/// A collapse that reduce() may do. It waits in the queue under its penalty.
struct RECandidate
{
    REdge* pRE;
    std::int16_t which;            ///< 0: getVtx0() moves onto getVtx1(); 1: getVtx1() onto getVtx0()
    std::int16_t generation = -1;  ///< which evaluation of all edges it comes from; -1: another, which has no copies
    std::uint32_t evaluatedAt = 0; ///< how many collapses the run had done when the penalty was computed
};

/// Not thread-safe. Queries of several threads may overlap while nothing changes the topology, except getDegN(0), which
/// puts mRE in order.
class RMesh
{
public:
    using VertexPair = std::pair<Point3*, Point3*>; ///< the lower address first

    std::vector<Point3*> vZeroVtx; ///< the vertices that close holes, without an input point; sorted by address
    /// Vertices by coordinates. Of coincident vertices only the one at the lowest address is listed. Vertices that a
    /// collapse has left behind stay in.
    MIRT_TOOLS::OrderedIndex<Point3, Point3*, PointHash> mVtx;
    MIRT_TOOLS::OrderedIndex<VertexPair, REdge*, VertexHash> mRE; ///< every edge that no collapse has merged away
    std::vector<RTriangle*> vRT;                                  ///< every triangle in order of creation
    std::vector<REdge*> vRE;                                      ///< every edge in order of creation
    std::vector<RPatch*> vPatches;                                ///< patches of the last orientation, owned
    MIRT_TOOLS::PooledLists<Point3, RTriangle*> mmVtxT;           ///< the alive triangles of each vertex
    MIRT_TOOLS::SimplePool<Point3> poolVtx;
    MIRT_TOOLS::SimplePool<RTriangle> poolRT;
    MIRT_TOOLS::SimplePool<REdge> poolRE;
    double sideLen; ///< side length of a lattice cell in input units

    /// The mesh of a finished coarse mesh: a vertex for every bundle in the order of cell codes, whether or not a
    /// triangle uses it, and a triangle for every alive one, with its winding. Nothing points into the coarse mesh
    /// afterwards.
    explicit RMesh(CMesh* pCMesh);
    /// An empty mesh, to be filled by createVertex and createT; the expected numbers spare reallocation.
    explicit RMesh(double sideLen, size_t numExpectedVertices = 0, size_t numExpectedTriangles = 0);
    ~RMesh();
    RMesh(const RMesh&) = delete;
    RMesh& operator=(const RMesh&) = delete;

    /// A new vertex with the coordinates and the colour of p. Coincident vertices are not merged.
    Point3* createVertex(const Point3& p);
    /// A new triangle; the order of the arguments is its winding. Equal vertices are a bug. The orientation of its
    /// neighbours doesn't matter, nor how many there are: noise leaves edges with three and more triangles.
    /// A caller who knows some of the triangle's edges may give them, which spares looking for them; they must fit.
    RTriangle* createT(Point3* p0, Point3* p1, Point3* p2, REdge* pRE01 = nullptr, REdge* pRE12 = nullptr,
                       REdge* pRE02 = nullptr);

    /// Number of alive triangles; counts them.
    size_t getNumT() const;
    double getSideLen() const { return sideLen; }
    /// Mean length of the alive edges; -1.0 when there is none.
    double getAvgLen() const;
    /// Appends all edges, dead ones included.
    void getREdges(std::vector<REdge*>& out) const;
    const std::vector<REdge*>& getREdgesRef() const { return vRE; }
    /// The edge of two vertices in any order, alive or dead, or null.
    REdge* getEdge(Point3* a, Point3* b) const;
    bool hasAliveEdge(Point3* a, Point3* b) const;
    /// Whether a vertex is listed at these coordinates.
    bool hasVertex(const Point3& p) const { return mVtx.count(p) != 0; }
    /// Whether a corner of an alive triangle has a colour.
    bool hasColors() const;
    /// Calls f(RTriangle*) for the alive triangles of p, in the order in which they were attached to it. f must not
    /// change the topology.
    template <class F>
    void forEachIncidentT(const Point3* p, const F& f) const
    {
        mmVtxT.forEach(p, f);
    }
    /// Appends the alive triangles of p in the same order.
    void getIncidentT(const Point3* p, std::vector<RTriangle*>& out) const;
    /// Adds the edges at p of its alive triangles; out becomes a set sorted by address.
    void getIncidentRE(const Point3* p, std::vector<REdge*>& out) const;
    /// Appends the rim of the fan around p: of each alive triangle there the side that p isn't on.
    void getRingRE(const Point3* p, std::vector<REdge*>& out) const;
    /// Appends the alive triangles in order of creation.
    void getAliveTriangles(std::vector<RTriangle*>& out) const;
    /// Appends the three corners of each alive triangle in order of creation.
    void getTriangleCorners(std::vector<Point3*>& out) const;
    /// The vertices that alive triangles use, each once and sorted by address. out must be empty.
    void getPoints(std::vector<Point3*>& out) const;
    /// Appends edges in mRE order, which is by their ends.
    /// \param n  the degree they have; 0: the dead ones that mRE lists; -1: 3 or more; -99: all that are alive
    /// \throws ZavBugException  for other negative numbers
    void getDegN(int n, std::vector<REdge*>& out) const;
    /// Numbers for humans, on standard output.
    void printStatistics(const std::string& text) const;
    /// Writes the alive triangles as one object, then the edges that don't have two triangles, by degree: 1, 3 and 4 in
    /// a colour each, all above in one.
    /// \param color  of the triangles; empty: those of the vertices
    void show(Visualizer3* pVisualizer, const std::string& color, bool bEdges, bool bBackfaces) const;

    /// Kills triangles that have the same three vertices as an earlier triangle of one of their edges, whatever their
    /// winding. Returns how often one was found: mostly three times each, once at each of its edges.
    unsigned long removeDups();
    /// Makes the patches anew, one for every set of triangles connected across regular edges, and winds the triangles
    /// of each like its first one. Returns their number.
    unsigned long createPatchesOrient();
    /// Collapses triangles that are flat at corner 0, with an angle under 0.01 or over 179.99 degrees or a side of no
    /// length there; then removes duplicates. Needles that are sharp at another corner stay.
    void killDegenerate();
    /// Moves every zero vertex that isn't on a border to the mean of itself and its neighbours, nIter times, one after
    /// the other, so that each sees where the last one went. With three zero vertices or fewer nothing moves. Vertices
    /// that coincide, also with one that a collapse has left behind, can end it in ZavBugException.
    void smoothZeros(int nIter);
    /// Laplacian smoothing with equal weights: moves every vertex that isn't on a border to the mean of its neighbours,
    /// nIter times, all at once. Vertices that coincide can end it in ZavBugException as above. Cached normals are left
    /// as they are.
    void smoothAll(int nIter);
    /// Moves a vertex towards the mean of its neighbours, by at most a tenth of a cell side. Where a vertex is listed
    /// already it goes on from there in random steps, drawn from rand(), of up to that length along each axis. Reports
    /// on standard output what it does. Coincident vertices can end it in ZavBugException.
    /// \return false, and nothing moved, when it has no triangle, when one would turn by more than 170 degrees, or when
    ///         no free place is found
    bool laplacianForOne(Point3* p);
    /// Gives vertices without colour the mean colour of their neighbours, ring by ring from the coloured ones inwards.
    void colorizeFilledHoles();
    /// See Mesh::contrastSpread.
    void contrastSpread(double lowFraction, double highFraction);

    /// Evaluates the flips of edges on all CPUs.
    /// \param vInRE           edges, dead ones allowed
    /// \param minImprovement  gain from which on an edge is taken. One of 0 or more always is, so that a limit above 0
    ///                        changes nothing: the bytes of every result depend on it
    /// \param temperature     above 0, an edge of lower gain is taken with the probability exp(gain / temperature),
    ///                        drawn by rand() in the order of vInRE on the calling thread
    /// \param vImpRE          must be empty; receives gain and edge by rising gain, equal gains in the order of vInRE
    /// Coincident opposite corners are moved apart, and a neighbour of opposite winding is flipped, both on the calling
    /// thread.
    void getEdgeFlipCandidates_MT(const std::vector<REdge*>& vInRE, double minImprovement, double temperature,
                                  std::vector<std::pair<double, REdge*>>& vImpRE);
    /// Flips edges by falling gain, then collapses degenerate triangles. Each edge is evaluated again when its turn
    /// comes: one that gains less than it did waits for its new turn, or is dropped at 0.005 and below. One that gains
    /// as much is flipped, even if that is 0. Edges that flips make aren't considered.
    void flipEdges();

    /// Half-edge collapses by rising penalty as long as any is allowed; see the public function of this name.
    /// \param maxLen2      limit for the squared length of an edge
    /// \param maxAngleDeg  limit for the turn of a triangle, in degrees
    /// \return the number of triangles that the collapses took away
    int reduce(double maxLen2, double maxAngleDeg);
    /// Appends those collapses of the edges that are allowed, with their penalties: in the order of the edges, for each
    /// one the direction 0 before 1. Runs on all CPUs. Edges may be dead.
    /// \param pPart  counts the edges; or null
    void getPrioqEntries(double maxAngleRad, double maxLen2, const std::vector<REdge*>& vEdges,
                         std::vector<std::pair<double, RECandidate>>& vEntries, ProgressPart* pPart = nullptr) const;
    /// What the collapse of an edge costs: 100 times the mean turn of the triangles that stay at the moving vertex, in
    /// radians, plus the root of the length in cells, plus 100 times the difference of the colours.
    /// \param which  see RECandidate; it goes by the ends that the edge has now
    /// \param vIncT  becomes the alive triangles of the moving vertex, unless length or colours refuse before that
    /// \return DBL_MAX where the collapse isn't allowed, and where the penalty wouldn't be a number. A triangle without
    ///         a normal is reported on standard output and counts for nothing
    double getPenalty(const REdge* pRE, int which, double maxLen2, double maxAngleRad,
                      std::vector<RTriangle*>& vIncT) const;

    /// Takes a triangle out of the lists of its vertices; part of RTriangle::kill.
    void unregisterTriangle(RTriangle* pRT);
    /// Moves a vertex; its colour stays. The caller must have made sure by hasVertex that no vertex is listed at the
    /// new place. Cached normals of the triangles around it are left as they are.
    /// \throws ZavBugException  when nothing is listed at the old place: of coincident vertices the first that moves
    ///                          takes their only entry along
    void updateVertex(Point3* pVtx, const Point3& newPoint);
    /// Collapses pSrc onto pTrg: kills the triangles that have both, and moves all others of pSrc to pTrg. An edge of
    /// pSrc goes on under its new ends, as the one to r does here; or it is merged into the edge that has these ends
    /// already, as those to u and w are, and stays behind dead. pSrc remains as a vertex without triangles.
    ///
    ///         u                      u
    ///       / | \                  / |
    ///     r--pSrc--pTrg     ->     r--pTrg
    ///       \ | /                  \ |
    ///         w                      w
    void exchangeCorner(Point3* pSrc, Point3* pTrg);

private:
    std::uint32_t numFlips = 0;     // counts evaluations that changed the mesh, too; see RTriangle::changedAt
    std::uint32_t allChangedAt = 0; // its last value at which more than the triangles around one edge may have changed

    static VertexPair makeKey(Point3* a, Point3* b) { return a < b ? VertexPair(a, b) : VertexPair(b, a); }
    void reserve(size_t numVertices, size_t numTriangles);
    void createVerticesOf(CMesh* pCMesh, std::vector<std::pair<CCD, Point3*>>& vCCDVertex);
    void listVertex(Point3* pVtx);
    RTriangle* takeTriangle(Point3* p0, Point3* p1, Point3* p2);
    void listAtCorners(RTriangle* pRT);
    void attachEdges(RTriangle* pRT, REdge* pRE01 = nullptr, REdge* pRE12 = nullptr, REdge* pRE02 = nullptr);
    REdge* attachToEdge(REdge* pKnownRE, const VertexPair& key, RTriangle* pRT);
    void killTrianglesOn(const REdge* pKillEdge);
    void getEdgesToMove(const std::vector<RTriangle*>& vT, Point3* pSrc, Point3* pTrg, std::vector<REdge*>& out) const;
    void moveEdge(REdge* pRE, Point3* pSrc, Point3* pTrg);
    void collapseDegenerate();
    void queueUnvisitedNeighbours(RTriangle* pRT, std::vector<RTriangle*>& queue);
    Point3* collapseBest(const RTriangle* pRT);
    bool leaveOtherVertices(Point3& p, double limit) const;
    void createREC_MT(const std::vector<REdge*>& vEdges, size_t from, size_t to, double maxLen2, double maxAngleRad,
                      std::vector<std::pair<double, RECandidate>>& vEntries) const;
    bool getRECand(REdge* pRE, int which, double maxLen2, double maxAngleRad, std::vector<RTriangle*>& vIncT,
                   std::pair<double, RECandidate>& entry) const;
    void fillNormals();
    void getEdgeFlipCandidates_MT_priv(const std::vector<REdge*>& vInRE, size_t from, size_t to,
                                       std::vector<std::pair<double, REdge*>>& vImpRE, std::vector<size_t>& vPostponed);
    static void keepCandidates(double minImprovement, double temperature,
                               std::vector<std::pair<double, REdge*>>& vImpRE);
};

/// One round of simulated annealing at one temperature: evaluates all edges, shuffles those taken by rand(), and flips
/// each that still can be.
void edgeFlipsSimA(RMesh* pRMesh, double temperature);

} // namespace MIRT_ZAV
