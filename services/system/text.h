#pragma once

#include "support/auto_ptr.h"
#include "support/visibility.h"

// Turns the letters A to Z into lower case in place, whatever the locale; other bytes stay. Gives: `text`; null stays
// null.
MO_PUBLIC char* strlwr(char* text);

// The caller's stack, innermost call first, as one line "name+0x12 < name+0x34 < …"; a function without a public name
// is shown as its module and the offset in it, as addr2line takes it. Short when memory is.
MO_PUBLIC AutoPtr<char> getStackTrace();

// Stops in the debugger when one is attached to the process, and returns.
MO_PUBLIC void debugBkpt();

namespace System {

// Gives: a copy of the text as an array, owned by the caller; null for null or when memory doesn't come.
MO_PUBLIC char* copy(const char* text);

}  // namespace System
