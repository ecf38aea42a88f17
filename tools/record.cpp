#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "services/file/basic_file_io.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"
#include "tools/commands.h"
#include "tools/events.h"
#include "tools/interrupt.h"
#include "tools/movie.h"
#include "tools/mpeg_pictures.h"
#include "tools/progress.h"
#include "tools/sample_source.h"

namespace {

constexpr unsigned s_blocksPerSecond = 25;
constexpr unsigned s_head = 4;  // bytes of a DV frame that tell it apart

// Whether a header section of the first sequence and channel stands there, of the system of 50 or 60 fields.
bool isFrameOfDv(const unsigned char* bytes, bool isOf50) {
    return (bytes[0] & 0xE0) == 0 && (bytes[1] & 0xF8) == 0 && bytes[2] == 0 && ((bytes[3] & 0x80) != 0) == isOf50;
}

// Whether a movie gets a stream of DV and not sound: the bits that are reserved tell it apart from silence too.
bool isMarkOfDv(const unsigned char* bytes) {
    return bytes[0] == 0x1F && bytes[1] == 0x07 && bytes[2] == 0 && (bytes[3] & 0x7F) == 0x3F;
}

// A recording under way. What was taken in is in the file at its end, whatever ended it.
class Recording {
public:
    Recording(const RecordOptions& options, bool quiet, Output& output)
        : m_options(options), m_quiet(quiet), m_output(output), m_events(output) {}
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording();

    std::optional<Failure> open();
    void run();
    ExitCode finish();

private:
    std::optional<Failure> describe(MediaClipParam& param);
    std::optional<Failure> describeFrames(MediaFileType type, MediaClipParam& param);
    std::optional<Failure> describePictures(MediaClipParam& param);
    bool beginsWith(bool (*isMark)(const unsigned char* bytes));
    bool takePicture();
    bool isOfPictures() const { return m_pictures.has_value(); }
    bool checkFrame();
    std::optional<Failure> create(const MediaClipParam& param);
    Failure explain(OpResult& result, const char* what) const;
    bool takeBlock();
    bool write(unsigned count);
    AutoRefPtr<BasicFileIO> writeHandle();
    bool makeSafe();
    bool tell(const char* event);
    void close();
    bool goesOn() const { return !m_failure && !m_deaf; }

    const RecordOptions& m_options;
    const bool m_quiet;
    Output& m_output;
    Events m_events;
    SampleSource m_source;
    MediaObj* m_movie = nullptr;        // with a reference and its writer
    MediaTrackDesc* m_track = nullptr;  // borrowed from the movie
    std::string m_trackName;
    std::optional<MpegPictures> m_pictures;  // of a stream of them, which differ in size
    SampleCodingType m_kind = SampleCodingType::I;
    MediaIoBuf m_block;
    std::optional<Failure> m_failure;
    unsigned m_size = 0;             // bytes a sample
    int m_oldError = 0;              // what the handle had met before the first sample, as an errno value
    unsigned m_perBlock = 1;         // samples that are taken in at once
    double m_perSecond = 0;          // samples
    bool m_isFrames = false;         // of DV, each of which is a sample
    bool m_isOf50 = false;           // fields a second, not 60
    unsigned long long m_taken = 0;  // samples in the file
    unsigned long long m_safe = 0;   // of these on the disk
    unsigned long long m_bytes = 0;  // of those in the file
    bool m_interrupted = false;
    bool m_deaf = false;  // nobody takes the events
};

Recording::~Recording() {
    if (m_movie != nullptr) m_movie->release(MediaAgent(nullptr), true);
}

Failure Recording::explain(OpResult& result, const char* what) const {
    if (!result) return Failure::from(result, m_options.m_file);
    result.discard();
    return Failure::make(ExitCode::SomeFailed, MediaCode::InternalError, m_options.m_file, what);
}

bool Recording::beginsWith(bool (*isMark)(const unsigned char* bytes)) {
    std::array<unsigned char, s_head> head{};
    std::optional<Failure> failure;  // is met again when the source is read
    return m_source.peek(head.data(), head.size(), failure) && isMark(head.data());
}

// A stream of MPEG-2 is cut into its pictures.
std::optional<Failure> Recording::describePictures(MediaClipParam& param) {
    std::optional<Failure> failure;
    m_pictures.emplace(m_source);
    m_perBlock = 1;
    if (m_pictures->describe(param, failure) || failure) return failure;
    return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, m_options.m_source,
                         "it has no picture of MPEG-2 that can be recorded");
}

