#pragma once

// The rule that says which of two objects of one file stays. Plain values in, a verdict out.
struct ReplacementVerdict {
    // Bit 5 says not to replace, bit 4 that the change is worth a log line of its own.
    enum Code : unsigned {
        Update = 1,            // an ordinary update
        StructureChange = 20,  // the old object had no tracks, the new one has
        Redundant = 34,        // same version and length, and not forced
        Vetoed = 35,           // the old object's back-end said no
        InvalidChange = 53,    // the number of tracks changed in any other way
        TooShort = 54          // shorter, and too young to be believed
    };
    static constexpr unsigned s_noReplaceBit = 32;
    static constexpr unsigned s_noteworthyBit = 16;

    // What the rule looks at on either side.
    struct Side {
        unsigned long long version;
        unsigned long long length;  // as last notified, ticks of the movie's time base
        unsigned trackCount;
        long long createTime;  // µs of Clock::nowRelative
    };

    // The verdict but for the back-end's veto, which is asked for an Update only.
    static Code judge(const Side& older, const Side& newer, bool force);
    // True where the rules passed without settling the matter, so that the old object may still veto.
    static bool asksBackEnd(const Side& older, const Side& newer, Code code);

    static bool replaces(Code code) { return (code & s_noReplaceBit) == 0; }
    static bool noteworthy(Code code) { return (code & s_noteworthyBit) != 0; }
    // What stands in the log in front of "replace", for ever.
    static const char* text(Code code);
};
