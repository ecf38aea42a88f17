#pragma once

#include "support/op_result.h"
#include "support/visibility.h"

// The error table of the media core. There is one instance, made in static initialisation.
class MO_PUBLIC MediaCoreOpSubsystem : public OpSubsystemDecl {
public:
    MediaCoreOpSubsystem() : OpSubsystemDecl("MediaCore", &MediaCoreOpSubsystem::getErrorName) {}
    explicit MediaCoreOpSubsystem(const char* name)
        : OpSubsystemDecl("MediaCore", name, &MediaCoreOpSubsystem::getErrorName) {}

    // Text of a code, for ever; a code without a text gets the unknown one. **Threads:** any.
    static const char* getErrorName(int code);
};

MO_PUBLIC extern MediaCoreOpSubsystem mediaCoreOpSubsystem;

// The codes of the table.
namespace MediaCode {
inline constexpr int InternalError = 1;
inline constexpr int UnknownError = 2;
inline constexpr int NotImplemented = 3;
inline constexpr int FileNotReadable = 4;
inline constexpr int FileNotWritable = 5;
inline constexpr int FileNonExistent = 6;
inline constexpr int FileExists = 7;
inline constexpr int UnsupportedMediaType = 8;
inline constexpr int InvalidStyle = 9;
inline constexpr int OutOfRange = 11;
inline constexpr int WriteError = 12;
inline constexpr int ReadError = 13;
inline constexpr int ClipNotSupported = 14;  // without a text of its own: the message says why
inline constexpr int ParserError = 15;
inline constexpr int NoFileHandle = 16;  // without a text of its own
inline constexpr int OperationUnsupported = 17;
}  // namespace MediaCode

// Raise a failure at this place: severity, code, and an optional message that the note copies.
#define MO_RAISE(tag, label, code, message)                                                                        \
    OpResult(tag, static_cast<int>(code), mediaCoreOpSubsystem.getId(), OpCodeLocation(label, __func__, __LINE__), \
             message)
#define MO_WARNING(code, message) MO_RAISE(OpResult::Warning, "mediautil", code, message)
#define MO_ERROR(code, message) MO_RAISE(OpResult::Error, "mediautil", code, message)
#define MO_INTERFACE_WARNING(code, message) MO_RAISE(OpResult::Warning, "../../shared/include/mediaobj", code, message)
#define MO_INTERFACE_ERROR(code, message) MO_RAISE(OpResult::Error, "../../shared/include/mediaobj", code, message)
