// Lists of values for the objects of a pool, like a multimap with access by key.
//
// Objects of a pool lie side by side in the order of their creation, so that an object's address says where its list
// begins: no look-up is needed.
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

    /// Objects are added in the order of their creation.
    void add(const Object* pObject)
    {
        if (runs.empty() || pObject != runs.back().begin + runs.back().size)
            runs.push_back({pObject, values.size(), 0});
        ++runs.back().size;
        values.emplace_back();
    }

    size_t size() const { return values.size(); }

    /// The number of an added object in the order of creation, from 0.
    size_t indexOf(const Object* pObject) const { return static_cast<size_t>(find(pObject) - values.data()); }

    /// The value of an object, or null for one that wasn't added.
    const Value* find(const Object* pObject) const
    {
        for (const Run& run : runs)
        {
            const auto begin = reinterpret_cast<std::uintptr_t>(run.begin);
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
    /// Objects side by side. A pool has one run unless the address space is tight.
    struct Run
    {
        const Object* begin;
        size_t firstValue;
        size_t size;
    };

    std::vector<Run> runs;
    std::vector<Value> values;
};

/// The values of an object keep their order of insertion.
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

    /// Makes room for the list of an object; in the order of creation, and before values are inserted for it.
    void addObject(const Object* pObject) { heads.add(pObject); }
    size_t getNumObjects() const { return heads.size(); }
    /// The number of an added object in the order of creation, from 0.
    size_t indexOf(const Object* pObject) const { return heads.indexOf(pObject); }

    /// Appends a value to the object's list.
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

    /// Removes every entry with this object and value; returns their number.
    int erase(const Object* pObject, const T& value)
    {
        return eraseIf(pObject, [&value](const T& listed) { return listed == value; });
    }

    /// Removes all entries of an object; returns their number.
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

    /// Start to load the head of an object's list, and what stands first in it.
    void prefetchHead(const Object* pObject) const { __builtin_prefetch(heads.find(pObject)); }
    void prefetchFirst(const Object* pObject) const
    {
        if (const Head* const head = heads.find(pObject); head != nullptr && head->first != noNode)
            __builtin_prefetch(&nodes[head->first]);
    }

    /// Calls f(value) for the values of an object, in order; never for an object that wasn't added.
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
    std::uint32_t firstFree = noNode;
    size_t numValues = 0;
};

} // namespace MIRT_TOOLS
