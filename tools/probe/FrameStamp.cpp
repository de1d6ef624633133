// SPDX-License-Identifier: Apache-2.0
// A frame's number and time of offer, drawn into the picture so that they survive any conversion.
#include "tools/probe/FrameStamp.h"

#include <array>
#include <cstddef>

namespace lumivora::tools {

namespace {

// A band is two rows of 64 cells. They are grey only, so that no colour matrix can change them, and
// each is at least 10 pixels wide, so that its middle outlives subsampled and compressed pictures.
constexpr int kColumns = 64;
constexpr int kRows = 2;
constexpr int kRowHeight = kStampBandHeight / kRows;
constexpr int kMinWidth = 640;
constexpr int kMinHeight = 96;

constexpr std::size_t kMarkBytes = 2;
constexpr std::size_t kNumberBytes = 4;
constexpr std::size_t kTimeBytes = 6;
constexpr std::size_t kChecksumBytes = 4;
constexpr std::size_t kDataBytes = kMarkBytes + kNumberBytes + kTimeBytes;
constexpr std::size_t kBytes = kDataBytes + kChecksumBytes;
static_assert(kBytes * 8 == std::size_t{kColumns} * kRows);

// The bands begin differently: a picture upside down does not read as a valid one.
constexpr std::array<std::uint8_t, kMarkBytes> kTopMark = {0xA6, 0x35};
constexpr std::array<std::uint8_t, kMarkBytes> kBottomMark = {0x59, 0xD2};

// A range mix-up leaves 16 and 235; a cell between these bounds is not one that we drew.
constexpr int kBlackBelow = 96;
constexpr int kWhiteAbove = 160;

using Code = std::array<std::uint8_t, kBytes>;

const std::array<std::uint8_t, kMarkBytes> &markOf(StampBand band)
{
    return band == StampBand::Top ? kTopMark : kBottomMark;
}

/** CRC-32 as in IEEE 802.3. */
std::uint32_t checksum(const std::uint8_t *bytes, std::size_t count)
{
    std::uint32_t crc = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < count; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~crc;
}

void putBigEndian(std::uint8_t *to, std::size_t count, std::uint64_t value)
{
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = static_cast<std::uint8_t>(value >> (8 * (count - 1 - i)));
    }
}

std::uint64_t bigEndian(const std::uint8_t *from, std::size_t count)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = (value << 8) | from[i];
    }
    return value;
}

Code encode(const FrameStamp &stamp, StampBand band)
{
    Code code{};
    const auto &mark = markOf(band);
    code[0] = mark[0];
    code[1] = mark[1];
    putBigEndian(&code[kMarkBytes], kNumberBytes, stamp.number);
    putBigEndian(&code[kMarkBytes + kNumberBytes], kTimeBytes, stamp.timeUs);
    putBigEndian(&code[kDataBytes], kChecksumBytes, checksum(code.data(), kDataBytes));
    return code;
}

/** Pixels of one cell; the columns divide the width as evenly as it goes. */
struct Cell
{
    Cell(int index, int width, int height, StampBand band)
        : left(index % kColumns * width / kColumns),
          right((index % kColumns + 1) * width / kColumns),
          top((band == StampBand::Top ? 0 : height - kStampBandHeight) +
              index / kColumns * kRowHeight),
          bottom(top + kRowHeight)
    {}

    int left;
    int right;
    int top;
    int bottom;
};

/** Mean brightness of the middle of a cell, where the neighbours' colours do not reach. */
int brightness(const std::uint8_t *pixels, int stride, const Cell &cell)
{
    const int marginX = (cell.right - cell.left) / 4;
    const int marginY = (cell.bottom - cell.top) / 4;
    const int count =
        (cell.right - cell.left - 2 * marginX) * (cell.bottom - cell.top - 2 * marginY);
    int sum = 0;
    for (int y = cell.top + marginY; y < cell.bottom - marginY; ++y) {
        const std::uint8_t *row = pixels + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = cell.left + marginX; x < cell.right - marginX; ++x) {
            const std::uint8_t *pixel = row + static_cast<std::ptrdiff_t>(x) * 4;
            sum += (pixel[0] + 2 * pixel[1] + pixel[2]) / 4;
        }
    }
    return sum / count;
}

bool fits(const std::uint8_t *pixels, int width, int height, int stride)
{
    return pixels != nullptr && width >= kMinWidth && height >= kMinHeight && stride >= width * 4;
}

void drawBand(std::uint8_t *pixels, int width, int height, int stride, const FrameStamp &stamp,
              StampBand band)
{
    const Code code = encode(stamp, band);
    for (int index = 0; index < kColumns * kRows; ++index) {
        const auto byte = static_cast<std::size_t>(index / 8);
        const bool white = ((code[byte] >> (7 - index % 8)) & 1) != 0;
        const std::uint8_t value = white ? 255 : 0;
        const Cell cell(index, width, height, band);
        for (int y = cell.top; y < cell.bottom; ++y) {
            std::uint8_t *row = pixels + static_cast<std::ptrdiff_t>(y) * stride;
            for (int x = cell.left; x < cell.right; ++x) {
                std::uint8_t *pixel = row + static_cast<std::ptrdiff_t>(x) * 4;
                pixel[0] = pixel[1] = pixel[2] = value;
                pixel[3] = 255;
            }
        }
    }
}

} // namespace

void drawFrameStamp(std::uint8_t *pixels, int width, int height, int stride,
                    const FrameStamp &stamp)
{
    if (!fits(pixels, width, height, stride)) {
        return;
    }
    drawBand(pixels, width, height, stride, stamp, StampBand::Top);
    drawBand(pixels, width, height, stride, stamp, StampBand::Bottom);
}

std::optional<FrameStamp> readFrameStamp(const std::uint8_t *pixels, int width, int height,
                                         int stride, StampBand band)
{
    if (!fits(pixels, width, height, stride)) {
        return std::nullopt;
    }
    Code code{};
    for (int index = 0; index < kColumns * kRows; ++index) {
        const int value = brightness(pixels, stride, Cell(index, width, height, band));
        if (value >= kBlackBelow && value <= kWhiteAbove) {
            return std::nullopt;
        }
        if (value > kWhiteAbove) {
            const auto byte = static_cast<std::size_t>(index / 8);
            code[byte] = static_cast<std::uint8_t>(code[byte] | (1U << (7 - index % 8)));
        }
    }
    const auto &mark = markOf(band);
    if (code[0] != mark[0] || code[1] != mark[1] ||
        bigEndian(&code[kDataBytes], kChecksumBytes) != checksum(code.data(), kDataBytes)) {
        return std::nullopt;
    }
    return FrameStamp{.number =
                          static_cast<std::uint32_t>(bigEndian(&code[kMarkBytes], kNumberBytes)),
                      .timeUs = bigEndian(&code[kMarkBytes + kNumberBytes], kTimeBytes)};
}

} // namespace lumivora::tools
