// The refined mesh as debug geometry.
#include "refined/RMesh.h"

#include "refined/Visualizer3.h"

#include <algorithm>
#include <utility>

namespace MIRT_ZAV
{

void RMesh::show(Visualizer3* pVisualizer, const std::string& color, bool bEdges, bool bBackfaces) const
{
    pVisualizer->setBackfaces(bBackfaces);
    std::vector<RTriangle*> vAliveT;
    getAliveTriangles(vAliveT);
    pVisualizer->writeTriangles(vAliveT, color.empty() ? Visualizer3::VERTEXCOLORS : color, bEdges);

    constexpr int width = 1;
    const std::pair<int, const std::string&> colors[] = {
        {1, Visualizer3::CRED}, {3, Visualizer3::CPURPLE}, {4, Visualizer3::CLIGHTBLUE}};
    for (const auto& [degree, edgeColor] : colors)
    {
        std::vector<REdge*> vEdges;
        getDegN(degree, vEdges);
        pVisualizer->writeSegments(vEdges, width, edgeColor);
    }
    std::vector<REdge*> vHigher;
    getDegN(-1, vHigher);
    vHigher.erase(
        std::remove_if(vHigher.begin(), vHigher.end(), [](const REdge* pRE) { return pRE->getDegree() <= 4; }),
        vHigher.end());
    pVisualizer->writeSegments(vHigher, width, Visualizer3::CPINK);
}

} // namespace MIRT_ZAV
