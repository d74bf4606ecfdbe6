#include "stlFiles.h"

#include "BlockBuffer.h"
#include "lineScan.h"
#include "numberScan.h"
#include "tools.h"

#include <fstream>
#include <iostream>
#include <istream>
#include <locale>
#include <string>
#include <string_view>

namespace MIRT_ZAV
{
namespace
{
bool contains(std::string_view line, const char* text)
{
    return line.find(text) != std::string_view::npos;
}

/// Reads a corner from its line: a word and three numbers. What a line lacks stays from the line before.
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
        double read[3];
        for (double& value : read)
            if (p != nullptr)
                p = scanNumber(skipBlanks(p, last), last, value);
        if (p != nullptr)
            std::copy(read, read + 3, xyz);
        else
            parseByStream(line);
        return {xyz[0], xyz[1], xyz[2]};
    }

private:
    void parseByStream(std::string_view line)
    {
        buffer.set(line.data(), line.data() + line.size());
        stream.clear();
        std::string word;
        stream >> word >> xyz[0] >> xyz[1] >> xyz[2];
    }

    LineBuffer buffer;
    std::istream stream;
    double xyz[3] = {0.0, 0.0, 0.0};
};
} // namespace

bool readSTL_ASCII(const char* path, std::vector<Point3>& vPoints)
{
    std::ifstream file(path);
    if (!file.is_open())
    {
        std::cout << "readSTL(): " << path << " is unreadable" << std::endl;
        return false;
    }
    BlockBuffer in(file);
    CornerParser parser;
    bool bInLoop = false;
    while (!in.atEnd())
    {
        const size_t length = findLine(in);
        const std::string_view line(in.begin(), length);
        if (!bInLoop)
            bInLoop = contains(line, "outer loop") || contains(line, "OUTER LOOP");
        else if (contains(line, "endloop"))
            bInLoop = false;
        else if (contains(line, "vertex"))
            vPoints.push_back(parser.parse(line));
        in.advance(std::min(length + 1, in.available()));
    }
    return true;
}

bool readSTLTriCorners(const std::string& path, std::vector<Point3>& vPoints)
{
    std::ifstream file(path, std::ios::in | std::ios::binary);
    if (!file.is_open())
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
        const size_t length = findLine(in);
        const std::string_view line(in.begin(), length);
        const size_t at = line.find(word);
        if (at != std::string_view::npos && parser.parse(line.data() + at + word.size(), line.data() + length, xyz))
            vPoints.emplace_back(xyz[0], xyz[1], xyz[2]);
        in.advance(std::min(length + 1, in.available()));
    }
    return true;
}

} // namespace MIRT_ZAV
