#include "files/stlMesh.h"

#include "base/BlockWriter.h"
#include "base/tools.h"
#include "coarse/CMesh.h"
#include "geometry/freeFunctions.h"
#include "refined/RMesh.h"

#include <fstream>
#include <locale>
#include <vector>

namespace MIRT_ZAV
{
namespace
{
constexpr int numDigits = 10;

class StlFile
{
public:
    explicit StlFile(const std::string& pathArg)
        : path(pathArg), file(path, std::ios::out | std::ios::trunc), out(file, numDigits)
    {
        file.imbue(std::locale::classic());
        if (!file.is_open())
            errorMsg("writeSTL", "Failed to open " + path);
        out.put("solid - ZAV\n");
    }

    bool isOpen() const { return file.is_open(); }

    void putTriangle(const Point3& c0, const Point3& c1, const Point3& c2)
    {
        bool ok = false; // not looked at: a triangle without a normal is written with the zeros it gets
        const Vector3 normal = getNormalVector(c0, c1, c2, ok);
        out.put("facet normal ");
        // A zero can have a sign, and the file would show it.
        putNumbers(normal.isZero() ? Vector3(0.0, 0.0, 0.0) : normal);
        out.put(" outer loop\n");
        for (const Point3* const pCorner : {&c0, &c1, &c2})
        {
            out.put("  vertex ");
            putNumbers(toVector(*pCorner));
        }
        out.put(" endloop\nendfacet\n");
    }

    /// False, after a message, when not all of the file has arrived.
    bool close()
    {
        out.put("endsolid - ZAV\n");
        out.flush();
        file.close();
        if (!file.good())
            errorMsg("writeSTL", "Failed to write " + path);
        return file.good();
    }

private:
    void putNumbers(const Vector3& v)
    {
        out.putNumbers(v.x(), v.y(), v.z());
        out.put('\n');
    }

    std::string path;
    std::ofstream file;
    BlockWriter out;
};
} // namespace

bool writeSTL(RMesh* pRMesh, const std::string& path)
{
    StlFile file(path);
    if (!file.isOpen())
        return false;
    std::vector<RTriangle*> vRT;
    pRMesh->getAliveTriangles(vRT);
    for (const RTriangle* const pRT : vRT)
        file.putTriangle(*pRT->getCorner(0), *pRT->getCorner(1), *pRT->getCorner(2));
    return file.close();
}

bool writeSTL(CMesh* pCMesh, const std::map<CCD, Bundle*>& mCCDBundle, const std::string& path)
{
    StlFile file(path);
    if (!file.isOpen())
        return false;
    std::vector<CTriangle*> vT;
    pCMesh->getAliveTriangles(vT);
    for (const CTriangle* const pCT : vT)
    {
        const auto q_it0 = mCCDBundle.find(pCT->getCorner(0));
        ZAV_ASSERT(q_it0 != mCCDBundle.end(), "q_it0!=mCCDBundle.end()");
        const auto q_it1 = mCCDBundle.find(pCT->getCorner(1));
        ZAV_ASSERT(q_it1 != mCCDBundle.end(), "q_it1!=mCCDBundle.end()");
        const auto q_it2 = mCCDBundle.find(pCT->getCorner(2));
        ZAV_ASSERT(q_it2 != mCCDBundle.end(), "q_it2!=mCCDBundle.end()");
        file.putTriangle(*q_it0->second->pVtx, *q_it1->second->pVtx, *q_it2->second->pVtx);
    }
    return file.close();
}

} // namespace MIRT_ZAV
