// Writing: the header, then the rows in blocks.
#include "files/tinyplyImpl.h"

#include "base/BlockWriter.h"

#include <locale>
#include <sstream>
#include <type_traits>

namespace PLY
{
namespace
{
constexpr size_t blockBytes = size_t(1) << 17; // of rows, written at a time

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

} // namespace

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
            // Buffers that were read can be written again, but for ragged lists: where one ends is lost.
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

} // namespace PLY
