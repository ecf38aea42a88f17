#include "mediautil/validation/media_validator.h"
#include "mediautil/validation/pcm_analysis.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/object/switches.h"
#include "shared/include/validation/pcm_parser.h"

// The check that a clip without one of its own has: sound as plain samples.

__attribute__((init_priority(102)))
DebuggerOn validatePcmThresh("validatePcmPowerLimit", 16, DebuggerTypes::Init::Value);

// It stands here since every clip's operations bring this file into a program, and it enters itself. Behind the
// switches, and so ahead of them at the end.
__attribute__((init_priority(103))) MediaValidator mediaValidator;

namespace {

constexpr unsigned s_mostBytes = 4;  // of a channel's sample

// The largest step that passes for sound. For samples of 32 bits the full scale is shifted out of its word, and every
// step is too large; it is kept so.
unsigned stepLimit(const MediaClipDesc& clip) {
    const unsigned divisor = validatePcmThresh.get();
    return (1u << clip.getBitsPerUnit() % 32) / (divisor != 0 ? divisor : 1);
}

// What the parser decodes. Anything else isn't plain samples, whatever the clip calls it.
bool isPlainSound(const MediaClipDesc& clip) {
    const unsigned bytes = clip.getBitsPerUnit() / 8, channels = clip.getChannels();
    return bytes >= 1 && bytes <= s_mostBytes && channels >= 1 && channels <= PcmPattern::s_maxChannels;
}

// What is wrong with the parser's block of sound; empty when all is well. Requires: plain sound.
AutoPtr<char> validatePcm(const MediaClipDesc& clip, PcmParser& parser) {
    const unsigned bytes = clip.getBitsPerUnit() / 8, channels = clip.getChannels();
    const unsigned have = parser.getUnparsedBytes();
    const unsigned samples = have / (channels * bytes);
    FormatStr text(0);
    if (bytes * samples * channels != have) {
        text.format("((%d bps)*(%d smp)*(%d ch)=%d) != %d bytes", static_cast<int>(bytes), static_cast<int>(samples),
                    static_cast<int>(channels), static_cast<int>(bytes * samples * channels), static_cast<int>(have));
    }
    const AutoPtr<PcmPattern> pattern(new PcmPattern(stepLimit(clip), channels));
    analysePcm(parser, *pattern, samples);
    pattern->setAc3SampleCount(parser.getAc3SamplesCnt());
    if (pattern->suspect() || mediaValidate.on(MediaVal::PcmStats)) {
        if (!text.empty()) text.cat(",");
        text += pattern->toString();
    }
    return text;
}

bool attach(PcmParser& parser, phantom_OBUF* data) { return parser.setObuf(data); }
bool attach(PcmParser& parser, const MediaIoBuf& data) { return parser.setBuf(data); }

template <class Data>
AutoPtr<char> validateSound(const MediaClipDesc& clip, PcmParser& parser, Data&& data) {
    parser.init(clip.getEndian(), clip.getBitsPerUnit() / 8, clip.getChannels());
    if (!isPlainSound(clip) || !attach(parser, data)) return AutoPtr<char>(nullptr);
    return validatePcm(clip, parser);
}

}  // namespace

// Each has a parser of its own, which its callers share one at a time.

AutoPtr<char> MediaClipDesc::validate(phantom_OBUF* data) const {
    if (!mediaValidate.on(MediaVal::Pcm)) return AutoPtr<char>(nullptr);
    static PcmParser parser;
    return validateSound(*this, parser, data);
}

AutoPtr<char> MediaClipDesc::validate(const MediaIoBuf& data) const {
    if (!mediaValidate.on(MediaVal::Pcm)) return AutoPtr<char>(nullptr);
    static PcmParser parser;
    return validateSound(*this, parser, data);
}
