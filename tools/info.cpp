#include "tools/commands.h"
#include "tools/info_document.h"
#include "tools/info_text.h"
#include "tools/interrupt.h"
#include "tools/movie.h"

namespace {

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
        Json described = describeMovie(path, *movie);
        if (!output.options().wantsDocument() && !output.print(movieText(described))) return ExitCode::IoError;
        if (output.options().wantsDocument()) movies.push_back(std::move(described));
    }
    if (!output.options().wantsDocument()) return exit;
    const ExitCode printed =
        output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"movies", std::move(movies)}}, "movies");
    return exit != ExitCode::Done && printed == ExitCode::Done ? exit : printed;
}
