#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "shared/include/naming/default_media_namer.h"
#include "tests/kit/cache_scene.h"

namespace naming {

// A movie of real files that keeps what its rename asks of it, and refuses what it is told to.
class RenamedMovie : public kit::ScriptedMovie {
public:
    struct Move {
        unsigned m_id;
        std::string m_path;
        bool operator==(const Move&) const = default;
    };

    using kit::ScriptedMovie::ScriptedMovie;

    OpResult renameMediaId(MediaIdRec* id, const char* path) override {
        m_moves.push_back({static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(id)), path});
        if (m_onMove) m_onMove(m_moves.back());
        for (const unsigned refused : m_refuse) {
            if (m_moves.size() == refused) return MO_ERROR(MediaCode::WriteError, "told to");
        }
        return MediaObj::renameMediaId(id, path);
    }
    OpResult close(MediaIdRec* id, MediaAgent agent) const override {
        if (id == nullptr) m_movesAtClose.push_back(m_moves.size());
        return kit::ScriptedMovie::close(id, agent);
    }

    std::vector<Move> m_moves;
    std::vector<unsigned> m_refuse;  // calls, from 1
    std::function<void(const Move&)> m_onMove;
    mutable std::vector<std::size_t> m_movesAtClose;  // how many moves there had been
};

inline std::ostream& operator<<(std::ostream& out, const RenamedMovie::Move& move) {
    return out << move.m_id << " to " << move.m_path;
}

// A namer that answers as it is told and keeps what it was asked.
class ToldNamer : public MediaObj::Namer {
public:
    struct Question {
        std::string m_path;
        int m_index;
        MediaFileType m_type;
        std::string m_proposal;
    };

    std::string m_name;  // "%" stands for the number of the question, from 1; empty leaves the proposal
    bool m_answer = true;
    unsigned m_refuse = 0;  // the question, from 1, that gets no
    mutable std::vector<Question> m_asked;

protected:
    bool vCallCb(const MediaObj::NameReq& req) const override {
        m_asked.push_back({req.m_path, req.m_index, req.m_fileType, req.m_name});
        std::string name = m_name;
        const std::size_t number = name.find('%');
        if (number != std::string::npos) name.replace(number, 1, std::to_string(m_asked.size()));
        if (!name.empty()) name.copy(req.m_name, name.size() + 1), req.m_name[name.size()] = '\0';
        return m_answer && m_asked.size() != m_refuse;
    }
};

inline std::string textOf(const OpResult& result) {
    OpResult seen = result;
    seen.discard();
    return result.getMessage() != nullptr ? result.getMessage() : "";
}

// Ends a movie that no cache has.
struct Held {
    explicit Held(RenamedMovie* movie) : m_movie(movie) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() { m_movie->release(); }
    RenamedMovie* operator->() const { return m_movie; }
    RenamedMovie& operator*() const { return *m_movie; }

private:
    RenamedMovie* const m_movie;
};

}  // namespace naming
