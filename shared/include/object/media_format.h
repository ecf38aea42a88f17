#pragma once

#include <cstdint>
#include <vector>

#include "services/file/basic_file_io.h"
#include "shared/include/description/media_enums.h"
#include "support/auto_ptr.h"
#include "support/op_result.h"
#include "support/visibility.h"

class MediaClipParam;
class MediaObj;

// What a format back-end registers to open existing files of its type.
struct MediaReaderDesc {
    // Parses the handle. Gives: a new object with one reference, or null with the reason in the result.
    using OpenFn = MediaObj* (*)(AutoRefPtr<BasicFileIO> file, OpResult& result);

    MediaReaderDesc() = default;
    MediaReaderDesc(MediaFileType type, OpenFn open) : m_fileType(type), m_open(open) {}

    MediaFileType m_fileType{};
    OpenFn m_open = nullptr;
};

// What a format back-end registers to create files of its type.
struct MediaWriterDesc {
    // Gives: a new movie for writing with one reference, or null with the reason in the result.
    using CreateFn = MediaObj* (*)(const char* path, OpResult& result, MediaContainment containment, MediaFileType type,
                                   bool morph, BasicIOTypes::SizeAdvice advice, const char* style);
    // Gives: an object of the format that is bound to no file, with one reference, or null.
    using OpenFn = MediaObj* (*)(MediaFileType type, OpResult& result);
    using InitVideoFn = bool (*)(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate);
    using InitAudioFn = bool (*)(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate, unsigned first,
                                 unsigned second, unsigned third);

    MediaFileType m_fileType{};
    CreateFn m_create = nullptr;
    OpenFn m_open = nullptr;
    InitVideoFn m_initVideo = nullptr;
    InitAudioFn m_initAudio = nullptr;
    const char* const* m_styles = nullptr;  // names of the format's styles, for ever; entries may be null
    int m_numStyles = 0;
};

// A registered reader or writer, as a plain value.
struct MediaFormatEntry {
    enum class Role : std::uint32_t { Reader = 0, Writer = 1 };

    Role m_role = Role::Reader;
    MediaFileType m_fileType{};
    int m_priority = 0;  // the least one is tried first
};

// All readers and then all writers, each kind in the order in which the core asks them.
// Thread: any, once the program has started; no lock is taken.
MO_PUBLIC std::vector<MediaFormatEntry> listMediaFormats();

// Ties the built-in format back-ends, and with them their registrations, into a statically linked program.
MO_PUBLIC void forceMediaUtilLink();
