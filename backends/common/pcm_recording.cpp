#include "backends/common/pcm_recording.h"

#include <algorithm>

#include "backends/common/recorded_lookup.h"
#include "backends/common/sound_param.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_mostChannels = 32;

OpResult refuse(const FormatStr& text) { return MO_WARNING(MediaCode::UnsupportedMediaType, text.get()); }

bool isSameKind(const PcmFormat& one, const PcmFormat& other) {
    return one.encoding == other.encoding && one.endian == other.endian && one.channels == other.channels &&
           one.sampleRate == other.sampleRate && one.bits == other.bits;
}

}  // namespace

OpResult PcmWriter::chooseCommon(const MediaClipParam& param, PcmFormat& format) const {
    const bool isPcm = param.m_encoding == MediaEncodingType::Pcm;
    const bool isALaw = param.m_encoding == MediaEncodingType::ALaw;
    const unsigned bits = param.m_bitsPerUnit;
    if (param.m_dataType != MediaDataType::Audio || (!isPcm && !isALaw))
        return refuse(FormatStr("%s: %s of %s can't be recorded", name, MediaNames::get(param.m_dataType),
                                MediaNames::get(param.m_encoding)));
    if (param.m_sampleRate == 0 || param.m_ticksPerSample != 1)
        return refuse(FormatStr("%s: %u samples in %u seconds can't be recorded", name, param.m_sampleRate,
                                param.m_ticksPerSample));
    if (param.m_channels == 0 || param.m_channels > s_mostChannels)
        return refuse(FormatStr("%s: %u channels can't be recorded, 1 to 32 can", name, param.m_channels));
    if (bits % 8 != 0 || bits < 8 || bits > 32 || (isALaw && bits != 8))
        return refuse(FormatStr("%s: %s of %u bits can't be recorded", name, MediaNames::get(param.m_encoding), bits));
    format = PcmFormat();
    format.encoding = param.m_encoding;
    format.endian = param.m_endian;
    format.channels = static_cast<std::uint16_t>(param.m_channels);
    format.sampleRate = param.m_sampleRate;
    format.bits = static_cast<std::uint16_t>(bits);
    format.blockAlign = static_cast<std::uint16_t>(bits / 8 * param.m_channels);
    return OpResult(OpResult::Ok);
}

bool PcmWriter::initAudio(MediaClipParam& param, MediaEncodingType encoding, MediaEndian endian, unsigned sampleRate,
                          unsigned channels, unsigned bits) const {
    MediaClipParam filled = soundParam(fileType, encoding, sampleRate, channels, bits);
    filled.m_endian = endian;
    PcmFormat format;
    OpResult result = choose(filled, format);
    const bool isGood = result.success();
    result.discard();
    if (!isGood) return false;
    filled.m_offsets.set(format.blockAlign, 0, 0, 0);
    param = filled;
    return true;
}

std::shared_ptr<RecordedEssence> PcmHeaderKeeper::start(const PcmFormat& format, OpResult& result) {
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_mutex);
    m_format = format;
    lock.unlock();
    std::shared_ptr<RecordedEssence> essence = begin(0, format.dataOffset, result);
    if (essence == nullptr) return nullptr;
    lock.lock();
    result = putHeader(0);
    if (!result) essence.reset();
    return essence;
}

OpResult PcmHeaderKeeper::keepUp(std::uint64_t end, Moment moment) {
    const std::uint64_t samples = (end - m_format.dataOffset) / m_format.blockAlign;
    if (moment == Moment::Loss) m_told = s_unknown;
    OpResult result = moment == Moment::End ? pad(end) : OpResult(OpResult::Ok);
    return result && isDue(samples, moment) ? putHeader(samples) : result;
}

bool PcmHeaderKeeper::isDue(std::uint64_t samples, Moment moment) const {
    if (samples == m_told) return false;
    if (moment != Moment::Written || m_told == s_unknown) return true;
    return samples > m_told && (m_told == 0 || samples - m_told >= m_format.sampleRate);
}

OpResult PcmHeaderKeeper::putHeader(std::uint64_t samples) {
    std::uint8_t bytes[PcmWriter::s_mostHeader];
    m_format.samples = samples;
    OpResult result = put(0, bytes, m_writer.makeHeader(m_format, bytes));
    m_told = result ? samples : s_unknown;
    return result;
}

// Chunks are even. More essence may follow all the same, and then lies where the padding was.
OpResult PcmHeaderKeeper::pad(std::uint64_t end) {
    if ((end - m_format.dataOffset) % 2 == 0 || end == m_paddedAt) return OpResult(OpResult::Ok);
    m_paddedAt = end;
    const std::uint8_t zero = 0;
    return put(end, &zero, 1);
}

RecordedPcmClip::RecordedPcmClip(PcmTrack& track, const PcmWriter& writer, const PcmFormat& format, MediaIdRec* file,
                                 std::shared_ptr<RecordedEssence> essence)
    : PcmClip(track, format, file, WithoutLookup()) {
    m_lookup = new RecordedLookup(writer.name, summaryOf(format), writer.largestEnd, *this, std::move(essence));
}

PcmRecording::PcmRecording(const PcmWriter& writer, AutoRefPtr<BasicFileIO> file)
    : RecordedMovie(std::make_unique<PcmHeaderKeeper>(writer, file), file, writer.fileType), m_writer(writer) {}

MediaObj* PcmRecording::create(const PcmWriter& writer, const char* path, OpResult& result,
                               MediaContainment containment, BasicIOTypes::SizeAdvice advice) {
    const AutoRefPtr<BasicFileIO> file = Recorder::createFile(writer.name, path, containment, advice, result);
    return file ? new PcmRecording(writer, file) : nullptr;
}

MediaTrackDesc* PcmRecording::createTrack(const MediaClipParam& param, OpResult& result) {
    PcmFormat format;
    if (!getDesc()->isWritable()) {
        result = MO_WARNING(MediaCode::FileNotWritable, nullptr);
    } else if (getTrackCount() != 0) {
        result =
            MO_WARNING(MediaCode::OperationUnsupported, FormatStr("%s: a file has one track", m_writer.name).get());
    } else {
        result = m_writer.choose(param, format);
    }
    if (!result) return nullptr;
    m_format = format;
    getDesc()->setTimeBase(format.sampleRate);
    getDesc()->setEncoding(format.encoding);
    auto* track = new PcmTrack(*this);
    install(track);
    return track;
}

PcmClip* PcmRecording::makeClip(PcmTrack& track, const MediaClipParam& param, OpResult& result) {
    PcmFormat format;
    result = getDesc()->isWritable() ? m_writer.choose(param, format) : MO_WARNING(MediaCode::FileNotWritable, nullptr);
    if (!result) return nullptr;
    if (!isSameKind(format, m_format)) {
        result = refuse(FormatStr("%s: the clip is of another kind than its track", m_writer.name));
        return nullptr;
    }
    std::shared_ptr<RecordedEssence> essence = getRecorder().start(format, result);
    if (essence == nullptr) return nullptr;
    return new RecordedPcmClip(track, m_writer, format, getMediaId(0), std::move(essence));
}
