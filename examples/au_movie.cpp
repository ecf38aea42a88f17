// A format back-end in one file: AU, the audio file of a 24-byte header and big-endian samples behind it. The program
// registers it, opens a file through the core as every other movie, describes it, and writes its samples to standard
// output as they lie in the file. docs/writing-a-back-end.md goes through it step by step.

#include <mediaobj>

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace {

// What the header says. Source: the AU header as the pages of its many readers give it: six big-endian words.
struct AuHeader {
    static constexpr unsigned s_size = 24;
    static constexpr std::uint32_t s_magic = 0x2E736E64;     // ".snd"
    static constexpr std::uint32_t s_openEnd = 0xFFFFFFFFu;  // the recorder didn't know

    std::uint64_t m_offset = 0;   // bytes from the file's start to the first sample
    std::uint64_t m_samples = 0;  // whole ones
    std::uint32_t m_rate = 0;     // Hz
    std::uint32_t m_channels = 0;
    std::uint32_t m_bits = 0;  // of one channel's word

    std::uint32_t sampleSize() const { return m_channels * m_bits / 8; }
};

OpResult refuse(const char* sentence) { return MO_WARNING(MediaCode::UnsupportedMediaType, sentence); }

std::uint32_t word(const unsigned char* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

std::uint32_t bitsOf(std::uint32_t coding) { return coding >= 2 && coding <= 5 ? (coding - 1) * 8 : 0; }

// Reads the header and nothing else, and believes none of it.
OpResult parse(BasicFileIO& file, AuHeader& au) {
    unsigned char bytes[AuHeader::s_size];
    if (!file.open() || file.readAt(0, bytes, sizeof bytes) != static_cast<int>(sizeof bytes) ||
        word(bytes) != AuHeader::s_magic)
        return refuse("au: no header");
    au.m_offset = word(bytes + 4);
    au.m_bits = bitsOf(word(bytes + 12));
    au.m_rate = word(bytes + 16);
    au.m_channels = word(bytes + 20);
    if (au.m_bits == 0) return refuse("au: this coding is not read");
    if (au.m_rate == 0 || au.m_channels == 0 || au.m_channels > 32) return refuse("au: no such rate or channels");
    const std::uint64_t length = file.getLength();
    if (au.m_offset < AuHeader::s_size || au.m_offset > length) return refuse("au: the samples are not in the file");
    const std::uint32_t claimed = word(bytes + 8);
    const std::uint64_t there = length - au.m_offset;
    au.m_samples = (claimed == AuHeader::s_openEnd ? there : std::min<std::uint64_t>(claimed, there)) / au.sampleSize();
    return OpResult(OpResult::Ok);
}

// From a sample to its place: all samples have one size, so the core works it out.
class AuLookup final : public FixedMediaLookup {
public:
    AuLookup(const AuHeader& au, const MediaClipDesc& clip)
        : FixedMediaLookup(MediaOffsetSummary(au.sampleSize(), au.m_offset, au.m_samples,
                                              au.m_offset + au.m_samples * au.sampleSize())),
          m_clip(clip) {}

    const MediaClipDesc& getClip() const override { return m_clip; }

private:
    const MediaClipDesc& m_clip;  // borrowed: the owner
};

class AuClip final : public MediaClipDesc {
public:
    AuClip(MediaTrackDesc& track, const AuHeader& au, MediaIdRec* file)
        : MediaClipDesc(MediaContainment::Embedded), m_track(track), m_lookup(new AuLookup(au, *this)) {
        m_mediaId = file;
        m_encoding = MediaEncodingType::Pcm;
        m_endian = MediaEndian::Big;
        m_sampleRate = au.m_rate;
        m_channels = static_cast<std::uint16_t>(au.m_channels);
        m_bitsPerUnit = m_maxBitsPerSample = static_cast<std::uint16_t>(au.m_bits);
        m_bitrate =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(std::uint64_t{au.m_rate} * au.sampleSize() * 8, ~0u));
        m_minSamples = 1;
        m_length = au.m_samples;
    }
    ~AuClip() override { m_lookup->release(); }

    unsigned getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned) const override { return nullptr; }
    unsigned getClipIndex() const override { return 0; }
    MediaTrackDesc& getTrack() override { return m_track; }
    const MediaTrackDesc& getTrack() const override { return m_track; }
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }

