#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <new>

#include "services/file/os_path_id.h"

class MediaObj;

// The cache's map from a file's id to its object: a tree in the order of the ids, and beside it a hash index of the
// tree's entries, so that a look-up among many objects touches little memory. Without memory for the index the tree
// alone answers.
// **Threads:** one at a time. **Owns:** its entries, not the objects.
class ObjectMap {
public:
    using Tree = std::map<OsPathId, MediaObj*>;
    using iterator = Tree::iterator;
    using value_type = Tree::value_type;

    ObjectMap() = default;
    ObjectMap(const ObjectMap&) = delete;
    ObjectMap& operator=(const ObjectMap&) = delete;
    ~ObjectMap() { delete[] m_slots; }

    iterator begin() { return m_tree.begin(); }
    iterator end() { return m_tree.end(); }
    std::size_t size() const { return m_tree.size(); }
    bool empty() const { return m_tree.empty(); }

    iterator find(OsPathId id) {
        if (m_slots == nullptr) return m_tree.find(id);
        std::size_t place = homeOf(id);
        while (isTaken(place) && m_slots[place]->first != id)
            place = after(place);
        return m_slots[place];
    }

    // The hint is the tree's. An entry of that id stays as it is.
    iterator insert(iterator hint, const value_type& value) {
        const std::size_t before = size();
        const iterator entry = m_tree.insert(hint, value);
        if (size() == before) return entry;
        if (2 * size() > m_count) {
            rebuild();
        } else {
            put(entry);
        }
        return entry;
    }

    void erase(iterator entry) {
        if (m_slots != nullptr) take(entry->first);
        m_tree.erase(entry);
        // A walk goes over all places, the empty ones too.
        if (m_count > s_fewestSlots && 16 * size() < m_count) rebuild();
    }

    // The objects of the map by the batch and in no order, without the reservations: far faster than the tree among
    // many, since memory is asked for a whole batch of them at once. `place` is 0 at first and belongs to the walk.
    // Gives: how many; 0 at the end, and at once when only the tree is there.
    static constexpr unsigned s_batch = 32;
    bool hasBatches() const { return m_slots != nullptr; }
    unsigned nextBatch(std::size_t& place, MediaObj* (&objects)[s_batch]) const {
        unsigned count = 0;
        while (count == 0 && place < m_count) {
            const value_type* entries[s_batch];
            unsigned taken = 0;
            for (; place < m_count && taken < s_batch; ++place) {
                if (!isTaken(place)) continue;
                entries[taken] = &*m_slots[place];
                __builtin_prefetch(entries[taken++]);
            }
            for (unsigned i = 0; i < taken; ++i) {
                MediaObj* const object = entries[i]->second;
                if (object == nullptr) continue;
                objects[count++] = object;
                __builtin_prefetch(object);
            }
        }
        return count;
    }

private:
    static constexpr std::size_t s_fewestSlots = 64;

    bool isTaken(std::size_t place) const { return m_slots[place] != m_end; }
    std::size_t after(std::size_t place) const { return (place + 1) & (m_count - 1); }
    std::size_t homeOf(OsPathId id) const {
        return static_cast<std::size_t>((id.getId() * 0x9E3779B97F4A7C15ull) >> 32) & (m_count - 1);
    }

    void put(iterator entry) {
        std::size_t place = homeOf(entry->first);
        while (isTaken(place))
            place = after(place);
        m_slots[place] = entry;
    }

    // Those behind the gap move up, as far as their homes allow, so that no search ends too early.
    void take(OsPathId id) {
        std::size_t gap = homeOf(id);
        while (m_slots[gap]->first != id)
            gap = after(gap);
        for (std::size_t place = after(gap); isTaken(place); place = after(place)) {
            const std::size_t home = homeOf(m_slots[place]->first);
            if (((place - home) & (m_count - 1)) < ((place - gap) & (m_count - 1))) continue;
            m_slots[gap] = m_slots[place];
            gap = place;
        }
        m_slots[gap] = m_end;
    }

    void rebuild() {
        std::size_t count = s_fewestSlots;
        while (count < 4 * size())
            count *= 2;
        delete[] m_slots;
        m_slots = new (std::nothrow) iterator[count];
        m_count = m_slots != nullptr ? count : 0;
        for (std::size_t i = 0; i < m_count; ++i)
            m_slots[i] = m_end;
        if (m_slots == nullptr) return;
        for (iterator entry = begin(); entry != end(); ++entry)
            put(entry);
    }

    Tree m_tree;
    const iterator m_end = m_tree.end();
    iterator* m_slots = nullptr;  // owned; m_end where nothing stands
    std::size_t m_count = 0;      // of slots: a power of two, at least twice the entries; 0 without memory
};
