// The mesh behind a handle that an application passed.
#pragma once

#include "base/tools.h"
#include "zav/Mesh.h"

namespace MIRT_ZAV
{

/// \throws ZavBugException  for a null handle and for one without a mesh
inline RMesh* getRMesh(const MeshPtr& pMesh)
{
    ZAV_ASSERT(pMesh != nullptr && pMesh->getRMesh() != nullptr, "pMesh!=__null");
    return pMesh->getRMesh();
}

} // namespace MIRT_ZAV
