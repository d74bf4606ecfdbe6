// One occupied cell of the shell with its point: what becomes a vertex of the coarse mesh.
#pragma once

#include "lattice/Calc.h"
#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// Something that a bundle can carry along; it is deleted with the bundle's owner.
struct BundleAttachment
{
    virtual ~BundleAttachment() = default;
};

/// Plain data. pCalc->getCCD(pVtx) == ccd holds at creation; the point of an additional bundle can leave its cell
/// later.
struct Bundle
{
    Point3* pVtx;             // representative point, shared with the mesh, not owned
    CCD ccd;                  // the cell
    BundleAttachment* pOwned; // null unless something is carried along
    Point3 startPoint;        // the point as the cell preparation gave it
};

struct Func_ltBundleCCD
{
    bool operator()(const Bundle* a, const Bundle* b) const { return a->ccd < b->ccd; }
};

} // namespace MIRT_ZAV
