#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>

#include "services/system/log.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_format.h"
#include "shared/include/object/media_obj.h"
#include "tools/commands.h"
#include "tools/interrupt.h"

namespace {

// A file that took the number of a stream that was closed would get the answers of this program written into it. What
// stands in for standard output takes no byte, so that its absence shows.
void keepStandardStreams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) != -1) continue;
        const int taken = ::open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY);
        if (taken != fd && taken >= 0) ::close(taken);
    }
}

// A failure is told by this program's own sentence, so the log is silent unless it is asked for.
void applyVerbosity(const Options& options) {
    if (options.m_quiet || (options.m_verbosity == 0 && std::getenv("MEDIACORE_LOG") == nullptr)) {
        setLogDestination(LogDestination::None);
    } else if (options.m_verbosity > 0) {
        setLogLevel(options.m_verbosity > 1 ? LogLevel::Debug : LogLevel::Info);
    }
}

ExitCode runCommand(const Options& options, Output& output) {
    switch (options.m_command) {
        case Command::Info:
            return runInfo(options.m_info, output);
        case Command::Read:
            return runRead(options.m_read, options.m_quiet, output);
        case Command::Frames:
            return runFrames(options.m_frames, output);
        case Command::Formats:
            return runFormats(output);
        case Command::Watch:
            return runWatch(options.m_watch, output);
        case Command::Play:
            return runPlay(options.m_play, options.m_quiet, output);
        case Command::Record:
            return runRecord(options.m_record, options.m_quiet, output);
        case Command::Rename:
            return runRename(options.m_rename, output);
        case Command::Validate:
            return runValidate(options.m_validate, options.m_quiet, output);
        case Command::Status:
            return runStatus(options.m_status, output);
        case Command::Switch:
            return runSwitch(options.m_switch, output);
        case Command::Generate:
            return runGenerate(options.m_generate, output);
        case Command::None:
            break;
    }
    return ExitCode::WrongUsage;
}

// The library's life lies inside the command's; what it says in going down is for its log.
ExitCode runWithLibrary(const Options& options, Output& output) {
    MediaObj::init();
    const ExitCode exit = runCommand(options, output);
    MediaObj::shutdown();
    return Interrupt::isPending() && exit != ExitCode::Done ? ExitCode::Interrupted : output.endWith(exit);
}

ExitCode run(int argc, char** argv) {
    const ParsedOptions parsed = parseOptions(argc, argv);
    Output output(parsed.m_options.output());
    if (parsed.m_failure) {
        const ExitCode exit = output.fail(*parsed.m_failure);
        static constexpr char hint[] = "try 'mediacore --help' or 'mediacore COMMAND --help'\n";
        static_cast<void>(writeAll(STDERR_FILENO, hint, sizeof hint - 1));
        return exit;
    }
    if (!parsed.m_text.empty()) return output.print(parsed.m_text) ? ExitCode::Done : ExitCode::IoError;
    applyVerbosity(parsed.m_options);
    return runWithLibrary(parsed.m_options, output);
}

}  // namespace

int main(int argc, char** argv) {
    forceMediaUtilLink();
    keepStandardStreams();
    Interrupt::install();
    try {
        return static_cast<int>(run(argc, argv));
    } catch (const std::exception& problem) {
        // Memory that didn't come, from the libraries for options and documents.
        Output::tell(Failure{ExitCode::SomeFailed, 0, "internal error", "", problem.what()});
        return static_cast<int>(ExitCode::SomeFailed);
    }
}
