#include <gtest/gtest.h>

#include "backends/mov/mov_media_obj.h"
#include "backends/mov/mov_references.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/kit/cache_scene.h"
#include "tests/unit/backends/mov_fixture.h"

// Movie files as movies: edits and descriptions as clips, references as files, timecode, what a request gets.

using namespace MovKit;

namespace {

class MovMovieTest : public kit::CacheScene {
protected:
    void open(const std::string& bytes, const std::string& name = "a.mov") {
        m_path = m_tree.write(name, bytes);
        m_movie = MediaObj::openReader(m_path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(m_movie, nullptr) << m_result.describe().get();
    }
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release();
        CacheScene::TearDown();
    }
    const MediaClipDesc& clip(unsigned track, unsigned index) const {
        return *m_movie->getTrackAt(track)->getClip(index);
    }
    bool find(const MediaClipDesc& clip, unsigned long long sample, unsigned count = 1) {
        return clip.getMediaOffset(MediaPlayReq(sample, count), m_where, m_result);
    }

    std::string m_path;
    MediaObj* m_movie = nullptr;
    MediaSampleInMovie m_where;
};

Track pictures(std::uint32_t samples, std::uint32_t at) {
    Track track;
    track.m_scale = 2500;
    track.m_duration = samples * 100;
    track.m_tables = plainTables(samples, 10, 100, at);
    return track;
}

// The head of a ProRes picture of 32 bytes, as a frame or as two fields.
std::string proresPicture(bool isFields) {
    return be32(32) + "icpf" + be16(20) + be16(0) + be32(0) + be16(720) + be16(576) + (isFields ? "\x84" : "\x80") +
           std::string(11, '\0');
}
Track proresPictures(std::uint32_t at) {
    Track track = pictures(2, at);
    track.m_entries = {pictureEntry("apcn")};
    track.m_tables = plainTables(2, 32, 100, at);
    return track;
}

std::string media(std::size_t size) { return atom("mdat", std::string(size, 'm')); }

}  // namespace

TEST_F(MovMovieTest, OneTrackWithoutEditsIsOneClipOfAllSamples) {
    open(head() + media(400) + movie({pictures(40, 24).build()}));
    ASSERT_EQ(m_movie->getTrackCount(), 1u);
    ASSERT_EQ(m_movie->getTrackAt(0)->getClipCount(), 1u);
    EXPECT_EQ(clip(0, 0).getLength(), 40u);
    EXPECT_EQ(clip(0, 0).getSampleRate(), 25u);
    EXPECT_EQ(clip(0, 0).getContainer(), MediaContainment::Embedded);
    EXPECT_EQ(m_movie->getFrameLength(), 40u);
    EXPECT_EQ(m_movie->getVideoRate(), MediaVideoRate::Pal25);
    ASSERT_TRUE(find(clip(0, 0), 39));
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 24u + 390);
    EXPECT_EQ(m_where.m_info.getSize(), 10u);
    EXPECT_EQ(m_where.m_info.getEncoding(), SampleCodingType::I);
    EXPECT_FALSE(find(clip(0, 0), 40));
    EXPECT_TRUE(m_result);
}

TEST_F(MovMovieTest, WhatTheFirstEditSkipsIsPrecharge) {
    Track track = pictures(40, 24);
    track.m_edits = {{800, 500}};  // 0.8 s from 0.2 s on
    open(head() + media(400) + movie({track.build()}));
    ASSERT_EQ(m_movie->getTrackAt(0)->getClipCount(), 1u);
    EXPECT_EQ(clip(0, 0).getEdit(0)->getIn(), 5u);
    EXPECT_EQ(clip(0, 0).getEdit(0)->getOut(), 25u);
    EXPECT_EQ(clip(0, 0).getLength(), 20u);
    EXPECT_EQ(clip(0, 0).getRollout(), 15u);
    EXPECT_EQ(m_movie->getTrackAt(0)->getLength(), 20u * 100 * 4);  // 10000 ticks a second
    ASSERT_TRUE(find(clip(0, 0), 0));
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 24u);
}

