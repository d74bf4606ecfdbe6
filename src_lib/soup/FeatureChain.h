// Chains of feature edges: sharp edges and borders of a triangle soup, linked as straight as possible.
#pragma once

#include "zav/Point3.h"

#include <list>
#include <span>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

class FeatureChain;

/// A border edge of the soup, or one whose fold is sharp.
struct FeatureEdge
{
    Point3* pSrc = nullptr; // the chain that takes the edge may swap the two
    Point3* pTrg = nullptr;
    FeatureChain* pChain = nullptr; // that grew over it; null for an edge that was only a seed
    double angle = 0.0;             // of the fold in degrees; 9999 for a border
};

/// The feature edges at each corner of the soup: two entries per edge, those of one corner in the order of the edges.
class FeatureEdgeMap
{
public:
    struct Entry
    {
        FeatureEdge* pEdge = nullptr;
        Vector3 direction; // unit vector from the corner to the far end
    };

    FeatureEdgeMap() = default;
    /// \param vFE  in ascending order of their addresses
    explicit FeatureEdgeMap(const std::vector<FeatureEdge*>& vFE);

    /// The edges at a corner.
    std::span<const Entry> getEntries(Point3* pCorner) const;

    /// The edge that carries on in the straightest way at an end of another one; null if all turn by more than 60
    /// degrees. Of equal ones the first wins. A border goes on as a border only, and a fold as a fold.
    /// \param pEdge      the edge to be continued
    /// \param pEnd       which of its ends
    /// \param direction  unit vector along pEdge towards that end
    FeatureEdge* findStraightest(const FeatureEdge* pEdge, Point3* pEnd, const Vector3& direction) const;

private:
    struct Search;

    void buildTree(size_t first, size_t last);
    void searchTree(size_t first, size_t last, Search& search) const;

    std::vector<std::pair<Point3*, size_t>> vCorners; // sorted; a corner with its first entry
    std::vector<Entry> vEntries;                      // corner after corner
    // Corners with many edges: their entries as a tree of directions, the middle of each range its root.
    std::vector<size_t> vTree;
    std::vector<unsigned char> vAxis; // along which a range of the tree is cut, by its root
};

/// Feature edges in walking order: the pTrg of each one is the pSrc of the next.
///
///                   d
///                  /
///     a --- b === c --- e --- f       seed b-c: grows to e and f, then back to a
///                                     c-d turns more than c-e and begins a chain of its own
///
/// The seed doesn't count as taken. A later chain can grow over it, too, and turn it around; the order in which edges
/// claim cells, and with it the bytes of every cloud made of triangles, depends on that.
class FeatureChain
{
public:
    /// Grows a chain from an edge in both directions.
    FeatureChain(FeatureEdge* pSeed, const FeatureEdgeMap& mmVtxFE);

    /// Adds the edge that carries on in the straightest way at the chain's end.
    /// \return whether to go on: not without such an edge, nor if a chain has grown over it, nor if it closes this one
    bool growBack(const FeatureEdgeMap& mmVtxFE);
    /// The same at the chain's beginning.
    bool growFront(const FeatureEdgeMap& mmVtxFE);

    /// The mean of the edges' angles.
    double getAngle() const { return angle; }
    const std::list<FeatureEdge*>& getEdges() const { return lEdges; }

private:
    std::list<FeatureEdge*> lEdges;
    double angle = 0.0;
};

} // namespace MIRT_ZAV
