// A vector that keeps its first few elements inside the object.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace MIRT_TOOLS
{

/// For plain small values such as pointers. Nearly every mesh edge has two triangles: inside the edge they cost neither
/// an allocation nor a cache miss. Further elements move all of them to the heap, for good.
template <class T, std::uint32_t NumInside>
class SmallVec
{
    static_assert(std::is_trivially_copyable_v<T> && NumInside > 0);

public:
    SmallVec() = default;
    ~SmallVec() { releaseHeap(); }
    SmallVec(const SmallVec& other) { *this = other; }
    SmallVec& operator=(const SmallVec& other)
    {
        if (this != &other)
        {
            clear();
            for (const T& value : other)
                push_back(value);
        }
        return *this;
    }

    T* begin() { return data(); }
    T* end() { return data() + numElements; }
    const T* begin() const { return data(); }
    const T* end() const { return data() + numElements; }
    size_t size() const { return numElements; }
    bool empty() const { return numElements == 0; }
    T& operator[](size_t i) { return data()[i]; }
    const T& operator[](size_t i) const { return data()[i]; }
    T& back() { return data()[numElements - 1]; }
    const T& back() const { return data()[numElements - 1]; }

    void push_back(T value)
    {
        if (numElements == room)
            grow();
        data()[numElements++] = value;
    }
    void pop_back() { --numElements; }
    void clear() { numElements = 0; }

private:
    bool isInside() const { return room == NumInside; }
    T* data() { return isInside() ? inside : heap; }
    const T* data() const { return isInside() ? inside : heap; }

    void grow()
    {
        const std::uint32_t newRoom = 2 * room;
        T* const newHeap = static_cast<T*>(std::malloc(newRoom * sizeof(T)));
        if (newHeap == nullptr)
            throw std::bad_alloc();
        std::memcpy(newHeap, data(), numElements * sizeof(T));
        releaseHeap();
        heap = newHeap;
        room = newRoom;
    }

    void releaseHeap()
    {
        if (!isInside())
            std::free(heap);
    }

    union
    {
        T inside[NumInside];
        T* heap;
    };
    std::uint32_t numElements = 0;
    std::uint32_t room = NumInside;
};

} // namespace MIRT_TOOLS
