#include "files/tinyply.h"

#include "files/tinyplyImpl.h"

#include <locale>
#include <sstream>

namespace PLY
{

const std::map<Type, PropertyInfo> PropertyTable = {
    {Type::INVALID, {0, "INVALID"}}, {Type::INT8, {1, "char"}},     {Type::UINT8, {1, "uchar"}},
    {Type::INT16, {2, "short"}},     {Type::UINT16, {2, "ushort"}}, {Type::INT32, {4, "int"}},
    {Type::UINT32, {4, "uint"}},     {Type::FLOAT32, {4, "float"}}, {Type::FLOAT64, {8, "double"}},
};

namespace
{
Type typeFromName(const std::string& name)
{
    static const std::map<std::string, Type> inputNames = {
        {"int8", Type::INT8},       {"char", Type::INT8},     {"uint8", Type::UINT8},     {"uchar", Type::UINT8},
        {"int16", Type::INT16},     {"short", Type::INT16},   {"uint16", Type::UINT16},   {"ushort", Type::UINT16},
        {"int32", Type::INT32},     {"int", Type::INT32},     {"uint32", Type::UINT32},   {"uint", Type::UINT32},
        {"float32", Type::FLOAT32}, {"float", Type::FLOAT32}, {"float64", Type::FLOAT64}, {"double", Type::FLOAT64},
    };
    const auto it = inputNames.find(name);
    return it == inputNames.end() ? Type::INVALID : it->second;
}

/// 32-bit FNV-1a. The key of a property is the hash of its element's name and its own, one behind the other.
std::uint32_t hashOf(const std::string& text)
{
    std::uint32_t hash = 0x811c9dc5u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    return hash;
}

bool fitsCount(Type listType, size_t listCount)
{
    return withType(listType,
                    [listCount](auto kind)
                    {
                        using T = decltype(kind);
                        return static_cast<double>(listCount) <= static_cast<double>(std::numeric_limits<T>::max());
                    });
}

} // namespace

void PlyBuffer::allocate(size_t numBytes)
{
    owner.assign(numBytes, 0);
    data = owner.data();
    size = numBytes;
}

void PlyBuffer::growTo(size_t numBytes)
{
    owner.resize(numBytes);
    data = owner.data();
    size = numBytes;
}

void PlyBuffer::refer(std::uint8_t* bytes, size_t numBytes)
{
    owner.clear();
    data = bytes;
    size = numBytes;
}

namespace
{
/// The lines of a header, one after the other. The limits are far above what any file needs: bytes that claim to be a
/// header and never end must not fill the memory.
class HeaderLines
{
public:
    explicit HeaderLines(std::istream& is) : in(is), buffer(longestLine + 1, '\0') {}

    /// False at the end of the stream.
    bool next(std::string& line)
    {
        in.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const auto numRead = static_cast<size_t>(in.gcount()); // with the end of line, where there is one
        if (in.bad() || (in.fail() && numRead == 0))
            return false;
        numBytes += numRead;
        if (in.fail() || numBytes > longestHeader)
            throw std::runtime_error("header too long");
        line.assign(buffer, 0, in.eof() ? numRead : numRead - 1);
        return true;
    }

private:
    static constexpr size_t longestLine = size_t(1) << 16;
    static constexpr size_t longestHeader = size_t(1) << 20;

