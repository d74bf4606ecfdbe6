// What the tests share: catching the library's output, a CPU count for the length of a scope, an empty directory.
#pragma once

#include "base/tools.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdlib.h>
#include <string>

namespace test
{

/// Standard output of a call.
template <class F>
std::string outputOf(const F& f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

/// The report of a call that must end in ZavBugException; "no bug" if it doesn't.
template <class F>
std::string bugReportOf(const F& f)
{
    bool bThrown = false;
    const std::string text = outputOf(
        [&]
        {
            try
            {
                f();
            }
            catch (const MIRT_ZAV::ZavBugException&)
            {
                bThrown = true;
            }
        });
    return bThrown ? text : "no bug";
}

/// Whether a call ends in the bug with this condition.
template <class F>
bool hasBug(const std::string& condition, const F& f)
{
    return bugReportOf(f).find("Condition [ " + condition + " failed ]") != std::string::npos;
}

/// Sets the CPU count and restores it at the end of the scope.
class CpuCount
{
public:
    explicit CpuCount(int numCPU) : before(MIRT_ZAV::getGlobalNumCPU()) { MIRT_ZAV::getSetGlobalNumCPU(numCPU); }
    ~CpuCount() { MIRT_ZAV::getSetGlobalNumCPU(before); }
    CpuCount(const CpuCount&) = delete;
    CpuCount& operator=(const CpuCount&) = delete;

private:
    const int before;
};

/// An empty directory for each test, gone at its end: tests may run side by side.
class InDirectory : public testing::Test
{
protected:
    InDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zav_test_XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern;
    }
    ~InDirectory() override { std::filesystem::remove_all(directory); }

    std::string path(const std::string& name) const { return (directory / name).string(); }
    std::string contentOf(const std::string& name) const
    {
        std::ifstream in(directory / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::filesystem::path directory;
};

} // namespace test
