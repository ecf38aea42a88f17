#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "services/file/file_calls.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/process.h"
#include "tests/kit/samples.h"

// Movies that ffmpeg has written, and recorded ones, get an identifier and clip properties when they are finished, and
// ffprobe lists the same packets and tags as before.

namespace {

class MovUserDataOfOthers : public kit::CacheScene {
protected:
    // All packets with their places, and the tags of the whole.
    static std::string listed(const std::string& path) {
        const kit::Outcome outcome =
            kit::run({"ffprobe", "-v", "error", "-show_entries",
                      "packet=stream_index,pts,dts,duration,size,pos,flags:format=nb_streams,duration:format_tags",
                      "-of", "csv", path});
        EXPECT_TRUE(outcome.good() && outcome.m_err.empty()) << outcome.m_err;
        return outcome.m_out;
    }
    // Of many movies by one run of ffmpeg: all packets with their times, and hashes of their bytes.
    static std::vector<std::string> packetsOf(const std::vector<std::string>& paths, unsigned tracks) {
        std::vector<std::string> command = {"ffmpeg", "-v", "warning"}, maps;
        for (std::size_t i = 0; i < paths.size(); ++i) {
            command.insert(command.end(), {"-i", paths[i]});
            for (unsigned track = 0; track < tracks; ++track)
                maps.insert(maps.end(), {"-map", std::to_string(i) + ":" + std::to_string(track)});
        }
        command.insert(command.end(), maps.begin(), maps.end());
        command.insert(command.end(), {"-c", "copy", "-f", "framehash", "-hash", "md5", "-"});
        const kit::Outcome outcome = kit::run(command);
        EXPECT_TRUE(outcome.good() && outcome.m_err.empty()) << outcome.m_err;
        std::vector<std::string> packets(paths.size());
        std::map<unsigned long, std::string> streams;
        std::istringstream lines(outcome.m_out);
        for (std::string line; std::getline(lines, line);) {
            const std::size_t comma = line.find(',');
            if (line[0] != '#' && comma != std::string::npos)
                streams[std::strtoul(line.c_str(), nullptr, 10)] += line.substr(comma) + "\n";
        }
        for (const auto& [stream, text] : streams) {
            if (stream < paths.size() * tracks) packets[stream / tracks] += text;
        }
        return packets;
    }
    static std::vector<std::string> source(const std::string& sound) {
        return {"-f",       "lavfi",   "-i",        "testsrc2=s=160x120:r=25:d=1",
                "-f",       "lavfi",   "-i",        "sine=d=1:r=48000",
                "-c:v",     "libx264", "-bf",       "2",
                "-g",       "12",      "-c:a",      sound,
                "-pix_fmt", "yuv420p", "-metadata", "title=theirs"};
    }
    std::string write(const std::string& name, std::vector<std::string> arguments, const std::string& flags,
                      const std::string& value) {
        if (!flags.empty()) arguments.insert(arguments.end(), {flags, value});
        movpeers::write(arguments, m_tree.path(name));
        return m_tree.path(name);
    }
    // Tracks of sound, recorded.
    std::string recorded(const std::string& name) {
        const std::string path = m_tree.path(name);
        MediaObj* const movie = MediaObj::openWriter(path.c_str(), false, m_result, MediaContainment::Embedded,
                                                     MediaFileType::QuickTime, nullptr, BasicIOTypes::SizeAdvice::None);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        MediaClipParam param;
        EXPECT_TRUE(
            param.initAudio(MediaFileType::QuickTime, MediaEncodingType::Pcm, MediaVideoRate::Unknown, 48000, 2, 16));
        for (unsigned i = 0; movie != nullptr && i < 2; ++i) {
            MediaTrackDesc* const track = movie->createTrack(param, m_result);
            EXPECT_NE(track->createClip(param, m_result), nullptr);
            SampleInfo info;
            info.reset(4000);
            MediaSampleInMovie where;
            EXPECT_TRUE(track->addSamples(MediaRecordReq(0, 1000, info), where, m_result));
            MediaIoBuf buffer;
            kit::fill(buffer, kit::patternFrom(i, 4000));
            EXPECT_TRUE(movie->vsWrite(where, buffer));
        }
        EXPECT_TRUE(movie->setRecording(false));
        movie->release(nullAgent(), true);
        expireAll();
        return path;
    }
    // Opens the movie and gives it another identifier and other properties. Gives: the code of the first failure.
    int change(const std::string& path, const std::string& names) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        m_result = movie->generateUmid();
        if (m_result) m_result = movie->setProperty(ClipPropsProperty(names.c_str()));
        const int code = m_result.getCode();
        m_result.discard();
        movie->release(nullAgent(), true);
        expireAll();
        return code;
    }
    std::string namesIn(const std::string& path, bool& hasUmid) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        EXPECT_NE(movie, nullptr) << path << m_result.describe().get();
        if (movie == nullptr) return "none";
        const std::string names = movie->getClipProperties();
        hasUmid = movie->getUmid() != nullptr;
        movie->release();
        expireAll();
        return names;
    }
};

