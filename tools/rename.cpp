#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "shared/include/naming/media_rename_preview.h"
#include "shared/include/object/core_subsystem.h"
#include "tools/commands.h"
#include "tools/movie.h"
#include "tools/text_form.h"

namespace fs = std::filesystem;

namespace {

// The path with its folder as the system knows it: a rename reckons by text, which "..", links and the current folder
// would lead astray. What isn't there yet is freed of ".." by text.
std::string resolved(const std::string& path) {
    std::error_code failed;
    const fs::path given = fs::absolute(path, failed);
    const fs::path folder = fs::weakly_canonical(given.parent_path(), failed);
    return failed ? path : (folder / given.filename()).string();
}

// A folder takes the movie under the name that it has.
std::string targetOf(const RenameOptions& options) {
    std::error_code ignored;
    const bool isFolder = options.m_target.ends_with('/') || fs::is_directory(options.m_target, ignored);
    const fs::path target(options.m_target);
    return resolved(isFolder ? (target / fs::path(options.m_file).filename()).string() : options.m_target);
}

// The nearest folder above that is there.
std::string folderAbove(const std::string& path) {
    std::error_code ignored;
    fs::path folder = fs::path(path).parent_path();
    while (folder.has_relative_path() && !fs::exists(folder, ignored))
        folder = folder.parent_path();
    return folder.string();
}

// What the system says of a file that could not be moved, if it says anything.
std::optional<Failure> refusal(const MediaRenameStep& step) {
    for (const std::string& folder : {folderAbove(step.m_from), folderAbove(step.m_to)}) {
        std::error_code ignored;
        if (!fs::is_directory(folder, ignored)) return Failure::system(MediaCode::FileNotWritable, folder, ENOTDIR);
        if (::access(folder.c_str(), W_OK | X_OK) != 0)
            return Failure::system(MediaCode::FileNotWritable, folder, errno);
    }
    struct stat from {
    }, to{};
    const bool known = ::lstat(step.m_from.c_str(), &from) == 0 && ::stat(folderAbove(step.m_to).c_str(), &to) == 0;
    if (!known || from.st_dev == to.st_dev) return std::nullopt;
    return Failure::make(ExitCode::BadFile, MediaCode::OperationUnsupported, step.m_from,
                         folderAbove(step.m_to) + " is on another file system");
}

// The name that a movie has while its media files move.
std::string asideOf(const std::string& path) {
    const fs::path target(path);
    return (target.parent_path() / ("." + target.filename().string() + ".rename")).string();
}

bool isTaken(const std::string& path) {
    std::error_code ignored;
    return fs::symlink_status(path, ignored).type() != fs::file_type::not_found;
}

Failure occupied(const std::string& path, const std::string& why) {
    return Failure::make(ExitCode::BadFile, MediaCode::FileExists, path, why);
}

// One rename, from the names that it was given to what it says about them.
class Renaming {
public:
    explicit Renaming(const RenameOptions& options)
        : m_options(options), m_old(resolved(options.m_file)), m_new(targetOf(options)) {}
    Renaming(const Renaming&) = delete;
    Renaming& operator=(const Renaming&) = delete;

    // Works out what is to move. Nothing is touched.
    std::optional<Failure> plan();
    // Moves it, and says where it is.
    std::optional<Failure> move();
    ExitCode tell(Output& output) const;

private:
    std::optional<Failure> checkSteps() const;
    std::optional<Failure> rename(MediaObj& movie);
    Failure explain(OpResult& result, const MediaObj& movie) const;

