#include "soup/FeatureMgr.h"

#include "base/sortMT.h"

namespace MIRT_ZAV
{

FeatureMgr::FeatureMgr(std::vector<FeatureRecord>& vInArg)
    : vIn(vInArg), edges(std::make_unique<FeatureEdge[]>(vInArg.size()))
{
    vFE.reserve(vIn.size());
    for (size_t i = 0; i < vIn.size(); ++i)
    {
        edges[i] = {vIn[i].second.first, vIn[i].second.second, nullptr, vIn[i].first};
        vFE.push_back(&edges[i]);
    }
    mmVtxFE = FeatureEdgeMap(vFE);
    for (auto it = vFE.rbegin(); it != vFE.rend(); ++it) // the sharpest first
        if ((*it)->pChain == nullptr)
            vChains.push_back(new FeatureChain(*it, mmVtxFE));
}

FeatureMgr::~FeatureMgr()
{
    for (const FeatureChain* const pChain : vChains)
        delete pChain;
}

void FeatureMgr::getOrderedPairs(std::vector<FeatureRecord>& vOut)
{
    std::vector<std::pair<double, size_t>> vOrder; // mean angle, number of the chain
    vOrder.reserve(vChains.size());
    for (size_t i = 0; i < vChains.size(); ++i)
        vOrder.emplace_back(vChains[i]->getAngle(), i);
    sortMT(vOrder.begin(), vOrder.end());
    for (const auto& [angle, i] : vOrder)
        for (const FeatureEdge* const pFE : vChains[i]->getEdges())
            vOut.emplace_back(pFE->angle, std::pair(pFE->pSrc, pFE->pTrg));
}

} // namespace MIRT_ZAV
