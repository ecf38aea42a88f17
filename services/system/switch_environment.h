#pragma once

#include "services/system/debugger_on.h"
#include "support/visibility.h"

// The values that the environment variable MEDIACORE_SWITCHES has for switches:
// "mediaObjDbg=cache activity|ctor,mediaZombieTime=5".
class MO_PUBLIC SwitchEnvironment {
public:
    // Gives the switch its value from the environment, if there is one. Called as the switch is constructed.
    static void apply(DebuggerOn& item);

    // The same from the text given. Fails: a bad value is a warning, and the switch keeps its own.
    static void apply(DebuggerOn& item, const char* settings);

    // Warns of every entry that isn't an assignment or names no switch of the process. The first call only: it is made
    // when all switches are constructed, at the latest as the process ends.
    static void reportUnknown();
    // The same for the text given, on every call. Gives: how many entries were bad.
    static unsigned reportUnknown(const char* settings);
};
