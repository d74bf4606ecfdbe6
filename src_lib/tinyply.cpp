#include "tinyply.h"

#include "BlockBuffer.h"
#include "BlockWriter.h"
#include "numberScan.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <type_traits>
#include <unordered_map>

namespace PLY
{
using MIRT_ZAV::BlockBuffer;
using MIRT_ZAV::BlockWriter;

const std::map<Type, PropertyInfo> PropertyTable = {
    {Type::INVALID, {0, "INVALID"}}, {Type::INT8, {1, "char"}},     {Type::UINT8, {1, "uchar"}},
    {Type::INT16, {2, "short"}},     {Type::UINT16, {2, "ushort"}}, {Type::INT32, {4, "int"}},
    {Type::UINT32, {4, "uint"}},     {Type::FLOAT32, {4, "float"}}, {Type::FLOAT64, {8, "double"}},
};

namespace
{
/// A file may end this much too early and still counts as one that was cut off, not as one with a false header.
constexpr std::uint64_t toleratedShortfall = std::uint64_t(1) << 24;

/// Buffers may be this much longer than the file: 12 bytes stand for the one of an empty list that was expected to be a
/// triangle, 8 for the two of a number in text.
constexpr std::uint64_t maxExpansion = 16;

constexpr size_t blockBytes = size_t(1) << 17; // of rows, written at a time

size_t strideOf(Type type)
{
    return PropertyTable.at(type).stride;
}

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

/// Calls f with a value of the C++ type that a Type stands for.
template <class F>
auto withType(Type type, const F& f)
{
    switch (type)
    {
    case Type::INT8:
        return f(std::int8_t());
    case Type::UINT8:
        return f(std::uint8_t());
    case Type::INT16:
        return f(std::int16_t());
    case Type::UINT16:
        return f(std::uint16_t());
    case Type::INT32:
        return f(std::int32_t());
    case Type::UINT32:
        return f(std::uint32_t());
    case Type::FLOAT32:
        return f(float());
    case Type::FLOAT64:
        return f(double());
    default:
        throw std::invalid_argument("invalid ply property");
    }
}

template <class T>
T loadAs(const void* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

/// 32-bit FNV-1a.
std::uint32_t hashOf(const std::string& text)
{
    std::uint32_t hash = 0x811c9dc5u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    return hash;
}

/// a * b, or an exception: sizes from a header can be anything.
std::uint64_t checkedProduct(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product) || product > std::uint64_t(std::numeric_limits<std::ptrdiff_t>::max()))
        throw std::runtime_error("declared size out of range");
    return product;
}

std::uint64_t checkedSum(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        throw std::runtime_error("declared size out of range");
    return sum;
}

/// The number of bytes from the stream's position to its end, or -1 when the stream can't tell.
std::int64_t bytesLeft(std::istream& is)
{
    is.clear(); // a header without an end leaves the stream at its end
    const std::istream::pos_type here = is.tellg();
    if (here == std::istream::pos_type(-1))
        return -1;
    is.seekg(0, std::ios::end);
    const std::int64_t left = static_cast<std::int64_t>(is.tellg() - here);
    is.clear();
    is.seekg(here);
    return left;
}

void swapBytes(std::uint8_t* bytes, size_t numBytes, size_t stride)
{
    for (size_t i = 0; i + stride <= numBytes; i += stride)
        std::reverse(bytes + i, bytes + i + stride);
}

/// Bytes that stand together both in the rows of the file and in the rows of a buffer.
struct Run
{
    size_t offset; // in the file's row
    size_t numBytes;
    std::uint8_t* data; // in the first row of the buffer
    size_t stride;      // from row to row of the buffer; 0 for a constant
};

/// Rows of one length in a binary file.
struct RowPlan
{
    size_t numBytes = 0;
    std::vector<Run> runs;

