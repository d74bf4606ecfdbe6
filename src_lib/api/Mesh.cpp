#include "zav/Mesh.h"

#include "base/tools.h"
#include "files/plyMesh.h"
#include "files/stlMesh.h"
#include "refined/RMesh.h"
#include "refined/Visualizer3.h"

#include <algorithm>

namespace MIRT_ZAV
{

Mesh::Mesh(RMesh* pRMeshArg) : pRMesh(pRMeshArg)
{
}

Mesh::~Mesh()
{
    delete pRMesh;
}

size_t Mesh::getNumT() const
{
    return pRMesh->getNumT();
}

double Mesh::getAverageEdgeLength() const
{
    return pRMesh->getAvgLen();
}

void Mesh::getPoints(std::vector<Point3*>& out) const
{
    pRMesh->getPoints(out);
}

void Mesh::getTriangles(std::vector<Point3*>& out) const
{
    pRMesh->getTriangleCorners(out);
}

void Mesh::getVertexIndexData(std::vector<Point3*>& points, std::vector<int>& indices) const
{
    getPoints(points);
    std::vector<Point3*> corners;
    getTriangles(corners);
    indices.reserve(indices.size() + corners.size());
    for (const Point3* const pCorner : corners)
    {
        // The points are sorted by address and unique, so that they are their own index.
        const auto q_it = std::lower_bound(points.begin(), points.end(), pCorner);
        ZAV_ASSERT(q_it != points.end() && *q_it == pCorner, "q_it!=mVertexToIndex.end()");
        indices.push_back(static_cast<int>(q_it - points.begin()));
    }
}

void Mesh::colorizeFilledHoles()
{
    pRMesh->colorizeFilledHoles();
}

void Mesh::contrastSpread(double lowFraction, double highFraction)
{
    pRMesh->contrastSpread(lowFraction, highFraction);
}

bool Mesh::writePly_BIN(const std::string& name) const
{
    return PLY::writePly(pRMesh, name, true);
}

bool Mesh::writePly_ASCII(const std::string& name) const
{
    return PLY::writePly(pRMesh, name, false);
}

bool Mesh::writeStl_ASCII(const std::string& name) const
{
    return writeSTL(pRMesh, name);
}

bool Mesh::writeGeomview_ASCII(const std::string& name) const
{
    Visualizer3 visualizer(name, nullptr, true);
    if (!visualizer.isValid())
        return false;
    pRMesh->show(&visualizer, pRMesh->hasColors() ? "" : Visualizer3::CGREEN, false, true);
    visualizer.closeFile();
    return visualizer.isValid();
}

void Mesh::printStatistics(const std::string& text) const
{
    pRMesh->printStatistics(text);
}

} // namespace MIRT_ZAV
