// Reader and writer of the PLY format: elements, properties and typed buffers. Nothing here knows what a vertex or a
// face is; which elements the library's files have is plyMesh's concern.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace PLY
{

enum class Type : std::uint8_t
{
    INVALID,
    INT8,
    UINT8,
    INT16,
    UINT16,
    INT32,
    UINT32,
    FLOAT32,
    FLOAT64
};

struct PropertyInfo
{
    size_t stride;    ///< bytes of one value
    std::string name; ///< in headers that are written
};

extern const std::map<Type, PropertyInfo> PropertyTable;

struct PlyProperty
{
    std::string name;
    Type propertyType = Type::INVALID;
    bool isList = false;
    Type listType = Type::INVALID; ///< of the count that stands before the entries
    std::uint64_t listCount = 0;   ///< entries per list: exact for writing, a hint for reading
};

struct PlyElement
{
    std::string name;
    std::uint64_t size = 0; ///< number of rows
    std::vector<PlyProperty> properties;
};

/// The bytes of a group of properties: the reader's own, or a view of the caller's.
class PlyBuffer
{
public:
    PlyBuffer() = default;
    PlyBuffer(const PlyBuffer&) = delete;
    PlyBuffer& operator=(const PlyBuffer&) = delete;

    std::uint8_t* get() { return data; }
    const std::uint8_t* get() const { return data; }
    size_t sizeInBytes() const { return size; }

    /// Owns zeroed bytes from now on.
    void allocate(size_t numBytes);
    /// Makes an owned buffer longer, by zeros.
    void growTo(size_t numBytes);
    void refer(std::uint8_t* bytes, size_t numBytes);

private:
    std::uint8_t* data = nullptr;
    std::vector<std::uint8_t> owner;
    size_t size = 0;
};

/// The values of properties that were requested or added together, row by row, nothing between them:
///
///     x, y, z                        x0 y0 z0 | x1 y1 z1 | x2 ...
///     a list, hint 3, as expected    a0 b0 c0 | a1 b1 c1 | a2 ...
///     the same with ragged lists     a0 b0 | a1 b1 c1 | a2 b2 | 0 0    where one ends is lost, what lacks is 0
struct PlyData
{
    Type t = Type::INVALID;
    std::uint64_t count = 0; ///< rows of the element, also for lists
    PlyBuffer buffer;
    bool isList = false;
    bool bGrows = true; ///< false, set before read(): entries beyond what the hint promised are dropped
    bool bEven = true;  ///< after read(): every list had as many entries as the hint promised
};

/// One PLY file, to be read (parse_header, request_properties_from_element, read) or to be written
/// (add_properties_to_element, write).
///
/// A header can promise anything, and a hostile one promises more than the memory. So it is believed only as far as the
/// stream can bear it out: read() throws std::runtime_error when the declared rows need over 1 MiB more than twice the
/// bytes there are, or when lists must lack over 2^18 of the expected entries and one more for each byte. A smaller gap
/// is a file that was cut off: the buffers then end in zeros. Of several elements or properties with one name the first
/// counts, the others are skipped.
class PlyFile
{
public:
    PlyFile();
    ~PlyFile();
    PlyFile(const PlyFile&) = delete;
    PlyFile& operator=(const PlyFile&) = delete;

    /// Reads up to and including "end_header", or to the end of the stream. The first line isn't asked to be "ply".
    /// \return false at a line of an unknown kind
    /// \throws std::runtime_error for a property before the first element, a line over 64 KiB, a header over 1 MiB
    bool parse_header(std::istream& is);

    /// Registers properties of one element for read().
    /// \param propertyKeys  all of them must exist, be of one type and be lists all or none; their values land side by
    ///                      side in the order of the file, whatever the order here
    /// \param listSizeHint  expected entries per list; 0 when unknown, which costs a pass over the file that counts
    ///                      them. Longer lists are read in full; shorter ones leave zeros at the end.
    /// \return shared with the reader, filled by read()
    /// \throws std::runtime_error, std::invalid_argument, and nothing is registered
    std::shared_ptr<PlyData> request_properties_from_element(const std::string& elementKey,
                                                             std::vector<std::string> propertyKeys,
                                                             size_t listSizeHint);

    /// Reads what was requested; properties of other names are skipped. The stream must stand behind the header; where
    /// it stands afterwards is undefined. In text, a value that operator>> refuses ends the reading: zeros follow.
    /// \throws std::invalid_argument  when an element with rows has a property of unknown type
    /// \throws std::runtime_error     for sizes the stream can't hold, and negative list counts
    void read(std::istream& is);

    /// Registers data to be written.
    /// \param count      rows; the same in all calls for one element
    /// \param data       not copied: must live until write(). Row by row the values of all the keys, of a list
    ///                   listCount
    /// \param listType   type of the lists' count; INVALID for plain values
    /// \param listCount  entries of each list
    /// \throws std::invalid_argument  for a key that was there before or arguments that don't fit together
    void add_properties_to_element(const std::string& elementKey, const std::vector<std::string>& propertyKeys,
                                   Type type, size_t count, std::uint8_t* data, Type listType, size_t listCount);

    /// Writes header and data, in text with the precision of the stream, always with the marks of the "C" locale.
    /// \throws std::invalid_argument for a property of unknown type, std::runtime_error for one without enough data
    void write(std::ostream& os, bool isBinary);

    /// After read(): whether the file held all values up to the last one that was requested.
    bool isComplete() const;

    const std::vector<PlyElement>& getElements() const;
    std::vector<std::string>& getComments();

private:
    struct PlyFileImpl;
    std::unique_ptr<PlyFileImpl> impl;
};

} // namespace PLY
