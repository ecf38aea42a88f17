#include "backends/dv/dv_parser.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "backends/dv/dv_vote.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

using namespace DvLayout;

namespace {

constexpr unsigned s_mostSequences = 12;  // of a channel
constexpr std::uint8_t s_noMode = 0x0F;   // audio mode: nothing is recorded here

OpResult refuse(int code, const FormatStr& text) { return MO_WARNING(code, text.get()); }

unsigned decimal(std::uint32_t byte) { return (byte >> 4 & 0x0F) * 10 + (byte & 0x0F); }

// What the display bits of the video control pack say of the frame's shape. Letterboxed pictures are frames of 4:3.
MediaAspectRatio aspectOf(const DvSystem& system, unsigned display, unsigned bcSystem, unsigned apt) {
    if (system.isHighDef() || display == 2) return MediaAspectRatio::Ratio16x9;
    if (display == 0) return MediaAspectRatio::Ratio4x3;
    if (apt != 0) return MediaAspectRatio::Unknown;  // SMPTE ST 314M knows those two only
    if (display == 7) return MediaAspectRatio::Ratio16x9;
    if (display == 1) return MediaAspectRatio::Ratio4x3;
    if (bcSystem != 1) return MediaAspectRatio::Unknown;
    return display == 6 ? MediaAspectRatio::Other : MediaAspectRatio::Ratio4x3;
}

unsigned soundRate(unsigned code) {
    constexpr unsigned rates[] = {48000, 44100, 32000};
    return code < std::size(rates) ? rates[code] : 0;
}

unsigned soundBits(unsigned code) {
    constexpr unsigned bits[] = {16, 12, 20};
    return code < std::size(bits) ? bits[code] : 0;
}

// The bytes of an audio source pack that say what kind of sound it is, and back.
std::uint64_t packSound(const std::uint8_t* pack) { return std::uint64_t{pack[2]} << 8 | pack[4]; }

// The sound of one half of a DIF channel; no channels when there is none.
DvAudio unpackSound(std::uint64_t packed) {
    DvAudio audio;
    const auto kind = static_cast<unsigned>(packed >> 8), coding = static_cast<unsigned>(packed & 0xFF);
    const unsigned perBlock = kind >> 5 & 3;
    audio.rate = soundRate(coding >> 3 & 7);
    audio.bits = soundBits(coding & 7);
    audio.perHalf = perBlock + 1;
    const bool sound = audio.rate != 0 && audio.bits != 0 && perBlock <= 1 && (kind & 0x0F) != s_noMode;
    audio.channels = sound ? audio.perHalf : 0;
    return audio;
}

}  // namespace

OpResult DvParser::parse(DvFormat& format) {
    OpResult result = parseStream();
    // What can't be read is no verdict on the stream.
    if (m_file.failed()) {
        result.discard();
        return MO_WARNING(MediaCode::ReadError, "dv: the file can't be read");
    }
    if (result) format = m_format;
    return result;
}

OpResult DvParser::parseStream() {
    const bool atStart = readSequence(0, m_first);
    if (!atStart && !findSequence(1, s_searchBytes, m_first, m_firstOffset)) {
        const auto searched = std::min<std::uint64_t>(m_file.length(), s_searchBytes);
        return refuse(MediaCode::ParserError, FormatStr("dv: no DIF sequence in the first %llu bytes",
                                                        static_cast<unsigned long long>(searched)));
    }
    OpResult result = findSystem();
    if (result) result = placeFrames();
    if (!result) return result;
    readPicture();
    readSound();
    findEnd();
    return result;
}

bool DvParser::readSequence(std::uint64_t offset, DvSequence& sequence) {
    const std::uint8_t* head = m_file.at(offset, DvSequence::s_headSize);
    return head != nullptr && sequence.read(head);
}

// The first sequence that starts at `from` or behind it, and before `end`.
bool DvParser::findSequence(std::uint64_t from, std::uint64_t end, DvSequence& sequence, std::uint64_t& at) {
    at = from;
    while (findLikeness(end, at)) {
        if (readSequence(at, sequence)) return true;
        ++at;
    }
    return false;
}

