#include "backends/common/recorded_essence.h"

#include "shared/include/index/media_sample_desc.h"
#include "shared/include/object/switches.h"

void RecordedEssence::HandedQueue::push(const Handed& handed) {
    // Room comes from those popped as long as they are half of it; then moving the others costs less than they did.
    if (m_all.size() == m_all.capacity() && m_first * 2 >= m_all.size()) {
        m_all.erase(m_all.begin(), m_all.begin() + static_cast<std::ptrdiff_t>(m_first));
        m_first = 0;
    }
    m_all.push_back(handed);
}

void RecordedEssence::HandedQueue::pop() {
    if (++m_first == m_all.size()) clear();
}

void RecordedEssence::HandedQueue::clear() {
    m_all.clear();
    m_first = 0;
}

void RecordedEssence::noteAdded(const MediaRecordReq& req, const MediaSampleDesc& desc, std::uint64_t endBefore) {
    const ShortScope lock(m_lock);
    m_tracker.notifyAdd(req);
    const MediaSampleDesc::Chunk& chunk = desc.m_chunks[0];
    if (chunk.m_offset > endBefore) m_holes.push_back({endBefore, chunk.m_offset});
    if (!req.m_hasOffset) return;
    const Run run = withHole(chunk.m_offset, chunk.m_size);
    m_written.add(run.m_from, run.m_to);
    m_handed.add(run.m_from, run.m_to);
}

// A hole becomes part of the file with the first block behind it.
RecordedEssence::Run RecordedEssence::withHole(std::uint64_t offset, std::uint64_t bytes) const {
    Run run{offset, offset + bytes};
    for (auto hole = m_holes.rbegin(); bytes != 0 && hole != m_holes.rend() && hole->m_to >= offset; ++hole) {
        if (hole->m_to == offset) run.m_from = hole->m_from;
    }
    return run;
}

void RecordedEssence::noteWritten(const MediaSampleDesc& desc) {
    const ShortScope lock(m_lock);
    for (unsigned i = 0; i < desc.m_numChunks; ++i) {
        const Run run = withHole(desc.m_chunks[i].m_offset, desc.m_chunks[i].m_size);
        m_written.add(run.m_from, run.m_to);
        m_handed.add(run.m_from, run.m_to);
    }
    m_tracker.notifyWrite(desc);
}

void RecordedEssence::useHandle(const AutoRefPtr<BasicFileIO>& handle) {
    AutoRefPtr<BasicFileIO> old;  // let go of behind the lock
    const ShortScope lock(m_lock);
    if (m_handle.get() == handle.get()) return;
    settle();
    lose();
    old = m_handle;
    m_handle = handle;
    m_file = dynamic_cast<const FsFileIO*>(handle.get());
    m_doneBefore = m_file != nullptr ? m_file->getWritesDone() : 0;
}

void RecordedEssence::noteHanded(const MediaSampleDesc& desc, unsigned bytes) {
    const ShortScope lock(m_lock);
    push({withHole(desc.m_chunks[0].m_offset, bytes), desc.m_sample, desc.m_count});
}

void RecordedEssence::noteHandedHeader() {
    const ShortScope lock(m_lock);
    push(Handed());
}

void RecordedEssence::push(const Handed& handed) {
    m_queue.push(handed);
    m_handed.add(handed.m_run.m_from, handed.m_run.m_to);
}

void RecordedEssence::noteFailure() {
    const ShortScope lock(m_lock);
    settle();
    lose();
}

// Takes over what the handle has written meanwhile.
void RecordedEssence::settle() {
    const unsigned long long done = m_file != nullptr ? m_file->getWritesDone() : 0;
    for (; m_doneBefore < done && !m_queue.empty(); ++m_doneBefore) {
        const Handed& first = m_queue.front();
        m_written.add(first.m_run.m_from, first.m_run.m_to);
        MediaSampleDesc desc;
        desc.m_sample = first.m_sample;
        desc.m_count = first.m_count;
        if (first.m_run.m_to != 0) m_tracker.notifyWrite(desc);
        m_queue.pop();
    }
}

// Requires: a handle that has nothing under way.
void RecordedEssence::lose() {
    m_queue.clear();
    m_handed = m_written;
    m_doneBefore = m_file != nullptr ? m_file->getWritesDone() : 0;
}

std::uint64_t RecordedEssence::getWrittenEnd() {
    const ShortScope lock(m_lock);
    settle();
    return m_written.end();
}

std::uint64_t RecordedEssence::getHandedEnd() {
    const ShortScope lock(m_lock);
    return m_handed.end();
}

bool RecordedEssence::isWriting() {
    const ShortScope lock(m_lock);
    settle();
    return !m_queue.empty();
}

bool RecordedEssence::hasBytes(const MediaSampleDesc& desc) const {
    for (unsigned i = 0; i < desc.m_numChunks; ++i) {
        const MediaSampleDesc::Chunk& chunk = desc.m_chunks[i];
        if (!m_written.contains(chunk.m_offset, chunk.m_offset + chunk.m_size)) return false;
    }
    return true;
}

bool RecordedEssence::isWritten(const MediaSampleDesc& desc) {
    const ShortScope lock(m_lock);
    settle();
    return hasBytes(desc);
}

bool RecordedEssence::isAvailable(const MediaSampleDesc& desc) {
    const ShortScope lock(m_lock);
    settle();
    // Under the switch nothing counts as missing, and the tracker says so.
    const bool ignored = mediaObjDbg.on(MediaDbg::IgnoreMissingMedia);
    return (ignored || hasBytes(desc)) && m_tracker.isAvailable(desc);
}
