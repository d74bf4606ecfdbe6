// The order of triangles around an edge, at random edges of the lattice, against angles that are computed here.
#include "coarse/CMesh.h"
#include "coarse/Rotx.h"
#include "helpers/capture.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace MIRT_ZAV;

namespace
{
Vector3 directionTo(const Calc& calc, VCD from, VCD to)
{
    return calc.getMidPoint(to) - calc.getMidPoint(from);
}

/// By how many degrees, 0 to 359, one turns around the edge from a to b to get from cell r to cell t.
int angleFrom(const Calc& calc, VCD a, VCD b, VCD r, VCD t)
{
    const Vector3 axis = directionTo(calc, a, b) / directionTo(calc, a, b).length();
    const Vector3 u = crossProduct(axis, directionTo(calc, a, r));
    const Vector3 v = crossProduct(axis, directionTo(calc, a, t));
    const double angle = std::atan2(axis * crossProduct(u, v), u * v) * 180.0 / M_PI;
    return (static_cast<int>(std::lround(angle)) + 360) % 360;
}

class RotxTest : public testing::Test
{
protected:
    Calc calc{-7.3, 0.1, 1e5, 3.2, 3.2, 3.2, 4}; // sides of 0.2, which doubles don't hold exactly
    std::map<CCD, Bundle*> noBundles;
    CMesh mesh{nullptr, &calc, &noBundles, {}};
    Rotx rotx{&mesh, true};
    std::mt19937 random{3};

    VCD cellNear(VCD c, int maxStep)
    {
        RCD r = calc.ccd2rcd(c);
        for (const RCD unit : {rcd::xUnit, rcd::yUnit, rcd::zUnit})
            r += (random() % unsigned(2 * maxStep + 1)) * unit - RCD(maxStep) * unit;
        return calc.rcd2ccd(r);
    }
    /// Whether three cells meet in a lattice vertex.
    bool canBeJoined(VCD a, VCD b, VCD c) const
    {
        const auto near = [this](VCD v, VCD w)
        {
            u64 v3[3], w3[3];
            calc.extractIntCCD(v, v3[0], v3[1], v3[2]);
            calc.extractIntCCD(w, w3[0], w3[1], w3[2]);
            return v3[0] + 1 >= w3[0] && w3[0] + 1 >= v3[0] && v3[1] + 1 >= w3[1] && w3[1] + 1 >= v3[1] &&
                   v3[2] + 1 >= w3[2] && w3[2] + 1 >= v3[2];
        };
        return a != b && b != c && c != a && near(a, b) && near(b, c) && near(c, a);
    }
};
} // namespace

TEST_F(RotxTest, starsAreSortedByAngle)
{
    size_t numShared = 0, numApart = 0;
    for (int round = 0; round < 3000; ++round)
    {
        mesh.reset();
        // Edges at the lower border of the lattice are among them: the way to the table's block leads up from there.
        const VCD a = calc.rcd2ccd(rcd::fromXYZ(1 + random() % 10, 1 + random() % 10, 1 + random() % 10));
        const VCD b = cellNear(a, 1);
        if (a == b)
            continue;
        std::vector<CTriangle*> triangles;
        for (unsigned tries = 2 + random() % 60; tries > 0; --tries)
            if (const VCD t = cellNear(a, 2); canBeJoined(a, b, t))
                triangles.push_back(random() % 2 == 0 ? mesh.createT(a, b, t, 0, 0) : mesh.createT(t, b, a, 0, 0));
        if (triangles.empty())
            continue;
        CTriangle* const ref = triangles[random() % triangles.size()];
        const bool bForward = ref->getHEDirection2(a, b) == 1;
        const VCD from = bForward ? a : b, to = bForward ? b : a;

        std::vector<std::pair<int, CTriangle*>> expected;
        std::set<int> angles;
        for (CTriangle* const t : triangles)
        {
            expected.emplace_back(angleFrom(calc, from, to, ref->getThirdCCD(a, b), t->getThirdCCD(a, b)), t);
            angles.insert(expected.back().first);
        }
        std::sort(expected.begin(), expected.end());
        std::rotate(expected.begin(), std::find(expected.begin(), expected.end(), std::pair(0, ref)), expected.end());

        CEdge* const edge = mesh.getEdge(a, b);
        ASSERT_EQ(rotx.sortStar(ref, edge), angles.size() == triangles.size());
        ASSERT_EQ(edge->vT.size(), triangles.size());
        for (size_t i = 0; i < expected.size(); ++i)
            ASSERT_EQ(edge->vT[i], expected[i].second) << round << ' ' << i;
        ++(angles.size() == triangles.size() ? numApart : numShared);
    }
    EXPECT_GT(numShared, 500u);
    EXPECT_GT(numApart, 500u);
}
