#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/core_subsystem.h"
#include "support/clock.h"
#include "tools/block_reader.h"
#include "tools/byte_output.h"
#include "tools/commands.h"
#include "tools/events.h"
#include "tools/frame_list.h"
#include "tools/held_movie.h"
#include "tools/interrupt.h"
#include "tools/movie.h"
#include "tools/progress.h"

namespace {

using Time = std::chrono::steady_clock;

constexpr unsigned s_tick = 20;  // ms between two looks

bool isStandardOutput(const std::string& target) { return target.empty() || target == "-"; }

std::optional<Failure> checkTarget(const PlayOptions& options) {
    if (!isStandardOutput(options.m_target)) return std::nullopt;
    if (options.m_output.wantsDocument() || options.m_output.m_lines)
        return Failure::usage("--json, --jsonl and --field need standard output: say -o FILE for the bytes");
    if (options.m_target.empty() && ::isatty(STDOUT_FILENO) == 1)
        return Failure::usage("these bytes are nothing for a terminal: say -o FILE, or -o - to insist");
    return std::nullopt;
}

// Whether the whole track lies inside its file. A file may promise more than it has.
bool isWhole(const Movie& movie, const MediaTrackDesc& track, const FrameList& frames) {
    std::optional<Failure> none;
    FrameRow last;
    if (frames.count() == 0 || !frames.find(frames.count() - 1, last, none)) return false;
    const MediaClipDesc& clip = *track.getClip(track.getClipCount() - 1);
    return last.m_offset + last.m_bytes <= (*movie).getMediaSize(clip.getMediaId());
}

// Whether that frame of sound breaks off at the end of the track, so that more of it may come.
bool isPart(const MediaTrackDesc& track, const FrameList& frames, unsigned long long frame) {
    if (track.isSlave() || track.getDataType() != MediaDataType::Audio || track.getClipCount() != 1) return false;
    std::optional<Failure> none;
    FrameRow row;
    return !frames.find(frame, row, none) || row.m_count < track.getClip(0)->getSampleAndCount(frame).m_count;
}

// Delivers a track frame by frame in its order, as far as the movie may be read, through all its replacements.
class Player {
public:
    Player(const PlayOptions& options, const HeldMovie& movie, bool quiet, Output& output)
        : m_options(options),
          m_movie(movie),
          m_events(output),
          m_progress(options.m_progress, quiet, 0),
          m_lastGrowth(Time::now()) {}

    std::optional<Failure> open();
    // Plays to the end, or as far as it goes.
    void run();
    ExitCode finish(Output& output);

private:
    void noteReplacements();
    // Plays what may be read now. Answers whether there was anything.
    bool advance();
    void copy(const Movie& movie, const FrameList& frames, Part part);
    bool hasEnded() const { return Time::now() - m_lastGrowth > std::chrono::seconds(m_options.m_idle); }
    bool goesOn() const { return !m_failure && !m_deaf && !Interrupt::isPending(); }
    bool tell(const char* event);
    unsigned long long limitOf(const Movie& movie, const MediaTrackDesc& track, const FrameList& frames) const;

