// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/linux/SampleReader.h"

#include "vcam/capture/SampleRows.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

using namespace lumivora;

namespace {

constexpr int kWidth = 16;
constexpr int kHeight = 8;

// Top left, top right, bottom left, bottom right: no two alike, so that swapped channels, sides or
// rows show.
constexpr std::array<QRgb, 4> kQuarters = {0xFFFF0000U, 0xFF00FF00U, 0xFF0000FFU, 0xFFFFFF00U};

/** The same four colours by the equations of ITU-R BT.601, studio range: Y, Cb, Cr. */
constexpr std::array<std::array<uchar, 3>, 4> kQuartersYuv = {
    {{81, 90, 240}, {145, 54, 34}, {41, 240, 110}, {210, 16, 146}}};

std::size_t quarter(int x, int y, int width, int height)
{
    return (y < height / 2 ? 0U : 2U) + (x < width / 2 ? 0U : 1U);
}

GstVideoInfo infoOf(GstVideoFormat format, int width = kWidth, int height = kHeight)
{
    gst_init(nullptr, nullptr);
    GstVideoInfo info;
    gst_video_info_set_format(&info, format, static_cast<guint>(width), static_cast<guint>(height));
    if (GST_VIDEO_INFO_IS_YUV(&info)) {
        gst_video_colorimetry_from_string(&info.colorimetry, GST_VIDEO_COLORIMETRY_BT601);
    }
    return info;
}

/** A buffer with the four quarters, written component by component. */
GstBuffer *bufferOf(const GstVideoInfo &info)
{
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
    gst_buffer_memset(buffer, 0, 0x00, info.size); // unused bytes: not opaque
    GstVideoFrame frame;
    gst_video_frame_map(&frame, &info, buffer, GST_MAP_WRITE);
    for (guint c = 0; c < GST_VIDEO_INFO_N_COMPONENTS(&info); ++c) {
        const int width = GST_VIDEO_FRAME_COMP_WIDTH(&frame, c);
        const int height = GST_VIDEO_FRAME_COMP_HEIGHT(&frame, c);
        auto *data = static_cast<uchar *>(GST_VIDEO_FRAME_COMP_DATA(&frame, c));
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const std::size_t q = quarter(x, y, width, height);
                uchar value = 0;
                if (c == GST_VIDEO_COMP_A) {
                    value = 0;
                } else if (GST_VIDEO_INFO_IS_RGB(&info)) {
                    value = static_cast<uchar>(kQuarters[q] >> (16 - 8 * c));
                } else {
                    value = kQuartersYuv[q][c];
                }
                data[y * GST_VIDEO_FRAME_COMP_STRIDE(&frame, c) +
                     x * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, c)] = value;
            }
        }
    }
    gst_video_frame_unmap(&frame);
    return buffer;
}

GstPtr<GstSample> sampleOf(const GstVideoInfo &info, GstBuffer *owned)
{
    const GstPtr<GstCaps> caps(gst_video_info_to_caps(&info));
    GstPtr<GstSample> sample(gst_sample_new(owned, caps.get(), nullptr, nullptr));
    gst_buffer_unref(owned);
    return sample;
}

QImage imageFor(const SampleOutline &outline)
{
    return QImage(outline.size, imageFormat(outline.bitsPerPixel));
}

void expectQuarters(const QImage &image, bool topDown)
{
    for (const int x : {2, image.width() - 3}) {
        for (const int y : {1, image.height() - 2}) {
            const int row = topDown ? y : image.height() - 1 - y;
            const QRgb expected = kQuarters[quarter(x, row, image.width(), image.height())];
            const QRgb actual = image.pixel(x, y);
            // The fast conversions multiply in eight bits.
            EXPECT_NEAR(qRed(actual), qRed(expected), 5) << x << ',' << y;
            EXPECT_NEAR(qGreen(actual), qGreen(expected), 5) << x << ',' << y;
            EXPECT_NEAR(qBlue(actual), qBlue(expected), 5) << x << ',' << y;
        }
    }
}

void expectOpaque(const QImage &image)
{
    for (int y = 0; image.depth() == 32 && y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            ASSERT_EQ(image.constScanLine(y)[x * 4 + 3], 0xFF) << x << ',' << y;
        }
    }
}

class PixelFormats : public testing::TestWithParam<GstVideoFormat>
{};

} // namespace

