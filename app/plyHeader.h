// What the header of a PLY file declares, as far as the tool asks for it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zavtool
{

struct PlyHeader
{
    struct Element
    {
        std::string name;
        std::uint64_t count = 0;
        std::vector<std::string> properties;
    };

    std::vector<Element> elements;

    /// Rows of the first element of the name; 0 if there is none.
    std::uint64_t getCount(const std::string& name) const;
    /// Names of the properties of vertices that the library doesn't read.
    std::vector<std::string> getUnreadNames() const;
};

/// \throws Failure  when the file isn't readable, has no PLY header, or one with a line of an unknown kind: the library
///                  would take that for the end of the header and read the rest of it as values
PlyHeader readPlyHeader(const std::string& path);

} // namespace zavtool
