#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "services/file/file_calls.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/samples.h"
#include "tests/kit/wait_for.h"
#include "tests/kit/wav_builder.h"

// What the tests of recorded files share.
namespace RecordKit {

using kit::WavBuilder;

// Sound as a recorder describes it.
inline MediaClipParam soundOf(MediaFileType type, unsigned rate, unsigned channels, unsigned bits,
                              MediaEncodingType encoding = MediaEncodingType::Pcm) {
    MediaClipParam param;
    EXPECT_TRUE(param.initAudio(type, encoding, MediaVideoRate::Unknown, rate, channels, bits));
    return param;
}

// Lets system calls of one kind fail while it stands, on every thread.
class Fault {
public:
    Fault(FileCall call, int error) {
        s_call = call;
        s_error = error;
        FileCalls::setFault(&strike);
    }
    ~Fault() { FileCalls::setFault(nullptr); }
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

private:
    static int strike(FileCall call, const char*, int, std::size_t&) { return call == s_call ? s_error.load() : 0; }
    static inline std::atomic<FileCall> s_call{FileCall::Stat};
    static inline std::atomic<int> s_error{0};
};

// Keeps writes from the disk while it stands: the engine's thread waits in the first one.
class HeldWrites {
public:
    HeldWrites() {
        s_held = true;
        FileCalls::setFault(&hold);
    }
    ~HeldWrites() { letGo(); }
    HeldWrites(const HeldWrites&) = delete;
    HeldWrites& operator=(const HeldWrites&) = delete;
    // From here on they go on, with that errno value or well.
    static void letGo(int error = 0) {
        s_error = error;
        s_held = false;
        if (error == 0) FileCalls::setFault(nullptr);
    }

private:
    static int hold(FileCall call, const char*, int, std::size_t&) {
        if (call != FileCall::Write) return 0;
        while (s_held)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return s_error;
    }
    static inline std::atomic<bool> s_held{false};
    static inline std::atomic<int> s_error{0};
};

// A recording into a folder of the test's own.
class RecordScene : public kit::CacheScene {
protected:
    void TearDown() override {
        endRecording();
        CacheScene::TearDown();
    }

    MediaObj* create(const std::string& path, MediaContainment containment = MediaContainment::Embedded) {
        m_result.discard();
        return MediaObj::openWriter(path.c_str(), false, m_result, containment, MediaFileType::Unknown, nullptr,
                                    BasicIOTypes::SizeAdvice::None);
    }
    void refuse(const std::string& path, int code, const std::string& sentence) {
        EXPECT_EQ(create(path), nullptr);
        EXPECT_TRUE(kit::isWarning(m_result, code));
        EXPECT_EQ(std::string(m_result.getMessage() != nullptr ? m_result.getMessage() : ""), sentence);
    }
    // Begins a recording, up to its clip.
    void start(const std::string& name, const MediaClipParam& param) {
        m_path = m_tree.path(name);
        m_movie = create(m_path);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
        m_track = m_movie->createTrack(param, m_result);
        ASSERT_NE(m_track, nullptr) << m_result.describe().get();
        ASSERT_NE(m_track->createClip(param, m_result), nullptr) << m_result.describe().get();
        m_size = m_track->getClip(0)->getLookup()->getFixedSize();
    }
    // Enters samples behind the last ones, or where it is said.
    MediaSampleInMovie add(unsigned count) { return addAt(m_next, count); }
    MediaSampleInMovie addAt(unsigned long long sample, unsigned count) {
        SampleInfo info;
        info.reset(count * m_size);
        MediaSampleInMovie where;
        OpResult result;
        EXPECT_TRUE(m_track->addSamples(MediaRecordReq(sample, count, info), where, result)) << result.describe().get();
        m_next = sample + count;
        return where;
    }
    // Bytes that tell their place in the essence.
    std::string bytesFor(unsigned long long sample, unsigned count) const {
        std::string bytes(std::size_t{count} * m_size, '\0');
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = kit::TempTree::patternAt(sample * m_size + i);
        return bytes;
    }
    OpResult write(const MediaSampleInMovie& where, const std::string& bytes) {
        MediaIoBuf buffer;
        kit::fill(buffer, bytes);
        return m_movie->vsWrite(where, buffer);
    }
    bool writeSync(const MediaSampleInMovie& where) {
        OpResult result = write(where, bytesFor(where.m_sample, where.m_count));
        return result.success();
    }
    bool writeAsync(const MediaSampleInMovie& where) {
        OpResult result = m_movie->vaWrite(where, kit::obufOf(bytesFor(where.m_sample, where.m_count)));
        return result.success();
    }
    void record(unsigned count, bool async = false) {
        const MediaSampleInMovie where = add(count);
        ASSERT_TRUE(async ? writeAsync(where) : writeSync(where));
    }
    void endRecording() {
        if (m_movie != nullptr) m_movie->release(MediaAgent(nullptr), true);
        m_movie = nullptr;
    }
    // Whether a reader of the live movie gets these samples' place; never a failure.
    bool find(unsigned long long sample, unsigned count, MediaSampleInMovie& where) const {
        OpResult result;
        const bool found = m_track->getClip(0)->getMediaOffset(MediaPlayReq(sample, count), where, result);
        EXPECT_TRUE(result.success()) << result.describe().get();
        return found;
    }
    bool isThere(unsigned long long sample, unsigned count) const {
        MediaSampleInMovie where;
        return find(sample, count, where);
    }
    bool arrives(unsigned long long sample, unsigned count) const {
        return kit::waitFor([&] { return isThere(sample, count); });
    }
    // The file as the system has it.
    std::string file() const { return kit::bytesAt(m_path, 0, std::filesystem::file_size(m_path)); }

