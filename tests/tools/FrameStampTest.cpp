// SPDX-License-Identifier: Apache-2.0
// Stamps come back unharmed from what pictures go through, and from nothing else.
#include "tools/probe/FrameStamp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <optional>
#include <random>
#include <utility>
#include <vector>

using lumivora::tools::drawFrameStamp;
using lumivora::tools::FrameStamp;
using lumivora::tools::kStampBandHeight;
using lumivora::tools::readFrameStamp;
using lumivora::tools::StampBand;

namespace {

constexpr FrameStamp kStamp{.number = 0xDEADBEEF, .timeUs = 0x0000123456789ABC};

/** A B G R X picture of a colourful pattern. */
struct Picture
{
    Picture(int pictureWidth, int pictureHeight, int padding = 0)
        : width(pictureWidth), height(pictureHeight), stride(pictureWidth * 4 + padding),
          bytes(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height))
    {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                at(x, y)[0] = static_cast<std::uint8_t>(x * 3 + y);
                at(x, y)[1] = static_cast<std::uint8_t>(x + y * 7);
                at(x, y)[2] = static_cast<std::uint8_t>(x * 5 - y * 2);
                at(x, y)[3] = 255;
            }
        }
    }

    std::uint8_t *at(int x, int y)
    {
        return bytes.data() + std::ptrdiff_t{y} * stride + std::ptrdiff_t{x} * 4;
    }

    [[nodiscard]] std::optional<FrameStamp> read(StampBand band) const
    {
        return readFrameStamp(bytes.data(), width, height, stride, band);
    }

    int width;
    int height;
    int stride;
    std::vector<std::uint8_t> bytes;
};

Picture stamped(int width = 1280, int height = 720)
{
    Picture picture(width, height);
    drawFrameStamp(picture.bytes.data(), width, height, picture.stride, kStamp);
    return picture;
}

void expectBoth(const Picture &picture, const std::optional<FrameStamp> &stamp)
{
    EXPECT_EQ(picture.read(StampBand::Top), stamp);
    EXPECT_EQ(picture.read(StampBand::Bottom), stamp);
}

/** Weights of red and blue in luma. */
struct Matrix
{
    double red;
    double blue;
};
constexpr Matrix kBt601{.red = 0.299, .blue = 0.114};
constexpr Matrix kBt709{.red = 0.2126, .blue = 0.0722};

std::uint8_t clipped(double value)
{
    return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

/** To limited-range Y'CbCr by one matrix with one colour sample for each 2 x 2 pixels, and back by
 *  another, so that a disagreement about the matrix is part of it. */
void throughYuv420(Picture &picture, Matrix forth, Matrix back)
{
    for (int y = 0; y < picture.height; y += 2) {
        for (int x = 0; x < picture.width; x += 2) {
            std::array<double, 4> luma{};
            double cb = 0;
            double cr = 0;
            for (int i = 0; i < 4; ++i) {
                const std::uint8_t *p = picture.at(x + i % 2, y + i / 2);
                const double value =
                    forth.red * p[2] + (1 - forth.red - forth.blue) * p[1] + forth.blue * p[0];
                luma[static_cast<std::size_t>(i)] = std::round(16 + value * 219 / 255);
                cb += (p[0] - value) / (2 * (1 - forth.blue)) * 224 / 255 / 4;
                cr += (p[2] - value) / (2 * (1 - forth.red)) * 224 / 255 / 4;
            }
            cb = std::round(cb);
            cr = std::round(cr);
            for (int i = 0; i < 4; ++i) {
                std::uint8_t *p = picture.at(x + i % 2, y + i / 2);
                const double value = (luma[static_cast<std::size_t>(i)] - 16) * 255 / 219;
                const double red = value + cr * 255 / 224 * 2 * (1 - back.red);
                const double blue = value + cb * 255 / 224 * 2 * (1 - back.blue);
                const double green =
                    (value - back.red * red - back.blue * blue) / (1 - back.red - back.blue);
                p[0] = clipped(blue);
                p[1] = clipped(green);
                p[2] = clipped(red);
            }
        }
    }
}

/** What a strong JPEG compression loses: 8 x 8 cosine blocks, quantised the coarser the higher the
 *  frequency. */
void throughCosineBlocks(Picture &picture, double step)
{
    std::array<std::array<double, 8>, 8> basis{};
    for (std::size_t u = 0; u < 8; ++u) {
        for (std::size_t x = 0; x < 8; ++x) {
            const double angle =
                (2 * static_cast<double>(x) + 1) * static_cast<double>(u) * std::numbers::pi / 16;
            basis[u][x] = std::cos(angle) * (u == 0 ? std::sqrt(0.125) : 0.5);
        }
    }
    for (int top = 0; top + 8 <= picture.height; top += 8) {
        for (int left = 0; left + 8 <= picture.width; left += 8) {
            for (int channel = 0; channel < 3; ++channel) {
                std::array<std::array<double, 8>, 8> out{};
                for (std::size_t v = 0; v < 8; ++v) {
                    for (std::size_t u = 0; u < 8; ++u) {
                        double sum = 0;
                        for (std::size_t i = 0; i < 64; ++i) {
                            sum += (picture.at(left + static_cast<int>(i % 8),
                                               top + static_cast<int>(i / 8))[channel] -
                                    128.0) *
                                   basis[u][i % 8] * basis[v][i / 8];
                        }
                        const double quantum = step * static_cast<double>(1 + u + v);
                        const double kept = std::round(sum / quantum) * quantum;
                        for (std::size_t i = 0; i < 64; ++i) {
                            out[i / 8][i % 8] += kept * basis[u][i % 8] * basis[v][i / 8];
                        }
                    }
                }
                for (int i = 0; i < 64; ++i) {
                    picture.at(left + i % 8, top + i / 8)[channel] = clipped(
                        out[static_cast<std::size_t>(i / 8)][static_cast<std::size_t>(i % 8)] +
                        128);
                }
            }
        }
    }
}

Picture mirrored(Picture picture)
{
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width / 2; ++x) {
            std::swap_ranges(picture.at(x, y), picture.at(x, y) + 4,
                             picture.at(picture.width - 1 - x, y));
        }
    }
    return picture;
}

