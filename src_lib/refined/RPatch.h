// A patch of the refined mesh: triangles connected across regular edges.
#pragma once

#include <vector>

namespace MIRT_ZAV
{

class RMesh;
class RTriangle;

/// Allocated by itself and owned by the RMesh. Its triangles point back to it for its lifetime.
class RPatch
{
public:
    bool bAlive = true;
    int label; ///< number of the patch in order of construction, over all meshes of the process

    explicit RPatch(RMesh* pRMesh);
    /// Takes the patch away from all its triangles.
    ~RPatch();
    RPatch(const RPatch&) = delete;
    RPatch& operator=(const RPatch&) = delete;

    RMesh* getRMesh() const { return pRMesh; }
    /// Adds a triangle and makes this its patch. Adding it again changes nothing.
    void add(RTriangle* pRT);
    /// The triangles as a set, in the order of their addresses. Valid until the next add.
    const std::vector<RTriangle*>& getTriangles() const;

private:
    RMesh* pRMesh;
    mutable std::vector<RTriangle*> vRT; // made a set when somebody asks
    mutable bool bSorted = true;
};

} // namespace MIRT_ZAV
