#include "services/file/file_messages.h"

#include <string.h>

#include <cerrno>

#include "services/system/msg_clamp.h"

namespace {

// Never destroyed: files may fail until the very end.
MsgClamp& clamp() {
    static MsgClamp* const clamp = new MsgClamp;
    return *clamp;
}

const char* sentenceFor(int error) {
    switch (error) {
        case EISDIR:
            return "it is a folder";
        case ENOTSUP:
            return "it is not a regular file";
        default: {
            const char* const text = ::strerrordesc_np(error);
            return text != nullptr ? text : "unknown reason";
        }
    }
}

}  // namespace

void tellFailure(const char* tag, const char* path, const char* what, int error, const char* reason) {
    clamp().error("%s: can't %s %s: %s\n", tag, what, path, reason != nullptr ? reason : sentenceFor(error));
}
