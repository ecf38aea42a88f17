#include "services/metadata/user_data.h"

#include <algorithm>
#include <utility>

UserDataValue::~UserDataValue() = default;
UserDataSet::~UserDataSet() = default;

namespace {

// The key in front, so that it is there before the value that points at it.
struct OwnKey {
    UserDataKey m_ownKey;
};

}  // namespace

class UserDataStore::Text : private OwnKey, public UserDataValue {
public:
    Text(const UserDataKey& key, const char* text) : OwnKey{key}, UserDataValue(m_ownKey), m_text(text) {}

    const char* read() const override { return m_text.c_str(); }

private:
    const std::string m_text;
};

UserDataStore::UserDataStore() = default;
UserDataStore::~UserDataStore() = default;

const UserDataValue* UserDataStore::getValue(UserDataEnum::KeyKind kind) const {
    for (const std::unique_ptr<Text>& value : m_values) {
        if (value->getKey().getKeyKind() == kind) return value.get();
    }
    return nullptr;
}

void UserDataStore::setText(const UserDataKey& key, const char* text) {
    const UserDataEnum::KeyKind kind = key.getKeyKind();
    std::unique_ptr<Text> fresh = text != nullptr ? std::make_unique<Text>(key, text) : nullptr;
    std::erase_if(m_values, [&](const auto& value) { return value->getKey().getKeyKind() == kind; });
    if (fresh != nullptr) m_values.push_back(std::move(fresh));
}

void UserDataStore::update(const KnownKey& key, bool inPlay) {
    std::erase(m_inPlay, key.getKeyKind());
    if (inPlay) m_inPlay.push_back(key.getKeyKind());
}

bool UserDataStore::isInPlay(UserDataEnum::KeyKind kind) const {
    return std::find(m_inPlay.begin(), m_inPlay.end(), kind) != m_inPlay.end();
}
