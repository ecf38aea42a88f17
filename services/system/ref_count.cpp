#include "support/ref_count.h"

#include "services/system/log.h"
#include "services/system/text.h"

void RefCount::notifyBadCount(Where where, int count) const {
    const AutoPtr<char> stack = getStackTrace();
    const char* const what =
        where == Where::Destructor ? "destroyed while still held" : "released more often than held";
    errorMsg("RefCount@%p: %s, count=%d, %s\n", static_cast<const void*>(this), what, count,
             stack.get() ? stack.get() : "no stack");
}
