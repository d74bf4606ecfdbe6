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
