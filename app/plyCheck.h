// A look at a PLY file before the library reads it. The library takes what it finds: zeros for what a file lacks or for
// words between numbers, and run-on indices of faces that aren't triangles.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zavtool
{

struct PlyHeader
{
    struct Property
    {
        std::string name;
        std::uint64_t size = 0;      // bytes of a value; 0 for an unknown type
        std::uint64_t countSize = 0; // bytes of the count before a list; 0 for plain values
        bool bFloatCount = false;
    };
    struct Element
    {
        std::string name;
        std::uint64_t count = 0;
        std::vector<Property> properties;
    };

    std::vector<Element> elements;
    bool bBinary = false;
    bool bBigEndian = false;
    std::uint64_t numBytes = 0; // up to the first value

    /// Rows of the first element of the name; 0 if there is none.
    std::uint64_t getCount(const std::string& name) const;
    /// Names of the properties of vertices that the library doesn't read.
    std::vector<std::string> getUnreadNames() const;
};

/// \throws Failure  when the file isn't readable or has no PLY header
PlyHeader readPlyHeader(const std::string& path);

/// Walks through the values up to the last one of an element.
/// \throws Failure  when the file ends before that, when a text file has words between its numbers, and for lists
///                  vertex_indices that don't hold three entries
void checkPlyBody(const std::string& path, const PlyHeader& header, const std::string& lastElement);

} // namespace zavtool
