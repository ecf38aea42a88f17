#include "backends/mov/mov_media_obj.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "backends/mov/mov_parser.h"
#include "backends/mov/mov_picture_head.h"
#include "backends/mov/mov_reference_editor.h"
#include "backends/mov/mov_rename_session.h"
#include "backends/mov/mov_timecode.h"
#include "backends/mov/mov_user_data_editor.h"
#include "services/file/fs_file_io.h"
#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/object/core_subsystem.h"

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint32_t s_leastTimeBase = 10000;  // ticks a second, fine enough for all that isn't the first video
constexpr std::uint32_t s_mostTimeBase = 1u << 24;
constexpr std::uint32_t s_mostTicks = 1u << 24;        // of a sample
constexpr std::uint64_t s_mostClipTicks = 1ull << 46;  // of a clip
constexpr unsigned s_meanOf = 256;                     // samples whose sizes give a bitrate
constexpr unsigned s_remarks = 16;                     // lines a movie at most
constexpr std::uint32_t s_aacBits = 6144;              // a channel of a coded unit at most

std::uint32_t clamp32(Wide value) { return value < 0xFFFFFFFFu ? static_cast<std::uint32_t>(value) : 0xFFFFFFFFu; }

// The mean of a track whose samples last differently: of sound in whole ticks of its scale, of pictures as one of the
// usual rates where it is near one.
MovRate meanRate(const MovTrack& track, std::uint64_t samples) {
    const std::uint64_t duration = track.fragmentTime != 0 ? track.fragmentTime : track.duration;
    if (duration == 0 || samples == 0) return {track.timeScale, 1};
    if (track.type == MediaDataType::Audio) {
        const Wide ticks = (Wide{duration} + samples / 2) / samples;
        return {track.timeScale, static_cast<std::uint32_t>(std::clamp<Wide>(ticks, 1, s_mostTicks))};
    }
    constexpr std::uint32_t precision = 1000;
    const std::uint32_t rate = clamp32((Wide{samples} * track.timeScale * precision + duration / 2) / duration);
    if (track.type == MediaDataType::Video && rate < (1u << 30)) {
        MediaClipParam usual;
        usual.m_videoRate = MediaObj::getVideoRate(FixedPoint<16>(rate) / precision);
        if (usual.m_videoRate != MediaVideoRate::Unknown) {
            usual.initSampleRate(usual.m_videoRate).discard();
            return {usual.m_sampleRate, usual.m_ticksPerSample};
        }
    }
    return {std::max(rate, 1u), precision};
}

// Rates are told in 65536ths of a sample a second, and one that comes to nothing there is none.
MovRate toldRate(MovRate rate) {
    const std::uint64_t mostTicks = std::uint64_t{rate.samples} << 16;
    return {rate.samples, static_cast<std::uint32_t>(std::min<std::uint64_t>(rate.ticks, mostTicks))};
}

// A scale that has no whole number of ticks for a usual rate makes steps of one tick more and less, which come to that
// rate in all. Gives: false where the pictures don't, to a tick, and where most last otherwise.
bool usualRate(const MovTrack& track, std::uint64_t samples, std::uint32_t step, MovRate& rate) {
    constexpr auto last = static_cast<std::uint32_t>(MediaVideoRate::Hz60);
    constexpr unsigned tick = 1000;
    const Wide duration = track.fragmentTime != 0 ? track.fragmentTime : track.duration;
    Wide least = tick + 1;
    for (std::uint32_t i = 1; i <= last; ++i) {
        MediaClipParam usual;
        usual.m_videoRate = static_cast<MediaVideoRate>(i);
        usual.initSampleRate(usual.m_videoRate).discard();
        const Wide wanted = Wide{samples} * track.timeScale * usual.m_ticksPerSample;
        const Wide have = duration * usual.m_sampleRate;
        const Wide off = (have > wanted ? have - wanted : wanted - have) * tick / usual.m_sampleRate;
        const std::uint64_t whole = std::uint64_t{track.timeScale} * usual.m_ticksPerSample / usual.m_sampleRate;
        if (off >= least || (step != 0 && step != whole && step != whole + 1)) continue;
        least = off;
        rate = {usual.m_sampleRate, usual.m_ticksPerSample};
    }
    return least <= tick;
}

