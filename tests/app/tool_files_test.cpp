// What the tool refuses, tells and protects where files are concerned.
#include "helpers/tool.h"
#include "zav/pointFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;
using test::Outcome;

namespace
{
class ToolFiles : public test::InToolDirectory
{
protected:
    /// The name of what a run has begun to write in the directory; empty if there is none.
    std::string findUnfinished()
    {
        for (const auto& entry : fs::directory_iterator(directory))
            if (const std::string name = entry.path().filename().string(); name.find("part") != std::string::npos)
                return name;
        return "";
    }

    /// Starts a run that opens its output and then waits for its input, a pipe that nobody writes to.
    pid_t startWaitingRun()
    {
        const pid_t pid = fork();
        if (pid == 0)
        {
            if (chdir(directory.c_str()) == 0)
                execl(ZAV_TOOL, ZAV_TOOL, "convert", "pipe.xyz", "out.xyz", nullptr);
            _exit(99);
        }
        return pid;
    }
};

std::string sheet(int side, double step = 1.0)
{
    std::ostringstream text;
    for (int x = 0; x < side; ++x)
        for (int y = 0; y < side; ++y)
            text << x * step << ' ' << y * step << " 0\n";
    return text.str();
}

std::string facet(const std::string& corners)
{
    std::istringstream lines(corners);
    std::string text = "facet normal 0 0 1\n outer loop\n";
    for (std::string line; std::getline(lines, line, ';');)
        text += "  vertex " + line + "\n";
    return text + " endloop\nendfacet\n";
}

std::string replaced(std::string text, const std::string& what, const std::string& by)
{
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}
} // namespace

TEST_F(ToolFiles, linksPlantedBesideTheOutputAreNotFollowed)
{
    write("in.xyz", sheet(5));
    write("victim", "precious");
    // The process that plants the links becomes the tool: it knows the number that the tool will have.
    limit = "ln -s victim out.xyz.part$$ && ln -s victim out.xyz.part$$.xyz && exec ";
    EXPECT_EQ(run("convert in.xyz out.xyz").exitCode, 0);
    EXPECT_EQ(contentOf("victim"), "precious");
    EXPECT_EQ(contentOf("out.xyz"), sheet(5));
}

TEST_F(ToolFiles, whatAKilledRunLeftGoesWithTheNextRunAndALivingOneIsLeftAlone)
{
    write("in.xyz", sheet(5));
    ASSERT_EQ(mkfifo(path("pipe.xyz").c_str(), 0600), 0);
    for (const auto& [signal, bCleans] : {std::pair(SIGTERM, true), {SIGINT, true}, {SIGKILL, false}})
    {
        const pid_t pid = startWaitingRun();
        for (int i = 0; i < 500 && findUnfinished().empty(); ++i)
            usleep(20000);
        const std::string name = findUnfinished();
        EXPECT_NE(name, "");
        EXPECT_EQ(run("convert in.xyz other.xyz").exitCode, 0);
        EXPECT_EQ(findUnfinished(), name) << "another run took it away";
        ASSERT_EQ(kill(pid, signal), 0);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
        EXPECT_EQ(findUnfinished(), bCleans ? "" : name) << signal;
        EXPECT_EQ(run("convert in.xyz other.xyz").exitCode, 0);
        EXPECT_EQ(findUnfinished(), "");
    }
    EXPECT_FALSE(fs::exists(directory / "out.xyz"));
}

TEST_F(ToolFiles, filesThatAreNotOnesOwnOrReadOnlyAreNotReplaced)
{
    write("in.xyz", sheet(5));
    write("out.xyz", "precious");
    fs::permissions(directory / "out.xyz", fs::perms::owner_read);
    expectFailure("convert in.xyz out.xyz", {"out.xyz", "read-only"});
    EXPECT_EQ(contentOf("out.xyz"), "precious");
    fs::permissions(directory / "out.xyz", fs::perms::owner_read | fs::perms::owner_write);
    if (geteuid() == 0) // others can't give files away
    {
        ASSERT_EQ(chown(path("out.xyz").c_str(), 12345, 12345), 0);
        expectFailure("convert in.xyz out.xyz", {"out.xyz", "belongs to another user"});
        EXPECT_EQ(contentOf("out.xyz"), "precious");
        // Where everybody may write, links of others aren't followed.
        fs::remove(directory / "out.xyz");
        fs::create_symlink("victim.xyz", directory / "out.xyz");
        ASSERT_EQ(lchown(path("out.xyz").c_str(), 12345, 12345), 0);
        ASSERT_EQ(chmod(directory.c_str(), 01777), 0);
        expectFailure("convert in.xyz out.xyz", {"link of another user"});
        EXPECT_FALSE(fs::exists(directory / "victim.xyz"));
    }
}

