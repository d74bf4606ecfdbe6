#include "plyHeader.h"

#include "console.h"
#include "files.h"

#include <algorithm>
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

/// The properties of vertices that the library makes use of, by the same rules.
std::vector<std::string> getReadNames(const std::vector<std::string>& properties)
{
    const auto has = [&](const char* name)
    { return std::find(properties.begin(), properties.end(), name) != properties.end(); };
    std::vector<std::string> names = {"x", "y", "z"};
    if (has("red") && has("green") && has("blue"))
        names.insert(names.end(), {"red", "green", "blue", has("alpha") ? "alpha" : "scalar_Intensity"});
    return names;
}
} // namespace

std::uint64_t PlyHeader::getCount(const std::string& name) const
{
    const auto it = std::find_if(elements.begin(), elements.end(), [&](const Element& e) { return e.name == name; });
    return it == elements.end() ? 0 : it->count;
}

std::vector<std::string> PlyHeader::getUnreadNames() const
{
    std::vector<std::string> names;
    for (const Element& element : elements)
    {
        if (element.name != "vertex")
            continue;
        const std::vector<std::string> readNames = getReadNames(element.properties);
        for (const std::string& name : element.properties)
            if (std::find(readNames.begin(), readNames.end(), name) == readNames.end())
                names.push_back(name);
        break; // of equal names the first one is meant
    }
    return names;
}

PlyHeader readPlyHeader(const std::string& path)
{
    std::istringstream in(readBeginning(path));
    PlyHeader header;
    bool bBegun = false; // the first word in the file is "ply"
    for (std::string line, key; std::getline(in, line);)
    {
        std::istringstream words(line);
        if (!(words >> key))
            continue;
        bBegun = bBegun || key == "ply" || key == "PLY";
        if (!bBegun)
            break;
        if (key == "end_header")
            return header;
        if (key == "element")
        {
            PlyHeader::Element& element = header.elements.emplace_back();
            words >> element.name >> element.count;
        }
        else if (key == "property" && !header.elements.empty())
        {
            for (std::string name; words >> name;)
                key = name; // the last word
            header.elements.back().properties.push_back(key);
        }
        else if (key != "ply" && key != "PLY" && key != "format" && key != "comment" && key != "obj_info")
            throw Failure(path + " has the unknown line \"" + line.substr(0, 60) + "\" in its PLY header; remove it");
    }
    throw Failure(path + " has no PLY header; check what kind of file it is");
}

} // namespace zavtool
