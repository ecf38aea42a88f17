#include "backends/mov/mov_user_data.h"

#include <cstring>
#include <string>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_atom_writer.h"
#include "services/metadata/generic_umid.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr MovCode s_umid = movCode("UMID"), s_clipProperties = movCode("CPRP");
constexpr std::size_t s_head = 8, s_umidSize = 32;

constexpr UserDataKey s_umidKey(UserDataEnum::KeyKind::Umid, UserDataEnum::ValueKind::Umid);
constexpr UserDataKey s_propertiesKey(UserDataEnum::KeyKind::ClipProps, UserDataEnum::ValueKind::Any);

const char* textOf(const UserDataStore& store, UserDataEnum::KeyKind key) {
    const UserDataValue* const value = store.getValue(key);
    return value != nullptr ? value->read() : nullptr;
}

}  // namespace

void MovUserData::read(const std::uint8_t* bytes, std::size_t size) {
    while (size >= s_head) {
        ByteCursor head(bytes, s_head);
        const std::size_t atom = head.be32();
        const MovCode code = head.be32();
        if (atom < s_head || atom > size) return;
        const std::uint8_t* const content = bytes + s_head;
        if (code == s_umid && atom == s_head + s_umidSize) {
            const AutoPtr<GenericUmid> umid = GenericUmid::createFromBytes(content);
            if (umid.get() != nullptr) m_store.setText(s_umidKey, umid->getStringValue());
        }
        if (code == s_clipProperties)
            setClipProperties(std::string(reinterpret_cast<const char*>(content), atom - s_head).c_str());
        bytes += atom;
        size -= atom;
    }
}

MovCode MovUserData::codeOf(UserDataEnum::KeyKind key) {
    return key == UserDataEnum::KeyKind::Umid ? s_umid : s_clipProperties;
}

bool MovUserData::isOwn(MovCode code) { return code == s_umid || code == s_clipProperties; }

std::vector<std::uint8_t> MovUserData::write() const {
    std::vector<std::uint8_t> atoms = write(UserDataEnum::KeyKind::Umid);
    const std::vector<std::uint8_t> names = write(UserDataEnum::KeyKind::ClipProps);
    atoms.insert(atoms.end(), names.begin(), names.end());
    return atoms;
}

std::vector<std::uint8_t> MovUserData::write(UserDataEnum::KeyKind key) const {
    MovAtomWriter out;
    const char* const text = textOf(m_store, key);
    if (key == UserDataEnum::KeyKind::Umid) {
        const AutoPtr<GenericUmid> umid = GenericUmid::createFromString(text);
        if (umid.get() != nullptr) out.open(s_umid).bytes(umid->getBytes().data(), s_umidSize).close();
    } else if (text != nullptr) {
        out.open(s_clipProperties).bytes(text, std::strlen(text)).close();
    }
    return out.getBytes();
}

OpResult MovUserData::generateUmid() {
    const AutoPtr<GenericUmid> umid = GenericUmid::generate();
    return umid.get() != nullptr ? setUmid(umid->getStringValue()) : MO_WARNING(MediaCode::InternalError, nullptr);
}

OpResult MovUserData::setUmid(const char* text) {
    const AutoPtr<GenericUmid> umid = GenericUmid::createFromString(text);
    if (umid.get() == nullptr) return MO_WARNING(MediaCode::UnknownError, "object has no umid");
    m_store.setText(s_umidKey, umid->getStringValue());
    return OpResult(OpResult::Ok);
}

void MovUserData::removeUmid() { m_store.setText(s_umidKey, nullptr); }

void MovUserData::setClipProperties(const char* names) {
    const bool isNone = names == nullptr || *names == '\0';
    m_store.setText(s_propertiesKey, isNone ? nullptr : names);
}

const char* MovUserData::getClipProperties() const { return textOf(m_store, UserDataEnum::KeyKind::ClipProps); }

OpResult MovProperties::set(const MediaProperty& property) {
    const bool isNames = property.getName() == MediaPropertyEnum::Name::ClipProps && property.getType() == Type::String;
    if (m_told && isNames) {
        OpResult result = m_told(property.stringValue());
        if (!result) return result;
    }
    return OwnParams::set(property);
}
