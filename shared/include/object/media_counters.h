#pragma once

#include "support/auto_ptr.h"
#include "support/visibility.h"

// What the library counts, at one moment as far as that goes: each figure is read by itself. Totals are since the
// process began.
// **Threads:** any.
struct MO_PUBLIC MediaCounters {
    // Calls of the file layer of one kind.
    struct FileCalls {
        unsigned long long m_done = 0;      // failed ones too
        unsigned long long m_failed = 0;    // of those done
        unsigned long long m_underWay = 0;  // now
    };
    // Parses of changed files, by what the cache thought of them.
    struct Verdicts {
        unsigned long long m_update = 0;
        unsigned long long m_structureChange = 0;
        unsigned long long m_invalidChange = 0;
        unsigned long long m_redundant = 0;
        unsigned long long m_vetoed = 0;
        unsigned long long m_tooShort = 0;
    };
    // Messages, those that the level kept from the log too.
    struct Messages {
        unsigned long long m_errors = 0;
        unsigned long long m_warnings = 0;
        unsigned long long m_infos = 0;
        unsigned long long m_debugs = 0;
    };

    bool m_isCacheKnown = false;       // false when the cache's map couldn't be had within a second; the next two are 0
    unsigned long long m_entries = 0;  // objects and reservations in the cache's map
    unsigned long long m_zombies = 0;  // objects that wait for their end
    unsigned long long m_objects = 0;  // live ones, whether cached or not
    unsigned long long m_files = 0;    // that somebody knows
    Verdicts m_verdicts;
    FileCalls m_reads;
    FileCalls m_writes;
    FileCalls m_flushes;
    unsigned long long m_slow = 0;             // calls of the file layer that took 20 ms or more
    unsigned long long m_bufferBytes = 0;      // in use by data buffers
    unsigned long long m_idleBufferBytes = 0;  // kept for the next ones
    Messages m_messages;

    // Waits: for the cache's map, at most a second.
    static MediaCounters take();
    // In the text form of OpenMetrics 1.0, its end mark included; what isn't known is left out. Gives: array text.
    AutoPtr<char> toText() const;
};
