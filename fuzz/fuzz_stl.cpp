// Text STL: both readers have to give the corners that plain ones give, line by line.
#include "fuzzing.h"
#include "zav/stlFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string text = fuzzing::bytesOf(data, size);
    const std::string path = fuzzing::fileOf(text);
    fuzzing::Points corners;
    fuzzing::require(MIRT_ZAV::readSTL_ASCII(path.c_str(), corners), "the file could be read");
    fuzzing::requireSame(corners, test::plainStlCorners(text), "the corners of a plain reader");
    corners.clear();
    fuzzing::require(MIRT_ZAV::readSTLTriCorners(path, corners), "the file could be read");
    fuzzing::requireSame(corners, test::plainTriCorners(text), "the corners by the simple rule");
    return 0;
}
