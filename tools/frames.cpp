#include <cstdio>

#include "shared/include/object/core_subsystem.h"
#include "tools/commands.h"
#include "tools/frame_list.h"
#include "tools/interrupt.h"
#include "tools/movie.h"

namespace {

// The frames that were asked for, one after the other. Answers false when it is interrupted or `sink` has had enough.
template <typename Sink>
bool forEachFrame(const FrameList& frames, Part part, std::optional<Failure>& failure, Sink sink) {
    FrameRow row;
    for (unsigned long long i = 0; i < part.m_count; ++i) {
        if (Interrupt::isPending()) return false;
        if (!frames.find(part.m_from + i, row, failure)) return !failure;
        if (!sink(row)) return false;
    }
    return true;
}

std::string textOf(const FrameRow& row) {
    char line[160];
    std::snprintf(line, sizeof line, "%10llu %14llu %8u %16llu %10u%s%s\n", row.m_frame, row.m_sample, row.m_count,
                  row.m_offset, row.m_bytes, row.m_coding != nullptr ? "  " : "",
                  row.m_coding != nullptr ? row.m_coding : "");
    return line;
}

// A document may have hundreds of thousands of rows, so it goes out as it is made, a row a line.
class FramePrinter {
public:
    FramePrinter(Output& output, bool hasCoding) : m_output(output), m_isJson(output.options().m_json) {
        m_text = m_isJson ? "{\"schemaVersion\":" + std::to_string(s_schemaVersion) + ",\"frames\":["
                          : "     frame         sample    count           offset      bytes" +
                                std::string(hasCoding ? "  coding" : "") + "\n";
    }

    bool add(const FrameRow& row) {
        m_text += m_isJson ? (m_rows == 0 ? "\n" : ",\n") + ::textOf(row.document()) : textOf(row);
        ++m_rows;
        return m_text.size() < s_flushSize || flush();
    }
    // The document is whole also when the rows aren't: then it ends with the failure.
    bool finish(const std::optional<Failure>& failure) {
        if (m_isJson)
            m_text += "]" + (failure ? ",\"error\":" + ::textOf(Output::errorOf(*failure)) : std::string()) + "}\n";
        return flush();
    }
    unsigned long long rows() const { return m_rows; }

private:
    static constexpr std::size_t s_flushSize = 1 << 16;

    bool flush() {
        const bool good = m_output.print(m_text);
        m_text.clear();
        return good;
    }

    Output& m_output;
    const bool m_isJson;
    std::string m_text;
    unsigned long long m_rows = 0;
};

ExitCode printField(const FrameList& frames, Part part, Output& output) {
    Json rows = Json::array();
    std::optional<Failure> failure;
    forEachFrame(frames, part, failure, [&rows](const FrameRow& row) {
        rows.push_back(row.document());
        return true;
    });
    if (Interrupt::isPending()) return ExitCode::Interrupted;
    if (failure) return output.fail(*failure);
    return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"frames", std::move(rows)}}, "frames");
}

ExitCode printRows(const RangeOptions& options, const FrameList& frames, Part part, Output& output) {
    FramePrinter printer(output, frames.hasCoding());
    std::optional<Failure> failure;
    const bool whole =
        forEachFrame(frames, part, failure, [&printer](const FrameRow& row) { return printer.add(row); });
    if (whole && options.m_count && printer.rows() < part.m_count) {
        failure = Failure::make(ExitCode::WrongUsage, MediaCode::OutOfRange, options.m_file,
                                "the media end before frame " + std::to_string(part.m_from + printer.rows()));
    }
    if (Interrupt::isPending()) return ExitCode::Interrupted;
    if (failure) Output::tell(*failure);
    if (!printer.finish(failure)) return ExitCode::IoError;
    return failure ? failure->m_exit : ExitCode::Done;
}

}  // namespace

ExitCode runFrames(const FramesOptions& options, Output& output) {
    const Movie movie(options.m_range.m_file);
    if (movie.failure()) return output.fail(*movie.failure());
    std::optional<Failure> failure;
    const MediaTrackDesc* track = movie.findTrack(options.m_range.m_track, failure);
    if (track == nullptr) return output.fail(*failure);
    const FrameList frames(*track);
    const std::optional<Part> part = resolvePart(options.m_range, frames.count(), "frame", failure);
    if (!part) return output.fail(*failure);
    if (!output.options().m_field.empty()) return printField(frames, *part, output);
    return printRows(options.m_range, frames, *part, output);
}
