// The shortest way from points to a mesh: points_to_mesh scan.xyz mesh.ply
#include <zav_api.h>

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    std::string input = argv[1];
    std::vector<MIRT_ZAV::Point3> points;
    if (!MIRT_ZAV::readPoints_auto(input, points))
        return 1; // the library has said why
    const MIRT_ZAV::MeshPtr mesh = MIRT_ZAV::reconstruct_auto(points, 1.0, 10);
    return mesh && MIRT_ZAV::writeMesh_auto(argv[2], mesh, true) ? 0 : 1;
}
