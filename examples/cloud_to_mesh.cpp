// Reads a point cloud, turns it into a mesh and writes the mesh as PLY:
//   cloud_to_mesh scan.ply mesh.ply
#include <zav_api.h>

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{
/// Prints each tenth of the run.
class TenthPrinter : public MIRT_ZAV::ProgressBase
{
public:
    void update(const std::string& name, double fraction) override
    {
        const int tenth = static_cast<int>(fraction * 10.0);
        if (tenth == lastTenth)
            return;
        lastTenth = tenth;
        std::cerr << name << ": " << tenth * 10 << " %\n";
    }

private:
    int lastTenth = -1;
};
} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::cerr << "usage: cloud_to_mesh IN.ply|xyz|bin OUT.ply\n";
        return 2;
    }
    std::string input = argv[1];
    const std::string output = argv[2];

    std::vector<MIRT_ZAV::Point3> points;
    if (!MIRT_ZAV::readPoints_auto(input, points))
        return 1; // the library has said why

    TenthPrinter printer; // has to live as long as this thread runs the library
    MIRT_ZAV::subscribe(&printer);

    try
    {
        // Cells at the detected point spacing; gaps of up to about 20 cells are closed.
        const MIRT_ZAV::MeshPtr mesh = MIRT_ZAV::reconstruct_auto(points, 1.0, 10);
        if (!mesh)
            return 1;
        std::cout << mesh->getNumT() << " triangles\n";
        // The names of the two PLY writers are crossed: this one writes the binary form, writePly_BIN the text form.
        return mesh->writePly_ASCII(output) ? 0 : 1;
    }
    catch (const std::exception& problem)
    {
        std::cerr << problem.what() << '\n';
        return 1;
    }
}
