// Rasterisation of triangle soups: known bodies, plain versions of chains and of the claiming order, hostile soups.
#include "FeatureMgr.h"
#include "Pixel.h"
#include "Progress.h"
#include "capture.h"
#include "freeFunctions.h"

#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <set>

using namespace MIRT_ZAV;
using namespace test;

namespace
{
using Corners = std::vector<std::array<Point3, 3>>;

/// A soup with one address per place, and what rasterisation makes of it.
struct Soup
{
    std::vector<Point3> points;
    std::vector<Point3*> corners;
    std::vector<Point3> out;
    CellPairs features, borders;

    explicit Soup(const Corners& triangles)
    {
        std::map<std::array<double, 3>, size_t> places;
        points.reserve(3 * triangles.size());
        for (const auto& t : triangles)
            for (const Point3& p : t)
            {
                const auto [it, bNew] = places.insert({{p.x(), p.y(), p.z()}, points.size()});
                if (bNew)
                    points.push_back(p);
                corners.push_back(&points[it->second]);
            }
    }

    Soup& run(Calc& calc, double featureAngle)
    {
        Pixel(corners, &calc).pixelTriangles(out, features, borders, featureAngle);
        return *this;
    }
};

Calc makeCalc(double side)
{
    const double length = side * 16384;
    return {-side * 5000, -side * 5000, -side * 5000, length, length, length, 14};
}

size_t countCells(const Calc& calc, const std::vector<Point3>& points)
{
    std::set<RCD> cells;
    for (const Point3& p : points)
        cells.insert(calc.getRCD(&p));
    return cells.size();
}

Corners makeCube(double s)
{
    Corners cube;
    for (const double h : {0.0, s})
        for (int axis = 0; axis < 3; ++axis)
        {
            const auto at = [&](double u, double v) {
                return axis == 0 ? Point3(h, u, v) : axis == 1 ? Point3(u, h, v) : Point3(u, v, h);
            };
            cube.push_back({at(0, 0), at(s, 0), at(s, s)});
            cube.push_back({at(0, 0), at(s, s), at(0, s)});
        }
    return cube;
}

Corners makeRandomSoup(std::mt19937& random, int numPlaces, int numTriangles)
{
    std::vector<Point3> places;
    std::uniform_real_distribution<double> rough(0.0, 9.0);
    for (int i = 0; i < numPlaces; ++i)
        places.emplace_back(rough(random), i % 2 == 0 ? rough(random) : std::floor(rough(random)), rough(random));
    Corners soup;
    const auto pick = [&] { return places[random() % places.size()]; };
    for (int i = 0; i < numTriangles; ++i)
        soup.push_back({pick(), pick(), pick()});
    return soup;
}

class Rasterize : public ::testing::Test
{
protected:
    std::mt19937 random{7};
    void SetUp() override { getThreadProgress()->startRun("Melt"); }
    void TearDown() override { getThreadProgress()->reset(); }
};

/// Chains by their definition, on plain containers.
std::vector<FeatureRecord> orderPlainly(const std::vector<FeatureRecord>& in)
{
    struct Edge
    {
        Point3* ends[2];
        double angle;
        bool bTaken;
    };
    std::list<Edge> edges;
    std::multimap<Point3*, Edge*> around;
    for (const auto& [angle, ends] : in)
    {
        edges.push_back({{ends.first, ends.second}, angle, false});
        for (Point3* const p : edges.back().ends)
            around.insert({p, &edges.back()});
    }
    const auto next = [&](const Edge* b, bool bFront)
    {
        Point3* const q = b->ends[bFront ? 0 : 1];
        const Vector3 d = normalize(*q - *b->ends[bFront ? 1 : 0]);
        Edge* best = nullptr;
        double least = 361.0;
        for (auto [it, end] = around.equal_range(q); it != end; ++it)
        {
            Edge* const c = it->second;
            const double a = getAngleDegree(d, normalize(*c->ends[c->ends[0] == q ? 1 : 0] - *q));
            if (c != b && a <= 60.0 && (c->angle > 360.0) == (b->angle > 360.0) && a < least)
                best = (least = a, c);
        }
        return best == nullptr || best->bTaken ? nullptr : best;
    };
    std::vector<std::pair<double, std::list<Edge*>>> chains;
    for (auto seed = edges.rbegin(); seed != edges.rend(); ++seed)
    {
        if (seed->bTaken)
            continue;
        std::list<Edge*> chain = {&*seed};
        for (const bool bFront : {false, true})
            for (Edge* b = &*seed; b != nullptr;)
            {
                b = bFront ? chain.front() : chain.back();
                Point3* const q = b->ends[bFront ? 0 : 1];
                b = next(b, bFront);
                if (b == nullptr)
                    break;
                if (b->ends[bFront ? 1 : 0] != q)
                    std::swap(b->ends[0], b->ends[1]);
                b->bTaken = true;
                chain.insert(bFront ? chain.begin() : chain.end(), b);
                if (chain.front()->ends[0] == chain.back()->ends[1])
                    break;
            }
        double sum = 0.0;
        for (const Edge* const c : chain)
            sum += c->angle;
        chains.emplace_back(sum / static_cast<double>(chain.size()), chain);
    }
    std::stable_sort(chains.begin(), chains.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<FeatureRecord> out;
    for (const auto& [mean, chain] : chains)
        for (const Edge* const c : chain)
            out.push_back({c->angle, {c->ends[0], c->ends[1]}});
    return out;
}

/// The samples of a face, strip by strip, from the lengths and angles of the corners' triangle.
Raster sampleFacePlainly(const Calc& calc, const Point3& p0, const Point3& p1, const Point3& p2)
{
    const double s = calc.getSideLen();
    const auto length = [](const Point3& p, const Point3& q) { return (p - q).length(); };
    const Point3 *apex = &p2, *a = &p1, *b = &p0;
    if (length(p0, p2) > length(p1, p2))
        std::swap(a, b);
    if (length(p0, p1) <= length(*a, p2))
    {
        apex = b;
        b = &p2;
    }
    const Vector3 e1 = normalize(*apex - *a), e2 = normalize(*apex - *b), e3 = normalize(*b - *a);
    const double alpha = getAngleDegree(e3, e1), beta = getAngleDegree(-e3, e2);
    Raster raster;
    const Plane plane(p0, p1, p2);
    const double step1 = s / std::sin(alpha * 3.14159 / 180.0) * 0.577,
                 step2 = s / std::sin(beta * 3.14159 / 180.0) * 0.577;
    for (int k = 0; alpha >= 1e-5 && beta >= 1e-5 && k < std::ceil(length(*apex, *a) / step1); ++k)
    {
        const Point3 from = *a + e1 * (k * step1), to = *b + e2 * (k * step2);
        const Vector3 d = (to - from) * (0.577 * s / (to - from).getMaxAbsComponent());
        RCD last = calc.getRCD(&from);
        const double n = std::ceil((to - from).length() / d.length());
        for (int i = 0; i < n; ++i)
        {
            const Point3 q = from + d * i;
            const RCD r = calc.getRCD(&q);
            Point3 c = plane.projection(calc.getMidPoint(calc.rcd2ccd(r)));
            c = calc.getRCD(&c) == r ? c : q;
            if (r != last && i + 1 >= n && length(c, from) > length(to, from))
                break;
            if (r != last)
                raster.emplace_back(last = r, c);
        }
    }
    return raster;
}

/// Triangles breadth first, from the last one on.
std::vector<Tri> orderTrianglesPlainly(const std::vector<Point3*>& corners)
{
    std::vector<Tri> triangles, sorted;
    std::map<std::pair<Point3*, Point3*>, std::vector<size_t>> around;
    const auto edgesOf = [](const Tri& t) {
        return std::array{std::pair(t.pVtx0, t.pVtx1), std::pair(t.pVtx1, t.pVtx2), std::pair(t.pVtx0, t.pVtx2)};
    };
    for (size_t i = 0; i < corners.size(); i += 3)
    {
        bool ok = false;
        getNormalVector(*corners[i], *corners[i + 1], *corners[i + 2], ok);
        if (!ok)
            continue;
        triangles.emplace_back(corners[i], corners[i + 1], corners[i + 2]);
        for (const auto& edge : edgesOf(triangles.back()))
            around[edge].push_back(triangles.size() - 1);
    }
    std::set<size_t> visited;
    for (size_t seed = triangles.size(); seed-- > 0;)
    {
        std::list<size_t> queue;
        if (visited.insert(seed).second)
            queue.push_back(seed);
        for (; !queue.empty(); queue.pop_front())
        {
            sorted.push_back(triangles[queue.front()]);
            for (const auto& edge : edgesOf(sorted.back()))
                for (const size_t i : around[edge])
                    if (visited.insert(i).second)
                        queue.push_back(i);
        }
    }
    return sorted;
}

/// The whole claim by claim, on ordered containers; rasters of edges come from the real class.
void pixelPlainly(Soup& soup, Calc& calc, double featureAngle)
{
    const Pixel pixel(soup.corners, &calc);
    using Edge = std::pair<Point3*, Point3*>;
    std::map<Edge, std::vector<Vector3>> normals; // of the triangles in the order of the input, along the edge
    for (size_t i = 0; i < soup.corners.size(); i += 3)
    {
        std::array<Point3*, 3> p = {soup.corners[i], soup.corners[i + 1], soup.corners[i + 2]};
        std::sort(p.begin(), p.end());
        bool ok = false;
        const Vector3 n = getNormalVector(*p[0], *p[1], *p[2], ok);
        for (int k = 0; ok && k < 3; ++k)
            normals[{p[k == 2 ? 0 : k], p[k == 2 ? 2 : k + 1]}].push_back(k == 2 ? -n : n);
    }
    std::vector<FeatureRecord> features;
    std::vector<std::pair<Edge, Plane>> others;
    for (const auto& [edge, n] : normals)
    {
        double angle = -1.0;
        for (size_t i = 1; i < n.size(); ++i)
            angle = std::max(angle, getAngleDegree(n[0], -n[i]));
        if (n.size() == 1 || angle > featureAngle)
            features.push_back({n.size() == 1 ? 9999.0 : angle, edge});
        else
            others.push_back({edge, Plane(*edge.first, n[0])});
    }
    std::sort(features.begin(), features.end());
    features = orderPlainly(features);
    if (featureAngle < 360.0)
        std::reverse(features.begin(), features.end()); // the walk goes backwards
    std::set<RCD> taken;
    const auto claim = [&](RCD r, const Point3& p)
    {
        if (taken.insert(r).second)
            soup.out.push_back(p);
    };
    for (const auto& [angle, edge] : features)
        for (const Point3* const p : {edge.first, edge.second})
            claim(calc.getRCD(p), *p);
    for (const auto& [angle, edge] : features)
    {
        Raster raster;
        pixel.rasterizeEdge(*edge.first, *edge.second, raster);
        for (size_t i = 0; i < raster.size(); ++i)
        {
            claim(raster[i].first, raster[i].second);
            if (i == 0)
                continue;
            const CellPairs::value_type pair =
                std::minmax(calc.rcd2ccd(raster[i].first), calc.rcd2ccd(raster[i - 1].first));
            soup.features.push_back(pair);
            if (angle == 9999.0)
                soup.borders.push_back(pair);
        }
    }
    for (const auto& [edge, plane] : others)
    {
        Raster raster;
        pixel.rasterizeEdge(*edge.first, *edge.second, raster);
        for (auto& [r, p] : raster)
        {
            if (taken.count(r) != 0)
                continue;
            const Point3 foot = plane.projection(calc.getMidPoint(calc.rcd2ccd(r)));
            bool ok = true;
            const Point3 point = calc.getRCD(&foot) == r ? foot : pixel.getMidOfCutPlane(r, plane, ok);
            claim(r, ok ? point : p);
        }
    }
    std::map<RCD, Point3> faces;
    for (const Tri& t : orderTrianglesPlainly(soup.corners))
    {
        const Raster plain = sampleFacePlainly(calc, *t.pVtx0, *t.pVtx1, *t.pVtx2);
        Raster raster; // of a pixeliser that has claimed nothing
        pixel.convertOneT(*t.pVtx0, *t.pVtx1, *t.pVtx2, raster);
        ASSERT_EQ(raster.size(), plain.size());
        for (size_t i = 0; i < plain.size(); ++i)
        {
            ASSERT_EQ(raster[i].first, plain[i].first);
            if (taken.count(plain[i].first) == 0)
                faces.insert(plain[i]);
        }
    }
    for (const auto& [r, p] : faces)
        claim(r, p);
}
} // namespace

TEST_F(Rasterize, CubeKeepsItsEdges)
{
    Calc calc = makeCalc(0.5);
    Soup cube(makeCube(8.0));
    cube.out.emplace_back(-1.0, -1.0, -1.0); // what is there stays
    cube.run(calc, 30.0);
    ASSERT_EQ(cube.out.size(), 1539u);
    EXPECT_EQ(countCells(calc, cube.out), 1539u);
    const std::set<Point3> corners(cube.points.begin(), cube.points.end());
    EXPECT_EQ(std::set<Point3>(cube.out.begin() + 1, cube.out.begin() + 9), corners);
    // 12 edges of 17 cells each.
    EXPECT_EQ(cube.features.size(), 12u * 16u);
    EXPECT_TRUE(cube.borders.empty());
    for (auto p = cube.out.begin() + 9; p != cube.out.begin() + 9 + 12 * 15; ++p)
    {
        const auto isAtEnd = [](double x) { return x == 0.0 || x == 8.0; };
        EXPECT_EQ(isAtEnd(p->x()) + isAtEnd(p->y()) + isAtEnd(p->z()), 2) << *p;
    }
    Soup open(makeCube(8.0));
    open.corners.resize(open.corners.size() - 6);
    EXPECT_EQ(open.run(calc, 361.0).features.size(), 4u * 16u);
    EXPECT_EQ(open.features, open.borders);
}

TEST_F(Rasterize, EdgesVisitTheirCellsInOrder)
{
    Calc calc = makeCalc(0.25);
    Soup any({{Point3(0, 0, 0), Point3(1, 0, 0), Point3(0, 1, 0)}});
    const Pixel pixel(any.corners, &calc);
    std::uniform_real_distribution<double> place(-20.0, 20.0);
    for (int i = 0; i < 300; ++i)
    {
        const auto coordinate = [&](int bits) { return (i & bits) != 0 ? std::floor(place(random)) : place(random); };
        const Point3 a(coordinate(1), coordinate(2), coordinate(4)), b(coordinate(1), coordinate(2), coordinate(4));
        const Vector3 d = normalize(b - a);
        Raster raster;
        pixel.rasterizeEdge(a, b, raster);
        ASSERT_GE(raster.size(), 2u);
        EXPECT_TRUE(raster.front().second == a && raster.back().second == b);
        for (size_t k = 0; k < raster.size(); ++k)
        {
            const auto& [r, p] = raster[k];
            EXPECT_EQ(calc.getRCD(&p), r);
            EXPECT_LT(crossProduct(p - a, d).length(), 1e-10);
            if (k == 0)
                continue;
            EXPECT_GT((p - raster[k - 1].second) * d, 0.0);
            for (const auto field : {rcd::getX, rcd::getY, rcd::getZ})
                EXPECT_LE(std::llabs(static_cast<long long>(field(r) - field(raster[k - 1].first))), 1);
            EXPECT_NE(r, raster[k - 1].first);
        }
        // Every place of the segment lies in a cell of the raster, unless it is close to the border of the cell.
        std::set<RCD> cells;
        for (const auto& [r, p] : raster)
            cells.insert(r);
        for (double f = 0.005; f < 1.0; f += 0.01)
        {
            const Point3 p = a + (b - a) * f;
            const Vector3 off = p - calc.getCenter(calc.getRCD(&p));
            EXPECT_TRUE(off.getMaxAbsComponent() > 0.125 - 1e-9 || cells.count(calc.getRCD(&p)) != 0) << a << b << p;
        }
    }
    Raster none;
    pixel.rasterizeEdge(Point3(0.1, 0.1, 0.1), Point3(0.2, 0.2, 0.2), none);
    EXPECT_TRUE(none.empty());
}

TEST_F(Rasterize, ChainsAreThoseOfAPlainSearch)
{
    std::vector<Point3> ring;
    for (int i = 0; i < 12; ++i)
        ring.emplace_back(30 + std::cos(M_PI * i / 6), std::sin(M_PI * i / 6), 0);
    for (int round = 0; round < 400; ++round)
    {
        // Places on a coarse grid give equal angles and crossings, a hub many edges at one corner.
        const size_t numPlaces = 4 + random() % 30, numHub = round % 8 == 0 ? 300 : 0;
        const int width = 2 + round % 4;
        std::vector<Point3> places;
        const auto digit = [&](int w)
        { return static_cast<double>(static_cast<int>(random() % static_cast<unsigned>(2 * w + 1)) - w); };
        for (size_t i = 0; i < numPlaces + numHub; ++i)
            places.emplace_back(digit(i < numPlaces ? width : 9), digit(i < numPlaces ? width : 9), digit(1));
        std::set<std::pair<Point3*, Point3*>> edges;
        for (size_t i = 0; i < 3 * numPlaces; ++i)
            if (Point3* p = &places[random() % numPlaces], *q = &places[random() % numPlaces]; *p != *q)
                edges.insert(std::minmax(p, q));
        for (size_t i = numPlaces; i < places.size(); ++i)
            if (places[i] != places[0])
                edges.insert({&places[0], &places[i]});
        for (size_t i = 0; i < 12; ++i) // a loop that turns by less than the limit
            edges.insert(std::minmax(&ring[i], &ring[(i + 1) % 12]));
        std::vector<FeatureRecord> in, out;
        for (const auto& edge : edges)
        {
            const bool bBorder = edge.first->x() < 20 && random() % 3 == 0;
            in.push_back({bBorder ? 9999.0 : 30.0 * static_cast<double>(1 + random() % 3), edge});
        }
        std::sort(in.begin(), in.end());
        FeatureMgr(in).getOrderedPairs(out);
        ASSERT_EQ(out, orderPlainly(in)) << round;
    }
}

TEST_F(Rasterize, CellsAreClaimedAsByAPlainVersion)
{
    for (int round = 0; round < 150; ++round)
    {
        Calc calc = makeCalc(round % 15 == 0 ? 0.05 : 1.0); // fine cells cut faces into pieces
        const Corners triangles = makeRandomSoup(random, 4 + round % 9, 2 + round % 13);
        const double featureAngle = std::array{30.0, 90.0, 360.0}[static_cast<size_t>(round % 3)];
        Soup real(triangles), plain(triangles);
        outputOf(
            [&]
            {
                real.run(calc, featureAngle);
                pixelPlainly(plain, calc, featureAngle);
            });
        ASSERT_EQ(real.features, plain.features) << round;
        ASSERT_EQ(real.borders, plain.borders) << round;
        ASSERT_EQ(real.out.size(), plain.out.size()) << round;
        for (size_t i = 0; i < real.out.size(); ++i)
            ASSERT_LT((real.out[i] - plain.out[i]).length(), 1e-11) << round << ' ' << i;
    }
}

TEST_F(Rasterize, MiddlesOfCutsThroughCells)
{
    Calc calc = makeCalc(1.0);
    Soup any({{Point3(0, 0, 0), Point3(1, 0, 0), Point3(0, 1, 0)}});
    const Pixel pixel(any.corners, &calc);
    const Point3 inside(2.5, 3.5, 4.5);
    const auto cut = [&](const Plane& plane)
    {
        bool ok = false;
        const Point3 p = pixel.getMidOfCutPlane(calc.getRCD(&inside), plane, ok);
        return std::pair(ok, p);
    };
    const Vector3 diagonal(1, 1, 1);
    const auto corner = cut(Plane(Point3(2.3, 3, 4), diagonal)); // three edges at 0.3 from the cell's first corner
    EXPECT_TRUE(corner.first);
    EXPECT_LT((corner.second - Point3(2.1, 3.1, 4.1)).length(), 1e-12);
    EXPECT_LT((cut(Plane(Point3(2.25, 0, 0), Vector3(1, 0, 0))).second - Point3(2.25, 3.5, 4.5)).length(), 1e-12);
    const std::string text = outputOf([&] { EXPECT_FALSE(cut(Plane(Point3(9, 9, 9), diagonal)).first); });
    EXPECT_NE(text.find("Not enough intersections"), std::string::npos);
    EXPECT_NE(text.find("numCuts: 0\n"), std::string::npos);
}

TEST_F(Rasterize, GivesTheSameBytesForAnyCpuCount)
{
    Calc calc = makeCalc(0.03);
    const Corners triangles = makeRandomSoup(random, 60, 25);
    std::vector<Point3> expected;
    for (const int numCPU : {1, 2, 5})
    {
        const CpuCount cpus(numCPU);
        Soup soup(triangles);
        outputOf([&] { soup.run(calc, 40.0); });
        EXPECT_GT(soup.out.size(), 300000u);
        EXPECT_EQ(countCells(calc, soup.out), soup.out.size());
        const auto lessCell = [&](const Point3& p, const Point3& q) { return calc.getRCD(&p) < calc.getRCD(&q); };
        EXPECT_TRUE(std::is_sorted(soup.out.begin() + 80000, soup.out.end(), lessCell)); // well behind the edges
        if (numCPU == 1)
            expected = soup.out;
        EXPECT_TRUE(expected == soup.out);
    }
}

TEST_F(Rasterize, HostileSoupsEndInAResultOrAReport)
{
    Calc calc = makeCalc(1.0);
    const auto sizeOf = [&](const Corners& triangles)
    {
        Soup soup(triangles);
        outputOf([&] { soup.run(calc, 30.0); });
        return soup.out.size();
    };
    const Point3 o(0.5, 0.5, 0.5), x(5.5, 0.5, 0.5), y(0.5, 5.5, 0.5);
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    std::vector<Point3*> none;
    EXPECT_TRUE(hasBug("!vTriangleCorners.empty()", [&] { Pixel(none, &calc); }));
    for (const double bad : {nan, inf, -inf, 1e300})
        EXPECT_EQ(sizeOf({{o, x, Point3(bad, 2, 2)}, {o, x, x}, {o, x, Point3(7.5, 0.5, 0.5)}}), 0u) << bad;
    EXPECT_EQ(sizeOf({{o, Point3(0.6, 0.5, 0.5), Point3(0.5, 0.6, 0.5)}}), 1u);
    // Far outside of the lattice: bounded, whatever comes out.
    Soup far({{o, x, Point3(1e150, 2e150, 3)}}), beyond({{o, Point3(1e12, 0, 0), Point3(1e12, 0.001, 0)}});
    EXPECT_TRUE(hasBug("area<maxArea", [&] { far.run(calc, 30.0); }));
    outputOf([&] { beyond.run(calc, 30.0); });
    // A lattice side that is lost in the digits of the coordinates.
    Calc lost(1e16, 1e16, 1e16, 16384, 16384, 16384, 14);
    Soup distant({{Point3(1e16, 1e16, 1e16), Point3(1e16 + 400, 1e16, 1e16), Point3(1e16, 1e16 + 300, 1e16 + 80)}});
    const std::string report = bugReportOf([&] { distant.run(lost, 30.0); });
    EXPECT_TRUE(!distant.out.empty() || report != "no bug");
    // A needle without faces keeps its edges.
    EXPECT_GT(sizeOf({{o, x, Point3(3.5, 0.5 + 1e-9, 0.5)}}), 5u);
    // Doubled triangles fold by 180 degrees; a great fan costs no square of its size.
    EXPECT_EQ(sizeOf({{o, x, y}, {o, x, y}, {x, o, y}}), sizeOf({{o, x, y}}));
    Corners fan;
    for (int i = 0; i < 4000; ++i)
        fan.push_back({o, x, Point3(0.5, 3.0 * std::cos(i), 3.0 * std::sin(i))});
    EXPECT_GT(sizeOf(fan), 100u);
    Corners star;
    for (int i = 0; i < 4000; ++i)
        star.push_back(
            {o, Point3(9 * std::cos(i), 9 * std::sin(i), 1), Point3(9 * std::cos(i + .1), 9 * std::sin(i + .1), 2)});
    EXPECT_GT(sizeOf(star), 100u);
}
