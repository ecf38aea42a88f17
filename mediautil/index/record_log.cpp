#include "mediautil/index/record_log.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "mediautil/object/media_obj_impl.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/switches.h"

namespace {

using OpType = RecordLogEntry::OpType;

// What is wrong with a line, gathered without the heap.
class Findings {
public:
    void add(const char* format, unsigned long long expected, unsigned long long actual)
        __attribute__((format(printf, 2, 0))) {
        const int length = std::snprintf(m_text + m_length, sizeof m_text - m_length, format, expected, actual);
        if (length > 0) m_length += static_cast<std::size_t>(length);
        if (m_length >= sizeof m_text) m_length = sizeof m_text - 1;
    }
    void checkGap(const RecordLogEntry& before, unsigned long long sample) {
        const unsigned long long expected = before.getSampleNum() + before.getNSamples();
        if (expected != sample) add(",sgap %llu-%llu", expected, sample);
    }
    void checkOverlap(const RecordLogEntry& before, long long offset) {
        if (before.getFileOffset() <= 0 || offset <= 0) return;  // not known
        const auto end = static_cast<unsigned long long>(before.getFileOffset()) + before.getNBytes();
        if (end > static_cast<unsigned long long>(offset))
            add(",boverlap? %llu - %llu", end, static_cast<unsigned long long>(offset));
    }
    const char* text() const { return m_text; }
    bool any() const { return m_length != 0; }

private:
    char m_text[128] = {};
    std::size_t m_length = 0;
};

}  // namespace

const char* RecordLogEntry::getName(OpType type) {
    static constexpr const char* names[] = {"nil", "as", "wr", "wes", "wkl", "wtc"};
    const auto index = static_cast<std::size_t>(type);
    return index < std::size(names) ? names[index] : "?";
}

const char* RecordLogEntry::getName(SampleCodingType type) {
    static constexpr const char* names[] = {"unk", "I", "P", "B"};
    const auto index = static_cast<std::size_t>(type);
    return index < std::size(names) ? names[index] : "?";
}

RecordLogEntry& RecordLogEntry::operator=(const MediaSampleInMovie& sample) {
    m_opType = OpType::Write;
    m_sampleNum = sample.m_sample;
    m_fileOffset = static_cast<long long>(sample.m_chunks[0].m_offset);
    m_nBytes = sample.m_info.getSize();
    m_nSamples = static_cast<std::uint16_t>(sample.m_count);
    m_nChunks = static_cast<std::uint8_t>(sample.m_numChunks);
    m_trackIndex = static_cast<std::uint8_t>(sample.m_trackIndex);
    m_clipIndex = static_cast<std::uint8_t>(sample.m_clipIndex);
    m_listed = false;
    m_coding = sample.m_info.getEncoding();
    m_timecode = sample.m_timecode;
    return *this;
}

void RecordLogEntry::set(const MediaClipDesc& clip, const MediaRecordReq& req) {
    m_opType = OpType::Add;
    m_sampleNum = req.m_sample;
    m_fileOffset = req.m_hasOffset ? static_cast<long long>(req.m_offset) : 0;
    m_nBytes = req.m_info.getSize();
    m_nSamples = static_cast<std::uint16_t>(req.m_count);
    m_nChunks = 1;
    m_trackIndex = static_cast<std::uint8_t>(clip.getTrack().getTrackIndex());
    m_clipIndex = static_cast<std::uint8_t>(clip.getClipIndex());
    m_listed = false;
    m_coding = req.m_info.getEncoding();
    m_timecode = req.m_timecode;
}

AutoPtr<char> RecordLogEntry::toString() const {
    FormatStr text(128);
    text.format("%s,t%d,c%d,%s,%ds@%lld,%db@%lld,", getName(m_opType), int{m_trackIndex}, int{m_clipIndex},
                getName(m_coding), int{m_nSamples}, static_cast<long long>(m_sampleNum), static_cast<int>(m_nBytes),
                m_fileOffset);
    if (m_timecode.isValid()) text += m_timecode.toString();
    return text;
}

unsigned MediaRecordTracker::Logger::addEntry(const MediaSampleInMovie& sample) {
    const unsigned index = nextIndex();
    m_entries[index] = sample;
    return index;
}

unsigned MediaRecordTracker::Logger::addEntry(const MediaClipDesc& clip, const MediaRecordReq& req) {
    const unsigned index = nextIndex();
    m_entries[index].set(clip, req);
    return index;
}

const RecordLogEntry* MediaRecordTracker::Logger::getEntry(unsigned index, unsigned track, OpType type) const {
    if (index >= s_size) return nullptr;
    const RecordLogEntry& entry = m_entries[index];
    return entry.getTrackIndex() == track && entry.getOpType() == type ? &entry : nullptr;
}

void MediaRecordTracker::Logger::list(unsigned last, unsigned track, OpType type) {
    for (unsigned i = 1; i <= s_size; ++i) {
        RecordLogEntry& entry = m_entries[wrapIndex(last + i)];
        if (entry.getTrackIndex() != track || entry.getOpType() != type || entry.wasListed()) continue;
        debugMsg("  %s\n", entry.toString().get());
        entry.setListed();
    }
}

void MediaRecordTracker::printEntry(unsigned index) const {
    if (mediaObjDbg.on(MediaDbg::Record2)) debugMsg("%s\n", m_logger.getEntry(index).toString().get());
}

// The track's line before this one, if the ring still has it.
const RecordLogEntry* MediaRecordTracker::exchangeLast(Relaxed<std::int32_t>& last, unsigned index, unsigned track,
                                                       OpType type) {
    const std::int32_t before = last;
    last = static_cast<std::int32_t>(index);
    return before >= 0 ? m_logger.getEntry(static_cast<unsigned>(before), track, type) : nullptr;
}

void MediaRecordTracker::log(const MediaSampleInMovie& sample) {
    const unsigned index = m_logger.addEntry(sample);
    printEntry(index);
    const unsigned track = sample.m_trackIndex;
    if (track >= s_checkedTracks) return;
    const RecordLogEntry* before = exchangeLast(m_last[track].m_lastWrite, index, track, OpType::Write);
    if (before == nullptr) return;
    Findings findings;
    findings.checkGap(*before, sample.m_sample);
    findings.checkOverlap(*before, static_cast<long long>(sample.m_chunks[0].m_offset));
    if (!findings.any()) return;
    debugMsg("write%s\n", findings.text());
    m_logger.list(index, track, OpType::Write);
}

void MediaRecordTracker::log(const MediaClipDesc& clip, const MediaRecordReq& req) {
    const unsigned index = m_logger.addEntry(clip, req);
    printEntry(index);
    const unsigned track = clip.getTrack().getTrackIndex();
    if (track >= s_checkedTracks) return;
    const RecordLogEntry* before = exchangeLast(m_last[track].m_lastAdd, index, track, OpType::Add);
    if (before == nullptr) return;
    Findings findings;
    findings.checkGap(*before, req.m_sample);
    if (!findings.any()) return;
    // A gap of an add shows the track's writes, under the word for them: what was written around it is what is looked
    // for.
    debugMsg("write%s\n", findings.text());
    m_logger.list(index, track, OpType::Write);
}

void MediaObj::log(const MediaSampleInMovie& sample) {
    if (MediaRecordTracker* tracker = m_impl->recordTracker()) tracker->log(sample);
}

void MediaObj::log(const MediaClipDesc& clip, const MediaRecordReq& req) {
    if (MediaRecordTracker* tracker = m_impl->recordTracker()) tracker->log(clip, req);
}