// Sound counts in ticks of its own scale; a picture's fraction is the shortest one. Units of coded sound are alike, so
// what most of them last counts for all.
MovRate rateOf(const MovTrack& track, const MovTrackSamples& samples) {
    const bool isVideo = track.type == MediaDataType::Video;
    const std::uint32_t even = samples.evenStep();
    const std::uint32_t step = even != 0 ? even : samples.usualStep(isVideo ? 9 : 5);
    MovRate usual;
    if (even == 0 && isVideo && usualRate(track, samples.count(), step, usual)) return usual;
    if (step == 0 || step > s_mostTicks) return toldRate(meanRate(track, samples.count()));
    const std::uint32_t shared = isVideo ? std::gcd(track.timeScale, step) : 1;
    return toldRate({track.timeScale / shared, step / shared});
}

std::uint64_t movieTicks(std::uint64_t samples, MovRate rate, std::uint32_t timeBase) {
    const Wide ticks = Wide{samples} * rate.ticks * timeBase / rate.samples;
    return ticks < s_mostClipTicks ? static_cast<std::uint64_t>(ticks) : s_mostClipTicks;
}

// The shape of what is meant to be seen. Without a word on the pixels it is taken from the track's own size where that
// says another shape, then from what the pictures say, and from the pixels of a picture that has the shape itself.
MediaAspectRatio aspectOf(const MovEntry& entry, const MovTrack& track) {
    const std::uint64_t width = entry.cleanWidth != 0 ? entry.cleanWidth : entry.width;
    const std::uint64_t height = entry.cleanHeight != 0 ? entry.cleanHeight : entry.height;
    constexpr std::uint32_t most = 1u << 24;
    if (entry.pixelWidth != 0 && entry.pixelHeight != 0 && entry.pixelWidth < most && entry.pixelHeight < most) {
        return MovDescription::aspectOf(width * entry.pixelWidth, height * entry.pixelHeight);
    }
    const std::uint64_t shown = std::uint64_t{track.displayWidth} * entry.height;
    const bool isOther = track.displayHeight != 0 && shown != std::uint64_t{track.displayHeight} * entry.width;
    if (isOther) return MovDescription::aspectOf(track.displayWidth, track.displayHeight);
    if (entry.codedAspect != MediaAspectRatio::Unknown) return entry.codedAspect;
    const bool isStandard = entry.width == 720 || entry.width == 704 || entry.width == 352;
    return isStandard && entry.height < 720 ? MediaAspectRatio::Unknown
                                            : MovDescription::aspectOf(entry.width, entry.height);
}

// What a table's look-ups may touch.
std::uint64_t tableBytesOf(const MovMovie& movie) {
    std::uint64_t bytes = 0;
    for (const MovTrack& track : movie.tracks) {
        const MovTablePlaces& places = track.places;
        bytes += places.sizes.count * places.sizeBits / 8 + places.chunks.count * (places.isWide ? 8 : 4);
        bytes += places.runs.count * 12 + places.times.count * 8 + places.syncs.count * 4;
        for (const MovFragmentRun& run : track.runs)
            bytes += std::uint64_t{run.count} * MovRunEntry::sizeOf(run.flags);
    }
    return bytes;
}

// Says of a track whose coding has no word here what it is.
void remarkOnCoding(const MovTrack& track, std::vector<std::string>& remarks) {
    for (const MovEntry& entry : track.entries) {
        if (entry.encoding != MediaEncodingType::Unknown) continue;
        const char* const name = MovDescription::nameOfUnknown(entry.code);
        remarks.emplace_back(FormatStr("mov: track %u: samples of %s ('%s') are shown without their coding", track.id,
                                       name != nullptr ? name : "an unknown coding", MovCodeText(entry.code).text)
                                 .get());
        return;
    }
}

