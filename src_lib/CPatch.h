// A piece of the coarse mesh: triangles that can reach each other over edges of degree 2.
#pragma once

#include "Calc.h"

#include <cstdint>
#include <vector>

namespace MIRT_ZAV
{

class CEdge;
class CMesh;
class CTriangle;

/// Members are not owned. The destructor unties the members that still belong to this patch.
class CPatch
{
public:
    std::uint32_t seqNum;               // rises by one per patch of the process
    std::vector<CTriangle*> vT;         // members; killed ones stay
    std::vector<CEdge*> vOuterBoundary; // the rim, sorted by address
    bool bAlive = true;
    CMesh* pCMesh;
    Calc* pCalc;
    double cached = -1.0;

    CPatch(CMesh* pCMesh, Calc* pCalc);
    ~CPatch();
    CPatch(const CPatch&) = delete;
    CPatch& operator=(const CPatch&) = delete;

    void add(CTriangle* t);
    /// Number of members, dead ones included.
    size_t getSize() const { return vT.size(); }
    bool isAlive() const { return bAlive; }
};

} // namespace MIRT_ZAV
