#include "mediautil/cache/replacement_verdict.h"

namespace {

// A movie that comes out shorter within this time of the object it would replace isn't believed. µs
constexpr long long s_minimumAge = 20000000;

bool sameContent(const ReplacementVerdict::Side& older, const ReplacementVerdict::Side& newer) {
    return newer.version == older.version && newer.length == older.length;
}

}  // namespace

ReplacementVerdict::Code ReplacementVerdict::judge(const Side& older, const Side& newer, bool force) {
    if (sameContent(older, newer)) return force ? Update : Redundant;
    if (older.trackCount != newer.trackCount) return older.trackCount == 0 ? StructureChange : InvalidChange;
    if (newer.length < older.length && older.createTime + s_minimumAge > newer.createTime) return TooShort;
    return Update;
}

bool ReplacementVerdict::asksBackEnd(const Side& older, const Side& newer, Code code) {
    return code == Update && !sameContent(older, newer);
}

const char* ReplacementVerdict::text(Code code) {
    switch (code) {
        case Update:
            return "";
        case StructureChange:
            return "structure change: ";
        case InvalidChange:
            return "invalid change: don't ";
        case Redundant:
            return "redundant: don't ";
        case Vetoed:
            return "vetoed: don't ";
        case TooShort:
            return "too short: don't ";
    }
    return "??: ";
}
