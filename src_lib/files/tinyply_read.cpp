// Reading the data behind a header, in blocks: binary rows of one length by strided copies, rows with lists value by
// value, text with the results of operator>>.
#include "files/tinyplyImpl.h"

#include "base/BlockBuffer.h"
#include "base/numberScan.h"

#include <iostream>
#include <locale>
#include <sstream>

namespace PLY
{
namespace
{
/// Where a file was cut off, its start is worth having; where its header lies, nothing is. The line between: up to this
/// many bytes, and as many as it holds, may lack.
constexpr std::uint64_t toleratedShortfall = std::uint64_t(1) << 20;

/// The same for lists: so many of the expected entries may lack, and one for each byte that the file holds.
constexpr std::uint64_t toleratedMissingEntries = std::uint64_t(1) << 18;

constexpr std::uint64_t leastTextBytes = 2; // of a value: a digit and a separator

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

} // namespace

/// Values in text, as operator>> reads them. Plain numbers go a fast way to the same bits; whatever else stands there
/// is left to a real stream on the same bytes, which thus decides what a value is.
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
        if (!ok())
            return;
        skipWhile([](char c) { return MIRT_ZAV::isBlank(c); });
        if (in.available() == 0)
            stream.setstate(std::ios::failbit);
        else
            skipWhile([](char c) { return !MIRT_ZAV::isBlank(c); });
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

    /// To the next character of another kind, or the end. Window by window: one word can be as long as the file.
    template <class F>
    void skipWhile(const F& isSkipped)
    {
        do
            in.advance(static_cast<size_t>(std::find_if_not(in.begin(), in.end(), isSkipped) - in.begin()));
        while (!in.atEnd() && isSkipped(*in.begin()));
    }

    BlockBuffer& in;
    std::istream stream;
};

void PlyFile::PlyFileImpl::read(std::istream& is)
{
    const std::int64_t left = MIRT_ZAV::bytesLeft(is);
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
    bComplete = true;
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

size_t PlyFile::PlyFileImpl::numElementsToRead() const
{
    size_t num = 0;
    for (const auto& [key, helper] : userData)
        num = std::max(num, helper.elementIndex + 1);
    return num;
}

/// The declared sizes bound every loop and allocation behind this, so they must be credible: the least that the rows
/// take has to be there, or nearly.
void PlyFile::PlyFileImpl::checkSizes(const LookupTable& table, std::uint64_t numBytesLeft)
{
    std::uint64_t least = 0;
    for (size_t i = 0; i < numElementsToRead(); ++i)
    {
        std::uint64_t rowBytes = 0;
        for (const PropertyLookup& lookup : table[i])
            rowBytes += !isBinary ? leastTextBytes : lookup.list_stride != 0 ? lookup.list_stride : lookup.prop_stride;
        least = checkedSum(least, checkedProduct(elements[i].size, rowBytes));
    }
    // A list is sure to take its count and nothing more. But buffers are made for the expected entries, so that these
    // are held against the bytes that the counts leave.
    std::uint64_t mostEntries = toleratedMissingEntries + numBytesLeft;
    std::uint64_t entries = 0;
    for (const ParsingHelper* const helper : groups())
        if (helper->data->isList && helper->data->count != 0)
        {
            const std::uint64_t stride = strideOf(helper->data->t);
            mostEntries += (numBytesLeft - std::min(least, numBytesLeft)) / (isBinary ? stride : leastTextBytes);
            entries = checkedSum(entries, checkedProduct(helper->data->count, helper->rowBytes) / stride);
        }
    if (least > checkedSum(checkedProduct(numBytesLeft, 2), toleratedShortfall) || entries > mostEntries)
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
        if (table[i].empty() || elements[i].size == 0)
            continue; // rows without properties are no bytes, however many there are
        const bool hasList =
            std::any_of(table[i].begin(), table[i].end(), [](const auto& lookup) { return lookup.list_stride != 0; });
        if (!isBinary)
            parseTextRows(values, elements[i].size, table[i], firstPass);
        else if (hasList)
            parseListRows(in, elements[i].size, table[i], firstPass);
        else if (firstPass)
            in.skip(elements[i].size * fixedRowBytes(table[i]));
        else
            parseFixedRows(in, elements[i].size, planRows(table[i]));
    }
}

std::uint64_t PlyFile::PlyFileImpl::fixedRowBytes(const std::vector<PropertyLookup>& lookups)
{
    std::uint64_t numBytes = 0;
    for (const PropertyLookup& lookup : lookups)
        numBytes += lookup.prop_stride;
    return numBytes;
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
            // Cut off within a row: the bytes that are there count.
            for (const Run& run : plan.runs)
                if (run.offset < in.available())
                    std::memcpy(run.data + row * run.stride, in.begin() + run.offset,
                                std::min(run.numBytes, in.available() - run.offset));
            in.advance(in.available());
            bComplete = false;
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
    const size_t room = data->buffer.sizeInBytes() - cursor->byteOffset;
    if (n > room && !data->bGrows)
        n = room;
    else if (n > room)
        data->buffer.growTo(cursor->byteOffset + n);
    if (n == 0)
        return; // an empty buffer has no address to copy to
    std::memcpy(data->buffer.get() + cursor->byteOffset, bytes, n);
    cursor->byteOffset += n;
}

void PlyFile::PlyFileImpl::takeBytes(BlockBuffer& in, std::uint64_t n, PropertyLookup& lookup, bool firstPass)
{
    if (lookup.skip)
    {
        bComplete = in.skip(n) && bComplete;
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
    bComplete = bComplete && n == 0;
}

void PlyFile::PlyFileImpl::parseListRows(BlockBuffer& in, std::uint64_t numRows, std::vector<PropertyLookup>& lookups,
                                         bool firstPass)
{
    for (std::uint64_t row = 0; row < numRows; ++row)
    {
        if (in.atEnd())
        {
            bComplete = false;
            return;
        }
        for (PropertyLookup& lookup : lookups)
        {
            std::uint64_t numValues = 1;
            if (lookup.list_stride != 0)
            {
                if (!in.require(lookup.list_stride))
                {
                    in.advance(in.available());
                    bComplete = false;
                    return;
                }
                std::uint8_t count[8];
                std::memcpy(count, in.begin(), lookup.list_stride);
                in.advance(lookup.list_stride);
                if (isBigEndian)
                    swapBytes(count, lookup.list_stride, lookup.list_stride);
                numValues = listCountFrom(lookup.listType, count);
                if (!lookup.skip)
                    lookup.helper->compareWithHint(numValues);
            }
            takeBytes(in, numValues * lookup.prop_stride, lookup, firstPass);
        }
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
                if (!lookup.skip && values.ok())
                    lookup.helper->compareWithHint(numValues);
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
            {
                bComplete = false;
                return;
            }
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

} // namespace PLY
