#include "plyCheck.h"

#include "console.h"
#include "files.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

namespace zavtool
{
namespace
{
constexpr int maxHeaderLines = 100000;

/// Bytes of a value by its name in a header; 0 for an unknown name.
std::uint64_t getSize(const std::string& type)
{
    if (type == "char" || type == "uchar" || type == "int8" || type == "uint8")
        return 1;
    if (type == "short" || type == "ushort" || type == "int16" || type == "uint16")
        return 2;
    if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" || type == "float32")
        return 4;
    if (type == "double" || type == "float64")
        return 8;
    return 0;
}

PlyHeader::Property parseProperty(std::istream& words)
{
    PlyHeader::Property property;
    std::string type;
    words >> type;
    if (type == "list")
    {
        words >> type;
        property.countSize = std::max<std::uint64_t>(getSize(type), 1);
        property.bFloatCount = type[0] == 'f' || type[0] == 'd';
        words >> type;
    }
    property.size = getSize(type);
    words >> property.name;
    return property;
}

/// The values of a file one after the other.
class Values
{
public:
    virtual ~Values() = default;
    /// False at the end of the file.
    virtual bool skip(std::uint64_t numRows, const std::vector<PlyHeader::Property>& row) = 0;
    virtual bool skipValues(std::uint64_t n, std::uint64_t size) = 0;
    virtual bool readCount(const PlyHeader::Property& list, std::uint64_t& count) = 0;
};

class BinaryValues : public Values
{
public:
    BinaryValues(std::istream& inArg, std::uint64_t numBytes, bool bBigEndianArg)
        : in(inArg), left(numBytes), bBigEndian(bBigEndianArg)
    {
    }

    bool skip(std::uint64_t numRows, const std::vector<PlyHeader::Property>& row) override
    {
        std::uint64_t rowBytes = 0;
        for (const PlyHeader::Property& property : row)
            rowBytes += property.size;
        return skipValues(numRows, rowBytes);
    }

    bool skipValues(std::uint64_t n, std::uint64_t size) override
    {
        if (size != 0 && n > left / size)
            return false;
        left -= n * size;
        const auto numBytes = static_cast<std::streamoff>(n * size);
        constexpr std::streamoff shortWay = 10000; // a seek throws away what the stream has read ahead
        return static_cast<bool>(numBytes < shortWay ? in.ignore(numBytes) : in.seekg(numBytes, std::ios::cur));
    }

    bool readCount(const PlyHeader::Property& list, std::uint64_t& count) override
    {
        std::array<unsigned char, 8> bytes{};
        if (list.countSize > left || !in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(list.countSize)))
            return false;
        left -= list.countSize;
        if (bBigEndian)
            std::reverse(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(list.countSize));
        std::memcpy(&count, bytes.data(), sizeof(count));
        return true;
    }

private:
    std::istream& in;
    std::uint64_t left; // bytes
    bool bBigEndian;
};

class TextValues : public Values
{
public:
    TextValues(std::istream& inArg, const std::string& pathArg) : in(inArg), path(pathArg) {}

    bool skip(std::uint64_t numRows, const std::vector<PlyHeader::Property>& row) override
    {
        for (std::uint64_t i = 0; i < numRows && !row.empty(); ++i)
            if (!skipValues(row.size(), 0))
                return false;
        return true;
    }

    bool skipValues(std::uint64_t n, std::uint64_t) override
    {
        for (; n > 0; --n)
            if (!next())
                return false;
        return true;
    }

    bool readCount(const PlyHeader::Property&, std::uint64_t& count) override
    {
        if (!next())
            return false;
        count = std::strtoull(token.c_str(), nullptr, 10);
        return true;
    }

private:
    bool next()
    {
        std::streambuf& buffer = *in.rdbuf();
        int c = buffer.sgetc();
        while (c == ' ' || (c >= '\t' && c <= '\r'))
            c = buffer.snextc();
        token.clear();
        for (; c != std::char_traits<char>::eof() && c != ' ' && !(c >= '\t' && c <= '\r'); c = buffer.snextc())
            if (token.size() < 40) // what is longer is a number with many digits
                token += static_cast<char>(c);
        if (token.find_first_not_of("0123456789+-.eE") != std::string::npos)
            throw Failure(path + " has \"" + token + "\" where a number should be; mend or remove that row");
        return !token.empty();
    }

