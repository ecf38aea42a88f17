#pragma once

#include "backends/common/file_window.h"
#include "backends/dv/dv_format.h"
#include "backends/dv/dv_sequence.h"
#include "support/op_result.h"

// Finds out what a raw DIF stream is from the stream itself: where its frames start, which system they are of, what
// sound rides in them. Each fact is asked of several sequences, so that damage here and there does no harm.
// Bounded: it looks for a sequence in the first `s_searchBytes`, into each sequence of one or two frames, and at a few
// frames further on, whose number grows with the logarithm of the file's length at most. Reads no essence else.
// **Threads:** one.
class DvParser {
public:
    static constexpr unsigned s_searchBytes = 256u << 10;

    explicit DvParser(FileWindow& file) : m_file(file) {}

    // Fails: a warning whose sentence names what is wrong and where; `format` is then of no use.
    OpResult parse(DvFormat& format);

private:
    // What stands where a frame of the stream ought to.
    enum class Finding : std::uint32_t { Same = 0, Other = 1, Unclear = 2 };

    OpResult parseStream();
    OpResult findSystem();
    OpResult chooseSystem(bool is625);
    OpResult placeFrames();
    void readPicture();
    void readTimecode(std::uint32_t digits, bool dropFlag, bool laterPair);
    void readSound();
    void readSoundOfFrame(std::uint64_t frame);
    void addSound(std::uint64_t channelStart, unsigned half);

    void findEnd();
    std::uint64_t lastBeforeChange(std::uint64_t same, std::uint64_t other);
    Finding look(std::uint64_t frame);
    Finding lookAt(std::uint64_t frame, unsigned sequence);
    Finding lookNearby(std::uint64_t expected, unsigned sequence);
    bool isExpected(const DvSequence& found, unsigned sequence) const;
    bool isHole(std::uint64_t offset);

    bool readSequence(std::uint64_t offset, DvSequence& sequence);
    bool findSequence(std::uint64_t from, std::uint64_t end, DvSequence& sequence, std::uint64_t& at);
    bool findLikeness(std::uint64_t end, std::uint64_t& at);
    std::uint64_t offsetOf(std::uint64_t frame, unsigned sequence) const;
    unsigned placeInFrame(const DvSequence& sequence) const;

    FileWindow& m_file;
    DvFormat m_format;
    std::uint64_t m_firstOffset = 0;  // of the first sequence that was found
    DvSequence m_first;
    bool m_hasSignal = false;  // then:
    unsigned m_signal = 0;     // what the stream says, known or not
};
