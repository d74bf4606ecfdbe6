// Digests of whole runs on made-up clouds. A result never changes by itself: who changes one on purpose records the new
// number and says why. The clouds are rough enough that every stage of a run decides some digit.
//
// All coordinates come from additions, multiplications and square roots, which are exact to the last bit everywhere.

#include "helpers/capture.h"
#include "zav/zav_api.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
/// FNV-1a over the bits of everything that a user sees of a result.
class Digest
{
public:
    void add(std::uint64_t value)
    {
        for (int shift = 0; shift < 64; shift += 8)
            hash = (hash ^ (value >> shift & 0xff)) * 0x100000001b3ULL;
    }
    void add(const Point3& p)
    {
        for (const double x : {p.x(), p.y(), p.z()})
            add(std::bit_cast<std::uint64_t>(x));
        add(std::uint64_t(p.r) << 32 | std::uint64_t(p.g) << 24 | std::uint64_t(p.b) << 16 | std::uint64_t(p.a) << 8 |
            std::uint64_t(p.hasColor()));
    }
    std::uint64_t get() const { return hash; }

private:
    std::uint64_t hash = 0xcbf29ce484222325ULL;
};

/// Vertices and triangles in their order.
std::uint64_t digestOf(const MeshPtr& mesh)
{
    std::vector<Point3*> points;
    std::vector<int> indices;
    mesh->getVertexIndexData(points, indices);
    Digest digest;
    digest.add(points.size());
    for (const Point3* const p : points)
        digest.add(*p);
    for (const int index : indices)
        digest.add(std::uint64_t(index));
    return digest.get();
}

std::uint64_t digestOf(const std::vector<Point3>& points)
{
    Digest digest;
    for (const Point3& p : points)
        digest.add(p);
    return digest.get();
}

/// The same numbers with every standard library.
class Random
{
public:
    explicit Random(std::uint64_t seed) : state(seed) {}
    std::uint32_t next()
    {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        return std::uint32_t(state >> 33);
    }
    /// From lowest on, below highest.
    double get(double lowest, double highest) { return lowest + (highest - lowest) * (next() / 2147483648.0); }
    Vector3 getJitter(double size)
    {
        const double x = get(-size, size), y = get(-size, size), z = get(-size, size);
        return {x, y, z};
    }

private:
    std::uint64_t state;
};

struct Opening
{
    double x, y, radiusX, radiusY;
    bool contains(double px, double py) const
    {
        const double dx = (px - x) / radiusX, dy = (py - y) / radiusY;
        return dx * dx + dy * dy < 1.0;
    }
};

/// A sheet of unit cells with dents, noise, thirty openings of 1 to 24 cells, and a second layer that lifts off it.
std::vector<Point3> getDentedSheet()
{
    constexpr double side = 90.0;
    Random random(7);
    std::vector<Opening> openings;
    for (int i = 0; i < 30; ++i)
    {
        const double radius = 0.6 + 0.013 * i * i;
        const double x = random.get(0.0, side), y = random.get(0.0, side), longer = random.get(0.7, 1.8);
        openings.push_back({x, y, radius * longer, radius});
    }
    const auto getHeight = [](double x, double y)
    {
        const double u = x / side - 0.4, v = y / side - 0.6;
        const double dent = 1.0 / (1.0 + 90.0 * (u * u + v * v));
        return 9.0 * dent + 14.0 * u * v + 6.0 * u * u;
    };
    std::vector<Point3> points;
    const auto add = [&](double x, double y, double lift, double noise)
    {
        for (const Opening& opening : openings)
            if (opening.contains(x, y))
                return;
        points.push_back(Point3(x, y, getHeight(x, y) + lift) + random.getJitter(noise));
    };
    for (int i = 0; i < 26000; ++i)
    {
        const double x = random.get(0.0, side), y = random.get(0.0, side);
        add(x, y, 0.0, x < 50.0 ? 0.35 : 0.6);
    }
    for (int i = 0; i < 5000; ++i)
    {
        const double x = random.get(0.0, 40.0), y = random.get(30.0, 70.0);
        add(x, y, 0.06 * x, 0.3);
    }
    return points;
}

