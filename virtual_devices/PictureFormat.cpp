// SPDX-License-Identifier: Apache-2.0
// The picture formats that a camera node offers, and the way into them from a B G R A frame.
#include "virtual_devices/PictureFormat.h"

#include <opencv2/core.hpp>
#include <opencv2/core/hal/intrin.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>

namespace lumivora {

namespace {

using cv::v_int16x8;
using cv::v_uint16x8;
using cv::v_uint8x16;

constexpr int kBlock = 16; // pixels that are converted at once
constexpr int kBytesPerPixel = 4;

/** Weights of ITU-R BT.601, limited range, for 8-bit R'G'B', in 1/32768. Those of U and of V add up
 *  to zero, so that grey stays exactly grey. */
struct Weights
{
    short blue;
    short green;
    short red;
    short base; // in 1/64, with the half that rounds
};
constexpr Weights kLuma = {3208, 16519, 8414, 16 * 64 + 32};
constexpr Weights kBlueDifference = {14392, -9535, -4857, 128 * 64 + 32};
constexpr Weights kRedDifference = {-2340, -12052, 14392, 128 * 64 + 32};

/** One component of 8 pixels, in times 128 (so that a byte fills a signed 16-bit lane). */
struct Pixels
{
    v_uint16x8 blue;
    v_uint16x8 green;
    v_uint16x8 red;
};

/** 16 neighbours, the even apart from the odd: neither the mean of a pair nor the bytes of a result
 *  then need their lanes moved. */
struct Block
{
    Pixels even;
    Pixels odd;
};

Block load(const std::uint8_t *bgra)
{
    v_uint8x16 blue;
    v_uint8x16 green;
    v_uint8x16 red;
    v_uint8x16 alpha;
    cv::v_load_deinterleave(bgra, blue, green, red, alpha);
    const auto even = [](const v_uint8x16 &bytes) {
        return cv::v_shr<1>(cv::v_shl<8>(cv::v_reinterpret_as_u16(bytes)));
    };
    const auto odd = [](const v_uint8x16 &bytes) {
        return cv::v_shl<7>(cv::v_shr<8>(cv::v_reinterpret_as_u16(bytes)));
    };
    return {{even(blue), even(green), even(red)}, {odd(blue), odd(green), odd(red)}};
}

Pixels mean(const Pixels &a, const Pixels &b)
{
    const auto half = [](const v_uint16x8 &x, const v_uint16x8 &y) {
        return cv::v_shr<1>(cv::v_add(x, y));
    };
    return {half(a.blue, b.blue), half(a.green, b.green), half(a.red, b.red)};
}

/** A Y, U or V sample of each of 8 pixels. */
v_uint16x8 weigh(const Pixels &pixels, const Weights &weights)
{
    const auto part = [](const v_uint16x8 &component, short weight) {
        return cv::v_mul_hi(cv::v_reinterpret_as_s16(component), cv::v_setall_s16(weight));
    };
    const v_int16x8 sum =
        cv::v_add(cv::v_add(part(pixels.blue, weights.blue), part(pixels.green, weights.green)),
                  cv::v_add(part(pixels.red, weights.red), cv::v_setall_s16(weights.base)));
    return cv::v_reinterpret_as_u16(cv::v_shr<6>(sum));
}

/** first[0] second[0] first[1] second[1] ..., each of which fits a byte. */
v_uint8x16 interleave(const v_uint16x8 &first, const v_uint16x8 &second)
{
    return cv::v_reinterpret_as_u8(cv::v_or(first, cv::v_shl<8>(second)));
}

v_uint8x16 luma(const Block &block)
{
    return interleave(weigh(block.even, kLuma), weigh(block.odd, kLuma));
}

/** Calls function with the first pixel of each block of a row. The last block ends with the row:
 *  pixels that two blocks share are converted twice, to the same result. */
template <typename Function>
void forEachBlock(int width, const Function &function)
{
    for (int x = 0; x < width; x += kBlock) {
        function(static_cast<std::size_t>(std::min(x, width - kBlock)));
    }
}

void toYuy2(const std::uint8_t *bgra, int width, std::uint8_t *out)
{
    forEachBlock(width, [&](std::size_t x) {
        const Block block = load(bgra + x * kBytesPerPixel);
        const Pixels pairs = mean(block.even, block.odd);
        v_uint8x16 low;
        v_uint8x16 high;
        cv::v_zip(luma(block),
                  interleave(weigh(pairs, kBlueDifference), weigh(pairs, kRedDifference)), low,
                  high);
        cv::v_store(out + 2 * x, low);
        cv::v_store(out + 2 * x + 16, high);
    });
}

/** Two rows into two rows of Y and one row of chroma, given as U and V to store. */
template <typename StoreChroma>
void to420(const std::uint8_t *bgra, std::size_t stride, int width, std::uint8_t *y, int yStride,
           const StoreChroma &storeChroma)
{
    forEachBlock(width, [&](std::size_t x) {
        const Block upper = load(bgra + x * kBytesPerPixel);
        const Block lower = load(bgra + stride + x * kBytesPerPixel);
        cv::v_store(y + x, luma(upper));
        cv::v_store(y + yStride + x, luma(lower));
        const Pixels quads = mean(mean(upper.even, upper.odd), mean(lower.even, lower.odd));
        storeChroma(x, weigh(quads, kBlueDifference), weigh(quads, kRedDifference));
    });
}

int roundUp4(int bytes)
{
    return (bytes + 3) & ~3;
}

} // namespace

PictureLayout PictureLayout::of(const PictureFormat &format)
{
    PictureLayout layout;
    const auto rows = static_cast<std::size_t>(format.height);
    const auto plane = [&layout](std::size_t index, int stride, std::size_t height) {
        layout.stride[index] = stride;
        layout.offset[index] = layout.bytes;
        layout.bytes += static_cast<std::size_t>(stride) * height;
    };
    switch (format.pixels) {
    case PixelFormat::Yuy2:
        plane(0, roundUp4(format.width * 2), rows);
        break;
    case PixelFormat::I420:
        plane(0, roundUp4(format.width), rows);
        plane(1, roundUp4(format.width / 2), rows / 2);
        plane(2, roundUp4(format.width / 2), rows / 2);
        break;
    case PixelFormat::Nv12:
        plane(0, roundUp4(format.width), rows);
        plane(1, roundUp4(format.width), rows / 2);
        break;
    case PixelFormat::Bgra:
    case PixelFormat::Bgrx:
        plane(0, format.width * kBytesPerPixel, rows);
        break;
    case PixelFormat::Rgb:
        plane(0, roundUp4(format.width * 3), rows);
        break;
    case PixelFormat::Mjpg:
        layout.bytes = static_cast<std::size_t>(format.width) * rows * 2;
        break;
    }
    return layout;
}

void convertPicture(const std::uint8_t *bgra, std::size_t stride, const PictureFormat &format,
                    std::uint8_t *out)
{
    const PictureLayout layout = PictureLayout::of(format);
    const auto rowOf = [&](std::size_t planeIndex, int row) {
        return out + layout.offset[planeIndex] +
               static_cast<std::size_t>(row) * static_cast<std::size_t>(layout.stride[planeIndex]);
    };
    const auto sourceRow = [&](int row) {
        return bgra + static_cast<std::size_t>(row) * stride;
    };

    switch (format.pixels) {
    case PixelFormat::Yuy2:
        for (int row = 0; row < format.height; ++row) {
            toYuy2(sourceRow(row), format.width, rowOf(0, row));
        }
        break;
    case PixelFormat::I420:
        for (int row = 0; row < format.height; row += 2) {
            std::uint8_t *u = rowOf(1, row / 2);
            std::uint8_t *v = rowOf(2, row / 2);
            to420(sourceRow(row), stride, format.width, rowOf(0, row), layout.stride[0],
                  [u, v](std::size_t x, const v_uint16x8 &uSamples, const v_uint16x8 &vSamples) {
                      cv::v_pack_store(u + x / 2, uSamples);
                      cv::v_pack_store(v + x / 2, vSamples);
                  });
        }
        break;
    case PixelFormat::Nv12:
        for (int row = 0; row < format.height; row += 2) {
            std::uint8_t *uv = rowOf(1, row / 2);
            to420(sourceRow(row), stride, format.width, rowOf(0, row), layout.stride[0],
                  [uv](std::size_t x, const v_uint16x8 &u, const v_uint16x8 &v) {
                      cv::v_store(uv + x, interleave(u, v));
                  });
        }
        break;
    case PixelFormat::Bgra:
    case PixelFormat::Bgrx:
        for (int row = 0; row < format.height; ++row) {
            std::memcpy(rowOf(0, row), sourceRow(row),
                        static_cast<std::size_t>(format.width) * kBytesPerPixel);
        }
        break;
    case PixelFormat::Rgb: {
        const cv::Mat from(format.height, format.width, CV_8UC4, const_cast<std::uint8_t *>(bgra),
                           stride);
        cv::Mat to(format.height, format.width, CV_8UC3, out,
                   static_cast<std::size_t>(layout.stride[0]));
        cv::cvtColor(from, to, cv::COLOR_BGRA2RGB);
        break;
    }
    case PixelFormat::Mjpg:
        break; // encoded elsewhere
    }
}

} // namespace lumivora
