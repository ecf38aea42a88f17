#include "services/file/file_ops.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "services/file/file_identity.h"
#include "services/system/control_commands.h"
#include "services/system/short_lock.h"

namespace {

constexpr unsigned s_cells = 16;

// Each thread counts in one cell of its own as far as they go, so that threads don't pass a line of memory to and fro.
struct alignas(64) Cell {
    std::atomic<unsigned long long> m_begun[FileOps::s_kinds] = {};
    std::atomic<unsigned long long> m_ended[FileOps::s_kinds] = {};
    std::atomic<unsigned long long> m_failed[FileOps::s_kinds] = {};
    std::atomic<unsigned long long> m_slow{0};
};

// A place for a call that is under way. Its words are written with release and read with acquire, so that whoever sees
// a word of a newer call also sees that call's ticket when he looks at it again.
struct alignas(64) Place {
    static constexpr unsigned long long s_free = 0, s_taken = 1;  // as tickets

    std::atomic<unsigned long long> m_ticket{s_free};  // of the call whose words stand
    std::atomic<unsigned long long> m_file{0};
    std::atomic<unsigned long long> m_kindAndSize{0};
    std::atomic<unsigned long long> m_offset{0};
    std::atomic<long long> m_start{0};
};

constexpr unsigned s_ownPlaces = FileOps::s_places / s_cells;
constexpr unsigned s_tries = 4;
constexpr unsigned s_kindBits = 2;

constinit Cell s_cell[s_cells];
constinit Place s_place[FileOps::s_places];
constinit std::atomic<unsigned> s_threads{0};

// What a thread knows of its own: its cell, where it found a place last, and the number of its next call.
struct ThreadState {
    const unsigned m_number = s_threads.fetch_add(1, std::memory_order_relaxed);
    unsigned m_next = 0;
    unsigned long long m_ticket = (static_cast<unsigned long long>(m_number) << 40) + 2;
};

ThreadState& ownState() {
    thread_local ThreadState t_state;
    return t_state;
}

Cell& ownCell() { return s_cell[ownState().m_number % s_cells]; }

// As a rule the place that the thread has just given back.
unsigned takePlace(ThreadState& state) {
    const unsigned first = state.m_number % s_cells * s_ownPlaces;
    for (unsigned i = 0; i < s_tries; ++i) {
        const unsigned place = first + state.m_next % s_ownPlaces;
        unsigned long long free = Place::s_free;
        std::atomic<unsigned long long>& ticket = s_place[place].m_ticket;
        if (ticket.load(std::memory_order_relaxed) == free &&
            ticket.compare_exchange_strong(free, Place::s_taken, std::memory_order_acquire, std::memory_order_relaxed))
            return place;
        ++state.m_next;
    }
    return FileOps::s_noPlace;
}

void giveBack(unsigned place) {
    if (place != FileOps::s_noPlace) s_place[place].m_ticket.store(Place::s_free, std::memory_order_release);
}

// Fails: false when no call has the place, or one that is just coming or going.
bool lookAt(const Place& place, FileOps::Current& current) {
    const unsigned long long ticket = place.m_ticket.load(std::memory_order_acquire);
    if (ticket == Place::s_free || ticket == Place::s_taken) return false;
    const unsigned long long kindAndSize = place.m_kindAndSize.load(std::memory_order_acquire);
    current.m_kind = static_cast<FileOps::Kind>(kindAndSize & ((1u << s_kindBits) - 1));
    current.m_size = kindAndSize >> s_kindBits;
    current.m_file = place.m_file.load(std::memory_order_acquire);
    current.m_offset = place.m_offset.load(std::memory_order_acquire);
    current.m_start = place.m_start.load(std::memory_order_acquire);
    return place.m_ticket.load(std::memory_order_relaxed) == ticket;
}

std::string pathOf(OsPathId file) {
    FileIdentity* const identity = file != 0 ? FileTable::acquireById(file) : nullptr;
    if (identity == nullptr) return std::string();
    std::string path = FileTable::pathOf(*identity);
    FileTable::release(*identity);
    return path;
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

void writeCurrent(const FileOps::Current& current, long long now, JsonWriter& out) {
    out.beginObject().key("kind").string(FileOps::getName(current.m_kind)).key("path").string(pathOf(current.m_file));
    out.key("offset").number(std::uint64_t{current.m_offset}).key("size").number(std::uint64_t{current.m_size});
    out.key("msec").number(std::int64_t{std::max(now - current.m_start, 0ll) / 1000}).endObject();
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
    out.key("current").beginArray();
    const std::vector<FileOps::Current> calls = FileOps::getCurrent();
    const long long now = coarseNow();
    for (const FileOps::Current& current : calls)
        writeCurrent(current, now, out);
    out.endArray().key("slowest").beginArray();
    for (const FileOps::Slow& slow : FileOps::getSlowestAt(now))
        writeSlow(slow, now, out);
    out.endArray().endObject();
    return true;
}

}  // namespace

FileOps::Begun FileOps::begin(Kind kind, OsPathId file, unsigned long long offset, unsigned long long size) {
    ThreadState& state = ownState();
    s_cell[state.m_number % s_cells].m_begun[static_cast<unsigned>(kind)].fetch_add(1, std::memory_order_relaxed);
    const Begun begun{coarseNow(), takePlace(state)};
    if (begun.m_place == s_noPlace) return begun;
    Place& place = s_place[begun.m_place];
    place.m_file.store(file.getId(), std::memory_order_release);
    place.m_kindAndSize.store(size << s_kindBits | static_cast<unsigned>(kind), std::memory_order_release);
    place.m_offset.store(offset, std::memory_order_release);
    place.m_start.store(begun.m_start, std::memory_order_release);
    place.m_ticket.store(state.m_ticket++, std::memory_order_release);
    return begun;
}

void FileOps::end(Kind kind, const Begun& begun, const char* path, unsigned long long offset, unsigned long long size,
                  int error) {
    giveBack(begun.m_place);
    Cell& cell = ownCell();
    cell.m_ended[static_cast<unsigned>(kind)].fetch_add(1, std::memory_order_relaxed);
    if (error != 0) cell.m_failed[static_cast<unsigned>(kind)].fetch_add(1, std::memory_order_relaxed);
    const long long start = begun.m_start;
    const long long now = coarseNow();
    if (now - start < s_slow) return;
    cell.m_slow.fetch_add(1, std::memory_order_relaxed);
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
void FileOps::cancel(Kind kind, const Begun& begun) {
    giveBack(begun.m_place);
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

unsigned long long FileOps::getSlowCount() {
    unsigned long long sum = 0;
    for (const Cell& cell : s_cell)
        sum += cell.m_slow.load(std::memory_order_relaxed);
    return sum;
}

unsigned long long FileOps::getFailureCount(Kind kind) {
    unsigned long long sum = 0;
    for (const Cell& cell : s_cell)
        sum += cell.m_failed[static_cast<unsigned>(kind)].load(std::memory_order_relaxed);
    return sum;
}

std::vector<FileOps::Current> FileOps::getCurrent() {
    std::vector<Current> calls;
    for (const Place& place : s_place) {
        Current current;
        if (lookAt(place, current)) calls.push_back(current);
    }
    std::stable_sort(calls.begin(), calls.end(),
                     [](const Current& a, const Current& b) { return a.m_start < b.m_start; });
    return calls;
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
