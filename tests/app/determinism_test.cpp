// The same bytes, every run: reconstructions in fresh processes, whose addresses differ, with any number of threads.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace
{
class Determinism : public ::testing::Test
{
protected:
    const fs::path directory = fs::temp_directory_path() / ("zav_determinism_" + std::to_string(getpid()));

    void SetUp() override { fs::create_directory(directory); }
    void TearDown() override { fs::remove_all(directory); }

    void run(const std::string& arguments)
    {
        const std::string command = "cd '" + directory.string() + "' && '" ZAV_TOOL "' " + arguments + " >/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << arguments;
    }

    std::string read(const std::string& name)
    {
        std::ifstream in(directory / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};
} // namespace

TEST_F(Determinism, FreshProcessesAndAnyNumberOfThreadsGiveTheSameBytes)
{
    run("generate torus torus.ply --points 30000 --noise 0.3 --seed 3");
    run("generate wave wave.ply --points 20000 --noise 0.1 --seed 4");
    for (const std::string shape : {"torus", "wave"})
    {
        run("reconstruct " + shape + ".ply first.ply --holes 6 --quiet --threads 1");
        const std::string first = read("first.ply");
        ASSERT_GT(first.size(), 100000u);
        for (const std::string threads : {"1", "2", "3", "7"})
        {
            run("reconstruct " + shape + ".ply again.ply --holes 6 --quiet --threads " + threads);
            EXPECT_TRUE(read("again.ply") == first) << shape << " with " << threads << " threads";
        }
    }
}
