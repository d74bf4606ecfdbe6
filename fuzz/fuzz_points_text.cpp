// Text points: the reader has to give what a string stream gives, line by line.
#include "fuzzing.h"
#include "zav/pointFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string text = fuzzing::bytesOf(data, size);
    fuzzing::Points points;
    fuzzing::require(MIRT_ZAV::readPoints_ASCII(fuzzing::fileOf(text).c_str(), points), "the file could be read");
    fuzzing::requireSame(points, test::plainTextPoints(text), "the points of a stream");
    return 0;
}