TEST_F(MovMovieTest, FurtherEditsAreClipsThatCountFromWhatTheyShow) {
    Track track = pictures(40, 24);
    track.m_edits = {{400, 0}, {200, -1}, {400, 2000}};
    open(head() + media(400) + movie({track.build()}));
    ASSERT_EQ(m_movie->getTrackAt(0)->getClipCount(), 3u);
    EXPECT_EQ(clip(0, 0).getLength(), 10u);
    EXPECT_EQ(clip(0, 1).getLength(), 5u);
    EXPECT_EQ(clip(0, 1).getMediaId(), nullptr);
    EXPECT_FALSE(find(clip(0, 1), 0));
    EXPECT_TRUE(m_result);
    EXPECT_EQ(clip(0, 2).getEdit(0)->getIn(), 0u);
    ASSERT_TRUE(find(clip(0, 2), 0));
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 24u + 200);
    EXPECT_EQ(m_movie->getFrameLength(), 25u);
}

TEST_F(MovMovieTest, EachSampleDescriptionIsAClip) {
    Track track = pictures(40, 24);
    track.m_entries = {pictureEntry("dvcp"), pictureEntry("apch")};
    track.m_tables = list("stts", 1, be32(40) + be32(100)) +
                     list("stsc", 2, be32(1) + be32(15) + be32(1) + be32(2) + be32(25) + be32(2)) +
                     full("stsz", be32(10) + be32(40)) + list("stco", 2, be32(24) + be32(174));
    open(head() + media(400) + movie({track.build()}));
    ASSERT_EQ(m_movie->getTrackAt(0)->getClipCount(), 2u);
    EXPECT_EQ(clip(0, 0).getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(clip(0, 0).getLength(), 15u);
    EXPECT_EQ(clip(0, 1).getEncoding(), MediaEncodingType::Prores);
    EXPECT_EQ(clip(0, 1).getLength(), 25u);
    EXPECT_FALSE(find(clip(0, 0), 15));
    ASSERT_TRUE(find(clip(0, 1), 1));
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 184u);
}

TEST_F(MovMovieTest, WhatADescriptionLeavesOpenItsOwnFirstPictureSays) {
    Track track = proresPictures(24);
    track.m_entries = {pictureEntry("apcn"), pictureEntry("apcn")};
    track.m_tables = list("stts", 1, be32(3) + be32(100)) +
                     list("stsc", 2, be32(1) + be32(1) + be32(1) + be32(2) + be32(2) + be32(2)) +
                     full("stsz", be32(32) + be32(3)) + list("stco", 2, be32(24) + be32(56));
    open(head() + atom("mdat", proresPicture(false) + proresPicture(true) + proresPicture(false)) +
         movie({track.build()}));
    ASSERT_EQ(m_movie->getTrackAt(0)->getClipCount(), 2u);
    EXPECT_EQ(clip(0, 0).getVscan(), MediaVideoScanType::Progressive);
    EXPECT_EQ(clip(0, 1).getVscan(), MediaVideoScanType::Interlaced);
}

TEST_F(MovMovieTest, WhatADescriptionSaysIsNotLookedForInPictures) {
    Track track = proresPictures(24);
    track.m_entries = {pictureEntry("apcn", atom("fiel", std::string("\1\0", 2)))};
    open(head() + atom("mdat", proresPicture(true) + proresPicture(true)) + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getVscan(), MediaVideoScanType::Progressive);
}

TEST_F(MovMovieTest, PicturesInAnotherFileSayIt) {
    m_tree.write("beside.raw", proresPicture(true) + proresPicture(true));
    Track track = proresPictures(0);
    track.m_references = full("url ", "beside.raw" + std::string(1, '\0'));
    open(head() + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getLength(), 2u);
    EXPECT_EQ(clip(0, 0).getVscan(), MediaVideoScanType::Interlaced);
    m_movie->release();
    m_movie = nullptr;
    m_tree.write("beside.raw", proresPicture(true).substr(0, 31));
    open(head() + movie({track.build()}), "cut.mov");
    EXPECT_EQ(clip(0, 0).getLength(), 2u);
    EXPECT_EQ(clip(0, 0).getVscan(), MediaVideoScanType::Unknown);
}

TEST_F(MovMovieTest, PicturesThatAreNotThereSayNothing) {
    Track track = proresPictures(0);
    track.m_references = full("url ", "gone.raw" + std::string(1, '\0'));
    open(head() + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getVscan(), MediaVideoScanType::Unknown);
    m_movie->release();
    m_movie = nullptr;
    const std::string whole = head() + movie({proresPictures(0).build()});
    const auto at = static_cast<std::uint32_t>(whole.size() + 8);
    open(head() + movie({proresPictures(at).build()}) + atom("mdat", proresPicture(true)).substr(0, 8 + 31), "cut.mov");
    EXPECT_EQ(clip(0, 0).getLength(), 0u);
    EXPECT_EQ(clip(0, 0).getVscan(), MediaVideoScanType::Unknown);
}

