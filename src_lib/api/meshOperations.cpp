#include "zav/meshOperations.h"

#include "api/meshAccess.h"
#include "base/Progress.h"
#include "refined/RMesh.h"

#include <vector>

namespace MIRT_ZAV
{
namespace
{
/// The run of an operation that an application calls by itself. Within another run, whose progress has a name already,
/// the operation is a stage: nothing is set up, and nothing closed.
class OwnProgress
{
public:
    template <class SetUp>
    explicit OwnProgress(const SetUp& setUp) : bOwned(getThreadProgress()->getName() == "empty")
    {
        if (bOwned)
            setUp();
    }

    /// At the end of the operation; one that fails leaves the progress as it stands.
    void finish() const
    {
        if (bOwned)
            getThreadProgress()->finishRun();
    }

private:
    bool bOwned;
};

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
    const OwnProgress progress(progressForFlips);
    pRMesh->flipEdges();
    progress.finish();
}

void edgeFlipsSimA(MeshPtr pMesh)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const std::vector<double> temperatures = getTemperatures();
    const OwnProgress progress([&temperatures] { progressForAnnealing(temperatures); });
    edgeFlips(pMesh);
    for (const double temperature : temperatures)
        edgeFlipsSimA(pRMesh, temperature);
    edgeFlips(pMesh);
    progress.finish();
}

void laplacianSmoothing(MeshPtr pMesh, int nIter)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const OwnProgress progress([nIter] { progressForSmoothing(nIter); });
    pRMesh->smoothAll(nIter);
    pRMesh->killDegenerate();
    progress.finish();
}

int reduce(MeshPtr pMesh, double maxEdgeLength, double maxAngleDeg)
{
    RMesh* const pRMesh = getRMesh(pMesh);
    const OwnProgress progress(progressForReduction);
    const int numKilled = pRMesh->reduce(maxEdgeLength * maxEdgeLength, maxAngleDeg);
    pRMesh->killDegenerate();
    progress.finish();
    return numKilled;
}

} // namespace MIRT_ZAV