    const PlayOptions& m_options;
    const HeldMovie& m_movie;
    Events m_events;
    Progress m_progress;
    ByteOutput m_target;
    std::string m_track;
    std::optional<Failure> m_failure;
    Time::time_point m_lastGrowth;
    unsigned m_replacements = 0;
    unsigned long long m_frames = 0;
    unsigned long long m_samples = 0;
    bool m_ended = false;  // the movie grows no more
    bool m_deaf = false;   // nobody takes the events
};

std::optional<Failure> Player::open() {
    const Movie movie(m_options.m_file, m_movie.look());
    std::optional<Failure> failure;
    const MediaTrackDesc* const track = movie.findTrack(m_options.m_track, failure);
    if (track == nullptr) return failure;
    m_track = trackName(*movie, track->getTrackIndex());
    return m_target.open(m_options.m_target, *movie);
}

bool Player::tell(const char* event) {
    if (!m_options.m_output.m_lines) return true;
    m_deaf = !m_events.add(Json{{"event", event},
                                {"path", m_options.m_file},
                                {"track", m_track},
                                {"frames", m_frames},
                                {"samples", m_samples},
                                {"bytes", m_target.written()}},
                           "");
    return !m_deaf;
}

void Player::noteReplacements() {
    const unsigned replacements = m_movie.replacements();
    if (replacements == m_replacements) return;
    m_replacements = replacements;
    m_lastGrowth = Time::now();
    tell("replaced");
}

// What the movie calls safe may leave out the end of the sound, which is no whole frame: that is played once nothing
// grows any more.
unsigned long long Player::limitOf(const Movie& movie, const MediaTrackDesc& track, const FrameList& frames) const {
    if (m_ended) return frames.count();
    const unsigned long long safe = std::min((*movie).getReadSafeFrameLength(), frames.count());
    if (m_options.m_follow) return safe > 0 && isPart(track, frames, safe - 1) ? safe - 1 : safe;
    return isWhole(movie, track, frames) ? frames.count() : safe;
}

bool Player::advance() {
    const Movie movie(m_options.m_file, m_movie.look());
    const MediaTrackDesc* const track = movie.findTrack(m_track, m_failure);
    if (track == nullptr || track->getClipCount() == 0) return false;
    const FrameList frames(*track);
    const unsigned long long limit = limitOf(movie, *track, frames);
    if (m_ended && limit < m_frames)
        m_failure = Failure::make(ExitCode::BadFile, MediaCode::OutOfRange, m_options.m_file,
                                  "the movie is shorter now than what was played");
    if (limit <= m_frames) return false;
    copy(movie, frames, Part{m_frames, limit - m_frames});
    return true;
}

void Player::copy(const Movie& movie, const FrameList& frames, Part part) {
    BlockReader reader(movie, frames, part);
    BlockReader::Block block;
    while (goesOn() && reader.next(block, m_failure)) {
        const int error = block.m_bytes > 0 ? m_target.write(block.m_data, block.m_bytes) : 0;
        obufFree(block.m_data);
        if (error != 0) {
            if (error != EINTR) m_failure = Failure::system(MediaCode::WriteError, m_target.name(), error);
            break;
        }
        m_frames += block.m_units;
        m_samples += block.m_samples;
        m_progress.update(m_target.written());
    }
}

void Player::run() {
    while (goesOn()) {
        noteReplacements();
        const bool hasPlayed = advance();
        if (hasPlayed) tell("played");
        if (!m_options.m_follow || (m_ended && !hasPlayed)) return;
        if (hasPlayed) {
            m_lastGrowth = Time::now();
        } else if (hasEnded()) {
            m_ended = true;
        } else {
            waitMsec(s_tick);
        }
    }
}

ExitCode Player::finish(Output& output) {
    if (const int error = m_target.close(); error != 0 && !m_failure)
        m_failure = Failure::system(MediaCode::WriteError, m_target.name(), error);
    const std::string part =
        std::to_string(m_target.written()) + " bytes written, " + std::to_string(m_frames) + " frames whole";
    if (Interrupt::isPending()) {
        Output::tell(Failure{ExitCode::Interrupted, 0, "interrupted", "", part});
        return ExitCode::Interrupted;
    }
    if (m_failure) {
        m_failure->m_message += " (" + part + ")";
        return output.fail(*m_failure);
    }
    tell("done");
    if (!output.options().wantsDocument()) return output.endWith(ExitCode::Done);
    const Json played{{"path", m_options.m_file},    {"track", m_track},
                      {"frames", m_frames},          {"samples", m_samples},
                      {"bytes", m_target.written()}, {"replacements", m_replacements},
                      {"output", m_options.m_target}};
    return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"play", played}});
}

}  // namespace

ExitCode runPlay(const PlayOptions& options, bool quiet, Output& output) {
    std::optional<Failure> failure = checkTarget(options);
    if (failure) return output.fail(*failure);
    const HeldMovie movie(options.m_file);
    if (movie.failure()) return output.fail(*movie.failure());
    Player player(options, movie, quiet, output);
    failure = player.open();
    if (failure) return output.fail(*failure);
    player.run();
    return player.finish(output);
}
