#include "Calc.h"
#include "OrderedIndex.h"
#include "Plane.h"
#include "Progress.h"
#include "SimplePool.h"
#include "SmallVec.h"
#include "cellSets.h"
#include "freeFunctions.h"
#include <gtest/gtest.h>
using namespace MIRT_ZAV;
TEST(Smoke, All)
{
    std::vector<u64> v(100000);
    for (auto& x : v)
        x = u64(rand()) * u64(rand());
    auto w = v;
    oneInstance(v);
    std::sort(w.begin(), w.end());
    w.erase(std::unique(w.begin(), w.end()), w.end());
    EXPECT_EQ(v, w);
    std::vector<Point3> p(5000);
    for (auto& q : p)
        q.set(rand(), rand(), 0);
    sortMT(p.begin(), p.end());
    EXPECT_TRUE(std::is_sorted(p.begin(), p.end()));
    std::vector<RCD> one = {rcd::fromXYZ(10, 10, 10)}, out;
    inflateRCD(one, 2, false, out);
    EXPECT_EQ(out.size(), 24u);
    MIRT_TOOLS::SimplePool<Point3> pool;
    pool.init(1000, -1);
    Point3* last = nullptr;
    for (int i = 0; i < 1000000; ++i)
    {
        auto* q = pool.take();
        EXPECT_GT(q, last);
        last = q;
        q->set(1, 2, 3);
    }
}