    std::istream& in;
    std::string buffer;
    size_t numBytes = 0;
};
} // namespace

bool PlyFile::PlyFileImpl::parse_header(std::istream& is)
{
    HeaderLines lines(is);
    std::string text;
    while (lines.next(text))
    {
        std::istringstream line(text);
        line.imbue(std::locale::classic());
        std::string token;
        line >> token;
        if (token.empty() || token == "ply" || token == "PLY")
            continue;
        if (token == "comment")
            comments.push_back(text.erase(0, 8));
        else if (token == "format")
            header_format(line);
        else if (token == "element")
            header_element(line);
        else if (token == "property")
            header_property(line);
        else if (token != "obj_info") // remarks on the object as a whole, of which nothing is kept
            return token == "end_header";
    }
    return true;
}

void PlyFile::PlyFileImpl::header_format(std::istream& line)
{
    std::string format;
    line >> format;
    if (format == "binary_little_endian")
        isBinary = true;
    else if (format == "binary_big_endian")
        isBinary = isBigEndian = true;
}

void PlyFile::PlyFileImpl::header_element(std::istream& line)
{
    PlyElement element;
    line >> element.name >> element.size;
    elements.push_back(std::move(element));
}

void PlyFile::PlyFileImpl::header_property(std::istream& line)
{
    if (elements.empty())
        throw std::runtime_error("no elements defined; file is malformed");
    PlyProperty property;
    std::string typeName;
    line >> typeName;
    property.isList = typeName == "list";
    if (property.isList)
    {
        std::string countTypeName;
        line >> countTypeName >> typeName;
        property.listType = typeFromName(countTypeName);
    }
    property.propertyType = typeFromName(typeName);
    line >> property.name;
    elements.back().properties.push_back(std::move(property));
}

size_t PlyFile::PlyFileImpl::findElement(const std::string& name) const
{
    const auto hasName = [&name](const PlyElement& element) { return element.name == name; };
    return static_cast<size_t>(std::find_if(elements.begin(), elements.end(), hasName) - elements.begin());
}

std::shared_ptr<PlyData> PlyFile::PlyFileImpl::request(const std::string& elementKey,
                                                       const std::vector<std::string>& propertyKeys,
                                                       size_t listSizeHint)
{
    if (elements.empty())
        throw std::runtime_error("header had no elements defined. malformed file?");
    if (elementKey.empty())
        throw std::invalid_argument("`elementKey` argument is empty");
    if (propertyKeys.empty())
        throw std::invalid_argument("`propertyKeys` argument is empty");
    const size_t elementIndex = findElement(elementKey);
    if (elementIndex == elements.size())
        throw std::invalid_argument("the element key was not found in the header: " + elementKey);
    PlyElement& element = elements[elementIndex];

    std::map<std::uint32_t, size_t> found; // hash, index of the property
    std::string notFound;
    for (const std::string& key : propertyKeys)
    {
        const auto hasName = [&key](const PlyProperty& property) { return property.name == key; };
        const auto it = std::find_if(element.properties.begin(), element.properties.end(), hasName);
        if (it == element.properties.end())
        {
            notFound += (notFound.empty() ? "" : ", ") + key;
            continue;
        }
        const std::uint32_t hash = hashOf(elementKey + key);
        if (userData.count(hash) != 0 || !found.emplace(hash, it - element.properties.begin()).second)
            throw std::invalid_argument("element-property key has already been requested: " + key);
    }
    if (!notFound.empty())
        throw std::invalid_argument("the following property keys were not found in the header: " + notFound);

    const PlyProperty& first = element.properties[found.begin()->second];
    for (const auto& [hash, index] : found)
        if (element.properties[index].propertyType != first.propertyType ||
            element.properties[index].isList != first.isList)
            throw std::invalid_argument("properties of different types can't be requested together: " + first.name +
                                        ", " + element.properties[index].name);

    ParsingHelper helper{std::make_shared<PlyData>(), std::make_shared<PlyDataCursor>(), 0, elementIndex, 0};
    helper.data->t = first.propertyType;
    helper.data->isList = first.isList;
    helper.data->count = element.size;
    helper.cursor->listSizeHint = first.isList ? listSizeHint : 0;
    helper.rowBytes = checkedProduct(found.size() * strideOf(first.propertyType), first.isList ? listSizeHint : 1);
    for (const auto& [hash, index] : found)
    {
        helper.propertyIndex = index;
        if (first.isList)
            element.properties[index].listCount = listSizeHint;
        userData.emplace(hash, helper);
    }
    return helper.data;
}

PlyFile::PlyFileImpl::LookupTable PlyFile::PlyFileImpl::make_property_lookup_table()
{
    LookupTable table(elements.size());
    for (size_t i = 0; i < elements.size(); ++i)
        for (size_t j = 0; j < elements[i].properties.size(); ++j)
        {
            const PlyProperty& property = elements[i].properties[j];
            PropertyLookup lookup;
            lookup.type = property.propertyType;
            lookup.listType = property.listType;
            lookup.prop_stride = strideOf(property.propertyType);
            lookup.list_stride = property.isList ? strideOf(property.listType) : 0;
            if (elements[i].size != 0 && (lookup.prop_stride == 0 || (property.isList && lookup.list_stride == 0)))
                throw std::invalid_argument("invalid ply property");
            table[i].push_back(lookup);
        }
    for (auto& [key, helper] : userData)
    {
        PropertyLookup& lookup = table[helper.elementIndex][helper.propertyIndex];
        lookup.helper = &helper;
        lookup.skip = false;
    }
    return table;
}

void PlyFile::PlyFileImpl::add(const std::string& elementKey, const std::vector<std::string>& propertyKeys, Type type,
                               size_t count, std::uint8_t* data, Type listType, size_t listCount)
{
    const bool isList = listType != Type::INVALID;
    if (isList && !fitsCount(listType, listCount))
        throw std::invalid_argument("lists too long for the type of their count");
    const size_t elementIndex = findElement(elementKey);
    if (elementIndex == elements.size())
        elements.push_back({elementKey, count, {}});
    PlyElement& element = elements[elementIndex];
    if (element.size != count)
        throw std::invalid_argument("number of rows differs from that of the element: " + elementKey);

    ParsingHelper helper{std::make_shared<PlyData>(), std::make_shared<PlyDataCursor>(), 0, elementIndex, 0};
    helper.data->t = type;
    helper.data->isList = isList;
    helper.data->count = count;
    helper.rowBytes = checkedProduct(propertyKeys.size() * strideOf(type), isList ? listCount : 1);
    helper.data->buffer.refer(data, checkedProduct(count, helper.rowBytes));
    for (const std::string& key : propertyKeys)
    {
        helper.propertyIndex = element.properties.size();
        if (!userData.emplace(hashOf(elementKey + key), helper).second)
            throw std::invalid_argument("element-property key has already been added: " + key);
        element.properties.push_back({key, type, isList, listType, isList ? listCount : 0});
    }
}

/// Properties that were requested together share their PlyData: one helper for each of these.
std::vector<PlyFile::PlyFileImpl::ParsingHelper*> PlyFile::PlyFileImpl::groups()
{
    std::map<const PlyData*, ParsingHelper*> byData;
    for (auto& [key, helper] : userData)
        byData.emplace(helper.data.get(), &helper);
    std::vector<ParsingHelper*> result;
    for (const auto& [data, helper] : byData)
        result.push_back(helper);
    return result;
}

void PlyFile::PlyFileImpl::resetCursors()
{
    for (ParsingHelper* const helper : groups())
        helper->cursor->byteOffset = 0;
}

PlyFile::PlyFile() : impl(std::make_unique<PlyFileImpl>())
{
}
PlyFile::~PlyFile() = default;

bool PlyFile::parse_header(std::istream& is)
{
    return impl->parse_header(is);
}

std::shared_ptr<PlyData> PlyFile::request_properties_from_element(const std::string& elementKey,
                                                                  std::vector<std::string> propertyKeys,
                                                                  size_t listSizeHint)
{
    return impl->request(elementKey, propertyKeys, listSizeHint);
}

void PlyFile::read(std::istream& is)
{
    impl->read(is);
}

void PlyFile::add_properties_to_element(const std::string& elementKey, const std::vector<std::string>& propertyKeys,
                                        Type type, size_t count, std::uint8_t* data, Type listType, size_t listCount)
{
    impl->add(elementKey, propertyKeys, type, count, data, listType, listCount);
}

void PlyFile::write(std::ostream& os, bool isBinary)
{
    impl->write(os, isBinary);
}

bool PlyFile::isComplete() const
{
    return impl->bComplete;
}

const std::vector<PlyElement>& PlyFile::getElements() const
{
    return impl->elements;
}

std::vector<std::string>& PlyFile::getComments()
{
    return impl->comments;
}

} // namespace PLY
