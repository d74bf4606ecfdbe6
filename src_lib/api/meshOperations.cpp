#include "zav/meshOperations.h"

#include "api/OwnRun.h"
#include "api/meshAccess.h"
#include "refined/RMesh.h"

#include <vector>

namespace MIRT_ZAV
{
namespace
{
/// From 0.018 on, each a tenth colder, to the first one not above 0.001: 29. Which flips a round draws depends on every
/// digit.
std::vector<double> getTemperatures()
{
    std::vector<double> temperatures;
    double temperature = 0.02;
    do
    {
        temperature *= 0.9;
        temperatures.push_back(temperature);
    } while (temperature > 0.001);
    return temperatures;
}
} // namespace

void edgeFlips(MeshPtr pMesh)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const OwnRun run(progressForFlips);
    pRMesh->flipEdges();
    run.finish();
}

void edgeFlipsSimA(MeshPtr pMesh)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const std::vector<double> temperatures = getTemperatures();
    const OwnRun run([&temperatures] { progressForAnnealing(temperatures); });
    edgeFlips(pMesh);
    for (const double temperature : temperatures)
        edgeFlipsSimA(pRMesh, temperature);
    edgeFlips(pMesh);
    run.finish();
}

void laplacianSmoothing(MeshPtr pMesh, int nIter)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const OwnRun run([nIter] { progressForSmoothing(nIter); });
    pRMesh->smoothAll(nIter);
    pRMesh->killDegenerate();
    run.finish();
}

int reduce(MeshPtr pMesh, double maxEdgeLength, double maxAngleDeg)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const OwnRun run(progressForReduction);
    const int numKilled = pRMesh->reduce(maxEdgeLength * maxEdgeLength, maxAngleDeg);
    pRMesh->killDegenerate();
    run.finish();
    return numKilled;
}

} // namespace MIRT_ZAV
