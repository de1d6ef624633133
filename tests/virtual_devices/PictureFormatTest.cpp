// SPDX-License-Identifier: Apache-2.0
#include "virtual_devices/PictureFormat.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace lumivora {

namespace {

struct Rgb
{
    double red = 0;
    double green = 0;
    double blue = 0;
};

/** ITU-R BT.601-7, 2.5: limited range from R'G'B' of 0 to 255, unrounded. */
double lumaOf(const Rgb &c)
{
    return 16 + (65.481 * c.red + 128.553 * c.green + 24.966 * c.blue) / 255;
}
double blueDifferenceOf(const Rgb &c)
{
    return 128 + (-37.797 * c.red - 74.203 * c.green + 112.0 * c.blue) / 255;
}
double redDifferenceOf(const Rgb &c)
{
    return 128 + (112.0 * c.red - 93.786 * c.green - 18.214 * c.blue) / 255;
}

/** A B G R A picture with some bytes between its rows. */
class Picture
{
public:
    Picture(int width, int height)
        : stride(static_cast<std::size_t>(width) * 4 + 20),
          bytes(stride * static_cast<std::size_t>(height), 0xA5), _width(width)
    {}

    void fillRandom(unsigned seed)
    {
        std::mt19937 random(seed);
        std::ranges::generate(bytes, [&random] { return static_cast<std::uint8_t>(random()); });
    }

    [[nodiscard]] std::uint8_t *at(int x, int y)
    {
        return &bytes[static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x) * 4];
    }

    /** Mean of a rectangle of pixels. */
    [[nodiscard]] Rgb mean(int x, int y, int columns, int rows)
    {
        Rgb sum;
        for (int row = y; row < y + rows; ++row) {
            for (int column = x; column < x + columns; ++column) {
                const std::uint8_t *pixel = at(column, row);
                sum.blue += pixel[0];
                sum.green += pixel[1];
                sum.red += pixel[2];
            }
        }
        const double count = columns * rows;
        return {sum.red / count, sum.green / count, sum.blue / count};
    }

    [[nodiscard]] std::vector<std::uint8_t> converted(PixelFormat pixels)
    {
        const PictureFormat format = {pixels, _width, static_cast<int>(bytes.size() / stride)};
        std::vector<std::uint8_t> out(PictureLayout::of(format).bytes);
        convertPicture(bytes.data(), stride, format, out.data());
        return out;
    }

    std::size_t stride;
    std::vector<std::uint8_t> bytes;

private:
    int _width;
};

/** Where a test reads the samples of a pixel, worked out by hand for each format. */
struct Samples
{
    std::uint8_t y;
    std::uint8_t u;
    std::uint8_t v;
};

std::size_t index(int value)
{
    return static_cast<std::size_t>(value);
}

Samples yuy2At(const std::vector<std::uint8_t> &data, int x, int y, int width)
{
    const std::size_t row = index(y) * index(width) * 2;
    const std::size_t pair = row + index(x / 2) * 4;
    return {data[row + index(x) * 2], data[pair + 1], data[pair + 3]};
}

Samples i420At(const std::vector<std::uint8_t> &data, int x, int y, int width, int height)
{
    // Rows of chroma are half as wide, rounded up to 4 bytes.
    const std::size_t chromaStride = (index(width / 2) + 3) / 4 * 4;
    const std::size_t lumaStride = (index(width) + 3) / 4 * 4;
    const std::size_t u = lumaStride * index(height);
    const std::size_t v = u + chromaStride * index(height / 2);
    const std::size_t chroma = index(y / 2) * chromaStride + index(x / 2);
    return {data[index(y) * lumaStride + index(x)], data[u + chroma], data[v + chroma]};
}

Samples nv12At(const std::vector<std::uint8_t> &data, int x, int y, int width, int height)
{
    const std::size_t stride = (index(width) + 3) / 4 * 4;
    const std::size_t chroma = stride * index(height) + index(y / 2) * stride + index(x / 2) * 2;
    return {data[index(y) * stride + index(x)], data[chroma], data[chroma + 1]};
}

struct Deviation
{
    double luma = 0;
    double chroma = 0;
};

/** The largest distances from the exact values over the whole picture. */
Deviation worst(Picture &picture, PixelFormat pixels, int width, int height)
{
    const auto data = picture.converted(pixels);
    const int chromaRows = pixels == PixelFormat::Yuy2 ? 1 : 2;
    Deviation result;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            Samples samples{};
            if (pixels == PixelFormat::Yuy2) {
                samples = yuy2At(data, x, y, width);
            } else if (pixels == PixelFormat::I420) {
                samples = i420At(data, x, y, width, height);
            } else {
                samples = nv12At(data, x, y, width, height);
            }
            const Rgb own = picture.mean(x, y, 1, 1);
            const Rgb shared = picture.mean(x / 2 * 2, y / chromaRows * chromaRows, 2, chromaRows);
            result.luma = std::max(result.luma, std::abs(samples.y - lumaOf(own)));
            result.chroma = std::max({result.chroma, std::abs(samples.u - blueDifferenceOf(shared)),
                                      std::abs(samples.v - redDifferenceOf(shared))});
        }
    }
    return result;
}

} // namespace

class YuvConversionTest : public ::testing::TestWithParam<PixelFormat>
{};

