// Cells of a small lattice with a bundle each, and a coarse mesh on them.
#pragma once

#include "coarse/CMesh.h"

#include <deque>
#include <map>

namespace test
{

struct CoarseCells
{
    MIRT_ZAV::Calc calc; // unit cells
    std::map<MIRT_ZAV::CCD, MIRT_ZAV::Bundle*> bundles;
    std::deque<MIRT_ZAV::Bundle> ownedBundles;
    std::deque<MIRT_ZAV::Point3> ownedPoints;
    MIRT_ZAV::CMesh mesh{nullptr, &calc, &bundles, {}};

    explicit CoarseCells(int numLevels)
        : calc(0.0, 0.0, 0.0, double(1 << numLevels), double(1 << numLevels), double(1 << numLevels), numLevels)
    {
    }

    MIRT_ZAV::CCD cell(MIRT_ZAV::u64 i, MIRT_ZAV::u64 j, MIRT_ZAV::u64 k) const
    {
        return calc.rcd2ccd(MIRT_ZAV::rcd::fromXYZ(i, j, k));
    }
    MIRT_ZAV::CCD vertexAt(MIRT_ZAV::CCD c, const MIRT_ZAV::Point3& p)
    {
        ownedPoints.push_back(p);
        bundles[c] = &ownedBundles.emplace_back(MIRT_ZAV::Bundle{&ownedPoints.back(), c, nullptr, p});
        return c;
    }
    /// In the middle of its cell.
    MIRT_ZAV::CCD vertex(MIRT_ZAV::u64 i, MIRT_ZAV::u64 j, MIRT_ZAV::u64 k)
    {
        return vertexAt(cell(i, j, k), calc.getMidPoint(cell(i, j, k)));
    }
};

} // namespace test
