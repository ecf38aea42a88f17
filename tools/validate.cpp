#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/switches.h"
#include "tools/block_reader.h"
#include "tools/commands.h"
#include "tools/interrupt.h"
#include "tools/movie.h"
#include "tools/progress.h"
#include "tools/text_form.h"
#include "tools/track_samples.h"

namespace {

// What a check has to say of some samples.
struct Finding {
    unsigned m_track = 0;
    unsigned m_clip = 0;
    long long m_sample = 0;  // the first of them, in the clip
    long long m_bytes = 0;
    long long m_offset = 0;  // of the first byte in its file
    std::string m_text;
};

// Takes the findings out of the log while it stands, and lets the other messages go where they would have gone.
// **Threads:** any may log.
class FindingSink final : public LogSink {
public:
    FindingSink() : m_level(getLogLevel()), m_before(setLogSink(this)) { setLogLevel(LogLevel::Debug); }
    ~FindingSink() override {
        setLogLevel(m_level);
        setLogSink(m_before);
    }
    FindingSink(const FindingSink&) = delete;
    FindingSink& operator=(const FindingSink&) = delete;

    void write(const LogMessage& message) override {
        Finding finding;
        if (parse(message.m_text, finding)) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_findings.push_back(std::move(finding));
        } else if (message.m_level <= m_level) {
            pass(message);
        }
    }
    // Those that have come since the last call.
    std::vector<Finding> take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_findings, {});
    }

private:
    // "Val:rd(o=ID,trkN,clpN,smplN,BYTESb@OFFSET):TEXT"
    static bool parse(const char* line, Finding& finding) {
        int size = 0;
        const int read = std::sscanf(line, "Val:rd(o=%*x,trk%u,clp%u,smpl%lld,%lldb@%lld):%n", &finding.m_track,
                                     &finding.m_clip, &finding.m_sample, &finding.m_bytes, &finding.m_offset, &size);
        if (read != 5 || size == 0) return false;
        finding.m_text = line + size;
        return true;
    }
    // What a sink logs goes to standard error, or nowhere when the log is off.
    void pass(const LogMessage& message) {
        if (m_before != nullptr) return m_before->write(message);
        if (getLogDestination() == LogDestination::None) return;
        switch (message.m_level) {
            case LogLevel::Error:
                return errorMsg("%s", message.m_text);
            case LogLevel::Warning:
                return warningMsg("%s", message.m_text);
            case LogLevel::Info:
                return infoMsg("%s", message.m_text);
            case LogLevel::Debug:
                return debugMsg("%s", message.m_text);
        }
    }

    const LogLevel m_level;  // of what is shown
    LogSink* const m_before;
    std::mutex m_mutex;
    std::vector<Finding> m_findings;
};

// Lets every kind of check work while it stands.
class ChecksOn {
public:
    ChecksOn() : m_before(mediaValidate.get()) {
        for (const unsigned bit : {MediaVal::Mpeg, MediaVal::Pcm, MediaVal::S436})
            mediaValidate.setBit(bit);
    }
    ~ChecksOn() { mediaValidate.set(m_before); }
    ChecksOn(const ChecksOn&) = delete;
    ChecksOn& operator=(const ChecksOn&) = delete;

private:
    const unsigned m_before;
};

// The essence of a movie, track by track; what rides on another track's samples is read with those.
class EssenceReader {
public:
    explicit EssenceReader(const Movie& movie) : m_movie(movie) {
        for (unsigned i = 0; i < (*movie).getTrackCount(); ++i) {
            const MediaTrackDesc* const track = (*movie).getTrackAt(i);
            if (!track->isSlave()) m_tracks.emplace_back(*track);
        }
    }

    // Bytes of all tracks; 0 when that isn't known.
    unsigned long long total() const {
        unsigned long long bytes = 0;
        for (const TrackSamples& track : m_tracks)
            bytes += track.bytesOf(0, track.count());
        return bytes;
    }
    // Fails: with the reason; what comes behind isn't read then.
    std::optional<Failure> readAll(Progress& progress) {
        std::optional<Failure> failure;
        for (const TrackSamples& track : m_tracks) {
            BlockReader reader(m_movie, track, Part{0, track.count()});
            BlockReader::Block block;
            while (!Interrupt::isPending() && reader.next(block, failure)) {
                m_bytes += block.m_bytes;
                obufFree(block.m_data);
                progress.update(m_bytes);
            }
            if (failure || Interrupt::isPending()) break;
        }
        return failure;
    }
    unsigned long long bytes() const { return m_bytes; }

private:
    const Movie& m_movie;
    std::vector<TrackSamples> m_tracks;
    unsigned long long m_bytes = 0;  // read
};

