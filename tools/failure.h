#pragma once

#include <string>

#include "support/op_result.h"
#include "tools/exit_code.h"

// Why something didn't work: what standard error, the error document and the exit code say about it.
struct Failure {
    // A failure of the tool's own, by a code of the media core's table.
    static Failure make(ExitCode exit, int number, const std::string& file, const std::string& message);
    // A system call's, by its errno value.
    static Failure system(int number, const std::string& file, int error);
    // The library's; what the result had to report counts as told.
    static Failure from(OpResult& result, const std::string& file);
    // The command line's.
    static Failure usage(const std::string& message);

    // "FILE: what: why", with whatever isn't printable replaced.
    std::string sentence() const;

    ExitCode m_exit = ExitCode::Done;
    int m_number = 0;       // 0 is none
    std::string m_code;     // the number's text
    std::string m_file;     // bytes of the file's name as they were given
    std::string m_message;  // may be empty
};
