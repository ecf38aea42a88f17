// What a movie has and what it hasn't, in the document and in the lines for people.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/description/description_fixture.h"
#include "tools/info_document.h"
#include "tools/info_text.h"
#include "tools/info_xml.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// A movie that tells everything that a movie can.
class RichMovie : public TestMovie {
public:
    RichMovie() {
        m_timecode.setCounter(1800, FixedPoint<16>(30000) / 1001, true);
        addPicture();
        addTrack(MediaDataType::Data, MediaEncodingType::S436mAnc).setSyncAdjustment(-1);
    }

    MediaTimecode getTimecode() const override { return m_timecode; }
    const char* getUmid() const override { return m_umid; }
    const MediaPropertyList& getProperties() const override { return m_properties; }

    MediaParams m_properties;
    MediaTimecode m_timecode;
    const char* m_umid = nullptr;

private:
    void addPicture() {
        TestTrack& track = addTrack(MediaDataType::Video);
        track.m_width = 1920;
        track.m_height = 1080;
        track.m_aspect = MediaAspectRatio::Ratio4x3;
        track.m_bag.set(MediaProperty(MediaPropertyEnum::Name::PPictCount, 4u)).discard();
        track.m_bag.set(MediaProperty(MediaPropertyEnum::Name::BPictCount, 2u)).discard();
        TestClip& clip = track.addClip(MediaEncodingType::Mpeg, 30000, 1001, 60);
        clip.m_coding = SequenceCodingType::LongGop;
        clip.m_chroma = MediaChromaSample::C422;
        clip.m_vscan = MediaVideoScanType::Progressive;
        clip.m_bitrate = 50000000;
    }
};

}  // namespace

TEST(InfoDocument, OfAPictureHasItsSizeAspectScanChromaCodingAndBitRate) {
    const RichMovie movie;
    const Json facts = describeMovie("a.mxf", movie);
    const Json& track = facts["tracks"][0];
    EXPECT_EQ(track["name"], "video0");
    EXPECT_EQ(track["width"], 1920);
    EXPECT_EQ(track["height"], 1080);
    EXPECT_EQ(track["aspect"], "4:3");
    EXPECT_EQ(track["clips"][0]["chroma"], "4:2:2");
    EXPECT_EQ(track["clips"][0]["scan"], "progressive");
    EXPECT_EQ(track["clips"][0]["sequenceCoding"], "long-gop");
    EXPECT_EQ(track["clips"][0]["bitrate"], 50000000);
}

TEST(InfoDocument, AnAspectByActiveFormatDataComesFirst) {
    RichMovie movie;
    movie.track(0).setAspectRatio(MediaAspectRatio::Ratio16x9, AspectRatio::ViaAFD());
    EXPECT_EQ(describeMovie("a.mxf", movie)["tracks"][0]["aspect"], "16:9");
}

TEST(InfoDocument, OfAMovieHasItsTimecodeAndTheLengthOfItsGop) {
    const RichMovie movie;
    const Json facts = describeMovie("a.mxf", movie);
    EXPECT_EQ(facts["timecode"], (Json{{"text", "00:01:00.02"}, {"dropFrame", true}}));
    EXPECT_EQ(facts["gopLength"], 15);
}

TEST(InfoDocument, HasASyncAdjustmentWhereThereIsOne) {
    const RichMovie movie;
    const Json facts = describeMovie("a.mxf", movie);
    EXPECT_EQ(facts["tracks"][1]["syncAdjustment"], -1);
    EXPECT_FALSE(facts["tracks"][0].contains("syncAdjustment"));
}

TEST(InfoDocument, HasNothingThatTheMovieHasNot) {
    TestMovie movie;
    movie.addTrack(MediaDataType::Audio).addClip(MediaEncodingType::Pcm, 48000, 1, 1600);
    movie.addTrack(MediaDataType::Video).addClip(MediaEncodingType::Avc, 25, 1, 1);
    const Json facts = describeMovie("a.mxf", movie);
    for (const char* name : {"timecode", "gopLength", "properties"})
        EXPECT_FALSE(facts.contains(name)) << name;
    for (const Json& track : facts["tracks"]) {
        for (const char* name : {"width", "height", "aspect", "syncAdjustment", "properties"})
            EXPECT_FALSE(track.contains(name)) << name;
        for (const char* name : {"chroma", "scan"})
            EXPECT_FALSE(track["clips"][0].contains(name)) << name;
    }
    EXPECT_FALSE(facts["tracks"][0]["clips"][0].contains("sequenceCoding"));
    EXPECT_EQ(facts["tracks"][1]["clips"][0]["sequenceCoding"], "intra");
}