// Moves `at` to the next place before `end` that looks like the start of a sequence.
bool DvParser::findLikeness(std::uint64_t end, std::uint64_t& at) {
    constexpr unsigned look = DvSequence::s_lookSize;
    while (at < end && at < m_file.length()) {
        const auto count = static_cast<unsigned>(std::min<std::uint64_t>(FileWindow::s_size, m_file.length() - at));
        const std::uint8_t* memory = count < look ? nullptr : m_file.at(at, count);
        if (memory == nullptr) return false;
        for (unsigned i = 0; i + look <= count && at < end; ++i, ++at) {
            if (DvSequence::looksLikeStart(memory + i)) return true;
        }
    }
    return false;
}

OpResult DvParser::findSystem() {
    DvVote lines, signal, application;
    for (unsigned i = 0; i < s_mostSequences; ++i) {
        DvSequence sequence;
        if (!readSequence(m_firstOffset + std::uint64_t{i} * s_sequence, sequence)) continue;
        if (sequence.m_hasHeader) {
            lines.add(sequence.m_is625);
            application.add(sequence.m_apt);
        }
        if (sequence.m_hasSignal) signal.add(sequence.m_signal);
        if (lines.settled() && application.settled() && signal.settled()) break;
    }
    if (!lines.any()) return MO_WARNING(MediaCode::ParserError, "dv: no sequence has a header");
    m_format.isPro = application.best() != 0;
    m_hasSignal = signal.any();
    m_signal = m_hasSignal ? static_cast<unsigned>(signal.best()) : 0;
    return chooseSystem(lines.best() != 0);
}

OpResult DvParser::chooseSystem(bool is625) {
    const unsigned apt = m_format.isPro ? 1 : 0;
    m_format.system = m_hasSignal ? DvSystem::find(is625, m_signal, apt) : nullptr;
    if (m_format.system != nullptr) return OpResult(OpResult::Ok);
    // A stream that doesn't say it is of the basic kind, if its second frame doesn't speak against that.
    const DvSystem& basic = DvSystem::basic(is625, apt);
    DvSequence next;
    const bool hasNext = readSequence(m_firstOffset + basic.frameSize(), next);
    const bool repeats = hasNext && next.m_number == m_first.m_number && next.m_second == m_first.m_second;
    if (repeats || (!hasNext && !m_hasSignal && !m_first.m_second)) {
        m_format.system = &basic;
        return OpResult(OpResult::Ok);
    }
    if (m_hasSignal) {
        return refuse(MediaCode::UnsupportedMediaType, FormatStr("dv: signal type 0x%02x of %s is not supported",
                                                                 m_signal, is625 ? "625/50" : "525/60"));
    }
    return MO_WARNING(MediaCode::ParserError, "dv: the stream doesn't say its signal type");
}

// Which sequence of its frame this one is.
unsigned DvParser::placeInFrame(const DvSequence& sequence) const {
    const DvSystem& system = *m_format.system;
    unsigned channel = 0;
    if (system.channels > 1 && sequence.m_second) channel += 1;
    if (system.channels > 2 && sequence.m_laterPair) channel += 2;
    return channel * system.sequences() + sequence.m_number % system.sequences();
}

std::uint64_t DvParser::offsetOf(std::uint64_t frame, unsigned sequence) const {
    return m_format.baseOffset + frame * m_format.system->frameSize() + std::uint64_t{sequence} * s_sequence;
}

// From the first sequence follows where frames start. One of which more than half is missing isn't shown.
OpResult DvParser::placeFrames() {
    const DvSystem& system = *m_format.system;
    const unsigned place = placeInFrame(m_first);
    const std::uint64_t before = std::uint64_t{place} * s_sequence;
    const bool whole = before <= m_firstOffset && place * 2 <= system.frameSequences();
    m_format.baseOffset = whole ? m_firstOffset - before : m_firstOffset + system.frameSize() - before;
    if (m_format.baseOffset <= m_file.length()) {
        m_format.frames = (m_file.length() - m_format.baseOffset) / system.frameSize();
    }
    if (m_format.frames != 0) return OpResult(OpResult::Ok);
    return refuse(MediaCode::ParserError,
                  FormatStr("dv: the file has no whole frame of %u bytes (%s)", system.frameSize(), system.name));
}

