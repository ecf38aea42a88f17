#include "shared/include/object/media_agent.h"

namespace {

// The null agent has no properties at all.
class NullAgentProperties : public MediaAgent::Properties {
public:
    const GenericProperty<MediaAgentPropId>* get(MediaAgentPropId) const override { return nullptr; }
};

// Ready before any constructor runs and never destroyed: agents stand in static storage, and are copied until the last
// thread ends.
union Forever {
    constexpr Forever() : m_properties() {}
    ~Forever() {}
    NullAgentProperties m_properties;
};
constinit Forever s_forever;

}  // namespace

constinit const MediaAgent::Properties& MediaAgent::s_nullAgent = s_forever.m_properties;