Picture upsideDown(Picture picture)
{
    for (int y = 0; y < picture.height / 2; ++y) {
        std::swap_ranges(picture.at(0, y), picture.at(0, y) + picture.stride,
                         picture.at(0, picture.height - 1 - y));
    }
    return picture;
}

/** The picture moved right and down by so many pixels, its edge repeated. */
Picture shifted(const Picture &picture, int right, int down)
{
    Picture from = picture;
    Picture to = picture;
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const std::uint8_t *source = from.at(std::max(0, x - right), std::max(0, y - down));
            std::copy_n(source, 4, to.at(x, y));
        }
    }
    return to;
}

} // namespace

TEST(FrameStamp, read_drawnPicture_givesTheSameStampInBothBands)
{
    expectBoth(stamped(), kStamp);
}

TEST(FrameStamp, read_anySizeFromTheSmallestOn_givesTheStamp)
{
    expectBoth(stamped(640, 96), kStamp);
    expectBoth(stamped(641, 97), kStamp);
    expectBoth(stamped(640, 480), kStamp);
    expectBoth(stamped(1920, 1080), kStamp);
}

TEST(FrameStamp, read_paddedRows_givesTheStamp)
{
    Picture picture(1278, 200, 56);
    drawFrameStamp(picture.bytes.data(), picture.width, picture.height, picture.stride, kStamp);
    expectBoth(picture, kStamp);
}

TEST(FrameStamp, draw_tooSmallPicture_leavesItAloneAndReadsNothing)
{
    for (const auto &[width, height] : {std::pair{639, 480}, std::pair{640, 95}}) {
        Picture picture(width, height);
        const std::vector<std::uint8_t> before = picture.bytes;
        drawFrameStamp(picture.bytes.data(), width, height, picture.stride, kStamp);
        EXPECT_EQ(picture.bytes, before);
        expectBoth(picture, std::nullopt);
    }
}

TEST(FrameStamp, draw_anyPicture_touchesOnlyTheBands)
{
    const Picture plain(1280, 720);
    const Picture drawn = stamped();
    const std::ptrdiff_t band = std::ptrdiff_t{kStampBandHeight} * plain.stride;
    EXPECT_TRUE(std::equal(plain.bytes.begin() + band, plain.bytes.end() - band,
                           drawn.bytes.begin() + band));
}

TEST(FrameStamp, read_extremeValues_giveTheStamp)
{
    for (const FrameStamp stamp :
         {FrameStamp{}, FrameStamp{1, 1}, FrameStamp{0xFFFFFFFF, 0x0000FFFFFFFFFFFF}}) {
        Picture picture(1280, 720);
        drawFrameStamp(picture.bytes.data(), 1280, 720, picture.stride, stamp);
        expectBoth(picture, stamp);
    }
}

TEST(FrameStamp, read_timeBeyond48Bits_keepsTheLower48)
{
    Picture picture(640, 96);
    drawFrameStamp(picture.bytes.data(), 640, 96, picture.stride, {7, 0xABCD000000000001});
    expectBoth(picture, FrameStamp{7, 1});
}

