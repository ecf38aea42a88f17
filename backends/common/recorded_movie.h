#pragma once

#include <memory>
#include <utility>

#include "backends/common/recorder.h"
#include "services/system/locks.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/media_obj.h"

// A movie that is being recorded: `Movie` with all that is written led through a recorder, which finishes the file at
// the end of recording, at the null agent's close and when the last writer goes.
// **Locks:** m_writing, for the length of a write with its check, and of what would take the handle away from it or end
// the file in front of it; it comes before all others. The cache's lock may be held where the last writer goes, so that
// takes none: no write comes then.
template <class Movie, class MovieRecorder>
class RecordedMovie : public Movie {
public:
    using MediaObj::flush;

    OpResult vsWrite(const MediaSampleInMovie& sample, const MediaIoBuf& buf) override {
        const Scope lock(m_writing);
        return m_recorder->write(*this, sample, buf);
    }
    OpResult vaWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf) override {
        const Scope lock(m_writing);
        return m_recorder->write(*this, sample, obuf);
    }
    void flush(const MediaTrackDesc* track, bool now) override {
        if (now) m_recorder->update().discard();
        Movie::flush(track, now);
    }
    OpResult close(MediaIdRec* id, MediaAgent agent) const override {
        if (agent != nullptr) return Movie::close(id, agent);
        const Scope lock(m_writing);
        m_recorder->finish().discard();
        return Movie::close(id, agent);
    }
    // Fails: also warning 12 when samples were lost.
    OpResult setRecording(bool recording) override {
        OpResult result = Movie::setRecording(recording);
        if (!result || recording) return result;
        const Scope lock(m_writing);
        return m_recorder->finish();
    }
    void setReadOnly() override {
        m_recorder->end();
        this->getMovieDesc()->setRecording(false);
        Movie::setReadOnly();
    }

protected:
    template <class... Arguments>
    explicit RecordedMovie(std::unique_ptr<MovieRecorder> recorder, Arguments&&... arguments)
        : Movie(std::forward<Arguments>(arguments)...), m_recorder(std::move(recorder)) {}

    MovieRecorder& getRecorder() { return *m_recorder; }

private:
    using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

    mutable ZarnexPosix::JMutex m_writing;
    const std::unique_ptr<MovieRecorder> m_recorder;
};
