#include "services/file/fs_file_io.h"
#include "support/clock.h"
#include "tools/commands.h"
#include "tools/events.h"
#include "tools/held_movie.h"
#include "tools/interrupt.h"

namespace {

constexpr unsigned s_tick = 20;  // ms between two looks

// What is told of a movie.
struct State {
    unsigned long long m_length = 0;  // frames
    unsigned long long m_safe = 0;    // frames
    unsigned long long m_version = 0;
};

class Watch {
public:
    Watch(const WatchOptions& options, const HeldMovie& movie, Output& output)
        : m_options(options), m_movie(movie), m_events(output) {}

    // Goes on until it is interrupted or has told as much as it was asked for.
    ExitCode run();
    const Json& events() const { return m_events.list(); }

private:
    bool look();
    bool tell(const char* event);
    bool isDone() const { return m_options.m_count && m_told >= *m_options.m_count; }
    State stateNow() const;

    const WatchOptions& m_options;
    const HeldMovie& m_movie;
    Events m_events;
    State m_state;
    unsigned m_replacements = 0;    // that have been told
    unsigned long long m_told = 0;  // changes
    bool m_gone = false;
};

State Watch::stateNow() const {
    const AutoReleasePtr<MediaObj> object(m_movie.look());
    return State{object->getFrameLength(), object->getReadSafeFrameLength(), object->getVersion()};
}

bool Watch::tell(const char* event) {
    const std::string length = std::to_string(m_state.m_length), safe = std::to_string(m_state.m_safe);
    const std::string version = std::to_string(m_state.m_version);
    return m_events.add(Json{{"event", event},
                             {"path", m_options.m_file},
                             {"length", m_state.m_length},
                             {"safe", m_state.m_safe},
                             {"version", m_state.m_version}},
                        std::string(event) + ": length " + length + ", safe " + safe + ", version " + version);
}

// Tells what has changed since the last look. Fails: false when nobody takes it.
bool Watch::look() {
    const bool isGone = !FsFileIO::exists(m_options.m_file.c_str());
    // Before the state, so that what comes in between is told at the next look.
    const unsigned replacements = m_movie.replacements();
    const State before = m_state;
    m_state = stateNow();
    const char* event = nullptr;
    if (replacements != m_replacements)
        event = "replaced";
    else if (m_state.m_safe > before.m_safe || m_state.m_length > before.m_length)
        event = "grown";
    m_replacements = replacements;
    if (isGone != m_gone) {
        m_gone = isGone;
        ++m_told;
        if (!tell(isGone ? "gone" : "returned") || isDone()) return false;
    }
    if (event == nullptr) return true;
    ++m_told;
    return tell(event) && !isDone();
}

ExitCode Watch::run() {
    m_state = stateNow();
    bool goesOn = tell("opened") && !isDone();
    while (goesOn && !Interrupt::isPending()) {
        waitMsec(s_tick);
        goesOn = look();
    }
    return ExitCode::Done;
}

}  // namespace

ExitCode runWatch(const WatchOptions& options, Output& output) {
    const HeldMovie movie(options.m_file);
    if (movie.failure()) return output.fail(*movie.failure());
    Watch watch(options, movie, output);
    const ExitCode exit = watch.run();
    if (!output.options().wantsDocument()) return output.endWith(exit);
    const Json watched{{"path", options.m_file}, {"events", watch.events()}};
    return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"watch", watched}});
}
