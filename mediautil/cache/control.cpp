#include <cstdio>
#include <cstring>

#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/file/file_ops.h"
#include "services/system/control_socket.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/media_counters.h"
#include "support/clock.h"

// What the cache offers on the control socket.

using Facts = CachedMediaObj::ObjectFacts;

namespace {

bool traceKind(const char* name, MediaObj::Trace& kind) {
    constexpr const char* names[] = {"list", "status", "flush"};
    for (unsigned i = 0; i < 3; ++i) {
        if (std::strcmp(name, names[i]) != 0) continue;
        kind = static_cast<MediaObj::Trace>(i);
        return true;
    }
    return false;
}

bool traceCommand(const ControlRequest& request, ControlReply& reply) {
    const char* name = request.has("kind") ? request.getText("kind") : "list";
    MediaObj::Trace kind{};
    if (name == nullptr || !traceKind(name, kind)) return reply.fail("kind is one of list, status and flush");
    CachedMediaObj* cache = CachedMediaObj::getRef();
    cache->trace(kind);
    const CachedMediaObj::Counts counts = cache->counts();
    reply.result().beginObject().key("entries").number(counts.entries);
    reply.result().key("zombies").number(counts.zombies);
    reply.result().key("active").number(MediaObjImpl::active.getCount()).endObject();
    return true;
}

Facts factsOf(MediaObj& object, Facts::State state, OsPathId id, long long now) {
    const MediaObjImpl& impl = object.impl();
    Facts facts;
    facts.state = state;
    facts.id = id;
    if (const char* const path = object.getPath(nullptr); path != nullptr) facts.path = path;
    facts.serial = impl.m_serialNum;
    facts.references = object.getReferenceCount();
    facts.holders = impl.getHolderCount();
    facts.writers = impl.getWriterCount();
    facts.waiting = impl.m_morphWaits.getCount();
    facts.morphing = object.isMorphing();
    facts.writable = object.getMovieDesc()->isWritable();
    facts.recording = object.getMovieDesc()->isRecording();
    facts.version = impl.getVersion();
    facts.age = now - impl.m_createTime;
    if (const long long last = impl.getLastRefTime(); last != 0) facts.idle = now - last;
    facts.clientsKnown = impl.m_fileList.tryListOpen(facts.clients);
    return facts;
}

const char* nameOf(Facts::State state) {
    switch (state) {
        case Facts::State::Cached:
            return "cached";
        case Facts::State::Reserved:
            return "reserved";
        case Facts::State::Zombie:
            break;
    }
    return "zombie";
}

// A client is named by its address, which is all that is known of it; the null agent by null.
void writeClients(const Facts& facts, JsonWriter& out) {
    if (!facts.clientsKnown) {
        out.null();
        return;
    }
    out.beginArray();
    for (const FilePerClient::OpenHandles& client : facts.clients) {
        char name[24];
        std::snprintf(name, sizeof name, "%p", static_cast<const void*>(client.m_client));
        out.beginObject().key("agent");
        if (client.m_client == nullptr)
            out.null();
        else
            out.string(name);
        out.key("files").number(client.m_count).endObject();
    }
    out.endArray();
}

void writeFacts(const Facts& facts, JsonWriter& out) {
    char id[24];
    std::snprintf(id, sizeof id, "0x%llx", facts.id.getId());
    out.beginObject().key("state").string(nameOf(facts.state)).key("id").string(id);
    if (facts.state != Facts::State::Reserved) {
        out.key("path").string(facts.path).key("serial").number(facts.serial);
        out.key("references").number(facts.references).key("holders").number(facts.holders);
        writeClients(facts, out.key("agents"));
        out.key("writers").number(facts.writers).key("morphing").boolean(facts.morphing);
        out.key("waiting").number(facts.waiting);
        out.key("writable").boolean(facts.writable).key("recording").boolean(facts.recording);
        out.key("version").number(std::uint64_t{facts.version});
        out.key("ageMsec").number(std::int64_t{facts.age / 1000}).key("idleMsec");
        if (facts.idle < 0)
            out.null();
        else
            out.number(std::int64_t{facts.idle / 1000});
    }
    out.endObject();
}

bool objectsCommand(const ControlRequest&, ControlReply& reply) {
    std::vector<Facts> facts;
    if (!CachedMediaObj::getRef()->listFacts(facts)) return reply.fail("the cache's map can't be had within a second");
    reply.result().beginArray();
    for (const Facts& one : facts)
        writeFacts(one, reply.result());
    reply.result().endArray();
    return true;
}

bool metricsCommand(const ControlRequest&, ControlReply& reply) {
    reply.result().string(MediaCounters::take().toText().get());
    return true;
}

bool verdictsCommand(const ControlRequest&, ControlReply& reply) {
    const VerdictCounts& verdicts = CachedMediaObj::getRef()->verdicts();
    reply.result().beginObject();
    for (const VerdictCounts::Name& name : VerdictCounts::s_names)
        reply.result().key(name.m_name).number(std::uint64_t{verdicts.get(name.m_code)});
    reply.result().endObject();
    return true;
}

}  // namespace

bool CachedMediaObj::tryCounts(Counts& counts) {
    if (!lockMapPatiently()) return false;
    counts = {static_cast<unsigned>(m_map.size()), static_cast<unsigned>(m_zombies.size())};
    m_mapLock.unlock();
    return true;
}

bool CachedMediaObj::listFacts(std::vector<ObjectFacts>& facts) {
    if (!lockMapPatiently()) return false;
    const long long now = Clock::nowRelative();
    facts.clear();
    facts.reserve(m_map.size() + m_zombies.size());
    for (const auto& [id, object] : m_map) {
        if (object != nullptr) {
            facts.push_back(factsOf(*object, Facts::State::Cached, id, now));
        } else {
            facts.emplace_back().id = id;
        }
    }
    for (MediaObj* const object : m_zombies)
        facts.push_back(factsOf(*object, Facts::State::Zombie, object->impl().getCacheId(), now));
    m_mapLock.unlock();
    return true;
}

void CachedMediaObj::offerControl() {
    ControlSocket::addCommand("trace", "the cache's listing goes to the log; kind: list (default), status or flush",
                              traceCommand);
    ControlSocket::addCommand("objects", "what stands in the cache: who holds it, its files, age, version and writers",
                              objectsCommand);
    ControlSocket::addCommand("verdicts", "how many parses of changed files were believed or refused, by rule",
                              verdictsCommand);
    ControlSocket::addCommand("metrics", "all counters as one text in the OpenMetrics form", metricsCommand);
    FileOps::offerControl();
    ControlSocket::startFromEnvironment();
}