TEST(InfoDocument, HasPropertiesOfEachKindWhole) {
    using Name = MediaPropertyEnum::Name;
    using Type = MediaPropertyEnum::Type;
    RichMovie movie;
    MediaProperty block, signedOne, unsignedOne, none;
    const unsigned char bytes[] = {0x06, 0x0A, 0xFF};
    block.init(Name::UmidValue);
    block.set(bytes, sizeof bytes, true);
    signedOne.init(Name::NBlack, Type::Signed64, static_cast<std::uint64_t>(-5));
    unsignedOne.init(Name::FirstFrame, Type::Unsigned64, 1ull << 33);
    none.init(Name::CodePage);
    MediaParams& bag = movie.m_properties;
    for (const MediaProperty& property : {block, signedOne, unsignedOne, none, MediaProperty(Name::AvcKind, 7u),
                                          MediaProperty(Name::ClipProps, "a\"b")})
        bag.set(property).discard();
    EXPECT_EQ(describeMovie("a.mxf", movie)["properties"], (Json{{"umidValue", "0x060aff"},
                                                                 {"nBlack", -5},
                                                                 {"firstFrame", 8589934592},
                                                                 {"codePage", nullptr},
                                                                 {"?14", 7},
                                                                 {"clipProps", "a\"b"}}));
}

TEST(InfoText, HasTheFactsOfTheDocument) {
    RichMovie movie;
    movie.m_properties.set(MediaProperty(MediaPropertyEnum::Name::ClipProps, "one\ntwo\x1B")).discard();
    const std::string text = movieText(describeMovie("a.mxf", movie));
    EXPECT_THAT(text, HasSubstr("  timecode  00:01:00.02, drop-frame\n  gop       15 frames\n"));
    EXPECT_THAT(text, HasSubstr(", 1920x1080, 4:3\n            mpeg, 30000/1001 Hz, 4:2:2, progressive, long-gop, "
                                "50000000 bits/s, 60 samples\n            PPictCount = 4\n"
                                "            BPictCount = 2\n"));
    EXPECT_THAT(text, HasSubstr(", sync adjusted by -1 frames\n"));
    EXPECT_THAT(text, HasSubstr("clipProps = one\xEF\xBF\xBDtwo\xEF\xBF\xBD\n"));
}

TEST(InfoDocument, TellsTheIdentifierAndWhatNotEveryoneUnderstands) {
    RichMovie movie;
    for (const char* name : {"umid", "clipProperties"})
        EXPECT_FALSE(describeMovie("a.mxf", movie).contains(name));
    movie.m_umid = "urn:smpte:umid:06";
    movie.m_properties.set(ClipPropsProperty("one,two")).discard();
    const Json facts = describeMovie("a.mxf", movie);
    EXPECT_EQ(facts["umid"], "urn:smpte:umid:06");
    EXPECT_EQ(facts["clipProperties"], Json::array({"one", "two"}));
    const std::string text = movieText(facts);
    EXPECT_THAT(text, HasSubstr("  umid      urn:smpte:umid:06\n"));
    EXPECT_THAT(text, HasSubstr("            clipProps = one,two\n"));
    movie.m_properties.set(ClipPropsProperty("")).discard();
    EXPECT_FALSE(describeMovie("a.mxf", movie).contains("clipProperties"));
}

TEST(InfoXml, HasSinglesAsAttributesAndTheRestAsElements) {
    RichMovie movie;
    movie.m_umid = "urn:smpte:umid:06";
    movie.m_properties.set(ClipPropsProperty("one,t<o")).discard();
    const std::string xml = xmlOf(Json{{"schemaVersion", 1}, {"movies", Json::array({describeMovie("a.mxf", movie)})}});
    EXPECT_THAT(xml, HasSubstr("<?xml version=\"1.0\"?>\n<mediacore schemaVersion=\"1\">\n  <movie path=\"a.mxf\" "));
    EXPECT_THAT(xml, HasSubstr(" umid=\"urn:smpte:umid:06\""));
    EXPECT_THAT(xml, HasSubstr("    <clipProperty name=\"one\" />\n    <clipProperty name=\"t&lt;o\" />\n"));
    EXPECT_THAT(xml, HasSubstr("<timecode text="));
    EXPECT_THAT(xml, HasSubstr("<property name=\"clipProps\" value=\"one,t&lt;o\" />"));
    EXPECT_THAT(xml, HasSubstr("      <clip encoding="));
}

TEST(InfoXml, ShowsWhatXmlCannotHoldAsAReplacement) {
    const std::string xml = xmlOf(Json{{"a", "\x01\t\x7F\xFF"}, {"b", "x\xEF\xBF\xBEy\xEF\xBF\xBF"}, {"c", "<&>\"'"}});
    EXPECT_THAT(xml, HasSubstr("a=\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""));
    EXPECT_THAT(xml, HasSubstr("b=\"x\xEF\xBF\xBDy\xEF\xBF\xBD\""));
    EXPECT_THAT(xml, HasSubstr("c=\"&lt;&amp;>&quot;'\""));
}

TEST(InfoText, SaysNothingOfWhatTheMovieHasNot) {
    TestMovie movie;
    movie.addTrack(MediaDataType::Video).addClip(MediaEncodingType::Avc, 25, 1, 1);
    const std::string text = movieText(describeMovie("a.mxf", movie));
    for (const char* word : {"timecode", "gop ", "drop-frame", "sync", " x", "chroma", "unknown", " = "})
        EXPECT_THAT(text, Not(HasSubstr(word)));
    EXPECT_THAT(text, HasSubstr("25 Hz, intra, 0 bits/s, 1 samples\n"));
}
