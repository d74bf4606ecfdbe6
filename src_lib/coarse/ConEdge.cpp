#include "coarse/ConEdge.h"

#include "base/tools.h"
#include "coarse/CEdge.h"
#include "coarse/CMesh.h"
#include "geometry/freeFunctions.h"

namespace MIRT_ZAV
{
namespace
{
constexpr double angleWithoutNormal = 90.0;
constexpr double angleOfManyMembers = 181.0; // last in the queue, where it is thrown away
} // namespace

ConEdge::ConEdge(const CMesh* m, CEdge* e, const CPatch& patch) : pCE(e), deg(e->getDegree())
{
    ZAV_ASSERT(deg > 1, "deg>1");
    if (deg == 2)
    {
        e->getAliveTriangles(vMemT);
        if (!getFold(m, angle))
            angle = angleWithoutNormal;
        return;
    }
    for (CTriangle* const t : e->vT)
        if (t->isAlive() && patch.isMember(t))
            vMemT.push_back(t);
    ZAV_ASSERT(vMemT.size() >= 2, "vMemT.size()>=2");
    if (vMemT.size() > 2)
    {
        angle = angleOfManyMembers;
        return;
    }
    // The rest of the mesh meets the patch at its rim. Looking along the rim's edge e:
    //
    //                   .------- one member
    //      rest -------e                           the sheets fold back on each other: the sharper the fold,
    //                   `------- the other         the surer the step to the other sheet
    bSameSide = false;
    double fold = 0.0;
    angle = getFold(m, fold) ? 180.0 - fold : angleWithoutNormal;
}

/// The angle between the normals as if both triangles were wound alike: 0 is flat, 180 folded shut. False if one of
/// them has no normal.
bool ConEdge::getFold(const CMesh* m, double& degrees) const
{
    bool ok0 = false, ok1 = false;
    const Vector3 n0 = vMemT[0]->getRealNNV(m, ok0), n1 = vMemT[1]->getRealNNV(m, ok1);
    if (!ok0 || !ok1)
        return false;
    degrees = getAngleDegree(vMemT[0]->needFlip(vMemT[1]) ? -n0 : n0, n1);
    return true;
}

} // namespace MIRT_ZAV
