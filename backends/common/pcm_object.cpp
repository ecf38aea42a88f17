#include "backends/common/pcm_object.h"

#include <algorithm>
#include <cstring>

#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_mostChannels = 32;
constexpr unsigned char s_silentALaw = 0xD5, s_silentUnsigned = 0x80;

bool isPlainSound(const MediaClipParam& param) {
    const unsigned bits = param.m_bitsPerUnit;
    if (param.m_dataType != MediaDataType::Audio) return false;
    if (param.m_channels == 0 || param.m_channels > s_mostChannels) return false;
    if (param.m_encoding == MediaEncodingType::ALaw) return bits == 8;
    return param.m_encoding == MediaEncodingType::Pcm && bits % 8 == 0 && bits >= 8 && bits <= 32;
}

OpResult refuse() {
    return MO_WARNING(MediaCode::UnsupportedMediaType, "sound of whole bytes in 1 to 32 channels only");
}

PcmFormat formatOf(const MediaClipParam& param) {
    PcmFormat format;
    format.encoding = param.m_encoding;
    format.endian = param.m_endian;
    format.channels = static_cast<std::uint16_t>(param.m_channels);
    format.sampleRate = param.m_sampleRate;
    format.bits = static_cast<std::uint16_t>(param.m_bitsPerUnit);
    format.blockAlign = static_cast<std::uint16_t>(param.m_bitsPerUnit / 8 * param.m_channels);
    return format;
}

// The clip of a movie without a file.
class PcmObjectClip final : public PcmClip {
public:
    PcmObjectClip(PcmTrack& track, const PcmFormat& format, MediaFileType type)
        : PcmClip(track, format, nullptr), m_type(type) {}

    // As many samples as the buffer holds, whatever the times. Fails: false for an empty one.
    bool fillBlack(MediaSampleBuf& buf, FixedPoint<16>, FixedPoint<16>, bool) const override {
        if (buf.size() == 0) return false;
        std::memset(buf.getMem(), silence(), buf.size());
        return true;
    }
    // Samples follow each other without a frame's bounds: what the buffer holds is its own repeat.
    bool fillFwdRepeat(MediaSampleBuf& buf) const override { return buf.size() != 0; }
    bool fillBakRepeat(MediaSampleBuf& buf) const override { return buf.size() != 0; }
    // Codes of A-law aren't samples: steps from one to the next say nothing of the sound.
    AutoPtr<char> validate(phantom_OBUF* data) const override { return validatePlain(data); }
    AutoPtr<char> validate(const MediaIoBuf& data) const override { return validatePlain(data); }

private:
    template <class Data>
    AutoPtr<char> validatePlain(Data&& data) const {
        return m_encoding == MediaEncodingType::Pcm ? PcmClip::validate(data) : AutoPtr<char>(nullptr);
    }
    int silence() const {
        if (m_encoding == MediaEncodingType::ALaw) return s_silentALaw;
        return m_type == MediaFileType::Wav && m_bitsPerUnit == 8 ? s_silentUnsigned : 0;
    }

    const MediaFileType m_type;  // bytes have no sign in a WAV
};

}  // namespace

MediaObj* PcmObject::open(MediaFileType type, OpResult& result) {
    result = OpResult(OpResult::Ok);
    return new PcmObject(type);
}

MediaTrackDesc* PcmObject::createTrack(const MediaClipParam& param, OpResult& result) {
    if (getTrackCount() != 0) {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
    } else {
        result = isPlainSound(param) ? OpResult(OpResult::Ok) : refuse();
    }
    if (!result) return nullptr;
    getDesc()->setTimeBase(std::max(param.m_sampleRate, 1u));
    getDesc()->setEncoding(param.m_encoding);
    auto* const track = new PcmTrack(*this);
    install(track);
    result = track->setParam(param);
    return track;
}

PcmClip* PcmObject::makeClip(PcmTrack& track, const MediaClipParam& param, OpResult& result) {
    result = isPlainSound(param) ? OpResult(OpResult::Ok) : refuse();
    if (!result) return nullptr;
    const PcmFormat format = formatOf(param);
    auto* const clip = new PcmObjectClip(track, format, getDesc()->getFileType());
    MediaClipParam own(param);
    own.m_offsets.set(format.blockAlign, 0, 0, 0);  // where the essence lies elsewhere says nothing here
    result = clip->setParam(own);
    if (result) return clip;
    delete clip;
    return nullptr;
}
