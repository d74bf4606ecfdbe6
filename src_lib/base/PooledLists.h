// Lists of values for the objects of a pool, like a multimap with access by key.
//
// Objects of a pool lie side by side in the order of their creation, so an object's address tells its number, and the
// number where its list begins: no search and no hash.
//
//     pool     [ obj 0 | obj 1 | obj 2 | ... ]
//     heads    [  0,3  |   -   |  1,1  | ... ]     first and last node of each list
//     nodes    [ a ->3 | c     | free  | b   ]     obj 0 has a, b; obj 2 has c
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace MIRT_TOOLS
{

/// One value for every object, found by the object's address.
template <class Object, class Value>
class PoolIndex
{
public:
    void reserve(size_t n) { values.reserve(n); }

    /// To be called for every object, in the order of creation.
    void add(const Object* pObject)
    {
        if (runs.empty() || pObject != runs.back().begin + runs.back().size)
            runs.push_back({pObject, values.size(), 0});
        ++runs.back().size;
        values.emplace_back();
    }

    size_t size() const { return values.size(); }

    /// The number of an object in the order of creation, from 0. The object must have been added.
    size_t indexOf(const Object* pObject) const { return static_cast<size_t>(find(pObject) - values.data()); }

    /// The value of an object, or null for one that wasn't added.
    const Value* find(const Object* pObject) const
    {
        for (const Run& run : runs)
        {
            const auto begin = reinterpret_cast<std::uintptr_t>(run.begin);
            // Below the run the difference wraps round to a huge number.
            const size_t i = (reinterpret_cast<std::uintptr_t>(pObject) - begin) / sizeof(Object);
            if (i < run.size)
                return &values[run.firstValue + i];
        }
        return nullptr;
    }
    Value* find(const Object* pObject)
    {
        return const_cast<Value*>(static_cast<const PoolIndex*>(this)->find(pObject));
    }

private:
    /// Objects side by side. A pool is one run as long as its containers lie side by side, which they do unless the
    /// address space is tight: find() counts on there being few.
    struct Run
    {
        const Object* begin;
        size_t firstValue;
        size_t size;
    };

    std::vector<Run> runs;
    std::vector<Value> values;
};

/// A list for each object; its values keep their order of insertion.
template <class Object, class T>
class PooledLists
{
public:
    /// Number of values over all objects.
    size_t size() const { return numValues; }
    bool empty() const { return numValues == 0; }

    void reserve(size_t numObjects, size_t numExpectedValues)
    {
        heads.reserve(numObjects);
        nodes.reserve(numExpectedValues);
    }

    /// Gives an object an empty list. To be called for every object, in the order of creation.
    void addObject(const Object* pObject) { heads.add(pObject); }
    size_t getNumObjects() const { return heads.size(); }
    /// The number of an object in the order of creation, from 0. The object must have been added.
    size_t indexOf(const Object* pObject) const { return heads.indexOf(pObject); }

    /// Appends a value to the list of an object that was added.
    void insert(const Object* pObject, T value)
    {
        const std::uint32_t node = newNode(value);
        Head& head = *heads.find(pObject);
        if (head.first == noNode)
            head.first = node;
        else
            nodes[head.last].next = node;
        head.last = node;
        ++numValues;
    }

    /// Takes every occurrence of the value off the object's list; returns how many there were.
    int erase(const Object* pObject, const T& value)
    {
        return eraseIf(pObject, [&value](const T& listed) { return listed == value; });
    }

    /// Empties the object's list; returns how many values it had.
    int erase(const Object* pObject)
    {
        return eraseIf(pObject, [](const T&) { return true; });
    }

    size_t count(const Object* pObject) const
    {
        size_t n = 0;
        forEach(pObject, [&n](const T&) { ++n; });
        return n;
    }

    // Two steps of fetching ahead: the head of an object's list, then, once that has arrived, the first value in it.
    void prefetchHead(const Object* pObject) const { __builtin_prefetch(heads.find(pObject)); }
    void prefetchFirst(const Object* pObject) const
    {
        if (const Head* const head = heads.find(pObject); head != nullptr && head->first != noNode)
            __builtin_prefetch(&nodes[head->first]);
    }

    /// Calls f(value) for the values of an object, in order. An object that wasn't added has none.
    template <class F>
    void forEach(const Object* pObject, const F& f) const
    {
        if (const Head* const head = heads.find(pObject))
            for (std::uint32_t node = head->first; node != noNode; node = nodes[node].next)
                f(nodes[node].value);
    }

private:
    static constexpr std::uint32_t noNode = 0xffffffffu;
    struct Head
    {
        std::uint32_t first = noNode;
        std::uint32_t last = noNode;
    };
    struct Node
    {
        T value;
        std::uint32_t next;
    };

    std::uint32_t newNode(T value)
    {
        if (firstFree == noNode)
        {
            nodes.push_back({value, noNode});
            return static_cast<std::uint32_t>(nodes.size() - 1);
        }
        const std::uint32_t node = firstFree;
        firstFree = nodes[node].next;
        nodes[node] = {value, noNode};
        return node;
    }

    template <class Predicate>
    int eraseIf(const Object* pObject, const Predicate& isErased)
    {
        Head* const head = heads.find(pObject);
        if (head == nullptr)
            return 0;
        int numErased = 0;
        std::uint32_t previous = noNode;
        for (std::uint32_t node = head->first; node != noNode;)
        {
            const std::uint32_t next = nodes[node].next;
            if (isErased(nodes[node].value))
            {
                (previous == noNode ? head->first : nodes[previous].next) = next;
                if (head->last == node)
                    head->last = previous;
                nodes[node].next = firstFree;
                firstFree = node;
                ++numErased;
            }
            else
                previous = node;
            node = next;
        }
        numValues -= static_cast<size_t>(numErased);
        return numErased;
    }

    PoolIndex<Object, Head> heads;
    std::vector<Node> nodes;
    std::uint32_t firstFree = noNode; // chain of the nodes to be used again
    size_t numValues = 0;
};

} // namespace MIRT_TOOLS