TEST_F(ToolFiles, stlFilesThatWouldBeMisreadAreRefusedWithTheLine)
{
    const std::string good = facet("0 0 0;1 0 0;0 1 0");
    const std::string quad = facet("0 0 0;1 0 0;1 1 0;0 1 0");
    std::string quads;
    for (int i = 0; i < 9; ++i)
        quads += quad;
    const std::vector<std::string> refused[] = {
        {quads, "line 7:", "fourth corner"},
        {good + facet("0 0 0;1 0 0"), "line 13:", "2 corners"},
        {good + facet("0 0 0;nan 0 0;0 1 0"), "line 12:", "three finite numbers"},
        {good + facet("0 0 0;1 0;0 1 0"), "line 12:", "three finite numbers"},
        {good + facet("0,5 0,5 0,5;1,5 0,5 0,5;0,5 1,5 0,5"), "line 11:", "point"},
        {good + "vertex 1 2 3\n", "line 9:", "outside"},
        {good + replaced(good, "endloop\n", "\n") + good, "line 15:", "isn't complete"},
    };
    for (const std::vector<std::string>& file : refused)
    {
        write("part.stl", "solid a\n" + file[0] + "endsolid a\n");
        expectFailure("info part.stl", {"part.stl", file[1], file[2]});
    }
    for (const char* begin :
         {"solid a\n", " solid\n", "\n\nsolid\n", "\xef\xbb\xbfsolid\n", "Solid x\n", "SOLID\r\n", ""})
    {
        write("whole.stl", begin + good + good + (*begin == '\0' ? "" : "endsolid\n"));
        write("cut.stl", begin + good + good.substr(0, good.size() - 5));
        write("atfacet.stl", begin + good);
        EXPECT_EQ(run("info whole.stl").exitCode, 0) << begin;
        expectFailure("info cut.stl", {"cut short"});
        if (*begin != '\0')
            expectFailure("info atfacet.stl", {"cut short"});
    }
    // Words in any case, all ends of lines, and facets on one line.
    const std::string solid = "solid facet vertex\n" + good + facet("0 0 0;0 0 1;1 0 0") + "endsolid solid\n";
    write("unix.stl", solid);
    const std::string expected = run("info unix.stl").out;
    EXPECT_NE(expected.find("triangles              2\n"), std::string::npos) << expected;
    std::string upper = solid;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    for (const std::string& text : {upper, replaced(solid, "\n", "\r"), replaced(solid, "\n", "\r\n"),
                                    replaced(solid, "1\n outer", "1 outer"), replaced(solid, "\n  vertex", " vertex")})
    {
        write("other.stl", text);
        EXPECT_EQ(run("info other.stl").out, expected) << text;
    }
}

