#include "services/file/fs_file_io.h"
#include "services/metadata/xml_buffer.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

OpResult MediaObj::writeXmlToFile(XmlBuffer& buffer, const char* filename) {
    if (filename == nullptr) return MO_ERROR(MediaCode::InternalError, "missing output filename");
    if (buffer.m_data == nullptr || buffer.m_size <= 0) return MO_ERROR(MediaCode::InternalError, nullptr);
    const AutoRefPtr<FsFileIO> file(new FsFileIO("MediaXML", filename, BasicIOTypes::Mode::Update));
    if (file.get() == nullptr) return MO_ERROR(MediaCode::InternalError, nullptr);
    file->setMode(BasicIOTypes::Mode::Create);
    static_cast<BasicFileIO&>(*file).advise(BasicIOTypes::SizeAdvice::None);
    if (FsFileIO::exists(filename)) {
        const FormatStr text("%s: output file %s exists", getPath(nullptr), filename);
        return MO_ERROR(MediaCode::FileExists, text.get());
    }
    if (!file->open()) {
        const FormatStr text("%s: failed to open %s", getPath(nullptr), filename);
        return MO_ERROR(MediaCode::UnknownError, text.get());
    }
    const int written = file->write(buffer.m_data, static_cast<unsigned>(buffer.m_size));
    const bool closed = file->close();
    if (written != buffer.m_size || !closed) {
        const FormatStr text("%s XML write error: tried to write %ub, actually wrote %ub", getPath(nullptr),
                             static_cast<unsigned>(buffer.m_size), static_cast<unsigned>(written));
        return MO_ERROR(MediaCode::WriteError, text.get());
    }
    return OpResult(OpResult::Ok);
}
