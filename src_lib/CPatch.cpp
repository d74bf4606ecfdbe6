#include "CPatch.h"

#include "CTriangle.h"

#include <atomic>

namespace MIRT_ZAV
{
namespace
{
std::uint32_t nextSeqNum()
{
    static std::atomic<std::uint32_t> lastSeqNum{0};
    return ++lastSeqNum;
}
} // namespace

CPatch::CPatch(CMesh* pCMeshArg, Calc* pCalcArg) : seqNum(nextSeqNum()), pCMesh(pCMeshArg), pCalc(pCalcArg)
{
}

CPatch::~CPatch()
{
    for (CTriangle* const t : vT)
        if (t->pPatch == this)
            t->pPatch = nullptr;
}

void CPatch::add(CTriangle* t)
{
    vT.push_back(t);
    t->pPatch = this;
}

} // namespace MIRT_ZAV