TEST_F(ToolFiles, linesOfTextThatHoldNoPointAreCountedAndTold)
{
    write("clean.xyz", sheet(20));
    ASSERT_EQ(run("convert clean.xyz clean.bin").exitCode, 0);
    const std::string header = "\xef\xbb\xbf// x y z\nx y z\n400\n";
    for (const char* endOfLine : {"\n", "\r", "\r\n"})
    {
        write("in.xyz", replaced(header + "\n# remark\n" + sheet(20), "\n", endOfLine));
        const Outcome outcome = run("convert in.xyz out.bin");
        EXPECT_EQ(outcome.err, "");
        EXPECT_TRUE(contentOf("out.bin") == contentOf("clean.bin"));
    }
    write("in.xyz", header + "nan nan nan\n" + sheet(20) + "\n12 13\nbroken \x01 line\n1e999 0 0");
    const Outcome outcome = run("convert in.xyz out.bin");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.err, "zav: in.xyz: 4 lines hold no point, the first is line 4: \"nan nan nan\"\n");
    EXPECT_TRUE(contentOf("out.bin") == contentOf("clean.bin"));
    EXPECT_EQ(run("convert in.xyz out.bin --quiet").err, "");

    for (const char* line : {"1 2 3,5", "1,5 2,5 3,5", "1.5,2.5,3.5", "1.5, 2.5, 3.5"})
    {
        write("in.xyz", sheet(3) + line + "\n");
        expectFailure("convert in.xyz out.bin", {"in.xyz", "line 10: \"" + std::string(line) + "\"", "point"});
    }
    // Notations of numbers in which the library's reader has the say.
    write("in.xyz",
          "+1 2 3\n1e5 .5 5.\n1-2 3 4\n0x10 1 2\n1e-320 4 5\n1 2 3abc\n1e 2 3\n \t7\t8 9 \n-0 0 0\n+-1 2 3\n"
          "1 2\n++1 2 3\n. 1 2\n-. 1 2\n1e+5 -1E-5 +.5e0\n1 2 3;\n1d5 2 3\n1 inf 2\n1.7976931348623157e308 1 1\n"
          "1e-400 0.1000000000000000055511151231257827 0 \n1 2 1e400");
    ASSERT_EQ(run("convert in.xyz out.bin").exitCode, 0);
    std::vector<MIRT_ZAV::Point3> byTool, byLibrary;
    ASSERT_TRUE(MIRT_ZAV::readPoints_BIN(path("out.bin").c_str(), byTool));
    ASSERT_TRUE(MIRT_ZAV::readPoints_ASCII(path("in.xyz").c_str(), byLibrary));
    EXPECT_GT(byTool.size(), 8u);
    EXPECT_EQ(byTool, byLibrary);
    write("in.xyz", "4 5 6\n1 2 3\n1 2"); // nothing of the lines before gets into the last one
    EXPECT_EQ(run("convert in.xyz out.bin").out, "out.bin: 2 points\n");
    write("in.xyz", "1,5 mm apart\n1 2 3 4,5\n1 2 3mm\n"); // a header, and what stands behind the numbers
    EXPECT_EQ(run("convert in.xyz out.bin").out, "out.bin: 2 points\n");
}

TEST_F(ToolFiles, countsInPlyHeadersArePlainIntegers)
{
    for (const std::string count : {"1e3", "12.0", "-3", "0x10", "", "99999999999999999999"})
    {
        write("in.ply", "ply\nformat ascii 1.0\nelement vertex " + count +
                            "\nproperty float x\nproperty float y\nproperty float z\nend_header\n0 0 0\n1 1 1\n");
        expectFailure("info in.ply", {"in.ply", "line 3", "\"" + count + "\"", "plain integer"});
    }
}

TEST_F(ToolFiles, plyColumnsGoByTheirNames)
{
    const std::string faces = "element face 1\nproperty list uchar int vertex_indices\n";
    write("usual.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
                       "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\n" +
                           faces + "end_header\n1 2 3 10 20 30 40\n4 5 6 50 60 70 80\n7 8 90 9 9 99 9\n3 0 1 2\n");
    write("mixed.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty uchar blue\nproperty float z\n"
                       "property uchar alpha\nproperty float x\nproperty float nx\nproperty uchar red\n"
                       "property float y\nproperty uchar green\n" +
                           faces +
                           "end_header\n30 3 40 1 -1 10 2 20\n70 6 80 4 -1 50 5 60\n99 90 9 7 -1 9 8 9\n3 0 1 2\n");
    ASSERT_EQ(run("convert usual.ply a.ply").exitCode + run("convert mixed.ply b.ply").exitCode, 0);
    EXPECT_TRUE(contentOf("a.ply") == contentOf("b.ply"));
    ASSERT_EQ(run("convert a.ply text.ply --ascii").exitCode, 0);
    EXPECT_NE(contentOf("text.ply").find("\n1 2 3 10 20 30 40\n4 5 6 50 60 70 80\n7 8 90 9 9 99 9\n"),
              std::string::npos);
    EXPECT_EQ(run("info usual.ply").out, run("info mixed.ply").out); // the corners of the face

    // The binary form, with the rows z y x as double.
    std::string binary = "ply\nformat binary_little_endian 1.0\nelement vertex 2\nproperty double z\n"
                         "property double y\nproperty double x\nend_header\n";
    for (const double value : {3.0, 2.0, 1.0, 6.0, 5.0, 4.0})
        binary.append(reinterpret_cast<const char*>(&value), sizeof(value));
    write("zyx.ply", binary);
    ASSERT_EQ(run("convert zyx.ply out.ply --ascii").exitCode, 0);
    EXPECT_NE(contentOf("out.ply").find("end_header\n1 2 3\n4 5 6\n"), std::string::npos);
}

