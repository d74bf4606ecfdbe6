#include "refined/RTop.h"

#include "refined/RMesh.h"

namespace MIRT_ZAV
{

void RTop::finalizeBase()
{
    pRMesh->removeDups();
    pRMesh->createPatchesOrient();
    pRMesh->killDegenerate();
}

} // namespace MIRT_ZAV