private:
    MediaTrackDesc& m_track;  // borrowed: the owner
    AuLookup* m_lookup;       // one reference
};

class AuTrack final : public MediaTrackDesc {
public:
    AuTrack(MediaObj& movie, const AuHeader& au, MediaIdRec* file)
        : MediaTrackDesc(MediaDataType::Audio), m_movie(movie), m_clip(*this, au, file) {
        m_length = au.m_samples;
    }

    using MediaTrackDesc::createClip;
    MediaClipDesc* createClip(const MediaClipParam&, OpResult& result) override {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }
    MediaObj& getObj() override { return m_movie; }
    const MediaObj& getObj() const override { return m_movie; }
    unsigned getClipCount() const override { return 1; }
    MediaClipDesc* getClip(unsigned index) override { return index == 0 ? &m_clip : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override { return index == 0 ? &m_clip : nullptr; }
    unsigned getTrackIndex() const override { return 0; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

private:
    MediaObj& m_movie;  // borrowed: the owner
    AuClip m_clip;
};

class AuMovie final : public MediaObj {
public:
    AuMovie(AutoRefPtr<BasicFileIO> file, const AuHeader& au)
        : MediaObj(0, CacheRefValue::Cached), m_track(*this, au, allocMediaId(file)) {
        getDesc()->init(MediaFileType::Data, au.m_rate, false, MediaEncodingType::Pcm, MediaVideoRate::Unknown);
        getDesc()->setLength(m_track);
    }
    // What is registered: a movie of the file, or null with the reason.
    static MediaObj* openFile(AutoRefPtr<BasicFileIO> file, OpResult& result) {
        AuHeader au;
        result = file->writable() ? refuse("au: read only") : parse(*file, au);
        return result ? new AuMovie(file, au) : nullptr;
    }

    using MediaObj::createTrack;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return 1; }
    MediaTrackDesc* getTrackAt(unsigned index) override { return index == 0 ? &m_track : nullptr; }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return index == 0 ? &m_track : nullptr; }
    MediaTrackDesc* createTrack(const MediaClipParam&, OpResult& result) override {
        result = MO_WARNING(MediaCode::OperationUnsupported, nullptr);
        return nullptr;
    }

private:
    AuTrack m_track;
};

// Its place in the table: behind the built-in readers, which are asked first.
[[maybe_unused]] const unsigned s_registered =
    MediaObj::registerOpener(MediaReaderDesc(MediaFileType::Data, &AuMovie::openFile), 200);

// All samples to standard output, a second at a time.
bool writeSamples(const MediaObj& movie, const MediaClipDesc& clip) {
    MediaIoBuf buffer;
    MediaPlayReq request;
    for (std::uint64_t left = clip.getLength(); left > 0; left = clip.getLength() - request.m_sample) {
        MediaSampleInMovie where;
        // A request for many needs three samples at least.
        request.m_count = left < 3 ? 1 : static_cast<unsigned>(std::min<std::uint64_t>(left, clip.getSampleRate()));
        OpResult result(OpResult::Ok);
        if (!clip.getMediaOffset(request, where, result)) return result.discard(), false;
        if (!movie.vsRead(where, buffer) || std::fwrite(buffer.getMem(), buffer.size(), 1, stdout) != 1) return false;
        request.m_sample += where.m_count;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: %s FILE.au\n", argv[0]), 2;
    OpResult result;
    MediaObj* movie = MediaObj::openReader(argv[1], MediaObj::ReadMode::ReadOnly, result);
    if (movie == nullptr) {
        std::fprintf(stderr, "%s: %s\n", argv[1], result.describe().get());
        return result.discard(), 1;
    }
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    std::fprintf(stderr, "%s\n%s\n", movie->toString(true).get(), clip.toString().get());
    const bool good = writeSamples(*movie, clip);
    movie->release();
    return MediaObj::shutdown() && good ? 0 : 1;
}
