// Rasterisation of triangle soups: a plain version of chains, what large faces are cut into, hostile soups.
#include "base/Progress.h"
#include "geometry/freeFunctions.h"
#include "helpers/capture.h"
#include "soup/FeatureMgr.h"
#include "soup/Pixel.h"

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <numeric>
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
        Raster raster;
        pixel.rasterizeEdge(a, b, raster);
        for (size_t k = 1; k < raster.size(); ++k)
        {
            EXPECT_EQ(calc.getRCD(&raster[k].second), raster[k].first);
            EXPECT_GT((raster[k].second - raster[k - 1].second) * (b - a), 0.0); // and so not beyond the end
        }
    }
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

TEST_F(Rasterize, FineCellsAreThoseOfAllEdgesAndFacesForAnyCpuCount)
{
    Calc calc = makeCalc(0.03); // cuts faces into pieces, and points into slices and buckets
    Soup alone(makeRandomSoup(random, 60, 25));
    const Pixel pixel(alone.corners, &calc); // claims nothing
    Raster raster;
    for (const Tri* const t : pixel.getTriangles())
    {
        for (const auto& [a, b] : {std::pair(t->pVtx0, t->pVtx1), {t->pVtx1, t->pVtx2}, {t->pVtx0, t->pVtx2}})
            pixel.rasterizeEdge(*a, *b, raster);
        pixel.convertOneT(*t->pVtx0, *t->pVtx1, *t->pVtx2, raster);
    }
    std::set<RCD> expected;
    for (const auto& [r, p] : raster)
        expected.insert(r);
    EXPECT_EQ(raster.size(), 510586u); // from a time when a plain version found the same cells
    std::vector<Point3> serial;
    for (const int numCPU : {1, 2, 5})
    {
        const CpuCount cpus(numCPU);
        Soup soup = alone;
        outputOf([&] { soup.run(calc, 40.0); });
        std::vector<RCD> cells;
        for (const Point3& p : soup.out)
            cells.push_back(calc.getRCD(&p));
        EXPECT_TRUE(std::is_sorted(cells.begin() + 80000, cells.end())); // well behind the edges
        EXPECT_EQ(std::set<RCD>(cells.begin(), cells.end()).size(), cells.size());
        EXPECT_EQ(std::set<RCD>(cells.begin(), cells.end()), expected);
        EXPECT_TRUE(numCPU == 1 || soup.out == serial);
        serial = soup.out;
    }
}

TEST_F(Rasterize, BordersAndTheirOrder)
{
    Calc calc = makeCalc(1.0);
    const auto run = [&](double featureAngle)
    {
        Soup soup(
            {{Point3(0, 0, 0), Point3(9, 0, 0), Point3(0, 9, 0)}, {Point3(0, 0, 0), Point3(9, 0, 0), Point3(0, 0, 9)}});
        soup.out = {Point3(-9, -9, -9)}; // what is there stays
        soup.run(calc, featureAngle);
        for (const auto& [lower, upper] : soup.features)
            EXPECT_LT(lower, upper);
        EXPECT_EQ(soup.out[0], Point3(-9, -9, -9));
        return soup;
    };
    const Soup folded = run(30.0), flat = run(359.0), reversed = run(360.0);
    EXPECT_EQ(folded.features.size(), folded.borders.size() + 9); // the fold is no border
    EXPECT_EQ(flat.features, flat.borders);
    EXPECT_EQ(flat.borders.size(), folded.borders.size());
    EXPECT_NE(reversed.out[1], flat.out[1]);
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
