#include "shared/include/object/core_subsystem.h"

// Among the very first: constructors in static storage may already open movies and raise failures.
MediaCoreOpSubsystem mediaCoreOpSubsystem __attribute__((init_priority(102)));

const char* MediaCoreOpSubsystem::getErrorName(int code) {
    switch (code) {
        case 1:
            return "internal error";
        case 2:
            return "unknown error";
        case 3:
            return "functionality not implemented";
        case 4:
            return "file not readable";
        case 5:
            return "file not writable";
        case 6:
            return "file non-existant";  // spelled so: operators and scripts look for this text
        case 7:
            return "file exists";
        case 8:
            return "unsupported media type";
        case 9:
            return "invalid style";
        case 11:
            return "out of range";
        case 12:
            return "write error";
        case 13:
            return "read error";
        case 15:
            return "media parser error";
        case 17:
            return "operation unsupported";
        default:
            return OpSubsystemDecl::getUnknownErrorName(code);  // 14 and 16 are raised without a text
    }
}