TEST_P(YuvConversionTest, convertPicture_randomColours_withinOneLevelOfTheStandard)
{
    Picture picture(1280, 720);
    picture.fillRandom(1);
    const Deviation deviation = worst(picture, GetParam(), 1280, 720);
    EXPECT_LE(deviation.luma, 1.0);
    EXPECT_LE(deviation.chroma, 1.0);
}

TEST_P(YuvConversionTest, convertPicture_cornersOfTheColourCube_withinOneLevelOfTheStandard)
{
    Picture picture(32, 16);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 32; ++x) {
            // 8 colours, each 4 x 4 pixels, so that chroma is not mixed
            const int colour = (x / 4 + y / 4) % 8;
            std::uint8_t *pixel = picture.at(x, y);
            for (int component = 0; component < 3; ++component) {
                pixel[component] = (colour >> component & 1) != 0 ? 255 : 0;
            }
        }
    }
    const Deviation deviation = worst(picture, GetParam(), 32, 16);
    EXPECT_LE(deviation.luma, 1.0);
    EXPECT_LE(deviation.chroma, 1.0);
}

TEST_P(YuvConversionTest, convertPicture_grey_hasExactlyNeutralChroma)
{
    for (int grey = 0; grey < 256; ++grey) {
        Picture picture(16, 2);
        std::ranges::fill(picture.bytes, static_cast<std::uint8_t>(grey));
        const auto data = picture.converted(GetParam());
        const Samples samples = GetParam() == PixelFormat::Yuy2   ? yuy2At(data, 6, 1, 16)
                                : GetParam() == PixelFormat::I420 ? i420At(data, 6, 1, 16, 2)
                                                                  : nv12At(data, 6, 1, 16, 2);
        ASSERT_EQ(samples.u, 128) << grey;
        ASSERT_EQ(samples.v, 128) << grey;
    }
}

TEST_P(YuvConversionTest, convertPicture_widthThatIsNoMultipleOfABlock_convertsEveryPixel)
{
    for (const int width : {16, 18, 30, 34, 642}) {
        Picture picture(width, 6);
        picture.fillRandom(static_cast<unsigned>(width));
        const Deviation deviation = worst(picture, GetParam(), width, 6);
        EXPECT_LE(deviation.luma, 1.0) << width;
        EXPECT_LE(deviation.chroma, 1.0) << width;
    }
}

TEST_P(YuvConversionTest, convertPicture_anyWidth_staysInsideItsBlockOfMemory)
{
    const PictureFormat format = {GetParam(), 34, 6};
    const std::size_t bytes = PictureLayout::of(format).bytes;
    std::vector<std::uint8_t> out(bytes + 64, 0x5A);
    Picture picture(34, 6);
    picture.fillRandom(3);
    convertPicture(picture.bytes.data(), picture.stride, format, out.data());
    EXPECT_TRUE(std::all_of(out.begin() + static_cast<std::ptrdiff_t>(bytes), out.end(),
                            [](std::uint8_t byte) { return byte == 0x5A; }));
}

INSTANTIATE_TEST_SUITE_P(Formats, YuvConversionTest,
                         ::testing::Values(PixelFormat::Yuy2, PixelFormat::I420,
                                           PixelFormat::Nv12));

TEST(PictureFormatTest, convertPicture_white_reachesTheEndOfTheLimitedRange)
{
    Picture picture(16, 2);
    std::ranges::fill(picture.bytes, std::uint8_t{255});
    EXPECT_EQ(picture.converted(PixelFormat::Nv12)[0], 235);
    std::ranges::fill(picture.bytes, std::uint8_t{0});
    EXPECT_EQ(picture.converted(PixelFormat::Nv12)[0], 16);
}

TEST(PictureFormatTest, convertPicture_bgraAndBgrx_areExactCopies)
{
    Picture picture(50, 4);
    picture.fillRandom(7);
    for (const PixelFormat pixels : {PixelFormat::Bgra, PixelFormat::Bgrx}) {
        const auto data = picture.converted(pixels);
        ASSERT_EQ(data.size(), 50U * 4 * 4);
        for (int y = 0; y < 4; ++y) {
            EXPECT_EQ(std::memcmp(&data[index(y) * 200], picture.at(0, y), 200), 0) << y;
        }
    }
}

TEST(PictureFormatTest, convertPicture_rgb_swapsRedAndBlue)
{
    Picture picture(18, 2);
    picture.fillRandom(9);
    const auto data = picture.converted(PixelFormat::Rgb);
    const std::uint8_t *pixel = picture.at(5, 1);
    const std::size_t row = 56; // 18 * 3 rounded up to 4
    EXPECT_EQ(data[row + 15], pixel[2]);
    EXPECT_EQ(data[row + 16], pixel[1]);
    EXPECT_EQ(data[row + 17], pixel[0]);
}

TEST(PictureFormatTest, layout_cameraFrame_hasTheBytesThatTheFormatsDefine)
{
    const auto bytes = [](PixelFormat pixels) {
        return PictureLayout::of({pixels, 1280, 720}).bytes;
    };
    EXPECT_EQ(bytes(PixelFormat::Yuy2), 1280U * 720 * 2);
    EXPECT_EQ(bytes(PixelFormat::I420), 1280U * 720 * 3 / 2);
    EXPECT_EQ(bytes(PixelFormat::Nv12), 1280U * 720 * 3 / 2);
    EXPECT_EQ(bytes(PixelFormat::Bgra), 1280U * 720 * 4);
    EXPECT_EQ(bytes(PixelFormat::Bgrx), 1280U * 720 * 4);
}

} // namespace lumivora
