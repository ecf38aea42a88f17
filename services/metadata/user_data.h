#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/visibility.h"

// What a movie's user data are known by.
struct UserDataEnum {
    enum class KeyKind : std::uint32_t { ClipProps = 10, Umid = 12 };
    // Any is for looking up alone.
    enum class ValueKind : std::uint32_t { Any = 0, Umid = 65 };
};

// The key of a value: which one it is, and of what kind the value is.
class MO_PUBLIC UserDataKey {
public:
    constexpr UserDataKey(UserDataEnum::KeyKind key, UserDataEnum::ValueKind value) : m_key(key), m_value(value) {}

    constexpr UserDataEnum::KeyKind getKeyKind() const { return m_key; }
    constexpr UserDataEnum::ValueKind getValueKind() const { return m_value; }

private:
    UserDataEnum::KeyKind m_key;
    UserDataEnum::ValueKind m_value;
};

// A key made on the spot, to look things up with.
class MO_PUBLIC KnownKey : public UserDataKey {
public:
    using UserDataKey::UserDataKey;
};

// One value. **Owns:** nothing of its key, which must outlive it.
class MO_PUBLIC UserDataValue {
public:
    explicit UserDataValue(const UserDataKey& key) : m_key(&key) {}
    UserDataValue(const UserDataValue&) = delete;
    UserDataValue& operator=(const UserDataValue&) = delete;
    virtual ~UserDataValue();

    UserDataEnum::ValueKind getKind() const { return m_key->getValueKind(); }
    const UserDataKey& getKey() const { return *m_key; }
    // The payload as text. Gives: borrowed until the set changes.
    virtual const char* read() const = 0;

private:
    const UserDataKey* m_key;  // borrowed
};

// What a movie carries about itself: a map of keys to values.
// **Threads:** as the object that owns it.
class MO_PUBLIC UserDataSet {
public:
    UserDataSet() = default;
    UserDataSet(const UserDataSet&) = delete;
    UserDataSet& operator=(const UserDataSet&) = delete;
    virtual ~UserDataSet();

    // Gives: the value, borrowed until the set changes, or null.
    virtual const UserDataValue* getValue(UserDataEnum::KeyKind kind) const = 0;
    // Says that the value of this key is in play, or isn't any more: whoever owns the set keeps it with the movie.
    virtual void update(const KnownKey& key, bool inPlay) = 0;

    // This very object without const, for an owner who has handed it out as const.
    UserDataSet& nonConst() const { return const_cast<UserDataSet&>(*this); }
};

// A set in memory, in order of insertion; it holds a handful of values.
class MO_PUBLIC UserDataStore : public UserDataSet {
public:
    UserDataStore();
    ~UserDataStore() override;

    const UserDataValue* getValue(UserDataEnum::KeyKind kind) const override;
    void update(const KnownKey& key, bool inPlay) override;

    // Enters a copy of the text, in the place of what stood there, which it may be a part of. Null takes the value out.
    void setText(const UserDataKey& key, const char* text);
    // True after `update` has said so.
    bool isInPlay(UserDataEnum::KeyKind kind) const;
    bool empty() const { return m_values.empty(); }

private:
    class Text;

    std::vector<std::unique_ptr<Text>> m_values;
    std::vector<UserDataEnum::KeyKind> m_inPlay;
};
