#include "soup/Tri.h"

#include "base/tools.h"
#include "geometry/freeFunctions.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iostream>

namespace MIRT_ZAV
{

Tri::Tri(Point3* a, Point3* b, Point3* c)
{
    std::array<Point3*, 3> corners = {a, b, c};
    std::sort(corners.begin(), corners.end(), std::less<>());
    pVtx0 = corners[0];
    pVtx1 = corners[1];
    pVtx2 = corners[2];
    ZAV_ASSERT(pVtx0 < pVtx1 && pVtx1 < pVtx2, "pVtx0<pVtx1 && pVtx1<pVtx2");
}

void Tri::prepareNormal()
{
    nnv = getNormalVector(*pVtx0, *pVtx1, *pVtx2);
}

Vector3 Tri::getNNV(const Point3* pA, const Point3* pB)
{
    if (nnv.isZero())
    {
        // A needle may have passed as it stands in the soup and still have no normal here: the corners come in another
        // order, which changes the last bits.
        bool bOK = false;
        nnv = getNormalVector(*pVtx0, *pVtx1, *pVtx2, bOK);
        if (!bOK)
            std::cout << "uh, degenerate Tri\n" << *pVtx0 << '\n' << *pVtx1 << '\n' << *pVtx2 << '\n';
        ZAV_ASSERT(bOK, "bOK");
    }
    const bool bAlong = (pA == pVtx0 && pB == pVtx1) || (pA == pVtx1 && pB == pVtx2) || (pA == pVtx2 && pB == pVtx0);
    return bAlong ? nnv : -nnv;
}

} // namespace MIRT_ZAV