// Whether somebody looks at samples like the clip's. Asked as the reads ask, of a clip of a private object: one that
// looks has an answer to an empty block too. Requires: the checks are on, and no read is under way.
bool hasChecker(const MediaClipDesc& clip) {
    OpResult result(OpResult::Ok);
    bool looks = false;
    const AutoReleasePtr<MediaObj> object(MediaObj::openObj(clip.getFileType(), result));
    if (object) {
        object->beginMorph();
        MediaTrackDesc* const track = object->createTrack(clip.getTrack(), result);
        const MediaClipDesc* const checker =
            track != nullptr ? track->createClip(clip, MediaContainment::Embedded, result) : nullptr;
        object->endMorph();
        looks = checker != nullptr && checker->validate(MediaIoBuf()).get() != nullptr;
    }
    result.discard();
    return looks;
}

// Little-endian words of less than 32 bits are looked at, but lose their lower bits on the way.
bool isHeardInPart(const MediaClipDesc& clip) {
    return clip.getEncoding() == MediaEncodingType::Pcm && clip.getEndian() == MediaEndian::Little &&
           clip.getBitsPerUnit() < 32;
}

// The tracks whose samples nobody looks at in earnest, or not as theirs, since they ride on another track's.
Json uncheckedTracks(const MediaObj& movie) {
    Json names = Json::array();
    for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
        const MediaTrackDesc& track = *movie.getTrackAt(i);
        bool isChecked = !track.isSlave();
        for (unsigned k = 0; isChecked && k < track.getClipCount(); ++k) {
            const MediaClipDesc& clip = *track.getClip(k);
            const bool isGap = clip.getMediaId() == nullptr;
            isChecked = isGap || (hasChecker(clip) && !isHeardInPart(clip));
        }
        if (!isChecked) names.push_back(trackName(movie, i));
    }
    return names;
}

class Validation {
public:
    Validation(const ValidateOptions& options, bool quiet, Output& output)
        : m_options(options), m_quiet(quiet), m_output(output) {}

    ExitCode run();

private:
    void check(const std::string& path);
    void tell(const std::string& path, const Failure& failure, Json& file);
    Json show(const Movie& movie);
    ExitCode exit() const;

    const ValidateOptions& m_options;
    const bool m_quiet;
    Output& m_output;
    const ChecksOn m_checks;
    FindingSink m_sink;
    Json m_files = Json::array();
    std::optional<Failure> m_failure;  // the first
    bool m_found = false;
    bool m_interrupted = false;
};

Json Validation::show(const Movie& movie) {
    Json list = Json::array();
    for (const Finding& finding : m_sink.take()) {
        m_found = true;
        const std::string track = trackName(*movie, finding.m_track);
        if (!m_output.options().wantsDocument()) {
            static_cast<void>(m_output.print(printable(movie.path()) + ": " + track + ", sample " +
                                             std::to_string(finding.m_sample) + ", " + std::to_string(finding.m_bytes) +
                                             " bytes at " + std::to_string(finding.m_offset) + ": " +
                                             printable(finding.m_text) + "\n"));
            continue;
        }
        list.push_back(Json{{"track", track},
                            {"clip", finding.m_clip},
                            {"sample", finding.m_sample},
                            {"bytes", finding.m_bytes},
                            {"offset", finding.m_offset},
                            {"text", finding.m_text}});
    }
    return list;
}

void Validation::tell(const std::string& path, const Failure& failure, Json& file) {
    Output::tell(failure);
    file["error"] = Output::errorOf(failure);
    if (!m_failure) m_failure = failure;
}

void Validation::check(const std::string& path) {
    const Movie movie(path);
    Json file{{"path", path}};
    if (movie.failure()) {
        tell(path, *movie.failure(), file);
    } else {
        Json unchecked = uncheckedTracks(*movie);
        for (const Json& track : unchecked)
            infoMsg("%s: nobody checks %s\n", path.c_str(), track.get_ref<const std::string&>().c_str());
        EssenceReader essence(movie);
        std::optional<Failure> failure;
        {
            Progress progress(m_options.m_progress, m_quiet, essence.total());
            failure = essence.readAll(progress);
        }
        file["bytes"] = essence.bytes();
        file["unchecked"] = std::move(unchecked);
        file["findings"] = show(movie);
        if (failure) tell(path, *failure, file);
    }
    m_files.push_back(std::move(file));
}

// One file has its own exit code; of several it is enough to know that one failed.
ExitCode Validation::exit() const {
    if (m_interrupted) return ExitCode::Interrupted;
    if (m_failure) return m_options.m_files.size() == 1 ? m_failure->m_exit : ExitCode::SomeFailed;
    return m_found ? ExitCode::Findings : ExitCode::Done;
}

ExitCode Validation::run() {
    for (const std::string& path : m_options.m_files) {
        check(path);
        m_interrupted = Interrupt::isPending();
        if (m_interrupted) break;
    }
    if (!m_output.options().wantsDocument()) return m_output.endWith(exit());
    const ExitCode printed =
        m_output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"files", std::move(m_files)}}, "files");
    return printed == ExitCode::Done ? exit() : printed;
}

}  // namespace

ExitCode runValidate(const ValidateOptions& options, bool quiet, Output& output) {
    return Validation(options, quiet, output).run();
}
