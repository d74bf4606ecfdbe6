#include "api/Hal.h"

#include "base/Progress.h"
#include "base/sortMT.h"
#include "base/tools.h"
#include "coarse/CMesh.h"
#include "coarse/Top.h"
#include "coarse/Voro.h"
#include "intake/CloudMgr.h"
#include "refined/RMesh.h"
#include "refined/RTop.h"
#include "zav/meshOperations.h"

#include <memory>

namespace MIRT_ZAV
{

Hal::Hal(CloudMgr* pCloudMgrArg) : pCloudMgr(pCloudMgrArg)
{
}

Hal::~Hal()
{
    delete pCMesh;
}

MeshPtr Hal::reconstruct()
{
    // Two of the nine steps come, setDone makes up for the rest. What subscribers hear depends on the nine.
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("HL_st", 9);
    std::vector<CCD> vFillCCD;
    pCloudMgr->getBundles(vBundles, pCalc, vFillCCD);
    if (vBundles.empty())
    {
        errorMsg(ZAV_LOCATION, "Nothing to do (bad input? wrong resolution?)");
        return nullptr;
    }
    progress->incProgressByOne();
    mapCCD();
    progress->incProgressByOne();
    progress->setDone(true);

    // Vertices that closed holes come from centres of cells and have no colour. They get their place first, then a
    // colour; the flips look at both.
    MeshPtr pMesh = meshCells(vFillCCD, &Top::finalizeReconstructedMesh);
    pMesh->getRMesh()->smoothZeros(5);
    pMesh->colorizeFilledHoles();
    edgeFlips(pMesh);
    edgeFlips(pMesh); // the edges that the first call made
    return pMesh;
}

/// Extraction, repair and refined mesh of the cells that are mapped.
MeshPtr Hal::meshCells(std::vector<CCD>& vFillCCD, void (Top::*finalize)(Voro*))
{
    Voro voro(pCalc, mCCD2Bundle, vFillCCD, TM_FAT);
    voro.fatExtractTriangles();
    pCMesh = voro.releaseCMesh();
    Top top(pCMesh, pCalc);
    (top.*finalize)(&voro);

    auto pRMesh = std::make_unique<RMesh>(pCMesh);
    RTop(pRMesh.get()).finalizeBase();
    MeshPtr pMesh = std::make_shared<Mesh>(pRMesh.get());
    pRMesh.release(); // the handle owns it by now; making one could have thrown
    return pMesh;
}

void Hal::toCloud(std::vector<Point3*>& vOut)
{
    Progress* const progress = getThreadProgress()->getChildProgressSetTodo("hal-part", 2);
    std::vector<CCD> vFillCCD; // triangles have none
    pCloudMgr->getBundles(vBundles, pCalc, vFillCCD);
    progress->incProgressByOne();
    if (vBundles.empty())
        warning(ZAV_LOCATION, "toCloud: Nothing to do");
    vOut.reserve(vOut.size() + vBundles.size());
    for (const Bundle* const b : vBundles)
        vOut.push_back(b->pVtx);
    progress->incProgressByOne();
    progress->setDone(true);
}

MeshPtr Hal::oneMelt()
{
    std::vector<CCD> vFillCCD; // triangles have none
    pCloudMgr->getBundles(vBundles, pCalc, vFillCCD);
    if (vBundles.empty())
    {
        warning(ZAV_LOCATION, "MELT: Nothing to do");
        return nullptr;
    }
    mapCCD();
    return meshCells(vFillCCD, &Top::finalizeOneMelted);
}

void Hal::mapCCD()
{
    sortMT(vBundles.begin(), vBundles.end(), Func_ltBundleCCD());
    for (Bundle* const b : vBundles)
        mCCD2Bundle.emplace_hint(mCCD2Bundle.end(), b->ccd, b);
}

} // namespace MIRT_ZAV
