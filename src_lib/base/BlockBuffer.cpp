#include "base/BlockBuffer.h"

#include <algorithm>
#include <cstring>

namespace MIRT_ZAV
{

BlockBuffer::BlockBuffer(std::istream& in, size_t blockSize) : source(in), block(std::max<size_t>(blockSize, 1))
{
    setg(block.data(), block.data(), block.data());
}

bool BlockBuffer::more()
{
    const size_t rest = available();
    if (isFull())
        block.resize(2 * block.size());
    else if (rest != 0)
        std::memmove(block.data(), gptr(), rest);
    source.read(block.data() + rest, static_cast<std::streamsize>(block.size() - rest));
    const size_t numRead = static_cast<size_t>(source.gcount());
    setg(block.data(), block.data(), block.data() + rest + numRead);
    return numRead != 0;
}

bool BlockBuffer::require(size_t n)
{
    while (available() < n)
        if (!more())
            return false;
    return true;
}

bool BlockBuffer::skip(size_t n)
{
    while (n > available())
    {
        n -= available();
        advance(available());
        if (!more())
            return false;
    }
    advance(n);
    return true;
}

BlockBuffer::int_type BlockBuffer::underflow()
{
    return atEnd() ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

std::int64_t bytesLeft(std::istream& is)
{
    is.clear(); // tellg fails on a stream that was read to its end
    const std::istream::pos_type here = is.tellg();
    if (here == std::istream::pos_type(-1))
        return -1;
    is.seekg(0, std::ios::end);
    const std::int64_t left = static_cast<std::int64_t>(is.tellg() - here);
    is.clear();
    is.seekg(here);
    return left;
}

bool isReadable(std::istream& is)
{
    is.peek();
    const bool bReadable = !is.bad();
    is.clear(); // an empty file is at its end, but readable
    return bReadable;
}

} // namespace MIRT_ZAV
