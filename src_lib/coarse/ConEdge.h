// A step from triangle to triangle that may be the next when a closed patch is parted into its two sheets.
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
    double angle = 0.0;            // the key, in degrees: the smaller, the surer
    bool bSameSide = true;         // whether the step stays on one sheet or leads round the rim to the other
    std::vector<CTriangle*> vMemT; // the patch's triangles on the edge; a step needs two

    /// \param e  an edge of degree 2, or a non-manifold one with at least two members of the patch; others are a bug
    ConEdge(const CMesh* m, CEdge* e, const CPatch& patch);

    bool operator<(const ConEdge& other) const { return angle < other.angle; }

private:
    bool getFold(const CMesh* m, double& degrees) const;
};

} // namespace MIRT_ZAV