TEST_F(ToolFiles, pointsFarFromAllOthersAreNamed)
{
    write("out.ply", "an older result");
    for (const char* far : {"1e7 3 4", "1e9 3 4"})
    {
        write("in.xyz", sheet(40) + far + "\n");
        const std::string coordinates = replaced(far, "e", "e+0");
        expectFailure("reconstruct in.xyz out.ply --spacing 1 --quiet",
                      {"1 lies far", "from 0 0 0 to 39 39 0", "remove " + coordinates});
        // Detection may give some spacing, which can't be right.
        for (const char* arguments : {"reconstruct in.xyz auto.ply", "spacing in.xyz"})
            EXPECT_NE(run(arguments).err.find("remove " + coordinates), std::string::npos) << arguments;
    }
    // Also where the run moves the cloud to the origin.
    std::ostringstream text;
    for (int i = 0; i < 1600; ++i)
        text << i % 40 << " 5000000000 " << i / 40 << '\n';
    write("in.xyz", text.str() + "4e9 5e9 0\n3 5e9 2.5e9\n");
    expectFailure("reconstruct in.xyz out.ply --spacing 1", {"2 lie far", "4e+09 5e+09 0, 3 5e+09 2.5e+09"});
    EXPECT_TRUE(contentOf("out.ply") == "an older result");
}

TEST_F(ToolFiles, coordinatesThatPlyCanNotHoldAreRefused)
{
    write("in.xyz", sheet(20, 1e39));
    write("out.ply", "an older result");
    expectFailure("reconstruct in.xyz out.ply", {"out.ply", "32-bit floats", "scale"});
    EXPECT_TRUE(contentOf("out.ply") == "an older result");
    EXPECT_EQ(run("reconstruct in.xyz out.stl").exitCode, 0);
    EXPECT_NE(run("info out.stl").out.find("not finite triangles   0\n"), std::string::npos);
    write("soup.stl", "solid\n" + facet("0 0 0;1e39 0 0;0 1e39 0") + "endsolid\n");
    expectFailure("cloud soup.stl out.ply --spacing 1e38", {"32-bit floats"});
    write("small.xyz", sheet(20, 1e-45));
    expectFailure("reconstruct small.xyz out.ply --spacing 1e-45", {"32-bit floats", "scale"});
}

TEST_F(ToolFiles, runsOutOfMemoryEndInASentence)
{
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // their shadow memory is beyond any limit
    ASSERT_EQ(run("generate torus in.ply --points 200000").exitCode, 0);
    write("old.ply", "an older result");
    size_t numFailed = 0;
    for (const int kilobytes : {60000, 130000, 220000, 280000, 320000})
    {
        fs::copy_file(directory / "old.ply", directory / "out.ply", fs::copy_options::overwrite_existing);
        limit = "ulimit -v " + std::to_string(kilobytes) + "; ";
        const Outcome outcome = run("reconstruct in.ply out.ply --threads 2");
        if (outcome.exitCode == 0)
        {
            EXPECT_EQ(contentOf("out.ply").find("ply\n"), 0u) << kilobytes;
            continue;
        }
        ++numFailed;
        EXPECT_EQ(outcome.exitCode, 1) << kilobytes << ": " << outcome.err;
        EXPECT_NE(outcome.err, "") << kilobytes;
        EXPECT_TRUE(contentOf("out.ply") == "an older result") << kilobytes;
        EXPECT_EQ(countFiles(), 3u) << kilobytes;
    }
    EXPECT_GT(numFailed, 3u);
#endif
}
