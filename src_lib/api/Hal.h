// The driver of a run: fixes the order of the stages and hands each stage's result on.
#pragma once

#include "intake/Bundle.h"
#include "lattice/Calc.h"
#include "zav/Mesh.h"

#include <map>
#include <vector>

namespace MIRT_ZAV
{

class CMesh;
class CloudMgr;
class Top;
class Voro;

/// Made for one run and used once, on the caller's thread.
class Hal
{
public:
    explicit Hal(CloudMgr* pCloudMgr);
    ~Hal();
    Hal(const Hal&) = delete;
    Hal& operator=(const Hal&) = delete;

    /// Cells, extraction, repair, refined mesh, colours, flips. Null, after a message, when no cell came out. The mesh
    /// shares nothing with this object or the cloud manager: both may go.
    MeshPtr reconstruct();

    /// Appends the points of the cells of a cloud of triangles; they stay the cloud's. A warning when there is none.
    void toCloud(std::vector<Point3*>& vOut);

    /// A new mesh on the cells of a cloud of triangles; null, after a warning, when there is none.
    MeshPtr oneMelt();

    /// Builds the map from cells to bundles.
    void mapCCD();

private:
    MeshPtr meshCells(std::vector<CCD>& vFillCCD, void (Top::*finalize)(Voro*));

public:
    CloudMgr* pCloudMgr;                // the caller's
    Calc* pCalc = nullptr;              // the cloud's
    CMesh* pCMesh = nullptr;            // owned from the moment the extractor hands it over
    std::vector<Bundle*> vBundles;      // the cloud's
    std::map<CCD, Bundle*> mCCD2Bundle; // the extractor and the coarse mesh refer to it
};

} // namespace MIRT_ZAV
