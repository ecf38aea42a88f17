#include <fcntl.h>
#include <unistd.h>

#include <map>
#include <mutex>

#include "services/file/fs_file_io.h"
#include "shared/include/object/core_subsystem.h"
#include "support/clock.h"
#include "tests/kit/scripted_movie.h"

// The kit's readers and writers, and the table of what they make of each path.

namespace kit {

namespace {

struct PathRecord {
    std::vector<MediaFileType> m_openedAs;
    int m_parsing = 0;
    unsigned m_creates = 0;
    Scripts::Creation m_creation;
};

struct Table {
    std::mutex m_mutex;
    std::map<std::string, std::shared_ptr<const MovieScript>> m_scripts;
    std::map<std::string, PathRecord> m_records;
    MovieScript m_unbound;
    bool m_refuseObject = false;  // the writer answers an object together with the failure, or null
};

// Never destroyed: the cache may let go of movies at the very end.
Table& table() {
    static Table* const instance = new Table;
    return *instance;
}

std::shared_ptr<const MovieScript> scriptOf(const std::string& path) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    const auto found = table().m_scripts.find(path);
    return found != table().m_scripts.end() ? found->second : nullptr;
}

// Counts a reader's work on a path.
class Parsing {
public:
    Parsing(const std::string& path, MediaFileType type) : m_path(path) {
        const std::lock_guard<std::mutex> lock(table().m_mutex);
        PathRecord& record = table().m_records[m_path];
        record.m_openedAs.push_back(type);
        ++record.m_parsing;
    }
    Parsing(const Parsing&) = delete;
    Parsing& operator=(const Parsing&) = delete;
    ~Parsing() {
        const std::lock_guard<std::mutex> lock(table().m_mutex);
        --table().m_records[m_path].m_parsing;
    }

private:
    const std::string m_path;
};

OpResult failureOf(const MovieScript& script) {
    const OpSubsystem subsystem =
        script.m_failureSubsystem != 0 ? script.m_failureSubsystem : mediaCoreOpSubsystem.getId();
    const char* text = script.m_failureText.empty() ? nullptr : script.m_failureText.c_str();
    const OpCodeLocation place("kit", __func__, __LINE__);
    if (script.m_failure == OpResult::Type::Error)
        return OpResult(OpResult::Error, script.m_failureCode, subsystem, place, text);
    return OpResult(OpResult::Warning, script.m_failureCode, subsystem, place, text);
}

bool refuses(const MovieScript& script) { return script.m_failure >= OpResult::Type::Warning; }

template <MediaFileType type>
MediaObj* openScripted(AutoRefPtr<BasicFileIO> file, OpResult& result) {
    const std::string path = file->getPath();
    const std::shared_ptr<const MovieScript> script = scriptOf(path);
    if (!script) {
        result = MO_WARNING(MediaCode::FileNotReadable, "no script for this path");
        return nullptr;
    }
    const Parsing parsing(path, type);
    if (script->m_parseGate) script->m_parseGate->pass();
    if (script->m_parseMsec != 0) waitMsec(script->m_parseMsec);
    if (refuses(*script)) {
        result = failureOf(*script);
        return nullptr;
    }
    result = OpResult(OpResult::Ok);
    return new ScriptedMovie(*script, file, type);
}

void noteCreation(const std::string& path, const Scripts::Creation& creation) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    PathRecord& record = table().m_records[path];
    ++record.m_creates;
    record.m_creation = creation;
}

// Makes the file first, as a format does that then fails over its header.
MediaObj* createScripted(const char* path, OpResult& result, MediaContainment containment, MediaFileType type,
                         bool morph, BasicIOTypes::SizeAdvice advice, const char* style) {
    noteCreation(path, {containment, type, morph, advice, style != nullptr ? style : "", FsFileIO::exists(path)});
    const std::shared_ptr<const MovieScript> script = scriptOf(path);
    AutoRefPtr<BasicFileIO> file(new FsFileIO("kit", path, BasicIOTypes::Mode::Create));
    if (!script || !file->open()) {
        result = MO_WARNING(MediaCode::FileNotWritable, "no script for this path");
        return nullptr;
    }
    if (script->m_parseGate) script->m_parseGate->pass();
    if (refuses(*script)) {
        result = failureOf(*script);
        return nullptr;
    }
    result = OpResult(OpResult::Ok);
    return new ScriptedMovie(*script, file, type);
}

MediaObj* openUnbound(MediaFileType, OpResult& result) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    result = refuses(table().m_unbound) ? failureOf(table().m_unbound) : OpResult(OpResult::Ok);
    if (table().m_refuseObject) return nullptr;
    return new ScriptedMovie(table().m_unbound);
}

constexpr const char* s_styles[] = {nullptr, "kit style"};

MediaWriterDesc writerOf(MediaFileType type) {
    MediaWriterDesc writer;
    writer.m_fileType = type;
    writer.m_create = createScripted;
    writer.m_open = openUnbound;
    return writer;
}

bool registerAll() {
    MediaObj::registerOpener(MediaReaderDesc(s_scripted, openScripted<s_scripted>), s_priority);
    MediaObj::registerOpener(MediaReaderDesc(s_scriptedToo, openScripted<s_scriptedToo>), s_priority + 1);
    MediaObj::registerOpener(MediaReaderDesc(s_readOnlyType, openScripted<s_readOnlyType>), s_priority - 1);
    MediaObj::registerCreator(writerOf(s_scripted), s_priority);
    MediaObj::registerCreator(writerOf(s_scriptedToo), s_priority + 1);
    MediaWriterDesc styled = writerOf(s_writeOnlyType);
    styled.m_styles = s_styles;
    styled.m_numStyles = 2;
    MediaObj::registerCreator(styled, s_priority + 2);
    return true;
}

const bool s_registered = registerAll();

}  // namespace

void Scripts::set(const std::string& path, const MovieScript& script) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    table().m_scripts[path] = std::make_shared<const MovieScript>(script);
}

void Scripts::setUnbound(const MovieScript& script, bool refuseObject) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    table().m_unbound = script;
    table().m_refuseObject = refuseObject;
}

void Scripts::clear() {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    table().m_scripts.clear();
    table().m_records.clear();
    table().m_unbound = MovieScript();
    table().m_refuseObject = false;
}

unsigned Scripts::opens(const std::string& path) { return static_cast<unsigned>(openedAs(path).size()); }

std::vector<MediaFileType> Scripts::openedAs(const std::string& path) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    return table().m_records[path].m_openedAs;
}

int Scripts::parsing(const std::string& path) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    return table().m_records[path].m_parsing;
}

unsigned Scripts::creates(const std::string& path) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    return table().m_records[path].m_creates;
}

Scripts::Creation Scripts::creation(const std::string& path) {
    const std::lock_guard<std::mutex> lock(table().m_mutex);
    return table().m_records[path].m_creation;
}

}  // namespace kit
