// SPDX-License-Identifier: Apache-2.0
// Copies plain RGB samples into images, in either order of rows.
#pragma once

#include <QImage>

namespace lumivora {

/** Rows of a picture in memory, in either order. */
struct PixelRows
{
    const uchar *pixels = nullptr;
    qsizetype bytes = 0;  // readable from pixels on
    qsizetype stride = 0; // bytes from a row to the next
};

/** The format of images of samples with that many bits per pixel: 24 give a 24-bit image, all other
 *  numbers a 32-bit one. Both hold B, G, R in memory, as samples do. */
[[nodiscard]] QImage::Format imageFormat(int bitsPerPixel);

/** Copies rows of B G R (24 bits) or B G R X (32 bits) into an image of the same format.
 *
 *  X becomes opaque: cameras leave anything there, and the effects read it as alpha.
 *
 *  @param image     not shared: its pixels are written in place
 *  @param reversed  whether the first row becomes the image's last
 *  @return false, with the image undefined, when the rows are shorter than the image needs */
[[nodiscard]] bool copyRows(const PixelRows &rows, QImage &image, bool reversed);

/** Sets the fourth byte of every pixel of a 32-bit image. */
void makeOpaque(QImage &image);

} // namespace lumivora