OpResult unsupported() { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

OpResult openForParse(BasicFileIO& file) {
    if (!file.open()) {
        const FormatStr text("mov: cannot open: %s", std::strerror(file.getLastError()));
        return MO_WARNING(MediaCode::FileNotReadable, text.get());
    }
    return OpResult(OpResult::Ok);
}

}  // namespace

MovClip::MovClip(MovTrackDesc& track, unsigned index, const MovTrackSamples& samples, const MovClipPlan& plan,
                 const MovEntry& entry, MovRate rate, MediaIdRec* file, MediaContainment container)
    : MediaClipDesc(container), m_track(track), m_index(index), m_edit(plan.in, plan.in + plan.length) {
    m_mediaId = file;
    m_sampleRate = rate.samples;
    m_ticksPerSample = rate.ticks;
    m_length = std::min<std::uint64_t>(plan.length, s_mostClipTicks / rate.ticks);
    m_minSamples = 1;
    describe(samples, entry);
    m_lookup = new MovLookup(samples, plan, entry.lengthBytes, *this);
    const std::uint64_t out = plan.in + plan.length;
    m_rollout = plan.samples > out ? plan.samples - out : 0;
}

MediaTrackDesc& MovClip::getTrack() { return m_track; }

const MediaTrackDesc& MovClip::getTrack() const { return m_track; }

void MovClip::describe(const MovTrackSamples& samples, const MovEntry& entry) {
    m_encoding = entry.encoding;
    m_bitrate = entry.bitrate;
    const bool isSound = m_track.getDataType() == MediaDataType::Audio;
    const std::uint32_t fixed = samples.fixedSize();
    if (isSound) {
        m_channels = entry.channels;
        m_endian = entry.endian;
        m_bitsPerUnit = entry.bits;
        m_maxBitsPerSample = entry.encoding == MediaEncodingType::Aac ? s_aacBits : entry.bits;
    } else {
        m_chroma = entry.chroma;
        m_vscan = entry.scan;
        m_channels = 1;
        m_bitsPerUnit = 8;
        m_maxBitsPerSample = clamp32(Wide{fixed} * 8);
        m_coding = samples.isAllSync() ? SequenceCodingType::Intra : SequenceCodingType::LongGop;
    }
    if (m_bitrate != 0 || samples.count() == 0) return;
    std::uint64_t bytes = fixed;
    std::uint64_t of = 1;
    if (fixed == 0) {
        MovSpot spot;
        std::uint64_t found = 0;
        of = std::min<std::uint64_t>(samples.count(), s_meanOf);
        if (samples.tables().samples() >= of) {
            if (!samples.tables().sumSizes(0, of, bytes)) return;
        } else if (samples.findTogether(samples.tables().samples(), s_meanOf, spot, found, bytes)) {
            of = found;
        }
    }
    m_bitrate = clamp32(Wide{bytes} * 8 * m_sampleRate / of / m_ticksPerSample);
}

MovTrackDesc::MovTrackDesc(MovMediaObj& obj, unsigned index, MovTrack& track, const MovTableCache& cache)
    : MediaTrackDesc(track.type), m_obj(obj), m_index(index), m_samples(track, cache) {}

MediaClipDesc* MovTrackDesc::createClip(const MediaClipParam&, OpResult& result) {
    result = unsupported();
    return nullptr;
}

MediaObj& MovTrackDesc::getObj() { return m_obj; }

const MediaObj& MovTrackDesc::getObj() const { return m_obj; }

void MovTrackDesc::describePicture(const MovEntry& entry, const MovTrack& track) {
    m_width = entry.width != 0 ? entry.width : track.displayWidth;
    m_height = entry.height != 0 ? entry.height : track.displayHeight;
    m_aspect.set(aspectOf(entry, track));
    if (entry.hasProfile && entry.encoding == MediaEncodingType::Avc) {
        const unsigned kind = unsigned{entry.profile} << 8 | entry.level;
        m_properties.set(MediaProperty(MediaPropertyEnum::Name::AvcKind, kind)).discard();
    }
}

