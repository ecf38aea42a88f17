#include "tools/movie.h"

#include <cerrno>
#include <cstring>

#include "services/file/fs_file_io.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"
#include "tools/text_form.h"

namespace {

// What the system says about a file that can't be opened.
Failure ofOpen(const std::string& path, int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return Failure::system(MediaCode::FileNonExistent, path, error);
        case EACCES:
        case EPERM:
            return Failure::system(MediaCode::FileNotReadable, path, error);
        case EISDIR:
            return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, path, "it is a folder");
        case ENOTSUP:
            return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, path, "it is no regular file");
        default:
            return Failure::system(MediaCode::ReadError, path, error);
    }
}

// No reader took the file: either its content is to blame or the way to it. A reader can't tell, so the file is asked.
Failure explain(const std::string& path, OpResult& result) {
    const Failure ofReader = Failure::from(result, path);
    AutoRefPtr<BasicFileIO> file(new FsFileIO("tool", path.c_str(), BasicIOTypes::Mode::ReadOnly));
    if (!file->open()) return ofOpen(path, file->getLastError());
    unsigned char first = 0;
    if (file->readAt(0, &first, 1) < 0) return ofOpen(path, file->getLastError());
    return ofReader;
}

std::string trackNames(const MediaObj& movie) {
    std::string names;
    for (unsigned i = 0; i < movie.getTrackCount(); ++i)
        names += (i == 0 ? "" : ", ") + trackName(movie, i);
    return names.empty() ? "none" : names;
}

Failure outOfRange(const std::string& file, const std::string& message) {
    return Failure::make(ExitCode::WrongUsage, MediaCode::OutOfRange, file, message);
}

}  // namespace

Movie::Movie(const std::string& path) : m_path(path) {
    if (path == "-") {
        m_failure = Failure::usage(
            "a movie can't be read from standard input, which has no places; a file of the name - is ./-");
        m_failure->m_file = path;
        return;
    }
    OpResult result;
    m_object = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    if (!m_object) m_failure = explain(path, result);
    result.discard();
}

std::string trackName(const MediaObj& movie, unsigned index) {
    return MediaNames::get(movie.getTrackEnum(static_cast<unsigned short>(index))).get();
}

const MediaTrackDesc* Movie::findTrack(const std::string& name, std::optional<Failure>& failure) const {
    const MediaObj& movie = *m_object.get();
    if (name.empty() && movie.getTrackCount() == 1) return movie.getTrackAt(0);
    for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
        if (trackName(movie, i) == name) return movie.getTrackAt(i);
    }
    failure = outOfRange(
        m_path, (name.empty() ? "say which track; it has: " : "no track " + name + "; it has: ") + trackNames(movie));
    return nullptr;
}

std::optional<Part> resolvePart(const RangeOptions& options, unsigned long long total, const char* unit,
                                std::optional<Failure>& failure) {
    const unsigned long long from = options.m_from.value_or(0);
    const std::string has = "the track has " + std::to_string(total) + " " + unit + "s";
    if (from > total || (from == total && total != 0)) {
        failure = outOfRange(options.m_file, std::string("no ") + unit + " " + std::to_string(from) + "; " + has);
        return std::nullopt;
    }
    const unsigned long long count = options.m_count.value_or(total - from);
    if (count > total - from) {
        failure = outOfRange(options.m_file,
                             std::to_string(count) + " " + unit + "s from " + std::to_string(from) + " on; " + has);
        return std::nullopt;
    }
    return Part{from, count};
}
