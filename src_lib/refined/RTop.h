// The clean-up of a new refined mesh.
#pragma once

namespace MIRT_ZAV
{

class RMesh;

class RTop
{
public:
    explicit RTop(RMesh* pRMeshArg) : pRMesh(pRMeshArg) {}

    /// Removes repeated triangles, gives every patch one winding and collapses degenerate triangles. Once per mesh.
    void finalizeBase();

    RMesh* pRMesh; // the caller's
};

} // namespace MIRT_ZAV
