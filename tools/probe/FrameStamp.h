// SPDX-License-Identifier: Apache-2.0
// A frame's number and time of offer, drawn into the picture so that they survive any conversion.
#pragma once

#include <cstdint>
#include <optional>

namespace lumivora::tools {

/** What the stand-in camera draws into each frame and a measuring client reads back. */
struct FrameStamp
{
    std::uint32_t number = 0;
    std::uint64_t timeUs = 0; // CLOCK_MONOTONIC, microseconds; 48 bits are kept

    bool operator==(const FrameStamp &) const = default;
};

/** Where in the picture: a frame whose two stamps differ was torn. */
enum class StampBand { Top, Bottom };

/** Height in pixels of a band, at the very top and bottom of the picture. */
inline constexpr int kStampBandHeight = 32;

/** Draws the stamp as black and white blocks, with a checksum, into both bands of a picture.
 *  @param pixels  B G R X, stride bytes a row; width at least 640, height at least 96
 */
void drawFrameStamp(std::uint8_t *pixels, int width, int height, int stride,
                    const FrameStamp &stamp);

/** Reads a band's stamp back; none when the checksum does not fit or the picture is too small. */
[[nodiscard]] std::optional<FrameStamp> readFrameStamp(const std::uint8_t *pixels, int width,
                                                       int height, int stride, StampBand band);

} // namespace lumivora::tools
