#include "shared/include/description/enum_map.h"
#include "shared/include/description/media_property.h"
#include "shared/include/object/core_subsystem.h"

namespace {

// The name of 14 has no row on purpose.
constexpr EnumPair<MediaPropertyEnum::Name> s_propertyNames[] = {
    {"unknown", MediaPropertyEnum::Name::Unknown},
    {"vbiMask", MediaPropertyEnum::Name::VbiMask},
    {"firstFrame", MediaPropertyEnum::Name::FirstFrame},
    {"nBlack", MediaPropertyEnum::Name::NBlack},
    {"nPrecharge", MediaPropertyEnum::Name::NPrecharge},
    {"PPictCount", MediaPropertyEnum::Name::PPictCount},
    {"BPictCount", MediaPropertyEnum::Name::BPictCount},
    {"bigEndian", MediaPropertyEnum::Name::BigEndian},
    {"codePage", MediaPropertyEnum::Name::CodePage},
    {"clipProps", MediaPropertyEnum::Name::ClipProps},
    {"afdValue", MediaPropertyEnum::Name::AfdValue},
    {"umidValue", MediaPropertyEnum::Name::UmidValue},
    {"levelAndProfile", MediaPropertyEnum::Name::LevelAndProfile},
    {"dvcPro", MediaPropertyEnum::Name::DvcPro},
    {nullptr, MediaPropertyEnum::Name::Unknown},
};

const EnumMap<MediaPropertyEnum::Name>& getPropertyMap() {
    constexpr int rows = sizeof(s_propertyNames) / sizeof(s_propertyNames[0]);
    static const EnumMap<MediaPropertyEnum::Name> map(s_propertyNames, rows - 1);
    return map;
}

}  // namespace

const char* MediaPropertyEnum::lookup(Name name) { return getPropertyMap().mapValueForced(name); }

MediaPropertyEnum::Name MediaPropertyEnum::lookup(const char* text) {
    Name name = Name::Unknown;
    if (text) getPropertyMap().mapString(text, name);
    return name;
}

unsigned int MediaPropertyVector::getPropertyCount() const { return static_cast<unsigned int>(m_properties.size()); }

const MediaProperty* MediaPropertyVector::get(unsigned int index) const {
    return index < m_properties.size() ? &m_properties[index] : nullptr;
}

const MediaProperty* MediaPropertyVector::get(Name name) const {
    for (const MediaProperty& property : m_properties) {
        if (property.getName() == name) return &property;
    }
    return nullptr;
}

MediaProperty* MediaPropertyVector::get(unsigned int index) {
    return const_cast<MediaProperty*>(static_cast<const MediaPropertyVector&>(*this).get(index));
}

MediaProperty* MediaPropertyVector::get(Name name) {
    return const_cast<MediaProperty*>(static_cast<const MediaPropertyVector&>(*this).get(name));
}

void MediaPropertyVector::removeAll() { m_properties.clear(); }

OpResult MediaParams::set(const MediaProperty& property) {
    if (MediaProperty* present = get(property.getName())) {
        *present = property;
    } else {
        m_properties.push_back(property);
    }
    return OpResult(OpResult::Ok);
}

unsigned int EmptyMediaProperties::getPropertyCount() const { return 0; }
const MediaProperty* EmptyMediaProperties::get(unsigned int) const { return nullptr; }
const MediaProperty* EmptyMediaProperties::get(Name) const { return nullptr; }
OpResult EmptyMediaProperties::set(const MediaProperty&) { return MO_WARNING(MediaCode::InternalError, nullptr); }
void EmptyMediaProperties::removeAll() {}