    void skip(size_t n) { numBytes += n; }
    void add(std::uint8_t* data, size_t n, size_t stride)
    {
        if (!runs.empty())
        {
            Run& last = runs.back();
            if (last.stride == stride && last.offset + last.numBytes == numBytes && last.data + last.numBytes == data)
            {
                last.numBytes += n;
                numBytes += n;
                return;
            }
        }
        runs.push_back({numBytes, n, data, stride});
        numBytes += n;
    }
};

template <size_t N>
void copyFixed(std::uint8_t* to, size_t toStride, const std::uint8_t* from, size_t fromStride, size_t numRows)
{
    for (size_t i = 0; i < numRows; ++i, to += toStride, from += fromStride)
        std::memcpy(to, from, N);
}

/// Copies n bytes per row. The common lengths have loops of their own, without a call per row.
void copyRows(std::uint8_t* to, size_t toStride, const std::uint8_t* from, size_t fromStride, size_t n, size_t numRows)
{
    switch (n)
    {
    case 1:
        return copyFixed<1>(to, toStride, from, fromStride, numRows);
    case 3:
        return copyFixed<3>(to, toStride, from, fromStride, numRows);
    case 4:
        return copyFixed<4>(to, toStride, from, fromStride, numRows);
    case 12:
        return copyFixed<12>(to, toStride, from, fromStride, numRows);
    case 24:
        return copyFixed<24>(to, toStride, from, fromStride, numRows);
    default:
        for (size_t i = 0; i < numRows; ++i, to += toStride, from += fromStride)
            std::memcpy(to, from, n);
    }
}

/// The number of entries of a list, from the value that stands before them.
std::uint64_t listCountFrom(Type listType, const std::uint8_t* bytes)
{
    return withType(listType,
                    [bytes](auto kind)
                    {
                        using T = decltype(kind);
                        const T count = loadAs<T>(bytes);
                        constexpr double limit = 9007199254740992.0; // also keeps a count in floating point convertible
                        if (!(count >= T(0)) || static_cast<double>(count) > limit)
                            throw std::runtime_error("list count out of range");
                        return static_cast<std::uint64_t>(count);
                    });
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

void putValue(BlockWriter& out, Type type, const std::uint8_t* bytes)
{
    withType(type,
             [&](auto kind)
             {
                 using T = decltype(kind);
                 using Printed = std::conditional_t<std::is_floating_point_v<T>, double, long long>;
                 out.putNumber(static_cast<Printed>(loadAs<T>(bytes)));
             });
}

/// Values in text, as operator>> reads them: the fast way where that is the same, else by a stream on the same bytes.
class TextValues
{
public:
    explicit TextValues(BlockBuffer& buffer) : in(buffer), stream(&buffer) { stream.imbue(std::locale::classic()); }

    /// False after a text that isn't a value, or at the end: as in a stream, nothing is read from then on.
    bool ok() const { return !stream.fail(); }

    /// Reads a value of the type into bytes, which hold the type's size; 8-bit values through an int.
    void readValue(Type type, std::uint8_t* bytes)
    {
        withType(type,
                 [&](auto kind)
                 {
                     using T = decltype(kind);
                     const T value = sizeof(T) == 1 ? static_cast<T>(read<int>()) : read<T>();
                     std::memcpy(bytes, &value, sizeof(T));
                 });
    }

    void skipValue()
    {
        const char* last = MIRT_ZAV::skipBlanks(in.begin(), in.end());
        while (last != in.end() && !MIRT_ZAV::isBlank(*last))
            ++last;
        if (last != in.end() && ok())
            in.advance(static_cast<size_t>(last - in.begin()));
        else
            stream >> skipped;
    }

private:
    template <class T>
    T read()
    {
        T value{};
        const char* const first = MIRT_ZAV::skipBlanks(in.begin(), in.end());
        const char* const last = MIRT_ZAV::scanNumber(first, in.end(), value);
        if (last != nullptr && last != in.end() && ok())
        {
            in.advance(static_cast<size_t>(last - in.begin()));
            return value;
        }
        value = T{};
        stream >> value;
        return value;
    }

    BlockBuffer& in;
    std::istream stream;
    std::string skipped;
};
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

struct PlyFile::PlyFileImpl
{
    struct PlyDataCursor
    {
        size_t byteOffset = 0;
        size_t listSizeHint = 0;
    };

    struct ParsingHelper
    {
        std::shared_ptr<PlyData> data;
        std::shared_ptr<PlyDataCursor> cursor;
        size_t rowBytes = 0; // of the whole group; of lists, as far as the width is known
        // The one place in the header that is meant: a hash or a name that occurs again elsewhere is something else.
        size_t elementIndex = 0;
        size_t propertyIndex = 0;

        void append(const void* bytes, size_t n);
    };

    struct PropertyLookup
    {
        ParsingHelper* helper = nullptr;
        bool skip = true;
        Type type = Type::INVALID;
        Type listType = Type::INVALID;
        size_t prop_stride = 0;
        size_t list_stride = 0; // 0 for plain values
    };
    /// A property to be written.
    struct Column
    {
        Type type = Type::INVALID;
        size_t stride = 0;
        size_t numValues = 1; // entries of each list
        std::uint8_t* data = nullptr;
        size_t rowStride = 0;
        size_t countStride = 0; // 0 for plain values
        std::uint8_t countBytes[8] = {};
    };
    using LookupTable = std::vector<std::vector<PropertyLookup>>; // by element, property

    std::unordered_map<std::uint32_t, ParsingHelper> userData;
    bool isBinary = false;
    bool isBigEndian = false;
    std::vector<PlyElement> elements;
    std::vector<std::string> comments;
    std::vector<std::string> objInfo;

    bool parse_header(std::istream& is);
    std::shared_ptr<PlyData> request(const std::string& elementKey, const std::vector<std::string>& propertyKeys,
                                     size_t listSizeHint);
    void read(std::istream& is);
    void add(const std::string& elementKey, const std::vector<std::string>& propertyKeys, Type type, size_t count,
             std::uint8_t* data, Type listType, size_t listCount);
    void write(std::ostream& os, bool bBinary);

private:
    void header_format(std::istream& line);
    void header_element(std::istream& line);
    void header_property(std::istream& line);

    size_t findElement(const std::string& name) const;
    LookupTable make_property_lookup_table();
    std::vector<ParsingHelper*> groups();
    size_t numElementsToRead() const;
    void resetCursors();

    void readSeekable(std::istream& is, std::uint64_t numBytesLeft);
    void checkSizes(const LookupTable& table, std::uint64_t numBytesLeft);
    bool needsFirstPass() const;
    void allocateBuffers();
    void parse_data(std::istream& is, LookupTable& table, bool firstPass);
    static RowPlan planRows(const std::vector<PropertyLookup>& lookups);
    static void parseFixedRows(BlockBuffer& in, std::uint64_t numRows, const RowPlan& plan);
    static void takeBytes(BlockBuffer& in, std::uint64_t n, PropertyLookup& lookup, bool firstPass);
    void parseListRows(BlockBuffer& in, std::uint64_t numRows, std::vector<PropertyLookup>& lookups, bool firstPass);
    static void parseTextRows(TextValues& values, std::uint64_t numRows, std::vector<PropertyLookup>& lookups,
                              bool firstPass);
    void swapBuffers();

    void writeHeader(std::ostream& os) const;
    void checkWritable(const LookupTable& table) const;
    static std::vector<Column> columnsOf(const PlyElement& element, const std::vector<PropertyLookup>& lookups);
    static void writeTextRows(BlockWriter& out, std::uint64_t numRows, const std::vector<Column>& columns);
    void writeBinaryRows(BlockWriter& out, std::uint64_t numRows, std::vector<Column>& columns) const;
    static void swapRows(std::uint8_t* bytes, size_t numRows, const std::vector<Column>& columns);
};

// ---- header ----

bool PlyFile::PlyFileImpl::parse_header(std::istream& is)
{
    std::string text;
    while (std::getline(is, text))
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
        else if (token == "obj_info")
            objInfo.push_back(text.erase(0, 9));
        else
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

// ---- requests ----

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
            const auto it = userData.find(hashOf(elements[i].name + property.name));
            if (it != userData.end() && it->second.elementIndex == i && it->second.propertyIndex == j)
                lookup.helper = &it->second;
            lookup.skip = lookup.helper == nullptr;
            lookup.type = property.propertyType;
            lookup.listType = property.listType;
            lookup.prop_stride = strideOf(property.propertyType);
            lookup.list_stride = property.isList ? strideOf(property.listType) : 0;
            if (elements[i].size != 0 && (lookup.prop_stride == 0 || (property.isList && lookup.list_stride == 0)))
                throw std::invalid_argument("invalid ply property");
            table[i].push_back(lookup);
        }
    return table;
}

// ---- reading ----

void PlyFile::PlyFileImpl::read(std::istream& is)
{
    const std::int64_t left = bytesLeft(is);
    if (left >= 0)
        return readSeekable(is, static_cast<std::uint64_t>(left));
    is.clear(); // a pipe: its length isn't known before it has been read
    std::stringstream rest(std::ios::in | std::ios::out | std::ios::binary);
    BlockBuffer in(is);
    for (; !in.atEnd(); in.advance(in.available()))
        rest.write(in.begin(), static_cast<std::streamsize>(in.available()));
    readSeekable(rest, static_cast<std::uint64_t>(rest.tellp()));
}

void PlyFile::PlyFileImpl::readSeekable(std::istream& is, std::uint64_t numBytesLeft)
{
    LookupTable table = make_property_lookup_table();
    checkSizes(table, numBytesLeft);
    resetCursors();
    if (needsFirstPass())
    {
        const std::istream::pos_type start = is.tellg();
        parse_data(is, table, true);
        is.clear();
        is.seekg(start);
    }
    allocateBuffers();
    resetCursors();
    parse_data(is, table, false);
    if (isBigEndian)
        swapBuffers();
}

/// One helper for each PlyData.
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

size_t PlyFile::PlyFileImpl::numElementsToRead() const
{
    size_t num = 0;
    for (const auto& [key, helper] : userData)
        num = std::max(num, helper.elementIndex + 1);
    return num;
}

void PlyFile::PlyFileImpl::resetCursors()
{
    for (ParsingHelper* const helper : groups())
        helper->cursor->byteOffset = 0;
}

/// The least that the declared rows take in the file must be there, or nearly: it bounds every loop and allocation.
void PlyFile::PlyFileImpl::checkSizes(const LookupTable& table, std::uint64_t numBytesLeft)
{
    std::uint64_t least = 0;
    for (size_t i = 0; i < numElementsToRead(); ++i)
    {
        std::uint64_t rowBytes = 0;
        for (const PropertyLookup& lookup : table[i])
            rowBytes += !isBinary ? 2 : lookup.list_stride != 0 ? lookup.list_stride : lookup.prop_stride;
        least = checkedSum(least, checkedProduct(elements[i].size, rowBytes));
    }
    if (least > checkedSum(numBytesLeft, toleratedShortfall))
        throw std::runtime_error("the file is too short for what its header declares");

    std::uint64_t buffers = 0;
    for (const ParsingHelper* const helper : groups())
        buffers = checkedSum(buffers, checkedProduct(helper->data->count, helper->rowBytes));
    if (buffers > checkedSum(checkedProduct(numBytesLeft, maxExpansion), toleratedShortfall))
        throw std::runtime_error("the file is too short for what its header declares");
}

bool PlyFile::PlyFileImpl::needsFirstPass() const
{
    return std::any_of(userData.begin(), userData.end(),
                       [](const auto& entry)
                       { return entry.second.data->isList && entry.second.cursor->listSizeHint == 0; });
}

void PlyFile::PlyFileImpl::allocateBuffers()
{
    for (ParsingHelper* const helper : groups())
    {
        const bool bCounted = helper->data->isList && helper->cursor->listSizeHint == 0;
        helper->data->buffer.allocate(bCounted ? helper->cursor->byteOffset
                                               : checkedProduct(helper->data->count, helper->rowBytes));
    }
}

void PlyFile::PlyFileImpl::parse_data(std::istream& is, LookupTable& table, bool firstPass)
{
    BlockBuffer in(is);
    TextValues values(in);
    for (size_t i = 0; i < numElementsToRead(); ++i)
    {
        if (table[i].empty())
            continue; // rows without properties are no bytes, however many there are
        const bool hasList =
            std::any_of(table[i].begin(), table[i].end(), [](const auto& lookup) { return lookup.list_stride != 0; });
        if (!isBinary)
            parseTextRows(values, elements[i].size, table[i], firstPass);
        else if (hasList)
            parseListRows(in, elements[i].size, table[i], firstPass);
        else if (firstPass)
            in.skip(elements[i].size * planRows(table[i]).numBytes);
        else
            parseFixedRows(in, elements[i].size, planRows(table[i]));
    }
}

RowPlan PlyFile::PlyFileImpl::planRows(const std::vector<PropertyLookup>& lookups)
{
    RowPlan plan;
    std::map<const PlyData*, size_t> taken; // bytes of each group's row
    for (const PropertyLookup& lookup : lookups)
    {
        if (lookup.skip)
        {
            plan.skip(lookup.prop_stride);
            continue;
        }
        PlyData& data = *lookup.helper->data;
        size_t& offset = taken[&data];
        plan.add(data.buffer.get() + offset, lookup.prop_stride, lookup.helper->rowBytes);
        offset += lookup.prop_stride;
    }
    return plan;
}

void PlyFile::PlyFileImpl::parseFixedRows(BlockBuffer& in, std::uint64_t numRows, const RowPlan& plan)
{
    for (std::uint64_t row = 0; row < numRows;)
    {
        if (!in.require(plan.numBytes))
        {
            // Cut off within a row: what is there of it counts.
            for (const Run& run : plan.runs)
                if (run.offset < in.available())
                    std::memcpy(run.data + row * run.stride, in.begin() + run.offset,
                                std::min(run.numBytes, in.available() - run.offset));
            in.advance(in.available());
            return;
        }
        const size_t num = std::min<std::uint64_t>(in.available() / plan.numBytes, numRows - row);
        const auto* const from = reinterpret_cast<const std::uint8_t*>(in.begin());
        for (const Run& run : plan.runs)
            copyRows(run.data + row * run.stride, run.stride, from + run.offset, plan.numBytes, run.numBytes, num);
        in.advance(num * plan.numBytes);
        row += num;
    }
}

void PlyFile::PlyFileImpl::ParsingHelper::append(const void* bytes, size_t n)
{
    if (cursor->byteOffset + n > data->buffer.sizeInBytes())
        data->buffer.growTo(cursor->byteOffset + n); // lists longer than the hint
    std::memcpy(data->buffer.get() + cursor->byteOffset, bytes, n);
    cursor->byteOffset += n;
}

void PlyFile::PlyFileImpl::takeBytes(BlockBuffer& in, std::uint64_t n, PropertyLookup& lookup, bool firstPass)
{
    if (lookup.skip)
    {
        in.skip(n);
        return;
    }
    while (n != 0 && !in.atEnd())
    {
        const size_t part = std::min<std::uint64_t>(n, in.available());
        if (firstPass)
            lookup.helper->cursor->byteOffset += part;
        else
            lookup.helper->append(in.begin(), part);
        in.advance(part);
        n -= part;
    }
}

void PlyFile::PlyFileImpl::parseListRows(BlockBuffer& in, std::uint64_t numRows, std::vector<PropertyLookup>& lookups,
                                         bool firstPass)
{
    for (std::uint64_t row = 0; row < numRows && !in.atEnd(); ++row)
        for (PropertyLookup& lookup : lookups)
        {
            std::uint64_t numValues = 1;
            if (lookup.list_stride != 0)
            {
                if (!in.require(lookup.list_stride))
                {
                    in.advance(in.available());
                    return;
                }
                std::uint8_t count[8];
                std::memcpy(count, in.begin(), lookup.list_stride);
                in.advance(lookup.list_stride);
                if (isBigEndian)
                    swapBytes(count, lookup.list_stride, lookup.list_stride);
                numValues = listCountFrom(lookup.listType, count);
            }
            takeBytes(in, numValues * lookup.prop_stride, lookup, firstPass);
        }
}

void PlyFile::PlyFileImpl::parseTextRows(TextValues& values, std::uint64_t numRows,
                                         std::vector<PropertyLookup>& lookups, bool firstPass)
{
    std::uint8_t value[8] = {};
    for (std::uint64_t row = 0; row < numRows; ++row)
        for (PropertyLookup& lookup : lookups)
        {
            std::uint64_t numValues = 1;
            if (lookup.list_stride != 0)
            {
                values.readValue(lookup.listType, value);
                numValues = listCountFrom(lookup.listType, value);
            }
            for (std::uint64_t i = 0; i < numValues && values.ok(); ++i)
            {
                if (lookup.skip)
                {
                    values.skipValue();
                    continue;
                }
                values.readValue(lookup.type, value);
                if (firstPass)
                    lookup.helper->cursor->byteOffset += lookup.prop_stride;
                else
                    lookup.helper->append(value, lookup.prop_stride);
            }
            if (!values.ok())
                return;
        }
}

void PlyFile::PlyFileImpl::swapBuffers()
{
    for (ParsingHelper* const helper : groups())
    {
        PlyData& data = *helper->data;
        if (data.t == Type::INVALID)
            std::cout << "unhandled type" << std::endl;
        else
            swapBytes(data.buffer.get(), data.buffer.sizeInBytes(), strideOf(data.t));
    }
}

// ---- writing ----

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

void PlyFile::PlyFileImpl::write(std::ostream& os, bool bBinary)
{
    isBinary = bBinary;
    const LookupTable table = make_property_lookup_table();
    checkWritable(table);
    resetCursors();
    writeHeader(os);
    BlockWriter out(os, static_cast<int>(os.precision()));
    for (size_t i = 0; i < elements.size(); ++i)
    {
        std::vector<Column> columns = columnsOf(elements[i], table[i]);
        if (columns.empty())
            continue; // no rows, or nothing in them
        if (isBinary)
            writeBinaryRows(out, elements[i].size, columns);
        else
            writeTextRows(out, elements[i].size, columns);
    }
    out.flush();
}

void PlyFile::PlyFileImpl::checkWritable(const LookupTable& table) const
{
    for (size_t i = 0; i < elements.size(); ++i)
        for (size_t j = 0; j < table[i].size() && elements[i].size != 0; ++j)
        {
            const ParsingHelper* const helper = table[i][j].helper;
            // What was read can be written again, but for lists whose width nobody knows.
            if (helper == nullptr || helper->data->buffer.sizeInBytes() == 0 || helper->data->buffer.get() == nullptr ||
                helper->data->buffer.sizeInBytes() != elements[i].size * helper->rowBytes)
                throw std::runtime_error("no data for the property: " + elements[i].properties[j].name);
        }
}

void PlyFile::PlyFileImpl::writeHeader(std::ostream& os) const
{
    std::ostringstream header;
    header.imbue(std::locale::classic());
    const char* const binaryFormat = isBigEndian ? "binary_big_endian" : "binary_little_endian";
    header << "ply\nformat " << (isBinary ? binaryFormat : "ascii") << " 1.0\n";
    for (const std::string& comment : comments)
        header << "comment " << comment << "\n";
    for (const PlyElement& element : elements)
    {
        header << "element " << element.name << " " << element.size << "\n";
        for (const PlyProperty& property : element.properties)
        {
            header << "property ";
            if (property.isList)
                header << "list " << PropertyTable.at(property.listType).name << " ";
            header << PropertyTable.at(property.propertyType).name << " " << property.name << "\n";
        }
    }
    header << "end_header\n";
    os << header.str();
}

std::vector<PlyFile::PlyFileImpl::Column> PlyFile::PlyFileImpl::columnsOf(const PlyElement& element,
                                                                          const std::vector<PropertyLookup>& lookups)
{
    std::vector<Column> columns;
    if (element.size == 0)
        return columns;
    std::map<const PlyData*, size_t> taken; // bytes of each group's row
    for (size_t j = 0; j < lookups.size(); ++j)
    {
        const PlyProperty& property = element.properties[j];
        const ParsingHelper& helper = *lookups[j].helper;
        size_t& offset = taken[helper.data.get()];
        Column column;
        column.type = property.propertyType;
        column.stride = lookups[j].prop_stride;
        column.numValues = property.isList ? property.listCount : 1;
        column.data = helper.data->buffer.get() + offset;
        column.rowStride = helper.rowBytes;
        column.countStride = lookups[j].list_stride;
        if (property.isList)
            withType(property.listType,
                     [&column](auto kind)
                     {
                         const auto count = static_cast<decltype(kind)>(column.numValues);
                         std::memcpy(column.countBytes, &count, sizeof(count));
                     });
        offset += column.numValues * column.stride;
        columns.push_back(column);
    }
    return columns;
}

void PlyFile::PlyFileImpl::writeTextRows(BlockWriter& out, std::uint64_t numRows, const std::vector<Column>& columns)
{
    for (std::uint64_t row = 0; row < numRows; ++row)
    {
        for (const Column& column : columns)
        {
            if (column.countStride != 0)
            {
                out.putNumber(static_cast<long long>(column.numValues));
                out.put(' ');
            }
            const std::uint8_t* value = column.data + row * column.rowStride;
            for (size_t i = 0; i < column.numValues; ++i, value += column.stride)
            {
                putValue(out, column.type, value);
                out.put(' ');
            }
        }
        out.put('\n');
    }
}

void PlyFile::PlyFileImpl::writeBinaryRows(BlockWriter& out, std::uint64_t numRows, std::vector<Column>& columns) const
{
    RowPlan plan;
    for (Column& column : columns)
    {
        if (column.countStride != 0)
            plan.add(column.countBytes, column.countStride, 0);
        plan.add(column.data, column.numValues * column.stride, column.rowStride);
    }
    const size_t rowsPerBlock = std::max<size_t>(1, blockBytes / plan.numBytes);
    for (std::uint64_t row = 0; row < numRows;)
    {
        const size_t num = std::min<std::uint64_t>(rowsPerBlock, numRows - row);
        auto* const to = reinterpret_cast<std::uint8_t*>(out.take(num * plan.numBytes));
        for (const Run& run : plan.runs)
            copyRows(to + run.offset, plan.numBytes, run.data + row * run.stride, run.stride, run.numBytes, num);
        if (isBigEndian)
            swapRows(to, num, columns);
        row += num;
    }
}

/// Turns the values of finished rows into big-endian order.
void PlyFile::PlyFileImpl::swapRows(std::uint8_t* bytes, size_t numRows, const std::vector<Column>& columns)
{
    for (size_t row = 0; row < numRows; ++row)
        for (const Column& column : columns)
        {
            swapBytes(bytes, column.countStride, column.countStride);
            bytes += column.countStride;
            swapBytes(bytes, column.numValues * column.stride, column.stride);
            bytes += column.numValues * column.stride;
        }
}

// ---- the handle ----

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

const std::vector<PlyElement>& PlyFile::getElements() const
{
    return impl->elements;
}

std::vector<std::string>& PlyFile::getComments()
{
    return impl->comments;
}

std::vector<std::string>& PlyFile::getObjectInfo()
{
    return impl->objInfo;
}

} // namespace PLY