// Ends the process in front of one write: "<number from 1> <path>". Then there is no way back.
std::atomic<int> s_killLeft{0};

int killAtWrite(FileCall call, const char*, int, std::size_t&) {
    if (call == FileCall::Write && --s_killLeft == 0) ::raise(SIGKILL);
    return 0;
}

int changeUntilKilled(const std::string& argument) {
    char* rest = nullptr;
    s_killLeft = static_cast<int>(std::strtol(argument.c_str(), &rest, 10));
    OpResult result;
    MediaObj* const movie = MediaObj::openReader(rest + 1, MediaObj::ReadMode::ReadWrite, result);
    if (movie == nullptr) return 2;
    FileCalls::setFault(&killAtWrite);
    result = movie->setProperty(ClipPropsProperty("new"));
    FileCalls::setFault(nullptr);
    const bool isDone = result.success();
    result.discard();
    movie->release(MediaAgent(nullptr), true);
    return isDone ? 0 : 1;
}

const kit::ChildJob s_changeUntilKilled("change until killed", &changeUntilKilled);

}  // namespace

TEST_F(MovUserDataOfOthers, ChangeAndEveryPacketAndTagStays) {
    const std::string flags = "-movflags";
    const std::string paths[] = {write("behind.mov", source("pcm_s16le"), "", ""),
                                 write("timecode.mov", source("pcm_s16le"), "-timecode", "10:00:00:00"),
                                 write("front.mp4", source("aac"), flags, "+faststart"),
                                 write("room.mov", source("pcm_s16le"), "-moov_size", "20000"), recorded("own.mov")};
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        const std::string before = listed(path);
        const auto size = std::filesystem::file_size(path);
        for (const char* names : {"stereo", "stereo,subtitles,and more names than there were before", "", "last"}) {
            EXPECT_EQ(change(path, names), 0);
            bool hasUmid = false;
            EXPECT_EQ(namesIn(path, hasUmid), names);
            EXPECT_TRUE(hasUmid);
        }
        EXPECT_EQ(listed(path), before);
        const bool hasRoom = path.ends_with("room.mov") || path.ends_with("own.mov");
        EXPECT_EQ(std::filesystem::file_size(path) == size, hasRoom);
        if (!path.ends_with("own.mov")) {
            EXPECT_NE(before.find("theirs"), std::string::npos);
            EXPECT_EQ(movpeers::decode(path, "v:0").empty(), false);
        }
    }
}

TEST_F(MovUserDataOfOthers, OfFragmentsAreRefusedAndTheFileStays) {
    const std::string path = write("a.mp4", source("aac"), "-movflags", "+frag_keyframe+empty_moov");
    const auto size = static_cast<unsigned>(std::filesystem::file_size(path));
    const std::string bytes = kit::bytesAt(path, 0, size + 1);
    EXPECT_EQ(change(path, "stereo"), MediaCode::OperationUnsupported);
    EXPECT_TRUE(kit::bytesAt(path, 0, size + 1) == bytes);
}

TEST_F(MovUserDataOfOthers, AreOldOrNewWhereverTheProcessIsKilled) {
    const std::string kinds[] = {recorded("own.mov"), write("behind.mov", source("pcm_s16le"), "", ""),
                                 write("front.mov", source("pcm_s16le"), "-movflags", "+faststart"),
                                 write("room.mov", source("pcm_s16le"), "-moov_size", "20000")};
    for (const std::string& kind : kinds) {
        SCOPED_TRACE(kind);
        ASSERT_EQ(change(kind, "old"), 0);
        std::vector<std::string> paths = {kind};
        unsigned olds = 0, news = 0;
        bool isKilled = true;
        for (unsigned number = 1; isKilled && number < 40; ++number) {
            SCOPED_TRACE(number);
            const std::string path = m_tree.path("killed" + std::to_string(number) + ".mov");
            std::filesystem::copy_file(kind, path, std::filesystem::copy_options::overwrite_existing);
            const kit::Outcome outcome = s_changeUntilKilled.run(std::to_string(number) + " " + path);
            isKilled = outcome.m_signal == SIGKILL;
            EXPECT_TRUE(isKilled || outcome.m_exit == 0) << outcome.m_exit << outcome.m_err;
            bool hasUmid = false;
            const std::string names = namesIn(path, hasUmid);
            EXPECT_TRUE(hasUmid);
            EXPECT_TRUE(names == "new" || (isKilled && names == "old")) << names;
            (names == "new" ? news : olds) += 1;
            paths.push_back(path);
        }
        EXPECT_FALSE(isKilled) << "the last one came through";
        EXPECT_GE(olds, 2u);
        EXPECT_GE(news, 1u);
        const std::vector<std::string> packets = packetsOf(paths, 2);
        EXPECT_FALSE(packets[0].empty());
        for (std::size_t i = 1; i < packets.size(); ++i)
            EXPECT_TRUE(packets[i] == packets[0]) << paths[i];
    }
}
