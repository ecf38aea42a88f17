#include "tests/unit/backends/mov_seen.h"

#include <sys/stat.h>

#include <algorithm>

#include "tests/kit/samples.h"

namespace {

std::uint64_t number(const std::string& bytes, std::size_t at, unsigned count) {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < count; ++i)
        value = value << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
    return value;
}

std::uint32_t word(const std::string& bytes, std::size_t at) {
    return static_cast<std::uint32_t>(number(bytes, at, 4));
}

bool isFolder(const std::string& code) {
    static const std::vector<std::string> folders = {"trak", "edts", "mdia", "minf", "stbl", "dinf"};
    return std::find(folders.begin(), folders.end(), code) != folders.end();
}

}  // namespace

MovSeen MovSeen::of(const std::string& path) {
    MovSeen seen;
    seen.m_tracks.reserve(64);  // the tables below go by their places
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return seen.wrong("no file"), seen;
    const auto length = static_cast<std::uint64_t>(status.st_size);
    for (std::uint64_t at = 0; at + 8 <= length;) {
        const std::string head = kit::bytesAt(path, at, 16);
        std::uint64_t size = word(head, 0);
        const std::string code = head.substr(4, 4);
        if (size == 1) size = number(head, 8, 8);
        if (size == 0) size = length - at;
        if (size < 8) return seen.wrong("an atom of " + std::to_string(size) + " bytes"), seen;
        seen.m_top.push_back(code);
        if (code == "moov" && at + size > length) return seen.wrong("moov leads past the end"), seen;
        if (code == "moov" && ++seen.m_moovs == 1) {
            seen.m_moovAt = at;
            seen.movie(kit::bytesAt(path, at + 8, size - 8));
        }
        at += size;
    }
    return seen;
}

void MovSeen::movie(const std::string& bytes) {
    inside(bytes, nullptr);
    for (Track& track : m_tracks)
        place(track);
}

// Children fill their parent to its last byte.
void MovSeen::inside(const std::string& bytes, Track* track) {
    std::size_t at = 0;
    while (at + 8 <= bytes.size()) {
        const std::size_t size = word(bytes, at);
        const std::string code = bytes.substr(at + 4, 4);
        if (size < 8 || size > bytes.size() - at) return wrong(code + " of " + std::to_string(size) + " bytes");
        const std::string content = bytes.substr(at + 8, size - 8);
        at += size;
        if (code == "udta") m_userData = content;
        if (code == "mvhd") m_timescale = word(content, 20);
        if (code == "trak" && m_tracks.size() < m_tracks.capacity()) {
            m_tracks.emplace_back();
            inside(content, &m_tracks.back());
        } else if (track != nullptr && isFolder(code)) {
            inside(content, track);
        } else if (track != nullptr) {
            take(code, content, *track);
        }
    }
    if (at != bytes.size()) wrong("bytes behind the last atom");
}

void MovSeen::take(const std::string& code, const std::string& bytes, Track& track) {
    const std::uint32_t count = word(bytes, 4);
    const auto hasAll = [&](std::size_t head, unsigned entry, std::uint64_t entries) {
        if (bytes.size() != head + entry * entries) wrong(code + " has not the entries that it tells of");
        return bytes.size() == head + entry * entries;
    };
    if (code == "stsd") track.m_code = bytes.substr(12, 4);
    if (code == "dref") track.m_references = count;
    if (code == "stts" && hasAll(8, 8, count)) {
        for (unsigned i = 0; i < count; ++i)
            track.m_timed += word(bytes, 8 + 8 * i);
    }
    if (code == "stss" && hasAll(8, 4, count)) {
        for (unsigned i = 0; i < count; ++i)
            track.m_syncs.push_back(word(bytes, 8 + 4 * i));
    }
    if (code == "ctts" && hasAll(8, 8, count)) {
        for (unsigned i = 0; i < count; ++i)
            track.m_late.push_back(word(bytes, 12 + 8 * i));
    }
    if (code == "elst" && hasAll(8, 20, count)) {
        for (unsigned i = 0; i < count; ++i)
            track.m_edits.push_back({number(bytes, 8 + 20 * i, 8), number(bytes, 16 + 20 * i, 8)});
    }
    if (code == "stsz") {
        track.m_samples = word(bytes, 8);
        m_fixed = word(bytes, 4);
        if (m_fixed == 0 && !hasAll(12, 4, track.m_samples)) return;
        for (std::uint64_t i = 0; i < std::min<std::uint64_t>(track.m_samples, 1000000); ++i)
            track.m_sizes.push_back(m_fixed != 0 ? m_fixed : word(bytes, 12 + 4 * i));
    }
    if (code == "stsc" && hasAll(8, 12, count)) {
        for (unsigned i = 0; i < 3 * count; ++i)
            m_runs[&track].push_back(word(bytes, 8 + 4 * i));
    }
    const unsigned wide = code == "co64" ? 8 : 4;
    if ((code == "stco" || code == "co64") && hasAll(8, wide, count)) {
        for (unsigned i = 0; i < count; ++i)
            m_chunks[&track].push_back(number(bytes, 8 + wide * i, wide));
    }
}

// Chunks lie one behind the other in the file.
void MovSeen::place(Track& track) {
    const std::vector<std::uint64_t>& chunks = m_chunks[&track];
    const std::vector<std::uint64_t>& runs = m_runs[&track];
    std::size_t run = 0;
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        while (run + 3 < runs.size() && runs[run + 3] <= i + 1)
            run += 3;
        std::uint64_t at = chunks[i];
        for (std::uint64_t j = 0; run + 1 < runs.size() && j < runs[run + 1]; ++j) {
            if (track.m_inChunks >= track.m_sizes.size()) return wrong("chunks hold more samples than there are");
            track.m_at.push_back(at);
            at += track.m_sizes[track.m_inChunks++];
        }
        track.m_end = std::max(track.m_end, at);
    }
    if (track.m_inChunks != track.m_samples) wrong("chunks hold fewer samples than there are");
    if (track.m_timed != track.m_samples) wrong("samples without a duration");
    if (!track.m_late.empty() && track.m_late.size() != track.m_samples) wrong("samples without a time to be shown");
}
