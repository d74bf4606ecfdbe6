#include "zav/stlFiles.h"

#include "base/BlockBuffer.h"
#include "base/lineScan.h"
#include "base/numberScan.h"
#include "base/tools.h"

#include <fstream>
#include <iostream>
#include <istream>
#include <locale>
#include <optional>
#include <set>
#include <string_view>

namespace MIRT_ZAV
{
namespace
{
/// Finds the lines of corners. Asks of a line only what matters where it stands: a search through it costs time.
class FacetState
{
public:
    template <class Contains>
    bool isCorner(const Contains& contains)
    {
        if (!bInLoop)
            bInLoop = contains("outer loop") || contains("OUTER LOOP");
        else if (contains("endloop"))
            bInLoop = false;
        else
            return contains("vertex");
        return false;
    }

private:
    bool bInLoop = false;
};

/// Reads a corner from its line: a word and three numbers. Numbers that are missing stay those of the corner before.
class CornerParser
{
public:
    CornerParser() : stream(&buffer) { stream.imbue(std::locale::classic()); }

    Point3 parse(std::string_view line)
    {
        const char* const last = line.data() + line.size();
        const char* p = skipBlanks(line.data(), last);
        while (p != last && !isBlank(*p))
            ++p;
        const char* const behindWord = p;
        double read[3];
        for (double& value : read)
            if (p != nullptr)
                p = scanNumber(skipBlanks(p, last), last, value);
        if (p != nullptr)
            std::copy(read, read + 3, xyz);
        else
            parseByStream(behindWord, last);
        return {xyz[0], xyz[1], xyz[2]};
    }

    /// Reads a line that is longer than the window and moves on to the next one. The numbers come by before all of its
    /// words are known: they are kept aside until then.
    void parseLong(BlockBuffer& in, FacetState& state, std::vector<Point3>& vPoints)
    {
        std::set<std::string_view> found;
        LongLine line(in,
                      [&found](std::string_view part)
                      {
                          for (const char* const words : {"outer loop", "OUTER LOOP", "endloop", "vertex"})
                              if (part.find(words) != std::string_view::npos)
                                  found.insert(words);
                      });
        std::istream lineStream(&line);
        lineStream.imbue(std::locale::classic());
        lineStream >> std::ws;
        for (int c = line.sgetc(); c != std::char_traits<char>::eof() && !isBlank(static_cast<char>(c));)
            c = line.snextc(); // the word, however long
        double read[3];
        std::copy(xyz, xyz + 3, read);
        lineStream >> read[0] >> read[1] >> read[2];
        line.finish();
        if (!state.isCorner([&found](const char* words) { return found.count(words) != 0; }))
            return;
        std::copy(read, read + 3, xyz);
        vPoints.emplace_back(xyz[0], xyz[1], xyz[2]);
    }

private:
    void parseByStream(const char* first, const char* last)
    {
        buffer.set(first, last);
        stream.clear();
        stream >> xyz[0] >> xyz[1] >> xyz[2];
    }

    LineBuffer buffer;
    std::istream stream;
    double xyz[3] = {0.0, 0.0, 0.0};
};
} // namespace

bool readSTL_ASCII(const char* path, std::vector<Point3>& vPoints)
{
    std::ifstream file(path);
    if (!file.is_open() || !isReadable(file))
    {
        std::cout << "readSTL(): " << path << " is unreadable" << std::endl;
        return false;
    }
    BlockBuffer in(file);
    CornerParser parser;
    FacetState state;
    while (!in.atEnd())
    {
        const std::optional<size_t> length = findLine(in);
        if (!length)
        {
            parser.parseLong(in, state, vPoints);
            continue;
        }
        const std::string_view line(in.begin(), *length);
        if (state.isCorner([line](const char* words) { return line.find(words) != std::string_view::npos; }))
            vPoints.push_back(parser.parse(line));
        skipLine(in, *length);
    }
    return true;
}

bool readSTLTriCorners(const std::string& path, std::vector<Point3>& vPoints)
{
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file.is_open() || !isReadable(file))
    {
        errorMsg("readTriCorners", "Failed to open " + path);
        return false;
    }
    constexpr std::string_view word = "vertex";
    BlockBuffer in(file);
    PointParser parser;
    double xyz[3];
    while (!in.atEnd())
    {
        bool bCorner = false;
        if (const std::optional<size_t> length = findLine(in))
        {
            const std::string_view line(in.begin(), *length);
            const size_t at = line.find(word);
            bCorner = at != std::string_view::npos &&
                      parser.parse(line.data() + at + word.size(), line.data() + *length, xyz);
            skipLine(in, *length);
        }
        else
        {
            LongLine line(in);
            bCorner = line.skipBehind(word) && PointParser::parse(line, xyz);
            line.finish();
        }
        if (bCorner)
            vPoints.emplace_back(xyz[0], xyz[1], xyz[2]);
    }
    return true;
}

} // namespace MIRT_ZAV