// A stream of DV says itself what it is.
std::optional<Failure> Recording::describeFrames(MediaFileType type, MediaClipParam& param) {
    std::array<unsigned char, s_head> head{};
    std::optional<Failure> failure;
    const bool hasHead = m_source.peek(head.data(), head.size(), failure);
    if (failure) return failure;
    m_isOf50 = (head[3] & 0x80) != 0;
    m_isFrames = true;
    m_perBlock = 1;
    if (hasHead && isFrameOfDv(head.data(), m_isOf50) &&
        param.initVideo(type, MediaEncodingType::Dv, m_isOf50 ? MediaVideoRate::Pal25 : MediaVideoRate::Ntsc2997))
        return std::nullopt;
    return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, m_options.m_source,
                         "it doesn't begin with a frame of DV");
}

std::optional<Failure> Recording::describe(MediaClipParam& param) {
    const MediaFileType type = MediaNames::getFileType(m_options.m_file.c_str());
    const bool isMovie = type == MediaFileType::QuickTime;
    if (type == MediaFileType::Dv || (isMovie && beginsWith(&isMarkOfDv))) return describeFrames(type, param);
    if (isMovie && beginsWith(&MpegPictures::isMark)) return describePictures(param);
    m_perBlock = std::max(1u, m_options.m_rate / s_blocksPerSecond);
    const bool isGood = param.initAudio(type, MediaEncodingType::Pcm, MediaVideoRate::Unknown, m_options.m_rate,
                                        m_options.m_channels, m_options.m_bits);
    if (!isGood) {
        return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, m_options.m_file,
                             "no format of this name records sound of " + std::to_string(m_options.m_rate) + " Hz, " +
                                 std::to_string(m_options.m_channels) + " channels, " +
                                 std::to_string(m_options.m_bits) + " bits");
    }
    if (!m_options.m_endian.empty())
        param.m_endian = m_options.m_endian == "big" ? MediaEndian::Big : MediaEndian::Little;
    return std::nullopt;
}

std::optional<Failure> Recording::create(const MediaClipParam& param) {
    OpResult result;
    m_movie = MediaObj::openWriter(m_options.m_file.c_str(), false, result, MediaContainment::Embedded,
                                   MediaFileType::Unknown, nullptr, BasicIOTypes::SizeAdvice::None);
    if (m_movie == nullptr) return explain(result, "somebody else has the file");
    m_track = m_movie->createTrack(param, result);
    const MediaClipDesc* const clip = m_track != nullptr ? m_track->createClip(param, result) : nullptr;
    const bool hasSize = clip != nullptr && clip->getLookup() != nullptr && clip->getLookup()->getFixedSize() != 0;
    if (hasSize || (clip != nullptr && isOfPictures())) {
        m_size = clip->getLookup()->getFixedSize();
        m_trackName = trackName(*m_movie, m_track->getTrackIndex());
        result.discard();
        return std::nullopt;
    }
    // Nothing was recorded, so nothing stays.
    const Failure failure = explain(result, "the format keeps no samples of one size");
    m_movie->remove().discard();
    return failure;
}

std::optional<Failure> Recording::open() {
    MediaClipParam param;
    std::optional<Failure> failure = m_source.open(m_options.m_source);
    if (!failure) failure = describe(param);
    if (!failure) failure = create(param);
    if (failure) return failure;
    const AutoRefPtr<BasicFileIO> file = writeHandle();
    if (!file) return m_failure;
    m_oldError = file->getLastError();
    m_perSecond = static_cast<double>(param.m_sampleRate) / param.m_ticksPerSample;
    return std::nullopt;
}

bool Recording::write(unsigned count) {
    SampleInfo info;
    info.reset(m_block.size());
    if (isOfPictures()) info.setEncoding(m_kind);
    MediaSampleInMovie where;
    OpResult result;
    if (!m_track->addSamples(MediaRecordReq(m_taken, count, info), where, result)) {
        m_failure = explain(result, "the movie takes no more samples");
        return false;
    }
    result = m_movie->vsWrite(where, m_block);
    if (!result) {
        m_failure = Failure::from(result, m_options.m_file);
        return false;
    }
    m_taken += count;
    m_bytes += m_block.size();
    return true;
}

// The handle that the movie writes by, borrowed; null with a failure noted.
AutoRefPtr<BasicFileIO> Recording::writeHandle() {
    OpResult result;
    AutoRefPtr<BasicFileIO> file = m_movie->getFp(result, m_track->getClip(0)->getMediaId(), true, MediaAgent(nullptr));
    if (!file) m_failure = explain(result, "the movie has no handle to write by");
    result.discard();
    return file;
}

// The header up to date and all of it on the disk: only what the disk has confirmed is called safe. The movie's own
// flush tells nothing, so the handle is asked whether it has met an error since the beginning.
bool Recording::makeSafe() {
    const AutoRefPtr<BasicFileIO> file = writeHandle();
    if (!file) return false;
    m_movie->flush(m_track, true);
    const bool isFlushed = file->flush();
    if (!isFlushed || file->getLastError() != m_oldError) {
        m_failure = Failure::system(MediaCode::WriteError, m_options.m_file, file->getLastError());
        return false;
    }
    m_safe = m_taken;
    return tell("safe");
}