    std::string m_path;
    MediaObj* m_movie = nullptr;
    MediaTrackDesc* m_track = nullptr;
    unsigned m_size = 0;  // bytes a sample
    std::atomic<unsigned long long> m_next{0};
};

// A fresh parse describes the file as the movie that recorded it does. Takes: the recorded movie's open reference.
inline std::string describe(const MediaObj& movie) {
    const MediaMovieDesc& desc = *movie.getMovieDesc();
    std::string text = "type " + std::to_string(static_cast<unsigned>(desc.getFileType())) + ", base " +
                       std::to_string(desc.getTimeBase()) + ", coding " +
                       std::to_string(static_cast<unsigned>(desc.getEncoding())) + ", rate " +
                       std::to_string(static_cast<unsigned>(desc.getStandard())) + ", length " +
                       std::to_string(desc.getLastTrackLength()) + " of " + std::to_string(desc.getMaxTrackLength()) +
                       ", frames " + std::to_string(movie.getFrameLength()) + ", media " +
                       std::to_string(desc.getNumMedia()) + (desc.isWritable() ? ", rw" : ", ro") +
                       (desc.isRecording() ? ", recording" : "") + (movie.isStream() ? ", stream" : "");
    for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
        const MediaTrackDesc& track = *movie.getTrackAt(i);
        const MediaClipDesc& clip = *track.getClip(0);
        const auto& lookup = *static_cast<const FixedMediaLookup*>(clip.getLookup());
        text += "\n" + std::string(track.getParam().toString().get()) + "; " + clip.toString().get() + "; track " +
                std::to_string(track.getLength()) + ", rate " +
                std::to_string(static_cast<unsigned>(track.getVideoRate())) + ", id " +
                std::to_string(clip.getParamId()) + ", bits " + std::to_string(clip.getMaxBitsPerSample()) + "/" +
                std::to_string(clip.getBitsPerUnit()) + ", bitrate " + std::to_string(clip.getBitrate()) + ", least " +
                std::to_string(clip.getMinSamples()) + ", base " + std::to_string(lookup.getBaseOffset()) + ", size " +
                std::to_string(lookup.getFixedSize()) + ", samples " + std::to_string(lookup.getNumSamples());
    }
    return text;
}

}  // namespace RecordKit
