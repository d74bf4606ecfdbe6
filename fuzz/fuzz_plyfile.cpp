// PlyFile: requests and reads everything that a header offers, then writes it and reads that again. What can be written
// has to come back the same.
#include "files/tinyply.h"
#include "fuzzing.h"

#include <map>
#include <set>
#include <stdexcept>

namespace
{
using Groups = std::vector<std::shared_ptr<PLY::PlyData>>;

/// Requests all properties. Those of one element and type go in one request, as they share a buffer.
Groups requestAll(PLY::PlyFile& file, size_t listSizeHint)
{
    Groups groups;
    std::set<std::string> elements;
    for (const PLY::PlyElement& element : file.getElements())
    {
        if (element.name.empty() || !elements.insert(element.name).second)
            continue; // a name stands for the first element that has it
        std::set<std::string> names;
        std::map<std::pair<PLY::Type, bool>, std::vector<std::string>> keys;
        for (const PLY::PlyProperty& property : element.properties)
            if (names.insert(property.name).second)
                keys[{property.propertyType, property.isList}].push_back(property.name);
        for (const auto& [type, group] : keys)
            try
            {
                groups.push_back(file.request_properties_from_element(element.name, group, listSizeHint));
            }
            catch (const std::invalid_argument&)
            {
                // Requests are known by element and property names put together: "v" + "xy" clashes with "vx" + "y".
            }
    }
    return groups;
}

bool isFinite(const PLY::PlyData& data)
{
    const std::uint8_t* const bytes = data.buffer.get();
    for (size_t i = 0; data.t == PLY::Type::FLOAT32 && i + 4 <= data.buffer.sizeInBytes(); i += 4)
    {
        float value;
        std::memcpy(&value, bytes + i, 4);
        if (!std::isfinite(value))
            return false;
    }
    for (size_t i = 0; data.t == PLY::Type::FLOAT64 && i + 8 <= data.buffer.sizeInBytes(); i += 8)
    {
        double value;
        std::memcpy(&value, bytes + i, 8);
        if (!std::isfinite(value))
            return false;
    }
    return true;
}

/// \return false if the file has something that can't be written
bool write(PLY::PlyFile& file, std::ostream& out, bool bBinary)
{
    for (const PLY::PlyElement& element : file.getElements())
        if (element.name.empty())
            return false;
    try
    {
        file.write(out << std::setprecision(17), bBinary);
        return true;
    }
    catch (const std::runtime_error&)
    {
        return false; // properties that weren't requested, lists of unknown width
    }
}

void requireSameAgain(PLY::PlyFile& file, const Groups& groups, size_t listSizeHint, bool bBinary)
{
    // The reader doesn't take "nan" and "inf" in text.
    if (!bBinary && !std::all_of(groups.begin(), groups.end(), [](const auto& data) { return isFinite(*data); }))
        return;
    std::stringstream stream;
    if (!write(file, stream, bBinary))
        return;
    PLY::PlyFile copy;
    fuzzing::require(copy.parse_header(stream), "the copy has a header");
    const Groups again = requestAll(copy, listSizeHint);
    copy.read(stream);
    fuzzing::require(again.size() == groups.size(), "the copy has the same groups");
    for (size_t i = 0; i < groups.size(); ++i)
    {
        const PLY::PlyBuffer& a = groups[i]->buffer;
        const PLY::PlyBuffer& b = again[i]->buffer;
        fuzzing::require(a.sizeInBytes() == b.sizeInBytes() &&
                             (a.sizeInBytes() == 0 || std::memcmp(a.get(), b.get(), a.sizeInBytes()) == 0),
                         "the copy has the same values");
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    std::cout.rdbuf(nullptr);
    const std::string bytes = fuzzing::bytesOf(data, size);
    for (const size_t listSizeHint : {0, 3})
        try
        {
            std::istringstream in(bytes);
            PLY::PlyFile file;
            if (!file.parse_header(in))
                continue;
            const Groups groups = requestAll(file, listSizeHint);
            file.read(in);
            for (const auto& group : groups)
                fuzzing::require(group->isList || group->buffer.sizeInBytes() == 0 || group->count != 0,
                                 "rows without a count");
            requireSameAgain(file, groups, listSizeHint, true);
            requireSameAgain(file, groups, listSizeHint, false);
        }
        catch (const std::runtime_error&)
        {
        }
        catch (const std::invalid_argument&)
        {
        }
    return 0;
}
