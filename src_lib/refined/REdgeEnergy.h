// How much a mesh gains when an edge is replaced by the other diagonal of its two triangles.
//
// The energy of an edge is its bending, 1 minus the cosine between the normals at its sides, times its length, to the
// power 0.335. The gain is the energy of the five edges of the quadrilateral before the flip minus the one after it.
#pragma once

#include "zav/Point3.h"
#include "zav/Vector3.h"

#include <cfloat>

namespace MIRT_ZAV
{

class REdge;
class RMesh;
class RTriangle;

class REdgeEnergy
{
public:
    static constexpr double impossible = -DBL_MAX; ///< the gain of an edge that can't be flipped

    RMesh* pRMesh;
    REdge* pRE;    ///< the edge that may be flipped
    double result; ///< the gain, above 0 if the flip improves the mesh

    REdgeEnergy(RMesh* pRMesh, REdge* pRE);

    /// Fills the result. Flips the second triangle where the two disagree in winding, and moves opposite corners that
    /// coincide apart; the latter can end in ZavBugException where other vertices coincide, too.
    void compute();
    /// The same, but only if that leaves the mesh as it is; false otherwise. With all normals cached, threads may call
    /// it at once.
    bool computeUnchanged();

    /// Cosine of the largest angle of a triangle; impossible when a side has no direction.
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