TEST_F(MovMovieTest, SoundOfTwoChunksComesInTwoPiecesAndNeighboursInOne) {
    Track track;
    track.m_handler = "soun";
    track.m_scale = 48000;
    track.m_entries = {soundEntry("sowt", 2, 16, 48000)};
    track.m_tables = list("stts", 1, be32(400) + be32(1)) + list("stsc", 1, be32(1) + be32(100) + be32(1)) +
                     full("stsz", be32(1) + be32(400)) +  // as old writers have it
                     list("stco", 4, be32(24) + be32(424) + be32(1000) + be32(2000));
    open(head() + media(3000) + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getLookup()->getFixedSize(), 4u);
    ASSERT_TRUE(find(clip(0, 0), 50, 100));
    EXPECT_EQ(m_where.m_numChunks, 1u);
    EXPECT_EQ(m_where.m_chunks[0].m_size, 400u);
    ASSERT_TRUE(find(clip(0, 0), 150, 100));
    EXPECT_EQ(m_where.m_numChunks, 2u);
    EXPECT_EQ(m_where.m_chunks[0].m_offset, 24u + 600);
    EXPECT_EQ(m_where.m_chunks[1].m_offset, 1000u);
    EXPECT_EQ(m_where.m_count, 100u);
    ASSERT_TRUE(find(clip(0, 0), 150, 250));
    EXPECT_EQ(m_where.m_count, 150u);  // a third piece waits for the next request
    EXPECT_EQ(m_where.m_info.getSize(), 600u);
}

TEST_F(MovMovieTest, AFileBesideTheMovieIsReadByReference) {
    m_tree.write("sound/take 1.raw", std::string(400, 'r'));
    Track track = pictures(40, 0);
    track.m_references = full("url ", "sound/take%201.raw" + std::string(1, '\0'));
    open(head() + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getContainer(), MediaContainment::ByRef);
    EXPECT_STREQ(m_movie->getPath(clip(0, 0).getMediaId()), m_tree.path("sound/take 1.raw").c_str());
    ASSERT_TRUE(find(clip(0, 0), 3));
    MediaSampleBuf buffer(clip(0, 0));
    ASSERT_TRUE(m_movie->vsRead(m_where, buffer));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size()), "rrrrrrrrrr");
}

TEST_F(MovMovieTest, AMissingFileIsNamedAndTheMovieOpens) {
    Track track = pictures(40, 0);
    track.m_references = full("url ", "gone.raw" + std::string(1, '\0'));
    open(head() + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getLength(), 40u);
    EXPECT_NE(m_log.text().find("the media file " + m_tree.path("gone.raw") + " is not there"), std::string::npos)
        << m_log.text();
}

TEST_F(MovMovieTest, AReferenceThatClimbsOutOfTheFolderLeadsNowhere) {
    Track track = pictures(40, 0);
    track.m_references = full("url ", "sub/../../secret" + std::string(1, '\0'));
    open(head() + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getMediaId(), nullptr);
    EXPECT_NE(m_log.text().find("leads to no file that may be read"), std::string::npos) << m_log.text();
}

TEST_F(MovMovieTest, AMovieThatRefersToItselfIsItsOwnMedia) {
    Track track = pictures(40, 24);
    track.m_references = full("url ", "a.mov" + std::string(1, '\0'));
    open(head() + media(400) + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getMediaId(), m_movie->getMediaId(0));
    EXPECT_EQ(m_movie->getMediaCount(), 1u);
}

TEST_F(MovMovieTest, AFileThatIsShorterThanTheTablesSayIsReadAsFarAsItGoes) {
    m_tree.write("short.raw", std::string(105, 'r'));
    Track track = pictures(40, 0);
    track.m_references = full("url ", "short.raw" + std::string(1, '\0'));
    open(head() + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getLength(), 40u);
    MediaSampleBuf buffer(clip(0, 0));
    ASSERT_TRUE(find(clip(0, 0), 9));
    EXPECT_TRUE(m_movie->vsRead(m_where, buffer));
    for (const unsigned picture : {10u, 11u, 39u}) {
        ASSERT_TRUE(find(clip(0, 0), picture));
        EXPECT_FALSE(m_movie->vsRead(m_where, buffer)) << picture;
    }
}

