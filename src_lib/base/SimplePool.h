// A pool of objects of one type: taking one costs an addition, and all go at once with their owner.
#pragma once

#include "base/AscendingMemory.h"
#include "base/vectorHelpers.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace MIRT_TOOLS
{

/// Hands out raw memory for objects from a list of large containers. An object never moves, none goes back on its own,
/// and the pool runs no destructors: whoever takes objects that own memory destroys them. Later objects lie at higher
/// addresses, so that the order of addresses is the order of creation. Not thread-safe: one thread takes the objects.
///
///     [ numFirst objects ][ half of that ][ as many as first ][ twice that ][ ... up to maxContainer each ]
template <class T>
class SimplePool
{
public:
    std::vector<T*> vContainers;  // in order of allocation
    std::vector<int> vSizes;      // objects that each container has room for
    T* pCurrent = nullptr;        // container in use
    int index = -1;               // last object taken from it, -1 for none
    int capacity = 0;             // objects that it has room for
    int numFirst = -1;            // room in the first container
    int numMore = -1;             // room in each later one; negative for automatic growth
    bool bInitialized = false;    // init() has been called
    bool bSingleContainer = true; // false from the second container on
    int maxContainer = -1;        // limit of automatic growth, in objects

    SimplePool() = default;
    SimplePool(const SimplePool&) = delete;
    SimplePool& operator=(const SimplePool&) = delete;

    ~SimplePool()
    {
        if (vContainers.size() > 500) // so many small ones cost time: numMore should be larger for such data
            std::cout << "SimplePool::~SimplePool: Number of containers to release: " << vContainers.size() << '\n';
    }

    /// Allocates the first container. To be called once, before the first take(): a second call ends the process, and
    /// so does memory that is out, here and later.
    /// \param numFirstArg      objects in the first container
    /// \param numMoreArg       objects in each later one; negative: they grow by themselves
    /// \param maxContainerArg  limit of that growth, in objects; by default about 100 MB
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

    /// Allocates a container and goes on in it; what is free in the present one stays unused.
    /// \param n  objects it has room for; negative: automatic growth
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

    /// \return raw memory for the next object; the caller constructs it there with placement new
    T* take()
    {
        if (++index >= capacity)
        {
            alloc(numMore == 0 ? 1 : numMore); // a numMore that was computed may have rounded to 0
            ++index;
            bSingleContainer = false;
        }
        return pCurrent + index;
    }

    /// Gives up all objects. Only the first container stays and is handed out again from its start.
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
    /// Half of the first container, then doubling: a first guess that was good wastes little on the rest.
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