    const RenameOptions& m_options;
    const std::string m_old;
    const std::string m_new;
    std::vector<MediaRenameStep> m_steps;
};

std::optional<Failure> Renaming::plan() {
    if (m_options.m_target.empty()) return Failure::usage("the new name is empty");
    if (m_options.m_target == "-") return Failure::usage("a file of the name - is ./-");
    Movie movie(m_options.m_file == "-" ? m_options.m_file : m_old);
    if (movie.failure()) return movie.failure();
    OpResult result = previewMediaRename(*movie.get(), m_new.c_str(), m_options.m_media, nullptr, m_steps);
    if (!result) return Failure::from(result, m_old);
    return checkSteps();
}

// What would else come out when files are under way.
std::optional<Failure> Renaming::checkSteps() const {
    if (isTaken(m_new)) return occupied(m_new, "it is there already and is not overwritten");
    for (auto step = m_steps.begin(); step != m_steps.end(); ++step) {
        if (!isTaken(step->m_from))
            return Failure::make(ExitCode::NotFound, MediaCode::FileNonExistent, step->m_from,
                                 "the movie refers to it, and it can't go along");
        for (auto other = m_steps.begin(); other != step; ++other) {
            if (other->m_to == step->m_to)
                return occupied(step->m_to, other->m_from + " and " + step->m_from + " would both get this name");
        }
    }
    return std::nullopt;
}

// A movie whose media move is rewritten, and so opened for writing; one file alone is only moved.
std::optional<Failure> Renaming::move() {
    if (m_steps.size() == 1) {
        Movie movie(m_old);
        return movie.failure() ? movie.failure() : rename(*movie.get());
    }
    OpResult result;
    MediaObj* const movie = MediaObj::openReader(m_old.c_str(), MediaObj::ReadMode::ReadWrite, result);
    if (movie == nullptr) return Failure::from(result, m_old);
    result.discard();
    std::optional<Failure> failure = rename(*movie);
    movie->release(MediaAgent(nullptr), true);
    return failure;
}

std::optional<Failure> Renaming::rename(MediaObj& movie) {
    OpResult result = movie.rename(m_new.c_str(), m_options.m_media, nullptr);
    if (!result) return explain(result, movie);
    // A name with a random tag is another one than was planned.
    for (MediaRenameStep& step : m_steps)
        step.m_to = fs::path(movie.getPath(step.m_id)).lexically_normal().string();
    return std::nullopt;
}

// A move can't tell why it was refused, so the system is asked; and the movie, where it is.
Failure Renaming::explain(OpResult& result, const MediaObj& movie) const {
    const bool byTheSystem = result.getCode() == MediaCode::UnknownError && result.getMessage() == nullptr;
    Failure failure = Failure::from(result, m_old);
    for (const MediaRenameStep& step : m_steps) {
        const std::optional<Failure> reason = byTheSystem ? refusal(step) : std::nullopt;
        if (!reason) continue;
        failure = *reason;
        break;
    }
    const std::string now = movie.getPath(movie.getMediaId(0)), aside = asideOf(m_new);
    if (byTheSystem && now == m_old && m_steps.size() > 1 && isTaken(aside)) {
        failure = occupied(aside, "the movie can't go aside to this name");
    }
    if (now != m_old && !now.empty()) {
        failure.m_message += std::string(failure.m_message.empty() ? "" : "; ") + "the movie is now " + now;
    }
    return failure;
}

ExitCode Renaming::tell(Output& output) const {
    if (output.options().wantsDocument()) {
        Json files = Json::array();
        for (const MediaRenameStep& step : m_steps)
            files.push_back(Json{{"from", step.m_from}, {"to", step.m_to}});
        const Json told{{"path", m_new},
                        {"dryRun", m_options.m_dryRun},
                        {"renameMedia", m_options.m_media},
                        {"files", std::move(files)}};
        return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"rename", told}});
    }
    std::string text;
    for (const MediaRenameStep& step : m_steps)
        text += printable(step.m_from) + " -> " + printable(step.m_to) + "\n";
    return output.print(text) ? ExitCode::Done : ExitCode::IoError;
}

}  // namespace

ExitCode runRename(const RenameOptions& options, Output& output) {
    Renaming renaming(options);
    std::optional<Failure> failure = renaming.plan();
    if (!failure && !options.m_dryRun) failure = renaming.move();
    return failure ? output.fail(*failure) : renaming.tell(output);
}
