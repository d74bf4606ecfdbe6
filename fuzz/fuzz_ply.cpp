// readPly, for points and for corners of triangles: there have to be as many as the header says, and the same ones
// again at a second reading.
#include "files/tinyply.h"
#include "fuzzing.h"
#include "zav/pointFiles.h"

#include <fstream>

namespace
{
/// The number of rows of the first element with a name; 0 if there is none.
std::uint64_t numRows(const PLY::PlyFile& file, const std::string& name)
{
    for (const PLY::PlyElement& element : file.getElements())
        if (element.name == name)
            return element.size;
    return 0;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    const std::string path = fuzzing::fileOf(fuzzing::bytesOf(data, size));
    for (const bool bPointsOnly : {true, false})
    {
        fuzzing::Points points, again(1);
        if (!MIRT_ZAV::readPly(path.c_str(), bPointsOnly, points))
            continue;
        PLY::PlyFile file;
        std::ifstream in(path, std::ios::binary);
        file.parse_header(in);
        fuzzing::require(points.size() == (bPointsOnly ? numRows(file, "vertex") : 3 * numRows(file, "face")),
                         "the number of points is that of the header");
        fuzzing::require(MIRT_ZAV::readPly(path.c_str(), bPointsOnly, again), "it can be read again");
        fuzzing::requireSame(again, points, "the points are the same again");
        for (size_t i = 0; i < points.size(); ++i)
            fuzzing::require(points[i].hasColor() == again[i].hasColor() &&
                                 std::memcmp(&points[i].r, &again[i].r, 4) == 0,
                             "the colours are the same again");
    }
    return 0;
}
