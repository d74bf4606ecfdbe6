// A pool of objects of one type: taking one is a pointer bump, and all are released at once with the owner.
#pragma once

#include "base/AscendingMemory.h"
#include "base/vectorHelpers.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace MIRT_TOOLS
{

/// Hands out raw memory for objects from a list of large containers. No object goes back singly and no destructor is
/// run. Addresses stay valid for the pool's life, and later objects lie at higher addresses, so that the order of
/// addresses is the order of creation. Not thread-safe: objects are taken on one thread.
template <class T>
class SimplePool
{
public:
    std::vector<T*> vContainers;  // in order of allocation
    std::vector<int> vSizes;      // objects per container
    T* pCurrent = nullptr;        // container in use
    int index = -1;               // last object taken from it
    int capacity = 0;             // objects in it
    int numFirst = -1;            // size of the first container
    int numMore = -1;             // size of later ones; negative for automatic growth
    bool bInitialized = false;    //
    bool bSingleContainer = true; // until a second container is allocated
    int maxContainer = -1;        // limit of automatic sizes, in objects

    SimplePool() = default;
    SimplePool(const SimplePool&) = delete;
    SimplePool& operator=(const SimplePool&) = delete;

    ~SimplePool()
    {
        if (vContainers.size() > 500) // a hint to the developer that numMore was chosen too small
            std::cout << "SimplePool::~SimplePool: Number of containers to release: " << vContainers.size() << '\n';
    }

    /// Allocates the first container, of exactly numFirstArg objects. A negative numMoreArg lets later containers grow
    /// by themselves, up to maxContainerArg objects each. A second call ends the process.
    void init(int numFirstArg, int numMoreArg, int maxContainerArg = 100000000 / int(sizeof(T)))
    {
        if (bInitialized)
            endProcess("SimplePool::init(..), ERROR: This pool is already initialized");
        maxContainer = maxContainerArg;
        numFirst = numFirstArg;
        numMore = numMoreArg;
        alloc(numFirst);
        bInitialized = true;
    }

    /// Adds a container of n objects, or of an automatic size when n < 0.
    void alloc(int n)
    {
        if (n < 0)
            n = automaticSize();
        T* const container = static_cast<T*>(memory.allocate(static_cast<size_t>(n) * sizeof(T)));
        if (container == nullptr)
            endProcess("SimplePool::alloc(..), ERROR: Out of memory, sorry");
        vSizes.push_back(n);
        vContainers.push_back(container);
        pCurrent = container;
        index = -1;
        capacity = n;
    }

    /// The memory of the next object. It is not initialised: the caller constructs in place.
    T* take()
    {
        if (++index >= capacity)
        {
            alloc(numMore == 0 ? 1 : numMore); // a growth step that was computed as 0 must not stand still
            ++index;
            bSingleContainer = false;
        }
        return pCurrent + index;
    }

    /// Releases all containers but the first, which is handed out again from its start.
    void backToFirstContainer()
    {
        if (vContainers.size() > 1)
        {
            memory.releaseFrom(vContainers[1]);
            vContainers.resize(1);
            vSizes.resize(1);
        }
        pCurrent = vContainers.front();
        capacity = vSizes.front();
        index = -1;
        bSingleContainer = true;
    }

private:
    int automaticSize() const
    {
        if (vSizes.empty())
            return 1;
        const int last = vSizes.back();
        int size = last;
        if (vSizes.size() == 1)
            size = last / 2 > 0 ? last / 2 : last;
        else
            size = last > maxContainer / 2 ? maxContainer : 2 * last;
        return std::max(1, std::min(size, maxContainer));
    }

    [[noreturn]] static void endProcess(const char* message)
    {
        std::cout << message << std::endl;
        std::exit(1);
    }

    AscendingMemory memory;
};

} // namespace MIRT_TOOLS
