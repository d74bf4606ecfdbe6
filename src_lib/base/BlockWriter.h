// Collects output and hands it to a stream in large blocks. Numbers look as a stream with the "C" locale prints them.
#pragma once

#include <charconv>
#include <cstddef>
#include <ostream>
#include <string_view>
#include <vector>

namespace MIRT_ZAV
{

/// The owner has to call flush() at the end: the destructor doesn't. The stream's state tells whether all has arrived.
class BlockWriter
{
public:
    /// \param precision  significant digits of floating-point numbers; below 0 stands for 6, as in a stream
    BlockWriter(std::ostream& out, int precision);

    /// Room for n bytes, which count as written: the caller fills them before the next call.
    char* take(size_t n)
    {
        if (block.size() - used < n)
            makeRoom(n);
        used += n;
        return block.data() + used - n;
    }
    void put(char c) { *take(1) = c; }
    void put(std::string_view text) { text.copy(take(text.size()), text.size()); }
    void putNumber(double value);
    void putNumber(long long value);
    /// Three numbers with a blank between.
    void putNumbers(double x, double y, double z);
    void flush();

private:
    void makeRoom(size_t n);

    std::ostream& target;
    std::vector<char> block;
    size_t used = 0;
    int digits;
};

} // namespace MIRT_ZAV
