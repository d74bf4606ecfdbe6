// What the fuzz targets share.
#pragma once

#include "helpers/plain_files.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace fuzzing
{
using test::Points;

/// Ends the run; the fuzzer keeps the input that led here.
inline void require(bool bHolds, const char* what)
{
    if (bHolds)
        return;
    std::fprintf(stderr, "== DOES NOT HOLD: %s\n", what);
    std::abort();
}

inline void requireSame(const Points& actual, const Points& expected, const char* what)
{
    require(test::bytesOf(actual) == test::bytesOf(expected), what);
}

/// Puts the input in a file and returns its path; the next call writes over it. From here on the library prints
/// nothing.
inline std::string fileOf(const std::string& bytes)
{
    static test::MemoryFile file;
    std::cout.rdbuf(nullptr);
    std::cerr.rdbuf(nullptr);
    const std::string path = file.put(bytes);
    require(!path.empty(), "the input can be written");
    return path;
}

inline std::string bytesOf(const std::uint8_t* data, size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

} // namespace fuzzing