// What a description leaves open, its first picture that is shown may say: one read of its head, wherever it lies.
void MovTrackDesc::lookAtPictures(MovTrack& track, const std::vector<MovClipPlan>& plans, const MovTableCache& cache) {
    std::vector<bool> looked(track.entries.size());
    for (const MovClipPlan& plan : plans) {
        if (plan.isGap || plan.samples == 0 || plan.entry >= looked.size() || looked[plan.entry]) continue;
        MovEntry& entry = track.entries[plan.entry];
        looked[plan.entry] = true;
        MovSpot spot;
        if (!MovPictureHead::isWanted(entry) || !m_samples.find(plan.base, spot)) continue;
        std::uint8_t bytes[MovPictureHead::s_size];
        const unsigned size = std::min<std::uint32_t>(spot.size, sizeof bytes);
        const bool isRead = track.isSelf(entry) ? cache.readThrough(spot.offset, bytes, size)
                                                : m_obj.readReferred(track, entry, spot.offset, bytes, size);
        if (isRead) MovPictureHead::complete(entry, bytes, size);
    }
}

void MovTrackDesc::makeClips(MovTrack& track, const MovMovie& movie, const MovTableCache& cache,
                             std::uint64_t fileLength, std::vector<std::string>& remarks) {
    const MovEntry none;
    const MovEntry& first = track.entries.empty() ? none : track.entries.front();
    if (m_type == MediaDataType::Video || m_type == MediaDataType::Audio) remarkOnCoding(track, remarks);
    MovSampleTables& tables = m_samples.tables();
    if (first.sampleBytes != 0 && tables.fixedSize() != 0 && m_samples.evenStep() <= 1) {
        tables.setFixedSize(first.sampleBytes);
    }
    const bool isWhole = std::all_of(track.entries.begin(), track.entries.end(),
                                     [&track](const MovEntry& entry) { return track.isSelf(entry); });
    if (isWhole) {
        const std::uint64_t there = tables.samplesWithin(fileLength);
        if (there < tables.samples()) {
            remarks.emplace_back(FormatStr("mov: track %u: of %llu samples %llu are in the file", track.id,
                                           static_cast<unsigned long long>(tables.samples()),
                                           static_cast<unsigned long long>(there))
                                     .get());
        }
        tables.setSamples(there);
    }
    const MovRate rate = rateOf(track, m_samples);
    if (m_type == MediaDataType::Video) m_videoRate = MediaObj::getVideoRate(FixedPoint<16>(rate.samples) / rate.ticks);
    const std::vector<MovClipPlan> plans = MovClipPlanner::plan(track, m_samples, movie.timeScale, remarks);
    if (m_type == MediaDataType::Video) {
        lookAtPictures(track, plans, cache);
        describePicture(first, track);
    }
    std::uint64_t length = 0;
    for (const MovClipPlan& plan : plans) {
        const bool isNowhere = !track.entries.empty() && plan.entry >= track.entries.size();
        const MovEntry& entry = isNowhere || track.entries.empty() ? none : track.entries[plan.entry];
        bool embedded = !isNowhere;
        MediaIdRec* file = nullptr;
        if (isNowhere) {
            remarks.emplace_back(FormatStr("mov: track %u: there is no description %u, and its samples lie nowhere",
                                           track.id, plan.entry + 1)
                                     .get());
        } else if (!plan.isGap) {
            file = m_obj.mediaOf(track, entry, embedded, remarks);
        }
        m_clips.push_back(std::make_unique<MovClip>(*this, static_cast<unsigned>(m_clips.size()), m_samples, plan,
                                                    entry, rate, file,
                                                    embedded ? MediaContainment::Embedded : MediaContainment::ByRef));
        length += m_clips.back()->getLength();
    }
    m_length = movieTicks(length, rate, m_obj.getMovieDesc()->getTimeBase());
}

std::uint32_t MovMediaObj::timeBaseOf(const MovMovie& movie) {
    const MovTrack* chosen = nullptr;
    for (const MovTrack& track : movie.tracks) {
        const bool isVideo = track.type == MediaDataType::Video;
        const bool isSound = track.type == MediaDataType::Audio;
        if (isVideo && (chosen == nullptr || chosen->type != MediaDataType::Video)) chosen = &track;
        if (isSound && chosen == nullptr) chosen = &track;
    }
    const std::uint32_t scale = chosen != nullptr ? chosen->timeScale : movie.timeScale;
    if (scale > s_mostTimeBase) return s_mostTimeBase;
    return scale >= s_leastTimeBase ? scale : scale * ((s_leastTimeBase + scale - 1) / scale);
}

