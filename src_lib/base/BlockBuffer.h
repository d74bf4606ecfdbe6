// Reads a stream in large blocks and shows the bytes as an array, so that readers can convert them in tight loops. It
// is a stream buffer itself: whatever a tight loop would rather not decide, an istream on top can read from the same
// place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <streambuf>
#include <vector>

namespace MIRT_ZAV
{

#ifdef ZAV_SMALL_WINDOWS // fuzzing: even short inputs run across the borders of windows
constexpr size_t windowBytes = 64;
#else
constexpr size_t windowBytes = size_t(1) << 18;
#endif

/// A window on a stream:
///
///     stream:   ... gone | begin() ..... end() | not read yet ...
///                         advance() ->    more() ->
///
/// more() may move the bytes, so pointers into the window are valid until more(), require() or skip(), or until
/// something reads through an istream.
class BlockBuffer : public std::streambuf
{
public:
    /// \param in         read from its current position on; must outlive the buffer
    /// \param blockSize  bytes read at a time; the window grows beyond it only when more() finds it full
    explicit BlockBuffer(std::istream& in, size_t blockSize = windowBytes);

    const char* begin() const { return gptr(); }
    const char* end() const { return egptr(); }
    size_t available() const { return static_cast<size_t>(egptr() - gptr()); }
    /// Whether more() would have to make the window larger. Readers of text ask: one endless line would fill the
    /// memory.
    bool isFull() const { return available() == block.size(); }

    /// Moves on within the window, by at most available() bytes.
    void advance(size_t n) { setg(eback(), gptr() + n, egptr()); }
    /// Reads on; what is in the window stays. False when the stream has ended.
    bool more();
    /// Reads until n bytes are available. False when the stream ends first; the window then holds all that is left.
    bool require(size_t n);
    /// Moves on by any number of bytes, in constant memory. False when the stream ends first.
    bool skip(size_t n);
    bool atEnd() { return available() == 0 && !more(); }

protected:
    int_type underflow() override;

private:
    std::istream& source;
    std::vector<char> block;
};

/// \return the number of bytes from the stream's position to its end; negative when the stream can't tell, as with a
///         pipe. The position stays; error states are cleared.
std::int64_t bytesLeft(std::istream& is);

/// Whether a file that was just opened can be read: a directory opens, too, and fails at the first byte. The position
/// stays.
bool isReadable(std::istream& is);

} // namespace MIRT_ZAV
