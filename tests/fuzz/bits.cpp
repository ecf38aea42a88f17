#include <memory>
#include <vector>

#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_parser.h"
#include "tests/fuzz/fuzz_input.h"

// The bit parser over memory in pieces, through any run of its operations,
// beside a plain row of bits. The input is the number of pieces, their lengths,
// where a greatest one stands for a piece without memory, and then the
// operations: a byte that says which, and one that it takes.

namespace {

using fuzz::require;

// Pieces of exactly their length on the heap, so that a byte read beside one is
// seen.
class Pieces {
public:
    void add(unsigned length, bool hasMemory) {
        m_memory.emplace_back(new unsigned char[length]);
        for (unsigned i = 0; i < length && hasMemory; ++i) {
            m_memory.back()[i] = static_cast<unsigned char>(m_bytes.size() * 167 % 251);
            m_bytes.push_back(m_memory.back()[i]);
        }
        m_list.push_back({hasMemory ? m_memory.back().get() : nullptr, length});
    }
    void give(BitChunkParser& parser) { parser.setList(static_cast<unsigned>(m_list.size()), m_list.data()); }
    const std::vector<unsigned char>& bytes() const { return m_bytes; }

private:
    std::vector<std::unique_ptr<unsigned char[]>> m_memory;
    std::vector<simpleSgl_s> m_list;
    std::vector<unsigned char> m_bytes;
};

// The same as bits in a row. `m_at` goes on behind the end, as far as padding
// was taken.
struct Plain {
    std::vector<unsigned char> m_bytes;
    unsigned long long m_at = 0;
    unsigned long long m_offset = 0;
    unsigned long long m_padding = 0;  // bits of it that were taken
    bool m_padded = false;             // some may have been made

