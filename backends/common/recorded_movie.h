#pragma once

#include <memory>
#include <utility>

#include "backends/common/recorder.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/media_obj.h"

// A movie that is being recorded: `Movie` with all that is written led through a recorder, which finishes the file at
// the end of recording, at the null agent's close and when the last writer goes.
template <class Movie, class MovieRecorder>
class RecordedMovie : public Movie {
public:
    using MediaObj::flush;

    OpResult vsWrite(const MediaSampleInMovie& sample, const MediaIoBuf& buf) override {
        return m_recorder->write(*this, sample, buf);
    }
    OpResult vaWrite(const MediaSampleInMovie& sample, phantom_OBUF* obuf) override {
        return m_recorder->write(*this, sample, obuf);
    }
    void flush(const MediaTrackDesc* track, bool now) override {
        if (now) m_recorder->update().discard();
        Movie::flush(track, now);
    }
    OpResult close(MediaIdRec* id, MediaAgent agent) const override {
        if (agent == nullptr) m_recorder->finish().discard();
        return Movie::close(id, agent);
    }
    // Fails: also warning 12 when samples were lost.
    OpResult setRecording(bool recording) override {
        OpResult result = Movie::setRecording(recording);
        return result && !recording ? m_recorder->finish() : result;
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
    const std::unique_ptr<MovieRecorder> m_recorder;
};
