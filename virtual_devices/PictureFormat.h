// SPDX-License-Identifier: Apache-2.0
// The picture formats that a camera node offers, and the way into them from a B G R A frame.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace lumivora {

enum class PixelFormat {
    Yuy2, // Y U Y V, 4:2:2
    I420, // planes Y, U, V, 4:2:0
    Nv12, // plane Y, plane U V, 4:2:0
    Bgra,
    Bgrx,
    Rgb,  // 24 bits
    Mjpg, // one JPEG picture a frame
};

/** What one frame looks like. Width and height are even; width is at least 16. */
struct PictureFormat
{
    PixelFormat pixels = PixelFormat::Yuy2;
    int width = 0;
    int height = 0;

    bool operator==(const PictureFormat &) const = default;
};

/** Where the planes of a picture lie in one block of memory. */
struct PictureLayout
{
    std::array<int, 3> stride{};         // bytes a row, per plane; 0 for a plane that is not there
    std::array<std::size_t, 3> offset{}; // of a plane's first byte
    std::size_t bytes = 0;               // of the block; for Mjpg the most that a picture takes

    /** Rows start at multiples of 4 bytes, as GStreamer lays pictures out by default. */
    [[nodiscard]] static PictureLayout of(const PictureFormat &format);
};

/** Converts a frame in one pass. YUV is BT.601, limited range, each chroma sample the mean of the
 *  pixels that share it, and within one level of the exact value; Bgra and Bgrx are exact copies.
 *  @param bgra    format.height rows of format.width * 4 bytes, stride bytes apart
 *  @param format  any but Mjpg
 *  @param out     PictureLayout::of(format).bytes bytes
 *  @thread reentrant */
void convertPicture(const std::uint8_t *bgra, std::size_t stride, const PictureFormat &format,
                    std::uint8_t *out);

} // namespace lumivora
