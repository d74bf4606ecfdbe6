// How much a mesh gains when an edge is replaced by the other diagonal of its two triangles.
//
// An edge costs (bending * length)^0.335. Its bending is 1 minus the cosine between the normals of its two triangles: 0
// for a flat edge, 2 for a fold. With an exponent below 1 one sharp edge is cheaper than several blunt ones, so that
// edges gather along the features of the surface. A flip changes the cost of five edges, the diagonal and the four rims
// of the quadrilateral around it; the gain is what they cost now less what they cost then.
#pragma once

#include "zav/Point3.h"
#include "zav/Vector3.h"

#include <cfloat>

namespace MIRT_ZAV
{

class REdge;
class RMesh;
class RTriangle;

/// Evaluates one edge. Doesn't own what it points to.
class REdgeEnergy
{
public:
    static constexpr double impossible = -DBL_MAX; ///< the gain of an edge that can't be flipped

    RMesh* pRMesh;
    REdge* pRE;    ///< the edge that may be flipped
    double result; ///< the gain: above 0 if the flip improves the mesh; impossible until it is computed

    REdgeEnergy(RMesh* pRMesh, REdge* pRE);

    /// Fills the result. Flips the second triangle where the two disagree in winding, and moves opposite corners that
    /// coincide apart.
    /// \throws ZavBugException  where coincident vertices are in the way: opposite corners that would both have to
    ///                          move, or the ends of the edge at one place
    void compute();
    /// The same, but only if that leaves the mesh as it is; false, and the result impossible, otherwise. With all
    /// normals cached, threads may call it at once.
    bool computeUnchanged();

    /// Cosine of the largest angle of a triangle, -1 to 0.5; impossible when a side has no direction.
    double getMinCosPhi(const Point3* p0, const Point3* p1, const Point3* p2) const;

private:
    struct Quad;
    struct RimTerm;

    bool computeAs(bool bMayChange);
    void separateCorners(Quad& quad);
    bool getAnglePenalty(const Quad& quad, double& penalty) const;
    double getGain(Quad& quad) const;
    double getEnergyDrop(const Quad& quad, double curDih, double altDih) const;
};

} // namespace MIRT_ZAV
