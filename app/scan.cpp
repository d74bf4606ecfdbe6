#include "scan.h"

#include "console.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

namespace zavtool
{
namespace
{
using MIRT_ZAV::Point3;
using MIRT_ZAV::Vector3;

/// The standard library's generators give the same numbers everywhere, its distributions don't: those are made here.
class Random
{
public:
    explicit Random(std::uint64_t seed) : engine(seed) {}

    /// From 0 to 1, 1 excluded.
    double uniform() { return static_cast<double>(engine() >> 11) * 0x1p-53; }

    /// Mean 0, standard deviation 1. The sum of twelve uniform numbers (Irwin-Hall) is close enough to a normal
    /// distribution, never beyond 6, and takes no logarithm or sine, whose last bits differ between machines.
    double normal()
    {
        double sum = -6.0;
        for (int i = 0; i < 12; ++i)
            sum += uniform();
        return sum;
    }

    /// Points of a cube until one lies in the ball: all directions are equally likely then.
    Vector3 direction()
    {
        for (;;)
        {
            const double x = uniform();
            const double y = uniform();
            const double z = uniform();
            const Vector3 v = Vector3(x, y, z) * 2.0 - Vector3(1.0, 1.0, 1.0);
            const double length = v.length();
            if (length > 0.01 && length < 1.0)
                return v / length;
        }
    }

private:
    std::mt19937_64 engine;
};

// Shapes are signed distances to their surface, positive outside. None may give more than the true distance, or the
// walk along a ray would step across the surface.

double toSphere(const Vector3& p)
{
    return p.length() - 1.0;
}

double toTorus(const Vector3& p)
{
    const double toRing = std::sqrt(p.x() * p.x() + p.y() * p.y()) - 0.7;
    return std::sqrt(toRing * toRing + p.z() * p.z()) - 0.3;
}

double toBox(const Vector3& p)
{
    const Vector3 q(std::fabs(p.x()) - 1.0, std::fabs(p.y()) - 0.7, std::fabs(p.z()) - 0.5);
    const Vector3 outside(std::max(q.x(), 0.0), std::max(q.y(), 0.0), std::max(q.z(), 0.0));
    return outside.length() + std::min(std::max({q.x(), q.y(), q.z()}), 0.0);
}

double toWave(const Vector3& p)
{
    const auto hill = [&](double x, double y, double height, double steepness)
    {
        const double dx = p.x() - x;
        const double dy = p.y() - y;
        return height / (1.0 + steepness * (dx * dx + dy * dy));
    };
    const double height = hill(0.4, 0.3, 0.4, 8.0) - hill(-0.5, 0.2, 0.3, 10.0) + hill(-0.1, -0.6, 0.3, 12.0);
    // Above a slope of s the true distance is at least 1 / sqrt(1 + s * s) of the vertical one; s stays below 1.5.
    return (p.z() - height) * 0.5;
}

struct Shape
{
    const char* name;
    double (*distance)(const Vector3&);
    double area;
    bool bOnlyFromAbove;
};

constexpr Shape shapes[] = {
    {"sphere", toSphere, 12.566, false}, // 4 pi
    {"torus", toTorus, 8.291, false},    // 4 pi pi 0.7 0.3
    {"box", toBox, 12.4, false},         // 2 (2 * 1.4 + 2 * 1 + 1.4 * 1)
    {"wave", toWave, 4.3, true},
};

Vector3 getNormal(const Shape& shape, const Vector3& p)
{
    constexpr double h = 1e-6;
    const auto slope = [&](const Vector3& d) { return shape.distance(p + d) - shape.distance(p - d); };
    const Vector3 gradient(slope({h, 0.0, 0.0}), slope({0.0, h, 0.0}), slope({0.0, 0.0, h}));
    return gradient / gradient.length();
}

constexpr double viewDistance = 4.0; // from the middle of the object
constexpr double halfField = 0.48;   // tangent of half the angle of view; every shape fits in, from all sides

struct View
{
    Vector3 eye;
    Vector3 forward, right, up;
};

/// Directions that keep away from each other: each is the one of many random ones that lies farthest from those before
/// it (best-candidate sampling, Mitchell 1991).
std::vector<View> placeViews(const Shape& shape, int numViews, Random& random)
{
    std::vector<View> views;
    while (views.size() < static_cast<size_t>(numViews))
    {
        Vector3 best;
        double bestDistance = -1.0;
        for (int trial = 0; trial < 100; ++trial)
        {
            Vector3 d = random.direction();
            if (shape.bOnlyFromAbove)
                d = Vector3(d.x() * 0.6, d.y() * 0.6, 1.0) / Vector3(d.x() * 0.6, d.y() * 0.6, 1.0).length();
            double distance = 4.0; // squared, to the nearest view so far
            for (const View& view : views)
                distance = std::min(distance, (view.forward + d).sqLength());
            if (distance > bestDistance)
            {
                bestDistance = distance;
                best = d;
            }
        }
        View view;
        view.eye = best * viewDistance;
        view.forward = -best;
        const Vector3 helper = std::fabs(best.z()) < 0.9 ? Vector3(0.0, 0.0, 1.0) : Vector3(1.0, 0.0, 0.0);
        view.right = crossProduct(view.forward, helper);
        view.right /= view.right.length();
        view.up = crossProduct(view.right, view.forward);
        views.push_back(view);
    }
    return views;
}

/// Where a ray meets the surface; false if it doesn't. No step is longer than the surface is away, so that none crosses
/// it (sphere tracing, Hart 1996). The wave goes on outside of the cube: hits there don't count.
bool hit(const Shape& shape, const Vector3& eye, const Vector3& direction, Vector3& place)
{
    double way = viewDistance - 1.8; // before the cube
    for (int i = 0; i < 500 && way < viewDistance + 1.8; ++i)
    {
        place = eye + direction * way;
        const double distance = shape.distance(place);
        if (distance < 1e-9)
            return std::fabs(place.x()) <= 1.0 + 1e-6 && std::fabs(place.y()) <= 1.0 + 1e-6;
        way += distance;
    }
    return false;
}

using Visitor = std::function<void(const Vector3& place, const Vector3& normal)>;

/// Sends rays through a raster of numLines x numLines directions, each a little off its place, and visits the hits
/// where the surface isn't too slanted for a scanner.
void sweep(const Shape& shape, const View& view, int numLines, Random& random, const Visitor& visit)
{
    const double pixel = 2.0 * halfField / numLines;
    for (int row = 0; row < numLines; ++row)
        for (int column = 0; column < numLines; ++column)
        {
            const double shiftX = random.uniform();
            const double shiftY = random.uniform();
            const double x = (column + 0.25 + 0.5 * shiftX) * pixel - halfField;
            const double y = (row + 0.25 + 0.5 * shiftY) * pixel - halfField;
            Vector3 direction = view.forward + view.right * x + view.up * y;
            direction /= direction.length();
            Vector3 place;
            if (!hit(shape, view.eye, direction, place))
                continue;
            const Vector3 normal = getNormal(shape, place);
            constexpr double leastCosine = 0.15;
            if (normal * direction < -leastCosine)
                visit(place, normal);
        }
}

Point3 makePoint(const Vector3& p)
{
    const auto toByte = [](double coordinate)
    { return static_cast<unsigned char>(std::clamp((coordinate + 1.0) * 127.5, 0.0, 255.0)); };
    Point3 point(p.x(), p.y(), p.z());
    point.setColor(toByte(p.x()), toByte(p.y()), toByte(p.z()), 255);
    return point;
}

/// Keeps as many points as wanted, spread evenly over the order of measuring.
void thinOut(std::vector<Point3>& points, size_t numWanted)
{
    if (points.size() <= numWanted)
        return;
    for (size_t i = 0; i < numWanted; ++i)
        points[i] = points[i * points.size() / numWanted];
    points.resize(numWanted);
}
} // namespace

std::vector<Point3> scan(const ScanSettings& settings)
{
    const Shape& shape =
        *std::find_if(std::begin(shapes), std::end(shapes), [&](const Shape& s) { return s.name == settings.shape; });
    const double meanSpacing = std::sqrt(shape.area / static_cast<double>(settings.numPoints));
    const double gap = settings.gap * meanSpacing;
    Random random(settings.seed);
    const std::vector<View> views = placeViews(shape, settings.numViews, random);
    const auto isInGap = [&](const Vector3& p) { return p.z() > 0.0 && std::fabs(p.x()) < 0.5 * gap; };

    // A coarse sweep tells the share of the rays that hit; the fine one is sized by it, with some points too many.
    constexpr int numTrialLines = 100;
    size_t numTrialHits = 0;
    for (const View& view : views)
        sweep(shape, view, numTrialLines, random,
              [&](const Vector3& place, const Vector3&) { numTrialHits += !isInGap(place); });
    if (numTrialHits < 100)
        throw Failure("the views see nothing of the object; try a smaller --gap");
    const double refinement =
        std::sqrt(1.05 * static_cast<double>(settings.numPoints) / static_cast<double>(numTrialHits));
    const int numLines = static_cast<int>(std::ceil(refinement * numTrialLines)) + 2;

    std::vector<Point3> points;
    points.reserve(settings.numPoints + settings.numPoints / 4);
    for (const View& view : views)
        sweep(shape, view, numLines, random,
              [&](const Vector3& place, const Vector3& normal)
              {
                  const double shift = random.normal() * settings.noise * meanSpacing;
                  if (!isInGap(place))
                      points.push_back(makePoint(place + normal * shift));
              });
    thinOut(points, settings.numPoints);
    return points;
}

} // namespace zavtool
