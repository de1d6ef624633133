// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/linux/SourceFormats.h"

#include <QStringList>

#include <gmock/gmock.h>

using namespace lumivora;
using testing::ElementsAre;

namespace {

constexpr QSize kWanted(1280, 720);

/** Each format as WIDTHxHEIGHT/BITS CAPS. */
std::vector<std::string> formatsOf(const char *description)
{
    gst_init(nullptr, nullptr);
    const GstPtr<GstCaps> caps(gst_caps_from_string(description));
    EXPECT_TRUE(caps) << description;
    std::vector<std::string> result;
    for (const SourceFormat &format : sourceFormats(*caps, kWanted)) {
        EXPECT_TRUE(gst_caps_is_fixed(format.caps.get()));
        EXPECT_TRUE(gst_caps_can_intersect(format.caps.get(), caps.get()));
        const GstStructure *structure = gst_caps_get_structure(format.caps.get(), 0);
        const char *pixels = gst_structure_get_string(structure, "format");
        int numerator = 0;
        int denominator = 0;
        gst_structure_get_fraction(structure, "framerate", &numerator, &denominator);
        result.push_back(
            std::to_string(format.size.width()) + "x" + std::to_string(format.size.height()) + " " +
            (format.jpeg ? "JPEG" : pixels) + " " + std::to_string(format.bitsPerPixel) + " " +
            std::to_string(numerator) + "/" + std::to_string(denominator));
    }
    return result;
}

} // namespace

TEST(SourceFormats, list_fixedFormats_inTheirOrder)
{
    EXPECT_THAT(
        formatsOf("video/x-raw,format=YUY2,width=640,height=480,framerate=30/1;"
                  "image/jpeg,width=1280,height=720,framerate=30/1;"
                  "video/x-raw,format=NV12,width=1280,height=720,framerate=25/1"),
        ElementsAre("640x480 YUY2 32 30/1", "1280x720 JPEG 32 30/1", "1280x720 NV12 32 25/1"));
}

TEST(SourceFormats, list_rgbSources_24BitsOnlyForThreeByteFormats)
{
    EXPECT_THAT(formatsOf("video/x-raw,format={RGB,BGR,BGRx,RGBA,RGB16},width=8,height=6"),
                ElementsAre("8x6 RGB 24 0/0", "8x6 BGR 24 0/0", "8x6 BGRx 32 0/0",
                            "8x6 RGBA 32 0/0", "8x6 RGB16 32 0/0"));
}

TEST(SourceFormats, list_rangeOfSizes_nearestWithinIt)
{
    struct Case
    {
        const char *size;
        const char *format;
    };
    for (const Case &test : {
             Case{"width=[1,8192],height=[1,8192]", "1280x720 YUY2 32 30/1"},
             Case{"width=[1,640],height=[1,480]", "640x480 YUY2 32 30/1"},
             Case{"width=[1920,4096],height=[1080,2160]", "1920x1080 YUY2 32 30/1"},
             Case{"width=[16,4096,16],height=[16,4096,16]", "1280x720 YUY2 32 30/1"},
             Case{"width=[100,1300,100],height=[100,1300,100]", "1300x700 YUY2 32 30/1"},
         }) {
        const std::string caps = std::string("video/x-raw,format=YUY2,framerate=30/1,") + test.size;
        EXPECT_THAT(formatsOf(caps.c_str()), ElementsAre(test.format)) << test.size;
    }
}

TEST(SourceFormats, list_sizeLeftOpen_wantedOne)
{
    EXPECT_THAT(formatsOf("video/x-raw,format=YUY2"), ElementsAre("1280x720 YUY2 32 0/0"));
}

TEST(SourceFormats, list_listsOfSizes_everyOne)
{
    EXPECT_THAT(formatsOf("image/jpeg,width={640,1280},height={480,720}"),
                ElementsAre("640x480 JPEG 32 0/0", "640x720 JPEG 32 0/0", "1280x480 JPEG 32 0/0",
                            "1280x720 JPEG 32 0/0"));
}

TEST(SourceFormats, list_choiceOfRates_nearestToThirty)
{
    struct Case
    {
        const char *rates;
        const char *chosen;
    };
    for (const Case &test :
         {Case{"{60/1,30/1,15/1}", "30/1"}, Case{"{60/1,24/1}", "24/1"},
          Case{"[1/1,120/1]", "30/1"}, Case{"[1/1,15/1]", "15/1"}, Case{"60/1", "60/1"}}) {
        const std::string caps =
            std::string("video/x-raw,format=YUY2,width=8,height=6,framerate=") + test.rates;
        EXPECT_THAT(formatsOf(caps.c_str()),
                    ElementsAre("8x6 YUY2 32 " + std::string(test.chosen)));
    }
}

TEST(SourceFormats, list_whatCannotBeRead_leftOut)
{
    EXPECT_THAT(formatsOf("ANY"), ElementsAre());
    EXPECT_THAT(formatsOf("EMPTY"), ElementsAre());
    EXPECT_THAT(formatsOf("video/x-h264,width=1280,height=720"), ElementsAre());
    EXPECT_THAT(formatsOf("audio/x-raw,format=S16LE"), ElementsAre());
    EXPECT_THAT(formatsOf("video/x-raw,width=1280,height=720"), ElementsAre());
    EXPECT_THAT(formatsOf("video/x-raw,format=NoSuchFormat,width=1280,height=720"), ElementsAre());
    EXPECT_THAT(formatsOf("video/x-raw(memory:DMABuf),format=DMA_DRM,width=1280,height=720"),
                ElementsAre());
    EXPECT_THAT(formatsOf("video/x-raw(memory:GLMemory),format=RGBA,width=1280,height=720"),
                ElementsAre());
}

TEST(SourceFormats, list_absurdSizes_leftOut)
{
    EXPECT_THAT(formatsOf("video/x-raw,format=YUY2,width={0,-5,2147483647,640},height=480"),
                ElementsAre("640x480 YUY2 32 0/0"));
    EXPECT_THAT(formatsOf("video/x-raw,format=YUY2,width=(string)wide,height=480"), ElementsAre());
}

TEST(SourceFormats, list_endlessOffer_bounded)
{
    std::string lengths = "{1";
    for (int length = 2; length <= 1000; ++length) {
        lengths += "," + std::to_string(length);
    }
    lengths += "}";
    const std::string caps = "image/jpeg,width=" + lengths + ",height=" + lengths;
    gst_init(nullptr, nullptr);
    const GstPtr<GstCaps> parsed(gst_caps_from_string(caps.c_str()));
    EXPECT_EQ(sourceFormats(*parsed, kWanted).size(), 4096U);
}
