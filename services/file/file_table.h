#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "services/file/file_identity.h"
#include "services/system/locks.h"

// What the sources of FileTable share.

// A path under which a file was seen. One that isn't indexed is only a spelling that has led here before, so that the
// same spelling needs no second thought.
struct KnownPath {
    KnownPath* m_next = nullptr;  // of the same identity
    KnownPath* m_nextInIndex = nullptr;
    FileIdentity* m_owner = nullptr;
    std::uint64_t m_hash = 0;
    std::uint32_t m_length = 0;
    bool m_indexed = false;
    char m_text[1];

    // Gives: memory of malloc, or null.
    static KnownPath* make(std::string_view text, bool indexed);
    std::string_view text() const { return std::string_view(m_text, m_length); }
};

// The system's own handle of a file, valid whatever the file's name.
struct StoredHandle {
    static constexpr unsigned s_maxBytes = 64;  // that local file systems need; longer ones aren't kept

    unsigned m_bytes = 0;
    int m_type = 0;
    unsigned char m_data[s_maxBytes];
};

// A hash table of nodes that carry their own link. It grows with its content and shrinks never; when memory doesn't
// come for growing it only gets slower.
template <class Node, Node* Node::*Next, class HashOf>
class NodeTable {
public:
    constexpr NodeTable() = default;
    NodeTable(const NodeTable&) = delete;
    NodeTable& operator=(const NodeTable&) = delete;
    ~NodeTable() {
        if (m_buckets != m_first) std::free(m_buckets);
    }

    template <class Matches>
    Node* find(std::uint64_t hash, Matches matches) const {
        for (Node* node = m_buckets[hash & m_mask]; node != nullptr; node = node->*Next) {
            if (matches(*node)) return node;
        }
        return nullptr;
    }
    void insert(Node& node) {
        if (m_count > m_mask) grow();
        push(m_buckets, m_mask, node);
        ++m_count;
    }
    void remove(Node& node) {
        for (Node** link = &m_buckets[HashOf()(node) & m_mask]; *link != nullptr; link = &((*link)->*Next)) {
            if (*link != &node) continue;
            *link = node.*Next;
            --m_count;
            return;
        }
    }
    template <class Visit>
    void forEach(Visit visit) const {
        for (std::size_t i = 0; i <= m_mask; ++i) {
            for (Node* node = m_buckets[i]; node != nullptr; node = node->*Next)
                visit(*node);
        }
    }
    unsigned count() const { return static_cast<unsigned>(m_count); }

private:
    static constexpr std::size_t s_firstBuckets = 4;

    static void push(Node** buckets, std::size_t mask, Node& node) {
        Node** const bucket = &buckets[HashOf()(node) & mask];
        node.*Next = *bucket;
        *bucket = &node;
    }
    void grow() {
        const std::size_t size = (m_mask + 1) * 2;
        Node** const buckets = static_cast<Node**>(std::calloc(size, sizeof(Node*)));
        if (buckets == nullptr) return;
        for (std::size_t i = 0; i <= m_mask; ++i) {
            while (Node* const node = m_buckets[i]) {
                m_buckets[i] = node->*Next;
                push(buckets, size - 1, *node);
            }
        }
        if (m_buckets != m_first) std::free(m_buckets);
        m_buckets = buckets;
        m_mask = size - 1;
    }

    Node* m_first[s_firstBuckets] = {};
    Node** m_buckets = m_first;
    std::size_t m_mask = s_firstBuckets - 1;
    std::size_t m_count = 0;
};

struct FileTable::State {
    struct KeyHash {
        std::uint64_t operator()(const FileIdentity& identity) const { return hashOf(identity.getKey()) >> 8; }
    };
    struct IdHash {
        std::uint64_t operator()(const FileIdentity& identity) const { return identity.getId().getId(); }
    };
    struct PathHash {
        std::uint64_t operator()(const KnownPath& path) const { return path.m_hash; }
    };
    // The low bits of a key's hash choose the shard, the others the bucket in it.
    struct alignas(64) Shard {
        ShortLock m_lock;
        NodeTable<FileIdentity, &FileIdentity::m_nextByKey, KeyHash> m_byKey MO_GUARDED_BY(m_lock);

        FileIdentity* find(const FileKey& key, std::uint64_t hash) const MO_REQUIRES(m_lock) {
            return m_byKey.find(hash >> 8, [&key](const FileIdentity& identity) { return identity.matches(key); });
        }
    };
    static constexpr unsigned s_shards = 64;

    Shard& shard(std::uint64_t hash) { return m_shards[hash % s_shards]; }
    FileIdentity* findId(OsPathId id) const MO_REQUIRES(m_indexLock) {
        return m_byId.find(id.getId(), [id](const FileIdentity& identity) { return identity.getId() == id; });
    }
    KnownPath* findPath(std::string_view path) const MO_REQUIRES(m_indexLock);

    ZarnexPosix::JMutex m_movesLock;
    ZarnexPosix::JMutex m_indexLock MO_ACQUIRED_AFTER(m_movesLock);
    NodeTable<FileIdentity, &FileIdentity::m_nextById, IdHash> m_byId MO_GUARDED_BY(m_indexLock);
    NodeTable<KnownPath, &KnownPath::m_nextInIndex, PathHash> m_byPath MO_GUARDED_BY(m_indexLock);
    Shard m_shards[s_shards];
};
