#include "RTop.h"

#include "RMesh.h"

namespace MIRT_ZAV
{

void RTop::finalizeBase()
{
    pRMesh->removeDups();
    pRMesh->createPatchesOrient();
    pRMesh->killDegenerate();
}

} // namespace MIRT_ZAV
