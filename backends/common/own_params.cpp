#include "backends/common/own_params.h"

#include "shared/include/object/core_subsystem.h"

OpResult OwnParams::set(const MediaProperty& property) {
    const bool isText = property.getType() == Type::String;
    if ((!isText && property.getType() != Type::Binary) || property.memValue() == nullptr)
        return MediaParams::set(property);
    MediaProperty own;
    own.init(property.getName());
    if (isText) {
        own.set(property.stringValue(), true);
    } else {
        own.set(property.memValue(), property.nMemBytes(), true);
    }
    if (own.memValue() == nullptr) return MO_WARNING(MediaCode::InternalError, nullptr);
    return MediaParams::set(own);
}
