#pragma once

#include "support/visibility.h"

// The interface of whatever lives by counted references.
class MO_PUBLIC IBase {
public:
    virtual ~IBase() = default;

    // Each answers the new count.
    virtual int preserve() = 0;
    virtual int release() = 0;
};
