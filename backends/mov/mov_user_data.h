#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "backends/common/own_params.h"
#include "backends/mov/mov_atoms.h"
#include "services/metadata/user_data.h"
#include "support/op_result.h"

// What a movie file keeps about itself in its `udta`: the identifier, as 32 bytes in `UMID`, and the names of its clip
// properties, as text in `CPRP`.
// **Threads:** as the movie that owns it.
class MovUserData {
public:
    static constexpr std::size_t s_most = 1u << 16;  // bytes of a `udta` that are looked at

    static MovCode codeOf(UserDataEnum::KeyKind key);
    // Whether an atom of that code is one of those that are kept here.
    static bool isOwn(MovCode code);

    // Takes what is in a `udta`. What makes no sense there is passed over.
    void read(const std::uint8_t* bytes, std::size_t size);
    // The atoms for a `udta`; none when there is nothing to keep.
    std::vector<std::uint8_t> write() const;
    // One of them, whole; empty where there is nothing to keep.
    std::vector<std::uint8_t> write(UserDataEnum::KeyKind key) const;

    // Null while there is nothing.
    const UserDataSet* get() const { return m_store.empty() ? nullptr : &m_store; }
    UserDataSet* get(bool make) { return m_store.empty() && !make ? nullptr : &m_store; }

    // Fails: warning 1 without an identifier to be had.
    OpResult generateUmid();
    // Fails: warning 2 for null and for a text that is no identifier.
    OpResult setUmid(const char* text);
    void removeUmid();
    void setClipProperties(const char* names);
    // Null for none. Borrowed until they change.
    const char* getClipProperties() const;

private:
    UserDataStore m_store;
};

// A movie's bag, which tells its movie of new clip properties.
class MovProperties final : public OwnParams {
public:
    // A failure leaves them as they were.
    using Told = std::function<OpResult(const char* names)>;

    explicit MovProperties(Told told = nullptr) : m_told(std::move(told)) {}
    OpResult set(const MediaProperty& property) override;

private:
    const Told m_told;
};
