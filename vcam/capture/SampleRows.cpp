// SPDX-License-Identifier: Apache-2.0
#include "vcam/capture/SampleRows.h"

#include <cstdint>
#include <cstring>

namespace lumivora {

namespace {

constexpr std::uint32_t kOpaque = 0xFF000000U;

void copyOpaque(const uchar *from, uchar *to, qsizetype pixels)
{
    for (qsizetype i = 0; i < pixels; ++i) {
        std::uint32_t pixel; // samples need not be aligned
        std::memcpy(&pixel, from + i * 4, 4);
        pixel |= kOpaque;
        std::memcpy(to + i * 4, &pixel, 4);
    }
}

} // namespace

QImage::Format imageFormat(int bitsPerPixel)
{
    return bitsPerPixel == 24 ? QImage::Format_BGR888 : QImage::Format_RGB32;
}

bool copyRows(const PixelRows &rows, QImage &image, bool reversed)
{
    const qsizetype rowBytes = qsizetype{image.width()} * image.depth() / 8;
    const qsizetype needed = rows.stride * (image.height() - 1) + rowBytes;
    if (rows.pixels == nullptr || rows.stride < rowBytes || rows.bytes < needed) {
        return false;
    }
    for (int y = 0; y < image.height(); ++y) {
        const uchar *from = rows.pixels + rows.stride * y;
        uchar *to = image.scanLine(reversed ? image.height() - 1 - y : y);
        if (image.depth() == 32) {
            copyOpaque(from, to, image.width());
        } else {
            std::memcpy(to, from, static_cast<std::size_t>(rowBytes));
        }
    }
    return true;
}

void makeOpaque(QImage &image)
{
    for (int y = 0; y < image.height(); ++y) {
        uchar *const row = image.scanLine(y);
        copyOpaque(row, row, image.width());
    }
}

} // namespace lumivora