TEST_F(MovMovieTest, AMovieThatRefersToItselfByAnotherNameIsReadAllTheSame) {
    for (const char* name : {"./a.mov", "sub/../a.mov"}) {
        m_tree.write("sub/other", "o");
        Track track = pictures(40, 24);
        track.m_references = full("url ", name + std::string(1, '\0'));
        open(head() + media(400) + movie({track.build()}));
        MediaSampleBuf buffer(clip(0, 0));
        ASSERT_TRUE(find(clip(0, 0), 39));
        ASSERT_TRUE(m_movie->vsRead(m_where, buffer));
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size()), "mmmmmmmmmm");
        m_movie->release();
        m_movie = nullptr;
        expireAll();
    }
}

// The file that a reference names holds samples, whatever else it is: nobody follows what it refers to.
TEST_F(MovMovieTest, MoviesThatReferToEachOtherOpen) {
    const auto movieOn = [](const std::string& other) {
        Track track = pictures(40, 24);
        track.m_references = full("url ", other + std::string(1, '\0'));
        return head() + media(400) + movie({track.build()});
    };
    m_tree.write("b.mov", movieOn("a.mov"));
    open(movieOn("b.mov"));
    EXPECT_STREQ(m_movie->getPath(clip(0, 0).getMediaId()), m_tree.path("b.mov").c_str());
    MediaSampleBuf buffer(clip(0, 0));
    ASSERT_TRUE(find(clip(0, 0), 39));
    ASSERT_TRUE(m_movie->vsRead(m_where, buffer));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.getMem()), buffer.size()), "mmmmmmmmmm");
}

TEST_F(MovMovieTest, TheTimecodeTrackIsTheMoviesTimecodeAndNoTrack) {
    Track code;
    code.m_handler = "tmcd";
    code.m_id = 2;
    code.m_scale = 30000;
    code.m_entries = {atom("tmcd", std::string(6, '\0') + be16(1) + be32(0) + be32(1) + be32(30000) + be32(1001) +
                                       "\x1E" + std::string(1, '\0'))};
    code.m_tables = plainTables(1, 4, 1001, 424);
    Track track = pictures(40, 24);
    track.m_more = atom("tref", atom("tmcd", be32(2)));
    open(head() + atom("mdat", std::string(400, 'm') + be32(17982)) + movie({track.build(), code.build()}));
    EXPECT_EQ(m_movie->getTrackCount(), 1u);
    EXPECT_STREQ(m_movie->getTimecode().toString().get(), "00:10:00.00");
    EXPECT_TRUE(m_movie->getTimecode().m_dropFrame);
}

TEST_F(MovMovieTest, AFileThatIsCutShowsTheSamplesThatAreThere) {
    open(head() + movie({pictures(40, 1200).build()}) + std::string(1, '\0'));
    EXPECT_EQ(clip(0, 0).getLength(), 0u);
    m_movie->release();
    m_movie = nullptr;
    std::string bytes = head() + movie({pictures(40, 1200).build()});
    bytes.resize(1200 + 155, 'm');
    open(bytes, "b.mov");
    EXPECT_EQ(clip(0, 0).getLength(), 15u);
    EXPECT_NE(m_log.text().find("of 40 samples 15 are in the file"), std::string::npos) << m_log.text();
}

