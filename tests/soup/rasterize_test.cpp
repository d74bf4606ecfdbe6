// Rasterisation of triangle soups: plain versions of chains and of the claiming order, hostile soups.
#include "base/Progress.h"
#include "geometry/freeFunctions.h"
#include "helpers/capture.h"
#include "soup/FeatureMgr.h"
#include "soup/Pixel.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <tuple>

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
        points.reserve(3 * triangles.size());
        for (const auto& t : triangles)
            for (const Point3& p : t)
            {
                const auto place = std::find(points.begin(), points.end(), p); // none for what isn't a number
                corners.push_back(place == points.end() ? &points.emplace_back(p) : &*place);
            }
    }

    void run(Calc& calc, double featureAngle)
    {
        Pixel(corners, &calc).pixelTriangles(out, features, borders, featureAngle);
    }
};

Calc makeCalc(double side)
{
    const double length = side * 16384;
    return {-side * 5000, -side * 5000, -side * 5000, length, length, length, 14};
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

/// Chains by their definition, with a look at all edges for every step.
std::vector<FeatureRecord> orderPlainly(std::vector<FeatureRecord> edges)
{
    constexpr size_t none = ~size_t(0);
    std::vector<bool> taken(edges.size(), false);
    const auto endOf = [&](size_t i, bool bFirst) -> Point3*&
    { return bFirst ? edges[i].second.first : edges[i].second.second; };
    const auto next = [&](size_t b, bool bFront)
    {
        Point3* const q = endOf(b, bFront);
        const Vector3 d = normalize(*q - *endOf(b, !bFront));
        size_t best = none;
        double least = 361.0;
        for (size_t c = 0; c < edges.size(); ++c)
        {
            const bool bFirst = endOf(c, true) == q;
            if (c == b || (!bFirst && endOf(c, false) != q) || (edges[c].first > 360.0) != (edges[b].first > 360.0))
                continue;
            const double a = getAngleDegree(d, normalize(*endOf(c, !bFirst) - *q));
            if (a <= 60.0 && a < least)
                best = (least = a, c);
        }
        return best == none || taken[best] ? none : best;
    };
    std::vector<std::pair<double, std::deque<size_t>>> chains;
    for (size_t seed = edges.size(); seed-- > 0;)
    {
        if (taken[seed])
            continue;
        std::deque<size_t> chain = {seed};
        for (const bool bFront : {false, true})
            for (size_t b = seed; (b = next(b, bFront)) != none;)
            {
                if (endOf(b, !bFront) != endOf(bFront ? chain.front() : chain.back(), bFront))
                    std::swap(endOf(b, true), endOf(b, false));
                taken[b] = true;
                chain.insert(bFront ? chain.begin() : chain.end(), b);
                if (endOf(chain.front(), true) == endOf(chain.back(), false))
                    break;
            }
        const auto addAngle = [&](double sum, size_t i) { return sum + edges[i].first; };
        const double sum = std::accumulate(chain.begin(), chain.end(), 0.0, addAngle);
        chains.emplace_back(sum / static_cast<double>(chain.size()), chain);
    }
    std::stable_sort(chains.begin(), chains.end(), [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<FeatureRecord> out;
    for (const auto& [mean, chain] : chains)
        for (const size_t i : chain)
            out.push_back(edges[i]);
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

using Edge = std::pair<Point3*, Point3*>;

std::array<Edge, 3> edgesOf(const Tri& t)
{
    return {Edge(t.pVtx0, t.pVtx1), Edge(t.pVtx1, t.pVtx2), Edge(t.pVtx0, t.pVtx2)};
}

void expectBreadthFirst(const std::vector<Tri*>& triangles)
{
    size_t lastParent = 0;
    for (size_t i = 0; i < triangles.size(); ++i)
    {
        const auto edges = edgesOf(*triangles[i]);
        const auto isNeighbour = [&](const Tri* t)
        {
            const auto other = edgesOf(*t);
            return std::find_first_of(edges.begin(), edges.end(), other.begin(), other.end()) != edges.end();
        };
        const auto parent = std::find_if(triangles.begin(), triangles.end(), isNeighbour) - triangles.begin();
        EXPECT_GE(static_cast<size_t>(parent), lastParent);
        lastParent = static_cast<size_t>(parent);
    }
}

/// The whole claim by claim, on ordered containers; rasters of edges come from the real class.
void pixelPlainly(Soup& soup, Calc& calc, double featureAngle)
{
    const Pixel pixel(soup.corners, &calc);
    std::map<Edge, std::vector<Vector3>> normals; // of the triangles in the order of the input, along the edge
    for (size_t i = 0; i < soup.corners.size(); i += 3)
    {
        Point3* const* const c = &soup.corners[i];
        bool ok = false;
        if (getNormalVector(*c[0], *c[1], *c[2], ok); !ok)
            continue;
        const Tri t(c[0], c[1], c[2]);
        const Vector3 n = getNormalVector(*t.pVtx0, *t.pVtx1, *t.pVtx2, ok);
        for (const Edge& edge : edgesOf(t))
            normals[edge].push_back(edge == edgesOf(t)[2] ? -n : n);
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
    expectBreadthFirst(pixel.getTriangles());
    for (const Tri* const t : pixel.getTriangles())
    {
        const Raster plain = sampleFacePlainly(calc, *t->pVtx0, *t->pVtx1, *t->pVtx2);
        Raster raster; // of a pixeliser that has claimed nothing
        pixel.convertOneT(*t->pVtx0, *t->pVtx1, *t->pVtx2, raster);
        const auto hasSameCell = [](const auto& x, const auto& y) { return x.first == y.first; };
        ASSERT_TRUE(std::equal(raster.begin(), raster.end(), plain.begin(), plain.end(), hasSameCell));
        for (const auto& entry : plain)
            if (taken.count(entry.first) == 0)
                faces.insert(entry);
    }
    for (const auto& [r, p] : faces)
        claim(r, p);
}
} // namespace

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
        std::set<RCD> cells = {raster.front().first};
        for (size_t k = 1; k < raster.size(); ++k)
        {
            const auto& [r, p] = raster[k];
            EXPECT_EQ(calc.getRCD(&p), r);
            EXPECT_LT(crossProduct(p - a, d).length(), 1e-10);
            EXPECT_GT((p - raster[k - 1].second) * d, 0.0);
            for (const auto field : {rcd::getX, rcd::getY, rcd::getZ})
                EXPECT_LE(std::llabs(static_cast<long long>(field(r) - field(raster[k - 1].first))), 1);
            EXPECT_TRUE(cells.insert(r).second);
        }
        // Every place of the segment lies in a cell of the raster, unless it is close to the border of the cell.
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
        real.out = plain.out = {Point3(-9, -9, -9)}; // what is there stays
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
    const Vector3 diagonal(1, 1, 1);
    const std::tuple<Plane, bool, Point3> cases[] = {
        {Plane(Point3(2.3, 3, 4), diagonal), true, Point3(2.1, 3.1, 4.1)}, // three edges at 0.3 from the first corner
        {Plane(Point3(2.25, 0, 0), Vector3(1, 0, 0)), true, Point3(2.25, 3.5, 4.5)},
        {Plane(Point3(9, 9, 9), diagonal), false, Point3()}};
    for (const auto& [plane, bCut, middle] : cases)
    {
        bool ok = false;
        Point3 p;
        const std::string text =
            outputOf([&, cut = plane] { p = pixel.getMidOfCutPlane(calc.getRCD(&inside), cut, ok); });
        EXPECT_TRUE(ok == bCut && (p - middle).length() < 1e-12) << middle;
        EXPECT_EQ(text.find("Not enough intersections") == std::string::npos, bCut);
    }
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
        const auto lessCell = [&](const Point3& p, const Point3& q) { return calc.getRCD(&p) < calc.getRCD(&q); };
        EXPECT_EQ(std::set(soup.out.begin(), soup.out.end(), lessCell).size(), soup.out.size());
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
    // A needle without faces keeps its edges.
    EXPECT_GT(sizeOf({{o, x, Point3(3.5, 0.5 + 1e-9, 0.5)}}), 5u);
    // Doubled triangles fold by 180 degrees.
    EXPECT_EQ(sizeOf({{o, x, y}, {o, x, y}, {x, o, y}}), sizeOf({{o, x, y}}));
}
