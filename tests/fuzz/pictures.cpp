#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "backends/mov/mov_avc_config.h"
#include "backends/mov/mov_avc_sets.h"
#include "backends/mov/mov_picture_head.h"
#include "backends/mov/mov_picture_order.h"
#include "backends/mov/mov_picture_types.h"
#include "backends/mov/mov_run_index.h"
#include "backends/mov/mov_track_tables.h"
#include "tests/fuzz/fuzz_input.h"
#include "tests/kit/fake_file.h"

// What coded pictures say of themselves: read from a movie file, and looked at while one is recorded. The first byte of
// the input says what the rest is.

namespace {

using fuzz::require;

constexpr MediaEncodingType s_encodings[] = {MediaEncodingType::Mpeg,   MediaEncodingType::Mpeg1,
                                             MediaEncodingType::Mpeg4,  MediaEncodingType::Avc,
                                             MediaEncodingType::Prores, MediaEncodingType::Dnxhd};

// On the heap in its own size, for the sanitizer to see a step behind the end.
struct Exact {
    explicit Exact(const std::string& bytes) : m_size(bytes.size()), m_bytes(new std::uint8_t[bytes.size()]) {
        std::copy(bytes.begin(), bytes.end(), m_bytes.get());
    }
    const std::size_t m_size;
    const std::unique_ptr<std::uint8_t[]> m_bytes;
};

void checkConfig(const std::string& bytes) {
    const Exact exact(bytes);
    MovAvcConfig config;
    if (!config.read(exact.m_bytes.get(), exact.m_size)) return;
    require(config.lengthBytes >= 1 && config.lengthBytes <= 4);
    require(config.chroma <= MediaChromaSample::C444 && config.scan <= MediaVideoScanType::Progressive);
}

void checkSequence(const std::string& bytes) {
    const Exact exact(bytes);
    MovAvcSequence sequence;
    if (!sequence.read(exact.m_bytes.get(), exact.m_size)) return;
    require(sequence.number < 32 && sequence.mostLate <= MovAvcSequence::s_mostLate);
    require(sequence.frameNumberBits >= 4 && sequence.frameNumberBits <= 16);
    require(sequence.orderKind != 0 || (sequence.orderBits >= 4 && sequence.orderBits <= 16));
}

// What is found in a stream is a configuration of units that stand in it.
void checkSets(const std::string& bytes) {
    const Exact exact(bytes);
    const std::vector<std::uint8_t> found = MovAvcSets::configurationOf(exact.m_bytes.get(), exact.m_size);
    if (found.empty()) return;
    MovAvcConfig config;
    require(config.read(found.data(), found.size()) && config.lengthBytes == 4);
}

void checkHead(const std::string& bytes) {
    const Exact exact(bytes);
    for (const MediaEncodingType encoding : s_encodings) {
        MovEntry entry;
        entry.encoding = encoding;
        entry.width = 720;
        entry.height = 576;
        MovPictureHead::complete(entry, exact.m_bytes.get(), exact.m_size);
        require(entry.chroma <= MediaChromaSample::C444 && entry.scan <= MediaVideoScanType::Progressive);
        (void)MovPictureHead::isWanted(entry);
    }
}

void checkTypes(const std::string& bytes, unsigned lengthBytes) {
    kit::FakeFile file;
    file.m_content = bytes;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    for (const MediaEncodingType encoding : s_encodings) {
        const SampleCodingType type = MovPictureTypes::look(file, encoding, lengthBytes, 0, size);
        require(MovPictureTypes::tells(encoding) || type == SampleCodingType::Unknown);
        // A sample that says it is longer than the file.
        (void)MovPictureTypes::look(file, encoding, lengthBytes, size / 2, ~0u);
    }
    require(file.m_readCalls <= 2 * 6 * static_cast<int>(MovPictureTypes::s_units));
}

// Pictures one behind the other, each behind a byte with its length. All are told of in the tables, in steps: nothing
// is shown before it is decoded, and what has been settled stays.
void checkOrder(fuzz::Input input) {
    const unsigned step = input.byte() % 7 + 1;
    MovPictureOrder order;
    MovRunIndex index(0);
    MovTrackTables tables(0, true);
    std::vector<std::uint8_t> settled;
    std::uint64_t samples = 0, offset = 0;
    const auto tell = [&] {
        std::vector<std::uint8_t> encoded;
        tables.tell(index, tables.getSamples(), samples, 1, order);
        const std::uint64_t count = tables.getSettled(MovTrackTables::Order);
        require(count <= tables.getEntries(MovTrackTables::Order));
        tables.encode(MovTrackTables::Order, 0, count, false, 1, encoded);
        require(encoded.size() >= settled.size() && std::equal(settled.begin(), settled.end(), encoded.begin()));
        settled = encoded;
    };
    while (!input.empty()) {
        const Exact picture(input.bytes(input.byte() + 1));
        SampleInfo info;
        info.reset(static_cast<std::uint32_t>(picture.m_size));
        order.look(samples, picture.m_bytes.get(), picture.m_size);
        if (!index.add(offset, 1, info)) return;
        offset += picture.m_size;
        if (++samples % step == 0) tell();
    }
    tell();
    require(tables.getEntries(MovTrackTables::Order) == samples && tables.getLate() <= MovAvcSequence::s_mostLate);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t longest = 8192;
    if (size > longest) return 0;
    fuzz::Input input(data, size);
    const unsigned kind = input.byte();
    if (kind % 6 == 5) {
        checkOrder(input);
        return 0;
    }
    const std::string bytes = input.rest();
    if (kind % 6 == 0) checkConfig(bytes);
    if (kind % 6 == 1) checkSequence(bytes);
    if (kind % 6 == 2) checkSets(bytes);
    if (kind % 6 == 3) checkHead(bytes);
    if (kind % 6 == 4) checkTypes(bytes, kind / 6 % 5);
    return 0;
}
