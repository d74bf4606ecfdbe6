// Lines of text in a BlockBuffer.
#pragma once

#include "BlockBuffer.h"

#include <cstddef>
#include <cstring>
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
