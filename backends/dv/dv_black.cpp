#include "backends/dv/dv_black.h"

#include <cstring>
#include <iterator>

#include "backends/dv/dv_sequence.h"

using namespace DvLayout;

namespace {

constexpr std::uint8_t s_nothing = 0xFF;

// The frame that is being made, and the place in it.
struct Place {
    const DvSystem& system;
    std::uint8_t apt;
    MediaAspectRatio aspect;
    const DvAudio& audio;
    unsigned channel;
    unsigned sequence;

    bool isFirstHalf() const { return sequence < system.sequences() / 2; }
};

void writeId(const Place& place, BlockId id, std::uint8_t* block) {
    constexpr std::uint8_t types[] = {0x1F, 0x3F, 0x56, 0x76, 0x96};
    const unsigned second = place.channel & 1, earlierPair = place.channel < 2 ? 1 : 0;
    block[0] = types[static_cast<unsigned>(id.section)];
    block[1] = static_cast<std::uint8_t>(place.sequence << 4 | second << 3 | earlierPair << 2 | 3);
    block[2] = id.number;
}

void writePack(std::uint8_t* at, PackId id, unsigned one, unsigned two, unsigned three, unsigned four) {
    at[0] = static_cast<std::uint8_t>(id);
    at[1] = static_cast<std::uint8_t>(one);
    at[2] = static_cast<std::uint8_t>(two);
    at[3] = static_cast<std::uint8_t>(three);
    at[4] = static_cast<std::uint8_t>(four);
}

void writeHeader(const Place& place, std::uint8_t* block) {
    block[3] = place.system.is625 ? 0xBF : 0x3F;
    block[4] = 0xF8 | place.apt;
    std::memset(block + 5, 0x78 | place.apt, 3);  // sound, picture and subcode are all there
}

// Ids of the sync blocks; their packs stay without information.
void writeSubcode(const Place& place, unsigned number, std::uint8_t* block) {
    for (unsigned i = 0; i < s_syncBlocks; ++i) {
        const unsigned sync = number * s_syncBlocks + i;
        std::uint8_t* id = block + s_idSize + i * s_syncBlockSize;
        const unsigned half = place.isFirstHalf() ? 0x80 : 0;
        const bool hasApplication = sync == 0 || sync == s_syncBlocks;
        const unsigned low = sync == 11 ? 0x7Fu : hasApplication ? place.apt << 4 | 0x0Fu : 0x0Fu;
        id[0] = static_cast<std::uint8_t>(half | low);
        id[1] = static_cast<std::uint8_t>(0xF0 | sync);
        id[2] = 0xFF;
    }
}

void writeVideoPacks(const Place& place, std::uint8_t* sequence) {
    std::uint8_t* source = sequence + videoSourcePack(place.sequence);
    const unsigned lines = place.system.is625 ? 0x20 : 0;
    const bool wide = place.system.isHighDef() || place.aspect == MediaAspectRatio::Ratio16x9;
    writePack(source, PackId::VideoSource, 0xFF, 0xFF, 0xC0 | lines | place.system.signal, 0xFF);
    writePack(source + s_packSize, PackId::VideoControl, 0x3F, 0xC8 | (wide ? 2u : 0u), 0xFC, 0xFF);
}

// The samples of one frame beyond the least that its system allows.
unsigned samplesAboveLeast(const DvSystem& system, unsigned rate) {
    switch (rate) {
        case 32000:
            return system.is625 ? 1280 - 1264 : 1066 - 1053;
        case 44100:
            return system.is625 ? 1764 - 1742 : 1470 - 1452;
        default:
            return system.is625 ? 1920 - 1896 : 1600 - 1580;
    }
}

unsigned codeOfRate(unsigned rate) { return rate == 32000 ? 2 : rate == 44100 ? 1 : 0; }

unsigned codeOfBits(unsigned bits) { return bits == 12 ? 1 : bits == 20 ? 2 : 0; }

// The packs of a sequence's sound, whose words are zeros: silence in every coding of them.
void writeAudio(const Place& place, std::uint8_t* sequence) {
    for (unsigned i = 0; i < s_audioBlocks; ++i) {
        std::uint8_t* words = sequence + (s_audioBlock + i * s_audioStride) * s_block + s_idSize + s_packSize;
        std::memset(words, 0, s_block - s_idSize - s_packSize);
    }
    const DvAudio& audio = place.audio;
    if (audio.channels == 0) return;
    const unsigned half = place.isFirstHalf() ? 0 : 1;
    const unsigned first = (place.channel * 2 + half) * audio.perHalf;
    const unsigned mode = first < audio.channels ? half : 0x0F;
    const unsigned lines = place.system.is625 ? 0x20 : 0;
    std::uint8_t* source = sequence + audioSourceBlock(place.sequence) * s_block + s_idSize;
    std::uint8_t* control = source + s_audioStride * s_block;
    writePack(source, PackId::AudioSource, 0x40 | samplesAboveLeast(place.system, audio.rate),
              (audio.perHalf - 1) << 5 | (audio.perHalf - 1) << 4 | mode, 0xC0 | lines | place.system.audioSignal,
              0xC0 | codeOfRate(audio.rate) << 3 | codeOfBits(audio.bits));
    const unsigned speed = place.apt == 0 ? 0x20 : place.system.is625 ? 0x64 : 0x78;  // the normal one, forward
    writePack(control, PackId::AudioControl, 0x03, 0xCF, 0x80 | speed, 0xFF);
}

// A transform block without detail: nine bits of level, two's complement, then its mode and class and the end's code.
void writeFlat(std::uint8_t* at, unsigned level) {
    at[0] = static_cast<std::uint8_t>(level >> 1);
    at[1] = static_cast<std::uint8_t>((level & 1) << 7 | 0x06);
}

// The macroblock of a video block: black is 16 of luma, 224 half steps below the middle, with chroma in the middle.
void writeMacroblock(const DvSystem& system, std::uint8_t* block) {
    constexpr unsigned black = 512 - 224, grey = 0, unused = 256;
    constexpr unsigned sd[] = {14, 14, 14, 14, 10, 10}, hd[] = {10, 10, 10, 10, 10, 10, 8, 8};
    const bool isSd422 = system.chroma == MediaChromaSample::C422 && !system.isHighDef();
    block[s_idSize] = 0x0F;  // no error, the finest quantisation
    std::uint8_t* at = block + s_idSize + 1;
    const std::size_t count = system.isHighDef() ? std::size(hd) : std::size(sd);
    for (std::size_t i = 0; i < count; ++i) {
        // In 4:2:2 of 50 Mbit/s the second and fourth place hold what the blocks before them have no room for.
        const bool isSpare = isSd422 && (i == 1 || i == 3);
        writeFlat(at, isSpare ? unused : i < 4 ? black : grey);
        at += system.isHighDef() ? hd[i] : sd[i];
    }
}

void writeSequence(const Place& place, std::uint8_t* sequence) {
    std::memset(sequence, s_nothing, s_sequence);
    for (unsigned i = 0; i < s_sequenceBlocks; ++i) {
        std::uint8_t* block = sequence + i * s_block;
        const BlockId id = blockAt(i);
        writeId(place, id, block);
        if (id.section == Section::Header) writeHeader(place, block);
        if (id.section == Section::Subcode) writeSubcode(place, id.number, block);
        if (id.section == Section::Video) writeMacroblock(place.system, block);
    }
    writeVideoPacks(place, sequence);
    writeAudio(place, sequence);
}

// Where only one of the two standards has the system, that one counts.
bool isProFrame(const DvSystem& system, bool isPro) {
    if (system.channels > 1) return true;
    return system.is625 ? system.chroma == MediaChromaSample::C411 : isPro;
}

}  // namespace

void DvBlack::write(const DvSystem& system, bool isPro, MediaAspectRatio aspect, const DvAudio& audio,
                    std::uint8_t* frame) {
    Place place{system, static_cast<std::uint8_t>(isProFrame(system, isPro) ? 1 : 0), aspect, audio, 0, 0};
    for (place.channel = 0; place.channel < system.channels; ++place.channel) {
        for (place.sequence = 0; place.sequence < system.sequences(); ++place.sequence) {
            writeSequence(place, frame);
            frame += s_sequence;
        }
    }
}

bool DvBlack::isFrame(const DvSystem& system, const std::uint8_t* frame, std::uint64_t size) {
    if (frame == nullptr || size != system.frameSize()) return false;
    DvSequence sequence;
    unsigned good = 0;
    for (unsigned i = 0; i < system.frameSequences(); ++i) {
        if (!sequence.read(frame + std::uint64_t{i} * s_sequence) || !sequence.m_hasHeader) continue;
        const bool isRight = sequence.m_number == i % system.sequences() && sequence.m_is625 == system.is625 &&
                             (!sequence.m_hasSignal || sequence.m_signal == system.signal);
        if (isRight) ++good;
    }
    return good * 2 > system.frameSequences();
}
