// Runs the built tool as a user would.
#pragma once

#include "helpers/capture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace test
{

struct Outcome
{
    int exitCode; // -1 when a signal ended the tool
    std::string out;
    std::string err;
};

inline size_t countLines(const std::string& text)
{
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

class InToolDirectory : public InDirectory
{
protected:
    Outcome run(const std::string& arguments)
    {
        const std::string command =
            "cd '" + directory.string() + "' && " + limit + "'" ZAV_TOOL "' " + arguments + " >stdout.txt 2>stderr.txt";
        const int status = std::system(command.c_str());
        Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf("stdout.txt"), contentOf("stderr.txt")};
        std::filesystem::remove(directory / "stdout.txt");
        std::filesystem::remove(directory / "stderr.txt");
        return outcome;
    }

    void write(const std::string& name, const std::string& content)
    {
        std::ofstream(directory / name, std::ios::binary) << content;
    }

    size_t countFiles()
    {
        using std::filesystem::directory_iterator;
        return static_cast<size_t>(std::distance(directory_iterator(directory), directory_iterator()));
    }

    /// The run fails, leaves the output as it was, and its last line on standard error has all these words.
    void expectFailure(const std::string& arguments, const std::vector<std::string>& words)
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exitCode, 1) << arguments << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "") << arguments;
        const size_t end = outcome.err.size() < 2 ? 0 : outcome.err.rfind('\n', outcome.err.size() - 2) + 1;
        for (const std::string& word : words)
            EXPECT_NE(outcome.err.find(word, end), std::string::npos)
                << arguments << ": " << word << ": " << outcome.err;
    }

    std::string limit; // shell commands that limit what the tool may use
};

} // namespace test
