#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "mediautil/description/priv_movie_desc.h"
#include "services/file/fs_file_io.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/media_obj.h"

// A movie of one track and one clip over one file, as little as an index needs around it.

// What the log said while this stood.
class LogCapture : public LogSink {
public:
    LogCapture() : m_before(setLogSink(this)) {}
    ~LogCapture() override { setLogSink(m_before); }

    void write(const LogMessage& message) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.emplace_back(message.m_text, message.m_length);
    }
    std::vector<std::string> lines() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
    LogSink* m_before;
};

// A file of any length in a folder of its own.
class GrowingFile {
public:
    GrowingFile() {
        std::string pattern = (std::filesystem::temp_directory_path() / "mc_index_XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
        m_path = m_folder / "essence.raw";
        setLength(0);
    }
    ~GrowingFile() { std::filesystem::remove_all(m_folder); }

    void setLength(unsigned long long bytes) {
        const int fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(::ftruncate(fd, static_cast<off_t>(bytes)), 0);
        ::close(fd);
    }
    const char* path() const { return m_path.c_str(); }

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_path;
};

class IndexMovie;

class IndexClip : public MediaClipDesc {
public:
    IndexClip(MediaTrackDesc& track, MediaEncodingType encoding, unsigned sampleRate)
        : MediaClipDesc(MediaContainment::Embedded), m_track(track) {
        m_encoding = encoding;
        m_sampleRate = sampleRate;
        m_mediaId = reinterpret_cast<MediaIdRec*>(std::uintptr_t{1});
    }
    void setTicks(unsigned ticks) { m_ticksPerSample = ticks; }
    void setEncoding(MediaEncodingType encoding) { m_encoding = encoding; }
    void setSizes(unsigned bits, unsigned samples, unsigned channels) {
        m_maxBitsPerSample = bits;
        m_minSamples = samples;
        m_channels = channels;
    }

    unsigned int getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned int) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned int) const override { return nullptr; }
    unsigned int getClipIndex() const override { return 0; }
    MediaTrackDesc& getTrack() override { return m_track; }
    MediaOffsetLookup* getLookup() override { return nullptr; }
    const MediaTrackDesc& getTrack() const override { return m_track; }
    const MediaOffsetLookup* getLookup() const override { return nullptr; }

private:
    MediaTrackDesc& m_track;
};

class IndexTrack : public MediaTrackDesc {
public:
    IndexTrack(MediaObj& obj, MediaDataType type, MediaVideoRate rate) : MediaTrackDesc(type), m_obj(obj) {
        m_videoRate = rate;
    }

    MediaClipDesc* createClip(const MediaClipParam&, OpResult& result) override {
        result = OpResult::Ok;
        return nullptr;
    }
    MediaObj& getObj() override { return m_obj; }
    const MediaObj& getObj() const override { return m_obj; }
    unsigned int getClipCount() const override { return 0; }
    MediaClipDesc* getClip(unsigned int) override { return nullptr; }
    const MediaClipDesc* getClip(unsigned int) const override { return nullptr; }
    unsigned int getTrackIndex() const override { return 0; }
    FixedPoint<16> getMaxTime() const override { return FixedPoint<16>(0); }

private:
    MediaObj& m_obj;
};

class IndexMovie : public MediaObj {
public:
    IndexMovie() : MediaObj(1, CacheRefValue::None), m_desc(this) {}

    AutoRefPtr<BasicFileIO> open(MediaIdRec* id, MediaAgent agent, ReadMode mode, OpResult& result) const override {
        ++m_opens;
        m_idAsked = id;
        EXPECT_TRUE(agent == nullptr);
        EXPECT_EQ(mode, ReadMode::ReadOnly);
        if (m_path == nullptr) {
            result = MO_ERROR(MediaCode::FileNotReadable, "refused");
            return {};
        }
        result = OpResult::Ok;
        return AutoRefPtr<BasicFileIO>(new FsFileIO("test", m_path, BasicIOTypes::Mode::ReadOnly));
    }
    MediaMovieDesc* getMovieDesc() override { return &m_desc; }
    const MediaMovieDesc* getMovieDesc() const override { return &m_desc; }
    unsigned getTrackCount() const override { return 0; }
    const MediaTrackDesc* getTrackAt(unsigned) const override { return nullptr; }
    MediaTrackDesc* getTrackAt(unsigned) override { return nullptr; }
    using MediaObj::createTrack;
    MediaTrackDesc* createTrack(const MediaClipParam&, OpResult& result) override {
        result = OpResult::Ok;
        return nullptr;
    }

    const char* m_path = nullptr;  // null: every open is refused
    mutable std::atomic<int> m_opens{0};
    mutable std::atomic<MediaIdRec*> m_idAsked{nullptr};

private:
    PrivMovieDesc<MediaObj> m_desc;
};

// Movie, track and clip in one.
struct IndexScene {
    explicit IndexScene(MediaDataType type = MediaDataType::Audio, MediaVideoRate rate = MediaVideoRate::Unknown,
                        MediaEncodingType encoding = MediaEncodingType::Pcm, unsigned sampleRate = 48000)
        : m_movie(new IndexMovie), m_track(*m_movie.get(), type, rate), m_clip(m_track, encoding, sampleRate) {}

    AutoReleasePtr<IndexMovie> m_movie;
    IndexTrack m_track;
    IndexClip m_clip;
};

// A fixed-size index over such a clip.
class FixedLookup : public FixedMediaLookup {
public:
    FixedLookup(const MediaClipDesc& clip, const MediaOffsetSummary& summary)
        : FixedMediaLookup(summary), m_clip(clip) {}
    const MediaClipDesc& getClip() const override { return m_clip; }

private:
    const MediaClipDesc& m_clip;
};

// An index of `samples` samples of `size` bytes from `base` on.
inline MediaOffsetSummary summaryOf(unsigned size, unsigned long long base, unsigned long long samples) {
    return MediaOffsetSummary(size, base, samples, base + size * samples);
}
