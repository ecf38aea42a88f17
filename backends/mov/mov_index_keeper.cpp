#include "backends/mov/mov_index_keeper.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "backends/mov/mov_avc_sets.h"
#include "backends/mov/mov_sample_entry.h"
#include "backends/mov/mov_timecode.h"
#include "shared/include/index/media_sample_desc.h"

namespace {

constexpr unsigned s_ftypSize = 32;
constexpr std::uint64_t s_firstSlot = 16384;   // bytes; two of them, and 80 bytes of heads, lie before the essence
constexpr std::uint32_t s_epoch = 2082844800;  // 1970 in seconds since 1904

std::vector<std::uint8_t> ftyp() {
    MovAtomWriter out;
    out.open(MovAtom::s_ftyp).be32(MovAtom::s_qt).be32(0x20050300).be32(MovAtom::s_qt).zeros(12).close();
    return out.getBytes();
}

}  // namespace

MovIndexKeeper::MovIndexKeeper(AutoRefPtr<BasicFileIO> file, const std::string& path) : Recorder("mov", file) {
    Scope lock(m_mutex);
    m_movie.m_path = path;
    m_movie.m_created = static_cast<std::uint32_t>(std::time(nullptr)) + s_epoch;
}

std::shared_ptr<RecordedEssence> MovIndexKeeper::start(OpResult& result) {
    result = OpResult(OpResult::Ok);
    if (m_essence != nullptr) return m_essence;
    Part first;
    first.m_room = MovIndexRoom(s_ftypSize, s_firstSlot);
    first.m_mdat = first.m_room.getEnd();
    const std::uint64_t begins = first.m_mdat + s_mdatHead;
    const std::shared_ptr<RecordedEssence> essence = begin(0, begins, result);
    if (essence == nullptr) return nullptr;
    Scope lock(m_mutex);
    // The head of `mdat` first: what is missing in front of it reads as zeros, which is no movie yet.
    result = putMdat(first.m_mdat);
    if (result) result = first.m_room.putHead(putter(), MovIndexRoom::s_hidden);
    if (result) result = putBytes(0, ftyp());
    if (!result) return nullptr;
    m_parts.push_back(first);
    m_end = begins;
    m_essence = essence;
    return essence;
}

unsigned MovIndexKeeper::addMedia(const MovToldMedia& media) {
    Scope lock(m_mutex);
    m_movie.m_media.push_back(media);
    return static_cast<unsigned>(m_movie.m_media.size()) - 1;
}

unsigned MovIndexKeeper::addTrack(const MediaClipParam& param) {
    Scope lock(m_mutex);
    m_movie.m_tracks.push_back(
        std::make_unique<MovToldTrack>(param, MovSampleEntry::fixedSizeOf(param), MovSampleEntry::hasOrder(param)));
    return static_cast<unsigned>(m_movie.m_tracks.size()) - 1;
}

void MovIndexKeeper::addClip(unsigned track, const MovToldClip& clip) {
    Scope lock(m_mutex);
    std::vector<MovToldClip>& clips = m_movie.m_tracks[track]->m_clips;
    clips.push_back(clip);
    if (clips.size() == 1) return;
    const MovToldClip& before = clips[clips.size() - 2];
    clips.back().m_base = before.m_base + before.m_index->getSamples();
}

void MovIndexKeeper::setTimescale(std::uint32_t timescale) {
    Scope lock(m_mutex);
    m_movie.m_timescale = timescale;
}

void MovIndexKeeper::setPath(const std::string& path) {
    Scope lock(m_mutex);
    m_movie.m_path = path;
}

void MovIndexKeeper::setMediaPath(unsigned media, const std::string& path) {
    Scope lock(m_mutex);
    m_movie.m_media[media].m_path = path;
}

void MovIndexKeeper::setUserData(const std::vector<std::uint8_t>& atoms) {
    Scope lock(m_mutex);
    m_movie.m_userData = atoms;
}

void MovIndexKeeper::setTimecode(const MovToldTimecode& timecode) {
    Scope lock(m_mutex);
    MovToldTimecode same = timecode;
    same.m_at = m_movie.m_timecode.m_at;
    if (m_movie.m_timecode != same) m_movie.m_timecode = timecode;
}

