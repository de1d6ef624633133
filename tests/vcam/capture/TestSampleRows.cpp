// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/SampleRows.h"

#include <gtest/gtest.h>

#include <vector>

using namespace lumivora;

namespace {

/** A picture of memory order B G R (X), whose pixel (x, y) has blue x, green y and red 100 + x. */
std::vector<uchar> picture(int width, int height, int pixelBytes, qsizetype stride)
{
    std::vector<uchar> bytes(static_cast<std::size_t>(stride * height), 0xEE);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uchar *pixel = bytes.data() + stride * y + qsizetype{x} * pixelBytes;
            pixel[0] = static_cast<uchar>(x);
            pixel[1] = static_cast<uchar>(y);
            pixel[2] = static_cast<uchar>(100 + x);
            if (pixelBytes == 4) {
                pixel[3] = 0;
            }
        }
    }
    return bytes;
}

PixelRows rowsOf(const std::vector<uchar> &bytes, qsizetype stride)
{
    return {bytes.data(), static_cast<qsizetype>(bytes.size()), stride};
}

void expectPicture(const QImage &image, bool reversed)
{
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const int row = reversed ? image.height() - 1 - y : y;
            ASSERT_EQ(image.pixel(x, y), qRgb(100 + x, row, x)) << x << ',' << y;
        }
    }
}

struct Case
{
    int width;
    int height;
    int bits;
    qsizetype stride;
};

class CopyRows : public testing::TestWithParam<Case>
{};

} // namespace

TEST_P(CopyRows, copy_asItIs_rightColoursInOrder)
{
    const auto [width, height, bits, stride] = GetParam();
    const auto bytes = picture(width, height, bits / 8, stride);
    QImage image(width, height, imageFormat(bits));
    ASSERT_TRUE(copyRows(rowsOf(bytes, stride), image, false));
    expectPicture(image, false);
}

TEST_P(CopyRows, copy_reversed_rightColoursUpsideDown)
{
    const auto [width, height, bits, stride] = GetParam();
    const auto bytes = picture(width, height, bits / 8, stride);
    QImage image(width, height, imageFormat(bits));
    ASSERT_TRUE(copyRows(rowsOf(bytes, stride), image, true));
    expectPicture(image, true);
}

TEST_P(CopyRows, copy_oneByteShort_refused)
{
    const auto [width, height, bits, stride] = GetParam();
    const auto bytes = picture(width, height, bits / 8, stride);
    PixelRows rows = rowsOf(bytes, stride);
    QImage image(width, height, imageFormat(bits));

    rows.bytes = stride * (height - 1) + width * bits / 8; // the last row needs no padding
    EXPECT_TRUE(copyRows(rows, image, false));
    --rows.bytes;
    EXPECT_FALSE(copyRows(rows, image, false));
}

INSTANTIATE_TEST_SUITE_P(Layouts, CopyRows,
                         testing::Values(Case{16, 9, 32, 64}, Case{16, 9, 32, 80},
                                         Case{1, 1, 32, 4}, Case{5, 4, 32, 23}, Case{16, 9, 24, 48},
                                         Case{5, 4, 24, 16}, Case{5, 4, 24, 15}, Case{7, 1, 24, 21},
                                         Case{13, 50, 24, 41}));

TEST(CopyRows, copy_strideBelowTheRow_refused)
{
    const auto bytes = picture(8, 8, 4, 64);
    QImage image(8, 8, QImage::Format_RGB32);
    for (const qsizetype stride : {31, 0, -32}) {
        EXPECT_FALSE(copyRows(rowsOf(bytes, stride), image, false)) << stride;
    }
    EXPECT_FALSE(copyRows({nullptr, 4096, 32}, image, false));
}

TEST(CopyRows, copy_fourthByteAnything_imageOpaque)
{
    auto bytes = picture(4, 2, 4, 16);
    bytes[3] = 0;
    bytes[7] = 0x80;
    QImage image(4, 2, imageFormat(32));
    ASSERT_TRUE(copyRows(rowsOf(bytes, 16), image, false));
    for (int i = 3; i < 32; i += 4) {
        EXPECT_EQ(image.constBits()[i], 0xFF);
    }
}

TEST(ImageFormat, choose_bits_24KeepsThemAllElseIs32)
{
    EXPECT_EQ(imageFormat(24), QImage::Format_BGR888);
    EXPECT_EQ(imageFormat(32), QImage::Format_RGB32);
    EXPECT_EQ(imageFormat(0), QImage::Format_RGB32);
}

TEST(MakeOpaque, make_anyFourthByte_colourStays)
{
    QImage image(3, 2, QImage::Format_RGB32);
    image.fill(0x00123456U);
    makeOpaque(image);
    for (int y = 0; y < 2; ++y) {
        const auto *row = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < 3; ++x) {
            EXPECT_EQ(row[x], 0xFF123456U);
        }
    }
}
