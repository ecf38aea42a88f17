#include "services/system/text.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#include <unwind.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "services/system/format_str.h"

namespace {

constexpr unsigned s_maxFrames = 32;

struct Frames {
    unsigned m_count = 0;
    std::uintptr_t m_address[s_maxFrames];
};

_Unwind_Reason_Code addFrame(_Unwind_Context* context, void* argument) {
    Frames& frames = *static_cast<Frames*>(argument);
    const std::uintptr_t address = _Unwind_GetIP(context);
    if (address == 0 || frames.m_count == s_maxFrames) return _URC_END_OF_STACK;
    frames.m_address[frames.m_count++] = address;
    return _URC_NO_REASON;
}

void addFunction(FormatStr& text, const Dl_info& info, std::uintptr_t address) {
    int status = 0;
    char* const readable = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(info.dli_saddr);
    text.format("%s+0x%llx", readable != nullptr ? readable : info.dli_sname,
                static_cast<unsigned long long>(address - start));
    std::free(readable);
}

void addFrameText(FormatStr& text, std::uintptr_t address) {
    Dl_info info = {};
    // A return address may lie behind the function's last byte; the byte in front of it belongs to the call.
    const bool known = ::dladdr(reinterpret_cast<const void*>(address - 1), &info) != 0;
    if (known && info.dli_sname != nullptr) {
        addFunction(text, info, address);
    } else if (known && info.dli_fname != nullptr) {
        const char* const slash = std::strrchr(info.dli_fname, '/');
        const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
        text.format("%s(+0x%llx)", slash != nullptr ? slash + 1 : info.dli_fname,
                    static_cast<unsigned long long>(address - start));
    } else {
        text.format("0x%llx", static_cast<unsigned long long>(address));
    }
}

bool isTraced() {
    const int file = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    char status[1024];
    const ssize_t size = ::read(file, status, sizeof(status) - 1);
    ::close(file);
    if (size <= 0) return false;
    status[size] = 0;
    const char* const tracer = std::strstr(status, "TracerPid:");
    return tracer != nullptr && std::strtol(tracer + std::strlen("TracerPid:"), nullptr, 10) != 0;
}

}  // namespace

char* strlwr(char* text) {
    for (char* c = text; c != nullptr && *c != 0; ++c) {
        if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
    }
    return text;
}

AutoPtr<char> getStackTrace() {
    Frames frames;
    _Unwind_Backtrace(&addFrame, &frames);
    FormatStr text(1024u);
    // The first frame is this function.
    for (unsigned i = 1; i < frames.m_count; ++i) {
        if (i > 1) text.cat(" < ");
        addFrameText(text, frames.m_address[i]);
    }
    return text;
}

void debugBkpt() {
    if (!isTraced()) return;
    // A tracer that isn't a debugger hands the signal on: it must not end the process then. A handler of the host's own
    // stays.
    struct sigaction held = {};
    ::sigaction(SIGTRAP, nullptr, &held);
    const bool isDefault = (held.sa_flags & SA_SIGINFO) == 0 && held.sa_handler == SIG_DFL;
    if (isDefault) {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGTRAP, &ignore, nullptr);
    }
    ::raise(SIGTRAP);
    if (isDefault) ::sigaction(SIGTRAP, &held, nullptr);
}

namespace System {

char* copy(const char* text) {
    if (text == nullptr) return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    char* const made = new (std::nothrow) char[size];
    if (made != nullptr) std::memcpy(made, text, size);
    return made;
}

}  // namespace System
