// Orders the feature edges of a triangle soup, so that the edges of a line stay together and the sharpest lines, and
// borders, come last. Cells are claimed from the end of the list.
#pragma once

#include "soup/FeatureChain.h"

#include <memory>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// An edge with the angle of its fold in degrees, 9999 for a border.
using FeatureRecord = std::pair<double, std::pair<Point3*, Point3*>>;

class FeatureMgr
{
public:
    /// Links the edges into chains. Seeds are taken from the end, so that the sharpest edges decide how lines run.
    /// \param vIn  sorted by angle; must live as long as this
    explicit FeatureMgr(std::vector<FeatureRecord>& vIn);
    ~FeatureMgr();
    FeatureMgr(const FeatureMgr&) = delete;
    FeatureMgr& operator=(const FeatureMgr&) = delete;

    /// Appends the edges chain by chain, by ascending mean angle and in order of creation where that is equal. An edge
    /// that stands in two chains comes twice.
    void getOrderedPairs(std::vector<FeatureRecord>& vOut);

private:
    std::vector<FeatureRecord>& vIn;
    std::vector<FeatureEdge*> vFE; // owned: all lie in one array, so that their addresses ascend
    FeatureEdgeMap mmVtxFE;
    std::vector<FeatureChain*> vChains; // owned
    std::unique_ptr<FeatureEdge[]> edges;
};

} // namespace MIRT_ZAV
