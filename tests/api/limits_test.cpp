// What the public functions refuse before they begin.

#include "helpers/capture.h"
#include "zav/zav_api.h"

using namespace MIRT_ZAV;

TEST(Limits, TrianglesOfTooManyCellsAreRefusedWithASpacingThatFits)
{
    std::vector<Point3> corners = {Point3(0, 0, 0), Point3(1, 0, 0), Point3(0, 1, 0)}, points;
    const std::string cloud = test::bugReportOf([&] { toCloud(corners, 1e-6, 30.0, points); });
    const std::string mesh = test::bugReportOf([&] { melt(corners, 1e-6, 30.0); });
    for (const std::string& text : {cloud, mesh})
    {
        const size_t at = text.find(" are free. A spacing of about ");
        ASSERT_NE(at, std::string::npos) << text;
        // As many cells as memory, which is less by the square of the factor.
        const double spacing = std::stod(text.substr(at + 30));
        EXPECT_TRUE(spacing > 1e-6 && spacing < 1e-2) << text;
    }
    EXPECT_TRUE(points.empty());
    EXPECT_TRUE(melt(corners, 0.1, 30.0)) << "and goes on";
}
