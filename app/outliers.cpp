#include "outliers.h"

#include "console.h"

#include <algorithm>
#include <cstdio>

namespace zavtool
{
namespace
{
using MIRT_ZAV::Point3;

struct Box
{
    double low[3];
    double high[3];
};

double coordinateOf(const Point3& p, int axis)
{
    return axis == 0 ? p.x() : axis == 1 ? p.y() : p.z();
}

/// The box that holds all points of a sample but the hundredth part at each end of each axis, made wider by ten times
/// its size: so far off lies no point of an object that the rest is a fair sample of.
Box getNeighbourhood(const std::vector<Point3>& points)
{
    constexpr size_t maxSample = 10000;
    Box box;
    double size = 0.0;
    std::vector<double> values;
    for (int axis = 0; axis < 3; ++axis)
    {
        values.clear();
        for (size_t i = 0; i < points.size(); i += points.size() / maxSample + 1)
            values.push_back(coordinateOf(points[i], axis));
        const auto numBeyond = static_cast<std::ptrdiff_t>((values.size() + 99) / 100);
        const auto low = values.begin() + numBeyond, high = values.end() - 1 - numBeyond;
        std::nth_element(values.begin(), low, values.end());
        box.low[axis] = *low;
        std::nth_element(values.begin(), high, values.end());
        box.high[axis] = *high;
        size = std::max(size, box.high[axis] - box.low[axis]);
    }
    for (int axis = 0; axis < 3; ++axis)
    {
        box.low[axis] -= 10.0 * size;
        box.high[axis] += 10.0 * size;
    }
    return box;
}

bool contains(const Box& box, const Point3& p)
{
    for (int axis = 0; axis < 3; ++axis)
        if (coordinateOf(p, axis) < box.low[axis] || coordinateOf(p, axis) > box.high[axis])
            return false;
    return true;
}

std::string toText(double x, double y, double z)
{
    char text[80];
    std::snprintf(text, sizeof(text), "%.6g %.6g %.6g", x, y, z);
    return text;
}

std::string toText(const Box& box)
{
    return "from " + toText(box.low[0], box.low[1], box.low[2]) + " to " +
           toText(box.high[0], box.high[1], box.high[2]);
}
} // namespace

std::string describeOutliers(const std::vector<Point3>& points, const std::string& what)
{
    if (points.size() < 10)
        return ""; // which of so few are the others?
    const Box neighbourhood = getNeighbourhood(points);
    Box rest{{points[0].x(), points[0].y(), points[0].z()}, {points[0].x(), points[0].y(), points[0].z()}};
    size_t numRest = 0;
    std::string named;
    for (const Point3& p : points)
    {
        if (!contains(neighbourhood, p))
        {
            constexpr size_t maxNamed = 3;
            if (const size_t numFound = static_cast<size_t>(&p - points.data()) - numRest; numFound < maxNamed)
                named += (numFound > 0 ? ", " : "") + toText(p.x(), p.y(), p.z());
            else if (numFound == maxNamed)
                named += " and others";
            continue;
        }
        for (int axis = 0; axis < 3; ++axis)
        {
            const double c = coordinateOf(p, axis);
            rest.low[axis] = numRest == 0 ? c : std::min(rest.low[axis], c);
            rest.high[axis] = numRest == 0 ? c : std::max(rest.high[axis], c);
        }
        ++numRest;
    }
    const size_t numFar = points.size() - numRest;
    if (numFar == 0)
        return "";
    return "of " + std::to_string(points.size()) + ' ' + what + ' ' + std::to_string(numFar) +
           (numFar == 1 ? " lies" : " lie") + " far from the others, which fill the box " + toText(rest) + ": remove " +
           named;
}

std::string adviseOnOutliers(const std::vector<Point3>& points, const std::string& what, const std::string& otherwise)
{
    const std::string outliers = describeOutliers(points, what);
    return outliers.empty() ? otherwise : outliers;
}

void tellOutliers(const std::vector<Point3>& points)
{
    if (const std::string outliers = describeOutliers(points, "points"); !outliers.empty())
        tell("the detected spacing may be too great: " + outliers);
}

} // namespace zavtool
