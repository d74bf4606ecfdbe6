#include "refined/RTriangle.h"

#include "base/tools.h"
#include "geometry/freeFunctions.h"
#include "refined/REdge.h"
#include "refined/RMesh.h"

#include <utility>

namespace MIRT_ZAV
{

void RTriangle::endForBadCorner(const char* function, int i)
{
    deliberateExit(std::string(function) + ", no such corner: " + toString(i));
}

void RTriangle::kill(RMesh* pRMesh)
{
    ZAV_ASSERT(bAlive, "bAlive");
    for (int i = 0; i < 3; ++i)
        getRE(i)->checkOut(this);
    pRMesh->unregisterTriangle(this);
    bAlive = false;
}

void RTriangle::setCorner(int i, Point3* p)
{
    if (i < 0 || i >= 3)
        endForBadCorner("RTriangle::setCorner", i);
    pVtx[i] = p;
    resetNNV();
}

int RTriangle::getICI(const Point3* p) const
{
    for (int i = 0; i < 3; ++i)
        if (pVtx[i] == p)
            return i;
    ZAV_BUG("false");
}

int RTriangle::getICI(const Point3* a, const Point3* b) const
{
    int i = 0;
    while (i < 3 && (pVtx[i] == a || pVtx[i] == b))
        ++i;
    return i;
}

REdge* RTriangle::getRE(int i) const
{
    switch (i)
    {
    case 0:
        return pRE12;
    case 1:
        return pRE02;
    case 2:
        return pRE01;
    default:
        ZAV_BUG("false");
    }
}

void RTriangle::replaceRE(const REdge* pOld, REdge* pNew)
{
    if (pRE12 == pOld)
        pRE12 = pNew;
    else if (pRE02 == pOld)
        pRE02 = pNew;
    else if (pRE01 == pOld)
        pRE01 = pNew;
    else
        ZAV_BUG("false");
}

Vector3 RTriangle::getNNV(bool& ok)
{
    if (!nnv.isZero())
    {
        ok = true;
        return nnv;
    }
    const Vector3 normal = getNormalVector(*pVtx[0], *pVtx[1], *pVtx[2], ok);
    // Infinite coordinates give ok and a zero. Stored, that would look like an empty cache: each reader would write it
    // again, several threads at once.
    if (ok && !normal.isZero())
        nnv = normal;
    return normal;
}

int RTriangle::getRTriOri(const Point3* a, const Point3* b) const
{
    for (int i = 0; i < 3; ++i)
    {
        const int next = i < 2 ? i + 1 : 0;
        if (pVtx[i] == a && pVtx[next] == b)
            return 1;
        if (pVtx[i] == b && pVtx[next] == a)
            return 2;
    }
    return 0;
}

bool RTriangle::needFlip(const RTriangle* pOther) const
{
    for (int i = 0; i < 3; ++i)
        if (const int ori = pOther->getRTriOri(pVtx[i], pVtx[i < 2 ? i + 1 : 0]))
            return ori == 1;
    ZAV_BUG("false");
}

void RTriangle::flipNNV()
{
    std::swap(pVtx[0], pVtx[1]);
    std::swap(pRE12, pRE02);
    nnv = -nnv;
}

double RTriangle::getDevIfRepl(int i, const Point3& newPoint, bool bTreatCoincidence) const
{
    if (i < 0 || i >= 3)
        endForBadCorner("RTriangle::getDevIfRepl", i);
    const Point3& a = *pVtx[i];
    const Point3& b = *pVtx[(i + 1) % 3];
    const Point3& c = *pVtx[(i + 2) % 3];
    if (bTreatCoincidence && (newPoint == a || newPoint == b || newPoint == c))
        return 0.0;
    bool bOldOk = false;
    bool bNewOk = false;
    const Vector3 oldNormal = getNormalVector(a, b, c, bOldOk);
    const Vector3 newNormal = getNormalVector(newPoint, b, c, bNewOk);
    if (!bNewOk)
        return 360.0;
    if (!bOldOk)
        return -1.0;
    return getAngleDegree(oldNormal, newNormal);
}

} // namespace MIRT_ZAV
