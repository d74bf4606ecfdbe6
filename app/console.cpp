#include "console.h"

#include <cstdio>
#include <iostream>
#include <new>
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
} // namespace

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
}

LibraryMessages::~LibraryMessages()
{
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

std::vector<std::string> LibraryMessages::getProblems()
{
    std::vector<std::string> problems;
    const std::string text = withoutColors(collector.getText());
    for (size_t begin = 0; begin < text.size();)
    {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        for (const char* mark : {"WARNING: ", "ERROR: ", "exception: "})
            if (const size_t at = line.find(mark); at != std::string::npos)
                problems.push_back(line.substr(at));
        begin = end + 1;
    }
    return problems;
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
    const bool bSaidWhy = !messages.getProblems().empty();
    throw Failure("the library gave up" + (bSaidWhy ? std::string() : std::string(" (") + problem.what() + ")") + "; " +
                  remedy);
}

} // namespace zavtool
