#include <unistd.h>

#include <cerrno>
#include <memory>

#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/core_subsystem.h"
#include "tools/block_reader.h"
#include "tools/byte_output.h"
#include "tools/commands.h"
#include "tools/frame_list.h"
#include "tools/interrupt.h"
#include "tools/movie.h"
#include "tools/progress.h"
#include "tools/track_samples.h"

namespace {

bool isStandardOutput(const std::string& target) { return target.empty() || target == "-"; }

// What keeps the command from being run at all.
std::optional<Failure> checkTarget(const ReadOptions& options) {
    if (!isStandardOutput(options.m_target)) return std::nullopt;
    if (options.m_output.wantsDocument())
        return Failure::usage("--json and --field need standard output: say -o FILE for the bytes");
    if (options.m_target.empty() && ::isatty(STDOUT_FILENO) == 1) {
        return Failure::usage("these bytes are nothing for a terminal: say -o FILE, or -o - to insist");
    }
    return std::nullopt;
}

// What the part is counted in. The sound of some tracks lies inside the frames of another one, each of which is read
// whole: it has no samples that could be cut out. Fails: null.
std::unique_ptr<TrackUnits> unitsOf(const ReadOptions& options, const MediaTrackDesc& track,
                                    std::optional<Failure>& failure) {
    const RangeOptions& range = options.m_range;
    if (options.m_frames || (track.isSlave() && !range.m_from && !range.m_count))
        return std::make_unique<FrameList>(track);
    if (!track.isSlave()) return std::make_unique<TrackSamples>(track);
    failure = Failure::usage("the samples of this track lie inside video frames: say --frames to count those");
    failure->m_file = range.m_file;
    return nullptr;
}

std::string partial(const ByteOutput& target, unsigned long long units, unsigned long long wanted, const char* unit) {
    return " (" + std::to_string(target.written()) + " bytes written, " + std::to_string(units) + " of " +
           std::to_string(wanted) + " " + unit + "s whole)";
}

// What is copied, and how far it came.
struct Copy {
    std::optional<Failure> m_failure;
    unsigned long long m_units = 0;
    unsigned long long m_samples = 0;
    bool m_interrupted = false;
};

Copy copyPart(BlockReader& reader, ByteOutput& target, Progress& progress) {
    Copy copy;
    BlockReader::Block block;
    while (!Interrupt::isPending() && reader.next(block, copy.m_failure)) {
        const int error = block.m_bytes > 0 ? target.write(block.m_data, block.m_bytes) : 0;
        obufFree(block.m_data);
        if (error != 0) {
            if (error != EINTR) copy.m_failure = Failure::system(MediaCode::WriteError, target.name(), error);
            break;
        }
        copy.m_units += block.m_units;
        copy.m_samples += block.m_samples;
        progress.update(target.written());
    }
    copy.m_interrupted = Interrupt::isPending();
    return copy;
}

// What was asked for, by the names that it has.
struct Job {
    std::string m_track;
    const char* m_unit;
    Part m_part;
};

ExitCode finish(const ReadOptions& options, const Job& job, Copy copy, ByteOutput& target, Output& output) {
    if (const int error = target.close(); error != 0 && !copy.m_failure) {
        copy.m_failure = Failure::system(MediaCode::WriteError, target.name(), error);
    }
    const std::string part = partial(target, copy.m_units, job.m_part.m_count, job.m_unit);
    if (copy.m_interrupted && copy.m_units < job.m_part.m_count) {
        Output::tell(Failure{ExitCode::Interrupted, 0, "interrupted", "", part.substr(1)});
        return ExitCode::Interrupted;
    }
    if (copy.m_failure) {
        if (target.written() > 0) copy.m_failure->m_message += part;
        return output.fail(*copy.m_failure);
    }
    if (!output.options().wantsDocument()) return ExitCode::Done;
    const Json read{{"path", options.m_range.m_file}, {"track", job.m_track},      {"unit", job.m_unit},
                    {"from", job.m_part.m_from},      {"count", copy.m_units},     {"samples", copy.m_samples},
                    {"bytes", target.written()},      {"output", options.m_target}};
    return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"read", read}});
}

}  // namespace

ExitCode runRead(const ReadOptions& options, bool quiet, Output& output) {
    std::optional<Failure> failure = checkTarget(options);
    if (failure) return output.fail(*failure);
    const Movie movie(options.m_range.m_file);
    if (movie.failure()) return output.fail(*movie.failure());
    const MediaTrackDesc* track = movie.findTrack(options.m_range.m_track, failure);
    if (track == nullptr) return output.fail(*failure);
    const std::unique_ptr<TrackUnits> units = unitsOf(options, *track, failure);
    if (!units) return output.fail(*failure);
    const std::optional<Part> part = resolvePart(options.m_range, units->count(), units->name(), failure);
    if (!part) return output.fail(*failure);
    ByteOutput target;
    failure = target.open(options.m_target, *movie);
    if (failure) return output.fail(*failure);
    Copy copy;
    {
        BlockReader reader(movie, *units, *part);
        Progress progress(options.m_progress, quiet, units->bytesOf(part->m_from, part->m_count));
        copy = copyPart(reader, target, progress);
    }
    return finish(options, Job{trackName(*movie, track->getTrackIndex()), units->name(), *part}, copy, target, output);
}
