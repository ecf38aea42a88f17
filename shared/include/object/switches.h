#pragma once

#include "services/system/debugger_on.h"
#include "support/visibility.h"

// The core's bank of debug bits; which bit does what stands beside its name.
MO_PUBLIC extern DebuggerOn mediaObjDbg;
// Whole seconds that an idle object stays in the cache.
MO_PUBLIC extern DebuggerOn mediaZombieTime;
// FixedPoint<16> seconds, published for the layers that keep media data; 0.5 to 5.0.
MO_PUBLIC extern DebuggerOn mediaCacheDuration;
// Any bit on: samples are looked at on their way between memory and file. Which bit wants what stands beside its name.
MO_PUBLIC extern DebuggerOn mediaValidate;

// Bits of mediaObjDbg. The reactive ones act when set and are cleared at once.
namespace MediaDbg {
inline constexpr unsigned ListObjects = 0;  // reactive: status and all objects and zombies
inline constexpr unsigned Status = 1;       // reactive: the status line
inline constexpr unsigned FlushAll = 2;     // reactive: status line, then a flush of the cache
inline constexpr unsigned AnnounceParamId = 3;
inline constexpr unsigned OpenTrace = 4;
inline constexpr unsigned Ctor = 5;
inline constexpr unsigned Reference = 6;  // every preserve and release, with stack
inline constexpr unsigned Morph = 7;
inline constexpr unsigned CacheActivity = 8;
inline constexpr unsigned RereadActivity = 9;
inline constexpr unsigned RereadErrors = 10;
inline constexpr unsigned RenameActivity = 11;
inline constexpr unsigned PermissionChange = 12;
inline constexpr unsigned FileOp = 13;
inline constexpr unsigned IgnoreClipProps = 14;
inline constexpr unsigned Write = 15;
inline constexpr unsigned MediaCache = 16;
inline constexpr unsigned SynthFrameN = 17;
inline constexpr unsigned Record1 = 18;
inline constexpr unsigned Record2 = 19;
inline constexpr unsigned WrapInTlmo = 20;
inline constexpr unsigned VeldraNaming = 21;
inline constexpr unsigned Validation = 22;  // addresses and versions stay out of texts
inline constexpr unsigned WriterCount = 23;
inline constexpr unsigned IgnoreMissingMedia = 24;
inline constexpr unsigned EssenceStats = 25;
inline constexpr unsigned Count = 26;
}  // namespace MediaDbg

// Bits of mediaValidate.
namespace MediaVal {
inline constexpr unsigned Mpeg = 0;
inline constexpr unsigned MpegStats = 1;
inline constexpr unsigned MpegNoZeroPad = 2;
inline constexpr unsigned Pcm = 3;
inline constexpr unsigned PcmStats = 4;
inline constexpr unsigned S436 = 5;
inline constexpr unsigned Count = 6;
}  // namespace MediaVal