/// Points near an ellipsoid, coloured in patches with gradients, with gaps in the sampling.
std::vector<Point3> getColouredScan()
{
    Random random(11);
    std::vector<Point3> points;
    while (points.size() < 9000)
    {
        const Vector3 v = random.getJitter(1.0);
        const double length = v.length();
        if (length > 1.0 || length < 0.1)
            continue;
        const double x = v.x() / length, y = v.y() / length, z = v.z() / length;
        if (z > 0.93 || (x > 0.8 && y < 0.1 && y > -0.1))
            continue;
        Point3 p = Point3(20.0 * x, 16.0 * y, 11.0 * z) + random.getJitter(0.25);
        const bool bPatch = x * y > 0.2 || z * z > 0.6;
        if (random.next() % 50 != 0)
            p.setColor(static_cast<unsigned char>(bPatch ? 190 : 110 + 20 * x),
                       static_cast<unsigned char>(120 + 25 * y), static_cast<unsigned char>(bPatch ? 80 : 150),
                       static_cast<unsigned char>(bPatch ? 255 : 128));
        points.push_back(p);
    }
    return points;
}

/// Two layers less than a cell apart that meet and part again, on a narrow strip.
std::vector<Point3> getThinDoubleSheet()
{
    Random random(13);
    std::vector<Point3> points;
    for (int i = 0; i < 16000; ++i)
    {
        const double x = random.get(0.0, 80.0), y = random.get(0.0, 24.0);
        const double u = (x - 40.0) / 40.0;
        const double gap = i % 2 == 0 ? 0.0 : 2.6 * u * u + 0.4;
        points.push_back(Point3(x, y, 0.15 * y + gap) + random.getJitter(0.2));
    }
    return points;
}

void addQuad(std::vector<Point3>& corners, const Point3& a, const Point3& b, const Point3& c, const Point3& d)
{
    corners.insert(corners.end(), {a, b, c, a, c, d});
}

/// A fluted column: prisms over a star whose outline turns by many angles, with lids; some triangles turned, missing,
/// repeated or a little off.
std::vector<Point3> getSoup()
{
    Random random(17);
    // The outline, counterclockwise, with turns between 5 and 110 degrees.
    const std::vector<std::array<double, 2>> outline = {
        {8.0, 0.0},  {7.5, 2.9},  {6.1, 5.2},   {3.0, 4.1},   {2.2, 7.9},   {-1.0, 8.3}, {-3.5, 7.6}, {-4.2, 4.4},
        {-7.7, 3.6}, {-8.3, 0.2}, {-6.9, -4.0}, {-2.8, -5.1}, {-1.1, -8.4}, {2.9, -7.9}, {4.4, -3.8}, {7.2, -2.8}};
    std::vector<Point3> corners;
    const size_t n = outline.size();
    const auto at = [&](size_t i, double scale, double z)
    { return Point3(scale * outline[i % n][0], scale * outline[i % n][1], z); };
    const std::array<std::array<double, 2>, 4> rings = {{{1.0, 0.0}, {1.15, 5.0}, {0.8, 8.5}, {0.8, 13.0}}};
    for (size_t k = 0; k + 1 < rings.size(); ++k)
        for (size_t i = 0; i < n; ++i)
            addQuad(corners, at(i, rings[k][0], rings[k][1]), at(i + 1, rings[k][0], rings[k][1]),
                    at(i + 1, rings[k + 1][0], rings[k + 1][1]), at(i, rings[k + 1][0], rings[k + 1][1]));
    for (size_t i = 0; i < n; ++i)
    {
        corners.insert(corners.end(), {Point3(0.0, 0.0, 0.0), at(i + 1, 1.0, 0.0), at(i, 1.0, 0.0)});
        if (i % 5 != 0)
            corners.insert(corners.end(), {Point3(0.0, 0.0, 14.0), at(i, 0.8, 13.0), at(i + 1, 0.8, 13.0)});
    }
    std::vector<Point3> soup;
    for (size_t i = 0; i < corners.size(); i += 3)
    {
        const std::uint32_t fate = random.next() % 20;
        if (fate == 0)
            continue;
        const Vector3 shift = fate == 1 ? random.getJitter(0.02) : Vector3(0.0, 0.0, 0.0);
        const size_t second = fate == 2 ? 2 : 1;
        for (int k = 0; k < (fate == 3 ? 2 : 1); ++k)
            soup.insert(soup.end(), {corners[i] + shift, corners[i + second] + shift, corners[i + 3 - second] + shift});
    }
    return soup;
}

