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
    Point3* pSrc = nullptr;
    Point3* pTrg = nullptr;
    FeatureChain* pChain = nullptr; // null for the seed of a chain, too
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

    /// The edge at an end of another one that continues it best, or null: it turns by at most 60 degrees and less than
    /// all others, the first one of equals. A border continues borders only, and a fold folds only.
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

/// Feature edges in walking order: the pTrg of each one is the pSrc of the next. The seed stays free for another chain,
/// deliberately: an edge can stand in two chains, and the later one can turn it around.
class FeatureChain
{
public:
    /// Grows a chain from an edge in both directions.
    FeatureChain(FeatureEdge* pSeed, const FeatureEdgeMap& mmVtxFE);

    /// Adds the edge that continues the chain best at its end; false when there is none, when it belongs to a chain
    /// already, or when the chain is closed now.
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
