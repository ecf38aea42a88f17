#include "shared/include/description/media_clip_desc.h"

#include "services/system/format_str.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/object/core_subsystem.h"

MediaClipDesc::MediaClipDesc(MediaContainment container) : m_container(container) {}

MediaClipDesc::MediaClipDesc(const MediaClipDesc& other)
    : m_container(other.m_container),
      m_encoding(other.m_encoding),
      m_coding(other.m_coding),
      m_chroma(other.m_chroma),
      m_vscan(other.m_vscan),
      m_sampleRate(other.m_sampleRate),
      m_ticksPerSample(other.m_ticksPerSample),
      m_maxBitsPerSample(other.m_maxBitsPerSample),
      m_bitsPerUnit(other.m_bitsPerUnit),
      m_channels(other.m_channels),
      m_endian(other.m_endian),
      m_bitrate(other.m_bitrate),
      m_backEndParam(other.m_backEndParam),
      m_minSamples(other.m_minSamples),
      m_rollout(other.m_rollout),
      m_targetRollout(other.m_targetRollout),
      m_length(other.getLength()) {}

std::uint32_t MediaClipDesc::getParamId() const {
    if (const std::uint32_t known = m_paramId) return known;
    MediaClipParam param(*this);
    param.m_extraParam[0] = kindDiscriminator(param.m_extraParam[0]);
    const std::uint32_t id = param.getParamId();
    m_paramId = id;
    return id;
}

// What else tells two kinds of media apart, in the codings that have something of the sort.
unsigned int MediaClipDesc::kindDiscriminator(unsigned int extra) const {
    constexpr unsigned int anyAvcKind = 65535;
    if (m_encoding == MediaEncodingType::Vbi) return getTrack().get(MediaPropertyEnum::VbiMask()).value();
    if (m_encoding == MediaEncodingType::Aac) return m_bitrate;
    if (m_encoding != MediaEncodingType::Avc) return extra;
    const MediaProperty* kind = getTrack().getProperty(MediaPropertyEnum::Name::AvcKind);
    return kind ? kind->uint16Value() : anyAvcKind;
}

unsigned long long MediaClipDesc::getLength() const { return m_length; }
bool MediaClipDesc::getExtraParam(unsigned int*, unsigned int) const { return false; }
void MediaClipDesc::setLength(unsigned long long samples) { m_length = samples; }

void MediaClipDesc::close() const {
    if (const MediaOffsetLookup* lookup = getLookup()) lookup->close();
}

MediaClipDesc& MediaClipDesc::getRealClip() { return *this; }
const MediaClipDesc& MediaClipDesc::getRealClip() const { return *this; }
void MediaClipDesc::setRealClip(MediaClipDesc&) {}
SequenceCodingType MediaClipDesc::getSequenceCoding() const { return m_coding; }
bool MediaClipDesc::isSlave() const { return false; }
const MediaClipDesc* MediaClipDesc::getSlaveClip() const { return nullptr; }

MediaClipDesc* MediaClipDesc::getSlaveClip() {
    return const_cast<MediaClipDesc*>(static_cast<const MediaClipDesc&>(*this).getSlaveClip());
}

void MediaClipDesc::inheritVideoRate(MediaVideoRate rate) { getTrack().inheritVideoRate(rate); }
void MediaClipDesc::setDefaultVideoRate(MediaVideoRate) {}
bool MediaClipDesc::trim(unsigned int, unsigned int) { return false; }
bool MediaClipDesc::getInOut(unsigned int&, unsigned int&) const { return false; }

MediaObj& MediaClipDesc::getObj() { return getTrack().getObj(); }
const MediaObj& MediaClipDesc::getObj() const { return getTrack().getObj(); }
MediaDataType MediaClipDesc::getType() const { return getTrack().getDataType(); }
MediaFileType MediaClipDesc::getFileType() const { return MediaClipParam::getFileType(m_encoding, m_endian); }

OpResult MediaClipDesc::setParam(const MediaClipParam& param) {
    if (getType() != param.m_dataType) return MO_WARNING(MediaCode::InternalError, nullptr);
    const MediaVideoRate present = getVideoRate();
    const bool bothKnown = param.m_videoRate != MediaVideoRate::Unknown && present != MediaVideoRate::Unknown;
    if (bothKnown && param.m_videoRate != present) return MO_WARNING(MediaCode::InternalError, nullptr);
    MediaOffsetLookup* lookup = getLookup();
    if (!lookup) return MO_WARNING(MediaCode::InternalError, nullptr);

    m_encoding = param.m_encoding;
    m_coding = param.m_coding;
    m_chroma = param.m_chroma;
    m_vscan = param.m_vscan;
    m_sampleRate = param.m_sampleRate;
    m_ticksPerSample = param.m_ticksPerSample;
    m_maxBitsPerSample = param.m_maxBitsPerSample;
    m_bitsPerUnit = param.m_bitsPerUnit;
    m_channels = param.m_channels;
    m_endian = param.m_endian;
    m_bitrate = param.m_bitrate;
    lookup->update(param.m_offsets).discard();  // a lookup may refuse sizes that it finds out by itself
    inheritVideoRate(param.m_videoRate);
    return OpResult(OpResult::Ok);
}

bool MediaClipDesc::canReceive(const MediaClipDesc& other) const {
    if (m_encoding != other.m_encoding || m_coding != other.m_coding) return false;
    if (getType() != other.getType() || getVideoRate() != other.getVideoRate()) return false;
    if (m_chroma != other.m_chroma) return false;
    const bool scanKnown = m_vscan != MediaVideoScanType::Unknown && other.m_vscan != MediaVideoScanType::Unknown;
    if (scanKnown && m_vscan != other.m_vscan) return false;
    return m_sampleRate == other.m_sampleRate && m_ticksPerSample == other.m_ticksPerSample &&
           m_maxBitsPerSample == other.m_maxBitsPerSample && m_bitsPerUnit == other.m_bitsPerUnit &&
           m_channels == other.m_channels && m_endian == other.m_endian;
}

void MediaClipDesc::describeAudio(FormatStr& text) const {
    const int channels = static_cast<int>(m_channels);
    const int rate = static_cast<int>(m_sampleRate);
    if (m_ticksPerSample == 1) {
        text.format(",%dchan,%dkhz,%s", channels, static_cast<int>(m_sampleRate / 1000), MediaNames::get(m_endian));
    } else {
        text.format(",%dchan,%d/%dhz,%s", channels, rate, static_cast<int>(m_ticksPerSample),
                    MediaNames::get(m_endian));
    }
}

void MediaClipDesc::describeVideo(FormatStr& text) const {
    const MediaTrackDesc& track = getTrack();
    text.format(",%dx%d,%d/%dhz,%s,%s,%s", static_cast<int>(track.getWidth()), static_cast<int>(track.getHeight()),
                static_cast<int>(m_sampleRate), static_cast<int>(m_ticksPerSample), MediaNames::get(getVideoRate()),
                MediaNames::get(m_chroma), MediaNames::get(m_vscan));
    if (isMpeg(m_encoding)) text.format(",%s", MediaNames::get(getSequenceCoding()));
}

AutoPtr<char> MediaClipDesc::toString() const {
    FormatStr text(1024);
    const MediaDataType type = getType();
    text.format("%s,%s", MediaNames::get(type), MediaNames::get(m_encoding));
    if (type == MediaDataType::Audio) describeAudio(text);
    if (type == MediaDataType::Video) describeVideo(text);
    text.format(",%ubpu,%ubps,len=%llu", m_bitsPerUnit, m_bitrate, m_length.get());
    return text;
}
