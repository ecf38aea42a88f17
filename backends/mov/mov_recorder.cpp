#include <utility>

#include "backends/mov/mov_recording.h"
#include "services/buffer/obuf.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/io/media_io_buf.h"

MovRecorder::~MovRecorder() {
    for (std::uint64_t i = 0; i < m_files.size(); ++i)
        delete m_files.get(i);
}

MovMediaFile* MovRecorder::find(MediaIdRec* id) const {
    for (std::uint64_t i = 0; i < m_files.size(); ++i) {
        MovMediaFile* const file = m_files.get(i)->get();
        if (file->m_id == id) return file;
    }
    return nullptr;
}

std::shared_ptr<MovMediaFile> MovRecorder::getOwn(MediaIdRec* id, OpResult& result) {
    result = OpResult(OpResult::Ok);
    for (std::uint64_t i = 0; i < m_files.size(); ++i) {
        if (m_files.get(i)->get()->isOwn()) return *m_files.get(i);
    }
    auto file = std::make_shared<MovMediaFile>();
    file->m_id = id;
    file->m_keeper = &m_keeper;
    file->m_essence = m_keeper.start(result);
    if (file->m_essence == nullptr) return nullptr;
    file->m_number = m_keeper.addMedia({std::string(), true, file->m_essence});
    m_files.push(new std::shared_ptr<MovMediaFile>(file));
    return file;
}

std::shared_ptr<MovMediaFile> MovRecorder::addFile(MediaIdRec* id, const std::string& path,
                                                   AutoRefPtr<BasicFileIO> handle, OpResult& result) {
    if (m_keeper.start(result) == nullptr) return nullptr;
    auto file = std::make_shared<MovMediaFile>();
    file->m_id = id;
    file->m_recorder = std::make_unique<Recorder>("mov", handle);
    file->m_essence = file->m_recorder->begin(0, 0, result);
    if (file->m_essence == nullptr) return nullptr;
    file->m_number = m_keeper.addMedia({path, false, file->m_essence});
    m_files.push(new std::shared_ptr<MovMediaFile>(file));
    return file;
}

template <class Buffer>
OpResult MovRecorder::writeTo(MediaObj& movie, const MediaSampleInMovie& sample, Buffer buffer) {
    MovMediaFile* const file = find(sample.m_mediaId);
    if (file == nullptr || file->isOwn()) {
        OpResult opened = m_keeper.reopen();
        opened.discard();  // what the file doesn't take is told by the write itself
        return m_keeper.write(movie, sample, std::forward<Buffer>(buffer));
    }
    OpResult result = file->m_recorder->write(movie, sample, std::forward<Buffer>(buffer));
    return result ? m_keeper.follow() : std::move(result);
}

OpResult MovRecorder::write(MediaObj& movie, const MediaSampleInMovie& sample, const MediaIoBuf& buf) {
    m_keeper.look(sample, buf.getMem(), buf.size());
    return writeTo<const MediaIoBuf&>(movie, sample, buf);
}

OpResult MovRecorder::write(MediaObj& movie, const MediaSampleInMovie& sample, phantom_OBUF* obuf) {
    iovec piece{};
    if (obuf != nullptr && obufNTranslateHost(obuf, &piece, 1) == 1)
        m_keeper.look(sample, static_cast<const std::uint8_t*>(piece.iov_base), piece.iov_len);
    return writeTo<phantom_OBUF*>(movie, sample, obuf);
}

OpResult MovRecorder::update() { return m_keeper.update(); }

// The files of the samples first: the index tells of what is in them.
OpResult MovRecorder::finish() {
    OpResult first(OpResult::Ok);
    for (std::uint64_t i = 0; i < m_files.size(); ++i) {
        Recorder* const recorder = m_files.get(i)->get()->m_recorder.get();
        if (recorder == nullptr) continue;
        OpResult result = recorder->finish();
        if (!result && first) {
            first = result;
        } else {
            result.discard();
        }
    }
    OpResult result = m_keeper.finish();
    if (first) return result;
    result.discard();
    return first;
}

void MovRecorder::end() {
    for (std::uint64_t i = 0; i < m_files.size(); ++i) {
        Recorder* const recorder = m_files.get(i)->get()->m_recorder.get();
        if (recorder != nullptr) recorder->end();
    }
    m_keeper.end();
}