void DvParser::readPicture() {
    const DvSystem& system = *m_format.system;
    DvVote control, timecode;
    for (unsigned i = 0; i < system.sequences() && !(control.settled() && timecode.settled()); ++i) {
        DvSequence sequence;
        if (!readSequence(offsetOf(0, i), sequence)) continue;
        if (sequence.m_hasControl) {
            control.add((sequence.m_interlaced ? 0x100u : 0u) | sequence.m_bcSystem << 4 | sequence.m_display);
        }
        if (!sequence.m_hasTimecode) continue;
        const std::uint64_t later = sequence.m_laterPair ? 1 : 0, drop = sequence.m_dropFlag ? 1 : 0;
        timecode.add(later << 33 | drop << 32 | sequence.m_timecode);
    }
    const auto said = static_cast<unsigned>(control.any() ? control.best() : 0x103);
    if (control.any() || system.isHighDef()) {
        m_format.aspect = aspectOf(system, said & 7, said >> 4 & 3, m_format.isPro ? 1 : 0);
    }
    const bool progressive = system.isHalfOfPair() || (said & 0x100) == 0;
    m_format.scan = progressive ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced;
    if (timecode.any()) {
        const std::uint64_t best = timecode.best();
        readTimecode(static_cast<std::uint32_t>(best), (best >> 32 & 1) != 0, (best >> 33 & 1) != 0);
    }
}

// A timecode counts the frames of an interlaced signal: two progressive ones have the same.
void DvParser::readTimecode(std::uint32_t digits, bool dropFlag, bool laterPair) {
    const DvSystem& system = *m_format.system;
    const unsigned frames = decimal(digits >> 24);
    if (frames >= (system.is625 ? 25u : 30u)) return;
    MediaTimecode& timecode = m_format.timecode;
    const bool doubled = system.isHalfOfPair();
    timecode.m_frames = static_cast<std::uint8_t>(doubled ? frames * 2 + (laterPair ? 1 : 0) : frames);
    timecode.m_seconds = static_cast<std::uint8_t>(decimal(digits >> 16 & 0xFF));
    timecode.m_minutes = static_cast<std::uint8_t>(decimal(digits >> 8 & 0xFF));
    timecode.m_hours = static_cast<std::uint8_t>(decimal(digits & 0xFF));
    timecode.m_dropFrame = dropFlag && !system.is625;  // in 625 lines that bit is free for any use
    timecode.m_rate = MediaObj::getRealVideoRate(system.videoRate);
}

void DvParser::readSound() {
    readSoundOfFrame(0);
    if (!m_format.system->isHalfOfPair() || m_format.frames < 2) return;
    // Where the frames of a pair are told apart, the second one has channels of its own.
    DvSequence one, two;
    const bool both = readSequence(offsetOf(0, 0), one) && readSequence(offsetOf(1, 0), two);
    if (both && one.m_laterPair != two.m_laterPair) readSoundOfFrame(1);
}

void DvParser::readSoundOfFrame(std::uint64_t frame) {
    const DvSystem& system = *m_format.system;
    for (unsigned channel = 0; channel < system.channels; ++channel) {
        for (unsigned half = 0; half < 2; ++half)
            addSound(offsetOf(frame, channel * system.sequences()), half);
    }
}