TEST_F(MovMovieTest, FragmentsGoOnBehindTheTables) {
    Track track = pictures(4, 24);
    const std::string extends = atom("mvex", full("trex", be32(1) + be32(1) + be32(100) + be32(10) + be32(0x10000)));
    const std::string before = head() + media(40) + movie({track.build()}, 1000, extends);
    const auto fragment = [](std::uint64_t time, std::uint32_t flags, std::uint32_t count, const std::string& entries) {
        return atom("moof",
                    full("mfhd", be32(1)) + atom("traf", full("tfhd", be32(1), 0x20000) + full("tfdt", be32(time)) +
                                                             full("trun", be32(count) + entries, flags)));
    };
    // The first run has offset, first flags and sizes; the second nothing but an offset.
    std::string first = fragment(400, 0x205, 3, be32(0) + be32(0x2000000) + be32(5) + be32(6) + be32(7));
    first = fragment(400, 0x205, 3, be32(first.size() + 8) + be32(0x2000000) + be32(5) + be32(6) + be32(7));
    std::string second = fragment(700, 0x1, 2, be32(0));
    second = fragment(700, 0x1, 2, be32(second.size() + 8));
    const std::string bytes = before + first + media(18) + second + media(15);
    open(bytes);
    const std::uint64_t firstData = before.size() + first.size() + 8;
    const std::uint64_t secondData = firstData + 18 + second.size() + 8;
    EXPECT_EQ(clip(0, 0).getLength(), 8u);  // the last of two samples of ten bytes is cut
    EXPECT_EQ(clip(0, 0).getSequenceCoding(), SequenceCodingType::LongGop);
    struct Row {
        unsigned m_sample, m_size;
        std::uint64_t m_at;
        SampleCodingType m_type;
    };
    const Row rows[] = {{3, 10, 24 + 30, SampleCodingType::I},
                        {4, 5, firstData, SampleCodingType::I},
                        {5, 6, firstData + 5, SampleCodingType::Unknown},
                        {6, 7, firstData + 11, SampleCodingType::Unknown},
                        {7, 10, secondData, SampleCodingType::Unknown}};
    for (const Row& row : rows) {
        ASSERT_TRUE(find(clip(0, 0), row.m_sample)) << row.m_sample;
        EXPECT_EQ(m_where.m_chunks[0].m_offset, row.m_at) << row.m_sample;
        EXPECT_EQ(m_where.m_info.getSize(), row.m_size) << row.m_sample;
        EXPECT_EQ(m_where.m_info.getEncoding(), row.m_type) << row.m_sample;
    }
    MovSampleTime time;
    ASSERT_TRUE(static_cast<const MovClip&>(clip(0, 0)).getMovLookup().getSampleTime(7, time));
    EXPECT_EQ(time.decoded, 700u);
}

namespace {

// A movie of sound in one fragment; an entry of the run has the time that it lasts and its bytes.
std::string soundInAFragment(const std::vector<std::pair<unsigned, unsigned>>& entries, std::size_t bytes) {
    Track track;
    track.m_handler = "soun";
    track.m_scale = 48000;
    track.m_entries = {soundEntry("sowt", 2, 16, 48000)};
    track.m_tables = plainTables(0, 0, 0, 0);
    const std::string extends = atom("mvex", full("trex", be32(1) + be32(1) + be32(0) + be32(0) + be32(0)));
    std::string run;
    for (const auto& [ticks, size] : entries)
        run += be32(ticks) + be32(size);
    const auto fragment = [&](std::uint64_t offset) {
        return atom("moof", full("mfhd", be32(1)) +
                                atom("traf", full("tfhd", be32(1), 0x20000) + full("tfdt", be32(500)) +
                                                 full("trun", be32(entries.size()) + be32(offset) + run, 0x301)));
    };
    return head() + movie({track.build()}, 1000, extends) + fragment(fragment(0).size() + 8) +
           atom("mdat", std::string(bytes, 's'));
}

}  // namespace

TEST_F(MovMovieTest, SoundInFragmentsCountsItsSamplesOneByOne) {
    // The third entry begins later than the one before it ends.
    const std::string bytes = soundInAFragment({{100, 400}, {90, 200}, {30, 120}, {30, 120}}, 840);
    open(bytes);
    const std::uint64_t at = bytes.size() - 840;
    EXPECT_EQ(clip(0, 0).getLength(), 210u);
    EXPECT_EQ(clip(0, 0).getSampleRate(), 48000u);
    EXPECT_EQ(clip(0, 0).getTicksPerSample(), 1u);
    ASSERT_TRUE(find(clip(0, 0), 20, 150));
    EXPECT_EQ(m_where.m_count, 150u);
    EXPECT_EQ(m_where.m_numChunks, 1u);
    EXPECT_EQ(m_where.m_chunks[0].m_offset, at + 80);
    EXPECT_EQ(m_where.m_chunks[0].m_size, 600u);
    const auto timeOf = [this](unsigned sample) {
        MovSampleTime time;
        EXPECT_TRUE(static_cast<const MovClip&>(clip(0, 0)).getMovLookup().getSampleTime(sample, time));
        return time.decoded;
    };
    EXPECT_EQ(timeOf(0), 500u);
    EXPECT_EQ(timeOf(149), 649u);
    EXPECT_EQ(timeOf(150), 690u);
    EXPECT_EQ(timeOf(209), 749u);
}

TEST_F(MovMovieTest, SoundInAFragmentThatIsCutEndsWithItsLastWholeSample) {
    open(soundInAFragment({{100, 400}, {100, 400}}, 510));
    EXPECT_EQ(clip(0, 0).getLength(), 127u);
    ASSERT_TRUE(find(clip(0, 0), 126));
    EXPECT_FALSE(find(clip(0, 0), 127));
}

