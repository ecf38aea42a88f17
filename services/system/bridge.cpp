#include "support/bridge.h"

#include "services/system/log.h"
#include "services/system/text.h"

void BridgeBase::noteIsInvalid() const {
    const AutoPtr<char> stack = getStackTrace();
    errorMsg("BridgeBase@%p: called after its end, %s\n", static_cast<const void*>(this),
             stack.get() ? stack.get() : "no stack");
}
