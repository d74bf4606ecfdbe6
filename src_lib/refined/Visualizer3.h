// Geometry for inspection: object files of one LIST with OFF, COFF and VECT objects in colours.
#pragma once

#include "base/BlockWriter.h"
#include "geometry/Segment3.h"
#include "zav/Point3.h"

#include <fstream>
#include <string>
#include <vector>

namespace MIRT_ZAV
{

class Calc;
class REdge;
class RMesh;
class RTriangle;

/// Writes one file. Objects follow each other in it; the destructor ends it. All points are written with 15 digits.
///
/// A colour is a text of red, green, blue and transparency from the table of getColor(), or, for triangles,
/// VERTEXCOLORS.
class Visualizer3
{
public:
    static const std::string CRED, CGREEN, CDARKBLUE, CYELLOW, CBLACK, CLIGHTBROWN, CDARKBROWN, CORANGE, CPURPLE, CGRAY,
        CLIGHTGRAY, CLIGHTBLUE, CPINK, CWHITE, CCRIMSON, CDARKORANGE, CGOLDENROD, COLIVE, CLAWNGREEN, CGREENYELLOW,
        CPALEGREEN, CMEDSPRINGGREEN, CLIGHTSEAGREAN, CCYAN, CSTEELBLUE, MIDNIGHTBLUE, CWHEAT;
    /// Triangles with this in place of a colour are written in the colours of their points.
    static const std::string VERTEXCOLORS;

    /// Opens the file. Where that fails there is a message, and isValid() is false.
    /// \param pCalc        the lattice of what is shown, or null; not owned
    /// \param bAuthorized  whether the caller stands by writing a debugging file
    /// \throws ZavBugException  unless bAuthorized
    Visualizer3(const std::string& path, Calc* pCalc, bool bAuthorized);
    ~Visualizer3();
    Visualizer3(const Visualizer3&) = delete;
    Visualizer3& operator=(const Visualizer3&) = delete;

    /// Whether the file could be opened and, once it is closed, whether all of it was written.
    bool isValid() const { return bValid; }
    /// Whether the backs of triangles are black.
    void setBackfaces(bool bBackfacesArg) { bBackfaces = bBackfacesArg; }
    Calc* getCalc() const { return pCalc; }

    /// The i-th of 27 colours. A negative i gives CWHITE. One above 26 is taken modulo 26, not 27, so that the last
    /// colour doesn't come round: the colours in files depend on it.
    static const std::string& getColor(int i);
    /// The next colour in turn, shared by all objects; those that are hard to see are left out.
    static const std::string& getNextColor();

    // Each call writes one object, but an empty list of points or segments writes none. Sizes and widths are in pixels.
    void writePoint(const Point3& point, int size, const std::string& color);
    void writePoints(const std::vector<Point3>& vPoints, int size, const std::string& color);
    void writePoints(const std::vector<Point3*>& vPoints, int size, const std::string& color);
    void writeSegments(const std::vector<Segment3>& vSegments, int width, const std::string& color);
    void writeSegments(const std::vector<REdge*>& vEdges, int width, const std::string& color);
    /// Three corners per triangle. \param bEdges  whether edges are drawn
    void writeTriangles(const std::vector<Point3>& vCorners, const std::string& color, bool bEdges);
    void writeTriangles(const std::vector<Point3*>& vCorners, const std::string& color, bool bEdges);
    void writeTriangles(const std::vector<RTriangle*>& vRT, const std::string& color, bool bEdges);

    /// Begins an object of triangles, to be followed by its vertices and faces.
    void startList(size_t nVertices, size_t nFaces, bool bEdges, bool bVertexColors);
    void endList();
    /// Ends the file. Nothing may be written afterwards.
    void closeFile();

private:
    void putPoint(const Point3& point);
    void putVertexColor(const Point3& point);
    void putNumber(size_t number);
    template <class CornerAt>
    void putTriangles(size_t nFaces, const CornerAt& cornerAt, const std::string& color, bool bEdges);
    template <class PointAt>
    void putLines(size_t nLines, size_t pointsPerLine, const PointAt& pointAt, int width, const std::string& color);

    std::string path;
    std::ofstream file;
    BlockWriter out;
    bool bBackfaces = true;
    Calc* pCalc;
    bool bAuthorized;
    bool bValid = false;
};

/// Writes the alive triangles of a mesh. \return whether the file was written
/// \throws ZavBugException  unless bAuthorized
bool writeList(RMesh* pRMesh, const std::string& path, bool bAuthorized);

} // namespace MIRT_ZAV