/// Tetrahedra of all shapes and sizes, every other one nearly flat, through each other: their edges turn into one another
/// by every angle.
std::vector<Point3> getTetrahedra()
{
    Random random(19);
    std::vector<Point3> corners;
    for (int i = 0; i < 60; ++i)
    {
        const Point3 middle = Point3(0.0, 0.0, 0.0) + random.getJitter(7.0);
        const Point3 p0 = middle + random.getJitter(5.0), p1 = middle + random.getJitter(5.0),
                     p2 = middle + random.getJitter(5.0);
        const Point3 p3 = i % 2 == 0 ? middle + random.getJitter(5.0)
                                     : p0 + ((p1 - p0) + (p2 - p0)) * (1.0 / 3.0) + random.getJitter(1.2);
        corners.insert(corners.end(), {p0, p1, p2, p1, p0, p3, p2, p1, p3, p0, p2, p3});
    }
    return corners;
}

/// Noise of more than a cell in a slab: no surface, only what the repair makes of it.
std::vector<Point3> getNoiseSlab()
{
    Random random(23);
    std::vector<Point3> points;
    for (int i = 0; i < 9000; ++i)
    {
        const double x = random.get(0.0, 60.0), y = random.get(0.0, 60.0);
        points.emplace_back(x, y, random.get(-1.3, 1.3) * random.get(0.2, 1.0));
    }
    return points;
}

/// Points in the middle of unit cells: separate strips of two by n cells, which have 2 (n - 1) triangles each.
std::vector<Point3> getStrips(const std::vector<int>& lengths)
{
    std::vector<Point3> points;
    for (size_t i = 0; i < lengths.size(); ++i)
        for (int k = 0; k < 2 * lengths[i]; ++k)
            points.emplace_back(k / 2, double(6 * i) + k % 2, 0.0);
    return points;
}

/// A run in the state of rand() that a fresh process has, so that runs don't depend on each other.
template <class Run>
auto freshly(const Run& run)
{
    std::srand(1);
    return run();
}
} // namespace

TEST(Golden, DentedSheetAtEveryWidthOfHoles)
{
    std::vector<Point3> points = getDentedSheet();
    for (const auto& [holes, expected] : {std::pair<int, std::uint64_t>(0, 0xee7bb83f70a14225ULL),
                                          {3, 0xd90f8e7e63d2ede3ULL},
                                          {7, 0xfdd98d6f88df5363ULL},
                                          {11, 0x1e515b70fca7bc3aULL}})
        EXPECT_EQ(digestOf(freshly([&, limit = holes] { return reconstruct_abs(points, 1.0, limit); })), expected)
            << "holes " << holes;
}

TEST(Golden, ColouredScanAndWhatIsDoneWithItsMesh)
{
    std::vector<Point3> points = getColouredScan();
    const auto run = [&points] { return freshly([&points] { return reconstruct_auto(points, 1.1, 2); }); };
    EXPECT_EQ(digestOf(run()), 0x7995f3a04180fecfULL);
    const std::vector<std::pair<std::function<void(const MeshPtr&)>, std::uint64_t>> operations = {
        {[](const MeshPtr& mesh) { mesh->contrastSpread(0.02, 0.03); }, 0x3647d0960b847fedULL},
        {[](const MeshPtr& mesh) { reduce(mesh, 4.0, 20.0); }, 0xcc5a7a797199699aULL},
        {[](const MeshPtr& mesh) { edgeFlipsSimA(mesh); }, 0xabf270b742546a2fULL},
        {[](const MeshPtr& mesh) { laplacianSmoothing(mesh, 3); }, 0xfd80cfff707b3478ULL}};
    for (size_t i = 0; i < operations.size(); ++i)
    {
        const MeshPtr mesh = run();
        operations[i].first(mesh);
        EXPECT_EQ(digestOf(mesh), operations[i].second) << "operation " << i;
    }
}

TEST(Golden, ColoursThatSpanMoreThan20LevelsAreCut)
{
    std::vector<Point3> points = getStrips({60});
    for (const int span : {20, 21})
    {
        for (size_t i = 0; i < points.size(); ++i)
            points[i].setColor(static_cast<unsigned char>(100 + i % size_t(span + 1)), 100, 100, 255);
        const MeshPtr mesh = reconstruct_abs(points, 1.0, 0);
        mesh->contrastSpread(0.0, 0.2);
        std::vector<Point3*> vertices;
        mesh->getPoints(vertices);
        const auto numWhite =
            std::count_if(vertices.begin(), vertices.end(), [](const Point3* p) { return p->r == 255; });
        EXPECT_EQ(numWhite > long(vertices.size()) / 10, span == 21) << span;
    }
}

