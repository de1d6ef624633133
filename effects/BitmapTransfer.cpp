// SPDX-License-Identifier: Apache-2.0
#include "effects/BitmapTransfer.h"

#include "effects/EffectsLog.h"

#include <QImage>

#include <algorithm>
#include <cstring>

namespace lumivora {

namespace {

constexpr quint32 kBytesPerPixel = 4;
constexpr FLOAT kDpi = 96.0F;

bool hasRoomFor(const QImage &image, const QSize &size)
{
    return image.size() == size && image.depth() == 8 * int{kBytesPerPixel};
}

void copyRows(const D2D1_MAPPED_RECT &mapped, QImage &image)
{
    uchar *const bits = image.bits();
    const auto pitch = static_cast<qsizetype>(mapped.pitch);
    const qsizetype bytesPerLine = image.bytesPerLine();
    if (pitch == bytesPerLine) {
        std::memcpy(bits, mapped.bits, static_cast<std::size_t>(image.height() * pitch));
        return;
    }
    // Some devices pad the rows of what they map.
    const auto rowBytes = static_cast<std::size_t>(std::min(pitch, bytesPerLine));
    for (int row = 0; row < image.height(); ++row) {
        std::memcpy(bits + row * bytesPerLine, mapped.bits + row * pitch, rowBytes);
    }
}

} // namespace

ComPtr<ID2D1Bitmap1> createBitmapFromBuffer(const ComPtr<ID2D1DeviceContext> &context,
                                            const void *pixels, quint32 width, quint32 height,
                                            bool cpuReadable)
{
    D2D1_BITMAP_PROPERTIES1 properties{};
    properties.pixelFormat = {DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED};
    properties.dpiX = kDpi;
    properties.dpiY = kDpi;
    properties.bitmapOptions = cpuReadable
                                   ? D2D1_BITMAP_OPTIONS_CANNOT_DRAW | D2D1_BITMAP_OPTIONS_CPU_READ
                                   : D2D1_BITMAP_OPTIONS_TARGET;
    const quint32 pitch = pixels != nullptr ? width * kBytesPerPixel : 0;

    ComPtr<ID2D1Bitmap1> bitmap;
    const HRESULT result =
        context->CreateBitmap({width, height}, pixels, pitch, &properties, bitmap.put());
    if (FAILED(result)) {
        qCWarning(lcEffects, "Failed to create ID2D1Bitmap1 from buffer.");
        return {};
    }
    return bitmap;
}

bool readBackBitmap(ComPtr<ID2D1DeviceContext> context, ComPtr<ID2D1Bitmap1> target,
                    ComPtr<ID2D1Bitmap1> cpuBitmap, QImage &image)
{
    if (!context || !target || !cpuBitmap) {
        return false;
    }
    if (target->GetPixelFormat().format != DXGI_FORMAT_B8G8R8A8_UNORM) {
        qCWarning(lcEffects, "Unsupported pixel format. Expected B8G8R8A8.");
        return false;
    }
    const D2D1_SIZE_U pixelSize = target->GetPixelSize();
    const QSize size(static_cast<int>(pixelSize.width), static_cast<int>(pixelSize.height));
    if (!hasRoomFor(image, size)) {
        image = QImage(size, QImage::Format_ARGB32);
    }

    context->SetTarget(target.get());
    if (FAILED(cpuBitmap->CopyFromRenderTarget(nullptr, context.get(), nullptr))) {
        qCWarning(lcEffects, "Unable to copy the rendered bitmap for reading!");
        return false;
    }
    D2D1_MAPPED_RECT mapped{};
    if (FAILED(cpuBitmap->Map(D2D1_MAP_OPTIONS_READ, &mapped))) {
        qCWarning(lcEffects, "Unable to map bitmap to retrieve buffer!");
        return false;
    }
    copyRows(mapped, image);
    cpuBitmap->Unmap();
    return true;
}

} // namespace lumivora
