#include "textFiles.h"

#include "console.h"
#include "textLines.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <locale>
#include <sstream>
#include <string_view>

namespace zavtool
{
namespace
{
using MIRT_ZAV::Point3;

[[noreturn]] void refuseCommas(const std::string& path, const std::string& quoted)
{
    throw Failure(path + " has commas in its numbers, " + quoted +
                  "; write decimals with a point and separate the numbers by blanks");
}

/// Whether a line is three numbers once its commas are points or blanks.
bool isThreeNumbersWithCommas(std::string_view line)
{
    if (line.find(',') == std::string_view::npos)
        return false;
    for (const char instead : {'.', ' '})
    {
        std::string text(line);
        std::replace(text.begin(), text.end(), ',', instead);
        std::string_view rest = text;
        double number = 0.0;
        if (toNumber(takeWord(rest), number) && toNumber(takeWord(rest), number) && toNumber(takeWord(rest), number))
            return true;
    }
    return false;
}

/// The points of a text file, line by line, and the account of what holds none.
class PointLines
{
public:
    explicit PointLines(const std::string& pathArg) : path(pathArg), lines(pathArg)
    {
        stream.imbue(std::locale::classic());
    }

    std::vector<Point3> read()
    {
        std::vector<Point3> points;
        double xyz[3];
        for (std::string_view line; lines.next(line);)
            if (parse(line, xyz))
                points.emplace_back(xyz[0], xyz[1], xyz[2]);
            else if (isLost(line, points.empty()) && ++numLost == 1)
                firstLost = lines.quote(line);
        return points;
    }

    void tellLost() const
    {
        if (numLost > 0)
            tell(path + ": " + std::to_string(numLost) + (numLost == 1 ? " line holds" : " lines hold") +
                 " no point, the first is " + firstLost);
    }

private:
    /// By the rule of the library's reader: a stream decides, and plain numbers go a faster way to the same bits.
    bool parse(std::string_view line, double (&xyz)[3])
    {
        std::string_view rest = line;
        bool bPlain = true;
        for (double& value : xyz)
        {
            const std::string_view word = takeWord(rest);
            const size_t digit = !word.empty() && (word[0] == '-' || word[0] == '+') ? 1 : 0;
            if (word.size() <= digit || !((word[digit] >= '0' && word[digit] <= '9') || word[digit] == '.'))
                return false;
            if (!(bPlain = toNumber(word, value) && std::isfinite(value)))
                break;
        }
        return bPlain || parseByStream(line, xyz);
    }

    bool parseByStream(std::string_view line, double (&xyz)[3])
    {
        if (isThreeNumbersWithCommas(line))
            refuseCommas(path, lines.quote(line));
        stream.clear();
        stream.str(std::string(line));
        return static_cast<bool>(stream >> xyz[0] >> xyz[1] >> xyz[2]);
    }

    /// Header lines stand before the first point. But "nan" is the place of a point that a scanner didn't get.
    static bool isLost(std::string_view line, bool bBeforePoints)
    {
        const std::string_view word = takeWord(line);
        double number = 0.0;
        if (word.empty() || word[0] == '#' || word.substr(0, 2) == "//")
            return false;
        return !bBeforePoints || (toNumber(word, number) && !std::isfinite(number));
    }

    std::string path;
    TextLines lines;
    std::istringstream stream;
    std::uint64_t numLost = 0;
    std::string firstLost;
};

bool isWord(std::string_view text, std::string_view lowerCase)
{
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                      [](char c, char lower) { return (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == lower; });
}

/// Words count wherever they stand on a line, but for "solid" and "endsolid", behind which there is a name. Unknown
/// words are skipped: one in place of a known one shows in the number of corners.
class StlReader
{
public:
    explicit StlReader(const std::string& pathArg) : path(pathArg), lines(pathArg) {}

    std::vector<Point3> read()
    {
        while (lines.next(line))
            takeLine();
        if (bInLoop || bInFacet || bInSolid)
            throw Failure(path + " is cut short; get a complete copy");
        return std::move(corners);
    }

private:
    void takeLine()
    {
        std::string_view rest = line;
        bool bFirst = true;
        for (std::string_view word; !(word = takeWord(rest)).empty(); bFirst = false)
        {
            if (word[0] == '#' || (bFirst && takeSolid(word)))
                return;
            if (isWord(word, "vertex"))
                takeCorner(rest);
            else if (isWord(word, "outer") && isWord(takeWord(rest), "loop"))
                beginLoop();
            else if (isWord(word, "endloop"))
                endLoop();
            else if (isWord(word, "facet") || isWord(word, "endfacet"))
            {
                refuseInLoop();
                bInFacet = isWord(word, "facet");
            }
        }
    }

    /// True for a line that begins or ends a solid.
    bool takeSolid(std::string_view word)
    {
        const bool bEnd = isWord(word, "endsolid");
        if (!bEnd && !isWord(word, "solid"))
            return false;
        refuseInLoop();
        bInSolid = !bEnd;
        bInFacet = false;
        return true;
    }

    void beginLoop()
    {
        refuseInLoop();
        bInLoop = true;
        numCorners = 0;
    }

    void endLoop()
    {
        if (!bInLoop || numCorners != 3)
            refuse("ends a facet of " + std::to_string(bInLoop ? numCorners : 0) + " corners",
                   "mend or remove that facet");
        bInLoop = false;
    }

    void takeCorner(std::string_view& rest)
    {
        if (!bInLoop)
            refuse("has a corner outside of a facet", "mend the file, or get a complete copy");
        if (++numCorners > 3)
            refuse("has the fourth corner of a facet", "split the facets into triangles");
        double xyz[3];
        for (double& value : xyz)
        {
            const std::string_view word = takeWord(rest);
            if (!toNumber(word, value) && word.find(',') != std::string_view::npos)
                refuseCommas(path, lines.quote(line));
            if (!toNumber(word, value) || !std::isfinite(value))
                refuse("has a corner without three finite numbers", "mend or remove that facet");
        }
        corners.emplace_back(xyz[0], xyz[1], xyz[2]);
    }

    void refuseInLoop() const
    {
        if (bInLoop)
            refuse("stands in a facet that isn't complete", "mend or remove that facet");
    }

    [[noreturn]] void refuse(const std::string& what, const std::string& remedy) const
    {
        throw Failure(path + " can't be read: " + lines.quote(line) + " " + what + "; " + remedy);
    }

    std::string path;
    TextLines lines;
    std::string_view line;
    std::vector<Point3> corners;
    bool bInSolid = false, bInFacet = false, bInLoop = false;
    int numCorners = 0; // of the present loop
};
} // namespace

std::vector<Point3> readTextPoints(const std::string& path, bool bQuiet)
{
    PointLines lines(path);
    std::vector<Point3> points = lines.read();
    if (!bQuiet && !points.empty())
        lines.tellLost();
    return points;
}

std::vector<Point3> readTextStl(const std::string& path)
{
    return StlReader(path).read();
}

} // namespace zavtool
