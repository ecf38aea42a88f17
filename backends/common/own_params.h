#pragma once

#include "shared/include/description/media_property.h"

// A bag that keeps texts and blocks of its own, whatever becomes of those that it is given: who adds a clip property
// lends its text for the call alone.
class OwnParams : public MediaParams {
public:
    using MediaParams::get;

    // Fails: warning 1 when there is no memory for the copy; the bag is as it was.
    OpResult set(const MediaProperty& property) override;
};
