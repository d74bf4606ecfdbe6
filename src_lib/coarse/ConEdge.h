// A candidate step of the growth of sheets in a closed patch.
#pragma once

#include "coarse/CPatch.h"

#include <vector>

namespace MIRT_ZAV
{

class CEdge;
class CMesh;

/// The step over one edge. Flat steps come first, so that a sheet grows on its own side as long as a flat way exists.
class ConEdge
{
public:
    CEdge* pCE;
    int deg;                       // at creation
    double angle = 0.0;            // the key, in degrees
    bool bSameSide = true;         // whether the step stays on one sheet
    std::vector<CTriangle*> vMemT; // the triangles of the step

    /// \param e  an edge of degree 2 or an edge of more with two members of the patch at least, else a bug
    ConEdge(const CMesh* m, CEdge* e, const CPatch& patch);

    bool operator<(const ConEdge& other) const { return angle < other.angle; }

private:
    bool getFold(const CMesh* m, double& degrees) const;
};

} // namespace MIRT_ZAV