TEST_P(PixelFormats, write_fourQuarters_rightColoursInBothOrders)
{
    const GstVideoInfo info = infoOf(GetParam());
    const GstPtr<GstSample> sample = sampleOf(info, bufferOf(info));
    SampleReader reader;
    SampleOutline outline;
    ASSERT_TRUE(reader.describe(*sample, outline));
    EXPECT_EQ(outline.size, QSize(kWidth, kHeight));
    EXPECT_EQ(outline.bytes, static_cast<qsizetype>(info.size));
    const bool threeBytes =
        GetParam() == GST_VIDEO_FORMAT_RGB || GetParam() == GST_VIDEO_FORMAT_BGR;
    EXPECT_EQ(outline.bitsPerPixel, threeBytes ? 24 : 32);
    for (const bool topDown : {true, false}) {
        QImage image = imageFor(outline);
        image.fill(0);
        ASSERT_TRUE(reader.write(*sample, image, topDown));
        expectQuarters(image, topDown);
        expectOpaque(image);
    }
}

TEST_P(PixelFormats, write_bufferOneByteShort_refused)
{
    const GstVideoInfo info = infoOf(GetParam());
    GstBuffer *buffer = bufferOf(info);
    gst_buffer_resize(buffer, 0, static_cast<gssize>(info.size) - 1);
    const GstPtr<GstSample> sample = sampleOf(info, buffer);
    SampleReader reader;
    SampleOutline outline;
    ASSERT_TRUE(reader.describe(*sample, outline));
    QImage image = imageFor(outline);
    EXPECT_FALSE(reader.write(*sample, image, true));
}

INSTANTIATE_TEST_SUITE_P(
    All, PixelFormats,
    testing::Values(GST_VIDEO_FORMAT_YUY2, GST_VIDEO_FORMAT_UYVY, GST_VIDEO_FORMAT_NV12,
                    GST_VIDEO_FORMAT_NV21, GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_YV12,
                    GST_VIDEO_FORMAT_Y42B, GST_VIDEO_FORMAT_AYUV, GST_VIDEO_FORMAT_RGB,
                    GST_VIDEO_FORMAT_BGR, GST_VIDEO_FORMAT_BGRx, GST_VIDEO_FORMAT_BGRA,
                    GST_VIDEO_FORMAT_RGBx, GST_VIDEO_FORMAT_RGBA, GST_VIDEO_FORMAT_xRGB,
                    GST_VIDEO_FORMAT_ARGB, GST_VIDEO_FORMAT_xBGR, GST_VIDEO_FORMAT_ABGR),
    [](const auto &each) { return std::string(gst_video_format_to_string(each.param)); });

TEST(SampleReader, write_strideAndOffsetOfTheBuffer_followed)
{
    const GstVideoInfo info = infoOf(GST_VIDEO_FORMAT_BGRx);
    constexpr std::size_t kOffset = 10;
    constexpr std::size_t kRow = std::size_t{kWidth} * 4;
    constexpr std::size_t kStride = kRow + 6;
    GstBuffer *plain = bufferOf(info);
    GstBuffer *padded = gst_buffer_new_allocate(nullptr, kOffset + kStride * kHeight, nullptr);
    GstMapInfo from;
    GstMapInfo to;
    gst_buffer_map(plain, &from, GST_MAP_READ);
    gst_buffer_map(padded, &to, GST_MAP_WRITE);
    for (std::size_t y = 0; y < kHeight; ++y) {
        std::memcpy(to.data + kOffset + y * kStride, from.data + y * kRow, kRow);
    }
    gst_buffer_unmap(plain, &from);
    gst_buffer_unmap(padded, &to);
    gst_buffer_unref(plain);
    gsize offsets[GST_VIDEO_MAX_PLANES] = {kOffset};
    gint strides[GST_VIDEO_MAX_PLANES] = {kStride};
    gst_buffer_add_video_meta_full(padded, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_BGRx, kWidth,
                                   kHeight, 1, offsets, strides);
    const GstPtr<GstSample> sample = sampleOf(info, padded);
    SampleReader reader;
    SampleOutline outline;
    ASSERT_TRUE(reader.describe(*sample, outline));
    QImage image = imageFor(outline);
    ASSERT_TRUE(reader.write(*sample, image, true));
    expectQuarters(image, true);
}

