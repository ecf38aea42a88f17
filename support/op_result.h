#pragma once

#include <atomic>
#include <cstdint>

#include "support/auto_ptr.h"
#include "support/ref_count.h"
#include "support/visibility.h"

// The id of a table of error names; 0 is none.
using OpSubsystem = std::uint32_t;

// The place in the source where a failure is raised. Built on the stack from literals.
struct OpCodeLocation {
    OpCodeLocation(const char* file, const char* function, std::uint32_t line)
        : m_file(file), m_function(function), m_line(line) {}

    const char* m_file;      // source file's label
    const char* m_function;  // unqualified name
    std::uint32_t m_line;
};

// Declares a subsystem: its name and its table of error names.
// **Threads:** any. Safe in static initialisation, and its name outlives it: a late report still finds its words.
class MO_PUBLIC OpSubsystemDecl {
public:
    using GetErrorName = const char* (*)(int code);

    // The name is copied; the function is kept for ever. A code that has no text may be answered with null.
    OpSubsystemDecl(const char* name, GetErrorName errorName);
    // The same for one of several instances of a subsystem: reports say "name/instance".
    OpSubsystemDecl(const char* name, const char* instance, GetErrorName errorName);
    OpSubsystemDecl(const OpSubsystemDecl&) = delete;
    OpSubsystemDecl& operator=(const OpSubsystemDecl&) = delete;

    OpSubsystem getId() const { return m_id; }

    // The text of a code that a table doesn't have.
    static const char* getUnknownErrorName(int code);
    // The name that the id was declared with, or "unknown subsystem".
    static const char* getName(OpSubsystem id);
    // The text of a code in the table of that id.
    static const char* getErrorName(OpSubsystem id, int code);

private:
    const OpSubsystem m_id;  // from 1 on, in the order of declaration; never used again
};

// The outcome of an operation: nothing for success, a shared note for a failure. A warning is a failure too.
// **Threads:** a value belongs to one thread at a time; copies that share a note may be in several.
class [[nodiscard, gnu::visibility("default")]] OpResult {
public:
    // Severity. Below Warning is success.
    enum class Type : std::uint32_t {
        Quiet = 0,  // a failure that was downgraded so as not to be told
        Ok = 2,
        Warning = 3,  // the everyday failure
        Error = 4,    // internal inconsistency, or a failure that must be seen
    };

    // Tags that say at the place of construction what the result is.
    enum class OkType : std::uint32_t { Ok = 2 };
    enum class WarningType : std::uint32_t { Warning = 3 };
    enum class ErrorType : std::uint32_t { Error = 4 };
    static constexpr OkType Ok = OkType::Ok;
    static constexpr WarningType Warning = WarningType::Warning;
    static constexpr ErrorType Error = ErrorType::Error;

    // What there is to say about a failure. It reports itself when its last reference goes, unless it has been
    // delivered, discarded or downgraded to a success before.
    // **Threads:** any.
    class MO_PUBLIC Note : public RefCount {
    public:
        // Copies all the texts. Message may be null.
        Note(Type type, int code, OpSubsystem subsystem, const OpCodeLocation& location, const char* message);

        bool success() const { return getType() < Type::Warning; }
        Type getType() const { return m_type.load(std::memory_order_relaxed); }
        int getCode() const { return m_code; }
        OpSubsystem getSubsystem() const { return m_subsystem; }

        // Gives: borrowed while the note lives; getMessage() is null when the failure was raised without one.
        const char* getMessage() const { return m_message; }
        const char* getFile() const { return m_file; }
        const char* getFunction() const { return m_function; }
        std::uint32_t getLine() const { return m_line; }

        // Reports the note now, with the place of the failure or without it, unless it has been told or dropped
        // already.
        void deliver(bool withPlace);
        // Drops the report: the failure was expected and is dealt with.
        void discard();
        // Lowers the severity; never raises it.
        void downgradeTo(Type type);
        // "name of the code: message", or the name alone. Gives: array text.
        AutoPtr<char> describe() const;
        // Drops a reference, and reports and deletes the note at 0. Answers the new count.
        int release();

    private:
        // Whether this caller is the one that may still report.
        bool claimReport();
        void report(bool withPlace) const;

        std::atomic<Type> m_type;
        const int m_code;
        const OpSubsystem m_subsystem;
        std::atomic<bool> m_settled{false};  // delivered or discarded
        std::uint32_t m_line;
        AutoArrayPtr<char> m_texts;  // the three texts below, one behind the other
        const char* m_file = "";
        const char* m_function = "";
        const char* m_message = nullptr;
    };

    OpResult() = default;
    OpResult(OkType) {}
    // A failure with a code of the subsystem. Message may be null; it is copied.
    OpResult(ErrorType type, int code, OpSubsystem subsystem, const OpCodeLocation& location, const char* message);
    OpResult(WarningType type, int code, OpSubsystem subsystem, const OpCodeLocation& location, const char* message);

    bool success() const { return !m_note || m_note->success(); }
    explicit operator bool() const { return success(); }
    bool operator!() const { return !success(); }

    Type getType() const { return m_note ? m_note->getType() : Type::Ok; }
    OpSubsystem getSubsystem() const { return m_note ? m_note->getSubsystem() : 0; }
    int getCode() const { return m_note ? m_note->getCode() : 0; }

    // The message given at the place of the failure, or null. Gives: borrowed while a result shares the note.
    const char* getMessage() const { return m_note ? m_note->getMessage() : nullptr; }
    // "name of the code: message", or "ok" without a note. Gives: array text.
    AutoPtr<char> describe() const;

    // Reports the failure now, if there is one that hasn't been told, and the copies of this result stay silent.
    void deliverNote(bool withPlace) {
        if (m_note) m_note->deliver(withPlace);
    }
    // The failure was expected: neither this result nor a copy reports it.
    void discard() {
        if (m_note) m_note->discard();
    }
    // Lowers the severity of this result and its copies.
    void downgradeTo(Type type) {
        if (m_note) m_note->downgradeTo(type);
    }

private:
    AutoRefPtr<Note> m_note;
};
