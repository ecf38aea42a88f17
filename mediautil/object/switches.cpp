#include "shared/include/object/switches.h"

// Their order here is the order in which they are made, ahead of all that could ask them. The core's table of errors
// comes behind the first three.

__attribute__((init_priority(101)))
DebuggerOn mediaObjDbg("mediaObjDbg", MediaDbg::Count, "list object (reactive)", "status (reactive)",
                       "flush all objects (reactive)", "announce param id", "open trace", "ctor", "reference", "morph",
                       "cache activity", "reread activity", "reread errors", "rename activity", "permission change",
                       "file op", "ignore clip props", "write", "media cache", "synth frame n", "record1", "record2",
                       "wrap in tlmo", "veldra naming", "validation", "writer count", "ignore missing media",
                       "essence stats");

__attribute__((init_priority(101))) DebuggerOn mediaValidate("mediaValidate", MediaVal::Count, "mpeg", "mpeg stats",
                                                             "mpeg no zero pad", "pcm", "pcm stats", "s436");

// 1.0 s in 16.16.
__attribute__((init_priority(101))) DebuggerOn mediaCacheDuration("mediaCacheDuration", 0x10000, DebuggerTypes::Init());

// Seconds.
__attribute__((init_priority(103))) DebuggerOn mediaZombieTime("mediaZombieTime", 1, DebuggerTypes::Init());
