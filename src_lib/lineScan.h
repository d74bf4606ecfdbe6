// Lines of text in a BlockBuffer.
#pragma once

#include "BlockBuffer.h"
#include "numberScan.h"

#include <cstddef>
#include <cstring>
#include <istream>
#include <locale>
#include <streambuf>

namespace MIRT_ZAV
{

/// The bytes of a line as a stream buffer, not copied.
struct LineBuffer : std::streambuf
{
    void set(const char* first, const char* last)
    {
        char* const begin = const_cast<char*>(first); // only read from
        setg(begin, begin, begin + (last - first));
    }
};

/// Finds three numbers at the beginning of a text, as a stream with the "C" locale reads them.
class PointParser
{
public:
    PointParser() : stream(&buffer) { stream.imbue(std::locale::classic()); }

    /// False, and xyz undefined, when the text doesn't begin with three numbers.
    bool parse(const char* first, const char* last, double (&xyz)[3])
    {
        const char* p = first;
        for (double& value : xyz)
        {
            p = skipBlanks(p, last);
            if (p == last || !(isDigit(*p) || *p == '+' || *p == '-' || *p == '.'))
                return false; // no number begins like this
            p = scanNumber(p, last, value);
            if (p == nullptr)
                return parseByStream(first, last, xyz);
        }
        return true;
    }

private:
    bool parseByStream(const char* first, const char* last, double (&xyz)[3])
    {
        buffer.set(first, last);
        stream.clear();
        return static_cast<bool>(stream >> xyz[0] >> xyz[1] >> xyz[2]);
    }

    LineBuffer buffer;
    std::istream stream;
};

/// The window holds the whole next line then; its length without the end of line, or available() at the end of the
/// file.
inline size_t findLine(BlockBuffer& in)
{
    size_t searched = 0;
    do
    {
        const size_t todo = in.available() - searched;
        if (const void* const found = todo == 0 ? nullptr : std::memchr(in.begin() + searched, '\n', todo))
            return static_cast<size_t>(static_cast<const char*>(found) - in.begin());
        searched = in.available();
    } while (in.more());
    return in.available();
}

} // namespace MIRT_ZAV
