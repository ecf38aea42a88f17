#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "shared/include/object/media_obj.h"
#include "tools/failure.h"

// A movie that is held through its replacements.
// **Threads:** one looks; replacements come from the library's own.
class HeldMovie {
public:
    // Fails: failure() says why.
    explicit HeldMovie(const std::string& path);
    HeldMovie(const HeldMovie&) = delete;
    HeldMovie& operator=(const HeldMovie&) = delete;

    const std::optional<Failure>& failure() const { return m_failure; }
    // The object of the moment. Gives: one reference.
    MediaObj* look() const { return m_holder.preserve(); }
    // How often it has been replaced.
    unsigned replacements() const { return m_replacements.load(std::memory_order_relaxed); }

private:
    // Under locks of the library: it only counts.
    bool changed(const MediaObj::Persist&) {
        m_replacements.fetch_add(1, std::memory_order_relaxed);
        return true;
    }

    std::optional<Failure> m_failure;
    std::atomic<unsigned> m_replacements{0};
    BridgeAnchor<HeldMovie, const MediaObj::Persist&, bool> m_hook;
    MediaObj::Persist m_holder;
};