TEST(SampleReader, write_absurdStrides_refused)
{
    const GstVideoInfo info = infoOf(GST_VIDEO_FORMAT_NV12);
    for (const int stride : {0, -kWidth, kWidth - 1, kWidth * 4, 1 << 30}) {
        GstBuffer *buffer = bufferOf(info);
        gsize offsets[GST_VIDEO_MAX_PLANES] = {0, info.offset[1]};
        gint strides[GST_VIDEO_MAX_PLANES] = {stride, stride};
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                       kWidth, kHeight, 2, offsets, strides);
        const GstPtr<GstSample> sample = sampleOf(info, buffer);
        SampleReader reader;
        SampleOutline outline;
        ASSERT_TRUE(reader.describe(*sample, outline));
        QImage image = imageFor(outline);
        EXPECT_FALSE(reader.write(*sample, image, true)) << stride;
    }
}

TEST(SampleReader, write_planeBeyondTheBuffer_refused)
{
    const GstVideoInfo info = infoOf(GST_VIDEO_FORMAT_NV12);
    for (const gsize offset : {gsize{kWidth * kHeight + 1}, gsize{1} << 40}) {
        GstBuffer *buffer = bufferOf(info);
        gsize offsets[GST_VIDEO_MAX_PLANES] = {0, offset};
        gint strides[GST_VIDEO_MAX_PLANES] = {kWidth, kWidth};
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                       kWidth, kHeight, 2, offsets, strides);
        const GstPtr<GstSample> sample = sampleOf(info, buffer);
        SampleReader reader;
        SampleOutline outline;
        ASSERT_TRUE(reader.describe(*sample, outline));
        QImage image = imageFor(outline);
        EXPECT_FALSE(reader.write(*sample, image, true)) << offset;
    }
}

TEST(SampleReader, write_planesInBuffersOfTheirOwn_read)
{
    const GstVideoInfo info = infoOf(GST_VIDEO_FORMAT_NV12);
    GstBuffer *whole = bufferOf(info);
    GstBuffer *split = gst_buffer_new();
    gst_buffer_copy_into(split, whole, GST_BUFFER_COPY_MEMORY, 0, info.offset[1]);
    GstBuffer *second = gst_buffer_copy_region(whole, GST_BUFFER_COPY_MEMORY, info.offset[1],
                                               info.size - info.offset[1]);
    gst_buffer_append_memory(split, gst_buffer_get_all_memory(second));
    gst_buffer_unref(second);
    gst_buffer_unref(whole);
    ASSERT_EQ(gst_buffer_n_memory(split), 2U);
    gsize offsets[GST_VIDEO_MAX_PLANES] = {info.offset[0], info.offset[1]};
    gint strides[GST_VIDEO_MAX_PLANES] = {info.stride[0], info.stride[1]};
    gst_buffer_add_video_meta_full(split, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12, kWidth,
                                   kHeight, 2, offsets, strides);
    const GstPtr<GstSample> sample = sampleOf(info, split);
    SampleReader reader;
    SampleOutline outline;
    ASSERT_TRUE(reader.describe(*sample, outline));
    QImage image = imageFor(outline);
    ASSERT_TRUE(reader.write(*sample, image, true));
    expectQuarters(image, true);
}

TEST(SampleReader, describe_formatChangesMidStream_followed)
{
    SampleReader reader;
    for (const GstVideoFormat format :
         {GST_VIDEO_FORMAT_YUY2, GST_VIDEO_FORMAT_BGR, GST_VIDEO_FORMAT_NV12}) {
        const GstVideoInfo info = infoOf(format, 32, 20);
        const GstPtr<GstSample> sample = sampleOf(info, bufferOf(info));
        SampleOutline outline;
        ASSERT_TRUE(reader.describe(*sample, outline));
        QImage image = imageFor(outline);
        ASSERT_TRUE(reader.write(*sample, image, true));
        expectQuarters(image, true);
    }
}

TEST(SampleReader, describe_noPicture_refused)
{
    gst_init(nullptr, nullptr);
    SampleReader reader;
    SampleOutline outline;
    const GstPtr<GstSample> nothing(gst_sample_new(nullptr, nullptr, nullptr, nullptr));
    EXPECT_FALSE(reader.describe(*nothing, outline));
    const GstPtr<GstCaps> audio(gst_caps_from_string("audio/x-raw,format=S16LE"));
    GstBuffer *buffer = gst_buffer_new_allocate(nullptr, 16, nullptr);
    const GstPtr<GstSample> sound(gst_sample_new(buffer, audio.get(), nullptr, nullptr));
    gst_buffer_unref(buffer);
    EXPECT_FALSE(reader.describe(*sound, outline));
}
