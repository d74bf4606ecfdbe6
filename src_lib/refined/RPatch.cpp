#include "refined/RPatch.h"

#include "base/vectorHelpers.h"
#include "refined/RTriangle.h"

#include <atomic>

namespace MIRT_ZAV
{
namespace
{
std::atomic<int> nextLabel{0};
}

RPatch::RPatch(RMesh* pRMeshArg) : label(nextLabel++), pRMesh(pRMeshArg)
{
}

RPatch::~RPatch()
{
    for (RTriangle* const pRT : vRT)
        pRT->setPatch(nullptr);
}

void RPatch::add(RTriangle* pRT)
{
    vRT.push_back(pRT);
    bSorted = false;
    pRT->setPatch(this);
}

const std::vector<RTriangle*>& RPatch::getTriangles() const
{
    if (!bSorted)
        oneInstance(vRT);
    bSorted = true;
    return vRT;
}

} // namespace MIRT_ZAV