TEST(Golden, ThinDoubleSheetAndItsReduction)
{
    std::vector<Point3> points = getThinDoubleSheet();
    for (const auto& [holes, expected] :
         {std::pair<int, std::uint64_t>(0, 0xa1c359f678f76178ULL), {4, 0x4955c703cbfa6e66ULL}})
        EXPECT_EQ(digestOf(freshly([&, limit = holes] { return reconstruct_abs(points, 0.8, limit); })), expected)
            << "holes " << holes;
    const MeshPtr mesh = freshly([&points] { return reconstruct_abs(points, 0.8, 4); });
    EXPECT_EQ(reduce(mesh, 10.0, 30.0), 6848);
    EXPECT_EQ(digestOf(mesh), 0x06492dd73612157aULL);
}

TEST(Golden, NoiseSlab)
{
    std::vector<Point3> points = getNoiseSlab();
    for (const auto& [holes, expected] :
         {std::pair<int, std::uint64_t>(0, 0xc844a9cf25acc9a1ULL), {5, 0x2328ffb59c3d4b69ULL}})
        EXPECT_EQ(digestOf(freshly([&, limit = holes] { return reconstruct_abs(points, 1.0, limit); })), expected)
            << "holes " << holes;
}

TEST(Golden, RaggedPiecesOfUpTo100TrianglesGo)
{
    std::vector<Point3> points = getStrips({20, 49, 50, 51, 52, 60});
    const MeshPtr mesh = freshly([&points] { return reconstruct_abs(points, 1.0, 0); });
    EXPECT_EQ(mesh->getNumT(), 102u + 118u);
}

TEST(Golden, ReductionsByManyLimits)
{
    const std::vector<Point3> sheet = getDentedSheet(), scan = getColouredScan();
    struct Case
    {
        const std::vector<Point3>& cloud;
        double spacing;
        int numSmooth;
        double maxLength, maxAngle;
        std::uint64_t expected;
    };
    // Rough and smooth, coarse and fine meshes, so that every kind of refresh of the queue comes up.
    for (const Case& c :
         {Case{sheet, 1.0, 0, 1.1, 60.0, 0x827b03c8e84d7f5dULL}, Case{sheet, 1.0, 0, 6.0, 12.0, 0x7d0600d3660b9799ULL},
          Case{sheet, 3.0, 4, 30.0, 6.0, 0xbd18bcd16851e265ULL}, Case{scan, 0.55, 3, 6.0, 12.0, 0xf560073f458cc942ULL},
          Case{scan, 1.5, 4, 30.0, 10.0, 0x4ff007a2faa6c417ULL}, Case{scan, 2.0, 4, 30.0, 1.0, 0x1bad27dfe87b5c55ULL}})
    {
        std::vector<Point3> points = c.cloud;
        for (Point3& p : points)
            p.clearColor();
        const MeshPtr mesh = freshly([&] { return reconstruct_abs(points, c.spacing, 3); });
        laplacianSmoothing(mesh, c.numSmooth);
        reduce(mesh, c.maxLength, c.maxAngle);
        EXPECT_EQ(digestOf(mesh), c.expected) << c.spacing << ' ' << c.maxLength << ' ' << c.maxAngle;
    }
}

TEST(Golden, SoupsToCloudsAndMelted)
{
    std::vector<Point3> soup = getSoup(), tetrahedra = getTetrahedra();
    for (const auto& [spacing, expected] :
         {std::pair<double, std::uint64_t>(0.35, 0x4b6ea51d9e8dee48ULL), {1.5, 0xcace6a9aa1df4a28ULL}})
    {
        std::vector<Point3> points;
        toCloud(tetrahedra, spacing, 5.0, points);
        EXPECT_EQ(digestOf(points), expected) << "spacing " << spacing;
    }
    EXPECT_EQ(digestOf(freshly([&] { return melt(tetrahedra, 0.35, 10.0); })), 0x0aeb24567febd89cULL);
    for (const auto& [angle, cloud, melted] :
         {std::tuple<double, std::uint64_t, std::uint64_t>(20.0, 0x23758766947fd02eULL, 0x43d4222674692a4eULL),
          {65.0, 0x5bcbe1562a205801ULL, 0x848e7a6fc7e5d10cULL}})
    {
        std::vector<Point3> points;
        toCloud(soup, 0.3, angle, points);
        EXPECT_EQ(digestOf(points), cloud) << "feature angle " << angle;
        EXPECT_EQ(digestOf(freshly([&, angle = angle] { return melt(soup, 0.3, angle); })), melted)
            << "feature angle " << angle;
    }
}
