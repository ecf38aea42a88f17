#pragma once

#include "services/system/debugger_on.h"
#include "services/system/format_str.h"
#include "support/visibility.h"

// All switches of the process, by name, as the environment and the control socket reach them.
//
// A wrong name or value is answered with a reason and changes nothing.
// **Threads:** any. **Locks:** a leaf of its own for the list; never held while a callback runs.
class MO_PUBLIC SwitchBank {
public:
    // Calls the function once for each switch, in order of construction. The switch outlives the call.
    using Visitor = void (*)(DebuggerOn& item, void* context);
    static void visit(Visitor visitor, void* context);

    // Calls the function for the switch of that name. Fails: false when there is none.
    static bool visit(const char* name, Visitor visitor, void* context);

    // Sets a switch from outside by a text: a number (decimal, or hexadecimal behind "0x"), or names of bits with "|"
    // between. Fails: false with the reason.
    static bool set(const char* name, const char* value, FormatStr& reason);

    // Sets or clears the bits that the text names; a number stands for one bit's number. Fails: false with the reason.
    static bool setBits(const char* name, const char* bits, bool on, FormatStr& reason);

    // Turns the text into a value for that switch. Fails: false with the reason.
    static bool parse(const DebuggerOn& item, const char* text, unsigned& value, FormatStr& reason);

private:
    friend class DebuggerOn;
    static void add(DebuggerOn& item);
    static void remove(DebuggerOn& item);
};
