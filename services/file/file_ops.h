#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "services/file/os_path_id.h"
#include "support/visibility.h"

// What the file layer's handles have under way, and which of their calls took long of late.
//
// A call costs two additions, a place that it takes and gives back, and two looks at the system's coarse clock, which
// is a few milliseconds rough; no memory and no lock. Only one that was slow takes a lock, a leaf, for a few
// instructions. There are places for s_places calls: one that finds none near its thread's is counted and not listed.
// **Threads:** any. **Units:** µs.
class MO_PUBLIC FileOps {
public:
    enum class Kind : std::uint32_t { Read = 0, Write = 1, Flush = 2 };
    static constexpr unsigned s_kinds = 3;
    static constexpr unsigned s_mostSlow = 16;
    static constexpr long long s_slow = 20000;        // what took less isn't noted
    static constexpr long long s_recent = 600000000;  // an older one makes room first
    static constexpr std::size_t s_pathSize = 512;
    static constexpr unsigned s_places = 512;
    static constexpr unsigned s_noPlace = s_places;

    struct Counts {
        unsigned long long m_begun = 0;
        unsigned long long m_ended = 0;

        // The two aren't read at one moment.
        unsigned long long inFlight() const { return m_begun > m_ended ? m_begun - m_ended : 0; }
    };

    struct Slow {
        Kind m_kind = Kind::Read;
        int m_error = 0;  // errno value
        long long m_start = 0;
        long long m_duration = 0;
        unsigned long long m_offset = 0;  // bytes from the file's start
        unsigned long long m_size = 0;    // bytes
        char m_path[s_pathSize] = {};     // the end of a longer one
    };

    // A call that has begun: what `end` and `cancel` need.
    struct Begun {
        long long m_start = 0;
        unsigned m_place = s_noPlace;
    };

    // A call that is under way.
    struct Current {
        Kind m_kind = Kind::Read;
        OsPathId m_file = 0;  // 0 when it isn't known
        long long m_start = 0;
        unsigned long long m_offset = 0;  // bytes from the file's start
        unsigned long long m_size = 0;    // bytes
    };

    static Begun begin(Kind kind, OsPathId file, unsigned long long offset, unsigned long long size);
    static void end(Kind kind, const Begun& begun, const char* path, unsigned long long offset, unsigned long long size,
                    int error);
    // What has begun was refused and doesn't count.
    static void cancel(Kind kind, const Begun& begun);

    static Counts getCounts(Kind kind);
    // Calls since the start that were slow or failed.
    static unsigned long long getSlowCount();
    static unsigned long long getFailureCount(Kind kind);
    // The calls that have a place now, the oldest first.
    static std::vector<Current> getCurrent();
    // The slowest ones that are recent, the slowest first.
    static std::vector<Slow> getSlowest();
    // The same at a time of the coarse clock.
    static std::vector<Slow> getSlowestAt(long long now);
    // What `end` keeps, from a call that ended at that time.
    static void note(const Slow& slow, long long now);
    static const char* getName(Kind kind);

    // Adds `ops` to the control socket's commands.
    static void offerControl();

    // One call from its begin to the end of a scope. The path is borrowed for as long.
    class Scope {
    public:
        Scope(Kind kind, OsPathId file, const char* path, unsigned long long offset, unsigned long long size)
            : m_kind(kind), m_path(path), m_offset(offset), m_size(size), m_begun(begin(kind, file, offset, size)) {}
        ~Scope() { end(m_kind, m_begun, m_path, m_offset, m_size, m_error); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

        void fail(int error) { m_error = error; }

    private:
        const Kind m_kind;
        const char* const m_path;
        const unsigned long long m_offset;
        const unsigned long long m_size;
        const Begun m_begun;
        int m_error = 0;
    };
};
