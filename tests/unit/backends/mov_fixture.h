#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Builds movie files in memory, atom by atom.
namespace MovKit {

inline std::string be(std::uint64_t value, unsigned bytes) {
    std::string text;
    for (unsigned i = bytes; i-- > 0;)
        text += static_cast<char>(value >> (8 * i) & 0xFF);
    return text;
}
inline std::string be16(std::uint64_t value) { return be(value, 2); }
inline std::string be32(std::uint64_t value) { return be(value, 4); }
inline std::string be64(std::uint64_t value) { return be(value, 8); }

inline std::string atom(const std::string& type, const std::string& body) {
    return be32(body.size() + 8) + type + body;
}
// With version and flags.
inline std::string full(const std::string& type, const std::string& body, std::uint32_t flags = 0) {
    return atom(type, be32(flags) + body);
}
// A list that begins with its count.
inline std::string list(const std::string& type, std::uint32_t count, const std::string& entries,
                        std::uint32_t flags = 0) {
    return full(type, be32(count) + entries, flags);
}

inline std::string pictureEntry(const std::string& code = "dvcp", const std::string& more = "", unsigned reference = 1,
                                unsigned width = 720, unsigned height = 576) {
    return atom(code, std::string(6, '\0') + be16(reference) + std::string(16, '\0') + be16(width) + be16(height) +
                          std::string(50, '\0') + more);
}
inline std::string soundEntry(const std::string& code, unsigned channels, unsigned bits, unsigned rate,
                              const std::string& more = "", unsigned version = 0) {
    return atom(code, std::string(6, '\0') + be16(1) + be16(version) + std::string(6, '\0') + be16(channels) +
                          be16(bits) + std::string(4, '\0') + be32(rate << 16) + more);
}

struct Edit {
    std::uint32_t m_duration = 0;
    std::int32_t m_start = 0;
};

// A track: what isn't set is left out.
struct Track {
    std::string m_handler = "vide";
    std::uint32_t m_id = 1;
    std::uint32_t m_scale = 25;
    std::uint32_t m_duration = 0;
    std::vector<std::string> m_entries = {pictureEntry()};
    std::string m_references = full("url ", "", 1);
    unsigned m_referenceCount = 1;
    std::vector<Edit> m_edits;
    std::string m_tables;  // all of `stbl` but the descriptions
    std::string m_more;    // in `trak`

    std::string build() const {
        std::string entries, edits;
        for (const std::string& entry : m_entries)
            entries += entry;
        for (const Edit& edit : m_edits)
            edits += be32(edit.m_duration) + be32(static_cast<std::uint32_t>(edit.m_start)) + be32(0x10000);
        const std::string tkhd = full("tkhd", std::string(8, '\0') + be32(m_id) + std::string(68, '\0'));
        const std::string mdhd = full("mdhd", std::string(8, '\0') + be32(m_scale) + be32(m_duration) + be32(0));
        const std::string hdlr = full("hdlr", be32(0) + m_handler + std::string(13, '\0'));
        const std::string stbl =
            atom("stbl", list("stsd", static_cast<std::uint32_t>(m_entries.size()), entries) + m_tables);
        const std::string dinf = atom("dinf", list("dref", m_referenceCount, m_references));
        const std::string edts =
            edits.empty() ? "" : atom("edts", list("elst", static_cast<std::uint32_t>(m_edits.size()), edits));
        return atom("trak", tkhd + edts + atom("mdia", mdhd + hdlr + atom("minf", dinf + stbl)) + m_more);
    }
};

// The tables of samples of one size and step, all in one chunk.
inline std::string plainTables(std::uint32_t samples, std::uint32_t size, std::uint32_t step, std::uint32_t at) {
    return list("stts", 1, be32(samples) + be32(step)) + list("stsc", 1, be32(1) + be32(samples) + be32(1)) +
           full("stsz", be32(size) + be32(samples)) + list("stco", 1, be32(at));
}

inline std::string movie(const std::vector<std::string>& tracks, std::uint32_t scale = 1000,
                         const std::string& more = "") {
    std::string body = full("mvhd", std::string(8, '\0') + be32(scale) + be32(0) + std::string(80, '\0'));
    for (const std::string& track : tracks)
        body += track;
    return atom("moov", body + more);
}

inline std::string head() { return atom("ftyp", "qt  " + be32(0)); }

}  // namespace MovKit
