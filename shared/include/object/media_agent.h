#pragma once

#include "services/file/basic_io_types.h"
#include "services/metadata/agent_properties.h"
#include "support/visibility.h"

// Never defined: a `MediaIdRec*` is the 1-based position of a file in its movie's list, 1 being the primary file, and
// is never dereferenced. Null is none, or where an operation says so all files or the primary file.
struct MediaIdRec;

// Names one client of the library. Copied by value; the properties belong to the client and outlive every copy.
class MO_PUBLIC MediaAgent {
public:
    using Properties = IGenericProperties<MediaAgentPropId>;

    // Null gives the null agent, the owner of the handle that opened an object.
    MediaAgent(const Properties* client = nullptr)
        : m_props(client != nullptr ? client : &s_nullAgent), m_client(client) {}

    const Properties* operator->() const { return m_props; }
    // The client's key in the file layer: the very pointer that carries its properties, compared and never read.
    operator FileIoClientRec*() const {
        return const_cast<FileIoClientRec*>(reinterpret_cast<const FileIoClientRec*>(m_client));
    }
    const void* client() const { return m_client; }

    bool operator==(const MediaAgent& other) const { return m_client == other.m_client; }
    bool operator==(const void* client) const { return m_client == client; }
    bool operator!=(const void* client) const { return m_client != client; }

private:
    static const Properties& s_nullAgent;

    const Properties* m_props;   // never null
    const Properties* m_client;  // null for the null agent
};
