#pragma once

#include <cstdint>

// A four-character code as the 32-bit big-endian word that stands in the file.
using MovCode = std::uint32_t;

constexpr MovCode movCode(const char (&text)[5]) {
    return static_cast<MovCode>(static_cast<unsigned char>(text[0])) << 24 |
           static_cast<MovCode>(static_cast<unsigned char>(text[1])) << 16 |
           static_cast<MovCode>(static_cast<unsigned char>(text[2])) << 8 |
           static_cast<MovCode>(static_cast<unsigned char>(text[3]));
}

// The code as text for a message: four characters and a terminator, '.' for what doesn't print.
struct MovCodeText {
    explicit MovCodeText(MovCode code) {
        for (int i = 0; i < 4; ++i) {
            const auto c = static_cast<char>(code >> (24 - 8 * i) & 0xFF);
            text[i] = c < 0x20 || c > 0x7E ? '.' : c;
        }
    }
    char text[5] = {};
};

// The atoms of a movie file. Sources: ISO/IEC 14496-12 (base media file format), 14496-14 (mp4), 14496-15 (avcC),
// QuickTime File Format Specification.
namespace MovAtom {

// At the top of a file.
constexpr MovCode s_ftyp = movCode("ftyp"), s_styp = movCode("styp"), s_moov = movCode("moov"),
                  s_mdat = movCode("mdat"), s_free = movCode("free"), s_skip = movCode("skip"),
                  s_wide = movCode("wide"), s_pnot = movCode("pnot"), s_pict = movCode("PICT"),
                  s_uuid = movCode("uuid"), s_moof = movCode("moof"), s_mfra = movCode("mfra"),
                  s_sidx = movCode("sidx"), s_ssix = movCode("ssix"), s_prft = movCode("prft"),
                  s_emsg = movCode("emsg"), s_meta = movCode("meta"), s_udta = movCode("udta"),
                  s_junk = movCode("junk"), s_pdin = movCode("pdin");

// In a movie.
constexpr MovCode s_mvhd = movCode("mvhd"), s_trak = movCode("trak"), s_mvex = movCode("mvex"),
                  s_mehd = movCode("mehd"), s_trex = movCode("trex"), s_cmov = movCode("cmov"),
                  s_rmra = movCode("rmra"), s_iods = movCode("iods");

// In a track.
constexpr MovCode s_tkhd = movCode("tkhd"), s_edts = movCode("edts"), s_elst = movCode("elst"),
                  s_tref = movCode("tref"), s_mdia = movCode("mdia"), s_mdhd = movCode("mdhd"),
                  s_hdlr = movCode("hdlr"), s_minf = movCode("minf"), s_vmhd = movCode("vmhd"),
                  s_smhd = movCode("smhd"), s_gmhd = movCode("gmhd"), s_gmin = movCode("gmin"),
                  s_nmhd = movCode("nmhd"), s_dinf = movCode("dinf"), s_dref = movCode("dref"),
                  s_stbl = movCode("stbl"), s_stsd = movCode("stsd"), s_stts = movCode("stts"),
                  s_ctts = movCode("ctts"), s_stss = movCode("stss"), s_stsc = movCode("stsc"),
                  s_stsz = movCode("stsz"), s_stz2 = movCode("stz2"), s_stco = movCode("stco"),
                  s_co64 = movCode("co64"), s_sdtp = movCode("sdtp"), s_tapt = movCode("tapt"),
                  s_tcmi = movCode("tcmi");

// Kinds of track in `hdlr`, and of what a file's head says it is.
constexpr MovCode s_vide = movCode("vide"), s_soun = movCode("soun"), s_tmcd = movCode("tmcd"),
                  s_mhlr = movCode("mhlr"), s_dhlr = movCode("dhlr"), s_appl = movCode("appl"), s_qt = movCode("qt  ");

// Data references.
constexpr MovCode s_url = movCode("url "), s_urn = movCode("urn "), s_alis = movCode("alis"), s_rsrc = movCode("rsrc");

// In a sample description.
constexpr MovCode s_avcC = movCode("avcC"), s_esds = movCode("esds"), s_pasp = movCode("pasp"),
                  s_clap = movCode("clap"), s_colr = movCode("colr"), s_fiel = movCode("fiel"),
                  s_btrt = movCode("btrt"), s_wave = movCode("wave"), s_enda = movCode("enda"),
                  s_frma = movCode("frma"), s_chan = movCode("chan"), s_pcmC = movCode("pcmC");

// In a fragment.
constexpr MovCode s_mfhd = movCode("mfhd"), s_traf = movCode("traf"), s_tfhd = movCode("tfhd"),
                  s_tfdt = movCode("tfdt"), s_trun = movCode("trun");

}  // namespace MovAtom

// What a file may ask of a parse at most.
namespace MovLimit {

constexpr unsigned s_atoms = 1u << 20;          // headers looked at in one parse, those in fragments aside
constexpr unsigned s_fragmentAtoms = 1u << 22;  // headers in fragments
constexpr unsigned s_tracks = 1024;             // further ones aren't shown
constexpr unsigned s_descriptions = 1u << 16;   // of one track
constexpr unsigned s_references = 1u << 16;     // of one track, as many as a description can name
constexpr unsigned s_clips = 4096;              // of one track; what follows isn't shown
constexpr unsigned s_runs = 1u << 19;           // of samples in fragments, of the whole movie
constexpr std::uint64_t s_reference = 4096;     // bytes of one that are looked at

}  // namespace MovLimit