void MovIndexKeeper::look(const MediaSampleInMovie& sample, const std::uint8_t* bytes, std::size_t size) {
    Scope lock(m_mutex);
    if (sample.m_trackIndex >= m_movie.m_tracks.size()) return;
    MovToldTrack& told = *m_movie.m_tracks[sample.m_trackIndex];
    if (told.m_param.m_encoding != MediaEncodingType::Avc || sample.m_clipIndex >= told.m_clips.size()) return;
    if (told.m_avcC.empty()) told.m_avcC = MovAvcSets::configurationOf(bytes, size);
    const MovToldClip& clip = told.m_clips[sample.m_clipIndex];
    if (sample.m_sample < clip.m_index->getSamples()) told.m_order.look(clip.m_base + sample.m_sample, bytes, size);
}

OpResult MovIndexKeeper::putBytes(std::uint64_t offset, const std::vector<std::uint8_t>& bytes) {
    return put(offset, bytes.data(), static_cast<unsigned>(bytes.size()));
}

MovIndexRoom::Put MovIndexKeeper::putter() {
    return [this](std::uint64_t offset, const std::vector<std::uint8_t>& bytes)
               MO_NO_THREAD_SAFETY_ANALYSIS { return putBytes(offset, bytes); };
}

OpResult MovIndexKeeper::putMdat(std::uint64_t at) {
    MovAtomWriter out;
    out.be32(0).be32(MovAtom::s_mdat).be64(0);
    return putBytes(at, out.getBytes());
}

OpResult MovIndexKeeper::closeMdat(std::uint64_t at, std::uint64_t end) {
    MovAtomWriter out;
    out.be64(end - at);
    OpResult result = putBytes(at + 8, out.getBytes());
    return result ? putBytes(at + 3, {1}) : result;
}

OpResult MovIndexKeeper::openMdat() {
    if (!m_isClosed) return OpResult(OpResult::Ok);
    m_isClosed = false;
    return putBytes(m_parts.back().m_mdat + 3, {0});
}

OpResult MovIndexKeeper::reopen() {
    Scope lock(m_mutex);
    return openMdat();
}

OpResult MovIndexKeeper::follow() {
    Scope lock(m_mutex);
    return m_essence != nullptr ? keepUp(m_essence->getWrittenEnd(), Moment::Written) : OpResult(OpResult::Ok);
}

OpResult MovIndexKeeper::keepUp(std::uint64_t end, Moment moment) {
    if (m_parts.empty()) return OpResult(OpResult::Ok);
    if (moment == Moment::Loss) {
        OpResult recovered = recover();
        if (!recovered) return recovered;
    }
    if (moment == Moment::Written && !isDue(end)) return OpResult(OpResult::Ok);
    tell(end);
    OpResult result = putTimecode();
    if (result) result = bringUpToDate();
    if (!result || moment != Moment::End || m_isClosed) return result;
    // With samples that were entered and aren't there, essence may still lie behind what has been written.
    const std::uint64_t written = m_essence->getWrittenEnd();
    if (written != getEnd()) return result;
    m_isClosed = true;
    return closeMdat(m_parts.back().m_mdat, written);
}

OpResult MovIndexKeeper::putTimecode() {
    MovToldTimecode& timecode = m_movie.m_timecode;
    if (timecode.m_scale == 0 || timecode.m_at != 0) return OpResult(OpResult::Ok);
    OpResult result = openMdat();
    if (!result) return result;
    const std::uint64_t at = reserve(MovTimecode::s_sampleSize);
    MediaSampleDesc place;  // no sample of a clip, and yet it is part of the file
    place.set(0, 0, at, MovTimecode::s_sampleSize, 0, false);
    m_essence->noteWritten(place);
    MovAtomWriter out;
    out.be32(timecode.m_counter);
    result = putBytes(at, out.getBytes());
    if (result) timecode.m_at = at;
    return result;
}

// Samples in other files count once they are there: no order binds writes to two files.
std::uint64_t MovIndexKeeper::endOf(const MovToldClip& clip, std::uint64_t end) const {
    const MovToldMedia& media = m_movie.m_media[clip.m_media];
    return media.m_isSelf ? end : media.m_essence->getWrittenEnd();
}

// The samples of a clip from those told on that lie before `end`.
std::uint64_t MovIndexKeeper::tellable(const MovToldClip& clip, std::uint64_t end) const {
    const std::uint64_t samples = clip.m_index->getSamples();
    std::uint64_t sample = clip.m_told;
    while (sample < samples) {
        MovRunIndex::Stretch stretch = clip.m_index->find(sample, samples - sample);
        const bool isWhole = stretch.m_offset + stretch.m_bytes <= end;
        while (!isWhole && stretch.m_samples != 0 && stretch.m_offset + stretch.m_bytes > end) {
            const std::uint32_t size = clip.m_index->getFixedSize();
            const std::uint64_t room = end > stretch.m_offset ? end - stretch.m_offset : 0;
            stretch = clip.m_index->find(sample, size != 0 ? room / size : stretch.m_samples - 1);
        }
        sample += stretch.m_samples;
        if (!isWhole) break;
    }
    return sample;
}

