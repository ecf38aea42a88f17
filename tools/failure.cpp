#include "tools/failure.h"

#include <cstring>

#include "shared/include/object/core_subsystem.h"
#include "tools/text_form.h"

namespace {

ExitCode exitOf(int number) {
    switch (number) {
        case MediaCode::FileNotReadable:
        case MediaCode::FileNotWritable:
        case MediaCode::FileNonExistent:
            return ExitCode::NotFound;
        case MediaCode::ReadError:
        case MediaCode::WriteError:
            return ExitCode::IoError;
        case MediaCode::InternalError:
        case MediaCode::UnknownError:
            return ExitCode::SomeFailed;
        case MediaCode::OutOfRange:
            return ExitCode::WrongUsage;
        default:
            return ExitCode::BadFile;
    }
}

}  // namespace

Failure Failure::make(ExitCode exit, int number, const std::string& file, const std::string& message) {
    return Failure{exit, number, MediaCoreOpSubsystem::getErrorName(number), file, message};
}

Failure Failure::system(int number, const std::string& file, int error) {
    return make(exitOf(number), number, file, std::strerror(error));
}

Failure Failure::from(OpResult& result, const std::string& file) {
    const char* message = result.getMessage();
    Failure failure{exitOf(result.getCode()), result.getCode(),
                    OpSubsystemDecl::getErrorName(result.getSubsystem(), result.getCode()), file,
                    message != nullptr ? message : ""};
    result.discard();
    return failure;
}

Failure Failure::usage(const std::string& message) {
    return Failure{ExitCode::WrongUsage, 0, "wrong usage", "", message};
}

std::string Failure::sentence() const {
    std::string text;
    if (!m_file.empty() || m_number != 0) text = (m_file.empty() ? "''" : printable(m_file)) + ": ";
    text += m_code;
    if (!m_message.empty()) text += ": " + printable(m_message);
    return text;
}
