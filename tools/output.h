#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/failure.h"
#include "tools/options.h"

using Json = nlohmann::ordered_json;

// The version of every document's schema (docs/schema).
inline constexpr int s_schemaVersion = 1;

// The two streams of a command: the answer on standard output, everything else on standard error.
// **Threads:** one at a time. Texts in documents are bytes as they came; they become UTF-8 when they are printed.
class Output {
public:
    explicit Output(const OutputOptions& options) : m_options(options) {}

    const OutputOptions& options() const { return m_options; }

    // Prints to standard output. Fails: false, and it is told; what follows isn't printed then.
    bool print(std::string_view text);
    // Prints the document, or the field of it that was asked for. A field that isn't there is looked for in each
    // element of the document's `list`, and then printed a line an element. Answers how the command ends, Done if all
    // is well.
    ExitCode printDocument(const Json& document, const char* list = nullptr);
    // Tells a failure: the sentence on standard error and, with --json, the document. Answers how the command ends.
    ExitCode fail(const Failure& failure);
    // Only the sentence.
    static void tell(const Failure& failure);
    // A failure as a member of a document.
    static Json errorOf(const Failure& failure);
    // The command's own end, unless the answer couldn't be printed.
    ExitCode endWith(ExitCode code) const { return m_broken ? ExitCode::IoError : code; }

private:
    ExitCode printField(const Json& document, const char* list);

    const OutputOptions m_options;
    bool m_broken = false;  // standard output takes no more
};

// A document's text, one line; bytes that aren't UTF-8 become U+FFFD.
std::string textOf(const Json& document);
// Writes it all. Answers 0 or an errno value; EINTR once the program is to end.
int writeAll(int fd, const char* bytes, std::size_t size);
