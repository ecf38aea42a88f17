#include "support/op_result.h"

#include <cstring>
#include <new>

#include "services/system/format_str.h"
#include "services/system/log.h"

namespace {

// What is kept of a declaration. Never freed: reports may come after the declaration's end.
struct DeclaredSubsystem {
    OpSubsystem m_id = 0;
    AutoPtr<char> m_name;
    OpSubsystemDecl::GetErrorName m_getErrorName = nullptr;
    DeclaredSubsystem* m_next = nullptr;
};

// Both are constant-initialised, so that declarations in static initialisers find them ready.
constinit std::atomic<DeclaredSubsystem*> s_declared{nullptr};
constinit std::atomic<OpSubsystem> s_lastId{0};

AutoPtr<char> joinNames(const char* name, const char* instance) {
    FormatStr text("%s", name ? name : "unnamed");
    if (instance) text.format("/%s", instance);
    return text;
}

OpSubsystem declare(const char* name, const char* instance, OpSubsystemDecl::GetErrorName getErrorName) {
    auto* const entry = new DeclaredSubsystem;
    entry->m_id = s_lastId.fetch_add(1, std::memory_order_relaxed) + 1;
    entry->m_name = joinNames(name, instance);
    entry->m_getErrorName = getErrorName;
    entry->m_next = s_declared.load(std::memory_order_relaxed);
    // Release: who finds the entry finds it whole.
    while (
        !s_declared.compare_exchange_weak(entry->m_next, entry, std::memory_order_release, std::memory_order_relaxed)) {
    }
    return entry->m_id;
}

const DeclaredSubsystem* findDeclared(OpSubsystem id) {
    const DeclaredSubsystem* entry = s_declared.load(std::memory_order_acquire);
    while (entry && entry->m_id != id)
        entry = entry->m_next;
    return entry;
}

// Copies a text to the place given and answers the place behind it.
char* copyText(char* place, const char* text, std::size_t length, const char*& copied) {
    std::memcpy(place, text, length);
    place[length] = 0;
    copied = place;
    return place + length + 1;
}

}  // namespace

OpSubsystemDecl::OpSubsystemDecl(const char* name, GetErrorName errorName) : m_id(declare(name, nullptr, errorName)) {}

OpSubsystemDecl::OpSubsystemDecl(const char* name, const char* instance, GetErrorName errorName)
    : m_id(declare(name, instance, errorName)) {}

const char* OpSubsystemDecl::getUnknownErrorName(int) { return "unrecognized error code"; }

const char* OpSubsystemDecl::getName(OpSubsystem id) {
    const DeclaredSubsystem* const entry = findDeclared(id);
    const char* const name = entry ? entry->m_name.get() : nullptr;
    return name ? name : "unknown subsystem";
}

const char* OpSubsystemDecl::getErrorName(OpSubsystem id, int code) {
    const DeclaredSubsystem* const entry = findDeclared(id);
    const char* const name = entry && entry->m_getErrorName ? entry->m_getErrorName(code) : nullptr;
    return name ? name : getUnknownErrorName(code);
}

OpResult::Note::Note(Type type, int code, OpSubsystem subsystem, const OpCodeLocation& location, const char* message)
    // Not deleted by the count itself: the last release reports first.
    : RefCount(false, 1), m_type(type), m_code(code), m_subsystem(subsystem), m_line(location.m_line) {
    const char* const file = location.m_file ? location.m_file : "";
    const char* const function = location.m_function ? location.m_function : "";
    const std::size_t fileLength = std::strlen(file);
    const std::size_t functionLength = std::strlen(function);
    const std::size_t messageLength = message ? std::strlen(message) : 0;

    m_texts = new (std::nothrow) char[fileLength + functionLength + messageLength + 3];
    char* place = m_texts.get();
    // Without memory the note still has its code.
    if (!place) return;
    place = copyText(place, file, fileLength, m_file);
    place = copyText(place, function, functionLength, m_function);
    if (message) copyText(place, message, messageLength, m_message);
}

void OpResult::Note::deliver(bool withPlace) {
    if (claimReport()) report(withPlace);
}

void OpResult::Note::discard() { m_settled.store(true, std::memory_order_relaxed); }

void OpResult::Note::downgradeTo(Type type) {
    Type now = getType();
    while (type < now && !m_type.compare_exchange_weak(now, type, std::memory_order_relaxed)) {
    }
}

AutoPtr<char> OpResult::Note::describe() const {
    FormatStr text("%s", OpSubsystemDecl::getErrorName(m_subsystem, m_code));
    if (m_message) text.format(": %s", m_message);
    return text;
}

int OpResult::Note::release() {
    const int count = RefCount::release();
    if (count == 0) {
        deliver(true);
        delete this;
    }
    return count;
}

bool OpResult::Note::claimReport() { return !m_settled.exchange(true, std::memory_order_relaxed); }

void OpResult::Note::report(bool withPlace) const {
    const Type type = getType();
    if (type < Type::Warning) return;
    const AutoPtr<char> what = describe();
    FormatStr text("%s: %s, code %d", OpSubsystemDecl::getName(m_subsystem), what.get() ? what.get() : "", m_code);
    if (withPlace) text.format(", at %s (%s:%u)", m_function, m_file, m_line);
    if (type == Type::Warning) {
        warningMsg("%s\n", text.get());
    } else {
        errorMsg("%s\n", text.get());
    }
}

OpResult::OpResult(ErrorType, int code, OpSubsystem subsystem, const OpCodeLocation& location, const char* message)
    : m_note(new Note(Type::Error, code, subsystem, location, message), PreReferenced()) {}

OpResult::OpResult(WarningType, int code, OpSubsystem subsystem, const OpCodeLocation& location, const char* message)
    : m_note(new Note(Type::Warning, code, subsystem, location, message), PreReferenced()) {}

AutoPtr<char> OpResult::describe() const {
    if (m_note) return m_note->describe();
    return FormatStr("%s", "ok");
}
