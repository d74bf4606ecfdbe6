// The inside of PlyFile, shared by its sources: tinyply.cpp (header, requests), tinyply_read.cpp, tinyply_write.cpp.
#pragma once

#include "files/tinyply.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <unordered_map>

namespace MIRT_ZAV
{
class BlockBuffer;
class BlockWriter;
} // namespace MIRT_ZAV

namespace PLY
{
using MIRT_ZAV::BlockBuffer;
using MIRT_ZAV::BlockWriter;

class TextValues;

inline size_t strideOf(Type type)
{
    return PropertyTable.at(type).stride;
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

/// a * b, or an exception: sizes from a header can be anything.
inline std::uint64_t checkedProduct(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product) || product > std::uint64_t(std::numeric_limits<std::ptrdiff_t>::max()))
        throw std::runtime_error("declared size out of range");
    return product;
}

inline std::uint64_t checkedSum(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        throw std::runtime_error("declared size out of range");
    return sum;
}

inline void swapBytes(std::uint8_t* bytes, size_t numBytes, size_t stride)
{
    for (size_t i = 0; stride != 0 && i + stride <= numBytes; i += stride) // 0 for the count of a plain value: no bytes
        std::reverse(bytes + i, bytes + i + stride);
}

/// Bytes that stand together both in a row of the file and in a row of a buffer, so that one copy moves them:
///
///     row of the file    nx | x  y  z | red | green | blue       x, y, z: one run of 12 bytes at offset 4
///     buffer             x0 y0 z0 | x1 y1 z1 | ...               and a stride of 12
struct Run
{
    size_t offset; // in the file's row
    size_t numBytes;
    std::uint8_t* data; // in the first row of the buffer
    size_t stride;      // from row to row of the buffer; 0 for a constant
};

/// How rows of one length in a binary file map to buffers: the runs, and how long a row is.
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

/// Copies n bytes per row. Loops that know the length move the bytes without a call per row: a byte, a colour, a float
/// or index, three of these, a point of doubles.
inline void copyRows(std::uint8_t* to, size_t toStride, const std::uint8_t* from, size_t fromStride, size_t n,
                     size_t numRows)
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
        // Which property of the header is meant. Its name or hash wouldn't do: both may occur again elsewhere.
        size_t elementIndex = 0;
        size_t propertyIndex = 0;

        void append(const void* bytes, size_t n);
        /// Notes whether a list is as long as was expected.
        void compareWithHint(std::uint64_t count)
        {
            if (cursor->listSizeHint != 0 && count != cursor->listSizeHint)
                data->bEven = false;
        }
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
    bool bComplete = true; // what was read last held all its values
    std::vector<PlyElement> elements;
    std::vector<std::string> comments;

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
    static std::uint64_t fixedRowBytes(const std::vector<PropertyLookup>& lookups);
    static RowPlan planRows(const std::vector<PropertyLookup>& lookups);
    void parseFixedRows(BlockBuffer& in, std::uint64_t numRows, const RowPlan& plan);
    void takeBytes(BlockBuffer& in, std::uint64_t n, PropertyLookup& lookup, bool firstPass);
    void parseListRows(BlockBuffer& in, std::uint64_t numRows, std::vector<PropertyLookup>& lookups, bool firstPass);
    void parseTextRows(TextValues& values, std::uint64_t numRows, std::vector<PropertyLookup>& lookups, bool firstPass);
    void swapBuffers();

    void writeHeader(std::ostream& os) const;
    void checkWritable(const LookupTable& table) const;
    static std::vector<Column> columnsOf(const PlyElement& element, const std::vector<PropertyLookup>& lookups);
    static void writeTextRows(BlockWriter& out, std::uint64_t numRows, const std::vector<Column>& columns);
    void writeBinaryRows(BlockWriter& out, std::uint64_t numRows, std::vector<Column>& columns) const;
    static void swapRows(std::uint8_t* bytes, size_t numRows, const std::vector<Column>& columns);
};

} // namespace PLY
