#include "tools/info_text.h"

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

// The fact and a comma ahead of it, or nothing where the movie doesn't tell it.
std::string optionalText(const Json& value, const char* name) {
    return value.contains(name) ? ", " + textAt(value, name) : "";
}

std::string pictureText(const Json& clip) {
    return optionalText(clip, "chroma") + optionalText(clip, "scan") + optionalText(clip, "sequenceCoding");
}

std::string soundText(const Json& clip) {
    const auto channels = clip["channels"].get<unsigned>();
    const std::string text = ", " + std::to_string(channels) + (channels == 1 ? " channel" : " channels");
    return (channels > 0 ? text : "") + ", " + numberAt(clip, "bitsPerUnit") + " bits " + textAt(clip, "endian");
}

std::string clipText(const Json& clip) {
    const std::string kind = clip.contains("sequenceCoding") ? pictureText(clip) : soundText(clip);
    return textAt(clip, "encoding") + ", " + rateText(clip) + kind + ", " + numberAt(clip, "bitrate") + " bits/s, " +
           numberAt(clip, "samples") + " samples";
}

std::string propertyRows(const Json& value) {
    std::string text;
    if (!value.contains("properties")) return text;
    for (const auto& [name, property] : value["properties"].items()) {
        const std::string shown = property.is_string() ? property.get<std::string>() : textOf(property);
        text += row("", name + " = " + printable(shown));
    }
    return text;
}

std::string trackText(const Json& track) {
    std::string facts = clockTime(track["durationSeconds"].get<double>()) + ", " + numberAt(track, "length") + " ticks";
    if (track.contains("width") && track.contains("height"))
        facts += ", " + numberAt(track, "width") + "x" + numberAt(track, "height");
    facts += optionalText(track, "aspect");
    if (track.contains("syncAdjustment"))
        facts += ", sync adjusted by " + std::to_string(track["syncAdjustment"].get<int>()) + " frames";
    std::string text = row(textAt(track, "name"), facts);
    for (const Json& clip : track["clips"])
        text += row("", clipText(clip));
    return text + propertyRows(track);
}

// Rows of what a movie need not have.
std::string restText(const Json& movie) {
    std::string text;
    if (movie.contains("timecode")) {
        const Json& timecode = movie["timecode"];
        text += row("timecode", textAt(timecode, "text") + (timecode["dropFrame"].get<bool>() ? ", drop-frame" : ""));
    }
    if (movie.contains("umid")) text += row("umid", textAt(movie, "umid"));
    if (movie.contains("gopLength")) text += row("gop", numberAt(movie, "gopLength") + " frames");
    return text;
}

}  // namespace

std::string movieText(const Json& movie) {
    std::string text = textAt(movie, "path") + "\n";
    text += row("type", textAt(movie, "fileType"));
    text += row("length", clockTime(movie["durationSeconds"].get<double>()) + ", " + numberAt(movie, "frames") +
                              " frames at rate " + textAt(movie, "videoRate") + ", time base " +
                              numberAt(movie, "timeBase"));
    text += restText(movie);
    if (movie["writable"].get<bool>()) text += row("state", movie["recording"].get<bool>() ? "recording" : "writable");
    text += propertyRows(movie);
    for (const Json& track : movie["tracks"])
        text += trackText(track);
    for (const Json& file : movie["files"])
        text += row("file", textAt(file, "path") + ", " + numberAt(file, "bytes") + " bytes");
    return text;
}
