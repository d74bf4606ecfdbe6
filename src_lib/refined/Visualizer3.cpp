#include "refined/Visualizer3.h"

#include "base/tools.h"
#include "refined/REdge.h"
#include "refined/RMesh.h"
#include "refined/RTriangle.h"

#include <atomic>
#include <iostream>
#include <locale>

namespace MIRT_ZAV
{
namespace
{
constexpr int numDigits = 15;
constexpr int numColors = 27;
} // namespace

const std::string Visualizer3::CRED = "1 0 0 0.5";
const std::string Visualizer3::CGREEN = "0 1 0 0.5";
const std::string Visualizer3::CDARKBLUE = "0 0.2 .85 0.5";
const std::string Visualizer3::CYELLOW = "1 1 0 0.5";
const std::string Visualizer3::CBLACK = "0.1 0.1 0.1 0.5";
const std::string Visualizer3::CLIGHTBROWN = "0.823 0.705 0.549 0.5";
const std::string Visualizer3::CDARKBROWN = "0.545 0.271 0.074 0.5";
const std::string Visualizer3::CORANGE = "1 0.627 0 0.5";
const std::string Visualizer3::CPURPLE = "0.627 0.125 0.941 0.5";
const std::string Visualizer3::CGRAY = ".745 .745 .745 0.5";
const std::string Visualizer3::CLIGHTGRAY = ".645 .645 .645 0.5";
const std::string Visualizer3::CLIGHTBLUE = "0 0.70 .9 0.5";
const std::string Visualizer3::CPINK = "1 0.411 0.705 0.5";
const std::string Visualizer3::CWHITE = "1 1 1 0.5";
const std::string Visualizer3::CCRIMSON = ".86 .08 .24 0.5";
const std::string Visualizer3::CDARKORANGE = "1 .55 0 0.5";
const std::string Visualizer3::CGOLDENROD = ".85 .65 .13 0.5";
const std::string Visualizer3::COLIVE = ".5 .5 .0 0.5";
const std::string Visualizer3::CLAWNGREEN = "0.49\t0.99 0.00 0.5"; // files depend on the tab, here and below
const std::string Visualizer3::CGREENYELLOW = "0.68 1.00 0.18 0.5";
const std::string Visualizer3::CPALEGREEN = "0.60\t0.98 0.60 0.5";
const std::string Visualizer3::CMEDSPRINGGREEN = "0.00 0.98 0.60 0.5";
const std::string Visualizer3::CLIGHTSEAGREAN = "0.13 0.70 0.67 0.5";
const std::string Visualizer3::CCYAN = "0.00 1.00 1.00 0.5";
const std::string Visualizer3::CSTEELBLUE = "0.27 0.51 0.71 0.5";
const std::string Visualizer3::MIDNIGHTBLUE = "0.10 0.10 0.44 0.5";
const std::string Visualizer3::CWHEAT = "0.96 0.87 0.7 0.5";
const std::string Visualizer3::VERTEXCOLORS = "VERTEXCOLORS";

Visualizer3::Visualizer3(const std::string& pathArg, Calc* pCalcArg, bool bAuthorizedArg)
    : path(pathArg), out(file, numDigits), pCalc(pCalcArg), bAuthorized(bAuthorizedArg)
{
    if (!bAuthorized)
        std::cout << "Unauthorized write of " << path << std::endl;
    ZAV_ASSERT(bAuthorized, "bAuthorized");
    std::cout << "Writing " << path << std::endl;
    file.open(path, std::ios::out | std::ios::trunc);
    file.imbue(std::locale::classic());
    bValid = file.is_open();
    if (bValid)
        out.put("LIST\n{\n");
    else
        errorMsg(ZAV_LOCATION, path + " not writeable");
}

Visualizer3::~Visualizer3()
{
    closeFile();
}

const std::string& Visualizer3::getColor(int i)
{
    static const std::string* const colors[numColors] = {
        &CRED,       &CGREEN,       &CDARKBLUE,  &CYELLOW,         &CBLACK,         &CLIGHTBROWN,
        &CDARKBROWN, &CORANGE,      &CPURPLE,    &CGRAY,           &CLIGHTGRAY,     &CLIGHTBLUE,
        &CPINK,      &CWHITE,       &CCRIMSON,   &CDARKORANGE,     &CGOLDENROD,     &COLIVE,
        &CLAWNGREEN, &CGREENYELLOW, &CPALEGREEN, &CMEDSPRINGGREEN, &CLIGHTSEAGREAN, &CCYAN,
        &CSTEELBLUE, &MIDNIGHTBLUE, &CWHEAT};
    if (i < 0)
        return CWHITE;
    return *colors[i < numColors ? i : i % (numColors - 1)];
}

const std::string& Visualizer3::getNextColor()
{
    static std::atomic<unsigned> counter{0};
    while (true)
    {
        const std::string& color = getColor(static_cast<int>(counter++ % numColors));
        if (&color != &CBLACK && &color != &CPURPLE && &color != &CLIGHTGRAY && &color != &CWHITE)
            return color;
    }
}

// ---- triangles ----

void Visualizer3::startList(size_t nVertices, size_t nFaces, bool bEdges, bool bVertexColors)
{
    out.put(bEdges ? "\n{\nappearance { +edge " : "\n{\nappearance { -edge  material ");
    if (bBackfaces)
        out.put("material { backdiffuse 0 0 0 } lighting {ambient 0 0 1 }");
    out.put(" }\n");
    out.put(bVertexColors ? "COFF\n" : "OFF\n");
    putNumber(nVertices);
    out.put(' ');
    putNumber(nFaces);
    out.put(" 0\n");
}

void Visualizer3::endList()
{
    out.put("}\n");
}

/// Each triangle brings its own three vertices, which spares an index of them.
template <class CornerAt>
void Visualizer3::putTriangles(size_t nFaces, const CornerAt& cornerAt, const std::string& color, bool bEdges)
{
    const bool bVertexColors = color == VERTEXCOLORS;
    startList(3 * nFaces, nFaces, bEdges, bVertexColors);
    for (size_t i = 0; i < 3 * nFaces; ++i)
    {
        const Point3& corner = cornerAt(i);
        putPoint(corner);
        if (bVertexColors)
            putVertexColor(corner);
        out.put('\n');
    }
    for (size_t i = 0; i < 3 * nFaces; i += 3)
    {
        out.put('3');
        for (size_t k = 0; k < 3; ++k)
        {
            out.put(' ');
            putNumber(i + k);
        }
        if (!bVertexColors)
        {
            out.put(' ');
            out.put(color);
        }
        out.put('\n');
    }
    endList();
}

void Visualizer3::writeTriangles(const std::vector<Point3>& vCorners, const std::string& color, bool bEdges)
{
    putTriangles(
        vCorners.size() / 3, [&](size_t i) -> const Point3& { return vCorners[i]; }, color, bEdges);
}

void Visualizer3::writeTriangles(const std::vector<Point3*>& vCorners, const std::string& color, bool bEdges)
{
    putTriangles(
        vCorners.size() / 3, [&](size_t i) -> const Point3& { return *vCorners[i]; }, color, bEdges);
}

void Visualizer3::writeTriangles(const std::vector<RTriangle*>& vRT, const std::string& color, bool bEdges)
{
    const auto cornerAt = [&](size_t i) -> const Point3& { return *vRT[i / 3]->getCorner(static_cast<int>(i % 3)); };
    putTriangles(vRT.size(), cornerAt, color, bEdges);
}

// ---- points and segments ----

/// A point is a line with one vertex.
template <class PointAt>
void Visualizer3::putLines(size_t nLines, size_t pointsPerLine, const PointAt& pointAt, int width,
                           const std::string& color)
{
    if (nLines == 0)
        return;
    out.put("\n{\nappearance{linewidth ");
    out.putNumber(static_cast<long long>(width));
    out.put("}\n\n{\nVECT\n");
    putNumber(nLines);
    out.put(' ');
    putNumber(nLines * pointsPerLine);
    out.put(" 1\n");
    for (size_t i = 0; i < nLines; ++i)
    {
        putNumber(pointsPerLine);
        out.put(' ');
    }
    out.put("\n1 "); // the first line has one colour, the others have none and take the same
    for (size_t i = 1; i < nLines; ++i)
        out.put("0 ");
    out.put('\n');
    for (size_t i = 0; i < nLines * pointsPerLine; ++i)
    {
        putPoint(pointAt(i));
        out.put('\n');
    }
    out.put(color);
    out.put("\n}\n}\n");
}

void Visualizer3::writePoint(const Point3& point, int size, const std::string& color)
{
    putLines(
        1, 1, [&](size_t) -> const Point3& { return point; }, size, color);
}

void Visualizer3::writePoints(const std::vector<Point3>& vPoints, int size, const std::string& color)
{
    putLines(
        vPoints.size(), 1, [&](size_t i) -> const Point3& { return vPoints[i]; }, size, color);
}

void Visualizer3::writePoints(const std::vector<Point3*>& vPoints, int size, const std::string& color)
{
    putLines(
        vPoints.size(), 1, [&](size_t i) -> const Point3& { return *vPoints[i]; }, size, color);
}

void Visualizer3::writeSegments(const std::vector<Segment3>& vSegments, int width, const std::string& color)
{
    const auto endAt = [&](size_t i) -> const Point3&
    { return i % 2 == 0 ? vSegments[i / 2].getSrc() : vSegments[i / 2].getTrg(); };
    putLines(vSegments.size(), 2, endAt, width, color);
}

void Visualizer3::writeSegments(const std::vector<REdge*>& vEdges, int width, const std::string& color)
{
    const auto endAt = [&](size_t i) -> const Point3& { return *vEdges[i / 2]->getVertex(static_cast<int>(i % 2)); };
    putLines(vEdges.size(), 2, endAt, width, color);
}

// ---- the file ----

void Visualizer3::closeFile()
{
    if (!file.is_open())
        return;
    out.put('}');
    out.flush();
    file.close();
    bValid = file.good();
    if (!bValid)
        errorMsg(ZAV_LOCATION, path + " not written completely");
}

void Visualizer3::putPoint(const Point3& point)
{
    out.putNumbers(point.x(), point.y(), point.z());
}

void Visualizer3::putVertexColor(const Point3& point)
{
    if (!point.hasColor())
    {
        out.put(" 0.2 0.2 0.2 1");
        return;
    }
    for (const unsigned char channel : {point.r, point.g, point.b, point.a})
    {
        out.put(' ');
        out.putNumber(channel / 255.0);
    }
}

void Visualizer3::putNumber(size_t number)
{
    out.putNumber(static_cast<long long>(number));
}

bool writeList(RMesh* pRMesh, const std::string& path, bool bAuthorized)
{
    Visualizer3 visualizer(path, nullptr, bAuthorized);
    if (!visualizer.isValid())
        return false;
    std::vector<RTriangle*> vRT;
    pRMesh->getAliveTriangles(vRT);
    visualizer.writeTriangles(vRT, Visualizer3::CGREEN, false);
    visualizer.closeFile();
    return visualizer.isValid();
}

} // namespace MIRT_ZAV
