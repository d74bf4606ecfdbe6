// Binary points: the reader has to give what a plain one gives, also when the count in the file lies.
#include "fuzzing.h"
#include "zav/pointFiles.h"

namespace
{
/// Whether the count makes the reader add many points to a file that has too few: that is slow and tries nothing new.
bool fills(const std::string& bytes)
{
    std::uint64_t count = 0;
    if (bytes.size() >= 12)
        std::memcpy(&count, bytes.data() + 4, sizeof(count));
    return count > 5000 && count < (std::uint64_t(1) << 20) + 1000;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string bytes = fuzzing::bytesOf(data, size);
    if (fills(bytes))
        return 0;
    fuzzing::Points points;
    fuzzing::require(MIRT_ZAV::readPoints_BIN(fuzzing::fileOf(bytes).c_str(), points), "the file could be read");
    fuzzing::requireSame(points, test::plainBinaryPoints(bytes), "the points of a plain reader");
    return 0;
}
