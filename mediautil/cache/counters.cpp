#include <string>

#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/buffer/obuf_pool.h"
#include "services/file/file_identity.h"
#include "services/file/file_ops.h"
#include "services/system/control_commands.h"
#include "services/system/log_ring.h"
#include "services/system/open_metrics.h"
#include "services/system/text.h"
#include "shared/include/object/media_counters.h"

// What is counted all over the library, in one place.

namespace {

using Code = ReplacementVerdict::Code;
using Type = OpenMetrics::Type;

MediaCounters::FileCalls callsOf(FileOps::Kind kind) {
    const FileOps::Counts counts = FileOps::getCounts(kind);
    return {counts.m_ended, FileOps::getFailureCount(kind), counts.inFlight()};
}

void takeCache(CachedMediaObj& cache, MediaCounters& counters) {
    CachedMediaObj::Counts counts{};
    counters.m_isCacheKnown = cache.tryCounts(counts);
    counters.m_entries = counts.entries;
    counters.m_zombies = counts.zombies;
    const VerdictCounts& verdicts = cache.verdicts();
    counters.m_verdicts = {verdicts.get(Code::Update),        verdicts.get(Code::StructureChange),
                           verdicts.get(Code::InvalidChange), verdicts.get(Code::Redundant),
                           verdicts.get(Code::Vetoed),        verdicts.get(Code::TooShort)};
}

void writeCache(const MediaCounters& counters, OpenMetrics& out) {
    if (counters.m_isCacheKnown) {
        out.family("mediacore_cache_entries", Type::Gauge, "Objects and reservations in the cache's map.");
        out.sample(counters.m_entries);
        out.family("mediacore_cache_zombies", Type::Gauge, "Objects that have left the map and wait for their end.");
        out.sample(counters.m_zombies);
    }
    out.family("mediacore_objects", Type::Gauge, "Live media objects, cached or not.").sample(counters.m_objects);
    out.family("mediacore_files", Type::Gauge, "Files that somebody in the process knows.").sample(counters.m_files);
    const MediaCounters::Verdicts& verdicts = counters.m_verdicts;
    out.family("mediacore_verdicts", Type::Counter, "Parses of changed files, by what was thought of them.");
    out.sample("verdict", "update", verdicts.m_update);
    out.sample("verdict", "structureChange", verdicts.m_structureChange);
    out.sample("verdict", "invalidChange", verdicts.m_invalidChange);
    out.sample("verdict", "redundant", verdicts.m_redundant);
    out.sample("verdict", "vetoed", verdicts.m_vetoed);
    out.sample("verdict", "tooShort", verdicts.m_tooShort);
}

void writeCalls(const MediaCounters& counters, OpenMetrics& out, unsigned long long MediaCounters::FileCalls::*figure) {
    out.sample("kind", "read", counters.m_reads.*figure);
    out.sample("kind", "write", counters.m_writes.*figure);
    out.sample("kind", "flush", counters.m_flushes.*figure);
}

void writeFiles(const MediaCounters& counters, OpenMetrics& out) {
    using Calls = MediaCounters::FileCalls;
    out.family("mediacore_file_calls", Type::Counter, "Reads, writes and flushes that have ended.");
    writeCalls(counters, out, &Calls::m_done);
    out.family("mediacore_file_failures", Type::Counter, "Reads, writes and flushes that have failed.");
    writeCalls(counters, out, &Calls::m_failed);
    out.family("mediacore_file_calls_under_way", Type::Gauge,
               "Reads, writes and flushes that have begun and not ended.");
    writeCalls(counters, out, &Calls::m_underWay);
    out.family("mediacore_file_slow_calls", Type::Counter, "Reads, writes and flushes that took 20 ms or more.");
    out.sample(counters.m_slow);
}

void writeRest(const MediaCounters& counters, OpenMetrics& out) {
    out.family("mediacore_buffer_bytes", Type::Gauge, "Memory of data buffers.");
    out.sample("state", "used", counters.m_bufferBytes).sample("state", "idle", counters.m_idleBufferBytes);
    const MediaCounters::Messages& messages = counters.m_messages;
    out.family("mediacore_messages", Type::Counter, "Messages, those that the level kept from the log too.");
    out.sample("level", "error", messages.m_errors).sample("level", "warning", messages.m_warnings);
    out.sample("level", "info", messages.m_infos).sample("level", "debug", messages.m_debugs);
}

}  // namespace

MediaCounters MediaCounters::take() {
    MediaCounters counters;
    if (CachedMediaObj::exists()) takeCache(*CachedMediaObj::getRef(), counters);
    counters.m_objects = static_cast<unsigned long long>(MediaObjImpl::active.getCount());
    counters.m_files = FileTable::size();
    counters.m_reads = callsOf(FileOps::Kind::Read);
    counters.m_writes = callsOf(FileOps::Kind::Write);
    counters.m_flushes = callsOf(FileOps::Kind::Flush);
    counters.m_slow = FileOps::getSlowCount();
    const ObufStats buffers = obufStats();
    counters.m_bufferBytes = buffers.m_liveBytes;
    counters.m_idleBufferBytes = buffers.m_idleBytes;
    const LogRing& ring = getLogRing();
    counters.m_messages = {ring.getCount(LogLevel::Error), ring.getCount(LogLevel::Warning),
                           ring.getCount(LogLevel::Info), ring.getCount(LogLevel::Debug)};
    return counters;
}

AutoPtr<char> MediaCounters::toText() const {
    OpenMetrics out;
    out.family("mediacore_build", Type::Info, "The library.").sample("version", ControlCommands::getVersion(), 1);
    writeCache(*this, out);
    writeFiles(*this, out);
    writeRest(*this, out);
    return AutoPtr<char>(System::copy(out.finish().c_str()));
}
