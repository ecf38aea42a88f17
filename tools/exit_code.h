#pragma once

#include <array>

// What the tool ends with. Scripts rely on these numbers.
enum class ExitCode : int {
    Done = 0,
    SomeFailed = 1,
    WrongUsage = 2,
    NotFound = 3,
    BadFile = 4,
    IoError = 5,
    Busy = 6,
    Findings = 7,
    Interrupted = 130,
};

struct ExitCodeText {
    ExitCode m_code;
    const char* m_text;
};

// For help and manual.
inline constexpr std::array<ExitCodeText, 9> s_exitCodeTexts = {{
    {ExitCode::Done, "done"},
    {ExitCode::SomeFailed, "at least one file failed"},
    {ExitCode::WrongUsage, "wrong usage, or a track or range that the movie doesn't have"},
    {ExitCode::NotFound, "not found or not permitted"},
    {ExitCode::BadFile, "damaged or unsupported file, or no file at all (a folder, a device)"},
    {ExitCode::IoError, "I/O error or no space"},
    {ExitCode::Busy, "busy or timed out"},
    {ExitCode::Findings, "validation found something"},
    {ExitCode::Interrupted, "interrupted"},
}};
