// Reads text line by line from a BlockBuffer, in constant memory even where a file is one endless line.
#pragma once

#include "base/BlockBuffer.h"
#include "base/numberScan.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <istream>
#include <locale>
#include <optional>
#include <streambuf>
#include <string_view>

namespace MIRT_ZAV
{

/// Lets an istream read bytes where they are.
struct LineBuffer : std::streambuf
{
    void set(const char* first, const char* last)
    {
        char* const begin = const_cast<char*>(first); // only read from
        setg(begin, begin, begin + (last - first));
    }
};

/// Reads the three numbers that a text begins with. What counts as a number is decided by a stream with the "C" locale;
/// plain ones are converted without it, which is much faster and gives the same bits.
class PointParser
{
public:
    PointParser() : stream(&buffer) { stream.imbue(std::locale::classic()); }

    /// \return false when the text doesn't begin with three numbers; xyz is undefined then
    bool parse(const char* first, const char* last, double (&xyz)[3])
    {
        const char* p = first;
        for (double& value : xyz)
        {
            p = skipBlanks(p, last);
            if (p == last || !(isDigit(*p) || *p == '+' || *p == '-' || *p == '.'))
                return false; // a stream would fail, too
            p = scanNumber(p, last, value);
            if (p == nullptr)
                return parseByStream(first, last, xyz);
        }
        return true;
    }

    /// The same for text that isn't in memory as a whole, all of it by the stream.
    static bool parse(std::streambuf& text, double (&xyz)[3])
    {
        std::istream in(&text);
        in.imbue(std::locale::classic());
        return static_cast<bool>(in >> xyz[0] >> xyz[1] >> xyz[2]);
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

/// Reads on until the window holds the next line. The last line of a file needs no end.
/// \return the length of the line without its end; nothing when the line is longer than the window, which doesn't grow
///         for it: that one is to be read as a LongLine
inline std::optional<size_t> findLine(BlockBuffer& in)
{
    size_t searched = 0;
    do
    {
        const size_t todo = in.available() - searched;
        if (const void* const found = todo == 0 ? nullptr : std::memchr(in.begin() + searched, '\n', todo))
            return static_cast<size_t>(static_cast<const char*>(found) - in.begin());
        if (in.isFull())
            return std::nullopt;
        searched = in.available();
    } while (in.more());
    return in.available();
}

/// Moves on to the next line.
/// \param length  of the present line, from findLine
inline void skipLine(BlockBuffer& in, size_t length)
{
    in.advance(std::min(length + 1, in.available()));
}

/// A line that is longer than the window, as a stream buffer. It is shown in parts that overlap by 16 bytes, so that a
/// word on the border of two parts stands whole in the second one:
///
///     line        .......................vertex 1.5 2.5 ....\n
///     1st part   [.......................v]
///     2nd part           [...16 bytes....vertex 1.5 2.5 ..]      an istream goes on behind the 16 bytes
class LongLine : public std::streambuf
{
public:
    using Look = std::function<void(std::string_view)>;

    /// \param buffer  stands at the beginning of the line; must not be moved on by others while this one is in use
    /// \param lookAt  is shown the parts one after the other, to look for words of up to 16 bytes
    explicit LongLine(BlockBuffer& buffer, Look lookAt = {}) : in(buffer), look(std::move(lookAt)) { show(0); }

    /// Goes behind the first occurrence of a word of up to 16 bytes. False when the line has none.
    bool skipBehind(std::string_view word)
    {
        do
        {
            const std::string_view part(eback(), static_cast<size_t>(egptr() - eback()));
            const size_t at = part.find(word);
            if (at != std::string_view::npos)
            {
                setg(eback(), eback() + at + word.size(), egptr());
                return true;
            }
        } while (showNext());
        return false;
    }

    /// Shows the rest to lookAt and moves the buffer on to the next line.
    void finish()
    {
        while (showNext())
        {
        }
        in.advance(bEndFound ? static_cast<size_t>(egptr() - in.begin()) + 1 : in.available());
    }

protected:
    int_type underflow() override
    {
        return gptr() == egptr() && !showNext() ? traits_type::eof() : traits_type::to_int_type(*gptr());
    }

private:
    bool showNext()
    {
        if (bEndFound)
            return false;
        const size_t kept = std::min<size_t>(in.available(), 16);
        in.advance(in.available() - kept);
        const bool bMore = in.more();
        show(kept);
        return bMore;
    }

    void show(size_t numSeen)
    {
        char* const begin = const_cast<char*>(in.begin()); // only read from
        const void* const found =
            in.available() == numSeen ? nullptr : std::memchr(begin + numSeen, '\n', in.available() - numSeen);
        bEndFound = found != nullptr;
        char* const end = bEndFound ? begin + (static_cast<const char*>(found) - begin) : begin + in.available();
        setg(begin, begin + numSeen, end);
        if (look)
            look(std::string_view(begin, static_cast<size_t>(end - begin)));
    }

    BlockBuffer& in;
    Look look;
    bool bEndFound = false;
};

} // namespace MIRT_ZAV