    unsigned long long size() const { return m_bytes.size() * 8ull; }
    unsigned long long left() const { return m_at < size() ? size() - m_at : 0; }
    unsigned bit(unsigned long long at) const {
        return at < size() ? m_bytes[static_cast<std::size_t>(at / 8)] >> (7 - at % 8) & 1u : 0;
    }
    std::uint32_t peek(unsigned count) {
        std::uint32_t value = 0;
        for (unsigned i = 0; i < count; ++i)
            value = value << 1 | bit(m_at + i);
        m_padded = m_padded || count > left();
        return value;
    }
    std::uint32_t take(unsigned count) {
        const std::uint32_t value = peek(count);
        step(count);
        return value;
    }
    void align() { step((8 - m_at % 8) % 8); }
    void step(unsigned long long count) {
        m_padding += count - std::min(count, left());
        m_at += count;
    }
    // Padding that nobody has taken is forgotten by whatever goes by whole bytes.
    void settle() { m_at = std::min(m_at, size()); }
};

void checkState(BitChunkParser& parser, const Plain& plain) {
    require(parser.validate());
    require(parser.getUnparsedBits() == plain.left() && parser.getUnparsedBytes() == plain.left() / 8);
    require(parser.isByteAligned() == (plain.m_at % 8 == 0));
    require(parser.getStreamPosition() == plain.m_offset + std::min(plain.m_at, plain.size()) / 8);
    require(parser.getPadBits() >= plain.m_padding && parser.getPadBits() - plain.m_padding <= 64);
    require(plain.m_padded || parser.getPadBits() == 0);
}

void discard(BitChunkParser& parser, Plain& plain, unsigned bytes) {
    plain.settle();
    const auto there = static_cast<unsigned>(std::min<unsigned long long>(bytes, plain.left() / 8));
    require(parser.discard(bytes) == there);
    plain.m_at += there * 8ull;
}

void copy(BitChunkParser& parser, Plain& plain, unsigned bytes) {
    const auto there = static_cast<unsigned>(std::min<unsigned long long>(bytes, plain.left() / 8));
    const std::unique_ptr<unsigned char[]> memory(new unsigned char[there]);
    if (plain.m_at % 8 == 0) plain.settle();
    require(parser.extractTo(memory.get(), bytes) == there);
    for (unsigned i = 0; i < there; ++i)
        require(memory[i] == plain.take(8));
}

// What goes to another parser is there what it was here.
void handOver(BitChunkParser& parser, Plain& plain, unsigned bytes) {
    const bool aligned = plain.m_at % 8 == 0;
    if (aligned) plain.settle();
    const auto there = static_cast<unsigned>(std::min<unsigned long long>(bytes, plain.left() / 8));
    BitChunkParser to;
    require(parser.extract(to, bytes) == (aligned ? there : 0) && to.validate());
    require(to.getUnparsedBytes() == (aligned ? there : 0));
    while (to.getUnparsedBytes() > 0)
        require(to.decodeByte() == plain.take(8));
}

void peekPiece(BitChunkParser& parser, Plain& plain) {
    const bool aligned = plain.m_at % 8 == 0;
    const simpleSgl_s piece = parser.peekPiece();
    if (aligned) plain.settle();
    require((piece.m_length != 0) == (aligned && plain.left() != 0) && piece.m_length <= plain.left() / 8);
    for (unsigned i = 0; i < piece.m_length; ++i)
        require(piece.m_start[i] == plain.m_bytes[static_cast<std::size_t>(plain.m_at / 8 + i)]);
}

// Without padding no bit is made up.
void reload(BitChunkParser& parser, Plain& plain, unsigned bits) {
    const unsigned long long padding = parser.getPadBits();
    const bool loaded = parser.reloadSlow(bits, false);
    require(parser.getPadBits() == padding && (!loaded || bits <= 64));
    require(loaded || bits > 57 || plain.left() < bits);
}

// Bytes that are parsed wholly are not to be had again, but they count in every
// offset.
void startAgain(BitChunkParser& parser, Plain& plain) {
    parser.garbageCollect();
    plain.settle();
    const unsigned long long gone = parser.getSegFileOffset(0, false);
    require(gone <= (plain.m_at + 7) / 8 && parser.getSegFileOffset(~0u, true) == plain.m_bytes.size());
    require(parser.getSegStreamOffset(0, false) == plain.m_offset + gone);
    checkState(parser, plain);
    parser.reset(false);
    plain.m_at = gone * 8;
    plain.m_padding = 0;
    plain.m_padded = false;
}

void operate(BitChunkParser& parser, Plain& plain, unsigned operation, unsigned number) {
    const unsigned bits = std::min(number % 40, 32u);
    switch (operation % 10) {
        case 0:
            require(parser.decodeBits(number % 40) == plain.take(bits));
            break;
        case 1:
            require(parser.peekBits(number % 40) == plain.peek(bits));
            break;
        case 2:
            require(parser.decodeByte() == plain.take(8));
            break;
        case 3:
            parser.alignToByte();
            plain.align();
            break;
        case 4:
            discard(parser, plain, number == 255 ? 0xFFFFFFFFu : number);
            break;
        case 5:
            copy(parser, plain, number);
            break;
        case 6:
            handOver(parser, plain, number);
            break;
        case 7:
            peekPiece(parser, plain);
            break;
        case 8:
            reload(parser, plain, number % 80);
            break;
        default:
            startAgain(parser, plain);
            break;
    }
}

void run(BitChunkParser& parser, Plain plain, fuzz::Input input) {
    require(parser.reserveInputBytes(static_cast<unsigned>(plain.m_bytes.size())));
    require(!parser.reserveInputBytes(static_cast<unsigned>(plain.m_bytes.size()) + 1));
    checkState(parser, plain);
    while (!input.empty()) {
        const unsigned operation = input.byte();
        operate(parser, plain, operation, input.byte());
        checkState(parser, plain);
    }
}

void runFlat(const std::vector<unsigned char>& bytes, const fuzz::Input& input) {
    MediaIoBuf buf;
    require(buf.resize(static_cast<unsigned>(bytes.size()), MediaIoBuf::Preservation::Discard,
                       MediaIoBuf::AllocChange::KeepForeign));
    std::copy(bytes.begin(), bytes.end(), buf.getMem());
    MediaParser parser;
    require(parser.setBuf(buf));
    run(parser, Plain{bytes}, input);
}

// Every piece by itself, joined to those before it.
void runSegmented(const std::vector<unsigned char>& bytes, unsigned piece, const fuzz::Input& input) {
    phantom_OBUF* const whole = obufAllocate(0, 0);
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        const auto count = static_cast<unsigned>(std::min<std::size_t>(piece, bytes.size() - at));
        phantom_OBUF* const part = obufAllocate(0, count);
        iovec memory[1];
        require(obufNTranslateHost(part, memory, 1) == 1);
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), count,
                    static_cast<unsigned char*>(memory[0].iov_base));
        require(obufInsert(whole, part, obufAppend) != 0);
    }
    MediaParser parser;
    require(parser.setObuf(whole) == !bytes.empty());
    run(parser, Plain{bytes}, input);
    obufFree(whole);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    Pieces pieces;
    const unsigned kind = input.byte();
    for (unsigned left = kind % 16; left > 0; --left) {
        const unsigned length = input.byte();
        pieces.add(length % 64, length != 255);
    }
    const unsigned long long offset = input.word();
    BitChunkParser parser;
    pieces.give(parser);
    parser.setStreamOffset(offset);
    run(parser, Plain{pieces.bytes(), 0, offset}, input);
    if (kind >= 192) runFlat(pieces.bytes(), input);
    if (kind >= 128 && kind < 192) runSegmented(pieces.bytes(), offset % 32 + 8, input);
    return 0;
}
