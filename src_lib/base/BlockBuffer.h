// Reads a stream in large blocks and offers the bytes as an array, so that readers can convert them in tight loops. It
// is a stream buffer itself: what the tight loop doesn't want to decide can be read through an istream from the same
// place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <streambuf>
#include <vector>

namespace MIRT_ZAV
{

#ifdef ZAV_SMALL_WINDOWS // for the fuzz targets, so that short inputs meet its borders
constexpr size_t windowBytes = 64;
#else
constexpr size_t windowBytes = size_t(1) << 18;
#endif

/// A window on a stream. Pointers into it are valid until more(), require() or skip(), or a read through an istream.
class BlockBuffer : public std::streambuf
{
public:
    /// \param in         read from its current position on; must outlive the buffer
    /// \param blockSize  bytes read at a time; the window grows beyond it only when require() or more() need that
    explicit BlockBuffer(std::istream& in, size_t blockSize = windowBytes);

    const char* begin() const { return gptr(); }
    const char* end() const { return egptr(); }
    size_t available() const { return static_cast<size_t>(egptr() - gptr()); }
    /// Whether more() would have to make the window larger.
    bool isFull() const { return available() == block.size(); }

    /// Moves on within the window, by at most available() bytes.
    void advance(size_t n) { setg(eback(), gptr() + n, egptr()); }
    /// Reads on, keeping what is in the window. False when the stream has ended.
    bool more();
    /// Makes n bytes available. False when the stream ends before that; then the window holds all that is left.
    bool require(size_t n);
    /// Moves on by any number of bytes. False when the stream ends before that.
    bool skip(size_t n);
    bool atEnd() { return available() == 0 && !more(); }

protected:
    int_type underflow() override;

private:
    std::istream& source;
    std::vector<char> block;
};

/// The number of bytes from the stream's position to its end, or a negative number when the stream can't tell, such as
/// a pipe. The position stays; error states are cleared.
std::int64_t bytesLeft(std::istream& is);

/// Whether a file that was just opened gives its bytes: a directory opens, too, and fails on reading. The position
/// stays.
bool isReadable(std::istream& is);

} // namespace MIRT_ZAV
