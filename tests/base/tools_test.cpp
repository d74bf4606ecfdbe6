#include "base/Progress.h"
#include "helpers/capture.h"

using namespace MIRT_ZAV;
using test::bugReportOf;

TEST(Bugs, PrintThenThrow)
{
    EXPECT_EQ(bugReportOf([] { showBug("src_lib/Calc", "7", "void f()", "a<b"); }),
              "\033[0;31m      src_lib/Calc:7\033[m\n\033[0;31m      void f()\033[m\n"
              "\n\033[0;31m      [ZAV Message] ASSEX, ERROR: Condition [ a<b failed ]\033[m\n\n");
    // The path starts at the root of the source tree and leaves out the room: reports outlive a file's move.
    EXPECT_EQ(bugReportOf([] { ZAV_ASSERT(1 > 2, "1>2"); }).find("\033[0;31m      tests/tools_test.cpp:"), 0u);
    Progress root("empty");
    EXPECT_EQ(bugReportOf([&root] { root.createChild("stage", 1.0); }).find("\033[0;31m      src_lib/Progress.cpp:"),
              0u);
    EXPECT_EQ(bugReportOf([] { ZAV_ASSERT(2 > 1, "2>1"); }), "no bug");
}
