#include "base/BlockWriter.h"

#include <algorithm>

namespace MIRT_ZAV
{
namespace
{
constexpr size_t blockSize = size_t(1) << 18;
constexpr size_t longestSurround = 32; // what a number has beside its digits: sign, point, zeros behind it, exponent
} // namespace

BlockWriter::BlockWriter(std::ostream& out, int precision)
    : target(out), block(blockSize), digits(precision < 0 ? 6 : precision)
{
}

void BlockWriter::putNumber(double value)
{
    const size_t room = static_cast<size_t>(digits) + longestSurround;
    char* const text = take(room);
    const char* const textEnd = std::to_chars(text, text + room, value, std::chars_format::general, digits).ptr;
    used -= static_cast<size_t>(text + room - textEnd);
}

void BlockWriter::putNumber(long long value)
{
    char* const text = take(longestSurround);
    used -= static_cast<size_t>(text + longestSurround - std::to_chars(text, text + longestSurround, value).ptr);
}

void BlockWriter::putNumbers(double x, double y, double z)
{
    putNumber(x);
    put(' ');
    putNumber(y);
    put(' ');
    putNumber(z);
}

void BlockWriter::flush()
{
    target.write(block.data(), static_cast<std::streamsize>(used));
    used = 0;
}

void BlockWriter::makeRoom(size_t n)
{
    flush();
    block.resize(std::max(block.size(), n));
}

} // namespace MIRT_ZAV