    std::istream& in;
    const std::string& path;
    std::string token;
};

/// False at the end of the file.
bool walkRows(const PlyHeader::Element& element, Values& values, const std::string& path)
{
    const auto isList = [](const PlyHeader::Property& property) { return property.countSize != 0; };
    if (std::none_of(element.properties.begin(), element.properties.end(), isList))
        return values.skip(element.count, element.properties);
    for (std::uint64_t row = 0; row < element.count; ++row)
        for (const PlyHeader::Property& property : element.properties)
        {
            std::uint64_t count = 1;
            if (isList(property) && !values.readCount(property, count))
                return false;
            if (property.name == "vertex_indices" && count != 3)
                throw Failure(path + " has a face of " + std::to_string(count) +
                              " corners; split its faces into triangles first");
            if (!values.skipValues(count, property.size))
                return false;
        }
    return true;
}

/// Of lists with counts in floating point nothing is known.
bool canBeWalked(const PlyHeader::Element& element)
{
    return std::none_of(element.properties.begin(), element.properties.end(),
                        [](const PlyHeader::Property& property) { return property.bFloatCount || property.size == 0; });
}
} // namespace

std::uint64_t PlyHeader::getCount(const std::string& name) const
{
    const auto it = std::find_if(elements.begin(), elements.end(), [&](const Element& e) { return e.name == name; });
    return it == elements.end() ? 0 : it->count;
}

std::vector<std::string> PlyHeader::getUnreadNames() const
{
    static const std::vector<std::string> readNames = {"x", "y", "z", "red", "green", "blue", "alpha"};
    std::vector<std::string> names;
    for (const Element& element : elements)
        if (element.name == "vertex")
            for (const Property& property : element.properties)
                if (std::find(readNames.begin(), readNames.end(), property.name) == readNames.end())
                    names.push_back(property.name);
    return names;
}

PlyHeader readPlyHeader(const std::string& path)
{
    std::ifstream in = openInput(path);
    PlyHeader header;
    std::string line, key;
    bool bBegun = false; // the first word in the file is "ply"
    for (int numLines = 0; numLines < maxHeaderLines && std::getline(in, line); ++numLines)
    {
        header.numBytes += line.size() + 1;
        std::istringstream words(line);
        if (!(words >> key))
            continue;
        bBegun = bBegun || key == "ply" || key == "PLY";
        if (!bBegun)
            break;
        if (key == "format")
        {
            words >> key;
            header.bBigEndian = key == "binary_big_endian";
            header.bBinary = header.bBigEndian || key == "binary_little_endian";
        }
        else if (key == "element")
        {
            PlyHeader::Element& element = header.elements.emplace_back();
            words >> element.name >> element.count;
        }
        else if (key == "property" && !header.elements.empty())
            header.elements.back().properties.push_back(parseProperty(words));
        else if (key == "end_header")
            return header;
    }
    throw Failure(path + " has no PLY header; check what kind of file it is");
}

void checkPlyBody(const std::string& path, const PlyHeader& header, const std::string& lastElement)
{
    std::ifstream in = openInput(path);
    const std::uint64_t size = getFileSize(path);
    in.seekg(static_cast<std::streamoff>(std::min(header.numBytes, size)));
    std::unique_ptr<Values> values;
    if (header.bBinary)
        values = std::make_unique<BinaryValues>(in, size - std::min(header.numBytes, size), header.bBigEndian);
    else
        values = std::make_unique<TextValues>(in, path);
    for (const PlyHeader::Element& element : header.elements)
    {
        if (!canBeWalked(element))
            return;
        if (!walkRows(element, *values, path))
            throw Failure(path + " is cut short; get a complete copy");
        if (element.name == lastElement)
            return;
    }
}

} // namespace zavtool
