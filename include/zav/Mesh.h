// The public handle of a triangle mesh.
#pragma once

#include "Point3.h"
#include "zav_export.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace MIRT_ZAV
{

class RMesh;

/// What an application holds of a mesh, as a MeshPtr. The classes that do the work stay behind it, out of the public
/// headers.
///
/// Points that are handed out still belong to the mesh. Never free them, and ask again after every call that changes
/// the mesh; none outlives the handle. You may move them, and files get the new places. But the mesh also looks its
/// vertices up by place: an operation that moves vertices itself (laplacianSmoothing) may end in ZavBugException then,
/// so move points last. Coordinates are in input units. There is no lock: never two threads at once on one mesh.
class ZAV_API Mesh
{
public:
    /// Takes ownership; null is allowed as long as nothing but the destructor is called.
    explicit Mesh(RMesh* pRMesh);
    ~Mesh();
    Mesh(const Mesh&) = delete;
    Mesh& operator=(const Mesh&) = delete;

    /// The mesh behind the handle, for the library's own operations; stays owned by the handle.
    RMesh* getRMesh() const { return pRMesh; }

    /// Number of live triangles.
    std::size_t getNumT() const;
    /// Mean length of the edges in input units; -1.0 for a mesh without any.
    double getAverageEdgeLength() const;

    /// The vertices of the live triangles, each once.
    /// \param out  must be empty; anything else ends in ZavBugException
    void getPoints(std::vector<Point3*>& out) const;
    /// Appends three corners per live triangle, in winding order. Triangles that share a vertex share the pointer.
    void getTriangles(std::vector<Point3*>& out) const;
    /// The mesh in indexed form, as renderers take it.
    /// \param points   becomes what getPoints gives; must be empty
    /// \param indices  three positions in points are appended per live triangle, in winding order
    void getVertexIndexData(std::vector<Point3*>& points, std::vector<int>& indices) const;

    /// Gives vertices without colour the mean colour of their neighbours, ring by ring from the coloured ones inwards.
    /// A piece without any colour stays as it is.
    void colorizeFilledHoles();
    /// Stretches red, green and blue of the coloured vertices by one straight line, the darker end to 0, the brighter
    /// one to 255. Colours that span 20 levels or fewer are stretched from the darkest to the brightest value.
    /// \param lowFraction   part of all values, 0 to 1, that may become 0; three values per vertex, coloured or not
    /// \param highFraction  part of all values, 0 to 1, that may become 255. More than the coloured values make up puts
    ///                      the brighter end at 0, and callers rely on what follows: with the darker end there, too,
    ///                      the mesh turns white, else the line falls and most of the mesh turns black
    void contrastSpread(double lowFraction, double highFraction);

    /// Writes a PLY file in the text form. The names of the two PLY writers are crossed, and callers rely on it.
    /// \return false, after a message on standard output, when the file can't be written
    bool writePly_BIN(const std::string& name) const;
    /// Writes a PLY file in the binary form, the other one of the crossed names.
    /// \return false, after a message on standard output, when the file can't be written
    bool writePly_ASCII(const std::string& name) const;

    /// Writes a text STL file; false, with a message on standard output, if that fails.
    bool writeStl_ASCII(const std::string& name) const;
    /// Writes debug geometry: triangles in the colours of their vertices, or green if none has one, and the edges that
    /// don't have two triangles. False, with a message on standard output, if that fails.
    bool writeGeomview_ASCII(const std::string& name) const;

    /// Prints the text and the mesh's numbers of vertices, triangles and edges on standard output.
    void printStatistics(const std::string& text) const;

    RMesh* pRMesh;
};

using MeshPtr = std::shared_ptr<Mesh>;

} // namespace MIRT_ZAV
