// One occupied cell of the shell with its point: what becomes a vertex of the coarse mesh.
#pragma once

#include "lattice/Calc.h"
#include "zav/Point3.h"

namespace MIRT_ZAV
{

/// Base of what a bundle can carry along. Whoever owns the bundle deletes it.
struct BundleAttachment
{
    virtual ~BundleAttachment() = default;
};

/// Plain data. A bundle begins with its point in its cell. The points of bundles that the repair adds move afterwards
/// and may leave it: what needs the cell takes ccd.
struct Bundle
{
    Point3* pVtx;             // representative point, shared with the coarse mesh, not owned
    CCD ccd;                  // the cell
    BundleAttachment* pOwned; // null unless something is carried along
    Point3 startPoint;        // the point as it was when the bundle was made
};

struct Func_ltBundleCCD
{
    bool operator()(const Bundle* a, const Bundle* b) const { return a->ccd < b->ccd; }
};

} // namespace MIRT_ZAV
