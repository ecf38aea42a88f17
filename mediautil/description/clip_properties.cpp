#include <string>
#include <string_view>

#include "services/metadata/user_data.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_property.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"
#include "shared/include/object/switches.h"

// The names of what a movie holds that not everyone understands.

namespace {

// Cuts the list at its first comma: answers what is before it and leaves the rest.
std::string_view takeItem(std::string_view& list) {
    const std::size_t comma = list.find(',');
    const std::string_view item = list.substr(0, comma);
    list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    return item;
}

// Whether the list has the item. An empty list has one, the empty one.
bool hasItem(std::string_view list, std::string_view item) {
    do {
        if (takeItem(list) == item) return true;
    } while (!list.empty());
    return false;
}

}  // namespace

const char* MediaObj::getClipProperties() const {
    const char* const list = get(MediaPropertyEnum::ClipProps()).value();
    return list != nullptr ? list : "";
}

bool MediaObj::addClipProperty(const char* name) {
    if (name == nullptr) return false;
    std::string list = getClipProperties();
    if (hasItem(list, name)) return false;
    if (!list.empty()) list += ',';
    list += name;
    if (!getMovieDesc()->isWritable()) {
        if (UserDataSet* const userData = getUserDataMovie(true)) {
            userData->update(KnownKey(UserDataEnum::KeyKind::ClipProps, UserDataEnum::ValueKind::Any), true);
        }
    }
    setProperty(ClipPropsProperty(list.c_str())).discard();
    return true;
}

OpResult MediaObj::isClipSupported(const char* supported) const {
    if (mediaObjDbg.on(MediaDbg::IgnoreClipProps)) return OpResult(OpResult::Ok);
    std::string_view list = getClipProperties();
    if (list.empty()) return OpResult(OpResult::Ok);
    do {
        const std::string item(takeItem(list));
        if (supported == nullptr || !hasItem(supported, item)) {
            return MO_WARNING(MediaCode::ClipNotSupported, FormatStr("unknown property: %s", item.c_str()).get());
        }
    } while (!list.empty());
    return OpResult(OpResult::Ok);
}

void MediaObj::resetClipProperties() { setProperty(ClipPropsProperty("")).discard(); }

void MediaObj::setClipProperties(bool) {}

OpResult MediaObj::requestClipProperties(const char*) { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }
