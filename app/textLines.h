// The lines of a text file, one after the other.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace zavtool
{

/// Lines end in LF, CR LF or CR. A byte order mark at the beginning of the file isn't part of the first one.
class TextLines
{
public:
    /// \throws Failure  when the file can't be read
    explicit TextLines(const std::string& path);

    /// False at the end of the file.
    /// \param line  without its end; valid until the next call
    /// \throws Failure  for a line that is longer than the window
    bool next(std::string_view& line);

    /// Of the last line, from 1.
    std::uint64_t getNumber() const { return number; }
    /// The last line for a message: "line 12: "vertex 1 2"". A long one is cut.
    std::string quote(std::string_view line) const;

private:
    /// Where a character stands next in the window; its end if nowhere. The answer is kept: most files have but one of
    /// the two ends of lines, and the other one would be looked for in all of the window for every line.
    struct NextEnd
    {
        char character;
        size_t at = 0;
        bool bKnown = false;

        size_t find(const char* data, size_t from, size_t last);
    };

    bool more();

    std::ifstream in;
    std::string path;
    std::vector<char> window;
    size_t begin = 0, end = 0; // what is left of the window
    NextEnd lineFeed{'\n'}, carriageReturn{'\r'};
    bool bBehindReturn = false; // a line feed here belongs to the line before
    std::uint64_t number = 0;
};

/// White space as the library sees it.
inline bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Takes the next word off the beginning of a text; empty at its end.
std::string_view takeWord(std::string_view& text);

/// Reads a word that is as a whole a number in decimal notation, also "nan" and "inf".
bool toNumber(std::string_view word, double& number);

} // namespace zavtool
