#include "services/file/file_ops.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "services/system/control_commands.h"
#include "services/system/short_lock.h"

namespace {

constexpr unsigned s_cells = 16;

// Each thread counts in one cell of its own as far as they go, so that threads don't pass a line of memory to and fro.
struct alignas(64) Cell {
    std::atomic<unsigned long long> m_begun[FileOps::s_kinds] = {};
    std::atomic<unsigned long long> m_ended[FileOps::s_kinds] = {};
};

constinit Cell s_cell[s_cells];
constinit std::atomic<unsigned> s_threads{0};

Cell& ownCell() {
    thread_local const unsigned t_place = s_threads.fetch_add(1, std::memory_order_relaxed) % s_cells;
    return s_cell[t_place];
}

long long coarseNow() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * 1000000ll + time.tv_nsec / 1000;
}

struct Table {
    ShortLock m_lock;
    FileOps::Slow m_slow[FileOps::s_mostSlow] MO_GUARDED_BY(m_lock);
    unsigned m_count MO_GUARDED_BY(m_lock) = 0;
};

constinit Table s_table;

bool isOld(const FileOps::Slow& slow, long long now) {
    return now - (slow.m_start + slow.m_duration) > FileOps::s_recent;
}

// Which of two is given up first: one that is old, then the faster one.
bool goesBefore(const FileOps::Slow& one, const FileOps::Slow& other, long long now) {
    if (isOld(one, now) != isOld(other, now)) return isOld(one, now);
    return one.m_duration < other.m_duration;
}

void copyPath(const char* path, FileOps::Slow& slow) {
    const std::size_t length = std::strlen(path);
    const std::size_t kept = std::min(length, FileOps::s_pathSize - 1);
    std::memcpy(slow.m_path, path + (length - kept), kept);
}

void writeCounts(JsonWriter& out, unsigned long long (*number)(const FileOps::Counts&)) {
    out.beginObject();
    for (unsigned i = 0; i < FileOps::s_kinds; ++i) {
        const auto kind = static_cast<FileOps::Kind>(i);
        out.key(FileOps::getName(kind)).number(std::uint64_t{number(FileOps::getCounts(kind))});
    }
    out.endObject();
}

void writeSlow(const FileOps::Slow& slow, long long now, JsonWriter& out) {
    out.beginObject().key("kind").string(FileOps::getName(slow.m_kind)).key("path").string(slow.m_path);
    out.key("offset").number(std::uint64_t{slow.m_offset}).key("size").number(std::uint64_t{slow.m_size});
    out.key("msec").number(std::int64_t{slow.m_duration / 1000});
    out.key("agoMsec").number(std::int64_t{(now - slow.m_start - slow.m_duration) / 1000});
    out.key("error").number(slow.m_error).endObject();
}

bool opsCommand(const ControlRequest&, ControlReply& reply) {
    JsonWriter& out = reply.result();
    out.beginObject().key("inFlight");
    writeCounts(out, [](const FileOps::Counts& counts) { return counts.inFlight(); });
    writeCounts(out.key("done"), [](const FileOps::Counts& counts) { return counts.m_ended; });
    out.key("slowest").beginArray();
    const long long now = coarseNow();
    for (const FileOps::Slow& slow : FileOps::getSlowestAt(now))
        writeSlow(slow, now, out);
    out.endArray().endObject();
    return true;
}

}  // namespace

long long FileOps::begin(Kind kind) {
    ownCell().m_begun[static_cast<unsigned>(kind)].fetch_add(1, std::memory_order_relaxed);
    return coarseNow();
}

void FileOps::end(Kind kind, long long start, const char* path, unsigned long long offset, unsigned long long size,
                  int error) {
    ownCell().m_ended[static_cast<unsigned>(kind)].fetch_add(1, std::memory_order_relaxed);
    const long long now = coarseNow();
    if (now - start < s_slow) return;
    Slow slow;
    slow.m_kind = kind;
    slow.m_error = error;
    slow.m_start = start;
    slow.m_duration = now - start;
    slow.m_offset = offset;
    slow.m_size = size;
    if (path != nullptr) copyPath(path, slow);
    note(slow, now);
}

// The sum over all cells is what counts.
void FileOps::cancel(Kind kind) {
    ownCell().m_begun[static_cast<unsigned>(kind)].fetch_sub(1, std::memory_order_relaxed);
}

FileOps::Counts FileOps::getCounts(Kind kind) {
    const auto place = static_cast<unsigned>(kind);
    Counts counts;
    for (const Cell& cell : s_cell)
        counts.m_ended += cell.m_ended[place].load(std::memory_order_relaxed);
    for (const Cell& cell : s_cell)
        counts.m_begun += cell.m_begun[place].load(std::memory_order_relaxed);
    return counts;
}

void FileOps::note(const Slow& slow, long long now) {
    const ShortScope lock(s_table.m_lock);
    if (s_table.m_count < s_mostSlow) {
        s_table.m_slow[s_table.m_count++] = slow;
        return;
    }
    Slow* const first =
        std::min_element(s_table.m_slow, s_table.m_slow + s_mostSlow,
                         [now](const Slow& one, const Slow& other) { return goesBefore(one, other, now); });
    if (goesBefore(*first, slow, now)) *first = slow;
}

std::vector<FileOps::Slow> FileOps::getSlowest() { return getSlowestAt(coarseNow()); }

std::vector<FileOps::Slow> FileOps::getSlowestAt(long long now) {
    std::vector<Slow> slowest(s_mostSlow);
    {
        const ShortScope lock(s_table.m_lock);
        slowest.resize(s_table.m_count);
        std::copy(s_table.m_slow, s_table.m_slow + s_table.m_count, slowest.begin());
    }
    std::erase_if(slowest, [now](const Slow& slow) { return isOld(slow, now); });
    std::stable_sort(slowest.begin(), slowest.end(),
                     [](const Slow& a, const Slow& b) { return a.m_duration > b.m_duration; });
    return slowest;
}

const char* FileOps::getName(Kind kind) {
    switch (kind) {
        case Kind::Read:
            return "read";
        case Kind::Write:
            return "write";
        case Kind::Flush:
            break;
    }
    return "flush";
}

void FileOps::offerControl() {
    ControlCommands::add("ops", "reads, writes and flushes under way and done, and the slowest of the last ten minutes",
                         &opsCommand);
}