TEST(FrameStamp, read_afterSubsampledColour_givesTheStampWhateverTheMatrix)
{
    for (const Matrix forth : {kBt601, kBt709}) {
        for (const Matrix back : {kBt601, kBt709}) {
            Picture picture = stamped();
            throughYuv420(picture, forth, back);
            expectBoth(picture, kStamp);
        }
    }
}

TEST(FrameStamp, read_limitedRangeTakenForFull_givesTheStamp)
{
    Picture picture = stamped();
    for (std::uint8_t &byte : picture.bytes) {
        byte = static_cast<std::uint8_t>(16 + byte * 219 / 255);
    }
    expectBoth(picture, kStamp);
}

TEST(FrameStamp, read_afterStrongCompression_givesTheStamp)
{
    Picture picture = stamped(640, 96);
    throughYuv420(picture, kBt601, kBt601);
    throughCosineBlocks(picture, 20);
    expectBoth(picture, kStamp);
}

TEST(FrameStamp, read_mirroredOrTurnedPicture_isRefused)
{
    expectBoth(mirrored(stamped()), std::nullopt);
    expectBoth(upsideDown(stamped()), std::nullopt);
    expectBoth(mirrored(upsideDown(stamped())), std::nullopt);
}

TEST(FrameStamp, read_pictureShiftedByACell_isRefused)
{
    expectBoth(shifted(stamped(), 20, 0), std::nullopt);
    expectBoth(shifted(stamped(), 0, kStampBandHeight / 2), std::nullopt);
}

TEST(FrameStamp, read_pictureShiftedByTwoPixels_givesTheStamp)
{
    expectBoth(shifted(stamped(), 2, 2), kStamp);
}

TEST(FrameStamp, read_tornPicture_givesTwoStamps)
{
    Picture torn = stamped();
    Picture next(1280, 720);
    const FrameStamp nextStamp{kStamp.number + 1, kStamp.timeUs + 33333};
    drawFrameStamp(next.bytes.data(), 1280, 720, next.stride, nextStamp);
    std::copy_n(next.bytes.begin(), next.bytes.size() / 2, torn.bytes.begin());

    EXPECT_EQ(torn.read(StampBand::Top), nextStamp);
    EXPECT_EQ(torn.read(StampBand::Bottom), kStamp);
}

TEST(FrameStamp, read_bandTornInItself_isRefused)
{
    Picture torn = stamped();
    Picture next(1280, 720);
    drawFrameStamp(next.bytes.data(), 1280, 720, next.stride, {1, 2});
    std::copy_n(next.bytes.begin(), next.stride * kStampBandHeight / 2, torn.bytes.begin());

    EXPECT_EQ(torn.read(StampBand::Top), std::nullopt);
}

TEST(FrameStamp, read_oneWrongCell_isRefused)
{
    for (int cell = 0; cell < 64; ++cell) {
        Picture picture = stamped();
        for (int y = 0; y < kStampBandHeight / 2; ++y) {
            for (int x = cell * 20; x < (cell + 1) * 20; ++x) {
                for (int channel = 0; channel < 3; ++channel) {
                    picture.at(x, y)[channel] ^= 0xFF;
                }
            }
        }
        EXPECT_EQ(picture.read(StampBand::Top), std::nullopt) << cell;
    }
}

TEST(FrameStamp, read_pictureWithoutStamp_isRefused)
{
    expectBoth(Picture(1280, 720), std::nullopt);
    for (const int value : {0, 16, 128, 235, 255}) {
        Picture picture(1280, 720);
        std::fill(picture.bytes.begin(), picture.bytes.end(), static_cast<std::uint8_t>(value));
        expectBoth(picture, std::nullopt);
    }
}

TEST(FrameStamp, read_randomBlackAndWhiteCells_areRefused)
{
    std::mt19937 random(1); // fixed: the same pictures every time
    Picture picture(640, 96);
    for (int round = 0; round < 500; ++round) {
        for (int row = 0; row < picture.height; row += kStampBandHeight / 2) {
            for (int cell = 0; cell < 64; ++cell) {
                const std::uint8_t value = (random() & 1U) != 0 ? 255 : 0;
                for (int y = row; y < row + kStampBandHeight / 2; ++y) {
                    std::fill_n(picture.at(cell * 10, y), 40, value);
                }
            }
        }
        expectBoth(picture, std::nullopt);
    }
}

TEST(FrameStamp, read_noPixels_givesNothing)
{
    EXPECT_EQ(readFrameStamp(nullptr, 1280, 720, 5120, StampBand::Top), std::nullopt);
}
