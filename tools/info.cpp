#include "tools/commands.h"
#include "tools/info_document.h"
#include "tools/interrupt.h"
#include "tools/text_form.h"

namespace {

std::string textAt(const Json& value, const char* name) { return printable(value[name].get_ref<const std::string&>()); }

std::string numberAt(const Json& value, const char* name) {
    return std::to_string(value[name].get<unsigned long long>());
}

std::string row(const std::string& title, const std::string& text) {
    return "  " + title + std::string(title.size() < 10 ? 10 - title.size() : 1, ' ') + text + "\n";
}

std::string rateText(const Json& clip) {
    const std::string ticks = numberAt(clip, "ticksPerSample");
    return numberAt(clip, "sampleRate") + (ticks == "1" ? "" : "/" + ticks) + " Hz";
}

std::string clipText(const Json& clip) {
    const auto channels = clip["channels"].get<unsigned>();
    std::string text = textAt(clip, "encoding") + ", " + rateText(clip);
    if (channels > 0) text += ", " + std::to_string(channels) + (channels == 1 ? " channel" : " channels");
    text += ", " + numberAt(clip, "bitsPerUnit") + " bits " + textAt(clip, "endian");
    return text + ", " + numberAt(clip, "bitrate") + " bits/s, " + numberAt(clip, "samples") + " samples";
}

std::string trackText(const Json& track) {
    std::string text = row(textAt(track, "name"), clockTime(track["durationSeconds"].get<double>()) + ", " +
                                                      numberAt(track, "length") + " ticks");
    for (const Json& clip : track["clips"])
        text += row("", clipText(clip));
    return text;
}

// The same facts as the document's, for people.
std::string movieText(const Json& movie) {
    std::string text = textAt(movie, "path") + "\n";
    text += row("type", textAt(movie, "fileType"));
    text += row("length", clockTime(movie["durationSeconds"].get<double>()) + ", " + numberAt(movie, "frames") +
                              " frames at rate " + textAt(movie, "videoRate") + ", time base " +
                              numberAt(movie, "timeBase"));
    if (movie["writable"].get<bool>()) text += row("state", movie["recording"].get<bool>() ? "recording" : "writable");
    for (const Json& track : movie["tracks"])
        text += trackText(track);
    for (const Json& file : movie["files"])
        text += row("file", textAt(file, "path") + ", " + numberAt(file, "bytes") + " bytes");
    return text;
}

// One file has its own exit code; of several it is enough to know that one failed.
ExitCode exitOf(const Failure& failure, const InfoOptions& options) {
    return options.m_files.size() == 1 ? failure.m_exit : ExitCode::SomeFailed;
}

}  // namespace

ExitCode runInfo(const InfoOptions& options, Output& output) {
    Json movies = Json::array();
    ExitCode exit = ExitCode::Done;
    for (const std::string& path : options.m_files) {
        if (Interrupt::isPending()) return ExitCode::Interrupted;
        const Movie movie(path);
        if (movie.failure()) {
            exit = exitOf(*movie.failure(), options);
            Output::tell(*movie.failure());
            movies.push_back(Json{{"path", path}, {"error", Output::errorOf(*movie.failure())}});
            continue;
        }
        Json described = describeMovie(movie);
        if (!output.options().wantsDocument() && !output.print(movieText(described))) return ExitCode::IoError;
        if (output.options().wantsDocument()) movies.push_back(std::move(described));
    }
    if (!output.options().wantsDocument()) return exit;
    const ExitCode printed =
        output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"movies", std::move(movies)}}, "movies");
    return exit != ExitCode::Done && printed == ExitCode::Done ? exit : printed;
}
