#include "textLines.h"

#include "console.h"
#include "files.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace zavtool
{
namespace
{
constexpr size_t windowBytes = size_t(1) << 18;
} // namespace

TextLines::TextLines(const std::string& pathArg) : in(openInput(pathArg)), path(pathArg), window(windowBytes)
{
    more();
    if (end >= 3 && std::memcmp(window.data(), "\xef\xbb\xbf", 3) == 0)
        begin = 3;
}

bool TextLines::next(std::string_view& line)
{
    if (bBehindReturn && (begin != end || more()) && window[begin] == '\n')
        ++begin;
    bBehindReturn = false;
    size_t at = 0;
    while ((at = std::min(lineFeed.find(window.data(), begin, end), carriageReturn.find(window.data(), begin, end))) ==
           end)
    {
        if (end - begin == window.size())
            throw Failure(path + " has a line of more than " + std::to_string(windowBytes) + " bytes, line " +
                          std::to_string(number + 1) + "; break it into lines");
        if (more())
            continue;
        if (begin == end)
            return false;
        at = end; // the last line needs no end
        break;
    }
    line = std::string_view(window.data() + begin, at - begin);
    bBehindReturn = at != end && window[at] == '\r';
    begin = std::min(at + 1, end);
    ++number;
    return true;
}

bool TextLines::more()
{
    std::memmove(window.data(), window.data() + begin, end - begin);
    end -= begin;
    begin = 0;
    lineFeed.bKnown = carriageReturn.bKnown = false;
    in.read(window.data() + end, static_cast<std::streamsize>(window.size() - end));
    const auto numRead = static_cast<size_t>(in.gcount());
    end += numRead;
    return numRead != 0;
}

size_t TextLines::NextEnd::find(const char* data, size_t from, size_t last)
{
    if (bKnown && at >= from)
        return at;
    const void* const found = from == last ? nullptr : std::memchr(data + from, character, last - from);
    at = found == nullptr ? last : static_cast<size_t>(static_cast<const char*>(found) - data);
    bKnown = true;
    return at;
}

std::string TextLines::quote(std::string_view line) const
{
    constexpr size_t longest = 50;
    std::string text(line.substr(0, longest));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return "line " + std::to_string(number) + ": \"" + text + (line.size() > longest ? "...\"" : "\"");
}

std::string_view takeWord(std::string_view& text)
{
    size_t begin = 0;
    while (begin < text.size() && isBlank(text[begin]))
        ++begin;
    size_t end = begin;
    while (end < text.size() && !isBlank(text[end]))
        ++end;
    const std::string_view word = text.substr(begin, end - begin);
    text.remove_prefix(end);
    return word;
}

bool toNumber(std::string_view word, double& number)
{
    if (word.size() > 1 && word[0] == '+' && word[1] != '-')
        word.remove_prefix(1);
    const auto [last, problem] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (last != word.data() + word.size() || problem == std::errc::invalid_argument)
        return false;
    if (problem == std::errc::result_out_of_range) // tells neither the sign nor which end of the range
        number = std::strtod(std::string(word).c_str(), nullptr);
    return true;
}

} // namespace zavtool
