// Points that lie so far from all others that no lattice holds both.
#pragma once

#include <Point3.h>

#include <string>
#include <vector>

namespace zavtool
{

/// Names the points that lie more than ten times the size of the others away from these, and the box of the others, in
/// a clause that ends in the advice to remove them. Empty if there are none.
/// \param what  what the points are, "points" or "corners"
std::string describeOutliers(const std::vector<MIRT_ZAV::Point3>& points, const std::string& what);

/// The same after a run that failed.
/// \param otherwise  the advice where no point lies far away
std::string adviseOnOutliers(const std::vector<MIRT_ZAV::Point3>& points, const std::string& what,
                             const std::string& otherwise);

/// Says that the detected spacing may be wrong if some points lie far away.
void tellOutliers(const std::vector<MIRT_ZAV::Point3>& points);

} // namespace zavtool