// The sound of the first half or the second half of a channel's sequences. It counts if it is of the same kind as what
// was found before it.
void DvParser::addSound(std::uint64_t channelStart, unsigned half) {
    const unsigned count = m_format.system->sequences() / 2, first = half * count;
    DvVote vote;
    for (unsigned i = first; i < first + count && !vote.settled(); ++i) {
        const unsigned block = audioSourceBlock(i);
        const std::uint64_t at = channelStart + std::uint64_t{i} * s_sequence + block * s_block;
        const std::uint8_t* memory = m_file.at(at, s_idSize + s_packSize);
        if (memory == nullptr || !isBlock(memory, blockAt(block))) continue;
        const std::uint8_t* pack = memory + s_idSize;
        if (pack[0] == static_cast<std::uint8_t>(PackId::AudioSource)) vote.add(packSound(pack));
    }
    const DvAudio found = vote.any() ? unpackSound(vote.best()) : DvAudio();
    if (found.channels == 0) return;
    DvAudio& audio = m_format.audio;
    if (audio.channels == 0) {
        audio = found;
    } else if (audio.rate == found.rate && audio.bits == found.bits && audio.perHalf == found.perHalf) {
        audio.channels += found.channels;
    }
}

// The stream ends for us where another system begins, or where the beat of its frames is lost. A few frames are looked
// at; where one doesn't fit, the place is narrowed down by halves.
void DvParser::findEnd() {
    const std::uint64_t count = m_format.frames;
    std::uint64_t same = 0;
    for (const std::uint64_t frame : {count / 4, count / 2, count / 4 * 3, count - 1}) {
        if (frame <= same) continue;
        const Finding finding = look(frame);
        if (finding == Finding::Same) same = frame;
        if (finding != Finding::Other) continue;
        m_format.frames = m_format.maxFrames = lastBeforeChange(same, frame) + 1;
        return;
    }
}

// The last frame of the stream, between one that belongs to it and one that doesn't. Damaged frames belong to it.
std::uint64_t DvParser::lastBeforeChange(std::uint64_t same, std::uint64_t other) {
    constexpr std::uint64_t tries = 3;
    while (other - same > 1) {
        const std::uint64_t middle = same + (other - same) / 2;
        std::uint64_t at = middle;
        Finding finding = look(at);
        while (finding == Finding::Unclear && at + 1 < other && at + 1 < middle + tries)
            finding = look(++at);
        if (finding == Finding::Other) {
            other = middle;
        } else {
            same = at;
        }
    }
    return same;
}

// Two sequences must agree that a frame doesn't belong here: one may be damaged.
DvParser::Finding DvParser::look(std::uint64_t frame) {
    const Finding one = lookAt(frame, 0);
    if (one != Finding::Other) return one;
    const Finding two = lookAt(frame, 1);
    return two == Finding::Other ? two : Finding::Unclear;
}

DvParser::Finding DvParser::lookAt(std::uint64_t frame, unsigned sequence) {
    const std::uint64_t expected = offsetOf(frame, sequence);
    DvSequence found;
    if (readSequence(expected, found)) return isExpected(found, sequence) ? Finding::Same : Finding::Other;
    return isHole(expected) ? Finding::Unclear : lookNearby(expected, sequence);
}

// Where no sequence starts although one ought to: the next one tells whether the beat is lost.
DvParser::Finding DvParser::lookNearby(std::uint64_t expected, unsigned sequence) {
    constexpr std::uint64_t reach = s_sequence + s_sequence / 2;
    DvSequence found;
    std::uint64_t at = 0;
    if (!findSequence(expected + 1, expected + reach, found, at)) return Finding::Unclear;
    if (at - expected != s_sequence) return Finding::Other;
    return isExpected(found, sequence + 1) ? Finding::Unclear : Finding::Other;
}

bool DvParser::isExpected(const DvSequence& found, unsigned sequence) const {
    const DvSystem& system = *m_format.system;
    if (placeInFrame(found) != sequence || found.m_number != sequence) return false;
    if (found.m_hasHeader && found.m_is625 != system.is625) return false;
    if (found.m_hasSignal && m_hasSignal && found.m_signal != m_signal) return false;
    const bool aptTells = found.m_hasHeader && system.is625 && system.channels == 1;
    return !aptTells || (found.m_apt != 0) == m_format.isPro;
}

// A stretch of zeros, as a sparse file has.
bool DvParser::isHole(std::uint64_t offset) {
    const std::uint8_t* memory = m_file.at(offset, DvSequence::s_headSize);
    return memory != nullptr && memory[0] == 0 && std::memcmp(memory, memory + 1, DvSequence::s_headSize - 1) == 0;
}