MovMediaObj::MovMediaObj(AutoRefPtr<BasicFileIO> file, MovMovie& movie, std::unique_ptr<MovTableCache> cache)
    : MediaObj(0, CacheRefValue::Cached),
      m_cache(std::move(cache)),
      m_timecode(MovTimecode::read(movie, *m_cache)),
      m_properties([this](const char* names) { return changeClipProperties(names); }) {
    getDesc()->init(MediaFileType::QuickTime, timeBaseOf(movie), file->writable(), MediaEncodingType::Unknown,
                    MediaVideoRate::Unknown);
    const std::uint64_t length = file->getLength();
    allocMediaId(file);
    std::vector<std::string>& remarks = movie.remarks;
    for (MovTrack& track : movie.tracks) {
        if (track.handler == MovAtom::s_tmcd) continue;
        const auto index = static_cast<unsigned>(m_tracks.size());
        m_tracks.push_back(std::make_unique<MovTrackDesc>(*this, index, track, *m_cache));
        m_tracks.back()->makeClips(track, movie, *m_cache, length, remarks);
    }
    // A list of clips that is full may have been cut.
    m_isPartial = movie.isPartial || std::any_of(m_tracks.begin(), m_tracks.end(), [](const auto& track) {
                      return track->getClipCount() >= MovLimit::s_clips;
                  });
    readUserData(movie);
    m_cache->bind(*this);
    tellLengths();
    for (std::size_t i = 0; i < remarks.size() && i < s_remarks; ++i)
        warningMsg("%s: %s\n", file->getPath(), remarks[i].c_str());
}

MovMediaObj::~MovMediaObj() = default;

void MovMediaObj::readUserData(const MovMovie& movie) {
    std::vector<std::uint8_t> bytes(std::min<std::uint64_t>(movie.userDataSize, MovUserData::s_most));
    const auto size = static_cast<unsigned>(bytes.size());
    if (bytes.empty() || !m_cache->readThrough(movie.userData, bytes.data(), size)) return;
    m_userData.read(bytes.data(), size);
    const char* const names = m_userData.getClipProperties();
    if (names != nullptr) setProperty(ClipPropsProperty(names)).discard();
}

// What the file is to tell of that key from now on.
OpResult MovMediaObj::keep(UserDataEnum::KeyKind key) {
    MovUserDataEditor editor(getPath(getMediaId(0)));
    return editor.put(MovUserData::codeOf(key), m_userData.write(key));
}

OpResult MovMediaObj::changeUmid(const std::function<OpResult()>& change) {
    if (!getMovieDesc()->isWritable()) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    const char* const present = getUmid();
    const std::string before = present != nullptr ? present : "";
    OpResult result = change();
    if (!result) return result;
    result = keep(UserDataEnum::KeyKind::Umid);
    if (result) return result;
    m_userData.removeUmid();
    if (!before.empty()) m_userData.setUmid(before.c_str()).discard();
    return result;
}

OpResult MovMediaObj::generateUmid() {
    return changeUmid([this] { return m_userData.generateUmid(); });
}

OpResult MovMediaObj::setProxyUmid(const MediaObj& other) {
    return changeUmid([this, &other] { return m_userData.setUmid(other.getUmid()); });
}

OpResult MovMediaObj::changeClipProperties(const char* names) {
    const char* const present = m_userData.getClipProperties();
    const std::string before = present != nullptr ? present : "";
    if (before == (names != nullptr ? names : "")) return OpResult(OpResult::Ok);
    m_userData.setClipProperties(names);
    if (!getMovieDesc()->isWritable()) return OpResult(OpResult::Ok);
    OpResult result = keep(UserDataEnum::KeyKind::ClipProps);
    if (!result) m_userData.setClipProperties(before.c_str());
    return result;
}

