#include "console.h"

#include "SafeOutput.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <sstream>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace zavtool
{
namespace
{
std::string withoutColors(const std::string& text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '\033')
        {
            while (i < text.size() && text[i] != 'm')
                ++i;
        }
        else
            plain += text[i];
    }
    return plain;
}

LibraryMessages* currentMessages = nullptr; // holds the messages back at this moment

/// The first of the marks of a warning or an error in a line; npos if there is none.
size_t findProblem(std::string_view line)
{
    size_t first = std::string_view::npos;
    for (const char* mark : {"WARNING: ", "ERROR: ", "exception: "})
        first = std::min(first, line.find(mark));
    return first;
}

/// Writes a line of the library's without its colours, piece by piece.
void tellPlain(std::string_view line)
{
    std::fputs("zav: the library says: ", stderr);
    while (!line.empty())
    {
        const size_t color = std::min(line.find('\033'), line.size());
        std::fwrite(line.data(), 1, color, stderr);
        line.remove_prefix(std::min(line.find('m', color), line.size() - 1) + 1);
    }
    std::fputc('\n', stderr);
}

const char* const noMemory =
    "zav: the memory is not enough, the run was given up; try a greater --spacing or fewer points\n";

[[noreturn]] void endWith(const char* sentence)
{
    LibraryMessages::tellAtBitterEnd();
    std::fputs(sentence, stderr);
    std::fflush(stdout);
    removeUnfinishedOutput();
    std::_Exit(exitFailure); // destructors of the library's objects may wait for threads that are no more
}

/// Runs at every exit. One within a call of the library isn't the tool's own: its containers end the process so where
/// memory is out.
void endAtExit()
{
    if (currentMessages != nullptr)
        endWith(noMemory);
}

[[noreturn]] void endAtTerminate()
{
    const char* sentence = "zav: an error that nobody expected ended the run; try again with --threads 1\n";
    try
    {
        if (std::current_exception() != nullptr)
            throw;
    }
    catch (const std::bad_alloc&)
    {
        sentence = noMemory;
    }
    catch (const std::system_error&)
    {
        sentence = "zav: no thread can be started any more, the run was given up; try with --threads 1\n";
    }
    catch (...)
    {
    }
    endWith(sentence);
}
} // namespace

void prepareForBitterEnds()
{
    std::atexit(endAtExit);
    std::set_terminate(endAtTerminate);
}

// Straight to the C stream: std::cerr may be collected at this moment.
void tell(const std::string& line)
{
    std::fputs(("zav: " + line + "\n").c_str(), stderr);
}

bool isTerminal()
{
    return isatty(STDERR_FILENO) != 0;
}

LibraryMessages::LibraryMessages()
    : standardOutput(std::cout.rdbuf(&collector)), standardError(std::cerr.rdbuf(&collector))
{
    currentMessages = this;
}

LibraryMessages::~LibraryMessages()
{
    currentMessages = nullptr;
    std::cout.rdbuf(standardOutput);
    std::cerr.rdbuf(standardError);
}

std::string LibraryMessages::Collector::getText()
{
    std::lock_guard<std::mutex> lock(mutex);
    return collected;
}

LibraryMessages::Collector::int_type LibraryMessages::Collector::overflow(int_type character)
{
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return traits_type::not_eof(character);
    std::lock_guard<std::mutex> lock(mutex);
    collected += traits_type::to_char_type(character);
    return character;
}

std::streamsize LibraryMessages::Collector::xsputn(const char* text, std::streamsize length)
{
    std::lock_guard<std::mutex> lock(mutex);
    collected.append(text, static_cast<size_t>(length));
    return length;
}

void LibraryMessages::Collector::tellProblems()
{
    const std::unique_lock<std::mutex> lock(mutex, std::try_to_lock); // the thread that held it may be no more
    for (std::string_view text = collected; !text.empty();)
    {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (const size_t at = findProblem(line); at != std::string_view::npos)
            tellPlain(line.substr(at));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
}

std::vector<std::string> LibraryMessages::getProblems()
{
    std::vector<std::string> problems;
    std::istringstream lines(withoutColors(collector.getText()));
    for (std::string line; std::getline(lines, line);)
        if (const size_t at = findProblem(line); at != std::string::npos)
            problems.push_back(line.substr(at));
    return problems;
}

void LibraryMessages::tellAtBitterEnd()
{
    if (currentMessages != nullptr)
        currentMessages->collector.tellProblems();
}

void tellProblems(LibraryMessages& messages)
{
    for (const std::string& problem : messages.getProblems())
        tell("the library says: " + problem);
}

void failAs(const std::exception& problem, LibraryMessages& messages, const std::string& remedy)
{
    if (dynamic_cast<const std::bad_alloc*>(&problem) != nullptr)
        throw Failure("the memory is not enough; " + remedy);
    if (dynamic_cast<const std::system_error*>(&problem) != nullptr)
        throw Failure(std::string("no thread can be started any more (") + problem.what() + "); try with --threads 1");
    const bool bSaidWhy = !messages.getProblems().empty();
    throw Failure("the library gave up" + (bSaidWhy ? std::string() : std::string(" (") + problem.what() + ")") + "; " +
                  remedy);
}

} // namespace zavtool
