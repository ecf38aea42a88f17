#include <memory>

#include "services/metadata/xml_buffer.h"
#include "shared/include/object/core_subsystem.h"
#include "tools/commands.h"
#include "tools/info_document.h"
#include "tools/info_text.h"
#include "tools/info_xml.h"
#include "tools/interrupt.h"
#include "tools/movie.h"

namespace {

// One file has its own exit code; of several it is enough to know that one failed.
ExitCode exitOf(const Failure& failure, const InfoOptions& options) {
    return options.m_files.size() == 1 ? failure.m_exit : ExitCode::SomeFailed;
}

// Tells of each movie in its turn and gathers what a document needs.
class Info {
public:
    Info(const InfoOptions& options, Output& output) : m_options(options), m_output(output) {}

    ExitCode run() {
        for (const std::string& path : m_options.m_files) {
            if (Interrupt::isPending()) return ExitCode::Interrupted;
            if (!tell(path)) return ExitCode::IoError;
        }
        const ExitCode ended = end();
        return m_exit != ExitCode::Done && ended == ExitCode::Done ? m_exit : ended;
    }

private:
    bool wantsDocument() const { return m_options.m_xml || m_output.options().wantsDocument(); }
    bool wantsFile() const { return !m_options.m_target.empty() && m_options.m_target != "-"; }

    // Fails: false when standard output takes no more.
    bool tell(const std::string& path) {
        auto movie = std::make_unique<Movie>(path);
        if (movie->failure()) {
            m_exit = exitOf(*movie->failure(), m_options);
            Output::tell(*movie->failure());
            m_movies.push_back(Json{{"path", path}, {"error", Output::errorOf(*movie->failure())}});
            return true;
        }
        Json described = describeMovie(path, **movie);
        if (!wantsDocument()) return m_output.print(movieText(described));
        m_movies.push_back(std::move(described));
        if (wantsFile() && m_writer == nullptr) m_writer = std::move(movie);
        return true;
    }

    ExitCode end() {
        if (!wantsDocument()) return ExitCode::Done;
        const Json document{{"schemaVersion", s_schemaVersion}, {"movies", std::move(m_movies)}};
        if (!m_options.m_xml) return m_output.printDocument(document, "movies");
        const std::string text = xmlOf(document);
        if (wantsFile()) return writeFile(text);
        return m_output.print(text) ? ExitCode::Done : ExitCode::IoError;
    }

    // By the first movie; without one there is nothing to write.
    ExitCode writeFile(const std::string& text) {
        if (m_writer == nullptr) return ExitCode::Done;
        XmlBuffer buffer{text.data(), static_cast<std::int32_t>(text.size())};
        OpResult result = m_writer->get()->writeXmlToFile(buffer, m_options.m_target.c_str());
        if (result) return ExitCode::Done;
        const bool isOpened = result.getCode() != MediaCode::UnknownError;
        Failure failure = Failure::from(result, m_options.m_target);
        if (!isOpened) failure.m_exit = ExitCode::NotFound;
        Output::tell(failure);
        return failure.m_exit;
    }

    const InfoOptions& m_options;
    Output& m_output;
    Json m_movies = Json::array();
    std::unique_ptr<Movie> m_writer;
    ExitCode m_exit = ExitCode::Done;
};

}  // namespace

ExitCode runInfo(const InfoOptions& options, Output& output) { return Info(options, output).run(); }
