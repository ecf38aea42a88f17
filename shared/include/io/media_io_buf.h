#pragma once

#include <cstdint>

#include "shared/include/description/media_clip_param.h"
#include "support/visibility.h"

class MediaClipDesc;

// A flat block of memory for media, at most 8 MiB, that keeps its memory when it shrinks.
// **Threads:** one at a time. **Owns:** its block, unless that is foreign. **Units:** bytes.
class MO_PUBLIC MediaIoBuf {
public:
    enum class Preservation : std::uint32_t { Discard = 0, Keep = 1 };
    enum class AllocChange : std::uint32_t {
        KeepForeign = 0,  // a foreign block isn't replaced
        OwnBlock = 1      // the buffer ends up with a block of its own
    };

    static constexpr std::uint32_t s_maxSize = 0x800000;

    MediaIoBuf() = default;
    // A copy has its own block; it is empty when memory doesn't come.
    MediaIoBuf(const MediaIoBuf& other);
    // Leaves this buffer as it was when memory doesn't come.
    MediaIoBuf& operator=(const MediaIoBuf& other);
    virtual ~MediaIoBuf();

    // Requires: no `Preservation::Keep` together with `AllocChange::OwnBlock`.
    // Fails: false; contents and sizes are as they were.
    bool resize(unsigned int size, Preservation keep, AllocChange change);

    std::uint32_t size() const { return m_size; }
    const unsigned char* getMem() const { return m_mem; }
    unsigned char* getMem() { return m_mem; }

protected:
    void freeBuf();

    unsigned char* m_mem = nullptr;  // null when empty
    std::uint32_t m_capacity = 0;    // bytes allocated
    std::uint32_t m_size = 0;        // bytes in use
    std::uint32_t m_foreign = 0;     // 1 when the block belongs to somebody else and isn't freed
};

// A flat buffer sized for the least number of samples that a clip is read in.
class MO_PUBLIC MediaSampleBuf : public MediaIoBuf {
public:
    // Empty when the clip's numbers ask for more than a block can hold.
    explicit MediaSampleBuf(const MediaClipDesc& clip);

    static constexpr unsigned int bytesPerSample(unsigned int bits) { return (bits + 7) / 8; }

    const MediaClipParam& getParam() const { return m_param; }
    bool isMpegBuf() const { return m_isMpeg; }

private:
    MediaClipParam m_param;  // of the clip that the buffer was sized for
    bool m_isMpeg;
};
