#pragma once

#include "shared/include/object/media_agent.h"

namespace kit {

// A client of the library without properties; its address is its name.
class Client : public MediaAgent::Properties {
public:
    const GenericProperty<MediaAgentPropId>* get(MediaAgentPropId) const override { return nullptr; }
};

}  // namespace kit
