// Writes small valid files to start from, in one directory for each target: make_seeds DIRECTORY
#include "helpers/plain_files.h"

#include <filesystem>
#include <fstream>

namespace
{
void write(const std::filesystem::path& directory, const std::vector<std::string>& seeds)
{
    std::filesystem::create_directories(directory);
    for (size_t i = 0; i < seeds.size(); ++i)
        std::ofstream(directory / std::to_string(i), std::ios::binary) << seeds[i];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    const std::filesystem::path directory = argv[1];
    test::Points vertices, corners;
    std::vector<std::string> ply = {
        "ply\nelement vertex 1\nproperty int x\nproperty int y\nproperty int z\nend_header\n"
        "1 2 3"};
    for (const char* encoding : test::plyEncodings)
    {
        ply.push_back(test::smallPly(encoding));
        ply.push_back(test::richPly(encoding, 2, vertices, corners));
    }
    write(directory / "fuzz_ply", ply);
    write(directory / "fuzz_plyfile", ply);
    write(directory / "fuzz_points_text", {test::smallText()});
    write(directory / "fuzz_points_bin", {test::smallBinary(true), test::smallBinary(false), test::smallText()});
    write(directory / "fuzz_stl", {test::smallStl()});
    return 0;
}