TEST_F(MovMovieTest, EntriesOfAFragmentThatAreNoWholeSamplesStayAsTheyAre) {
    open(soundInAFragment({{100, 401}, {100, 399}}, 800));
    EXPECT_EQ(clip(0, 0).getLength(), 2u);
    ASSERT_TRUE(find(clip(0, 0), 1));
    EXPECT_EQ(m_where.m_chunks[0].m_size, 399u);
    m_movie->release();
    m_movie = nullptr;
    open(soundInAFragment({{0, 0}, {0, 0}}, 8), "empty.mov");
    EXPECT_EQ(clip(0, 0).getLength(), 0u);
}

TEST_F(MovMovieTest, ACodingWithoutAWordIsNamedAndItsSamplesAreFound) {
    Track track = pictures(40, 24);
    track.m_entries = {pictureEntry("hvc1")};
    open(head() + media(400) + movie({track.build()}));
    EXPECT_EQ(clip(0, 0).getEncoding(), MediaEncodingType::Unknown);
    EXPECT_NE(m_log.text().find("samples of HEVC ('hvc1') are shown without their coding"), std::string::npos);
    EXPECT_TRUE(find(clip(0, 0), 39));
}

TEST_F(MovMovieTest, AFinishedMovieTakesNoTracksClipsOrWriters) {
    open(head() + media(400) + movie({pictures(40, 24).build()}));
    const MediaClipParam param = m_movie->getTrackAt(0)->getParam();
    EXPECT_EQ(m_movie->createTrack(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    EXPECT_EQ(m_movie->getTrackAt(0)->createClip(param, m_result), nullptr);
    EXPECT_TRUE(kit::isWarning(m_result, MediaCode::OperationUnsupported));
    m_result.discard();
}

TEST(MovReferences, PathsAreWrittenAsUrlsAndComeBack) {
    for (const std::string path : {"a.raw", "sub/with space.raw", "/abs/\xC3\xA4 100%.dv", "odd#?&.wav"}) {
        std::string back;
        ASSERT_TRUE(MovReferences::decodeUrl(MovReferences::encodeUrl(path), back)) << path;
        EXPECT_EQ(back, path);
    }
    std::string path;
    EXPECT_TRUE(MovReferences::decodeUrl("file://localhost/media/a.dv", path));
    EXPECT_EQ(path, "/media/a.dv");
    EXPECT_FALSE(MovReferences::decodeUrl("http://host/a.dv", path));
    EXPECT_FALSE(MovReferences::decodeUrl("file://otherhost/a.dv", path));
    EXPECT_FALSE(MovReferences::decodeUrl("a%00b", path));
    EXPECT_TRUE(MovReferences::climbs(".."));
    EXPECT_TRUE(MovReferences::climbs("a/../../b"));
    EXPECT_TRUE(MovReferences::climbs("./../b"));
    EXPECT_FALSE(MovReferences::climbs("a/../b"));
    EXPECT_FALSE(MovReferences::climbs("..a/b"));
}

TEST(MovReferences, AnAliasIsLookedForBesideTheMovieAndThenByItsPath) {
    const auto field = [](const std::string& text, std::size_t room) {
        return std::string(1, static_cast<char>(text.size())) + text + std::string(room - text.size(), '\0');
    };
    const auto tag = [](unsigned number, const std::string& text) {
        return be16(number) + be16(text.size()) + text + std::string(text.size() % 2, '\0');
    };
    const std::string alias = std::string(10, '\0') + field("Disk", 27) + std::string(12, '\0') + field("take.dv", 63) +
                              std::string(16, '\0') + be16(1) + be16(2) + std::string(16, '\0') +
                              tag(2, "Disk:show:day1:take.dv") + tag(18, "show/day1/take.dv") +
                              tag(19, "/Volumes/Disk") + be16(0xFFFF) + be16(0);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(alias.data());
    const MovReference reference = MovReferences::parse(MovAtom::s_alis, 0, bytes, alias.size());
    const std::vector<std::string> expected = {"day1/take.dv", "take.dv", "/Volumes/Disk/show/day1/take.dv",
                                               "/show/day1/take.dv"};
    EXPECT_EQ(reference.candidates, expected);
    for (std::size_t size = 0; size < alias.size(); ++size) {
        const MovReference cut = MovReferences::parse(MovAtom::s_alis, 0, bytes, size);
        EXPECT_EQ(cut.isRefused, size < 150) << size;
    }
}
