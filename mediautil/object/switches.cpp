#include "shared/include/object/switches.h"

// Their order here is the order in which they are made, ahead of all that could ask them.

__attribute__((init_priority(102)))
DebuggerOn mediaObjDbg("mediaObjDbg", MediaDbg::Count, "list object (reactive)", "status (reactive)",
                       "flush all objects (reactive)", "announce param id", "open trace", "ctor", "reference", "morph",
                       "cache activity", "reread activity", "reread errors", "rename activity", "permission change",
                       "file op", "ignore clip props", "write", "media cache", "synth frame n", "record1", "record2",
                       "wrap in tlmo", "veldra naming", "validation", "writer count", "ignore missing media",
                       "essence stats");

// 1.0 s in 16.16.
__attribute__((init_priority(102))) DebuggerOn mediaCacheDuration("mediaCacheDuration", 0x10000, DebuggerTypes::Init());

// Seconds.
__attribute__((init_priority(102))) DebuggerOn mediaZombieTime("mediaZombieTime", 1, DebuggerTypes::Init());

__attribute__((init_priority(102))) DebuggerOn mediaValidate("mediaValidate", MediaVal::Count, "mpeg", "mpeg stats",
                                                             "mpeg no zero pad", "pcm", "pcm stats", "s436");