// The last length told is the one that the movie's frames are counted by: the first video's, else the longest.
void MovMediaObj::tellLengths() {
    const MovTrackDesc* chosen = nullptr;
    for (const auto& track : m_tracks) {
        getDesc()->setLength(*track);
        const bool isVideo = track->getDataType() == MediaDataType::Video;
        const bool hasVideo = chosen != nullptr && chosen->getDataType() == MediaDataType::Video;
        if (chosen == nullptr || (isVideo && !hasVideo) || (!hasVideo && track->getLength() > chosen->getLength())) {
            chosen = track.get();
        }
    }
    if (chosen == nullptr) return;
    getDesc()->setLength(*chosen);
    getDesc()->setStandard(chosen->getVideoRate());
    getDesc()->setEncoding(calcEncoding());
}

bool MovMediaObj::readReferred(const MovTrack& track, const MovEntry& entry, std::uint64_t offset, void* target,
                               unsigned size) {
    const MovReference* const reference = track.referenceOf(entry);
    if (reference == nullptr) return false;
    bool isThere = false;
    const std::string path = MovReferences::resolve(*reference, getPath(getMediaId(0)), isThere);
    if (!isThere) return false;
    const AutoRefPtr<FsFileIO> file(new FsFileIO("head", path.c_str(), BasicIOTypes::Mode::ReadOnly));
    return file->open() && file->readAt(offset, target, size) == static_cast<int>(size);
}

MediaIdRec* MovMediaObj::mediaOf(const MovTrack& track, const MovEntry& entry, bool& isEmbedded,
                                 std::vector<std::string>& remarks) {
    isEmbedded = track.isSelf(entry);
    if (isEmbedded) return getMediaId(0);
    const MovReference* const reference = track.referenceOf(entry);
    const std::string moviePath = getPath(getMediaId(0));
    bool isThere = false;
    const std::string path =
        reference != nullptr ? MovReferences::resolve(*reference, moviePath, isThere) : std::string();
    if (path.empty()) {
        remarks.emplace_back(FormatStr("mov: track %u: the reference \"%s\" leads to no file that may be read",
                                       track.id, reference != nullptr ? reference->text.c_str() : "")
                                 .get());
        return nullptr;
    }
    if (!isThere) {
        remarks.emplace_back(FormatStr("mov: track %u: the media file %s is not there", track.id, path.c_str()).get());
    }
    if (path == moviePath || path == MovReferences::straight(moviePath)) {
        isEmbedded = true;
        return getMediaId(0);
    }
    return allocMediaId(path.c_str());
}

MediaTrackDesc* MovMediaObj::createTrack(const MediaClipParam&, OpResult& result) {
    result = unsupported();
    return nullptr;
}

OpResult MovMediaObj::rename(const char* newPath, bool renameMedia, Namer* namer) {
    MovRenameSession session(*this);
    return MediaObj::rename(newPath, renameMedia, namer);
}

OpResult MovMediaObj::renameMediaId(MediaIdRec* id, const char* path) {
    const auto move = [this, id](const char* to) { return MediaObj::renameMediaId(id, to); };
    if (m_isPartial && !MovReferenceEditor::isNear(*this, id, path)) {
        const FormatStr text("mov: %s: not all that is in it is known, and so its media can't go along", getPath(id));
        return MO_WARNING(MediaCode::OperationUnsupported, text.get());
    }
    std::unique_ptr<MovReferenceEditor> alone;
    std::unique_ptr<MovReferenceEditor>* const kept = MovRenameSession::find(*this);
    return MovReferenceEditor::rename(*this, id, path, move, kept != nullptr ? *kept : alone);
}

MediaObj* MovMediaObj::openFile(AutoRefPtr<BasicFileIO> file, OpResult& result) {
    result = openForParse(*file);
    if (!result) return nullptr;
    FileWindow window(*file, file->getLength());
    MovMovie movie;
    result = MovParser(window).parse(movie);
    if (!result) return nullptr;
    return new MovMediaObj(file, movie, std::make_unique<MovTableCache>(file, tableBytesOf(movie)));
}