bool Recording::tell(const char* event) {
    if (!m_options.m_output.m_lines) return true;
    Json line{{"event", event}, {"track", m_trackName}, {"samples", m_taken}};
    if (std::strcmp(event, "done") == 0) {
        line["bytes"] = m_bytes;
        line["interrupted"] = m_interrupted;
    }
    m_deaf = !m_events.add(line, "");
    return !m_deaf;
}

// A stream of larger frames, or one that has lost bytes, would be cut in the wrong places.
bool Recording::checkFrame() {
    if (isFrameOfDv(m_block.getMem(), m_isOf50)) return true;
    m_failure = Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, m_options.m_source,
                              "no frame of DV at 25 Mbit/s begins where frame " + std::to_string(m_taken) + " should");
    return false;
}

// Takes in the next samples. Answers false at the end.
bool Recording::takeBlock() {
    if (!m_block.resize(m_perBlock * m_size, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign)) {
        m_failure = Failure{ExitCode::SomeFailed, 0, "no memory", m_options.m_file, ""};
        return false;
    }
    std::size_t bytes = 0;
    const bool more = m_source.read(m_block.getMem(), std::size_t{m_perBlock} * m_size, bytes, m_failure);
    const auto count = static_cast<unsigned>(bytes / m_size);
    if (count > 0 &&
        !m_block.resize(count * m_size, MediaIoBuf::Preservation::Keep, MediaIoBuf::AllocChange::KeepForeign))
        return false;
    if (count > 0 && m_isFrames && !checkFrame()) return false;
    if (count > 0 && !write(count)) return false;
    if (bytes % m_size != 0 && !m_quiet) {
        Output::tell(Failure{ExitCode::Done, 0, "incomplete", m_options.m_source,
                             "the last " + std::to_string(bytes % m_size) + " bytes are no whole sample and left out"});
    }
    return more;
}

bool Recording::takePicture() {
    std::string picture;
    const bool more = m_pictures->next(picture, m_kind, m_failure);
    if (!more) return false;
    const auto size = static_cast<unsigned>(picture.size());
    if (!m_block.resize(size, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign)) {
        m_failure = Failure{ExitCode::SomeFailed, 0, "no memory", m_options.m_file, ""};
        return false;
    }
    std::memcpy(m_block.getMem(), picture.data(), size);
    return write(1);
}

void Recording::run() {
    const ProgressKind kind = m_options.m_progress == ProgressKind::Auto && !Progress::hasTerminal()
                                  ? ProgressKind::None
                                  : m_options.m_progress;
    Progress progress(kind, m_quiet, m_source.size());
    Pace pace(m_options.m_realtime ? m_perSecond : 0);
    bool more = true;
    while (goesOn() && more && !Interrupt::isPending()) {
        more = isOfPictures() ? takePicture() : takeBlock();
        progress.update(m_bytes);
        if (!m_failure && static_cast<double>(m_taken - m_safe) >= m_perSecond) more = makeSafe() && more;
        if (more) pace.waitFor(m_taken);
    }
    m_interrupted = Interrupt::isPending() && more;
    if (!m_failure && m_taken != m_safe) makeSafe();
}

void Recording::close() {
    OpResult result = m_movie->setRecording(false);
    if (!result && !m_failure) m_failure = Failure::from(result, m_options.m_file);
    result.discard();
    m_movie->release(MediaAgent(nullptr), true);
    m_movie = nullptr;
    m_track = nullptr;
}

ExitCode Recording::finish() {
    close();
    if (m_failure) {
        m_failure->m_message += (m_failure->m_message.empty() ? "(" : " (") + std::to_string(m_taken) +
                                " samples taken in, " + std::to_string(m_safe) + " safe)";
        return m_output.fail(*m_failure);
    }
    tell("done");
    const std::string samples = std::to_string(m_taken);
    if (!m_output.options().wantsDocument()) return m_output.endWith(ExitCode::Done);
    const Json recorded{{"path", m_options.m_file}, {"track", m_trackName}, {"samples", m_taken},
                        {"bytes", m_bytes},         {"rate", m_perSecond},  {"interrupted", m_interrupted}};
    return m_output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"record", recorded}});
}

}  // namespace

ExitCode runRecord(const RecordOptions& options, bool quiet, Output& output) {
    Recording recording(options, quiet, output);
    const std::optional<Failure> failure = recording.open();
    if (failure) return output.fail(*failure);
    recording.run();
    return recording.finish();
}
