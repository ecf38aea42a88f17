#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/object/core_subsystem.h"
#include "tools/block_reader.h"
#include "tools/byte_output.h"
#include "tools/commands.h"
#include "tools/interrupt.h"
#include "tools/movie.h"
#include "tools/progress.h"

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

// For the progress only; 0 when samples differ in size.
unsigned long long bytesOf(const MediaTrackDesc& track, unsigned long long samples) {
    const MediaOffsetLookup* lookup = track.getClipCount() > 0 ? track.getClip(0)->getLookup() : nullptr;
    return lookup != nullptr ? samples * lookup->getFixedSize() : 0;
}

std::string partial(const ByteOutput& target, unsigned long long samples, unsigned long long wanted) {
    return " (" + std::to_string(target.written()) + " bytes written, " + std::to_string(samples) + " of " +
           std::to_string(wanted) + " samples whole)";
}

// What is copied, and how far it came.
struct Copy {
    std::optional<Failure> m_failure;
    unsigned long long m_samples = 0;
    bool m_interrupted = false;
};

Copy copyPart(BlockReader& reader, ByteOutput& target, Progress& progress) {
    Copy copy;
    BlockReader::Block block;
    while (!Interrupt::isPending() && reader.next(block, copy.m_failure)) {
        const int error = target.write(block.m_data, block.m_bytes);
        obufFree(block.m_data);
        if (error != 0) {
            if (error != EINTR) copy.m_failure = Failure::system(MediaCode::WriteError, target.name(), error);
            break;
        }
        copy.m_samples += block.m_samples;
        progress.update(target.written());
    }
    copy.m_interrupted = Interrupt::isPending();
    return copy;
}

ExitCode finish(const ReadOptions& options, Part part, Copy copy, ByteOutput& target, Output& output) {
    if (const int error = target.close(); error != 0 && !copy.m_failure) {
        copy.m_failure = Failure::system(MediaCode::WriteError, target.name(), error);
    }
    if (copy.m_interrupted && copy.m_samples < part.m_count) {
        Output::tell(Failure{ExitCode::Interrupted, 0, "interrupted", "",
                             partial(target, copy.m_samples, part.m_count).substr(1)});
        return ExitCode::Interrupted;
    }
    if (copy.m_failure) {
        if (target.written() > 0) copy.m_failure->m_message += partial(target, copy.m_samples, part.m_count);
        return output.fail(*copy.m_failure);
    }
    if (!output.options().wantsDocument()) return ExitCode::Done;
    const Json read{{"path", options.m_range.m_file}, {"track", options.m_range.m_track}, {"from", part.m_from},
                    {"count", copy.m_samples},        {"bytes", target.written()},        {"output", options.m_target}};
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
    const TrackSamples samples(*track);
    const std::optional<Part> part = resolvePart(options.m_range, samples.count(), "sample", failure);
    if (!part) return output.fail(*failure);
    ByteOutput target;
    failure = target.open(options.m_target, *movie);
    if (failure) return output.fail(*failure);
    Copy copy;
    {
        BlockReader reader(movie, samples, *part);
        Progress progress(options.m_progress, quiet, bytesOf(*track, part->m_count));
        copy = copyPart(reader, target, progress);
    }
    ReadOptions named = options;
    named.m_range.m_track = trackName(*movie, track->getTrackIndex());
    return finish(named, *part, copy, target, output);
}
