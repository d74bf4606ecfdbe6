// What the header of a PLY file declares, as far as the tool asks for it.
#pragma once

#include <array>
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
    /// The places that three properties of vertices have among each other in the file: 2 0 1 where a file has the
    /// second one first, then the third, then the first. 0 1 2 if one isn't there.
    std::array<int, 3> getOrder(const std::array<const char*, 3>& names) const;
};

/// \throws Failure  when the file isn't readable, has no PLY header, or one that the library would misunderstand: at a
///                  line of an unknown kind it takes the rest for values, of a count like "1e3" it takes the 1
PlyHeader readPlyHeader(const std::string& path);

} // namespace zavtool
