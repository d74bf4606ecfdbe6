#include "plyHeader.h"

#include "console.h"
#include "files.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <sstream>

namespace zavtool
{
namespace
{
constexpr size_t longestHeader = size_t(1) << 20; // bytes; the library doesn't read a longer one either

std::string readBeginning(const std::string& path)
{
    std::ifstream in = openInput(path);
    std::string text(longestHeader, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(in.gcount()));
    return text;
}

/// Of equal names the first one is meant.
std::vector<std::string>::const_iterator findProperty(const PlyHeader::Element& element, const std::string& name)
{
    return std::find(element.properties.begin(), element.properties.end(), name);
}

const PlyHeader::Element* findElement(const PlyHeader& header, const std::string& name)
{
    const auto it = std::find_if(header.elements.begin(), header.elements.end(),
                                 [&](const PlyHeader::Element& element) { return element.name == name; });
    return it == header.elements.end() ? nullptr : &*it;
}

PlyHeader::Element parseElement(std::istream& words, const std::string& path, int lineNumber)
{
    PlyHeader::Element element;
    std::string count;
    words >> element.name >> count;
    const char* const last = count.data() + count.size();
    const auto [end, problem] = std::from_chars(count.data(), last, element.count);
    if (problem != std::errc() || end != last)
        throw Failure(path + " has \"" + count.substr(0, 40) + "\" as the number of rows of \"" +
                      element.name.substr(0, 40) + "\" in line " + std::to_string(lineNumber) +
                      "; write it as a plain integer");
    return element;
}

/// \return the name
std::string parseProperty(std::istream& words)
{
    std::string type, name;
    words >> type;
    if (type == "list")
        words >> type >> type; // of the number of entries, and of the entries
    words >> name;
    return name;
}

/// The properties of vertices that the library makes use of, by the same rules.
std::vector<std::string> getReadNames(const PlyHeader::Element& vertex)
{
    const auto has = [&](const char* name) { return findProperty(vertex, name) != vertex.properties.end(); };
    std::vector<std::string> names = {"x", "y", "z"};
    if (has("red") && has("green") && has("blue"))
        names.insert(names.end(), {"red", "green", "blue", has("alpha") ? "alpha" : "scalar_Intensity"});
    return names;
}
} // namespace

std::uint64_t PlyHeader::getCount(const std::string& name) const
{
    const Element* const element = findElement(*this, name);
    return element == nullptr ? 0 : element->count;
}

std::vector<std::string> PlyHeader::getUnreadNames() const
{
    std::vector<std::string> names;
    if (const Element* const vertex = findElement(*this, "vertex"))
    {
        const std::vector<std::string> readNames = getReadNames(*vertex);
        for (const std::string& name : vertex->properties)
            if (std::find(readNames.begin(), readNames.end(), name) == readNames.end())
                names.push_back(name);
    }
    return names;
}

std::array<int, 3> PlyHeader::getOrder(const std::array<const char*, 3>& names) const
{
    const Element* const vertex = findElement(*this, "vertex");
    if (vertex == nullptr)
        return {0, 1, 2};
    std::array<std::ptrdiff_t, 3> columns;
    for (size_t i = 0; i < 3; ++i)
    {
        const auto it = findProperty(*vertex, names[i]);
        if (it == vertex->properties.end())
            return {0, 1, 2};
        columns[i] = it - vertex->properties.begin();
    }
    std::array<int, 3> order;
    for (size_t i = 0; i < 3; ++i)
        order[i] = static_cast<int>(
            std::count_if(columns.begin(), columns.end(), [&](std::ptrdiff_t other) { return other < columns[i]; }));
    return order;
}

PlyHeader readPlyHeader(const std::string& path)
{
    std::istringstream in(readBeginning(path));
    PlyHeader header;
    bool bBegun = false; // the first word in the file is "ply"
    int lineNumber = 0;
    for (std::string line, key; std::getline(in, line);)
    {
        ++lineNumber;
        std::istringstream words(line);
        if (!(words >> key))
            continue;
        bBegun = bBegun || key == "ply" || key == "PLY";
        if (!bBegun)
            break;
        if (key == "end_header")
            return header;
        if (key == "element")
            header.elements.push_back(parseElement(words, path, lineNumber));
        else if (key == "property" && !header.elements.empty())
            header.elements.back().properties.push_back(parseProperty(words));
        else if (key != "ply" && key != "PLY" && key != "format" && key != "comment" && key != "obj_info")
            throw Failure(path + " has the unknown line \"" + line.substr(0, 60) + "\" in its PLY header; remove it");
    }
    throw Failure(path + " has no PLY header; check what kind of file it is");
}

} // namespace zavtool