bool MovIndexKeeper::isDue(std::uint64_t end) const {
    for (const auto& track : m_movie.m_tracks) {
        if (track->m_clips.empty()) continue;
        const MovToldClip& clip = track->m_clips.back();
        const std::uint64_t told = track->m_tables.getSamples();
        const auto isEnough = [&track, told](std::uint64_t samples) {
            const std::uint64_t ticks = (samples - told) * track->m_param.m_ticksPerSample;
            return samples > told && (told == 0 || ticks >= track->m_param.m_sampleRate);
        };
        if (!isEnough(clip.m_base + clip.m_index->getSamples())) continue;
        if (isEnough(clip.m_base + tellable(clip, endOf(clip, end)))) return true;
    }
    return false;
}

void MovIndexKeeper::tell(std::uint64_t end) {
    for (const auto& track : m_movie.m_tracks) {
        for (MovToldClip& clip : track->m_clips) {
            const std::uint64_t to = tellable(clip, endOf(clip, end));
            track->m_tables.tell(*clip.m_index, clip.m_told, to, track->getDescription(clip.m_media), track->m_order);
            clip.m_told = to;
            if (to < clip.m_index->getSamples()) break;
        }
    }
}

OpResult MovIndexKeeper::bringUpToDate() {
    MovIndexRoom& room = m_parts.back().m_room;
    if (!room.isLaidOut(m_movie) && !(room.getShown() == MovIndexRoom::s_hidden && room.layOut(m_movie)))
        return moveOn();
    const MovMoov moov = room.build(m_movie);
    if (!room.holds(m_movie, moov)) return moveOn();
    if (moov.getBytes() == m_shown) return OpResult(OpResult::Ok);
    const unsigned slot = room.getShown() == 0 ? 1 : 0;
    OpResult result = room.putMoov(putter(), slot, m_movie, moov);
    if (result) result = room.show(putter(), slot);
    if (result) m_shown = moov.getBytes();
    return result;
}

OpResult MovIndexKeeper::moveOn() {
    OpResult result = openMdat();
    if (!result) return result;
    Part next;
    const std::uint64_t slot = MovIndexRoom::wantedSlot(m_movie);
    const std::uint64_t size = MovIndexRoom(0, slot).getSize() + s_mdatHead;
    next.m_room = MovIndexRoom(reserve(size), slot);
    next.m_mdat = next.m_room.getEnd();
    if (!next.m_room.layOut(m_movie)) return failed("the index has outgrown the file format");
    MediaSampleDesc place;  // no samples, and yet it is part of the file
    place.set(0, 0, next.m_room.getAt(), static_cast<unsigned>(size), 0, false);
    m_essence->noteWritten(place);

    const MovMoov moov = next.m_room.build(m_movie);
    result = putMdat(next.m_mdat);
    if (result) result = next.m_room.putMoov(putter(), 0, m_movie, moov);
    if (result) result = next.m_room.putHead(putter(), 0);
    if (result) result = closeMdat(m_parts.back().m_mdat, next.m_room.getAt());
    if (!result) return result;
    m_parts.push_back(next);
    m_shown = moov.getBytes();
    return m_parts[m_parts.size() - 2].m_room.show(putter(), MovIndexRoom::s_hidden);
}

// Writes have been lost, and which of them isn't known: the file says how far it has come.
OpResult MovIndexKeeper::recover() {
    m_isClosed = false;
    m_shown.clear();
    m_movie.m_timecode.m_at = 0;
    for (const auto& track : m_movie.m_tracks) {
        track->m_tables.forget();
        for (MovToldClip& clip : track->m_clips)
            clip.m_told = 0;
    }
    std::array<std::uint8_t, 4> head;
    std::size_t used = 0;
    for (; used + 1 < m_parts.size(); ++used) {
        if (!get(m_parts[used].m_mdat, head.data(), head.size())) return failed("the file can't be read again");
        if (head[3] == 0) break;  // the room behind it hasn't come in sight
    }
    m_parts.resize(used + 1);
    for (Part& part : m_parts) {
        if (!get(part.m_room.getAt(), head.data(), head.size())) return failed("the file can't be read again");
        part.m_room.takeState(head);
        part.m_room.distrust();
    }
    OpResult result = putBytes(m_parts.back().m_mdat + 3, {0});
    for (std::size_t i = 0; result && i < used; ++i)
        result = m_parts[i].m_room.show(putter(), MovIndexRoom::s_hidden);
    return result;
}
